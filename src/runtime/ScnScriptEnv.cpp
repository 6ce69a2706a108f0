#include "runtime/ScnScriptEnv.h"

#include <cstdio>
#include <cstring>

#include <lua.hpp>

#include "node/ScnMFFunction.h"
#include "runtime/Channels.h"
#include "runtime/ScnLua.h"

namespace {

const char kNoTables[] = "the processor's environment or the register's function table is missing";

// The text of an error value; Lua allows any value, the report needs text.
std::string errorText(lua_State* L, int idx)
{
    if (lua_type(L, idx) == LUA_TSTRING) {
        size_t n = 0;
        const char* s = lua_tolstring(L, idx, &n);
        return std::string(s, n);
    }
    if (lua_type(L, idx) == LUA_TNUMBER) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "%.14g", lua_tonumber(L, idx));
        return buf;
    }
    return "(error object is not a string)";
}

void reportOnErrorChannel(lua_State* L, const char* source)
{
    LogStream(Channels::error(), source) << errorText(L, -1);
    lua_pop(L, 1);
}

bool isTableAt(lua_State* L, int pseudo, int ref)
{
    if (ref == 0) return false;
    lua_rawgeti(L, pseudo, ref);
    bool ok = lua_istable(L, -1);
    lua_pop(L, 1);
    return ok;
}

// Protected bodies: one light userdata argument, nothing with a destructor.

int newEnvironmentBody(lua_State* L)
{
    int* out = static_cast<int*>(lua_touserdata(L, 1));
    lua_createtable(L, 0, 1);  // 2: E
    lua_pushvalue(L, 2);
    lua_setfield(L, 2, "_P");
    lua_createtable(L, 0, 1);
    lua_pushvalue(L, LUA_GLOBALSINDEX);
    lua_setfield(L, -2, "__index");
    lua_setmetatable(L, 2);
    *out = luaL_ref(L, LUA_GLOBALSINDEX);
    return 0;
}

int newFunctionTableBody(lua_State* L)
{
    int* out = static_cast<int*>(lua_touserdata(L, 1));
    lua_newtable(L);
    *out = luaL_ref(L, LUA_REGISTRYINDEX);
    return 0;
}

struct UnrefArgs {
    int pseudo;     // the table at a pseudo-index (globals, registry) ...
    int tableRef;   // ... or, when not 0, the registry entry holding the table
    int ref;
};

int unrefBody(lua_State* L)
{
    const auto* a = static_cast<const UnrefArgs*>(lua_touserdata(L, 1));
    if (a->tableRef == 0) {
        luaL_unref(L, a->pseudo, a->ref);
        return 0;
    }
    lua_rawgeti(L, LUA_REGISTRYINDEX, a->tableRef);
    if (lua_istable(L, -1)) luaL_unref(L, -1, a->ref);
    return 0;
}

struct CompileArgs {
    const char* code;
    size_t length;
    const char* name;
    int envRef;
    int tableRef;
    int ref;
    const char* message;  // null on success
};

int compileBody(lua_State* L)
{
    auto* a = static_cast<CompileArgs*>(lua_touserdata(L, 1));
    lua_rawgeti(L, LUA_REGISTRYINDEX, a->tableRef);  // 2: F
    lua_rawgeti(L, LUA_GLOBALSINDEX, a->envRef);     // 3: E
    if (luaL_loadbuffer(L, a->code, a->length, a->name) == 0) {
        lua_pushvalue(L, 3);
        lua_setfenv(L, -2);
        a->message = nullptr;
    } else {
        // Anchored in F below, so the pointer outlives this call.
        a->message = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : "(error object is not a string)";
    }
    a->ref = luaL_ref(L, 2);
    return 0;
}

void unref(lua_State* L, int pseudo, int tableRef, int ref)
{
    UnrefArgs a{pseudo, tableRef, ref};
    if (ScnLua::pcall(L, unrefBody, &a) != 0) reportOnErrorChannel(L, "lua");
}

}  // namespace

namespace ScnScript {

int newEnvironment(lua_State* L)
{
    if (!L) return 0;
    int ref = 0;
    if (ScnLua::pcall(L, newEnvironmentBody, &ref) != 0) {
        reportOnErrorChannel(L, "lua");
        return 0;
    }
    return ref;
}

void pushEnvironment(lua_State* L, int envRef)
{
    if (envRef == 0)
        lua_pushnil(L);
    else
        lua_rawgeti(L, LUA_GLOBALSINDEX, envRef);
}

void releaseEnvironment(lua_State* L, int envRef)
{
    if (L && envRef > 0) unref(L, LUA_GLOBALSINDEX, 0, envRef);
}

int newFunctionTable(lua_State* L)
{
    if (!L) return 0;
    int ref = 0;
    if (ScnLua::pcall(L, newFunctionTableBody, &ref) != 0) {
        reportOnErrorChannel(L, "lua");
        return 0;
    }
    return ref;
}

void releaseFunctionTable(lua_State* L, int tableRef)
{
    if (L && tableRef > 0) unref(L, LUA_REGISTRYINDEX, 0, tableRef);
}

void removeCompiled(lua_State* L, ScnMFFunction& functions, int i, int tableRef)
{
    if (i < 0 || i >= functions.count() || functions.getLuaRef(i) == -1) return;
    if (L && tableRef > 0) unref(L, 0, tableRef, functions.getLuaRef(i));
    functions.setLuaRef(i, -1);
    functions.setModified(i, false);
}

const char* compileFunction(lua_State* L, ScnMFFunction& functions, int i, int envRef, int tableRef)
{
    if (i < 0 || i >= functions.count()) return nullptr;
    if (functions.getLuaRef(i) != -1) {
        // What an earlier compile left must not run in place of the new code.
        bool modified = functions.getModified(i);
        removeCompiled(L, functions, i, tableRef);
        functions.setModified(i, modified);
    }
    functions.setError(i, false);
    const std::string& code = functions.getCode(i);
    if (code.empty()) return nullptr;

    if (!L || !isTableAt(L, LUA_REGISTRYINDEX, tableRef) || !isTableAt(L, LUA_GLOBALSINDEX, envRef)) {
        functions.setError(i, true);
        return kNoTables;
    }
    // The chunk name must end in a zero; the stored name may fill its array.
    char name[sizeof(ScnFunctionEntry::name) + 1] = {};
    std::string_view fn = functions.entry(i).getName();
    std::memcpy(name, fn.data(), fn.size());

    CompileArgs a{code.data(), code.size(), name, envRef, tableRef, -1, nullptr};
    if (ScnLua::pcall(L, compileBody, &a) != 0) {
        reportOnErrorChannel(L, name);
        functions.setError(i, true);
        return "out of memory while compiling";
    }
    functions.setLuaRef(i, a.ref);
    if (a.message) {
        functions.setError(i, true);
        return a.message;
    }
    functions.setModified(i, false);
    return nullptr;
}

bool runFunction(lua_State* L, ScnMFFunction& functions, int i, int tableRef, std::string* message)
{
    if (!L || i < 0 || i >= functions.count()) return false;
    if (functions.getError(i) || functions.getLuaRef(i) == -1 || tableRef == 0) return false;
    lua_rawgeti(L, LUA_REGISTRYINDEX, tableRef);
    if (!lua_istable(L, -1)) {
        lua_pop(L, 1);
        return false;
    }
    lua_rawgeti(L, -1, functions.getLuaRef(i));
    lua_remove(L, -2);
    if (!lua_isfunction(L, -1)) {
        lua_pop(L, 1);
        return false;
    }
    if (lua_pcall(L, 0, 0, 0) != 0) {
        if (message) *message = errorText(L, -1);
        lua_pop(L, 1);
        functions.setError(i, true);
        return false;
    }
    return true;
}

bool runGlobalText(lua_State* L, const std::string& text, int envRef, std::string* message)
{
    if (!L) return false;
    const char* chunk = envRef ? kProcessorChunk : kApplicationChunk;
    if (envRef && !isTableAt(L, LUA_GLOBALSINDEX, envRef)) {
        if (message) *message = kNoTables;
        return false;
    }
    if (luaL_loadbuffer(L, text.data(), text.size(), chunk) != 0) {
        if (message) *message = errorText(L, -1);
        lua_pop(L, 1);
        return false;
    }
    if (envRef) {
        lua_rawgeti(L, LUA_GLOBALSINDEX, envRef);
        lua_setfenv(L, -2);
    }
    bool ok = lua_pcall(L, 0, 0, 0) == 0;
    if (!ok) {
        if (message) *message = errorText(L, -1);
        lua_pop(L, 1);
    }
    return ok;
}

void collectAfterGlobalText(lua_State* L)
{
    // A finaliser that raises is reported as at every other collection.
    ScnLua::collect(L, LUA_GCCOLLECT, 0);
}

ErrorPosition parseError(const char* message)
{
    ErrorPosition pos;
    if (!message) return pos;
    const char* first = std::strchr(message, '"');
    const char* second = first ? std::strchr(first + 1, '"') : nullptr;
    if (!second) return pos;
    pos.chunk.assign(first + 1, second);
    // `"]:` stands between the quote and the number; a shorter tail has none.
    if (second[1] && second[2] && std::sscanf(second + 3, "%d", &pos.line) != 1) pos.line = 0;
    return pos;
}

void reportError(const char* message, const ErrorContext& context)
{
    const ErrorPosition pos = parseError(message);
    ScnNode* node = context.registerNode;
    int index = 0;
    const std::string* source = &context.registerName;
    if (pos.chunk == kApplicationChunk) {
        node = context.application;
        source = &context.applicationName;
    } else if (pos.chunk == kProcessorChunk) {
        node = context.processor;
        source = &context.processorName;
    } else if (context.functions) {
        for (int i = 0; i < context.functions->count(); ++i)
            if (context.functions->entry(i).getName() == pos.chunk) {
                index = i;
                break;
            }
    }
    LogStream(Channels::scriptError(), *source, node, pos.line, index) << (message ? message : "");
}

void reportTextError(const char* message, ScnNode* owner, const std::string& source)
{
    LogStream(Channels::scriptError(), source, owner, parseError(message).line, 0) << (message ? message : "");
}

}  // namespace ScnScript
