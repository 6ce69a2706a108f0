#include "runtime/AppModule.h"

#include <unistd.h>

#include <lua.hpp>

#include "runtime/Clock.h"

namespace {

int getTime(lua_State* L)
{
    lua_pushnumber(L, Engine::lastTickTime);
    return 1;
}

int isRunning(lua_State* L)
{
    lua_pushboolean(L, Engine::running != 0);
    return 1;
}

// On a 64-bit address space the largest free block is not the limit; what
// memory the system can still give is the useful figure.
int getMaxMemBlock(lua_State* L)
{
    long pages = sysconf(_SC_AVPHYS_PAGES), size = sysconf(_SC_PAGESIZE);
    lua_pushnumber(L, pages > 0 && size > 0 ? static_cast<double>(pages) * static_cast<double>(size) : 0.0);
    return 1;
}

// The progress monitor draws into the front buffer of the view. Without one
// (headless) it only counts, and a loop that asks whether to go on is told yes.
int s_monitorCalls = 0;

int showMonitor(lua_State* L)
{
    if (lua_isboolean(L, 1)) s_monitorCalls = 0;
    return 0;
}

int setMonitor(lua_State* L)
{
    ++s_monitorCalls;
    lua_pushboolean(L, 1);
    return 1;
}

const luaL_Reg kFunctions[] = {
    {"getTime", getTime},         {"isRunning", isRunning},   {"getMaxMemBlock", getMaxMemBlock},
    {"showMonitor", showMonitor}, {"setMonitor", setMonitor}, {nullptr, nullptr},
};

}  // namespace

int AppModule::open(lua_State* L)
{
    luaL_register(L, "app", kFunctions);
    lua_pop(L, 1);
    return 0;
}
