// The OpenCL object layer against the platform installed on the test machine
// (PoCL on the build hosts): contexts, messages, program builds, kernels and
// memory objects, all for real.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "compute/oclObject.h"

namespace {

struct Msg {
    std::string kind;
    std::string text;
    oclObject* object;
};

std::vector<Msg> s_msgs;

void captureError(char* t, oclObject* o) { s_msgs.push_back({"error", t, o}); }
void captureWarning(char* t, oclObject* o) { s_msgs.push_back({"warning", t, o}); }
void captureInfo(char* t, oclObject* o) { s_msgs.push_back({"info", t, o}); }
void captureBuildLog(char* t, oclObject* o) { s_msgs.push_back({"buildlog", t, o}); }

// Four lines, then five.
const char* const kHelperSource = "float sq(float x)\n{\n    return x * x;\n}\n";
const char* const kKernelSource =
    "__kernel void squares(__global float* v)\n{\n    size_t i = get_global_id(0);\n    v[i] = sq(v[i]);\n}\n"
    "__kernel void twice(__global float* v) { v[get_global_id(0)] *= 2.0f; }";

class OclLayer : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        oclInitErrorNames();
        for (const oclPlatformInfo& p : oclListPlatforms())
            if (p.vendor == "The pocl project") s_platform = p.id;
        if (s_platform) s_context = oclCreateContextForPlatform(s_platform);
    }
    // Contexts are never released; only the wrapper goes.
    static void TearDownTestSuite()
    {
        delete s_context;
        s_context = nullptr;
    }

    void SetUp() override
    {
        ASSERT_NE(s_context, nullptr) << "no context on the PoCL platform";
        ASSERT_TRUE(s_context->device(0) && s_context->device(0)->hasQueue());
        s_msgs.clear();
        oclLastError = CL_SUCCESS;
        m_savedSharing = oclGLSharingProperties;
        for (int i = 0; i < 4; ++i) m_saved[i] = *kHandlers[i], *kHandlers[i] = kCaptures[i];
    }
    // The handlers the program installed at start go back for the tests after.
    void TearDown() override
    {
        for (int i = 0; i < 4; ++i) *kHandlers[i] = m_saved[i];
        oclGLSharingProperties = m_savedSharing;
    }
    static constexpr oclHandler* kHandlers[4] = {&oclErrorHandler, &oclWarningHandler, &oclInfoHandler,
                                                 &oclBuildLogHandler};
    static constexpr oclHandler kCaptures[4] = {captureError, captureWarning, captureInfo, captureBuildLog};
    oclHandler m_saved[4] = {};
    oclGLSharingHook m_savedSharing;

    static std::vector<std::string> texts(const std::string& kind)
    {
        std::vector<std::string> out;
        for (const Msg& m : s_msgs)
            if (m.kind == kind) out.push_back(m.text);
        return out;
    }

    cl_command_queue queue() const { return s_context->device(0)->queue(); }

    static cl_platform_id s_platform;
    static oclContext* s_context;
};

cl_platform_id OclLayer::s_platform = nullptr;
oclContext* OclLayer::s_context = nullptr;

TEST_F(OclLayer, VendorNamesMapToTheFourConstantsAndAbsentVendorsGiveNoContextSilently)
{
    EXPECT_EQ(oclCreateContext("NVIDIA Corporation", CL_DEVICE_TYPE_GPU), nullptr);
    EXPECT_EQ(oclCreateContext("Intel Corporation", CL_DEVICE_TYPE_CPU), nullptr);
    EXPECT_TRUE(s_msgs.empty());
    EXPECT_EQ(oclKnownVendor("NVIDIA Corporation"), oclVendorNVIDIA);
    EXPECT_EQ(oclKnownVendor("Advanced Micro Devices, Inc."), oclVendorAMD);
    // Intel platforms spell their vendor in several ways; five characters decide.
    EXPECT_EQ(oclKnownVendor("Intel(R) Corporation"), oclVendorIntel);
    EXPECT_STREQ(oclKnownVendor("Intel(R) Corporation"), "Intel Corporation");
    for (const char* other : {"NVIDIA", "Advanced Micro Devices", "The pocl project"})
        EXPECT_EQ(oclKnownVendor(other), oclVendorUnknown) << other;
}

TEST_F(OclLayer, SharingHookIsIgnoredWithoutGLSharingDevices)
{
    EXPECT_EQ(oclGLXSharing(reinterpret_cast<void*>(0x10), reinterpret_cast<void*>(0x20)),
              (std::vector<cl_context_properties>{CL_GL_CONTEXT_KHR, 0x10, CL_GLX_DISPLAY_KHR, 0x20}));
    EXPECT_EQ(oclEGLSharing(reinterpret_cast<void*>(0x30), reinterpret_cast<void*>(0x40)),
              (std::vector<cl_context_properties>{CL_GL_CONTEXT_KHR, 0x30, CL_EGL_DISPLAY_KHR, 0x40}));

    for (const char* list : {"cl_khr_icd cl_khr_gl_sharing", "cl_khr_gl_sharing cl_khr_icd "})
        EXPECT_TRUE(oclExtensionListed(list, "cl_khr_gl_sharing")) << list;
    for (const char* list : {"cl_khr_gl_sharing_ext cl_khr_icd", "xcl_khr_gl_sharing", ""})
        EXPECT_FALSE(oclExtensionListed(list, "cl_khr_gl_sharing")) << list;

    // The hook is consulted, and a platform whose devices do not declare GL
    // sharing gets a plain context even when GL properties are offered.
    int calls = 0;
    oclGLSharingProperties = [&calls] {
        ++calls;
        return oclGLXSharing(reinterpret_cast<void*>(0x1234), reinterpret_cast<void*>(0x5678));
    };
    oclContext* ctx = oclCreateContextForPlatform(s_platform);
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(s_msgs.empty());
    EXPECT_FALSE(ctx->glSharing());
    std::vector<cl_context_properties> props(64);
    ASSERT_EQ(clGetContextInfo(ctx->handle(), CL_CONTEXT_PROPERTIES, sizeof(cl_context_properties) * 64, props.data(),
                               nullptr),
              CL_SUCCESS);
    EXPECT_EQ(std::count(props.begin(), props.end(), CL_GL_CONTEXT_KHR), 0);
    delete ctx;
}

TEST_F(OclLayer, ErrorNames)
{
    const std::pair<cl_int, const char*> named[] = {{0, "CL_SUCCESS"},
                                                    {-12, "CL_MAP_FAILURE"},
                                                    {-38, "CL_INVALID_MEM_OBJECT"},
                                                    {-63, "CL_INVALID_GLOBAL_WORK_SIZE"}};
    auto text = [](cl_int code) { return oclLastError = code, std::string(oclErrorString()); };
    for (auto [code, name] : named) EXPECT_EQ(text(code), name) << code;
    // Known: 0 to -12 and -30 to -63.
    for (cl_int code = 0; code >= -63; --code)
        EXPECT_EQ(text(code).rfind("CL_", 0) == 0, code >= -12 || code <= -30) << code;
    for (cl_int code : {-64, -20, 3, -1001})
        EXPECT_EQ(text(code), "Unknown OpenCL error: " + std::to_string(code));
}

TEST_F(OclLayer, CheckAndMessagesReachTheHandlers)
{
    oclObject obj("probe");
    EXPECT_TRUE(oclCheck("clFinish", &obj));
    EXPECT_TRUE(s_msgs.empty() && obj.failed == 0);

    oclLastError = CL_INVALID_VALUE;
    EXPECT_FALSE(oclCheck("clFinish", &obj));
    ASSERT_EQ(s_msgs.size(), 1u);
    EXPECT_EQ(s_msgs[0].kind + ": " + s_msgs[0].text, "error: Failure in call to clFinish : CL_INVALID_VALUE");
    EXPECT_EQ(s_msgs[0].object, &obj);
    EXPECT_EQ(obj.failed, 1);

    oclLastError = -20;
    EXPECT_FALSE(oclCheck("clFlush", nullptr));
    EXPECT_EQ(s_msgs.back().text, "Failure in call to clFlush : Unknown OpenCL error: -20");
    EXPECT_EQ(s_msgs.back().object, nullptr);

    // Only the error channel marks the object.
    oclObject quiet("quiet");
    s_msgs.clear();
    oclMessage(oclWarningHandler, &quiet, "kernel.cl", 12) << "watch " << 3;
    oclMessage(oclInfoHandler, &quiet) << "plain";
    EXPECT_EQ(texts("warning"), std::vector<std::string>{"(kernel.cl:12):watch 3"});
    EXPECT_EQ(texts("info"), std::vector<std::string>{"plain"});
    EXPECT_EQ(s_msgs.size(), 2u);
    EXPECT_EQ(quiet.failed, 0);

    // An explicit finish hands the text over once.
    oclMessage m(oclErrorHandler, &quiet);
    m << "once";
    m.finish();
    m.finish();
    EXPECT_EQ(texts("error"), std::vector<std::string>{"once"});
    EXPECT_EQ(quiet.failed, 1);
}

TEST_F(OclLayer, DefaultHandlersWriteToStandardOutput)
{
    oclObject obj("prog");
    char text[] = "boom";
    ::testing::internal::CaptureStdout();
    oclDefaultErrorHandler(text, &obj);
    oclDefaultWarningHandler(text, nullptr);
    oclDefaultInfoHandler(text, &obj);
    oclDefaultBuildLogHandler(text, &obj);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "(error):prog:boom\n(warning):boom\nprog:boom\n(error):prog:boom\n");
}

TEST_F(OclLayer, ProgramFromTwoSourcesBuildsAndItsKernelsRun)
{
    oclProgram prog(s_context, "squares.cl");
    prog.addSource(kHelperSource);
    prog.addSource(kKernelSource);
    ASSERT_EQ(prog.sources().size(), 2u);
    EXPECT_EQ(prog.sources()[0].lines * 10 + prog.sources()[1].lines, 45u);
    EXPECT_EQ(prog.sources()[1].file[0], '\0');
    ASSERT_EQ(prog.build(), 1) << (s_msgs.empty() ? "" : s_msgs.back().text);
    EXPECT_TRUE(s_msgs.empty());

    std::vector<cl_kernel> handles(2);
    cl_uint count = 0;
    ASSERT_EQ(clCreateKernelsInProgram(prog.handle(), 2, handles.data(), &count), CL_SUCCESS);
    ASSERT_EQ(count, 2u);
    oclKernel* squares = nullptr;
    for (cl_kernel k : handles) {
        prog.kernels().push_back(new oclKernel(&prog, k));
        clReleaseKernel(k);  // the wrapper holds its own reference
        if (std::strcmp(prog.kernels().back()->name(), "squares") == 0) squares = prog.kernels().back();
    }
    ASSERT_NE(squares, nullptr);

    // Fill through a write map, run, and read the result through a read map.
    constexpr size_t n = 16;
    oclBuffer buf(s_context, "values");
    ASSERT_TRUE(buf.create(CL_MEM_READ_WRITE, n * sizeof(float), nullptr));
    ASSERT_TRUE(buf.map(CL_MAP_WRITE, 0));
    EXPECT_EQ(buf.mapFlags, cl_map_flags(CL_MAP_WRITE));
    for (size_t i = 0; i < n; ++i) static_cast<float*>(buf.data)[i] = float(i) - 4.0f;
    ASSERT_TRUE(buf.unmap(0));
    EXPECT_TRUE(buf.data == nullptr && buf.mapFlags == 0u);

    ASSERT_EQ(clSetKernelArg(squares->handle(), 0, sizeof(cl_mem), &buf.mem), CL_SUCCESS);
    EXPECT_EQ(squares->prepareEvent(), nullptr);  // not profiling
    squares->setProfiling(true);
    const size_t global = n;
    ASSERT_EQ(clEnqueueNDRangeKernel(queue(), squares->handle(), 1, nullptr, &global, nullptr, 0, nullptr,
                                     squares->prepareEvent()),
              CL_SUCCESS);
    const uint64_t start = squares->startTime(), end = squares->endTime();
    EXPECT_GT(start, 0u);
    EXPECT_GE(end, start);
    ASSERT_TRUE(buf.map(CL_MAP_READ, 0));
    for (size_t i = 0; i < n; ++i)
        EXPECT_FLOAT_EQ(static_cast<float*>(buf.data)[i], (float(i) - 4.0f) * (float(i) - 4.0f)) << i;
    EXPECT_TRUE(buf.unmap(0));

    // A second launch replaces the event.
    ASSERT_EQ(clEnqueueNDRangeKernel(queue(), squares->handle(), 1, nullptr, &global, nullptr, 0, nullptr,
                                     squares->prepareEvent()),
              CL_SUCCESS);
    EXPECT_GE(squares->startTime(), end);
    EXPECT_TRUE(s_msgs.empty());
}

TEST_F(OclLayer, BrokenProgramHandsTheCompilerLogOverAndCanBeRebuilt)
{
    oclProgram prog(s_context, "broken.cl");
    prog.addSource("__kernel void broken(__global float* v) { v[0] = undeclared_thing; }\n");
    EXPECT_EQ(prog.build(), 0);
    EXPECT_EQ(prog.failed, 1);
    ASSERT_EQ(texts("error"), std::vector<std::string>{"Failure in call to clBuildProgram : CL_BUILD_PROGRAM_FAILURE"});
    const std::vector<std::string> logs = texts("buildlog");
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_NE(logs[0].find("undeclared_thing"), std::string::npos) << logs[0];
    for (const Msg& m : s_msgs) EXPECT_EQ(m.object, &prog);

    // A rebuild starts clean and replaces the program handle.
    s_msgs.clear();
    prog.clearSources();
    EXPECT_TRUE(prog.sources().empty());
    prog.addFileSource("fixed.cl", "__kernel void fixed(__global float* v)\n{ v[0] = 1.0f; }\n");
    EXPECT_STREQ(prog.sources()[0].file, "fixed.cl");
    EXPECT_EQ(prog.build(), 1);
    EXPECT_EQ(prog.failed, 0);
    EXPECT_TRUE(s_msgs.empty());
    cl_uint kernels = 0;
    EXPECT_EQ(clCreateKernelsInProgram(prog.handle(), 0, nullptr, &kernels), CL_SUCCESS);
    EXPECT_EQ(kernels, 1u);

    // Without sources: what OpenCL answers, and no log.
    oclProgram empty(s_context, "empty");
    s_msgs.clear();
    EXPECT_EQ(empty.build(), 0);
    EXPECT_EQ(empty.handle(), nullptr);
    EXPECT_EQ(empty.failed, 1);
    EXPECT_EQ(texts("error"), std::vector<std::string>{"Failure in call to clCreateProgramWithSource : CL_INVALID_VALUE"});
    EXPECT_TRUE(texts("buildlog").empty());
}

TEST_F(OclLayer, BuffersReadWriteResizeAndKeepAHostStoreAfterUnmap)
{
    std::vector<int> host(32);
    for (size_t i = 0; i < host.size(); ++i) host[i] = int(i * 7);
    oclBuffer buf(s_context, "ints", 5);
    ASSERT_TRUE(buf.create(CL_MEM_READ_ONLY, host.size() * sizeof(int), nullptr));
    EXPECT_EQ(buf.dim(0), host.size() * sizeof(int));
    EXPECT_EQ(buf.dim(1), 0u);
    buf.data = host.data();
    ASSERT_TRUE(buf.write(0));
    std::vector<int> back(host.size(), -1);
    buf.data = back.data();
    ASSERT_TRUE(buf.read(0));
    EXPECT_EQ(back, host);
    ASSERT_TRUE(buf.resize(64, nullptr));
    EXPECT_EQ(buf.dim(0), 64u);
    cl_mem_flags flags = 0;
    ASSERT_EQ(clGetMemObjectInfo(buf.mem, CL_MEM_FLAGS, sizeof flags, &flags, nullptr), CL_SUCCESS);
    EXPECT_EQ(flags, cl_mem_flags(CL_MEM_READ_ONLY));

    std::vector<float> store(8, 2.5f);
    oclBuffer stored(s_context, "store");
    ASSERT_TRUE(stored.create(CL_MEM_READ_WRITE | CL_MEM_USE_HOST_PTR, store.size() * sizeof(float), store.data()));
    EXPECT_EQ(stored.data, store.data());
    ASSERT_TRUE(stored.map(CL_MAP_READ | CL_MAP_WRITE, 0));
    EXPECT_EQ(stored.mapFlags, cl_map_flags(CL_MAP_READ | CL_MAP_WRITE));
    EXPECT_FLOAT_EQ(static_cast<float*>(stored.data)[7], 2.5f);
    ASSERT_TRUE(stored.unmap(0));
    EXPECT_TRUE(stored.data == store.data() && stored.mapFlags == 0u);
    EXPECT_TRUE(s_msgs.empty());

    // A failing create leaves no handle and names the call.
    oclBuffer bad(s_context, "bad");
    EXPECT_FALSE(bad.create(CL_MEM_READ_WRITE, 0, nullptr));
    EXPECT_FALSE(bad.isValid());
    EXPECT_EQ(bad.failed, 1);
    ASSERT_EQ(s_msgs.size(), 1u);
    EXPECT_EQ(s_msgs[0].text, "Failure in call to clCreateBuffer : CL_INVALID_BUFFER_SIZE");
    EXPECT_EQ(s_msgs[0].object, &bad);
}

TEST_F(OclLayer, ImagesCreateMapTransferAndResizeInTwoAndThreeDimensions)
{
    const cl_image_format rgba{CL_RGBA, CL_FLOAT};
    oclImage2D img(s_context, "picture");
    ASSERT_TRUE(img.create(CL_MEM_READ_WRITE, &rgba, 4, 3, nullptr));
    EXPECT_EQ(std::vector<size_t>({img.dim(0), img.dim(1), img.dim(2)}), std::vector<size_t>({4, 3, 0}));
    cl_image_format fmt{};
    EXPECT_EQ(img.format(&fmt), &fmt);
    EXPECT_EQ(fmt.image_channel_order * 0x10000 + fmt.image_channel_data_type, CL_RGBA * 0x10000u + CL_FLOAT);

    const size_t n = 4 * 3 * 4;
    ASSERT_TRUE(img.map(CL_MAP_WRITE, 0));
    for (size_t i = 0; i < n; ++i) static_cast<float*>(img.data)[i] = float(i);
    ASSERT_TRUE(img.unmap(0));
    EXPECT_EQ(img.data, nullptr);
    std::vector<float> host(n, -1.0f);
    img.data = host.data();
    ASSERT_TRUE(img.read(0));
    for (size_t i = 0; i < n; ++i) EXPECT_EQ(host[i], float(i)) << i;
    for (float& v : host) v *= 3.0f;
    ASSERT_TRUE(img.write(0));
    ASSERT_TRUE(img.map(CL_MAP_READ, 0));
    ASSERT_NE(img.data, host.data());
    for (size_t i = 0; i < n; ++i) EXPECT_EQ(static_cast<float*>(img.data)[i], 3.0f * float(i)) << i;
    ASSERT_TRUE(img.unmap(0));
    ASSERT_TRUE(img.resize(2, 5, nullptr));
    fmt = {};
    img.format(&fmt);
    EXPECT_EQ(std::vector<size_t>({img.dim(0), img.dim(1), fmt.image_channel_data_type}),
              std::vector<size_t>({2, 5, CL_FLOAT}));

    const cl_image_format r{CL_R, CL_UNSIGNED_INT8};
    oclImage3D vol(s_context, "volume");
    ASSERT_TRUE(vol.create(CL_MEM_READ_WRITE, &r, 4, 3, 2, nullptr));
    EXPECT_EQ(std::vector<size_t>({vol.dim(0), vol.dim(1), vol.dim(2), vol.dim(3)}), std::vector<size_t>({4, 3, 2, 0}));
    std::vector<unsigned char> bytes(24);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 5 + 1);
    vol.data = bytes.data();
    ASSERT_TRUE(vol.write(0));
    ASSERT_TRUE(vol.map(CL_MAP_READ | CL_MAP_WRITE, 0));
    auto* mapped = static_cast<unsigned char*>(vol.data);
    EXPECT_EQ(std::vector<unsigned char>(mapped, mapped + 24), bytes);
    mapped[23] = 200;
    ASSERT_TRUE(vol.unmap(0));
    std::vector<unsigned char> back(24, 0);
    vol.data = back.data();
    ASSERT_TRUE(vol.read(0));
    bytes[23] = 200;
    EXPECT_EQ(back, bytes);
    ASSERT_TRUE(vol.resize(2, 2, 3, nullptr));
    fmt = {};
    vol.format(&fmt);
    EXPECT_EQ(std::vector<size_t>({vol.dim(0), vol.dim(1), vol.dim(2), fmt.image_channel_data_type}),
              std::vector<size_t>({2, 2, 3, CL_UNSIGNED_INT8}));
    EXPECT_TRUE(s_msgs.empty());
}

TEST_F(OclLayer, CallsOnAReleasedObjectReportInvalidMem)
{
    oclBuffer buf(s_context, "gone");
    ASSERT_TRUE(buf.create(CL_MEM_READ_WRITE, 16, nullptr));
    ASSERT_TRUE(buf.map(CL_MAP_READ, 0));
    buf.release();
    EXPECT_FALSE(buf.isValid());
    EXPECT_TRUE(buf.handle() == nullptr && buf.mapFlags == 0u && buf.data == nullptr);
    buf.release();  // a second release is a no-op
    EXPECT_FALSE(buf.unmap(0));  // silently
    EXPECT_TRUE(s_msgs.empty());
    EXPECT_EQ(buf.failed, 0);
    EXPECT_FALSE(buf.map(CL_MAP_READ, 0));
    EXPECT_FALSE(buf.read(0));
    EXPECT_FALSE(buf.write(0));
    EXPECT_FALSE(buf.resize(32, nullptr));
    EXPECT_EQ(buf.dim(0), 0u);

    oclImage2D img(s_context, "never made");
    oclImage3D vol(s_context, "never made either");
    EXPECT_FALSE(img.map(CL_MAP_READ, 0));
    EXPECT_FALSE(img.resize(2, 2, nullptr));
    EXPECT_FALSE(vol.read(0));
    EXPECT_FALSE(vol.resize(2, 2, 2, nullptr));
    EXPECT_EQ(texts("error"), std::vector<std::string>(8, "Invalid cl_mem"));
    for (size_t i = 0; i < s_msgs.size(); ++i)
        EXPECT_EQ(s_msgs[i].object, i < 4 ? &buf : i < 6 ? static_cast<oclObject*>(&img) : &vol) << i;
    EXPECT_EQ(buf.failed + img.failed + vol.failed, 3);
}

}  // namespace
