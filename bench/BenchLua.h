// The first line of every benchmark's output: which Lua the binary was built
// against (-DVELMORA_LUA=lua5.1 or luajit), so that the figures of the two
// builds can be told apart when collected side by side.
#pragma once

#include <cstdio>

#include "runtime/LuaAlloc.h"

#ifndef VELMORA_LUA_PKG
#define VELMORA_LUA_PKG "unknown"
#endif

inline void printLuaBuild(const char* bench)
{
    std::printf("%s: built against %s (pkg-config %s)\n", bench, LuaAlloc::luaBuild(), VELMORA_LUA_PKG);
    std::fflush(stdout);
}
