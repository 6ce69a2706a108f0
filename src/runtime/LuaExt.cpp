#include "runtime/LuaExt.h"

#include <cstdint>
#include <cstring>

#include <lua.hpp>

namespace {

struct TypedHeader {
    uintptr_t seal;
    int32_t tag;
    int32_t bare;  // 1: the payload holds a pointer pushed by velmora_pushtypeduserdata
};

// Lua aligns a userdata's block for doubles and pointers; keep the payload on
// the same alignment.
constexpr size_t kPayloadOffset = (sizeof(TypedHeader) + 7) & ~size_t(7);
constexpr uintptr_t kSeal = static_cast<uintptr_t>(0x56656c6d6f726131ull);  // "Velmora1"

uintptr_t sealFor(const TypedHeader* h)
{
    return kSeal ^ reinterpret_cast<uintptr_t>(h);
}

TypedHeader* newTyped(lua_State* L, size_t payload, int tag, bool bare)
{
    auto* h = static_cast<TypedHeader*>(lua_newuserdata(L, kPayloadOffset + payload));
    h->seal = sealFor(h);
    h->tag = tag;
    h->bare = bare ? 1 : 0;
    return h;
}

// The header of a typed userdata of `tag` at `idx`, or null.
TypedHeader* typedHeader(lua_State* L, int idx, int tag)
{
    if (lua_type(L, idx) != LUA_TUSERDATA) return nullptr;  // light userdata too
    if (lua_objlen(L, idx) < kPayloadOffset) return nullptr;
    auto* h = static_cast<TypedHeader*>(lua_touserdata(L, idx));
    if (h->seal != sealFor(h) || h->tag != tag) return nullptr;
    return h;
}

struct PrintSlot {
    VelmoraPrintHook hook;
};

// The replacement print: the stock line, handed to the hook.
int hookedPrint(lua_State* L)
{
    const auto* slot = static_cast<const PrintSlot*>(lua_touserdata(L, lua_upvalueindex(1)));
    int n = lua_gettop(L);
    lua_getglobal(L, "tostring");
    luaL_Buffer b;
    luaL_buffinit(L, &b);
    for (int i = 1; i <= n; ++i) {
        // Before the call: the buffer may push a flushed part, which must stay
        // below the value that luaL_addvalue takes from the top.
        if (i > 1) luaL_addchar(&b, '\t');
        lua_pushvalue(L, n + 1);
        lua_pushvalue(L, i);
        lua_call(L, 1, 1);
        if (!lua_isstring(L, -1)) return luaL_error(L, LUA_QL("tostring") " must return a string to " LUA_QL("print"));
        luaL_addvalue(&b);
    }
    luaL_pushresult(&b);
    if (slot && slot->hook) slot->hook(lua_tostring(L, -1));
    return 0;
}

}  // namespace

void* velmora_newuserdatatyped(lua_State* L, size_t size, int tag)
{
    return reinterpret_cast<char*>(newTyped(L, size, tag, false)) + kPayloadOffset;
}

void velmora_pushtypeduserdata(lua_State* L, void* pointer, int tag)
{
    TypedHeader* h = newTyped(L, sizeof(void*), tag, true);
    std::memcpy(reinterpret_cast<char*>(h) + kPayloadOffset, &pointer, sizeof pointer);
}

void velmora_settypedpointer(lua_State* L, int idx, int tag, void* pointer)
{
    TypedHeader* h = typedHeader(L, idx, tag);
    if (!h || !h->bare) return;
    std::memcpy(reinterpret_cast<char*>(h) + kPayloadOffset, &pointer, sizeof pointer);
}

bool velmora_isusertype(lua_State* L, int idx, int tag)
{
    return typedHeader(L, idx, tag) != nullptr;
}

void* velmora_typedpointer(lua_State* L, int idx, int tag)
{
    TypedHeader* h = typedHeader(L, idx, tag);
    if (!h) return nullptr;
    char* payload = reinterpret_cast<char*>(h) + kPayloadOffset;
    if (!h->bare) return payload;
    void* pointer;
    std::memcpy(&pointer, payload, sizeof pointer);
    return pointer;
}

bool velmora_getfunction(lua_State* L, const char* module, const char* name)
{
    lua_pushstring(L, module);
    lua_rawget(L, LUA_GLOBALSINDEX);
    if (!lua_istable(L, -1)) {
        lua_pop(L, 1);
        return false;
    }
    lua_pushstring(L, name);
    lua_rawget(L, -2);
    if (!lua_isfunction(L, -1)) {
        lua_pop(L, 2);
        return false;
    }
    lua_remove(L, -2);
    return true;
}

void velmora_setprintfunc(lua_State* L, VelmoraPrintHook hook)
{
    auto* slot = static_cast<PrintSlot*>(lua_newuserdata(L, sizeof(PrintSlot)));
    slot->hook = hook;
    lua_pushcclosure(L, hookedPrint, 1);
    lua_setfield(L, LUA_GLOBALSINDEX, "print");
}
