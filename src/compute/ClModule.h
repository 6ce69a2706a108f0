// The script module `cl`: kernel arguments, launches, maps, transfers and
// copies, on device 0 of the context of the object at hand.
#pragma once

struct lua_State;

namespace ClModule {
// Registers the table `cl` with its functions and constants.
int open(lua_State* L);
}
