#include "runtime/Clock.h"

#include <chrono>
#include <string>

#include <lua.hpp>

#include "platform/Settings.h"
#include "runtime/AppGlobal.h"
#include "runtime/ScnLua.h"

namespace Engine {
uint8_t running = 0;
uint32_t frameCounter = 0;
bool fullCollection = false;

void readCollectionSetting()
{
    std::string v;
    if (Settings::get("Engine", "FullCollection", v)) fullCollection = v == "1" || v == "true";
}

void collectForFrame()
{
    lua_State* L = AppGlobal::luaState();
    if (fullCollection)
        ScnLua::collect(L, LUA_GCCOLLECT, 0);
    else
        ScnLua::collect(L, LUA_GCSTEP, kFrameCollectionKB);
}
uint32_t lastTickTime = 0;
}

uint32_t SystemClock::milliseconds()
{
    auto since = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

uint32_t Ticker::tick()
{
    uint32_t now = m_clock.milliseconds();
    lastTick = now;
    Engine::lastTickTime = now;
    ++Engine::frameCounter;
    Engine::running = simulationOn ? kPeriod : 0;
    if (m_frame) m_frame();
    // The time since the last tick is what this tick's frame took, so a
    // slow frame is followed by an immediate one.
    uint32_t spent = m_clock.milliseconds() - lastTick;
    return spent >= kPeriod ? 0 : kPeriod - spent;
}
