// Memory shared with OpenGL, per frame: a kernel writes 1 M float4 vertices
// that are then drawn as points, and a kernel writes a 1024x1024 RGBA8 texture
// that is then drawn on a quad. Each frame is acquire, kernel, release and
// draw, timed apart (medians of 20 frames); on the copy road (no
// cl_khr_gl_sharing) the copies are the acquire and the release, and their
// share of the frame is printed.
#include <GL/glew.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "compute/OclGlobal.h"
#include "memory/MemGLObjects.h"
#include "platform/GlContext.h"
#include "runtime/AppGlobal.h"
#include "BenchRoad.h"

namespace {

using Clock = std::chrono::steady_clock;

double ms(Clock::time_point a, Clock::time_point b)
{
    return std::chrono::duration<double, std::milli>(b - a).count();
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

const char* const kKernels = R"(
__kernel void wave(__global float4* v, float t) {
    int i = get_global_id(0);
    float x = (i % 1024) / 512.0f - 1.0f, y = (i / 1024) / 512.0f - 1.0f;
    v[i] = (float4)(x, y + 0.05f * sin(8.0f * x + t), 0.0f, 1.0f);
}
__kernel void paint(__write_only image2d_t img, float t) {
    int x = get_global_id(0), y = get_global_id(1);
    write_imagef(img, (int2)(x, y), (float4)(x / 1024.0f, y / 1024.0f, 0.5f + 0.5f * sin(t), 1.0f));
}
)";

GLuint program(const char* vs, const char* fs)
{
    auto stage = [](GLenum kind, const char* text) {
        GLuint s = glCreateShader(kind);
        glShaderSource(s, 1, &text, nullptr);
        glCompileShader(s);
        return s;
    };
    GLuint p = glCreateProgram();
    glAttachShader(p, stage(GL_VERTEX_SHADER, vs));
    glAttachShader(p, stage(GL_FRAGMENT_SHADER, fs));
    glBindAttribLocation(p, 0, "pos");
    glLinkProgram(p);
    return p;
}

struct Frame {
    std::vector<double> acquire, kernel, release, draw, total;
    void print(const char* what) const
    {
        const double a = median(acquire), k = median(kernel), r = median(release), d = median(draw),
                     t = median(total);
        std::printf("%-34s %8.2f ms per frame: acquire %7.2f, kernel %7.2f, release %7.2f, draw %7.2f; "
                    "copies %5.1f%%\n",
                    what, t, a, k, r, d, t > 0 ? 100 * (a + r) / t : 0);
    }
};

// One frame: acquire, launch, release, draw; every stage waits for its end.
template <class Draw>
void frame(Frame& f, MemGLShared& shared, cl_command_queue q, cl_kernel k, const size_t* global, cl_uint dims,
           Draw draw)
{
    const auto t0 = Clock::now();
    shared.acquireGL(q);
    clFinish(q);
    const auto t1 = Clock::now();
    clEnqueueNDRangeKernel(q, k, dims, nullptr, global, nullptr, 0, nullptr, nullptr);
    clFinish(q);
    shared.noteWrite();  // the kernel writes its argument
    const auto t2 = Clock::now();
    shared.releaseGL(q);
    clFinish(q);
    const auto t3 = Clock::now();
    draw();
    glFinish();
    const auto t4 = Clock::now();
    f.acquire.push_back(ms(t0, t1));
    f.kernel.push_back(ms(t1, t2));
    f.release.push_back(ms(t2, t3));
    f.draw.push_back(ms(t3, t4));
    f.total.push_back(ms(t0, t4));
}

}  // namespace

int main()
{
    BenchRoad road;
    int exitCode = 0;
    if (!road.start("share_bench", 1024, kKernels, exitCode)) return exitCode;
    std::unique_ptr<EglContext>& gl = road.gl;
    oclContext* context = road.context;
    oclProgram& prog = *road.program;
    GlScope scope;
    cl_int err = 0;
    cl_kernel wave = clCreateKernel(prog.handle(), "wave", &err);
    cl_kernel paint = clCreateKernel(prog.handle(), "paint", &err);
    cl_command_queue q = context->device(0)->queue();
    constexpr int kFrames = 20, kWarm = 3;
    glBindFramebuffer(GL_FRAMEBUFFER, gl->defaultFramebuffer());
    glViewport(0, 0, 1024, 1024);

    // 1 M vertices, drawn as points.
    {
        MemTypeGLBuffer verts(context, 1 << 20, MemTypes::Float4, GL_ARRAY_BUFFER, "verts");
        GLuint p = program("#version 330\nin vec4 pos;\nvoid main() { gl_Position = pos; }\n",
                           "#version 330\nout vec4 o;\nvoid main() { o = vec4(1.0); }\n");
        GLuint vao = 0;
        glGenVertexArrays(1, &vao);
        glBindVertexArray(vao);
        glBindBuffer(GL_ARRAY_BUFFER, verts.glId);
        glEnableVertexAttribArray(0);
        glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, nullptr);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
        glBindVertexArray(0);
        clSetKernelArg(wave, 0, sizeof(cl_mem), &verts.mem);
        Frame f;
        const size_t global[1] = {1 << 20};
        for (int i = 0; i < kWarm + kFrames; ++i) {
            const float t = 0.1f * i;
            clSetKernelArg(wave, 1, sizeof t, &t);
            Frame& into = f;
            frame(into, verts, q, wave, global, 1, [&] {
                glClear(GL_COLOR_BUFFER_BIT);
                glUseProgram(p);
                glBindVertexArray(vao);
                glDrawArrays(GL_POINTS, 0, 1 << 20);
                glBindVertexArray(0);
                glUseProgram(0);
            });
            if (i < kWarm) f = Frame{};
        }
        f.print("1 M float4 vertices");
        glDeleteVertexArrays(1, &vao);
        glDeleteProgram(p);
    }

    // A 1024x1024 RGBA8 texture on a quad over the frame.
    {
        const cl_image_format rgba8 = {CL_RGBA, CL_UNORM_INT8};
        const MemTypeTexture2D::FLAGS flags = {{MemTextureFlags::Linear, 0, 0, 0}};
        MemTypeImageTexture tex(context, 1024, 1024, &rgba8, "tex", &flags);
        GLuint p = program("#version 330\nin vec4 pos;\nout vec2 uv;\n"
                           "void main() { uv = pos.xy * 0.5 + 0.5; gl_Position = pos; }\n",
                           "#version 330\nin vec2 uv;\nuniform sampler2D img;\nout vec4 o;\n"
                           "void main() { o = texture(img, uv); }\n");
        const float quad[16] = {-1, -1, 0, 1, 1, -1, 0, 1, 1, 1, 0, 1, -1, 1, 0, 1};
        GLuint vao = 0, vbo = 0;
        glGenVertexArrays(1, &vao);
        glGenBuffers(1, &vbo);
        glBindVertexArray(vao);
        glBindBuffer(GL_ARRAY_BUFFER, vbo);
        glBufferData(GL_ARRAY_BUFFER, sizeof quad, quad, GL_STATIC_DRAW);
        glEnableVertexAttribArray(0);
        glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, nullptr);
        glBindVertexArray(0);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
        clSetKernelArg(paint, 0, sizeof(cl_mem), &tex.mem);
        Frame f;
        const size_t global[2] = {1024, 1024};
        for (int i = 0; i < kWarm + kFrames; ++i) {
            const float t = 0.1f * i;
            clSetKernelArg(paint, 1, sizeof t, &t);
            frame(f, tex, q, paint, global, 2, [&] {
                glUseProgram(p);
                glActiveTexture(GL_TEXTURE0);
                glBindTexture(GL_TEXTURE_2D, tex.glId);
                glBindVertexArray(vao);
                glDrawArrays(GL_TRIANGLE_FAN, 0, 4);
                glBindVertexArray(0);
                glBindTexture(GL_TEXTURE_2D, 0);
                glUseProgram(0);
            });
            if (i < kWarm) f = Frame{};
        }
        f.print("1024x1024 RGBA8 texture");
        glDeleteVertexArrays(1, &vao);
        glDeleteBuffers(1, &vbo);
        glDeleteProgram(p);
    }
    clReleaseKernel(wave);
    clReleaseKernel(paint);
    GlContext::setActive(nullptr);
    return 0;
}
