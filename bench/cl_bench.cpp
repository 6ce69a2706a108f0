// Cost of one small kernel on the current OpenCL context: the program build,
// and 1,000 launches followed by one wait. Each figure is set beside the same
// work done through the raw C API in the same run, so the wrapper's share can
// be read off directly.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

#include "BenchLua.h"
#include "compute/OclGlobal.h"
#include "compute/oclObject.h"

namespace {

using SteadyClock = std::chrono::steady_clock;

double since(SteadyClock::time_point t0)
{
    return std::chrono::duration<double>(SteadyClock::now() - t0).count();
}

constexpr int kLaunches = 1000;
constexpr size_t kElements = 1024;
constexpr int kRounds = 5;

// A fresh text per build so that no compiler cache answers for it.
std::string kernelText(int variant)
{
    return "// variant " + std::to_string(variant) +
           "\n__kernel void scale(__global float* v, float f)\n{\n    v[get_global_id(0)] *= f;\n}\n";
}

}  // namespace

int main()
{
    printLuaBuild("cl_bench");
    char tmpl[] = "/tmp/velmora-cl-bench-XXXXXX";
    if (mkdtemp(tmpl)) setenv("POCL_CACHE_DIR", tmpl, 1);
    OclGlobal::startContexts();
    oclContext* context = OclGlobal::currentContext();
    if (!context || !context->device(0) || !context->device(0)->hasQueue()) {
        std::fprintf(stderr, "cl_bench: no OpenCL context with a queue on this machine\n");
        return 1;
    }
    cl_context ctx = context->handle();
    cl_command_queue queue = context->device(0)->queue();
    cl_device_id device = context->device(0)->handle();
    std::printf("context: %s\n", context->name());

    int variant = 0;
    double layerBuild = 1e30, rawBuild = 1e30;
    for (int r = 0; r < kRounds; ++r) {
        std::string a = kernelText(variant++);
        auto t0 = SteadyClock::now();
        {
            oclProgram p(context, "bench");
            p.addSource(a.c_str());
            if (!p.build()) return 1;
        }
        layerBuild = std::min(layerBuild, since(t0));

        std::string b = kernelText(variant++);
        const char* text = b.c_str();
        t0 = SteadyClock::now();
        cl_int err = CL_SUCCESS;
        cl_program raw = clCreateProgramWithSource(ctx, 1, &text, nullptr, &err);
        if (err != CL_SUCCESS || clBuildProgram(raw, 1, &device, nullptr, nullptr, nullptr) != CL_SUCCESS) return 1;
        clReleaseProgram(raw);
        rawBuild = std::min(rawBuild, since(t0));
    }

    // One program for the launches; the kernel through the wrapper, and a
    // kernel of the same program made with the raw call.
    std::string text = kernelText(variant++);
    oclProgram program(context, "bench");
    program.addSource(text.c_str());
    if (!program.build()) return 1;
    cl_kernel rawKernel = clCreateKernel(program.handle(), "scale", nullptr);
    oclKernel kernel(&program, rawKernel);
    cl_int err = CL_SUCCESS;
    cl_mem buffer = clCreateBuffer(ctx, CL_MEM_READ_WRITE, kElements * sizeof(float), nullptr, &err);
    if (!rawKernel || err != CL_SUCCESS) return 1;
    const float factor = 1.0f;
    const size_t global = kElements;

    auto launches = [&](cl_kernel k, bool layer) {
        auto t0 = SteadyClock::now();
        for (int i = 0; i < kLaunches; ++i) {
            clSetKernelArg(k, 0, sizeof buffer, &buffer);
            clSetKernelArg(k, 1, sizeof factor, &factor);
            oclLastError = clEnqueueNDRangeKernel(queue, k, 1, nullptr, &global, nullptr, 0, nullptr,
                                                  layer ? kernel.prepareEvent() : nullptr);
            if (layer && !oclCheck("clEnqueueNDRangeKernel", &kernel)) return -1.0;
        }
        clFinish(queue);
        return since(t0);
    };
    launches(rawKernel, false);  // warm-up
    double layerPlain = 1e30, layerProfiled = 1e30, raw = 1e30;
    for (int r = 0; r < kRounds; ++r) {
        kernel.setProfiling(false);
        layerPlain = std::min(layerPlain, launches(kernel.handle(), true));
        kernel.setProfiling(true);
        layerProfiled = std::min(layerProfiled, launches(kernel.handle(), true));
        raw = std::min(raw, launches(rawKernel, false));
    }
    kernel.setProfiling(false);
    clReleaseMemObject(buffer);
    clReleaseKernel(rawKernel);

    std::printf("build of one small program      : %8.2f ms (raw C API %8.2f ms)\n", layerBuild * 1e3,
                rawBuild * 1e3);
    std::printf("%d launches + one wait        : %8.2f ms (raw C API %8.2f ms, %.2fx)\n", kLaunches,
                layerPlain * 1e3, raw * 1e3, layerPlain / raw);
    std::printf("the same with profiling events  : %8.2f ms (%.2f us per launch)\n", layerProfiled * 1e3,
                layerProfiled * 1e6 / kLaunches);
    std::string rm = std::string("rm -rf ") + tmpl;
    if (std::system(rm.c_str()) != 0) return 1;
    return 0;
}
