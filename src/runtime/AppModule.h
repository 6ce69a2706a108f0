#pragma once

struct lua_State;

namespace AppModule {
// Registers the script module `app`: getTime, isRunning, getMaxMemBlock,
// showMonitor and setMonitor.
int open(lua_State* L);
}
