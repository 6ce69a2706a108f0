// Cost per call of the two script paths that run every frame, each set beside
// a bare lua_pcall of an empty chunk measured in the same run:
//   - a node method through its class's dispatch (n:getName() in a Lua loop,
//     less the cost of the empty loop),
//   - an event function: a compiled chunk run in a processor's environment.
// Then the figures of the state's allocator (runtime/LuaAlloc.h): the same
// work on a state on the small-block pool and on one of luaL_newstate (the
// library's default allocator: realloc/free in Lua 5.1, LuaJIT's own in
// LuaJIT), each ratio from one run.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <lua.hpp>

#include "BenchLua.h"
#include "node/ScnMFFunction.h"
#include "node/ScnNode.h"
#include "runtime/AppGlobal.h"
#include "runtime/LuaAlloc.h"
#include "runtime/ScnLua.h"
#include "runtime/ScnScriptEnv.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point a, Clock::time_point b)
{
    return std::chrono::duration<double>(b - a).count();
}

// Best of `rounds` of fn(), in seconds.
template <class F>
double best(int rounds, F fn)
{
    double t = 1e30;
    for (int r = 0; r < rounds; ++r) {
        auto t0 = Clock::now();
        if (!fn()) return -1;
        t = std::min(t, seconds(t0, Clock::now()));
    }
    return t;
}

bool runLua(lua_State* L, int compiled)
{
    lua_rawgeti(L, LUA_REGISTRYINDEX, compiled);
    if (lua_pcall(L, 0, 0, 0) == 0) return true;
    std::fprintf(stderr, "lua_bench: %s\n", lua_tostring(L, -1));
    lua_pop(L, 1);
    return false;
}

int compile(lua_State* L, const std::string& code)
{
    if (luaL_loadbuffer(L, code.data(), code.size(), "bench") != 0) {
        std::fprintf(stderr, "lua_bench: %s\n", lua_tostring(L, -1));
        std::exit(1);
    }
    return luaL_ref(L, LUA_REGISTRYINDEX);
}

// A state with the standard libraries, on the pool or on the default allocator.
lua_State* openState(bool pool)
{
    lua_State* L = pool ? LuaAlloc::newState() : luaL_newstate();
    if (!L) {
        std::fprintf(stderr, "lua_bench: no Lua state\n");
        std::exit(1);
    }
    luaL_openlibs(L);
    return L;
}

void runOrExit(lua_State* L, const std::string& code)
{
    if (luaL_dostring(L, code.c_str()) != 0) {
        std::fprintf(stderr, "lua_bench: %s\n", lua_tostring(L, -1));
        std::exit(1);
    }
}

// One allocator case: `setup` (untimed), a full collection when `settle`,
// then `timed`, a chunk or, when empty, a full collection; each run on a
// fresh state.
struct AllocCase {
    const char* name;
    std::string setup;
    bool settle;
    std::string timed;
};

double allocCaseOnce(const AllocCase& c, bool pool)
{
    lua_State* L = openState(pool);
    if (!c.setup.empty()) runOrExit(L, c.setup);
    if (c.settle) lua_gc(L, LUA_GCCOLLECT, 0);
    auto t0 = Clock::now();
    if (c.timed.empty())
        lua_gc(L, LUA_GCCOLLECT, 0);
    else
        runOrExit(L, c.timed);
    const double t = seconds(t0, Clock::now());
    lua_close(L);
    return t;
}

void allocatorFigures(int objects, int rounds)
{
    const std::string n = std::to_string(objects);
    const std::string build = "keep = {} for i = 1, " + n + " do keep[i] = { i } end";
    const AllocCase cases[] = {
        // Tables grown by writes: their arrays move up through the classes
        // and past them, into malloc.
        {"table writes (1000 tables grown)", "", true,
         "local ts = {} for i = 1, 1000 do ts[i] = {} end "
         "for r = 1, " + n + " / 1000 do for i = 1, 1000 do local t = ts[i] t[r] = r t.x = r end end"},
        // Small tables made and dropped, the collector running as it does
        // (kept a while in a ring, so that no compiler can skip making them).
        {"table creation churn", "", true,
         "local ring = {} for i = 1, " + n + " do ring[i % 64] = { i, x = i } end"},
        // A full collection with the objects alive: mark and sweep.
        {"full collection, N live objects", build, true, ""},
        // A full collection that frees them all.
        {"full collection, N objects freed", build + " keep = nil", false, ""},
    };
    std::printf("allocator: small-block pool vs the default allocator, N = %d, best of %d rounds\n", objects,
                rounds);
    for (const AllocCase& c : cases) {
        // Rounds alternate between the two allocators; the best of each counts.
        double poolTime = 1e30, defaultTime = 1e30;
        for (int r = 0; r < rounds; ++r) {
            poolTime = std::min(poolTime, allocCaseOnce(c, true));
            defaultTime = std::min(defaultTime, allocCaseOnce(c, false));
        }
        std::printf("%-34s pool %7.1f ns/object  default %7.1f ns/object  (pool / default %.2f)\n", c.name,
                    poolTime / objects * 1e9, defaultTime / objects * 1e9, poolTime / defaultTime);
    }

    // The heap of N live objects on the pool.
    lua_State* L = openState(true);
    runOrExit(L, build);
    lua_gc(L, LUA_GCCOLLECT, 0);
    LuaAlloc::Stats s{};
    LuaAlloc::stats(L, s);
    std::printf("heap of N live objects: Lua counts %.0f KiB; pool: %.0f KiB in blocks (%zu small, %zu large), "
                "%.0f KiB of chunks, %.0f KiB free in them\n",
                s.requestedBytes / 1024.0, s.bytesInUse() / 1024.0, s.smallBlocks, s.largeBlocks,
                s.chunkBytes / 1024.0, s.freeBytes / 1024.0);
    lua_close(L);
}

}  // namespace

int main(int argc, char** argv)
{
    printLuaBuild("lua_bench");
    const int calls = argc > 1 ? std::max(1, std::atoi(argv[1])) : 2000000;
    const int rounds = 5;
    AppGlobal::startModules();
    lua_State* L = AppGlobal::luaState();
    if (!L) return 1;

    // A twin below a group, so that getName goes up one level of method tables.
    ScnGroup design;
    design.name = "root";
    auto* child = new ScnMatrix;
    child->name = "wheel";
    design.append(child);
    ScnNode* twin = design.instantiate();
    ScnLua::setGlobalNode(L, "n", twin->getChild(0));

    // Bare lua_pcall of an empty chunk, from C++.
    const int empty = compile(L, "");
    const double bare = best(rounds, [&] {
        for (int i = 0; i < calls; ++i)
            if (!runLua(L, empty)) return false;
        return true;
    });

    // Method calls from Lua, less the loop around them.
    const std::string count = std::to_string(calls);
    const int loop = compile(L, "local n = n for i = 1, " + count + " do end");
    const int methods = compile(L, "local n = n for i = 1, " + count + " do n:getName() end");
    const double loopTime = best(rounds, [&] { return runLua(L, loop); });
    const double methodTime = best(rounds, [&] { return runLua(L, methods); });

    // An event function, the way a register runs it.
    const int env = ScnScript::newEnvironment(L);
    const int table = ScnScript::newFunctionTable(L);
    ScnMFFunction functions(nullptr, "");
    functions.append("OnTime", "frames = (frames or 0) + 1");
    if (ScnScript::compileFunction(L, functions, 0, env, table)) return 1;
    std::string message;
    const double eventTime = best(rounds, [&] {
        for (int i = 0; i < calls; ++i)
            if (!ScnScript::runFunction(L, functions, 0, table, &message)) return false;
        return true;
    });
    if (bare < 0 || methodTime < 0 || eventTime < 0) {
        std::fprintf(stderr, "lua_bench: a run failed %s\n", message.c_str());
        return 1;
    }

    const double bareNs = bare / calls * 1e9;
    const double methodNs = (methodTime - loopTime) / calls * 1e9;
    const double eventNs = eventTime / calls * 1e9;
    std::printf("lua_bench: %d calls, best of %d rounds\n", calls, rounds);
    std::printf("bare lua_pcall, empty chunk:      %7.1f ns/call\n", bareNs);
    std::printf("node method n:getName():          %7.1f ns/call  (%.2f x bare pcall)\n", methodNs, methodNs / bareNs);
    std::printf("event function (pcall in an env): %7.1f ns/call  (%.2f x bare pcall)\n", eventNs, eventNs / bareNs);

    ScnScript::releaseFunctionTable(L, table);
    ScnScript::releaseEnvironment(L, env);
    ScnLua::clearGlobalNode(L, "n");
    delete twin;

    std::printf("state allocator: %s\n", LuaAlloc::usesPool(L) ? "small-block pool" : "the library's own");
    allocatorFigures(argc > 2 ? std::max(1000, std::atoi(argv[2])) : 200000, rounds);
    return 0;
}
