// Script text run from tests, with the outcome as a string to compare.
#pragma once

#include <string>

#include <lua.hpp>

// Runs `code`: "" when it ran, else the error message.
inline std::string luaRun(lua_State* L, const std::string& code)
{
    if (luaL_loadbuffer(L, code.data(), code.size(), "test") == 0 && lua_pcall(L, 0, 0, 0) == 0) return "";
    std::string msg = lua_tostring(L, -1) ? lua_tostring(L, -1) : "(no message)";
    lua_pop(L, 1);
    return msg;
}

// tostring of the value of `expr`, or "ERROR: " and the message.
inline std::string luaEval(lua_State* L, const std::string& expr)
{
    const std::string code = "return tostring(" + expr + ")";
    const bool ok = luaL_loadbuffer(L, code.data(), code.size(), "test") == 0 && lua_pcall(L, 0, 1, 0) == 0;
    std::string out = (ok ? "" : "ERROR: ") + std::string(lua_tostring(L, -1) ? lua_tostring(L, -1) : "?");
    lua_pop(L, 1);
    return out;
}
