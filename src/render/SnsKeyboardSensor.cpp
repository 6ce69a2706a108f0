#include "render/SnsKeyboardSensor.h"

#include <algorithm>

#include <lua.hpp>

#include "node/ScnAction.h"
#include "node/ScnMFFunction.h"
#include "runtime/Clock.h"
#include "runtime/ScnLua.h"
#include "widgets/InputState.h"

ScnNodeType SnsKeyboardSensor::s_type;

SnsKeyboardSensor::SnsKeyboardSensor()
{
    name = "keyboard";
}

void SnsKeyboardSensor::onEvent(ScnAction& action)
{
    if (Engine::running) {
        const InputState& in = InputState::instance();
        const auto& entries = map.values;
        const int n = static_cast<int>(std::min<size_t>(entries.size(), kKeys));
        for (int k = 0; k < n; ++k) {
            if (!entries[k]) continue;
            key = k;
            const uint32_t state = in.keys[k];
            // A key that went down this frame is not held until the next one.
            if (state & InputState::WentDown)
                notify(OnDown);
            else if (state & InputState::Held)
                notify(OnPressed);
            else if (state & InputState::WentUp)
                notify(OnUp);
        }
    }
    action.continueWalk(this, ScnAction::Both);
}

void SnsKeyboardSensor::addEvents(ScnMFFunction& f)
{
    for (const char* n : {"OnDown", "OnPressed", "OnUp"})
        if (f.indexOf(n) < 0) f.append(n);
}

void SnsKeyboardSensor::removeEvents(ScnMFFunction& f)
{
    for (const char* n : {"OnDown", "OnPressed", "OnUp"}) f.remove(n);
}

void SnsKeyboardSensor::addLuaMethods(ScnLuaClass<SnsKeyboardSensor>& c)
{
    c.add("getKey", &SnsKeyboardSensor::luaGetKey);
}

int SnsKeyboardSensor::luaGetKey(lua_State* L)
{
    lua_pushinteger(L, key);
    return 1;
}
