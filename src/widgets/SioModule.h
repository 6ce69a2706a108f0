#pragma once

struct lua_State;

namespace SioModule {
// Registers the script module `sio`: the mouse, the wheel, the buttons and
// the keys of the input table, and the constants for them.
int open(lua_State* L);
}
