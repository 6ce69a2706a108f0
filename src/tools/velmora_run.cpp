// velmora-run: the headless runner. Opens an application in a workspace, runs
// frames, prints every message the frames produce, and can save the result.
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <GL/glew.h>

#include "compute/OclGlobal.h"
#include "platform/MovieWriter.h"
#include "platform/GlContext.h"
#include "platform/Paths.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/Clock.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnDocument.h"
#include "widgets/InputScript.h"

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: velmora-run [--frames N] [--start] [--save OUT] [--realtime] [--full-gc] [--size WxH] [--png OUT.png] "
                 "[--viewpoint N] [--movie OUT.mp4] [--input EVENTS.txt] WORKSPACE [APP]\n"
                 "       velmora-run --info\n");
    return 2;
}

std::string absolute(const std::string& p)
{
    if (p.empty() || p[0] == '/') return p;
    char cwd[PATH_MAX];
    return getcwd(cwd, sizeof cwd) ? std::string(cwd) + "/" + p : p;
}

bool isFolder(const std::string& p)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool exists(const std::string& p)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0;
}

// "WxH" with both sides from 1 to 16384.
bool parseSize(const char* text, int& width, int& height)
{
    char* end = nullptr;
    long w = std::strtol(text, &end, 10);
    if (!end || (*end != 'x' && *end != 'X')) return false;
    char* end2 = nullptr;
    long h = std::strtol(end + 1, &end2, 10);
    if (!end2 || *end2 || w < 1 || h < 1 || w > 16384 || h > 16384) return false;
    width = static_cast<int>(w);
    height = static_cast<int>(h);
    return true;
}

// One line per message, merged across channels in order of arrival.
void drain()
{
    for (const LogRecord& r : Channels::drainMerged()) {
        if (r.line > 0 && r.node)
            std::printf("%s (line %d)\n", r.text, r.line);
        else
            std::printf("%s\n", r.text);
    }
    std::fflush(stdout);
}

// What the machine offers: OpenCL platforms and devices, whether memory is
// shared with OpenGL or copied, and the OpenGL driver.
int info()
{
    std::string glError;
    std::unique_ptr<EglContext> gl = EglContext::create(64, 64, glError);
    if (gl) GlContext::setActive(gl.get());
    AppGlobal::startModules();
    for (const std::string& line : OclGlobal::summary()) std::printf("%s\n", line.c_str());
    {
        GlScope scope;
        if (scope.ok()) {
            const auto* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
            const auto* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
            std::printf("OpenGL: %s, %s (EGL %s)\n", renderer ? renderer : "?", version ? version : "?",
                        gl->platformName());
        } else {
            std::printf("OpenGL: none (%s)\n", glError.c_str());
        }
    }
    GlContext::setActive(nullptr);
    return 0;
}

int run(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--info") == 0) return info();
    long frames = 1;
    bool start = false, realtime = false, fullGc = false;
    std::string save, workspace, app, png, movieFile;
    int width = 1024, height = 768;
    long viewpoint = -1;
    InputScript input;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--frames" && i + 1 < argc) {
            char* end = nullptr;
            frames = std::strtol(argv[++i], &end, 10);
            if (!end || *end || frames < 0) return usage();
        } else if (a == "--start") {
            start = true;
        } else if (a == "--realtime") {
            realtime = true;
        } else if (a == "--full-gc") {
            fullGc = true;
        } else if (a == "--save" && i + 1 < argc) {
            save = argv[++i];
        } else if (a == "--size" && i + 1 < argc) {
            if (!parseSize(argv[++i], width, height)) return usage();
        } else if (a == "--viewpoint" && i + 1 < argc) {
            char* end = nullptr;
            viewpoint = std::strtol(argv[++i], &end, 10);
            if (!end || *end || viewpoint < 0 || viewpoint >= RtnApplication::kViewpoints) return usage();
        } else if (a == "--png" && i + 1 < argc) {
            png = absolute(argv[++i]);
        } else if (a == "--movie" && i + 1 < argc) {
            movieFile = absolute(argv[++i]);
        } else if (a == "--input" && i + 1 < argc) {
            std::string why;
            if (!input.load(argv[++i], why)) {
                std::fprintf(stderr, "velmora-run: %s\n", why.c_str());
                return 2;
            }
        } else if (!a.empty() && a[0] == '-') {
            return usage();
        } else if (workspace.empty()) {
            workspace = absolute(Paths::toNativePath(a));
        } else if (app.empty()) {
            app = Paths::toNativePath(a);
        } else {
            return usage();
        }
    }
    if (workspace.empty()) return usage();
    if (!isFolder(workspace)) {
        std::fprintf(stderr, "velmora-run: unusable workspace %s: no such folder\n", workspace.c_str());
        return 2;
    }
    AppGlobal::setProgramFolder(Paths::executableFolder());
    if (!AppGlobal::setProjectPath(workspace)) {
        std::fprintf(stderr, "velmora-run: unusable workspace %s: cannot enter it\n", workspace.c_str());
        return 2;
    }
    // A name that is there but no regular file is refused by the reader.
    if (!app.empty() && !exists(app[0] == '/' ? app : workspace + "/" + app)) {
        std::fprintf(stderr, "velmora-run: no application file %s in %s\n", app.c_str(), workspace.c_str());
        return 2;
    }

    // The context comes first, so that OpenCL discovery can share with it.
    // Without one the application still runs, drawing nothing.
    std::string glError;
    std::unique_ptr<EglContext> gl = EglContext::create(width, height, glError);
    if (gl)
        GlContext::setActive(gl.get());
    else
        std::printf("velmora-run: no OpenGL context, frames are not drawn: %s\n", glError.c_str());

    AppGlobal::startModules();
    Engine::readCollectionSetting();
    if (fullGc) Engine::fullCollection = true;
    drain();

    SystemClock systemClock;
    ManualClock manualClock;
    Clock& clock = realtime ? static_cast<Clock&>(systemClock) : manualClock;
    RtnDocument doc(clock);
    std::string error;
    if (!doc.open(app, error)) {
        drain();
        std::fprintf(stderr, "velmora-run: %s\n", error.c_str());
        return 2;
    }
    drain();
    doc.setView(width, height, true);
    // As a view button does: a stored view is taken, a slot still at the
    // identity takes the present view instead.
    if (viewpoint >= 0) doc.application()->recallViewpoint(static_cast<int>(viewpoint), false);
    if (start) doc.toggleSimulation();

    // Every frame goes into the movie, as the editor records its view.
    MovieWriter movie;
    if (!movieFile.empty()) {
        int mw = 0, mh = 0;
        MovieWriter::frameSize(width, height, mw, mh);
        std::string why = gl ? "" : "nothing is drawn (no OpenGL context)";
        if (why.empty()) movie.open(movieFile, mw, mh, why);
        if (!movie.isOpen()) {
            std::fprintf(stderr, "velmora-run: cannot record %s: %s\n", movieFile.c_str(), why.c_str());
            return 1;
        }
    }

    for (long f = 0; f < frames; ++f) {
        // Timed input reaches the table before the frame samples it.
        input.feed(f + 1);
        uint32_t delay = doc.tick();
        drain();
        if (movie.isOpen()) {
            std::vector<uint8_t> pixels = gl->readFrame();
            if (pixels.empty() || !movie.addFrame(pixels.data(), width, height)) {
                std::fprintf(stderr, "velmora-run: frame %ld could not be recorded\n", f + 1);
                return 1;
            }
        }
        if (realtime) {
            std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        } else {
            // Repeatable runs: every frame is 25 ms of time, however long it took.
            manualClock.now = doc.lastTickTime() + Ticker::kPeriod;
        }
    }

    int rc = 0;
    if (movie.isOpen() && !movie.close()) {
        std::fprintf(stderr, "velmora-run: cannot finish %s\n", movieFile.c_str());
        rc = 1;
    }
    if (!png.empty()) {
        std::string why;
        std::vector<uint8_t> pixels;
        if (gl)
            pixels = gl->readFrame(&why);
        else
            why = "nothing was drawn (no OpenGL context)";
        if (why.empty() && pixels.empty()) why = "the frame could not be read";
        if (why.empty() && !writePng(png, width, height, pixels)) why = "the PNG file could not be written";
        if (!why.empty()) {
            std::fprintf(stderr, "velmora-run: cannot write %s: %s\n", png.c_str(), why.c_str());
            rc = 1;
        }
    }
    if (!save.empty()) {
        if (!doc.saveAs(Paths::toNativePath(save))) rc = 1;
        drain();
    }
    doc.close();
    drain();
    GlContext::setActive(nullptr);
    return rc;
}

}  // namespace

int main(int argc, char** argv)
{
    // Failures are reported where they happen; this only keeps anything that
    // slipped through (memory running out) from aborting without a word.
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "velmora-run: %s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "velmora-run: unexpected failure\n");
    }
    return 1;
}
