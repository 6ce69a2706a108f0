#include "compute/OclLua.h"

#include <lua.hpp>

#include "compute/oclObject.h"
#include "runtime/AppGlobal.h"
#include "runtime/LuaExt.h"

namespace {

// The last memory object found through its own script value.
struct MemCache {
    lua_State* L = nullptr;
    const void* block = nullptr;
    oclMem* mem = nullptr;
};
MemCache s_memCache;

void release(oclObject* object)
{
    if (s_memCache.mem == object) s_memCache = MemCache{};
    lua_State* L = AppGlobal::luaState();
    if (!L || !object->luaRef) return;
    lua_rawgeti(L, LUA_REGISTRYINDEX, object->luaRef);
    velmora_settypedpointer(L, -1, LuaTag::kPointer, nullptr);
    lua_pop(L, 1);
    luaL_unref(L, LUA_REGISTRYINDEX, object->luaRef);
    object->luaRef = 0;
}

}  // namespace

namespace OclLua {

void push(lua_State* L, oclObject* object)
{
    if (object && object->luaRef) {
        lua_rawgeti(L, LUA_REGISTRYINDEX, object->luaRef);
        return;
    }
    velmora_pushtypeduserdata(L, object, LuaTag::kPointer);
    if (!object) return;
    lua_pushvalue(L, -1);
    object->luaRef = luaL_ref(L, LUA_REGISTRYINDEX);
}

oclObject* to(lua_State* L, int idx)
{
    void* p = velmora_typedpointer(L, idx, LuaTag::kPointer);
    return oclObject::isLive(p) ? static_cast<oclObject*>(p) : nullptr;
}

oclMem* toMem(lua_State* L, int idx)
{
    const void* block = lua_touserdata(L, idx);
    if (block && block == s_memCache.block && L == s_memCache.L) return s_memCache.mem;
    auto* m = dynamic_cast<oclMem*>(to(L, idx));
    if (m && m->luaRef) {
        // Only the object's own, anchored value may be remembered: another
        // block holding the same pointer could be collected and its address
        // reused.
        lua_rawgeti(L, LUA_REGISTRYINDEX, m->luaRef);
        const bool own = lua_touserdata(L, -1) == block;
        lua_pop(L, 1);
        if (own) s_memCache = MemCache{L, block, m};
    }
    return m;
}

void install()
{
    oclObject::luaReleaseHook = release;
}

}  // namespace OclLua
