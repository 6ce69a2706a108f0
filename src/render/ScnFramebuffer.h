// An off-screen target with up to four colour textures and a depth buffer.
#pragma once

#include "node/ScnNode.h"

class ScnShader;

class ScnFramebuffer : public ScnNode {
    SCN_NODE(ScnFramebuffer, ScnNode)
public:
    ScnFramebuffer();

    static constexpr uint32_t kCL_RGBA = 0x10B5;
    static constexpr uint32_t kCL_HALF_FLOAT = 0x10DD;

    ScnMFNode<ScnShader> shaders{this, "shaders"};
    ScnSF<int> width{this, "width", 1024};
    ScnSF<int> height{this, "height", 768};
    ScnSF<int> attachment{this, "attachment", 2};
    ScnSFImageFormat format{this, "format", ScnImageFormat{kCL_RGBA, kCL_HALF_FLOAT}};
    ScnSFTextureFlags flags{this, "flags", ScnTextureFlags{{1, 0, 0, 0}}};

    // After a read the first flag word is always 2.
    void read(ScnInStream& in) override;

    // Paths reach the shaders below a framebuffer.
    ScnNode* getChild(int index) override;
    int indexOfChild(const ScnNode* node) override;
    int childCount() const override { return static_cast<int>(shaders.count()); }
    const ScnMFNodeBase* childList() const override { return &shaders; }

    // Run-time target: the GL framebuffer and its colour textures, made by
    // the framebuffer's own create step; 0 while it has none.
    unsigned fbo = 0;
    unsigned textures[4] = {0, 0, 0, 0};
    int textureCount = 0;
    ScnNode* camera = nullptr;  // the camera rendering it this frame
    ScnNode* root = nullptr;    // what it draws instead of the scene (setRoot)

    // Binds the target and clears it; false, with nothing bound, when the
    // framebuffer has no target.
    virtual bool beginRender();
    virtual void endRender();
};
