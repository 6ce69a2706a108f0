// Memory shared with OpenGL on this machine's platforms (PoCL and Mesa give no
// sharing, so the copy road runs here), and the calls the sharing road makes,
// watched through a context that claims sharing.
#include <gtest/gtest.h>

#include <GL/glew.h>
#include <lua.hpp>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "compute/OclGlobal.h"
#include "compute/OclLua.h"
#include "memory/MemGLObjects.h"
#include "platform/GlContext.h"
#include "runtime/AppGlobal.h"
#include "support/DocumentFixture.h"
#include "memory/SourceFiles.h"

namespace {

const char* const kKernels = R"(
__kernel void fan(__global float4* v, float4 colour) {
    int i = get_global_id(0);
    // Two triangles over the right half of clip space.
    const float2 c[6] = {(float2)(0, -1), (float2)(1, -1), (float2)(1, 1), (float2)(0, -1), (float2)(1, 1), (float2)(0, 1)};
    v[i] = (float4)(c[i].x, c[i].y, 0.0f, 1.0f);
}
__kernel void sum(__global const float4* v, __global float* out, int n) {
    float s = 0.0f;
    for (int i = 0; i < n; ++i) s += v[i].x + v[i].y + v[i].z + v[i].w;
    out[0] = s;
}
__kernel void twice(__global float4* v) { int i = get_global_id(0); v[i] = v[i] * 2.0f; }
__kernel void sample(__read_only image2d_t img, __global float4* out, int w) {
    int x = get_global_id(0), y = get_global_id(1);
    out[y * w + x] = read_imagef(img, CLK_NORMALIZED_COORDS_FALSE | CLK_FILTER_NEAREST, (int2)(x, y));
}
__kernel void paint(__write_only image2d_t img) {
    int x = get_global_id(0), y = get_global_id(1);
    write_imagef(img, (int2)(x, y), (float4)(x / 255.0f, y / 255.0f, 0.5f, 1.0f));
}
__kernel void sample3(__read_only image3d_t img, __global float4* out) {
    out[0] = read_imagef(img, CLK_NORMALIZED_COORDS_FALSE | CLK_FILTER_NEAREST, (int4)(1, 1, 1, 0));
}
)";

using sources::raises;
using sources::run;

// Names the objects in the process's state.
void setGlobals(std::initializer_list<std::pair<const char*, oclObject*>> objects)
{
    lua_State* L = AppGlobal::luaState();
    for (const auto& [name, object] : objects) OclLua::push(L, object), lua_setglobal(L, name);
}

// Draws `count` vertices of float4 from `buffer` in one colour into the
// context's frame and returns its pixels (bottom row first).
std::vector<uint8_t> drawVertices(GLuint buffer, int count)
{
    GlContext* c = GlContext::active();
    const char* const texts[2] = {"#version 330\nin vec4 pos;\nvoid main() { gl_Position = pos; }\n",
                                  "#version 330\nout vec4 o;\nvoid main() { o = vec4(1.0, 0.5, 0.25, 1.0); }\n"};
    const GLuint p = glCreateProgram();
    GLuint shaders[2];
    for (int i = 0; i < 2; ++i) {
        shaders[i] = glCreateShader(i ? GL_FRAGMENT_SHADER : GL_VERTEX_SHADER);
        glShaderSource(shaders[i], 1, &texts[i], nullptr);
        glCompileShader(shaders[i]);
        glAttachShader(p, shaders[i]);
    }
    glBindAttribLocation(p, 0, "pos");
    glLinkProgram(p);
    GLuint vao = 0;
    glGenVertexArrays(1, &vao);
    glBindFramebuffer(GL_FRAMEBUFFER, c->defaultFramebuffer());
    glViewport(0, 0, c->width(), c->height());
    glClearColor(0, 0, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glDisable(GL_DEPTH_TEST);
    // The mirrored draw winds the other way; a frame run earlier in the same
    // process leaves culling on.
    glDisable(GL_CULL_FACE);
    glUseProgram(p);
    glBindVertexArray(vao);
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, nullptr);
    glDrawArrays(GL_TRIANGLES, 0, count);
    glBindVertexArray(0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glUseProgram(0);
    glDeleteVertexArrays(1, &vao);
    glDeleteProgram(p);
    for (GLuint sh : shaders) glDeleteShader(sh);
    c->swapBuffers();
    return c->readFrame();
}

void setBufferFloats(GLuint id, const std::vector<float>& v)
{
    glBindBuffer(GL_ARRAY_BUFFER, id);
    glBufferSubData(GL_ARRAY_BUFFER, 0, static_cast<GLsizeiptr>(v.size() * sizeof(float)), v.data());
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

std::vector<float> bufferFloats(GLuint id, size_t n)
{
    std::vector<float> v(n);
    glBindBuffer(GL_ARRAY_BUFFER, id);
    glGetBufferSubData(GL_ARRAY_BUFFER, 0, static_cast<GLsizeiptr>(n * sizeof(float)), v.data());
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    return v;
}

std::vector<uint8_t> textureBytes(GLenum target, GLuint id, GLenum format, GLenum type, size_t bytes, int level = 0)
{
    std::vector<uint8_t> v(bytes);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glBindTexture(target, id);
    glGetTexImage(target, level, format, type, v.data());
    glBindTexture(target, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    return v;
}

class SharedMemory : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(GlContext::active(), nullptr) << "no headless OpenGL context (Mesa's EGL is needed)";
        ASSERT_TRUE(m_gl.ok());
        m_context = OclGlobal::currentContext();
        ASSERT_NE(m_context, nullptr) << "no OpenCL platform on this machine";
        Channels::clearAll();
        m_program = std::make_unique<oclProgram>(m_context, "shared");
        m_program->addSource(kKernels);
        ASSERT_EQ(m_program->build(), 1);
    }
    void TearDown() override
    {
        run("k, v, out, tex, img = nil, nil, nil, nil, nil");
        for (oclKernel* k : m_kernels) delete k;
        m_kernels.clear();
    }

    oclKernel* kernel(const char* name)
    {
        cl_kernel k = clCreateKernel(m_program->handle(), name, &oclLastError);
        EXPECT_EQ(oclLastError, CL_SUCCESS) << name;
        auto* o = new oclKernel(m_program.get(), k);
        clReleaseKernel(k);
        m_kernels.push_back(o);
        return o;
    }

    GlScope m_gl;
    oclContext* m_context = nullptr;
    std::unique_ptr<oclProgram> m_program;
    std::vector<oclKernel*> m_kernels;
};

// The copy road is tested on contexts without sharing.
#define SKIP_ON_SHARING() \
    if (m_context->glSharing()) GTEST_SKIP() << "a sharing context"

const MemTypeTexture2D::FLAGS kLinear = {{MemTextureFlags::Linear, 0, 0, 0}};

}  // namespace

TEST_F(SharedMemory, ThisMachineTakesTheCopyRoadAndSaysSo)
{
    for (oclContext* c : OclGlobal::contexts()) {
        bool reported = false;
        for (size_t i = 0; i < c->deviceCount(); ++i) {
            char ext[8192] = {};
            clGetDeviceInfo(c->device(i)->handle(), CL_DEVICE_EXTENSIONS, sizeof ext - 1, ext, nullptr);
            reported |= oclExtensionListed(ext, "cl_khr_gl_sharing");
        }
        EXPECT_TRUE(reported || !c->glSharing()) << c->name() << " shares without the extension";
    }
    MemTypeGLBuffer b(m_context, 4, MemTypes::Float, GL_ARRAY_BUFFER, "b");
    EXPECT_EQ(b.sharesGL(), m_context->glSharing());
    const std::string road = m_context->glSharing() ? "sharing with OpenGL: yes" : "sharing with OpenGL: no";
    int said = 0;
    for (const std::string& line : OclGlobal::summary())
        said += line.find(std::string("context: ") + m_context->name()) == 0 && line.find(road) != std::string::npos;
    EXPECT_EQ(said, 1);
}

TEST_F(SharedMemory, AKernelWritesAGLBufferThatAShaderDrawsAndThatMapSeesAfterRelease)
{
    SKIP_ON_SHARING();
    MemTypeGLBuffer verts(m_context, 6, MemTypes::Float4, GL_ARRAY_BUFFER, "verts");
    ASSERT_NE(verts.glId, 0u);
    ASSERT_NE(verts.mem, nullptr);
    setGlobals({{"v", &verts}, {"k", kernel("fan")}});
    ASSERT_EQ(run("cl.clEnqueueAcquireGLObjects(v)\n"
                  "cl.clSetKernelArg(k, 0, v)\n"
                  "cl.clSetKernelArg(k, 1, cl.cl_float4, 1, 2, 3, 4)\n"
                  "cl.clEnqueueNDRangeKernel(k, 1, {6})\n"
                  "cl.clEnqueueReleaseGLObjects(v)"),
              "");
    EXPECT_EQ(verts.copiesToCL, 1u);
    EXPECT_EQ(verts.copiesToGL, 1u);

    const std::vector<uint8_t> frame = drawVertices(verts.glId, 6);
    GlContext* c = GlContext::active();
    ASSERT_EQ(frame.size(), static_cast<size_t>(c->width()) * c->height() * 4);
    const size_t row = static_cast<size_t>(c->height() / 2) * c->width();
    const uint8_t* right = &frame[(row + c->width() * 3 / 4) * 4];
    const uint8_t* left = &frame[(row + c->width() / 4) * 4];
    EXPECT_TRUE(right[0] == 255 && std::abs(right[1] - 128) <= 1 && std::abs(right[2] - 64) <= 1) << int(right[1]);
    EXPECT_EQ(left[0], 0) << "only the right half is covered";

    // Host access is OpenGL's: the kernel's values, then a script's change
    // that the next draw shows.
    ASSERT_EQ(run("mem.map(v, mem.READ_WRITE)\n"
                  "local x, y, z, w = mem.get(v, 2)\n"
                  "assert(x == 1 and y == 1 and z == 0 and w == 1, table.concat({x, y, z, w}, ','))\n"
                  "assert(mem.dim(v, 0) == 6 and mem.size(v) == 96)\n"
                  "for i = 0, 5 do local a, b = mem.get(v, i); mem.set(v, i, -a, b) end\n"
                  "mem.unmap(v)"),
              "");
    EXPECT_EQ(verts.dim(1), 96u) << "every axis gives the size in bytes";
    const std::vector<uint8_t> mirrored = drawVertices(verts.glId, 6);
    EXPECT_EQ(mirrored[(row + c->width() / 4) * 4], 255);
    EXPECT_EQ(mirrored[(row + c->width() * 3 / 4) * 4], 0);

    EXPECT_EQ(run("fails('', mem.read, v)\nmem.map(v, mem.READ)\nfails('error reading buffer', mem.read, v)\n"
                  "mem.unmap(v)"),
              "");
    EXPECT_EQ(drain(), Lines{"(verts): \"read\" is not a valid function for this buffer type use mem.map"});
}

TEST_F(SharedMemory, ReleaseCopiesBackOnlyWhatAKernelMayHaveWritten)
{
    SKIP_ON_SHARING();
    MemTypeGLBuffer verts(m_context, 4, MemTypes::Float4, GL_ARRAY_BUFFER, "verts");
    MemTypeBuffer out(m_context, 1, MemTypes::Float, "out", CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR);
    setBufferFloats(verts.glId, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    setGlobals({{"v", &verts}, {"out", &out}, {"k", kernel("sum")}});

    // A launch on an object that OpenCL does not hold is refused.
    EXPECT_TRUE(raises("cl.clSetKernelArg(k, 0, v)\ncl.clSetKernelArg(k, 1, out)\n"
                       "cl.clSetKernelArg(k, 2, cl.cl_int, 4)\ncl.clEnqueueNDRangeKernel(k, 1, {1})",
                       "sum: argument 0 is shared with OpenGL and not acquired"));

    ASSERT_EQ(run("cl.clEnqueueAcquireGLObjects(v)\ncl.clEnqueueNDRangeKernel(k, 1, {1})"), "");
    EXPECT_TRUE(verts.acquired());
    EXPECT_FALSE(verts.written()) << "a const pointer is only read";
    // OpenGL changes the buffer behind OpenCL's back: a copy back would undo it.
    setBufferFloats(verts.glId, {-1, -1, -1, -1});
    ASSERT_EQ(run("cl.clEnqueueReleaseGLObjects(v)\nmem.map(out, mem.READ)\nresult = mem.get(out, 0)\nmem.unmap(out)"),
              "");
    EXPECT_EQ(verts.copiesToCL, 1u);
    EXPECT_EQ(verts.copiesToGL, 0u);
    EXPECT_EQ(bufferFloats(verts.glId, 4), (std::vector<float>{-1, -1, -1, -1}));
    EXPECT_EQ(sources::number("result"), 136.0) << "the acquire copied OpenGL's values in";

    // A kernel that writes: the release brings its values to OpenGL.
    setGlobals({{"k", kernel("twice")}});
    ASSERT_EQ(run("cl.clSetKernelArg(k, 0, v)\ncl.clEnqueueAcquireGLObjects(v)\n"
                  "cl.clEnqueueNDRangeKernel(k, 1, {4})\ncl.clEnqueueReleaseGLObjects(v)"),
              "");
    EXPECT_EQ(verts.copiesToGL, 1u);
    EXPECT_EQ(bufferFloats(verts.glId, 8), (std::vector<float>{-2, -2, -2, -2, 10, 12, 14, 16}));

    // A release without an acquire copies nothing; a plain buffer is no GL object.
    ASSERT_EQ(run("cl.clEnqueueReleaseGLObjects(v)"), "");
    EXPECT_EQ(verts.copiesToGL, 1u);
    EXPECT_TRUE(
        raises("cl.clEnqueueAcquireGLObjects(out)", "error calling clEnqueueAcquireGLObjects : CL_INVALID_GL_OBJECT"));
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(SharedMemory, AKernelReadsATextureThatWasDrawnIntoAndWritesOneThatOpenGLThenSees)
{
    SKIP_ON_SHARING();
    const cl_image_format rgba8 = {CL_RGBA, CL_UNORM_INT8};
    MemTypeFboTarget target(m_context, 8, 4, &rgba8, "target", &kLinear);
    ASSERT_NE(target.mem, nullptr);

    // Drawn into: the left half one colour, the right half another.
    GLuint fbo = 0;
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, target.glId, 0);
    ASSERT_EQ(glCheckFramebufferStatus(GL_FRAMEBUFFER), static_cast<GLenum>(GL_FRAMEBUFFER_COMPLETE));
    glViewport(0, 0, 8, 4);
    glClearColor(0.2f, 0.4f, 0.6f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glEnable(GL_SCISSOR_TEST);
    glScissor(4, 0, 4, 4);
    glClearColor(1.0f, 0.0f, 0.0f, 0.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &fbo);

    MemTypeBuffer out(m_context, 32, MemTypes::Float4, "out", CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR);
    setGlobals({{"tex", &target}, {"out", &out}, {"k", kernel("sample")}});
    ASSERT_EQ(run("cl.clEnqueueAcquireGLObjects(tex)\n"
                  "cl.clSetKernelArg(k, 0, tex)\ncl.clSetKernelArg(k, 1, out)\ncl.clSetKernelArg(k, 2, cl.cl_int, 8)\n"
                  "cl.clEnqueueNDRangeKernel(k, 2, {8, 4})\n"
                  "cl.clEnqueueReleaseGLObjects(tex)\n"
                  "mem.map(out, mem.READ)\n"
                  "local function near(a, b) return math.abs(a - b) < 1 / 255 + 1e-6 end\n"
                  "for y = 0, 3 do for x = 0, 7 do\n"
                  "  local r, g, b, a = mem.get(out, y * 8 + x)\n"
                  "  local want = x < 4 and {0.2, 0.4, 0.6, 1} or {1, 0, 0, 0}\n"
                  "  assert(near(r, want[1]) and near(g, want[2]) and near(b, want[3]) and near(a, want[4]),\n"
                  "         ('(%d,%d) = %g %g %g %g'):format(x, y, r, g, b, a))\n"
                  "end end\n"
                  "mem.unmap(out)"),
              "");
    EXPECT_EQ(target.copiesToGL, 0u) << "a read_only image is not copied back";

    // A kernel writes the texture: OpenGL has the pixels after the release.
    setGlobals({{"k", kernel("paint")}});
    ASSERT_EQ(run("cl.clEnqueueAcquireGLObjects(tex)\ncl.clSetKernelArg(k, 0, tex)\n"
                  "cl.clEnqueueNDRangeKernel(k, 2, {8, 4})\ncl.clEnqueueReleaseGLObjects(tex)"),
              "");
    EXPECT_EQ(target.copiesToGL, 1u);
    const std::vector<uint8_t> px = textureBytes(GL_TEXTURE_2D, target.glId, GL_RGBA, GL_UNSIGNED_BYTE, 8 * 4 * 4);
    for (int i = 0; i < 32; ++i)
        EXPECT_TRUE(px[i * 4] == i % 8 && px[i * 4 + 1] == i / 8 && std::abs(px[i * 4 + 2] - 128) <= 1 &&
                    px[i * 4 + 3] == 255)
            << i;
    // And the host sees them through the pixel buffer.
    ASSERT_EQ(run("mem.map(tex, mem.READ)\nlocal r, g = mem.get(tex, 5, 3)\nmem.unmap(tex)\n"
                  "assert(r == 5 and g == 3, r .. ',' .. g)"),
              "");
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(SharedMemory, PackAndUnpackMoveTexturePixelsBothWaysAndAMapTakesTheImageAway)
{
    const cl_image_format rgba8 = {CL_RGBA, CL_UNORM_INT8};
    const MemTypeTexture2D::FLAGS mipmapped = {{MemTextureFlags::Linear | MemTextureFlags::Mipmaps, 0, 0, 0}};
    MemTypeTexture2D tex(m_context, 4, 4, &rgba8, "tex", &mipmapped);
    ASSERT_NE(tex.pbo, 0u);
    setGlobals({{"tex", &tex}});
    const uint32_t generation = tex.generation;

    // Script → pixel buffer → texture, with the mipmaps made anew.
    ASSERT_EQ(run("mem.map(tex, mem.WRITE)\n"
                  "for y = 0, 3 do for x = 0, 3 do mem.set(tex, x, y, 10 * x, 10 * y, 7, 200) end end\n"
                  "mem.unmap(tex)"),
              "");
    std::vector<uint8_t> px = textureBytes(GL_TEXTURE_2D, tex.glId, GL_RGBA, GL_UNSIGNED_BYTE, 64);
    EXPECT_EQ(std::vector<uint8_t>(px.begin() + 44, px.begin() + 48), (std::vector<uint8_t>{30, 20, 7, 200}));
    const std::vector<uint8_t> level1 = textureBytes(GL_TEXTURE_2D, tex.glId, GL_RGBA, GL_UNSIGNED_BYTE, 16, 1);
    EXPECT_NEAR(level1[0], 5, 1) << "mean of 0 and 10 at the first coarser level";
    EXPECT_EQ(level1[2], 7);
    EXPECT_NE(tex.mem, nullptr);
    EXPECT_NE(tex.generation, generation) << "a map and unmap give a new cl_mem";

    // pack: the texture's pixels into the pixel buffer.
    std::vector<uint8_t> fresh(64);
    for (size_t i = 0; i < fresh.size(); ++i) fresh[i] = static_cast<uint8_t>(i * 3);
    glBindTexture(GL_TEXTURE_2D, tex.glId);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 4, 4, GL_RGBA, GL_UNSIGNED_BYTE, fresh.data());
    glBindTexture(GL_TEXTURE_2D, 0);
    ASSERT_EQ(run("mem.pack(tex)"), "");
    std::vector<uint8_t> inPbo(64);
    glBindBuffer(GL_ARRAY_BUFFER, tex.pbo);
    glGetBufferSubData(GL_ARRAY_BUFFER, 0, 64, inPbo.data());
    EXPECT_EQ(inPbo, fresh);
    // unpack: the pixel buffer into the texture.
    for (uint8_t& b : inPbo) b = static_cast<uint8_t>(255 - b);
    glBufferSubData(GL_ARRAY_BUFFER, 0, 64, inPbo.data());
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    ASSERT_EQ(run("mem.unpack(tex)"), "");
    EXPECT_EQ(textureBytes(GL_TEXTURE_2D, tex.glId, GL_RGBA, GL_UNSIGNED_BYTE, 64), inPbo);

    // Map for reading packs first; while mapped there is no OpenCL image.
    ASSERT_EQ(run("mem.map(tex, mem.READ)\nlocal r, g, b, a = mem.get(tex, 1, 0)\n"
                  "assert(r == 255 - 12 and a == 255 - 21, r .. ' ' .. a)"),
              "");
    EXPECT_EQ(tex.mem, nullptr);
    EXPECT_EQ(tex.dim(0), 4u);
    EXPECT_TRUE(raises("cl.clEnqueueAcquireGLObjects(tex)", "invalid memory object tex"));
    ASSERT_EQ(run("mem.unmap(tex)"), "");
    EXPECT_NE(tex.mem, nullptr);

    // Both directions at once are refused on a texture.
    EXPECT_TRUE(raises("mem.map(tex, mem.READ_WRITE)", "(tex): error mapping buffer"));
    EXPECT_EQ(drain(), Lines{"(tex): mem.CL_MAP_READ or mem.CL_MAP_WRITE expected"});
    // A stale kernel argument is named.
    MemTypeBuffer out(m_context, 32, MemTypes::Float4, "out", CL_MEM_READ_WRITE);
    MemTypeTexture2D plain(m_context, 4, 4, &rgba8, "plain", &kLinear);
    setGlobals({{"img", &plain}, {"out", &out}, {"k", kernel("sample")}});
    EXPECT_TRUE(raises("cl.clSetKernelArg(k, 0, img)\ncl.clSetKernelArg(k, 1, out)\n"
                       "cl.clSetKernelArg(k, 2, cl.cl_int, 4)\n"
                       "mem.map(img, mem.WRITE)\nmem.unmap(img)\n"
                       "cl.clEnqueueAcquireGLObjects(img)\ncl.clEnqueueNDRangeKernel(k, 2, {4, 4})",
                       "argument 0 names a memory object that was rebuilt or released"));
    run("cl.clEnqueueReleaseGLObjects(img)");

    // Without a pixel buffer: pack and unpack log and fail.
    const MemTypeTexture2D::FLAGS noPbo = {{MemTextureFlags::Linear | MemTextureFlags::NoPixelBuffer, 0, 0, 0}};
    MemTypeTexture2D bare(m_context, 4, 4, &rgba8, "bare", &noPbo);
    EXPECT_EQ(bare.pbo, 0u);
    setGlobals({{"tex", &bare}});
    EXPECT_TRUE(raises("mem.pack(tex)", "(bare): error calling pack"));
    EXPECT_TRUE(raises("mem.unpack(tex)", "(bare): error calling unpack"));
    EXPECT_EQ(drain(), (Lines{"(bare): pack not applicable. No pixel buffer object created",
                              "(bare): Unpack not applicable. No pixel buffer object created"}));

    // A resize makes a new, empty texture of the new size.
    ASSERT_TRUE(tex.resize(8, 2, nullptr));
    EXPECT_EQ(tex.proxy->byteSize(), 64u);
    GLint w = 0;
    glBindTexture(GL_TEXTURE_2D, tex.glId);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &w);
    glBindTexture(GL_TEXTURE_2D, 0);
    EXPECT_EQ(w, 8);
}

namespace {

uint32_t memTextureCLType(uint32_t internalFormat)
{
    cl_image_format f{};
    uint32_t pf = 0, pt = 0;
    memCLFormatOfTexture(internalFormat, f, pf, pt);
    return f.image_channel_data_type;
}

// The largest value of the pixel type, by which normalised formats divide.
double scaleOf(uint32_t glType)
{
    switch (glType) {
    case GL_UNSIGNED_BYTE: return 255;
    case GL_BYTE: return 127;
    case GL_UNSIGNED_SHORT: return 65535;
    case GL_SHORT: return 32767;
    default: return 1;
    }
}

}  // namespace

TEST_F(SharedMemory, EveryTextureFormatOfTheCatalogueRoundTripsThroughItsProxyAndReachesKernels)
{
    SKIP_ON_SHARING();
    const uint32_t orders[] = {CL_RGBA, CL_BGRA, CL_LUMINANCE, CL_INTENSITY};
    const uint32_t types[] = {CL_UNORM_INT8, CL_UNSIGNED_INT8, CL_SNORM_INT8,  CL_SIGNED_INT8, CL_UNORM_INT16,
                              CL_UNSIGNED_INT16, CL_SNORM_INT16, CL_SIGNED_INT16, CL_HALF_FLOAT, CL_FLOAT};
    MemTypeBuffer out(m_context, 16, MemTypes::Float4, "out", CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR);
    setGlobals({{"out", &out}, {"k", kernel("sample")}});
    for (uint32_t order : orders)
        for (uint32_t type : types) {
            const cl_image_format f = {order, type};
            const std::string what = std::string(clChannelOrderName(order)) + " " + clChannelTypeName(type);
            MemTypeImageTexture tex(m_context, 4, 4, &f, "tex", &kLinear);
            // One-channel textures have an OpenCL image only where the
            // platform offers that order (a sharing driver offers none):
            // without one, the failure is logged and OpenGL still works.
            const int n = order == CL_RGBA || order == CL_BGRA ? 4 : 1;
            if (n == 4) {
                ASSERT_NE(tex.mem, nullptr) << what;
            } else if (!tex.mem) {
                EXPECT_EQ(drain(), Lines{"(tex): no OpenCL image of format " + std::string(clChannelOrderName(order)) +
                                         " " + clChannelTypeName(memTextureCLType(tex.internalFormat)) +
                                         " on this platform: kernels cannot use the texture"})
                    << what;
            }
            ASSERT_EQ(MemTypes::width(tex.proxy->typeCode()), n) << what;
            EXPECT_EQ(tex.proxy->byteSize(), 16u * clTypeSize(tex.proxy->typeCode())) << what;
            setGlobals({{"tex", &tex}});
            // Whole numbers that every format keeps exactly, in each component.
            const std::string code =
                "local n, kernels = " + std::to_string(n) + ", " + (tex.mem ? "true" : "false") + "\n"
                "local function v(x, y, c) return (x * 7 + y * 3 + c * 11) % 50 + 1 end\n"
                "mem.map(tex, mem.WRITE)\n"
                "for y = 0, 3 do for x = 0, 3 do mem.set(tex, x, y, v(x, y, 0), v(x, y, 1), v(x, y, 2), v(x, y, 3)) end end\n"
                "mem.unmap(tex)\n"
                "mem.map(tex, mem.READ)\n"
                "for y = 0, 3 do for x = 0, 3 do\n"
                "  local r = {mem.get(tex, x, y)}\n"
                "  assert(#r == n)\n"
                "  for c = 1, n do assert(r[c] == v(x, y, c - 1), ('(%d,%d)[%d] = %s'):format(x, y, c, r[c])) end\n"
                "end end\n"
                "mem.unmap(tex)\n"
                "if not kernels then return end\n"
                "cl.clEnqueueAcquireGLObjects(tex)\n"
                "cl.clSetKernelArg(k, 0, tex)\ncl.clSetKernelArg(k, 1, out)\ncl.clSetKernelArg(k, 2, cl.cl_int, 4)\n"
                "cl.clEnqueueNDRangeKernel(k, 2, {4, 4})\ncl.clEnqueueReleaseGLObjects(tex)\n"
                "mem.map(out, mem.READ)\nr1, r2, r3, r4 = mem.get(out, 2 * 4 + 1)\nmem.unmap(out)";
            ASSERT_EQ(run(code), "") << what;
            EXPECT_EQ(tex.copiesToGL, 0u) << what;
            if (!tex.mem) {
                EXPECT_EQ(drain(), Lines{}) << what << ": said once";
                continue;
            }
            // What the kernel reads: the value through the GL internal format.
            const double scale = scaleOf(tex.glType);
            auto expected = [&](int c) { return ((1 * 7 + 2 * 3 + c * 11) % 50 + 1) / scale; };
            for (int c = 0; c < 4; ++c) {
                // The host's component order is GL_RGBA's in 2D, BGRA too.
                const double want = n == 4 ? expected(c) : order == CL_LUMINANCE && c == 3 ? 1.0 : expected(0);
                EXPECT_NEAR(sources::number(("r" + std::to_string(c + 1)).c_str()), want,
                            scale > 1 ? 1.0 / 255 + 1e-6 : 1e-6)
                    << what << " component " << c;
            }
        }
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(SharedMemory, A3DTextureRoundTripsReachesKernelsAndRefusesResize)
{
    const cl_image_format f = {CL_RGBA, CL_FLOAT};
    MemTypeTexture3D vol(m_context, 3, 3, 2, &f, "vol", &kLinear);
    ASSERT_NE(vol.pbo, 0u);
    ASSERT_NE(vol.mem, nullptr);
    MemTypeBuffer out(m_context, 1, MemTypes::Float4, "out", CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR);
    setGlobals({{"tex", &vol}, {"out", &out}, {"k", kernel("sample3")}});
    ASSERT_EQ(run("mem.map(tex, mem.WRITE)\n"
                  "for z = 0, 1 do for y = 0, 2 do for x = 0, 2 do mem.set(tex, x, y, z, x, y, z, x + y + z + 0.5) end end end\n"
                  "mem.unmap(tex)\n"
                  "cl.clEnqueueAcquireGLObjects(tex)\n"
                  "cl.clSetKernelArg(k, 0, tex)\ncl.clSetKernelArg(k, 1, out)\n"
                  "cl.clEnqueueNDRangeKernel(k, 1, {1})\ncl.clEnqueueReleaseGLObjects(tex)\n"
                  "mem.map(out, mem.READ)\nlocal a, b, c, d = mem.get(out, 0)\nmem.unmap(out)\n"
                  "assert(a == 1 and b == 1 and c == 1 and d == 3.5, table.concat({a, b, c, d}, ','))\n"
                  "mem.map(tex, mem.READ)\nlocal x, y, z, w = mem.get(tex, 2, 1, 1)\nmem.unmap(tex)\n"
                  "assert(x == 2 and y == 1 and z == 1 and w == 4.5)"),
              "");
    EXPECT_FALSE(vol.resize(4, 4, 4, nullptr));
    EXPECT_EQ(vol.dim(0), 3u);
    EXPECT_EQ(drain(), Lines{"(vol): setSize not implemented"});
}

namespace {

struct Recorded {
    std::vector<std::string> calls;
};
Recorded g_recorded;

std::string hex(uint64_t v)
{
    char b[32];
    std::snprintf(b, sizeof b, "0x%llX", static_cast<unsigned long long>(v));
    return b;
}

// Stand-ins for a sharing driver: they record the call and hand out plain
// objects of this machine's platform, so that everything after works.
cl_mem fakeBuffer(cl_context c, cl_mem_flags flags, cl_GLuint id, cl_int* err)
{
    g_recorded.calls.push_back("clCreateFromGLBuffer flags=" + hex(flags) + " id=" + std::to_string(id));
    return clCreateBuffer(c, flags, 64, nullptr, err);
}
cl_mem fakeTexture(const char* name, cl_context c, cl_mem_flags flags, cl_GLenum target, cl_GLint level, cl_GLuint id,
                   cl_int* err)
{
    g_recorded.calls.push_back(std::string(name) + " flags=" + hex(flags) + " target=" + hex(target) +
                               " level=" + std::to_string(level) + " id=" + std::to_string(id));
    const cl_image_format f = {CL_RGBA, CL_UNORM_INT8};
    return clCreateImage2D(c, flags, &f, 1, 1, 0, nullptr, err);
}
cl_int fakeHandOver(const char* name, cl_uint n, const cl_mem* objects)
{
    g_recorded.calls.push_back(std::string(name) + " n=" + std::to_string(n) + (objects && objects[0] ? " mem" : " null"));
    return CL_SUCCESS;
}

}  // namespace

TEST_F(SharedMemory, TheSharingRoadCallsTheDriverAndCopiesNothing)
{
    // A context that claims sharing, over this machine's platform.
    clRetainContext(m_context->handle());
    oclContext sharing(m_context->handle(), "Sharing Test Vendor", true);
    sharing.setGLSharing(true);
    g_recorded = Recorded{};
    const MemGLShared::SharingCalls saved = MemGLShared::sharingCalls;
    MemGLShared::sharingCalls = {
        fakeBuffer,
        [](cl_context c, cl_mem_flags f, cl_GLenum t, cl_GLint l, cl_GLuint id, cl_int* e) {
            return fakeTexture("clCreateFromGLTexture2D", c, f, t, l, id, e);
        },
        [](cl_context c, cl_mem_flags f, cl_GLenum t, cl_GLint l, cl_GLuint id, cl_int* e) {
            return fakeTexture("clCreateFromGLTexture3D", c, f, t, l, id, e);
        },
        [](cl_command_queue, cl_uint n, const cl_mem* o, cl_uint, const cl_event*, cl_event*) {
            return fakeHandOver("clEnqueueAcquireGLObjects", n, o);
        },
        [](cl_command_queue, cl_uint n, const cl_mem* o, cl_uint, const cl_event*, cl_event*) {
            return fakeHandOver("clEnqueueReleaseGLObjects", n, o);
        }};
    {
        MemTypeGLBuffer buffer(&sharing, 4, MemTypes::Float4, GL_ARRAY_BUFFER, "shared buffer");
        const cl_image_format f = {CL_RGBA, CL_UNORM_INT8};
        MemTypeImageTexture tex(&sharing, 2, 2, &f, "shared texture", &kLinear);
        MemTypeTexture3D vol(&sharing, 2, 2, 2, &f, "shared volume", &kLinear);
        EXPECT_TRUE(buffer.sharesGL());
        setGlobals({{"v", &buffer}, {"tex", &tex}});
        EXPECT_EQ(run("cl.clEnqueueAcquireGLObjects(v)\ncl.clEnqueueReleaseGLObjects(v)\n"
                      "mem.map(tex, mem.WRITE)\nmem.unmap(tex)"),
                  "");
        EXPECT_EQ(buffer.copiesToCL + buffer.copiesToGL, 0u);
        EXPECT_EQ(g_recorded.calls,
                  (std::vector<std::string>{
                      "clCreateFromGLBuffer flags=0x1 id=" + std::to_string(buffer.glId),
                      "clCreateFromGLTexture2D flags=0x1 target=0xDE1 level=0 id=" + std::to_string(tex.glId),
                      "clCreateFromGLTexture3D flags=0x1 target=0x806F level=0 id=" + std::to_string(vol.glId),
                      "clEnqueueAcquireGLObjects n=1 mem",
                      "clEnqueueReleaseGLObjects n=1 mem",
                      "clCreateFromGLTexture2D flags=0x1 target=0xDE1 level=0 id=" + std::to_string(tex.glId),
                  }));
        run("v, tex = nil, nil");
    }
    MemGLShared::sharingCalls = saved;
    EXPECT_EQ(drain(), Lines{});
}
