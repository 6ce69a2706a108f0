// Cost per call of the two script paths that run every frame, each set beside
// a bare lua_pcall of an empty chunk measured in the same run:
//   - a node method through its class's dispatch (n:getName() in a Lua loop,
//     less the cost of the empty loop),
//   - an event function: a compiled chunk run in a processor's environment.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <lua.hpp>

#include "node/ScnMFFunction.h"
#include "node/ScnNode.h"
#include "runtime/AppGlobal.h"
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

}  // namespace

int main(int argc, char** argv)
{
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
    return 0;
}
