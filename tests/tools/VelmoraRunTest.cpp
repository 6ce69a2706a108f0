// The headless runner, run as a user runs it.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#define STB_IMAGE_IMPLEMENTATION
#include <stb/stb_image.h>

#include "compute/OclNodes.h"
#include "render/ScnCamera.h"
#include "render/ScnShader.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnNodes.h"
#include "support/MovieProbe.h"
#include "support/TempDir.h"
#include "support/ToolRun.h"

namespace {

struct RunResult {
    int status = -1;
    std::string out, err;
    std::string hints;  // the "(intro): " lines, taken out of `out`
};

std::string slurp(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

// The pixels of a PNG, `channels` to a pixel, top row first; empty when
// there is no readable picture.
std::vector<unsigned char> loadPng(const std::string& path, int& w, int& h, int channels = 3, int* inFile = nullptr)
{
    int n = 0;
    unsigned char* px = stbi_load(path.c_str(), &w, &h, &n, channels);
    if (inFile) *inFile = n;
    if (!px) return {};
    std::vector<unsigned char> out(px, px + static_cast<size_t>(w) * h * channels);
    stbi_image_free(px);
    return out;
}

class VelmoraRun : public ::testing::Test {
protected:
    RunResult run(const std::string& args, const std::string& env = "")
    {
        RunResult r;
        const std::string cmd = env + " " + std::string(VELMORA_BIN_DIR) + "/velmora-run" VELMORA_TOOL_SUFFIX " " + args +
                                " >" + (m_tmp / "out") + " 2>" + (m_tmp / "err");
        r.status = runTool(cmd, m_tmp / "err");
        r.err = slurp(m_tmp / "err");
        // The hint lines that every opened file gives go apart.
        std::istringstream out(slurp(m_tmp / "out"));
        for (std::string line; std::getline(out, line);)
            (line.rfind("(intro): ", 0) == 0 ? r.hints : r.out) += line + "\n";
        return r;
    }
    std::string workspace() const { return std::string(VELMORA_BIN_DIR) + "/workspace"; }

    // Saves `app` with a register whose OnTime runs `code` on every frame.
    static bool writeWithFrameScript(RtnApplication& app, const char* code, const std::string& path)
    {
        RtnRegister* reg = static_cast<RtnProcessor*>(app.scripts.node.getChild(0))->createRegister(0);
        reg->functions.setCode(RtnRegister::OnTime, code);
        reg->marking.append(&app.openGL.node);
        RtnMFRef::s_root = &app;
        std::string error;
        const bool written = app.writeFile(path, error);
        RtnMFRef::s_root = nullptr;
        EXPECT_TRUE(written) << error;
        return written;
    }
    TempDir m_tmp{"velmora-run-test"};
};

}  // namespace

TEST_F(VelmoraRun, HelloSampleGreetsAtLoadAndCountsFramesOnlyWhenStarted)
{
    RunResult edit = run("--frames 3 " + workspace() + " samples/hello.3Dm");
    ASSERT_EQ(edit.status, 0) << edit.err;
    EXPECT_EQ(edit.out, "(script): Hello from OpenGL\n");
    EXPECT_EQ(edit.hints,
              "(intro): w,a,s,d, ctrl and arrow keys to move\n"
              "(intro): right mouse button and wheel to fly, CTRL to tilt\n"
              "(intro): Single and double-click nodes to edit content\n"
              "(intro): Hit \"play\" to start and \"reset\" to toggle between edit and runtime modes\n");

    RunResult started = run("--frames 3 --start " + workspace() + " samples/hello.3Dm");
    ASSERT_EQ(started.status, 0) << started.err;
    EXPECT_EQ(started.out,
              "(script): Hello from OpenGL\n"
              "(script): frame 1 at 0 ms, token OpenGL\n"
              "(script): frame 2 at 25 ms, token OpenGL\n"
              "(script): frame 3 at 50 ms, token OpenGL\n");
}

TEST_F(VelmoraRun, ScriptErrorsArePrintedWithTheirLineAndDoNotFailTheRun)
{
    RtnApplication app;
    auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    p->luaglobal = "local a = 1\nlocal b = nil + a\n";
    std::string error;
    ASSERT_TRUE(app.writeFile(m_tmp / "broken.3Dm", error)) << error;
    RunResult r = run(m_tmp.path() + " broken.3Dm");
    EXPECT_EQ(r.status, 0) << r.err;
    // This workspace has no file plug-ins and neither the scene's nor the
    // widgets' font, which the start says first: a font's size is asked of
    // the image plug-in.
    const std::string missing = "(video.so): Function 'getFileExt' not found\n"
                                "(image.so): Function 'getFileExt' not found\n"
                                "(volume.so): Function 'getFileExt' not found\n"
                                "(ply.so): Function 'getFileExt' not found\n"
                                "(image.so): Function 'getFileInfo' not found\n"
                                "(): Unable to read file FONT.png\n"
                                "(image.so): Function 'getFileInfo' not found\n"
                                "(): Unable to read file GUI.png\n";
    EXPECT_EQ(r.out.rfind(missing, 0), 0u) << r.out;
    EXPECT_EQ(r.out.find("(Main): [string \"processor-global\"]:2:"), missing.size()) << r.out;
    EXPECT_NE(r.out.find(" (line 2)\n"), std::string::npos) << r.out;
}

TEST_F(VelmoraRun, UnusableWorkspaceOrMissingFileExitsWithTwo)
{
    std::ofstream(m_tmp / "cut.3Dm") << "short";
    const std::pair<std::string, const char*> cases[] = {
        {m_tmp / "no-such-folder", "no-such-folder"},
        {workspace() + " samples/absent.3Dm", "absent.3Dm"},
        {m_tmp.path() + " cut.3Dm", "file is truncated or damaged at byte"},
        {"--frames x " + workspace(), ""}};
    for (const auto& [args, part] : cases) {
        RunResult r = run(args);
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_NE(r.err.find(part), std::string::npos) << r.err;
    }
}

// An application with one program whose third line of its own text is wrong.
bool writeBrokenProgram(const std::string& path)
{
    RtnApplication app;
    auto* platform = new OclPlatform;
    auto* program = new OclProgram;
    program->source = "__kernel void k(__global int* v)\n{\n    v[0] = nowhere;\n}\n";
    platform->append(program);
    app.openCL.node.append(platform);
    std::string error;
    return app.writeFile(path, error);
}

TEST_F(VelmoraRun, KernelDiagnosticsArePrintedWithTheLineOfTheProgramsOwnText)
{
    ASSERT_TRUE(writeBrokenProgram(m_tmp / "kernel.3Dm"));
    RunResult r = run(m_tmp.path() + " kernel.3Dm");
    EXPECT_EQ(r.status, 0) << r.err;
    for (const char* part : {"(clProgram): Failure in call to clBuildProgram : CL_BUILD_PROGRAM_FAILURE\n", "nowhere"})
        EXPECT_NE(r.out.find(part), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(" (line 3)\n", r.out.find("(clProgram): ")), std::string::npos) << r.out;
}

TEST_F(VelmoraRun, WithoutAnyOpenCLPlatformTheApplicationStillOpensAndRuns)
{
    ASSERT_TRUE(writeBrokenProgram(m_tmp / "kernel.3Dm"));
    TempDir noVendors{"velmora-no-icd"};
    RunResult r = run("--frames 3 --start " + m_tmp.path() + " kernel.3Dm", "OCL_ICD_VENDORS=" + noVendors.path());
    EXPECT_EQ(r.status, 0) << r.err;
    // No context: said once at start, the platform says so, nothing is built.
    EXPECT_EQ(r.out.rfind("(OpenCL): no OpenCL platform found: compute nodes are not built\n", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("Platform not found, using  instead"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("clBuildProgram"), std::string::npos) << r.out;

    RunResult hello = run("--frames 2 --start " + workspace() + " samples/hello.3Dm", "OCL_ICD_VENDORS=" + noVendors.path());
    EXPECT_EQ(hello.status, 0) << hello.err;
    EXPECT_NE(hello.out.find("frame 2 at 25 ms"), std::string::npos) << hello.out;
}

TEST_F(VelmoraRun, ComputeSampleStepsItsBufferOnTheDeviceAndPrintsChecksums)
{
    RunResult r = run("--frames 80 --start " + workspace() + " samples/compute.3Dm");
    ASSERT_EQ(r.status, 0) << r.err;
    // 1024 values i, each frame v = (3v + 1) mod 1000, summed after 40 and 80 frames.
    EXPECT_EQ(r.out,
              "(script): filled 1024 values\n"
              "(script): frame 40: checksum 509176\n"
              "(script): frame 80: checksum 509576\n");
}

// The particles sample: a kernel moves 100,000 points on every frame. Point 0
// goes round a circle of radius 0.8 at z = 9.5, 0.05 radians per step, and
// is drawn magenta; the picture of frame n shows step n - 1 (the kernel runs
// once when the points arrive and then after each frame's render).
TEST_F(VelmoraRun, ParticlesSampleMovesItsPointsWithAKernelOnEveryFrame)
{
    // The view at the display framebuffer's own size, so that the screen
    // quad shows each drawn pixel once instead of filtering points away.
    constexpr int kW = 1024, kH = 768;
    struct Picture {
        std::vector<unsigned char> rgb;
        bool magentaNear(int x, int y) const
        {
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) {
                    const int px = x + dx, py = y + dy;
                    if (px < 0 || py < 0 || px >= kW || py >= kH) continue;
                    const unsigned char* p = &rgb[(static_cast<size_t>(py) * kW + px) * 3];
                    // The display step filters: a point on a row boundary shares
                    // its colour with the next row, so half magenta counts.
                    if (p[0] > 180 && p[1] < 140 && p[2] > 200) return true;
                }
            return false;
        }
    };
    auto picture = [&](int frames, Picture& out) {
        const std::string png = m_tmp / ("frame" + std::to_string(frames) + ".png");
        RunResult r = run("--frames " + std::to_string(frames) + " --start --size 1024x768 --png " + png + " " +
                          workspace() + " samples/particles.3Dm");
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.out, "") << "no script or kernel reports a problem";
        int w = 0, h = 0;
        out.rgb = loadPng(png, w, h);
        ASSERT_EQ(w * 10000 + h, kW * 10000 + kH) << "no readable PNG of the view's size";
    };
    Picture first, last;
    ASSERT_NO_FATAL_FAILURE(picture(1, first));
    ASSERT_NO_FATAL_FAILURE(picture(40, last));

    int lit = 0, changed = 0;
    for (size_t i = 0; i < first.rgb.size(); i += 3) {
        lit += first.rgb[i] || first.rgb[i + 1] || first.rgb[i + 2];
        changed += first.rgb[i] != last.rgb[i] || first.rgb[i + 1] != last.rgb[i + 1] || first.rgb[i + 2] != last.rgb[i + 2];
    }
    EXPECT_GT(lit, kW * kH / 20) << "the points cover the view";
    EXPECT_GT(changed, kW * kH / 50) << "the kernel moved the points between frame 1 and frame 40";

    // Point 0 under the runner's camera: at (0, 0, 12) looking down minus z,
    // with the default lens; the picture's rows run from the top.
    ScnCamera camera;
    camera.refreshProjection();
    auto expected = [&](double step, int& x, int& y) {
        const double px = 0.8 * std::cos(0.05 * step), py = 0.8 * std::sin(0.05 * step), pz = 9.5 - 12;
        const float* m = camera.projection;
        const double cx = m[0] * px + m[4] * py + m[8] * pz + m[12];
        const double cy = m[1] * px + m[5] * py + m[9] * pz + m[13];
        const double cw = m[3] * px + m[7] * py + m[11] * pz + m[15];
        x = static_cast<int>(std::floor((cx / cw * 0.5 + 0.5) * kW));
        y = kH - 1 - static_cast<int>(std::floor((cy / cw * 0.5 + 0.5) * kH));
    };
    int x0 = 0, y0 = 0, x39 = 0, y39 = 0;
    expected(0, x0, y0);
    expected(39, x39, y39);
    EXPECT_TRUE(first.magentaNear(x0, y0)) << "point 0 at step 0 on " << x0 << ", " << y0;
    EXPECT_TRUE(last.magentaNear(x39, y39)) << "point 0 at step 39 on " << x39 << ", " << y39;
    EXPECT_FALSE(last.magentaNear(x0, y0)) << "and no longer where it started";
}

// The lit sample: a room drawn into a geometry buffer and lit by a warm point
// light at the origin (a unit above the floor) and a blue spot light that
// shines from there down minus x onto the left wall, through doLighting.
TEST_F(VelmoraRun, LitSampleLightsItsRoomWithAPointAndASpotLight)
{
    constexpr int kW = 512, kH = 384;
    const std::string png = m_tmp / "lit.png";
    RunResult r = run("--frames 3 --start --size 512x384 --png " + png + " " + workspace() + " samples/lit.3Dm");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out.find("(script)"), std::string::npos) << "no script reports a problem: " << r.out;
    int w = 0, h = 0;
    const std::vector<unsigned char> rgb = loadPng(png, w, h);
    ASSERT_EQ(w * 10000 + h, kW * 10000 + kH) << "no readable PNG of the view's size";

    // World points to pixels under the sample's camera (its first viewpoint).
    std::string error;
    std::unique_ptr<RtnApplication> app(RtnApplication::readFile(workspace() + "/samples/lit.3Dm", error));
    ASSERT_NE(app, nullptr) << error;
    ScnCamera camera;
    camera.setMatrix(app->viewpoints.values[0]);
    camera.aspect = static_cast<float>(kW) / kH;
    camera.refreshProjection();
    auto at = [&](double x, double y, double z) {
        const double p[3] = {x, y, z};
        double e[4] = {0, 0, 0, 1};
        for (int i = 0; i < 3; ++i) {
            e[i] = camera.inverseMatrix.m[12 + i];
            for (int k = 0; k < 3; ++k) e[i] += camera.inverseMatrix.m[4 * k + i] * p[k];
        }
        double c[4] = {};
        for (int i = 0; i < 4; ++i)
            for (int k = 0; k < 4; ++k) c[i] += camera.projection[4 * k + i] * e[k];
        const int px = static_cast<int>(std::floor((c[0] / c[3] * 0.5 + 0.5) * kW));
        const int py = kH - 1 - static_cast<int>(std::floor((c[1] / c[3] * 0.5 + 0.5) * kH));
        const unsigned char* q = &rgb[(static_cast<size_t>(py) * kW + px) * 3];
        return std::array<int, 3>{q[0], q[1], q[2]};
    };
    // The floor is brightest under the point light and falls off with distance.
    const auto under = at(0, -1, 0), aside = at(2, -1, 2), far = at(5, -1, 5);
    EXPECT_GT(under[0], aside[0] + 20);
    EXPECT_GT(aside[0], far[0]);
    EXPECT_GT(under[0], under[2]) << "the point light is warm";
    // The spot light's disc on the left wall is bluer than the wall beside it.
    const auto disc = at(-4, 0, 0), wall = at(-4, 0, 2.5);
    EXPECT_GT(disc[2], wall[2] + 40);
    EXPECT_GT(disc[2] - wall[2], 2 * (disc[0] - wall[0]));
}

// With no display at all the runner draws through Mesa's surfaceless EGL and
// writes the last frame at the size asked for: the world's axes on black. The
// picture is the 1024x768 display framebuffer stretched over the view; at
// half that size no line of one pixel falls between the filter's samples.
TEST_F(VelmoraRun, PngOfTheRequestedSizeWithNoDisplay)
{
    std::string png = m_tmp / "frame.png";
    RunResult r = run("--frames 2 --size 512x384 --png " + png + " " + workspace() + " samples/hello.3Dm",
                      "env -u DISPLAY -u WAYLAND_DISPLAY");
    ASSERT_EQ(r.status, 0) << r.err;
    int w = 0, h = 0, comp = 0;
    const std::vector<unsigned char> pixels = loadPng(png, w, h, 3, &comp);
    ASSERT_EQ(w * 10000 + h, 512 * 10000 + 384) << "no readable PNG of the size asked for";
    EXPECT_EQ(comp, 3) << "an opaque picture";
    int lit = 0;
    for (int i = 0; i < w * h; ++i) lit += pixels[i * 3] || pixels[i * 3 + 1] || pixels[i * 3 + 2];
    EXPECT_GT(lit, 0) << "the axes are drawn while the simulation is not running";
    EXPECT_LT(lit, w * h / 4);

    EXPECT_EQ(run("--size 0x90 " + workspace()).status, 2);
    EXPECT_EQ(run("--size wide " + workspace()).status, 2);
}

// A headless run records every frame: the movie decodes back to as many
// frames as ran, at the even size below the view's.
TEST_F(VelmoraRun, MovieHoldsEveryFrameAtAnEvenSize)
{
    std::string movie = m_tmp / "run.mp4";
    RunResult r = run("--start --frames 12 --size 161x91 --movie " + movie + " " + workspace() + " samples/hello.3Dm",
                      "env -u DISPLAY -u WAYLAND_DISPLAY");
    ASSERT_EQ(r.status, 0) << r.err;
    MovieProbe probe(movie);
    ASSERT_TRUE(probe.error.empty()) << probe.error;
    EXPECT_EQ(probe.frames, 12);
    EXPECT_EQ(probe.width, 160);
    EXPECT_EQ(probe.height, 90);

    RunResult bad = run("--frames 2 --movie /nonexistent/folder/x.mp4 " + workspace() + " samples/hello.3Dm");
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("cannot record /nonexistent/folder/x.mp4"), std::string::npos) << bad.err;
}

// A GL error that a script left pending is the script's: the picture is still written.
TEST_F(VelmoraRun, PngIsWrittenAfterAScriptLeftAGlErrorPending)
{
    // Each frame's script leaves GL_INVALID_ENUM (0x500) behind, with the context current.
    RtnApplication app;
    ASSERT_TRUE(writeWithFrameScript(app, "gl.glEnable(12345)\nprint(gl.glGetError())\ngl.glEnable(12345)\n",
                                     m_tmp / "careless.3Dm"));
    std::string png = m_tmp / "frame.png";
    RunResult r =
        run("--start --frames 2 --size 64x48 --png " + png + " " + workspace() + " " + (m_tmp / "careless.3Dm"));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "(script): 1280\n(script): 1280\n") << "the script's calls do fail";
    int w = 0, h = 0;
    EXPECT_FALSE(loadPng(png, w, h).empty());
    EXPECT_EQ(w * 100 + h, 6448);
}

// Shader diagnostics print like the others, with the line of the stage's text.
TEST_F(VelmoraRun, ShaderDiagnosticsEndWithTheirLine)
{
    RtnApplication app;
    std::unique_ptr<ScnNode> made(ScnShader::factory());
    auto* s = static_cast<ScnShader*>(made.release());
    s->name = "tint";
    s->fragment = "#version 330\nout vec4 outColor;\nvoid main()\n{\n    outColor = colour;\n}\n";
    app.openGL.node.append(s);
    std::string error;
    ASSERT_TRUE(app.writeFile(m_tmp / "tint.3Dm", error)) << error;
    RunResult r = run("--frames 1 " + workspace() + " " + (m_tmp / "tint.3Dm"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("(tint): Compile Error\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("(tint): 0:5("), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("(line 5)\n"), std::string::npos) << r.out;
}

// Without any EGL driver the run still completes; only the picture is missing.
TEST_F(VelmoraRun, WithoutAnyEglDisplayTheRunGoesOnUndrawn)
{
    std::string png = m_tmp / "none.png";
    RunResult r = run("--frames 2 --start " + workspace() + " samples/hello.3Dm",
                      "env __EGL_VENDOR_LIBRARY_FILENAMES=/nonexistent.json");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("velmora-run: no OpenGL context, frames are not drawn", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("(script): frame 2 at 25 ms, token OpenGL\n"), std::string::npos) << r.out;
    RunResult p = run("--png " + png + " " + workspace(), "env __EGL_VENDOR_LIBRARY_FILENAMES=/nonexistent.json");
    EXPECT_EQ(p.status, 1);
    EXPECT_NE(p.err.find("nothing was drawn"), std::string::npos) << p.err;
}

// Neither a file too large for memory nor a FIFO may abort or block the run.
TEST_F(VelmoraRun, HugeFilesAndFifosAreRefusedWithAMessage)
{
    ASSERT_EQ(std::system(("truncate -s 100G " + (m_tmp / "huge.3Dm")).c_str()), 0);
    RunResult huge = run(m_tmp.path() + " huge.3Dm", "timeout 60");
    EXPECT_EQ(huge.status, 2) << huge.err;
    EXPECT_NE(huge.err.find("huge.3Dm: file is truncated or damaged at byte"), std::string::npos) << huge.err;

    ASSERT_EQ(std::system(("mkfifo " + (m_tmp / "pipe.3Dm")).c_str()), 0);
    RunResult fifo = run(m_tmp.path() + " pipe.3Dm", "timeout 20");
    EXPECT_EQ(fifo.status, 2) << "124 means it waited for a writer";
    EXPECT_NE(fifo.err.find("pipe.3Dm: not a regular file\n"), std::string::npos) << fifo.err;
}

TEST_F(VelmoraRun, ViewpointStartsTheCameraFromAStoredView)
{
    // Slot 1 looks along minus x from (12, 0, 0); slot 0 stays at the identity.
    RtnApplication app;
    ScnMatrix16 side;
    side.m[0] = 0, side.m[2] = -1;   // x axis (0, 0, -1)
    side.m[8] = 1, side.m[10] = 0;   // z axis (1, 0, 0)
    side.m[12] = 12;
    app.viewpoints.values[1] = side;
    ASSERT_TRUE(writeWithFrameScript(app,
                                     "local x, y, z = Camera:getForward()\n"
                                     "print(string.format('%.3f %.3f %.3f', x + 0, y + 0, z + 0))\n",
                                     m_tmp / "views.3Dm"));
    const std::string file = " " + workspace() + " " + (m_tmp / "views.3Dm");

    RunResult stored = run("--start --viewpoint 1" + file);
    ASSERT_EQ(stored.status, 0) << stored.err;
    EXPECT_EQ(stored.out, "(script): -1.000 0.000 0.000\n");
    RunResult plain = run("--start" + file);
    EXPECT_EQ(plain.out, "(script): 0.000 0.000 -1.000\n");
    RunResult empty = run("--start --viewpoint 0" + file);
    EXPECT_EQ(empty.out, "(script): 0.000 0.000 -1.000\n") << "a slot at the identity keeps the present view";
    EXPECT_EQ(run("--viewpoint 5" + file).status, 2);
    EXPECT_EQ(run("--viewpoint x" + file).status, 2);
}

TEST_F(VelmoraRun, InfoNamesPlatformsDevicesTheSharingRoadAndTheGLDriver)
{
    RunResult r = run("--info");
    EXPECT_EQ(r.status, 0) << r.err;
    for (const char* part : {"platform: ", "  device: ", "cl_khr_gl_sharing: ", "OpenGL: "})
        EXPECT_NE(r.out.find(part), std::string::npos) << part << " in " << r.out;
    // Each context says whether it shares.
    const size_t context = r.out.find("context: ");
    ASSERT_NE(context, std::string::npos) << r.out;
    const std::string line = r.out.substr(context, r.out.find('\n', context) - context);
    EXPECT_TRUE(line.find("sharing with OpenGL: yes") != std::string::npos ||
                line.find("sharing with OpenGL: no") != std::string::npos)
        << line;
    // Mesa's headless context names its renderer and version.
    EXPECT_EQ(r.out.find("OpenGL: none"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("(EGL ", r.out.find("OpenGL: ")), std::string::npos) << r.out;
}

TEST_F(VelmoraRun, TimedInputPressesTheUiSamplesButton)
{
    // The button lies at (40, 540) to (140, 570); a press outside it, then
    // one inside held for two frames.
    std::ofstream(m_tmp / "input.txt") << "# outside, then on the button\n"
                                          "2 down left 300 300\n"
                                          "4 up left 300 300\n"
                                          "20 move 50 550\n"
                                          "21 down left 50 552\n"
                                          "23 up left 90 500\n";
    RunResult r = run("--frames 25 --start --input " + (m_tmp / "input.txt") + " " + workspace() + " samples/ui.3Dm");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "(script): down on go at 10,12\n"
              "(script): up, 1 presses\n");

    // Without --start the scripts don't run: the widgets take no press.
    RunResult editing = run("--frames 25 --input " + (m_tmp / "input.txt") + " " + workspace() + " samples/ui.3Dm");
    ASSERT_EQ(editing.status, 0) << editing.err;
    EXPECT_EQ(editing.out, "");
}

TEST_F(VelmoraRun, TimedInputTypesIntoTheUiSamplesInputWhileItHasFocus)
{
    // The input lies at (40, 480) to (240, 503). A right press inside gives
    // it the keys; RETURN tells its register. A left press outside takes
    // them away: what is typed then reaches nobody.
    std::ofstream(m_tmp / "input.txt") << "2 down right 60 490\n"
                                          "3 up right 60 490\n"
                                          "5 text ab\n"
                                          "10 keydown RETURN\n"
                                          "11 keyup RETURN\n"
                                          "13 down left 300 300\n"
                                          "14 up left 300 300\n"
                                          "16 text z\n"
                                          "20 keydown RETURN\n"
                                          "21 keyup RETURN\n"
                                          "# focus again, below the input: nothing\n"
                                          "23 down left 60 470\n"
                                          "24 up left 60 470\n"
                                          "26 keydown RETURN\n"
                                          "27 keyup RETURN\n";
    RunResult r = run("--frames 30 --start --input " + (m_tmp / "input.txt") + " " + workspace() + " samples/ui.3Dm");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "(script): entered ab, RETURN pressed: true\n");
}

TEST_F(VelmoraRun, TheUiSampleShowsItsWidgets)
{
    std::string png = m_tmp / "ui.png";
    RunResult r = run("--frames 2 --start --png " + png + " " + workspace() + " samples/ui.3Dm");
    ASSERT_EQ(r.status, 0) << r.err;
    int w = 0, h = 0;
    const std::vector<unsigned char> px = loadPng(png, w, h, 4);
    ASSERT_EQ(w, 1024) << png;
    // The file runs top down: view row y is file row h - 1 - y. Inside the
    // label (40..340, 600..630) the fill is WINDOW at 0.9 over the view.
    auto at = [&](int x, int y) { return &px[(static_cast<size_t>(h - 1 - y) * w + x) * 4]; };
    const unsigned char* bg = at(600, 300);
    const unsigned char* fill = at(330, 605);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(fill[c], 0.9 * 255 + 0.1 * bg[c], 3) << c;
    const unsigned char* outside = at(341, 605);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(outside[c], bg[c]) << c;
}

TEST_F(VelmoraRun, ADamagedInputFileIsNamedWithItsLine)
{
    std::ofstream(m_tmp / "bad.txt") << "1 move 10 10\n3 press left 5 5\n";
    RunResult r = run("--frames 2 --input " + (m_tmp / "bad.txt") + " " + workspace() + " samples/ui.3Dm");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "velmora-run: " + (m_tmp / "bad.txt") + ": line 2: unknown event \"press\"\n");
    EXPECT_EQ(r.out, "");
    RunResult missing = run("--frames 2 --input " + (m_tmp / "none.txt") + " " + workspace() + " samples/ui.3Dm");
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err, "velmora-run: cannot read input file " + (m_tmp / "none.txt") + "\n");
}

namespace {

// The leftmost column of the scene sample's text colour (1, 0.85, 0.3) in a
// PNG of the runner, or -1 when there is none.
int leftmostText(const std::string& png)
{
    int w = 0, h = 0, left = -1;
    const std::vector<unsigned char> px = loadPng(png, w, h, 4);
    for (int y = 0; !px.empty() && y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const unsigned char* p = &px[(static_cast<size_t>(y) * w + x) * 4];
            if (p[0] > 240 && p[1] > 200 && p[1] < 230 && p[2] > 60 && p[2] < 90 && (left < 0 || x < left)) left = x;
        }
    return left;
}

}  // namespace

TEST_F(VelmoraRun, SceneSampleMovesItsTitleWhenTheKeySensorSeesLeft)
{
    // LEFT held from frame 2 to 4, then R pressed for two frames.
    std::ofstream(m_tmp / "keys.txt") << "2 keydown LEFT\n4 keyup LEFT\n5 keydown r\n7 keyup r\n";
    const std::string moved = m_tmp / "moved.png", still = m_tmp / "still.png";
    RunResult r = run("--frames 8 --start --png " + moved + " --input " + (m_tmp / "keys.txt") + " " + workspace() +
                      " samples/scene.3Dm");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "(ScnTest): 200 points read from cloud.txt\n"
              "(script): keys: LEFT and RIGHT move the title, R turns it\n"
              "(script): key 144 down\n"
              "(script): key 144 up\n"
              "(script): key 114 down\n"
              "(script): key 114 up\n");

    // Without the keys the title stays where the file put it; LEFT moved it
    // half a unit to the left, which the camera at 12 units shows as pixels.
    RunResult s = run("--frames 8 --start --png " + still + " " + workspace() + " samples/scene.3Dm");
    ASSERT_EQ(s.status, 0) << s.err;
    const int before = leftmostText(still), after = leftmostText(moved);
    ASSERT_GE(before, 0) << "the title is drawn";
    EXPECT_LT(after, before - 10);

    // Without --start nothing runs: the sensor fires nothing.
    RunResult editing = run("--frames 8 --input " + (m_tmp / "keys.txt") + " " + workspace() + " samples/scene.3Dm");
    ASSERT_EQ(editing.status, 0) << editing.err;
    EXPECT_EQ(editing.out.find("key 144"), std::string::npos) << editing.out;
}

// The scene sample saves with its object loaded.
TEST_F(VelmoraRun, SamplesSaveTheSameBytesAfterARun)
{
    for (const char* sample : {"hello", "lit", "scene"}) {
        const std::string out = m_tmp / (std::string(sample) + ".3Dm");
        const std::string in = workspace() + "/samples/" + sample + ".3Dm";
        RunResult r = run("--frames 4 --start --save " + out + " " + workspace() + " samples/" + sample + ".3Dm");
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out.find("File missing"), std::string::npos) << r.out;
        EXPECT_EQ(slurp(out), slurp(in)) << sample;
    }
}
