#include <cmath>

#include <lua.hpp>

#include "node/ScnField.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/ScnLua.h"

namespace {

struct ResultArgs {
    int type = LUA_TNIL;
    double value = 0;
};

// The globals may have an __index of a script's making: read under protection.
int readResult(lua_State* L)
{
    auto* a = static_cast<ResultArgs*>(lua_touserdata(L, 1));
    lua_getglobal(L, "OPENCLINIT");
    a->type = lua_type(L, -1);
    if (a->type == LUA_TNUMBER) a->value = lua_tonumber(L, -1);
    return 0;
}

}  // namespace

int ScnSFScript::evaluate(int def)
{
    number = def;
    lua_State* L = AppGlobal::luaState();
    if (!L) return number;
    std::string chunk = "OPENCLINIT = " + value;
    if (luaL_loadbuffer(L, chunk.data(), chunk.size(), "initcode") != 0) {
        LogStream(Channels::error(), m_name) << lua_tostring(L, -1);
        lua_pop(L, 1);
        return number;
    }
    if (lua_pcall(L, 0, 0, 0) != 0) {
        const char* msg = lua_tostring(L, -1);
        LogStream(Channels::error(), m_name) << (msg ? msg : "error object is not a string");
        lua_pop(L, 1);
        return number;
    }
    ResultArgs r;
    if (ScnLua::pcall(L, readResult, &r) != 0) {
        const char* msg = lua_tostring(L, -1);
        LogStream(Channels::error(), m_name) << (msg ? msg : "error object is not a string");
        lua_pop(L, 1);
        return number;
    }
    if (r.type == LUA_TNUMBER) {
        double v = r.value;
        // Out-of-range values would be undefined as an int cast.
        if (std::isfinite(v) && v >= -2147483648.0 && v <= 2147483647.0) {
            number = static_cast<int>(v);
        } else {
            LogStream(Channels::error(), m_name) << "result must be a number. Using default value of " << def;
        }
    } else {
        LogStream(Channels::error(), m_name) << "result must be a number. Using default value of " << def;
    }
    return number;
}
