#include "memory/MemGLObjects.h"

#include <GL/glew.h>

#include <algorithm>
#include <type_traits>
#include <vector>

#include "memory/MemGlobal.h"
#include "platform/GlContext.h"

namespace {

void report(oclObject* o, const char* text)
{
    oclMessage(oclErrorHandler, o) << text;
}

bool noContext(oclObject* o)
{
    report(o, "no OpenGL context: the object has no OpenGL storage");
    return false;
}

// Rows of any width are packed tightly, as the element addressing takes
// them; the caller's pixel-store state comes back afterwards.
class TightRows {
public:
    TightRows()
    {
        glGetIntegerv(GL_PACK_ALIGNMENT, &m_pack);
        glGetIntegerv(GL_UNPACK_ALIGNMENT, &m_unpack);
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    }
    ~TightRows()
    {
        glPixelStorei(GL_PACK_ALIGNMENT, m_pack);
        glPixelStorei(GL_UNPACK_ALIGNMENT, m_unpack);
    }

private:
    GLint m_pack = 4, m_unpack = 4;
};

// The pixel format of host access to a texture (pack, unpack). Four-channel
// textures use GL_RGBA in 2D and the format of their channel order in 3D;
// one-channel textures use their one channel in both, since a pixel buffer
// sized for one channel cannot take four.
GLenum hostPixelFormat(uint32_t order, bool threeD)
{
    switch (order) {
    case CL_LUMINANCE: case CL_INTENSITY: return GL_LUMINANCE;
    case CL_R: return GL_RED;
    case CL_A: return GL_ALPHA;
    case CL_BGRA: return threeD ? GL_BGRA : GL_RGBA;
    default: return GL_RGBA;
    }
}

size_t channelCount(uint32_t order)
{
    switch (order) {
    case CL_R: case CL_A: case CL_INTENSITY: case CL_LUMINANCE: return 1;
    case CL_RG: case CL_RA: return 2;
    case CL_RGB: return 3;
    default: return 4;
    }
}

size_t channelSize(uint32_t type)
{
    switch (type) {
    case CL_SNORM_INT8: case CL_UNORM_INT8: case CL_SIGNED_INT8: case CL_UNSIGNED_INT8: return 1;
    case CL_SIGNED_INT32: case CL_UNSIGNED_INT32: case CL_FLOAT: return 4;
    default: return 2;
    }
}

// Filters by the flags: flag 1 wins over flag 2. Nearest with mipmaps
// still blends between levels (GL_LINEAR_MIPMAP_NEAREST). With mipmaps the
// magnification filter stays at OpenGL's default, which takes no mipmap mode.
void applyFilters(GLenum target, uint32_t bits)
{
    using namespace MemTextureFlags;
    const bool mipmaps = bits & Mipmaps;
    GLfloat filter = 0;
    if (bits & Nearest) filter = mipmaps ? GL_LINEAR_MIPMAP_NEAREST : GL_NEAREST;
    if (bits & Linear) filter = mipmaps ? GL_LINEAR_MIPMAP_LINEAR : GL_LINEAR;
    if (filter == 0) return;
    glTexParameterf(target, GL_TEXTURE_MIN_FILTER, filter);
    if (!mipmaps) glTexParameterf(target, GL_TEXTURE_MAG_FILTER, filter);
}

GLuint makeBuffer(GLenum target, size_t bytes, GLenum usage)
{
    GLuint id = 0;
    glGenBuffers(1, &id);
    glBindBuffer(target, id);
    glBufferData(target, static_cast<GLsizeiptr>(bytes), nullptr, usage);
    glBindBuffer(target, 0);
    return id;
}

// Releases the cl_mem of a texture for a map: the mapping flags stay.
void dropView(oclMem& m, oclContext* context)
{
    if (!m.mem) return;
    if (context) context->finishAll();
    oclLastError = clReleaseMemObject(m.mem);
    m.mem = nullptr;
    ++m.generation;
    oclCheck("clReleaseMemObject", &m);
}

bool offered(oclContext* context, const cl_image_format& f, cl_mem_object_type kind)
{
    cl_uint n = 0;
    if (clGetSupportedImageFormats(context->handle(), CL_MEM_READ_WRITE, kind, 0, nullptr, &n) != CL_SUCCESS) return true;
    std::vector<cl_image_format> all(n);
    if (clGetSupportedImageFormats(context->handle(), CL_MEM_READ_WRITE, kind, n, all.data(), nullptr) != CL_SUCCESS)
        return true;
    for (const cl_image_format& a : all)
        if (a.image_channel_order == f.image_channel_order && a.image_channel_data_type == f.image_channel_data_type)
            return true;
    return false;
}

// The copy road's image for a texture: the format the sharing road would
// give, or the texture's own where the internal format has none. A format
// the platform does not offer gives no image, as a sharing driver gives none
// for a texture it cannot share; that is said once, the first time.
cl_mem plainImage(oclContext* context, uint32_t internalFormat, const cl_image_format* own, size_t w, size_t h,
                  size_t d, oclObject* o, bool& refused)
{
    if (refused) return nullptr;
    cl_image_format f = *own;
    uint32_t pf = 0, pt = 0;
    memCLFormatOfTexture(internalFormat, f, pf, pt);
    if (!offered(context, f, d ? CL_MEM_OBJECT_IMAGE3D : CL_MEM_OBJECT_IMAGE2D)) {
        refused = true;
        oclMessage(oclErrorHandler, o) << "no OpenCL image of format " << clChannelOrderName(f.image_channel_order)
                                       << " " << clChannelTypeName(f.image_channel_data_type)
                                       << " on this platform: kernels cannot use the texture";
        return nullptr;
    }
    cl_mem m = d ? clCreateImage3D(context->handle(), CL_MEM_READ_WRITE, &f, w, h, d, 0, 0, nullptr, &oclLastError)
                 : clCreateImage2D(context->handle(), CL_MEM_READ_WRITE, &f, w, h, 0, nullptr, &oclLastError);
    return oclCheck(d ? "clCreateImage3D" : "clCreateImage2D", o) ? m : nullptr;
}

// Texture to OpenCL image through the staging buffer (copy road).
bool textureToImage(cl_command_queue q, oclMem& m, GLenum target, GLuint tex, GLuint& staging,
                    uint32_t internalFormat, const cl_image_format* own, const size_t (&region)[3])
{
    cl_image_format f = *own;
    uint32_t pf = GL_RGBA, pt = GL_UNSIGNED_BYTE;
    memCLFormatOfTexture(internalFormat, f, pf, pt);
    const size_t bytes = region[0] * region[1] * region[2] * channelCount(f.image_channel_order) *
                         channelSize(f.image_channel_data_type);
    TightRows rows;
    if (!staging) staging = makeBuffer(GL_PIXEL_PACK_BUFFER, bytes, GL_STREAM_READ);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, staging);
    glBindTexture(target, tex);
    glGetTexImage(target, 0, pf, pt, nullptr);
    glBindTexture(target, 0);
    void* p = glMapBuffer(GL_PIXEL_PACK_BUFFER, GL_READ_ONLY);
    const size_t origin[3] = {0, 0, 0};
    if (p)
        oclLastError = clEnqueueWriteImage(q, m.mem, CL_TRUE, origin, region, 0, 0, p, 0, nullptr, nullptr);
    glUnmapBuffer(GL_PIXEL_PACK_BUFFER);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    if (!p) {
        report(&m, "glMapBuffer of the transfer buffer failed");
        return false;
    }
    return oclCheck("clEnqueueWriteImage", &m);
}

// OpenCL image to texture through the staging buffer (copy road). Mipmaps
// are left as they are, as a kernel writing a shared texture leaves them.
bool imageToTexture(cl_command_queue q, oclMem& m, GLenum target, GLuint tex, GLuint& staging,
                    uint32_t internalFormat, const cl_image_format* own, const size_t (&region)[3])
{
    cl_image_format f = *own;
    uint32_t pf = GL_RGBA, pt = GL_UNSIGNED_BYTE;
    memCLFormatOfTexture(internalFormat, f, pf, pt);
    const size_t bytes = region[0] * region[1] * region[2] * channelCount(f.image_channel_order) *
                         channelSize(f.image_channel_data_type);
    TightRows rows;
    if (!staging) staging = makeBuffer(GL_PIXEL_UNPACK_BUFFER, bytes, GL_STREAM_DRAW);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, staging);
    void* p = glMapBuffer(GL_PIXEL_UNPACK_BUFFER, GL_WRITE_ONLY);
    const size_t origin[3] = {0, 0, 0};
    if (p) oclLastError = clEnqueueReadImage(q, m.mem, CL_TRUE, origin, region, 0, 0, p, 0, nullptr, nullptr);
    glUnmapBuffer(GL_PIXEL_UNPACK_BUFFER);
    const bool ok = p && oclLastError == CL_SUCCESS;
    if (ok) {
        glBindTexture(target, tex);
        if (target == GL_TEXTURE_3D)
            glTexSubImage3D(target, 0, 0, 0, 0, static_cast<GLsizei>(region[0]), static_cast<GLsizei>(region[1]),
                            static_cast<GLsizei>(region[2]), pf, pt, nullptr);
        else
            glTexSubImage2D(target, 0, 0, 0, static_cast<GLsizei>(region[0]), static_cast<GLsizei>(region[1]), pf,
                            pt, nullptr);
        glBindTexture(target, 0);
    }
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
    if (!p) {
        report(&m, "glMapBuffer of the transfer buffer failed");
        return false;
    }
    return oclCheck("clEnqueueReadImage", &m);
}

// The texture element classes of one dimensionality, by element shape.
template <class O, int D, class Tex>
struct MemTextureFamily {
    template <class U, class T, int N, bool V>
    using F = MemTextureElementProxy<U, T, N, V, O, D, Tex>;
};

template <class Tex>
MemProxy* textureProxy(Tex* texture, uint32_t w, uint32_t h, uint32_t d, uint32_t code)
{
    const uint32_t dims[3] = {w, h, d};
    const uint32_t stored = code < MemTypes::kCount ? code : 0;
    constexpr int D = std::is_same_v<Tex, MemTypeTexture3D> ? 3 : 2;
    using O = std::conditional_t<D == 3, oclImage3D, oclImage2D>;
    return MemProxyDetail::byCode<MemTextureFamily<O, D, Tex>::template F>(code, [&](auto* tag) -> MemProxy* {
        using P = std::remove_pointer_t<decltype(tag)>;
        return new P(texture, dims, stored);
    });
}

}  // namespace

bool memCLFormatOfTexture(uint32_t internalFormat, cl_image_format& f, uint32_t& pixelFormat, uint32_t& pixelType)
{
    switch (internalFormat) {
    case GL_RGBA8: case GL_RGBA: f = {CL_RGBA, CL_UNORM_INT8}; pixelFormat = GL_RGBA; pixelType = GL_UNSIGNED_BYTE; return true;
    case GL_RGBA16: f = {CL_RGBA, CL_UNORM_INT16}; pixelFormat = GL_RGBA; pixelType = GL_UNSIGNED_SHORT; return true;
    case GL_RGBA16F: f = {CL_RGBA, CL_HALF_FLOAT}; pixelFormat = GL_RGBA; pixelType = GL_HALF_FLOAT; return true;
    case GL_RGBA32F: f = {CL_RGBA, CL_FLOAT}; pixelFormat = GL_RGBA; pixelType = GL_FLOAT; return true;
    case GL_LUMINANCE8: case GL_LUMINANCE: f = {CL_LUMINANCE, CL_UNORM_INT8}; break;
    case GL_LUMINANCE16: f = {CL_LUMINANCE, CL_UNORM_INT16}; break;
    case GL_LUMINANCE16F_ARB: f = {CL_LUMINANCE, CL_HALF_FLOAT}; break;
    case GL_LUMINANCE32F_ARB: f = {CL_LUMINANCE, CL_FLOAT}; break;
    case GL_INTENSITY8: case GL_INTENSITY: f = {CL_INTENSITY, CL_UNORM_INT8}; break;
    case GL_INTENSITY16: f = {CL_INTENSITY, CL_UNORM_INT16}; break;
    case GL_INTENSITY16F_ARB: f = {CL_INTENSITY, CL_HALF_FLOAT}; break;
    case GL_INTENSITY32F_ARB: f = {CL_INTENSITY, CL_FLOAT}; break;
    default: return false;
    }
    pixelFormat = GL_LUMINANCE;
    switch (f.image_channel_data_type) {
    case CL_UNORM_INT16: pixelType = GL_UNSIGNED_SHORT; break;
    case CL_HALF_FLOAT: pixelType = GL_HALF_FLOAT; break;
    case CL_FLOAT: pixelType = GL_FLOAT; break;
    default: pixelType = GL_UNSIGNED_BYTE; break;
    }
    return true;
}

// ---------------------------------------------------------------- MemTypeGLBuffer

MemTypeGLBuffer::MemTypeGLBuffer(oclContext* context, uint32_t count, uint32_t typeCode, uint32_t target,
                                 const std::string& name)
    : MemType1D(context, name), MemGLShared(context), target(target)
{
    proxy = makeBufferProxy(this, count, typeCode);
    build();
}

MemTypeGLBuffer::~MemTypeGLBuffer()
{
    release();
}

void MemTypeGLBuffer::build()
{
    GlScope gl;
    if (!gl.ok()) {
        noContext(this);
        return;
    }
    // Sizes come from files and scripts: a size expression of 2^31 would
    // ask for tens of gigabytes twice over (the buffer and its OpenCL twin).
    if (proxy->byteSize() > kMaxBytes) {
        oclMessage(oclErrorHandler, this) << "a buffer of " << proxy->byteSize() << " bytes is larger than the "
                                          << (kMaxBytes >> 20) << " MB a buffer may have";
        return;
    }
    glId = makeBuffer(target, proxy->byteSize(), GL_DYNAMIC_DRAW);
    if (!m_context) return;
    if (m_shares) {
        mem = sharingCalls.fromBuffer(m_context->handle(), CL_MEM_READ_WRITE, glId, &oclLastError);
        ++generation;
        if (!oclCheck("clCreateFromGLBuffer", this)) mem = nullptr;
    } else {
        mem = clCreateBuffer(m_context->handle(), CL_MEM_READ_WRITE, proxy->byteSize(), nullptr, &oclLastError);
        ++generation;
        if (!oclCheck("clCreateBuffer", this)) mem = nullptr;
    }
}

bool MemTypeGLBuffer::map(cl_map_flags flags, int)
{
    GlScope gl;
    if (!gl.ok() || !glId) return noContext(this);
    GLenum access = 0;
    switch (flags) {
    case CL_MAP_READ: access = GL_READ_ONLY; break;
    case CL_MAP_WRITE: access = GL_WRITE_ONLY; break;
    case CL_MAP_READ | CL_MAP_WRITE: access = GL_READ_WRITE; break;
    default: report(this, "mem.CL_MAP_READ or mem.CL_MAP_WRITE expected"); return false;
    }
    glBindBuffer(target, glId);
    data = glMapBuffer(target, access);
    glBindBuffer(target, 0);
    mapFlags = flags;
    return data != nullptr;
}

bool MemTypeGLBuffer::unmap(int)
{
    GlScope gl;
    if (gl.ok() && glId) {
        glBindBuffer(target, glId);
        glUnmapBuffer(target);
        glBindBuffer(target, 0);
    }
    data = nullptr;
    mapFlags = 0;
    return true;
}

void MemTypeGLBuffer::release()
{
    oclBuffer::release();
    dropAcquisition();
    if (!glId) return;
    GlScope gl;
    if (gl.ok()) glDeleteBuffers(1, &glId);
    glId = 0;
    data = nullptr;
    mapFlags = 0;
}

size_t MemTypeGLBuffer::dim(int)
{
    return proxy ? proxy->byteSize() : 0;
}

bool MemTypeGLBuffer::read(int)
{
    report(this, "\"read\" is not a valid function for this buffer type use mem.map");
    return false;
}

bool MemTypeGLBuffer::write(int)
{
    report(this, "\"write\" is not a valid function for this buffer type use mem.map");
    return false;
}

bool MemTypeGLBuffer::resize(size_t size, void*)
{
    release();
    const uint32_t element = clTypeSize(proxy->typeCode());
    proxy->setDim(0, element ? static_cast<uint32_t>(size / element) : 0);
    build();
    return glId != 0 && (!m_context || mem != nullptr);
}

bool MemTypeGLBuffer::copyToCL(cl_command_queue q)
{
    if (mapFlags) {
        report(this, "mapped with mem.map: unmap it before it is acquired");
        return false;
    }
    GlScope gl;
    if (!gl.ok() || !glId || !mem) return noContext(this);
    glBindBuffer(target, glId);
    const void* p = glMapBuffer(target, GL_READ_ONLY);
    if (p) oclLastError = clEnqueueWriteBuffer(q, mem, CL_TRUE, 0, proxy->byteSize(), p, 0, nullptr, nullptr);
    glUnmapBuffer(target);
    glBindBuffer(target, 0);
    if (!p) {
        report(this, "glMapBuffer failed");
        return false;
    }
    return oclCheck("clEnqueueWriteBuffer", this);
}

bool MemTypeGLBuffer::copyToGL(cl_command_queue q)
{
    if (mapFlags) {
        report(this, "mapped with mem.map: unmap it before it is released");
        return false;
    }
    GlScope gl;
    if (!gl.ok() || !glId || !mem) return noContext(this);
    const size_t bytes = proxy->byteSize();
    void* p = clEnqueueMapBuffer(q, mem, CL_TRUE, CL_MAP_READ, 0, bytes, 0, nullptr, nullptr, &oclLastError);
    if (!oclCheck("clEnqueueMapBuffer", this)) return false;
    glBindBuffer(target, glId);
    glBufferSubData(target, 0, static_cast<GLsizeiptr>(bytes), p);
    glBindBuffer(target, 0);
    oclLastError = clEnqueueUnmapMemObject(q, mem, p, 0, nullptr, nullptr);
    return oclCheck("clEnqueueUnmapMemObject", this);
}

// ---------------------------------------------------------------- what 2D and 3D textures share

MemGLTexture::MemGLTexture(oclContext* context, unsigned target, const cl_image_format* format, const FLAGS* flags)
    : MemGLShared(context),
      flags(flags ? *flags : FLAGS{}),
      imageFormat(format),
      internalFormat(CLimageFromatToGLinternalformat(format)),
      glType(CLimageFromatToGLtype(format)),
      m_target(target)
{
}

bool MemGLTexture::threeD() const
{
    return m_target == GL_TEXTURE_3D;
}

size_t MemGLTexture::extent(int axis)
{
    return axis == 2 && !threeD() ? 1 : sharedMem().proxy->getDim(axis);
}

// Level 0 from the bound pixel buffer, or undefined. A new 2D texture takes
// its pixels as RGBA, a 3D one in the format of its channel order; host
// access uses the format of the channel order in both (hostPixelFormat).
void MemGLTexture::defineImage(bool fromPixelBuffer)
{
    const auto w = static_cast<GLsizei>(extent(0)), h = static_cast<GLsizei>(extent(1));
    const GLenum pixels = fromPixelBuffer ? hostPixelFormat(imageFormat->image_channel_order, threeD())
                          : threeD()      ? CLimageFromatToGLformat(imageFormat)
                                          : GL_RGBA;
    if (threeD())
        glTexImage3D(GL_TEXTURE_3D, 0, static_cast<GLint>(internalFormat), w, h, static_cast<GLsizei>(extent(2)), 0,
                     pixels, glType, nullptr);
    else
        glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(internalFormat), w, h, 0, pixels, glType, nullptr);
}

void MemGLTexture::buildTexture()
{
    oclMem& self = sharedMem();
    GlScope gl;
    if (!gl.ok()) {
        noContext(&self);
        return;
    }
    const uint32_t bits = flags.w[0];
    glGenTextures(1, &glId);
    glBindTexture(m_target, glId);
    defineImage(false);
    if (bits & MemTextureFlags::Mipmaps) glGenerateMipmap(m_target);
    applyFilters(m_target, bits);
    glTexParameteri(m_target, GL_TEXTURE_WRAP_S, GL_CLAMP);
    glTexParameteri(m_target, GL_TEXTURE_WRAP_T, GL_CLAMP);
    if (threeD()) glTexParameteri(m_target, GL_TEXTURE_WRAP_R, GL_CLAMP);
    glBindTexture(m_target, 0);
    // A 3D texture always has its pixel buffer.
    if (threeD() || !(bits & MemTextureFlags::NoPixelBuffer))
        pbo = makeBuffer(GL_ARRAY_BUFFER, self.proxy->byteSize(), GL_DYNAMIC_DRAW);
    makeView();
}

void MemGLTexture::makeView()
{
    oclMem& self = sharedMem();
    oclContext* context = self.parent();
    if (!context || !glId) return;
    if (m_shares) {
        auto* from = threeD() ? sharingCalls.fromTexture3D : sharingCalls.fromTexture2D;
        self.mem = from(context->handle(), CL_MEM_READ_WRITE, m_target, 0, glId, &oclLastError);
        if (!oclCheck(threeD() ? "clCreateFromGLTexture3D" : "clCreateFromGLTexture2D", &self)) self.mem = nullptr;
    } else {
        self.mem = plainImage(context, internalFormat, imageFormat, extent(0), extent(1), threeD() ? extent(2) : 0,
                              &self, m_viewRefused);
    }
    ++self.generation;
}

void MemGLTexture::bind() const
{
    glBindTexture(m_target, glId);
}

void MemGLTexture::unbindTexture() const
{
    glBindTexture(m_target, 0);
}

bool MemGLTexture::mapTexture(cl_map_flags how)
{
    oclMem& self = sharedMem();
    GlScope gl;
    if (!gl.ok() || !glId) return noContext(&self);
    // No OpenCL image exists while the host holds the pixels.
    dropView(self, self.parent());
    dropAcquisition();
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, pbo);
    if (how == CL_MAP_READ) {
        pack();
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, pbo);
        self.data = glMapBuffer(GL_ELEMENT_ARRAY_BUFFER, GL_READ_ONLY);
    } else if (how == CL_MAP_WRITE) {
        self.data = glMapBuffer(GL_ELEMENT_ARRAY_BUFFER, GL_WRITE_ONLY);
    } else {
        report(&self, "mem.CL_MAP_READ or mem.CL_MAP_WRITE expected");
    }
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    self.mapFlags = how;
    return self.data != nullptr;
}

bool MemGLTexture::unmapTexture()
{
    oclMem& self = sharedMem();
    GlScope gl;
    if (!gl.ok() || !glId) return noContext(&self);
    if (self.mapFlags == CL_MAP_READ || self.mapFlags == CL_MAP_WRITE) {
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, pbo);
        glUnmapBuffer(GL_ELEMENT_ARRAY_BUFFER);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
        if (self.mapFlags == CL_MAP_WRITE) unpack();
        self.mapFlags = 0;
        self.data = nullptr;
    }
    if (!self.mem) makeView();
    return true;
}

void MemGLTexture::releaseTexture()
{
    oclMem& self = sharedMem();
    self.oclMem::release();
    dropAcquisition();
    GlScope gl;
    if (gl.ok()) {
        if (pbo) glDeleteBuffers(1, &pbo);
        if (m_staging) glDeleteBuffers(1, &m_staging);
        if (glId) glDeleteTextures(1, &glId);
    }
    pbo = m_staging = glId = 0;
    self.data = nullptr;
    self.mapFlags = 0;
}

bool MemGLTexture::refuseRead()
{
    report(&sharedMem(), "\"read\" is not a valid function for this buffer type use mem.map\\unmap");
    return false;
}

bool MemGLTexture::refuseWrite()
{
    report(&sharedMem(), "\"write\" is not a valid function for this buffer type use mem.map\\unmap");
    return false;
}

cl_image_format* MemGLTexture::storedFormat(cl_image_format* out) const
{
    if (out) *out = *imageFormat;
    return out;
}

int MemGLTexture::pack()
{
    oclMem& self = sharedMem();
    if (!pbo) {
        report(&self, "pack not applicable. No pixel buffer object created");
        return 0;
    }
    GlScope gl;
    if (!gl.ok()) return noContext(&self);
    TightRows rows;
    glBindBuffer(GL_PIXEL_PACK_BUFFER, pbo);
    bind();
    glGetTexImage(m_target, 0, hostPixelFormat(imageFormat->image_channel_order, threeD()), glType, nullptr);
    unbindTexture();
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    return 1;
}

// Mipmaps follow an upload in 2D only: a 3D texture keeps its levels.
int MemGLTexture::unpack()
{
    oclMem& self = sharedMem();
    if (!pbo) {
        report(&self, "Unpack not applicable. No pixel buffer object created");
        return 0;
    }
    GlScope gl;
    if (!gl.ok()) return noContext(&self);
    TightRows rows;
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, pbo);
    bind();
    defineImage(true);
    if (!threeD() && (flags.w[0] & MemTextureFlags::Mipmaps)) glGenerateMipmap(GL_TEXTURE_2D);
    unbindTexture();
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
    return 1;
}

bool MemGLTexture::copyToCL(cl_command_queue q)
{
    oclMem& self = sharedMem();
    GlScope gl;
    if (!gl.ok() || !glId || !self.mem) return noContext(&self);
    const size_t region[3] = {extent(0), extent(1), extent(2)};
    return textureToImage(q, self, m_target, glId, m_staging, internalFormat, imageFormat, region);
}

bool MemGLTexture::copyToGL(cl_command_queue q)
{
    oclMem& self = sharedMem();
    GlScope gl;
    if (!gl.ok() || !glId || !self.mem) return noContext(&self);
    const size_t region[3] = {extent(0), extent(1), extent(2)};
    return imageToTexture(q, self, m_target, glId, m_staging, internalFormat, imageFormat, region);
}

// ---------------------------------------------------------------- MemTypeTexture2D

MemTypeTexture2D::MemTypeTexture2D(oclContext* context, uint32_t width, uint32_t height,
                                   const cl_image_format* format, const std::string& name, const FLAGS* flags)
    : MemType2D(context, name), MemGLTexture(context, GL_TEXTURE_2D, format, flags)
{
    proxy = textureProxy(this, width, height, 0, CLimageFromatToCLmemoryType(format));
    buildTexture();
}

MemTypeTexture2D::~MemTypeTexture2D()
{
    release();
}

size_t MemTypeTexture2D::dim(int axis)
{
    return axis >= 0 && axis < 2 ? proxy->getDim(axis) : 0;
}

bool MemTypeTexture2D::resize(size_t width, size_t height, void*)
{
    release();
    proxy->setDim(0, static_cast<uint32_t>(width));
    proxy->setDim(1, static_cast<uint32_t>(height));
    buildTexture();
    return true;
}

// ---------------------------------------------------------------- image textures and render targets

MemTypeImageTexture::MemTypeImageTexture(oclContext* context, uint32_t width, uint32_t height,
                                         const cl_image_format* format, const std::string& name, const FLAGS* flags)
    : MemTypeTexture2D(context, width, height, format, name, flags)
{
    GlScope gl;
    if (!gl.ok() || !glId || MemGlobal::maxAnisotropy() < 1) return;
    bind();
    glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAX_ANISOTROPY_EXT,
                    static_cast<GLfloat>(std::min(16, MemGlobal::maxAnisotropy())));
    unbindTexture();
}

MemTypeFboTarget::MemTypeFboTarget(oclContext* context, uint32_t width, uint32_t height,
                                   const cl_image_format* format, const std::string& name, const FLAGS* flags)
    : MemTypeTexture2D(context, width, height, format, name, flags)
{
    GlScope gl;
    if (!gl.ok() || !glId) return;
    bind();
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP);
    unbindTexture();
}

// ---------------------------------------------------------------- MemTypeTexture3D

MemTypeTexture3D::MemTypeTexture3D(oclContext* context, uint32_t width, uint32_t height, uint32_t depth,
                                   const cl_image_format* format, const std::string& name, const FLAGS* flags)
    : MemType3D(context, name), MemGLTexture(context, GL_TEXTURE_3D, format, flags)
{
    proxy = textureProxy(this, width, height, depth, CLimageFromatToCLmemoryType(format));
    buildTexture();
}

MemTypeTexture3D::~MemTypeTexture3D()
{
    release();
}

size_t MemTypeTexture3D::dim(int axis)
{
    return axis >= 0 && axis < 3 ? proxy->getDim(axis) : 0;
}

bool MemTypeTexture3D::resize(size_t, size_t, size_t, void*)
{
    report(this, "setSize not implemented");
    return false;
}
