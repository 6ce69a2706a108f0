/* Test plug-in: lib_open appends the name it was given to the global table
   plugin_calls, so that a test can see which plug-ins ran, with which name,
   in which order. It also registers plugin_echo, a C function of its own, to
   show that what lib_open registered stays callable. */
#include <lauxlib.h>
#include <lua.h>

static int echo(lua_State* L)
{
    lua_pushstring(L, "echo");
    return 1;
}

int lib_open(lua_State* L)
{
    lua_register(L, "plugin_echo", echo);
    const char* name = (const char*)lua_touserdata(L, 1);
    lua_getglobal(L, "plugin_calls");
    if (!lua_istable(L, -1)) {
        lua_pop(L, 1);
        lua_newtable(L);
        lua_pushvalue(L, -1);
        lua_setglobal(L, "plugin_calls");
    }
    lua_pushstring(L, name ? name : "(null)");
    lua_rawseti(L, -2, (int)lua_objlen(L, -2) + 1);
    return 0;
}
