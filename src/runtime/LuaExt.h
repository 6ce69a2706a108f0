// The five additions the rest of the system expects on top of Lua 5.1, built
// on the stock library.
//
// Typed userdata. Every typed block starts with a small header: a seal, the
// tag, and whether the payload is a caller's block or a bare pointer. The seal
// is a constant mixed with the header's own address; Lua 5.1 never moves a
// userdata, so the seal stays valid for the block's life, and a plain userdata
// from other code (a plug-in's, io's files) would have to hold its own address
// in its first bytes by chance to pass. Blocks shorter than the header are
// refused before anything is read. No Lua-side table is involved, so the test
// costs no allocation and works on a value of any origin.
//
// Stock Lua cannot make lua_touserdata return a bare pointer, so a pushed
// pointer lives in a small typed block too; velmora_typedpointer is the one
// place that reads either kind back.
//
// Like the Lua API they extend, these functions may raise Lua errors (out of
// memory) and must run inside a protected call.
#pragma once

#include <cstddef>

struct lua_State;

namespace LuaTag {
// Bare pointers of the OpenCL and memory layers.
constexpr int kPointer = 1;
// Nodes: a block holding the ScnNode*.
constexpr int kNode = 2;
}

// As lua_newuserdata, and the block carries `tag`. Returns the caller's part
// of the block.
void* velmora_newuserdatatyped(lua_State* L, size_t size, int tag);

// Pushes a value standing for `pointer`, carrying `tag`.
void velmora_pushtypeduserdata(lua_State* L, void* pointer, int tag);

// Replaces the pointer of a block made by velmora_pushtypeduserdata; a
// script that kept the value then holds `pointer` (null: a dead object).
void velmora_settypedpointer(lua_State* L, int idx, int tag, void* pointer);

// True when the value at `idx` was made by one of the two above with `tag`.
bool velmora_isusertype(lua_State* L, int idx, int tag);

// What lua_touserdata gives on the patched library: the caller's block for a
// typed block, the pointer itself for a pushed pointer; null when the value
// is no typed userdata of `tag`.
void* velmora_typedpointer(lua_State* L, int idx, int tag);

// Looks up the global table `module` and its function `name`. Leaves the
// function on the stack and returns true, or leaves nothing and returns false.
// Lookups are raw, so no metamethod can raise an error here.
bool velmora_getfunction(lua_State* L, const char* module, const char* name);

// Replaces the global `print` of this state: each call joins its arguments
// with tabs through tostring, as the stock print does, and hands the line to
// `hook` instead of standard output.
using VelmoraPrintHook = void (*)(const char* line);
void velmora_setprintfunc(lua_State* L, VelmoraPrintHook hook);
