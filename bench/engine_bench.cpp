// Cost of one frame step of a large application: 1,000 processors with 8
// registers each, every register with a trivial OnTime, opened as a document
// and running. Set beside the same number of bare lua_pcall calls of an empty
// chunk, measured in the same run, and beside the full Lua collection that
// every frame starts with.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <lua.hpp>
#include <unistd.h>

#include "BenchLua.h"
#include "runtime/AppGlobal.h"
#include "runtime/Clock.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnDocument.h"
#include "runtime/RtnNodes.h"
#include "render/ScnScene.h"

namespace {

using SteadyClock = std::chrono::steady_clock;

double seconds(SteadyClock::time_point a, SteadyClock::time_point b)
{
    return std::chrono::duration<double>(b - a).count();
}

// Best of `rounds` of fn(), in seconds.
template <class F>
double best(int rounds, F fn)
{
    double t = 1e30;
    for (int r = 0; r < rounds; ++r) {
        auto t0 = SteadyClock::now();
        if (!fn()) return -1;
        t = std::min(t, seconds(t0, SteadyClock::now()));
    }
    return t;
}

std::string executableFolder()
{
    std::error_code ec;
    std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::filesystem::current_path().string() : exe.parent_path().string();
}

}  // namespace

int main(int argc, char** argv)
{
    printLuaBuild("engine_bench");
    const int processors = 1000;
    const int registersEach = 8;
    const int calls = processors * registersEach;
    const int frames = argc > 1 ? std::max(1, std::atoi(argv[1])) : 100;
    const int rounds = 5;

    char tmpl[] = "/tmp/velmora-engine-bench-XXXXXX";
    if (!mkdtemp(tmpl)) {
        std::perror("engine_bench: mkdtemp");
        return 1;
    }
    const std::string workspace = tmpl;
    AppGlobal::setProgramFolder(executableFolder());
    if (!AppGlobal::setProjectPath(workspace)) {
        std::fprintf(stderr, "engine_bench: cannot enter %s\n", workspace.c_str());
        return 1;
    }
    AppGlobal::startModules();
    lua_State* L = AppGlobal::luaState();
    if (!L) {
        std::fprintf(stderr, "engine_bench: no Lua state\n");
        return 1;
    }

    int status = 0;
    {
        // The document is written and opened the way a user's would be, so
        // the run-time tree is the one a load builds.
        RtnApplication app;
        for (int p = 0; p < processors; ++p) {
            RtnProcessor* proc = p == 0 ? app.processorAt(0) : nullptr;
            if (!proc) {
                proc = new RtnProcessor();
                proc->name = "P" + std::to_string(p);
                app.scripts.node.append(proc);
            }
            for (int r = 0; r < registersEach; ++r) {
                RtnRegister* reg = proc->createRegister(r);
                reg->functions.setCode(RtnRegister::OnTime, "local x = 1");
            }
        }
        std::string error;
        RtnMFRef::s_root = &app;
        bool written = app.writeFile(workspace + "/bench.3Dm", error);
        RtnMFRef::s_root = nullptr;

        ManualClock clock;
        RtnDocument doc(clock);
        if (!written || !doc.open("bench.3Dm", error)) {
            std::fprintf(stderr, "engine_bench: %s\n", error.c_str());
            status = 1;
        } else {
            doc.toggleSimulation();
            // The frame's own timings: the scripts stage is the OnTime walk.
            double walk = 1e30, collect = 1e30, walkSum = 0, collectSum = 0, totalSum = 0;
            int counted = 0;
            auto step = [&] {
                for (int f = 0; f < frames; ++f) {
                    doc.tick();
                    clock.advance(Ticker::kPeriod);
                    const ScnFrameStats& st = ScnFrame::stats();
                    walk = std::min(walk, st.scripts);
                    collect = std::min(collect, st.luaCollect);
                    walkSum += st.scripts;
                    collectSum += st.luaCollect;
                    totalSum += st.total;
                    ++counted;
                }
                return true;
            };
            step();  // warm-up
            const double frameTime = best(rounds, step) / frames;

            // Bare lua_pcall of an empty chunk, from C++, as many as the frame runs.
            luaL_loadbuffer(L, "", 0, "empty");  // an empty chunk always loads
            const int empty = luaL_ref(L, LUA_REGISTRYINDEX);
            const double bare = best(rounds * frames, [&] {
                for (int i = 0; i < calls; ++i) {
                    lua_rawgeti(L, LUA_REGISTRYINDEX, empty);
                    if (lua_pcall(L, 0, 0, 0) != 0) return false;
                }
                return true;
            });
            luaL_unref(L, LUA_REGISTRYINDEX, empty);

            // The collection alone, on the same heap.
            const double gc = best(rounds * frames, [&] {
                lua_gc(L, LUA_GCCOLLECT, 0);
                return true;
            });

            if (bare < 0) {
                std::fprintf(stderr, "engine_bench: the empty chunk failed\n");
                status = 1;
            } else {
                std::printf("engine_bench: %d processors x %d registers, OnTime \"local x = 1\"\n", processors,
                            registersEach);
                std::printf("frame step (best of %d rounds of %d frames): %9.1f us\n", rounds, frames,
                            frameTime * 1e6);
                std::printf("%d bare lua_pcall, empty chunk:            %9.1f us\n", calls, bare * 1e6);
                std::printf("ratio frame step / bare pcalls:              %9.2f\n", frameTime / bare);
                std::printf("OnTime walk (best frame):                    %9.1f us, %6.1f ns per event\n", walk,
                            walk * 1000 / calls);
                std::printf("OnTime walk (mean frame):                    %9.1f us, %6.1f ns per event\n",
                            walkSum / counted, walkSum / counted * 1000 / calls);
                std::printf("collection step at the frame's start:        %9.1f us best, %9.1f us mean\n", collect,
                            collectSum / counted);
                std::printf("frame step by its own clock (mean):          %9.1f us\n", totalSum / counted);
                std::printf("a full Lua collection of the same heap:      %9.1f us (what each frame paid before)\n",
                            gc * 1e6);
            }
        }
        doc.close();
    }

    std::error_code ec;
    std::filesystem::current_path("/", ec);
    std::filesystem::remove_all(workspace, ec);
    return status;
}
