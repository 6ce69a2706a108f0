// Key events for scripts: the sensor's map names the keys it reports, and a
// register that holds the sensor as its token runs OnDown, OnPressed and
// OnUp for them, with getKey() telling which key it was.
#pragma once

#include "node/ScnNode.h"

class SnsKeyboardSensor : public ScnNode {
    SCN_NODE(SnsKeyboardSensor, ScnNode)
public:
    SnsKeyboardSensor();

    static constexpr int kKeys = 256;
    // One entry per key code; an entry other than 0 asks for that key's events.
    ScnMFUInt map{this, "map", kKeys, 0u};

    enum Event { OnDown = 3, OnPressed = 4, OnUp = 5 };

    // The key of the event being fired (the last key looked at), not stored.
    int32_t key = 0;

    // While the application runs, each mapped key fires at most one event a
    // frame: OnDown when it went down, else OnPressed while held, else OnUp
    // when it went up.
    void onEvent(ScnAction& action) override;
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;

    // Script method getKey().
    static void addLuaMethods(ScnLuaClass<SnsKeyboardSensor>& c);
    int luaGetKey(lua_State* L);
};
