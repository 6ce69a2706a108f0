#include <cmath>

#include <lua.hpp>

#include "node/ScnField.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"

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
    lua_getglobal(L, "OPENCLINIT");
    if (lua_type(L, -1) == LUA_TNUMBER) {
        double v = lua_tonumber(L, -1);
        // Out-of-range values would be undefined as an int cast.
        if (std::isfinite(v) && v >= -2147483648.0 && v <= 2147483647.0) {
            number = static_cast<int>(v);
        } else {
            LogStream(Channels::error(), m_name) << "result must be a number. Using default value of " << def;
        }
    } else {
        LogStream(Channels::error(), m_name) << "result must be a number. Using default value of " << def;
    }
    lua_pop(L, 1);
    return number;
}
