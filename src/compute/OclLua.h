// OpenCL and memory objects as script values: typed userdata with tag 1 that
// carry the bare pointer. Each object has one such value for its life; when
// the object goes, the value is cleared.
#pragma once

struct lua_State;
class oclObject;
class oclMem;

namespace OclLua {
// Pushes the object's value (nil-free: a null object pushes the null value,
// which every function taking an object refuses).
void push(lua_State* L, oclObject* object);
// The live object at `idx`, or null.
oclObject* to(lua_State* L, int idx);
// The live memory object at `idx`, or null. The hot path of element access:
// the last object's own value is remembered, and while that object lives its
// value is anchored, so the same block at `idx` proves the same live object
// without a lookup in the live set or a cast.
oclMem* toMem(lua_State* L, int idx);
// Installs the release hook; called once at start.
void install();
}
