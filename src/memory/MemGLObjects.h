// Memory shared with OpenGL: typed memory objects whose storage is an OpenGL
// buffer or texture. The OpenCL side (the cl_mem, see MemGLShared for its two
// roads) and the element proxy are those of every memory object; host access
// goes through OpenGL: glMapBuffer for buffers, a pixel buffer object that
// the texture is packed into for textures.
//
// Every constructor and destructor calls OpenGL and makes the active context
// current for it; without a context the object stays empty (no GL name, no
// cl_mem) with a message.
#pragma once

#include <string>

#include "memory/MemGLShared.h"
#include "memory/MemObjects.h"
#include "node/ScnField.h"

// A vertex or index buffer.
class MemTypeGLBuffer : public MemType1D, public MemGLShared {
public:
    // `target`: GL_ARRAY_BUFFER or GL_ELEMENT_ARRAY_BUFFER.
    MemTypeGLBuffer(oclContext* context, uint32_t count, uint32_t typeCode, uint32_t target, const std::string& name);
    ~MemTypeGLBuffer() override;

    // glMapBuffer: 1 read, 2 write, 3 both. The cl_mem stays.
    bool map(cl_map_flags flags, int d) override;
    bool unmap(int d) override;
    // The cl_mem, then the GL buffer.
    void release() override;
    // The size in bytes, for every axis.
    size_t dim(int axis) override;
    // Refused: host access is mem.map.
    bool read(int d) override;
    bool write(int d) override;
    // A new buffer of `size` bytes; the content is lost.
    bool resize(size_t size, void* host) override;

    unsigned glId = 0;
    uint32_t target;
    // The largest buffer made; a larger one is refused with a message and
    // leaves the object without storage.
    static constexpr size_t kMaxBytes = size_t{1} << 31;

protected:
    oclMem& sharedMem() override { return *this; }
    bool copyToCL(cl_command_queue queue) override;
    bool copyToGL(cl_command_queue queue) override;

private:
    void build();
};

// The texture flags: four words of which the first is a bit mask.
namespace MemTextureFlags {
constexpr uint32_t Linear = 1;
constexpr uint32_t Nearest = 2;
constexpr uint32_t Mipmaps = 4;
constexpr uint32_t NoPixelBuffer = 8;
}  // namespace MemTextureFlags

// What 2D and 3D textures share: the OpenGL texture with its filters and
// pixel buffer, host access through that buffer (which takes the OpenCL
// image away for the time of a map), and the copies of the copy road. The
// memory object classes below forward their operations here.
class MemGLTexture : public MemGLShared {
public:
    using FLAGS = ScnTextureFlags;

    // Texture to pixel buffer, and back: 1, or 0 without a pixel buffer.
    int pack();
    int unpack();

    unsigned glId = 0;
    FLAGS flags;
    const cl_image_format* imageFormat;
    uint32_t internalFormat;
    uint32_t glType;
    unsigned pbo = 0;

protected:
    // `target`: GL_TEXTURE_2D or GL_TEXTURE_3D. `format` is kept by pointer
    // and must outlive the object.
    MemGLTexture(oclContext* context, unsigned target, const cl_image_format* format, const FLAGS* flags);

    // Texture, filters by the flags, clamped wrap, pixel buffer (always in
    // 3D, unless flag 8 in 2D), cl_mem.
    void buildTexture();
    // 1: pack, then map the pixel buffer for reading; 2: map it for writing.
    // Either gives up the cl_mem until unmap; other flags are refused.
    bool mapTexture(cl_map_flags how);
    // Unmaps (and after a write unpacks) and makes a new cl_mem.
    bool unmapTexture();
    void releaseTexture();
    // Host access is mem.map: read and write are refused.
    bool refuseRead();
    bool refuseWrite();
    // The stored format; no OpenCL query.
    cl_image_format* storedFormat(cl_image_format* out) const;
    bool copyToCL(cl_command_queue queue) override;
    bool copyToGL(cl_command_queue queue) override;
    void bind() const;
    void unbindTexture() const;

private:
    bool threeD() const;
    // Width, height, depth (1 in 2D).
    size_t extent(int axis);
    void defineImage(bool fromPixelBuffer);
    void makeView();

    unsigned m_target;
    unsigned m_staging = 0;  // copy road: the transfer buffer, made at the first acquire
    bool m_viewRefused = false;  // copy road: the platform has no image of this format
};

class MemTypeTexture2D : public MemType2D, public MemGLTexture {
public:
    MemTypeTexture2D(oclContext* context, uint32_t width, uint32_t height, const cl_image_format* format,
                     const std::string& name, const FLAGS* flags);
    ~MemTypeTexture2D() override;

    bool map(cl_map_flags flags, int) override { return mapTexture(flags); }
    bool unmap(int) override { return unmapTexture(); }
    void release() override { releaseTexture(); }
    // Width and height, whether or not there is a cl_mem.
    size_t dim(int axis) override;
    bool read(int) override { return refuseRead(); }
    bool write(int) override { return refuseWrite(); }
    // A new texture of that size with the same flags; the content is lost.
    bool resize(size_t width, size_t height, void* host) override;
    cl_image_format* format(cl_image_format* out) override { return storedFormat(out); }

protected:
    oclMem& sharedMem() override { return *this; }
};

// A texture sampled in the scene: anisotropic filtering as far as the driver
// goes, at most 16.
class MemTypeImageTexture : public MemTypeTexture2D {
public:
    MemTypeImageTexture(oclContext* context, uint32_t width, uint32_t height, const cl_image_format* format,
                        const std::string& name, const FLAGS* flags);
};

// A framebuffer's colour attachment: linear filtering and clamped edges,
// whatever the flags say.
class MemTypeFboTarget : public MemTypeTexture2D {
public:
    MemTypeFboTarget(oclContext* context, uint32_t width, uint32_t height, const cl_image_format* format,
                     const std::string& name, const FLAGS* flags);
};

class MemTypeTexture3D : public MemType3D, public MemGLTexture {
public:
    MemTypeTexture3D(oclContext* context, uint32_t width, uint32_t height, uint32_t depth,
                     const cl_image_format* format, const std::string& name, const FLAGS* flags);
    ~MemTypeTexture3D() override;

    bool map(cl_map_flags flags, int) override { return mapTexture(flags); }
    bool unmap(int) override { return unmapTexture(); }
    void release() override { releaseTexture(); }
    size_t dim(int axis) override;
    bool read(int) override { return refuseRead(); }
    bool write(int) override { return refuseWrite(); }
    // Refused: "setSize not implemented".
    bool resize(size_t width, size_t height, size_t depth, void* host) override;
    cl_image_format* format(cl_image_format* out) override { return storedFormat(out); }

protected:
    oclMem& sharedMem() override { return *this; }
};

// The OpenCL image format that the sharing road gives a texture of this GL
// internal format, which the copy road uses for its image; with the pixel
// format and type that move such pixels between the texture and a buffer.
// False for an internal format that no OpenCL image stands for.
bool memCLFormatOfTexture(uint32_t internalFormat, cl_image_format& clFormat, uint32_t& pixelFormat,
                          uint32_t& pixelType);
