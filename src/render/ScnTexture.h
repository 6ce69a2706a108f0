// Texture nodes: a 2D or 3D texture of the scene with its size, image
// format, filter flags and the kind of object its content comes from.
#pragma once

#include "node/ScnNode.h"

// The first flag word is a bit mask: 1 linear filtering, 2 nearest, 4
// mipmaps, 8 no pixel buffer. The other three words are kept as they come.
class ScnTexture2D : public ScnNode {
    SCN_NODE(ScnTexture2D, ScnNode)
public:
    ScnTexture2D();

    // OpenCL image format codes of the default format.
    static constexpr uint32_t kCL_RGBA = 0x10B5;
    static constexpr uint32_t kCL_UNORM_INT8 = 0x10D2;

    // Path of the source file.
    ScnSFString extension{this, "extension"};
    // True: the texture takes a new texture unit; false: the unit last taken.
    ScnSFBool stack{this, "stack", true};
    // Kept with the node only: the pixel buffer follows the flags.
    ScnSFBool pbo{this, "pbo", false};
    ScnSFScript dim0{this, "dim0", 256};
    ScnSFScript dim1{this, "dim1", 256};
    // 0 no file, 1 video, 2 image, 3 no source object.
    ScnSFChar source{this, "source", 0};
    ScnSFTextureFlags flags{this, "flags", ScnTextureFlags{{1, 0, 0, 0}}};
    ScnSFImageFormat format{this, "format", ScnImageFormat{kCL_RGBA, kCL_UNORM_INT8}};
};

class ScnTexture3D : public ScnNode {
    SCN_NODE(ScnTexture3D, ScnNode)
public:
    ScnTexture3D();

    ScnSFString file{this, "file"};
    ScnSFScript dimX{this, "dimX", 64};
    ScnSFScript dimY{this, "dimY", 64};
    ScnSFScript dimZ{this, "dimZ", 64};
    // 3 is a volume file; anything else leaves the content to kernels and scripts.
    ScnSFChar source{this, "source", 0};
    ScnSFTextureFlags flags{this, "flags", ScnTextureFlags{{1, 0, 0, 0}}};
    ScnSFImageFormat format{this, "format", ScnImageFormat{ScnTexture2D::kCL_RGBA, ScnTexture2D::kCL_UNORM_INT8}};
};
