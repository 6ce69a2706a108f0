// The compute-to-screen road through the scene tree: a vertex attribute node
// whose buffer a kernel moves every frame, drawn as points by the render walk
// (shader node, then the draw node with its attribute). Per frame, medians of
// 20 frames after 3 warm ones: the kernel, the copies (acquire and release:
// copies on the copy road, the driver's hand-over where OpenCL shares with
// OpenGL), and the draw (the render walk up to glFinish); for 1 M and 100 k
// vertices.
#include <GL/glew.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "compute/OclGlobal.h"
#include "memory/MemGLObjects.h"
#include "node/ScnAction.h"
#include "platform/GlContext.h"
#include "render/ScnBuffers.h"
#include "render/ScnCamera.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
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

const char* const kKernel = R"(
__kernel void swirl(__global float4* p, float t)
{
    int i = get_global_id(0);
    float r = 0.2f + 1.5f * (i % 1000) / 1000.0f;
    float a = 2.39996f * i + t * (0.2f + r);
    p[i] = (float4)(r * cos(a), r * sin(a), -3.0f - 0.001f * (i % 1000), 1.0f);
}
)";

const char* const kVertex =
    "#version 330\nin vec4 gs_Vertex;\nuniform mat4 gs_ModelViewProjectionMatrix;\n"
    "void main() { gl_Position = gs_ModelViewProjectionMatrix * gs_Vertex; }\n";
const char* const kFragment = "#version 330\nout vec4 o;\nvoid main() { o = vec4(1.0); }\n";

void runRoad(oclContext* context, cl_kernel kernel, int vertices, int size)
{
    ScnGroup root;
    auto* shader = new ScnShader;
    shader->vertex = kVertex;
    shader->fragment = kFragment;
    auto* array = new ScnBufferArray;
    auto* attrib = new ScnBufferAttrib;
    attrib->name = "gs_Vertex";
    attrib->dim0 = std::to_string(vertices);
    array->append(attrib);
    root.append(shader);
    root.append(array);
    {
        ScnActionCreate create(context);
        create.apply(&root);
    }
    MemTypeGLBuffer* buffer = attrib->buffer();
    if (!buffer || !buffer->mem || !shader->program) {
        std::printf("road_bench: the tree did not build its buffer or program\n");
        ScnActionDestroy destroy;
        destroy.apply(&root);
        return;
    }
    ScnCamera camera;
    camera.aspect = 1.0f;
    camera.refreshProjection();
    cl_command_queue q = context->device(0)->queue();
    clSetKernelArg(kernel, 0, sizeof(cl_mem), &buffer->mem);
    const size_t global[1] = {static_cast<size_t>(vertices)};
    std::vector<double> kernelMs, copyMs, drawMs, totalMs;
    constexpr int kFrames = 20, kWarm = 3;
    for (int i = 0; i < kWarm + kFrames; ++i) {
        const float t = 0.1f * i;
        clSetKernelArg(kernel, 1, sizeof t, &t);
        const auto t0 = Clock::now();
        buffer->acquireGL(q);
        clFinish(q);
        const auto t1 = Clock::now();
        clEnqueueNDRangeKernel(q, kernel, 1, nullptr, global, nullptr, 0, nullptr, nullptr);
        clFinish(q);
        buffer->noteWrite();  // the kernel writes its argument
        const auto t2 = Clock::now();
        buffer->releaseGL(q);
        clFinish(q);
        const auto t3 = Clock::now();
        glViewport(0, 0, size, size);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        ScnActionRender render(&camera, size, size);
        render.apply(&root);
        glFinish();
        const auto t4 = Clock::now();
        if (i < kWarm) continue;
        kernelMs.push_back(ms(t1, t2));
        copyMs.push_back(ms(t0, t1) + ms(t2, t3));
        drawMs.push_back(ms(t3, t4));
        totalMs.push_back(ms(t0, t4));
    }
    const double total = median(totalMs), copies = median(copyMs);
    std::printf("%8d vertices: %8.2f ms per frame: kernel %7.2f, copies %7.2f, draw %7.2f; copies %5.1f%%\n",
                vertices, total, median(kernelMs), copies, median(drawMs), total > 0 ? 100 * copies / total : 0);
    ScnActionDestroy destroy;
    destroy.apply(&root);
}

}  // namespace

int main()
{
    constexpr int kSize = 1024;
    BenchRoad road;
    int exitCode = 0;
    if (!road.start("road_bench", kSize, kKernel, exitCode)) return exitCode;
    std::unique_ptr<EglContext>& gl = road.gl;
    oclContext* context = road.context;
    oclProgram& prog = *road.program;
    GlScope scope;
    cl_int err = 0;
    cl_kernel kernel = clCreateKernel(prog.handle(), "swirl", &err);
    glBindFramebuffer(GL_FRAMEBUFFER, gl->defaultFramebuffer());
    glEnable(GL_DEPTH_TEST);
    runRoad(context, kernel, 1 << 20, kSize);
    runRoad(context, kernel, 100000, kSize);
    clReleaseKernel(kernel);
    GlContext::setActive(nullptr);
    return 0;
}
