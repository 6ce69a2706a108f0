// Branch roots reach scripts as globals under their node names (OpenGL,
// Scripts, Gui, OpenCL, Camera). Only twins have Lua objects, so design
// nodes never publish anything.
#include "compute/OclGlobal.h"
#include "compute/OclNodes.h"
#include "node/ScnAction.h"
#include "render/ScnWorld.h"
#include "runtime/AppGlobal.h"
#include "runtime/BranchGlobals.h"
#include "runtime/RtnNodes.h"
#include "runtime/ScnLua.h"
#include "widgets/GuiRoot.h"

namespace {

struct WithdrawArgs {
    ScnNode* node;
    const char* name;
};

// Reading a global may run a script's __index on the globals: protected.
int withdrawBody(lua_State* L)
{
    const auto* a = static_cast<const WithdrawArgs*>(lua_touserdata(L, 1));
    lua_getglobal(L, a->name);
    bool mine = ScnLua::toNode(L, -1) == a->node;
    lua_pop(L, 1);
    if (mine) {
        lua_pushnil(L);
        lua_setglobal(L, a->name);
    }
    return 0;
}

}  // namespace

namespace BranchGlobals {

void publish(ScnNode* node)
{
    if (lua_State* L = AppGlobal::luaState())
        if (node->getLuaRef()) ScnLua::setGlobalNode(L, node->getName().c_str(), node);
}

void withdraw(ScnNode* node, const std::string& name)
{
    lua_State* L = AppGlobal::luaState();
    if (!L || !node->getLuaRef()) return;
    // Only the global that still names this node: a later tree may own it now.
    WithdrawArgs a{node, name.c_str()};
    ScnLua::protectedCall(L, withdrawBody, &a, a.name);
}

}  // namespace BranchGlobals

using BranchGlobals::publish;
using BranchGlobals::withdraw;

void ScnWorld::onCreate(ScnAction& action)
{
    if (!pathLink) publish(this);
    ScnMatrix::onCreate(action);
}

void ScnWorld::onDestroy(ScnAction& action)
{
    if (!pathLink) withdraw(this, getName());
    ScnMatrix::onDestroy(action);
}

void OclDevice::onCreate(ScnAction& action)
{
    if (!pathLink) publish(this);
    action.context = OclGlobal::currentContext();
    ScnGroup::onCreate(action);
}

void OclDevice::onDestroy(ScnAction& action)
{
    if (!pathLink) withdraw(this, getName());
    ScnGroup::onDestroy(action);
}

void OclDevice::setName(const std::string& text)
{
    std::string old = getName();
    ScnGroup::setName(text);
    if (!getLuaRef()) return;
    withdraw(this, old);
    publish(this);
}

void RtnGroup::onCreate(ScnAction& action)
{
    publish(this);
    ScnGroup::onCreate(action);
}
