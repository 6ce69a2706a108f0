#include "compute/OclLua.h"

#include <lua.hpp>

#include "compute/oclObject.h"
#include "runtime/AppGlobal.h"
#include "runtime/LuaExt.h"

namespace {

void release(oclObject* object)
{
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

void install()
{
    oclObject::luaReleaseHook = release;
}

}  // namespace OclLua
