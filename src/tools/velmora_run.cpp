// velmora-run: the headless runner. Opens an application in a workspace, runs
// frames, prints every message the frames produce, and can save the result.
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "platform/Paths.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/Clock.h"
#include "runtime/RtnDocument.h"

namespace {

int usage()
{
    std::fprintf(stderr, "usage: velmora-run [--frames N] [--start] [--save OUT] [--realtime] WORKSPACE [APP]\n");
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

bool isFile(const std::string& p)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISREG(st.st_mode);
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

}  // namespace

int main(int argc, char** argv)
{
    long frames = 1;
    bool start = false, realtime = false;
    std::string save, workspace, app;
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
        } else if (a == "--save" && i + 1 < argc) {
            save = argv[++i];
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
    if (!app.empty() && !isFile(app[0] == '/' ? app : workspace + "/" + app)) {
        std::fprintf(stderr, "velmora-run: no application file %s in %s\n", app.c_str(), workspace.c_str());
        return 2;
    }

    AppGlobal::startModules();
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
    if (start) doc.toggleSimulation();

    for (long f = 0; f < frames; ++f) {
        uint32_t delay = doc.tick();
        drain();
        if (realtime) {
            std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        } else {
            // Repeatable runs: every frame is 25 ms of time, however long it took.
            manualClock.now = doc.lastTickTime() + Ticker::kPeriod;
        }
    }

    int rc = 0;
    if (!save.empty()) {
        if (!doc.saveAs(Paths::toNativePath(save))) rc = 1;
        drain();
    }
    doc.close();
    drain();
    return rc;
}
