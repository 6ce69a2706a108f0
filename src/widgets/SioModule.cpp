#include "widgets/SioModule.h"

#include <cctype>

#include <lua.hpp>

#include "runtime/ScnLua.h"
#include "widgets/InputState.h"

namespace {

constexpr int kLeft = 1, kRight = 2;

// With a node, relative to the minimum of its box; anything else is as if
// no argument were given.
double mouse(lua_State* L, double value, int axis)
{
    if (lua_isuserdata(L, 1))
        if (ScnNode* node = ScnLua::toNode(L, 1)) value -= node->getBounds().min[axis];
    return value;
}

int getMouseX(lua_State* L)
{
    lua_pushnumber(L, mouse(L, InputState::instance().mouseX, 0));
    return 1;
}

int getMouseY(lua_State* L)
{
    lua_pushnumber(L, mouse(L, InputState::instance().mouseY, 1));
    return 1;
}

int getMouseWheel(lua_State* L)
{
    lua_pushnumber(L, InputState::instance().wheel);
    return 1;
}

int isMousePressed(lua_State* L)
{
    // A number that is not exactly one of the two codes (1.5, say) is refused too.
    const lua_Number n = lua_type(L, 1) == LUA_TNUMBER ? lua_tonumber(L, 1) : 0;
    const int button = n == kLeft ? kLeft : n == kRight ? kRight : 0;
    if (button != kLeft && button != kRight) return luaL_argerror(L, 1, "iso.MB_LEFT, ios.MB_RIGHT expected");
    const InputState& in = InputState::instance();
    lua_pushboolean(L, ((button == kLeft ? in.leftButton : in.rightButton) & InputState::Held) != 0);
    return 1;
}

int isKeyPressed(lua_State* L)
{
    int code = -1;
    if (lua_type(L, 1) == LUA_TNUMBER) {
        code = static_cast<int>(lua_tointeger(L, 1));
    } else if (lua_type(L, 1) == LUA_TSTRING) {
        const char* s = lua_tostring(L, 1);
        code = std::toupper(static_cast<unsigned char>(s[0]));
    } else {
        return luaL_argerror(L, 1, "Key code expected");
    }
    const InputState& in = InputState::instance();
    const bool pressed = code >= 0 && code < InputState::kKeys &&
                         (in.keys[code] & (InputState::Held | InputState::WentDown)) != 0;
    lua_pushboolean(L, pressed);
    return 1;
}

const luaL_Reg kFunctions[] = {
    {"getMouseX", getMouseX},         {"getMouseY", getMouseY},       {"getMouseWheel", getMouseWheel},
    {"isMousePressed", isMousePressed}, {"isKeyPressed", isKeyPressed}, {nullptr, nullptr},
};

const struct {
    const char* name;
    int value;
} kConstants[] = {
    {"MB_LEFT", kLeft},     {"MB_RIGHT", kRight},  {"VK_SHIFT", 133},  {"VK_CONTROL", 134}, {"VK_LEFT", 144},
    {"VK_RIGHT", 146},      {"VK_UP", 145},        {"VK_DOWN", 147},   {"VK_SPACE", 139},   {"VK_INSERT", 152},
    {"VK_DELETE", 127},     {"VK_ESCAPE", 138},    {"VK_TAB", 130},    {"VK_RETURN", 132},  {"VK_BACK", 129},
    {"VK_CLEAR", 131},      {"VK_PAUSE", 136},
};

}  // namespace

int SioModule::open(lua_State* L)
{
    luaL_register(L, "sio", kFunctions);
    for (const auto& c : kConstants) {
        lua_pushinteger(L, c.value);
        lua_setfield(L, -2, c.name);
    }
    lua_pop(L, 1);
    return 0;
}
