/* Test plug-in whose lib_open raises a Lua error naming itself. */
#include <lauxlib.h>
#include <lua.h>

int lib_open(lua_State* L)
{
    const char* name = (const char*)lua_touserdata(L, 1);
    return luaL_error(L, "refused to open %s", name ? name : "(null)");
}
