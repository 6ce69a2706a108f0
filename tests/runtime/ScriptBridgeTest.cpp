// The script bridge: typed userdata, print, node classes and objects as seen
// from Lua, name binding, environments, compiled event functions and the
// error report.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <lua.hpp>

#include "node/ScnAction.h"
#include "node/ScnMFFunction.h"
#include "node/ScnNode.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/LuaExt.h"
#include "runtime/ScnLua.h"
#include "runtime/ScnScriptEnv.h"
#include "LuaRun.h"

namespace {

std::vector<LogRecord> drain(LogRing& ring)
{
    std::vector<LogRecord> out;
    for (LogRecord r; ring.pop(r);) out.push_back(r);
    return out;
}

ScnNode* leaf(const char* name)
{
    auto* n = new ScnNode;
    n->name = name;
    return n;
}

ScnGroup* group(const char* name, std::initializer_list<ScnNode*> children = {})
{
    auto* g = new ScnGroup;
    g->name = name;
    for (ScnNode* c : children) g->append(c);
    return g;
}

// A design tree, its twin with names bound by a create walk, and the twin's
// root as the global OpenGL:
//   OpenGL { scene { wheel { hub, spoke }, axle, "" }, empty {} }
class ScriptBridgeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        L = AppGlobal::luaState();
        ASSERT_NE(L, nullptr);
        m_design = group("OpenGL", {group("scene", {group("wheel", {leaf("hub"), leaf("spoke")}), leaf("axle"), leaf("")}),
                                    group("empty")});
        m_twin = static_cast<ScnGroup*>(m_design->instantiate());
        ScnActionCreate create;
        create.apply(m_twin);
        ASSERT_TRUE(ScnLua::setGlobalNode(L, "OpenGL", m_twin));
        scene = static_cast<ScnGroup*>(m_twin->findChild("scene"));
        ASSERT_NE(scene, nullptr);
        wheel = static_cast<ScnGroup*>(scene->findChild("wheel"));
        axle = scene->findChild("axle");
        ASSERT_NE(wheel, nullptr);
        ASSERT_NE(axle, nullptr);
        m_top = lua_gettop(L);
        Channels::clearAll();
    }

    void TearDown() override
    {
        EXPECT_EQ(lua_gettop(L), m_top) << "the stack is not balanced";
        ScnLua::clearGlobalNode(L, "OpenGL");
        delete m_twin;
        delete m_design;
        EXPECT_TRUE(drain(Channels::error()).empty());
    }

    // tostring of the node's userdata as pushNode gives it.
    std::string describe(ScnNode* node)
    {
        ScnLua::setGlobalNode(L, "probe", node);
        std::string s = luaEval(L, "probe");
        ScnLua::clearGlobalNode(L, "probe");
        return s;
    }

    lua_State* L = nullptr;
    ScnGroup* m_design = nullptr;
    ScnGroup* m_twin = nullptr;
    ScnGroup* scene = nullptr;
    ScnGroup* wheel = nullptr;
    ScnNode* axle = nullptr;
    int m_top = 0;
};

}  // namespace

// -- additions to the Lua library ----------------------------------------------

TEST(LuaExt, TypedUserdataAreToldApartFromEverythingElse)
{
    lua_State* L = AppGlobal::luaState();
    const int top = lua_gettop(L);

    auto* block = static_cast<double*>(velmora_newuserdatatyped(L, 2 * sizeof(double), LuaTag::kNode));
    block[0] = 1.5;
    block[1] = -2.5;  // the whole payload is usable
    EXPECT_TRUE(velmora_isusertype(L, -1, LuaTag::kNode));
    EXPECT_FALSE(velmora_isusertype(L, -1, LuaTag::kPointer));
    EXPECT_EQ(velmora_typedpointer(L, -1, LuaTag::kNode), block);
    EXPECT_EQ(velmora_typedpointer(L, -1, LuaTag::kPointer), nullptr);

    int object = 7;
    velmora_pushtypeduserdata(L, &object, LuaTag::kPointer);
    EXPECT_TRUE(velmora_isusertype(L, -1, LuaTag::kPointer));
    EXPECT_EQ(velmora_typedpointer(L, -1, LuaTag::kPointer), &object);  // the pointer, not its holder
    EXPECT_FALSE(velmora_isusertype(L, -1, LuaTag::kNode));

    // A plain userdata holding a byte copy of a genuine typed block is still
    // plain: the seal belongs to the block's own address.
    size_t size = lua_objlen(L, -2);
    void* copy = lua_newuserdata(L, size);
    std::memcpy(copy, lua_touserdata(L, -3), size);
    EXPECT_FALSE(velmora_isusertype(L, -1, LuaTag::kNode));
    EXPECT_EQ(velmora_typedpointer(L, -1, LuaTag::kNode), nullptr);

    lua_newuserdata(L, 1);  // shorter than any typed block
    lua_pushlightuserdata(L, &object);
    lua_getglobal(L, "io");
    lua_getfield(L, -1, "stdout");  // another library's userdata
    lua_newtable(L);
    lua_pushinteger(L, 2);
    for (int idx = -6; idx <= -1; ++idx) {
        EXPECT_FALSE(velmora_isusertype(L, idx, LuaTag::kNode)) << idx;
        EXPECT_FALSE(velmora_isusertype(L, idx, LuaTag::kPointer)) << idx;
    }
    lua_settop(L, top);
}

TEST(LuaExt, GetFunctionLeavesAFunctionOrNothing)
{
    lua_State* L = AppGlobal::luaState();
    const int top = lua_gettop(L);
    ASSERT_TRUE(velmora_getfunction(L, "string", "rep"));
    lua_pushstring(L, "ab");
    lua_pushinteger(L, 3);
    ASSERT_EQ(lua_pcall(L, 2, 1, 0), 0);
    EXPECT_STREQ(lua_tostring(L, -1), "ababab");
    lua_pop(L, 1);
    // Missing, no function, no module, a global that is no table.
    EXPECT_FALSE(velmora_getfunction(L, "string", "noSuchFunction"));
    EXPECT_FALSE(velmora_getfunction(L, "math", "pi"));
    EXPECT_FALSE(velmora_getfunction(L, "noSuchModule", "rep"));
    EXPECT_FALSE(velmora_getfunction(L, "_VERSION", "len"));
    EXPECT_EQ(lua_gettop(L), top);
}

TEST(LuaExt, PrintWritesOneLineToThePrintChannel)
{
    lua_State* L = AppGlobal::luaState();
    Channels::clearAll();
    EXPECT_EQ(luaRun(L, "print(1, 'two', nil, true, 2.5)"), "");
    EXPECT_EQ(luaRun(L, "print()"), "");
    EXPECT_EQ(luaRun(L, "local t = setmetatable({}, {__tostring = function() return 'custom' end}) print(t)"), "");
    std::vector<LogRecord> lines = drain(Channels::luaPrint());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_STREQ(lines[0].text, "(script): 1\ttwo\tnil\ttrue\t2.5");
    EXPECT_STREQ(lines[1].text, "(script): ");
    EXPECT_STREQ(lines[2].text, "(script): custom");

    // As with the stock print, a tostring that gives no string is an error,
    // raised in the script and caught by its pcall.
    std::string msg = luaRun(L, "local saved = tostring\n"
                             "tostring = function() return {} end\n"
                             "local ok, e = pcall(print, 1)\n"
                             "tostring = saved\n"
                             "error(e, 0)");
    EXPECT_NE(msg.find("'tostring' must return a string to 'print'"), std::string::npos) << msg;
    EXPECT_TRUE(drain(Channels::luaPrint()).empty());

    // Every state made for a workspace prints to the channel too.
    lua_State* other = AppGlobal::newLuaState("/nonexistent-velmora-workspace");
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(luaRun(other, "print('from', 'elsewhere')"), "");
    lua_close(other);
    lines = drain(Channels::luaPrint());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_STREQ(lines[0].text, "(script): from\telsewhere");
    Channels::clearAll();
}

// -- classes and objects ----------------------------------------------------------

TEST_F(ScriptBridgeTest, OnlyTwinsHaveLuaObjectsAndTheyPrintClassAndName)
{
    EXPECT_EQ(m_design->getLuaRef(), 0);
    EXPECT_EQ(m_design->getChild(0)->getLuaRef(), 0);
    EXPECT_NE(wheel->getLuaRef(), 0);

    EXPECT_EQ(luaEval(L, "OpenGL.scene.wheel"), "ScnGroup (wheel)");
    EXPECT_EQ(luaEval(L, "OpenGL.scene.axle"), "ScnNode (axle)");
    EXPECT_EQ(luaEval(L, "OpenGL.scene[\"\"]"), "ScnNode ()");  // a node without a name
    EXPECT_EQ(luaEval(L, "type(OpenGL)"), "userdata");
    EXPECT_EQ(describe(nullptr), "nil");
    EXPECT_EQ(describe(m_design), "nil");  // design nodes are out of reach

    // A subclass without methods of its own inherits through the chain of
    // method tables.
    ScnMatrix design;
    design.name = "frame";
    design.append(leaf("inside"));
    ScnNode* twin = design.instantiate();
    ScnLua::setGlobalNode(L, "frame", twin);
    EXPECT_EQ(luaEval(L, "frame"), "ScnMatrix (frame)");
    EXPECT_EQ(luaEval(L, "frame:getName() .. '/' .. frame:getChild(0):getName()"), "frame/inside");
    ScnLua::clearGlobalNode(L, "frame");
    delete twin;
}

TEST_F(ScriptBridgeTest, ScriptsWalkTheTreeWithNodeMethods)
{
    EXPECT_EQ(luaEval(L, "OpenGL.scene.wheel:getName()"), "wheel");
    EXPECT_EQ(luaEval(L, "OpenGL.scene[''].getName(OpenGL.scene[''])"), "");
    EXPECT_EQ(luaEval(L, "rawequal(OpenGL.scene.wheel:parent(), OpenGL.scene)"), "true");
    EXPECT_EQ(luaEval(L, "OpenGL:parent()"), "nil");
    EXPECT_EQ(luaEval(L, "OpenGL.scene.wheel:next():getName()"), "axle");
    EXPECT_EQ(luaEval(L, "OpenGL.scene.axle:prev():getName()"), "wheel");
    EXPECT_EQ(luaEval(L, "OpenGL.scene.wheel:prev()"), "nil");
    EXPECT_EQ(luaEval(L, "OpenGL.scene[''].next(OpenGL.scene[''])"), "nil");

    EXPECT_EQ(luaEval(L, "rawequal(OpenGL.scene:getChild(0), OpenGL.scene.wheel)"), "true");
    EXPECT_EQ(luaEval(L, "OpenGL.scene:getChild(1)"), "ScnNode (axle)");
    EXPECT_EQ(luaEval(L, "OpenGL.scene:getChild(1.9)"), "ScnNode (axle)");  // truncated
    EXPECT_EQ(luaEval(L, "OpenGL.scene:getChild(3)"), "nil");  // past the end
    EXPECT_EQ(luaEval(L, "OpenGL.scene:getChild(-1)"), "nil");
    EXPECT_EQ(luaEval(L, "OpenGL.scene:getChild(1e300)"), "nil");
    EXPECT_EQ(luaEval(L, "OpenGL.scene:getChild('x')"), "nil");
    EXPECT_EQ(luaEval(L, "OpenGL.scene:getChild()"), "nil");
    EXPECT_EQ(luaEval(L, "OpenGL.empty:getChild(0)"), "nil");

    EXPECT_EQ(luaEval(L, "select('#', OpenGL.scene.axle:getAABBmin())"), "3");
    EXPECT_EQ(luaEval(L, "OpenGL.scene.axle:getAABBmin() > 1e308"), "true");  // empty box
    ScnBox box;
    box.min[0] = -1, box.min[1] = -2, box.min[2] = -3;
    box.max[0] = 4, box.max[1] = 5, box.max[2] = 6;
    axle->setBounds(box);
    EXPECT_EQ(luaEval(L, "table.concat({OpenGL.scene.axle:getAABBmin()}, ',')"), "-1,-2,-3");
    EXPECT_EQ(luaEval(L, "table.concat({OpenGL.scene.axle:getAABBmax()}, ',')"), "4,5,6");

    EXPECT_EQ(luaRun(L, "OpenGL.scene.wheel:setEnabled(false)"), "");
    EXPECT_FALSE(wheel->enabled());
    EXPECT_EQ(luaRun(L, "OpenGL.scene.wheel:setEnabled(true)"), "");
    EXPECT_TRUE(wheel->enabled());

    // The userdata survive a full collection: the nodes anchor them.
    EXPECT_EQ(luaRun(L, "collectgarbage('collect')"), "");
    EXPECT_EQ(luaEval(L, "OpenGL.scene.wheel.hub:getName()"), "hub");
}

TEST_F(ScriptBridgeTest, AGroupMethodRefusesANodeThatIsNoGroup)
{
    std::string msg = luaRun(L, "OpenGL.scene.getChild(OpenGL.scene.axle, 0)");
    EXPECT_NE(msg.find("bad argument #1 to 'getChild' (ScnGroup expected, got userdata)"), std::string::npos) << msg;
    msg = luaRun(L, "local f = OpenGL.getChild f(OpenGL.scene.wheel.hub, 0)");
    EXPECT_NE(msg.find("ScnGroup expected"), std::string::npos) << msg;
    // Values that are no node at all, or another library's userdata.
    msg = luaRun(L, "OpenGL.getName({})");
    EXPECT_NE(msg.find("ScnNode expected, got table"), std::string::npos) << msg;
    msg = luaRun(L, "OpenGL.getName(io.stdout)");
    EXPECT_NE(msg.find("ScnNode expected, got userdata"), std::string::npos) << msg;
    // A node's own class has no group methods to call.
    msg = luaRun(L, "OpenGL.scene.axle:getChild(0)");
    EXPECT_NE(msg.find("attempt to call method 'getChild'"), std::string::npos) << msg;
}

TEST_F(ScriptBridgeTest, NamesFollowCreateRenameAndDestroy)
{
    EXPECT_EQ(luaEval(L, "OpenGL.scene.wheel.spoke:getName()"), "spoke");

    wheel->setName("rim");
    EXPECT_EQ(luaEval(L, "OpenGL.scene.wheel"), "nil");
    EXPECT_EQ(luaEval(L, "OpenGL.scene.rim"), "ScnGroup (rim)");
    EXPECT_EQ(luaEval(L, "OpenGL.scene:getChild(0):getName()"), "rim");

    // A name that equals a method's hides the method on that parent; another
    // name brings the method back.
    axle->setName("getName");
    EXPECT_EQ(luaEval(L, "OpenGL.scene.getName"), "ScnNode (getName)");
    axle->setName("axle");
    EXPECT_EQ(luaEval(L, "OpenGL.scene:getName()"), "scene");

    ScnActionDestroy destroy;
    destroy.apply(wheel);
    EXPECT_EQ(luaEval(L, "OpenGL.scene.rim"), "nil");
    EXPECT_EQ(luaEval(L, "OpenGL.scene:getChild(0).hub"), "nil");
    EXPECT_EQ(luaEval(L, "OpenGL.scene.axle"), "ScnNode (axle)");  // the siblings are untouched

    // A rename takes the name whatever its siblings are called; unbinding
    // a shadowed sibling leaves the holder in place.
    ScnNode* first = scene->getChild(0);
    ScnNode* second = scene->getChild(1);
    first->setName("twin");
    second->setName("twin");
    EXPECT_EQ(luaEval(L, "rawequal(OpenGL.scene.twin, OpenGL.scene:getChild(1))"), "true");
    g_scnScriptHooks.unbindName(scene, first);
    EXPECT_EQ(luaEval(L, "rawequal(OpenGL.scene.twin, OpenGL.scene:getChild(1))"), "true");
    g_scnScriptHooks.unbindName(scene, second);
    EXPECT_EQ(luaEval(L, "OpenGL.scene.twin"), "nil");
    // Binding the later sibling first, then the earlier: the first in the list wins.
    g_scnScriptHooks.bindName(scene, second, false);
    g_scnScriptHooks.bindName(scene, first, false);
    EXPECT_EQ(luaEval(L, "rawequal(OpenGL.scene.twin, OpenGL.scene:getChild(0))"), "true");
    g_scnScriptHooks.bindName(scene, second, false);
    EXPECT_EQ(luaEval(L, "rawequal(OpenGL.scene.twin, OpenGL.scene:getChild(0))"), "true");
}

TEST_F(ScriptBridgeTest, AReleasedNodesUserdataFailsInsteadOfReachingFreedMemory)
{
    ASSERT_EQ(luaRun(L, "keptWheel = OpenGL.scene.wheel keptHub = keptWheel.hub keptAxle = OpenGL.scene.axle"), "");
    const int wheelRef = wheel->getLuaRef();

    // The group's entry lies in the ScnGroup class table; ~ScnNode only sees
    // a ScnNode, so this checks that the release finds the right table.
    lua_rawgeti(L, LUA_REGISTRYINDEX, ScnGroup::s_type.luaClassRef);
    lua_rawgeti(L, -1, wheelRef);
    lua_getglobal(L, "keptWheel");
    EXPECT_TRUE(lua_rawequal(L, -1, -2));
    lua_pop(L, 3);

    scene->remove(wheel);
    delete wheel;  // and hub and spoke with it
    scene->remove(axle);
    delete axle;

    for (const char* kept : {"keptWheel", "keptHub", "keptAxle"}) {
        std::string msg = luaRun(L, std::string(kept) + ":getName()");
        EXPECT_NE(msg.find("calling 'getName' on bad self (ScnNode expected"), std::string::npos) << msg;
        EXPECT_EQ(luaEval(L, std::string(kept) + ".parent(" + kept + ")").rfind("ERROR: ", 0), 0u);
    }
    EXPECT_EQ(luaEval(L, "keptWheel"), "ScnGroup ()");
    EXPECT_EQ(luaEval(L, "keptAxle"), "ScnNode ()");
    // Values set on the dead node's table stay plain Lua data.
    EXPECT_EQ(luaRun(L, "keptAxle.note = 'still here'"), "");
    EXPECT_EQ(luaEval(L, "keptAxle.note"), "still here");

    lua_rawgeti(L, LUA_REGISTRYINDEX, ScnGroup::s_type.luaClassRef);
    lua_rawgeti(L, -1, wheelRef);
    EXPECT_FALSE(velmora_isusertype(L, -1, LuaTag::kNode));  // the anchor is gone
    lua_pop(L, 2);

    // New nodes reuse the freed keys; the live ones keep theirs.
    std::vector<ScnNode*> fresh;
    for (int i = 0; i < 4; ++i) {
        ScnNode* design = i % 2 ? static_cast<ScnNode*>(group("g")) : leaf("n");
        fresh.push_back(design->instantiate());
        delete design;
    }
    EXPECT_EQ(describe(fresh[0]), "ScnNode (n)");
    EXPECT_EQ(describe(fresh[1]), "ScnGroup (g)");
    EXPECT_EQ(describe(scene), "ScnGroup (scene)");
    EXPECT_EQ(describe(scene->getChild(0)), "ScnNode ()");
    EXPECT_EQ(describe(m_twin->findChild("empty")), "ScnGroup (empty)");
    EXPECT_EQ(luaEval(L, "keptWheel"), "ScnGroup ()");
    for (ScnNode* n : fresh) delete n;
    EXPECT_EQ(luaRun(L, "keptWheel, keptHub, keptAxle = nil"), "");
}

// -- environments and compiled code -------------------------------------------------

TEST_F(ScriptBridgeTest, EnvironmentsKeepGlobalsApartButShareNodes)
{
    int e1 = ScnScript::newEnvironment(L);
    int e2 = ScnScript::newEnvironment(L);
    ASSERT_GT(e1, 0);
    ASSERT_GT(e2, 0);
    ASSERT_NE(e1, e2);
    std::string msg;

    ASSERT_TRUE(ScnScript::runGlobalText(L, "sharedValue = 'app'", 0, &msg)) << msg;
    ASSERT_TRUE(ScnScript::runGlobalText(L, "foo = 1\n"
                                            "OpenGL.scene.wheel.x = 42\n"
                                            "selfCheck = rawequal(_P, getfenv(1))",
                                         e1, &msg))
        << msg;
    ASSERT_TRUE(ScnScript::runGlobalText(L, "seenFoo = foo\n"
                                            "seenX = OpenGL.scene.wheel.x\n"
                                            "gotGlobal = sharedValue\n"
                                            "missing = noSuchName",
                                         e2, &msg))
        << msg;

    auto field = [&](int env, const char* name) {
        ScnScript::pushEnvironment(L, env);
        lua_getfield(L, -1, name);
        std::string s = lua_isnil(L, -1) ? "nil" : lua_tostring(L, -1) ? lua_tostring(L, -1) : "?";
        if (lua_isboolean(L, -1)) s = lua_toboolean(L, -1) ? "true" : "false";
        lua_pop(L, 2);
        return s;
    };
    EXPECT_EQ(field(e1, "foo"), "1");
    EXPECT_EQ(field(e1, "selfCheck"), "true");
    EXPECT_EQ(field(e2, "seenFoo"), "nil");     // the other processor's global
    EXPECT_EQ(field(e2, "seenX"), "42");        // the node's table is shared
    EXPECT_EQ(field(e2, "gotGlobal"), "app");   // reads fall through to the globals
    EXPECT_EQ(field(e2, "missing"), "nil");
    EXPECT_EQ(luaEval(L, "foo"), "nil");           // writes stayed in the environment
    EXPECT_EQ(luaEval(L, "OpenGL.scene.wheel.x"), "42");

    ScnScript::releaseEnvironment(L, e1);
    ScnScript::releaseEnvironment(L, e2);
    ScnScript::pushEnvironment(L, e1);
    EXPECT_FALSE(lua_istable(L, -1));
    lua_pop(L, 1);
    EXPECT_EQ(luaRun(L, "sharedValue = nil"), "");
}

TEST_F(ScriptBridgeTest, EventFunctionsCompileIntoTheFunctionTableAndRunInTheEnvironment)
{
    const int env = ScnScript::newEnvironment(L);
    const int table = ScnScript::newFunctionTable(L);
    ASSERT_GT(env, 0);
    ASSERT_GT(table, 0);
    ScnMFFunction functions(nullptr, "");
    functions.append("OnTime", "count = (count or 0) + 1\nlast = OpenGL.scene.wheel:getName()");
    functions.append("OnDeposit", "x = = 1");
    functions.append("OnRemove", "");
    functions.append("OnPressed", "local a = 1\nerror('boom')");
    for (int i = 0; i < functions.count(); ++i) functions.setModified(i, true);

    EXPECT_EQ(ScnScript::compileFunction(L, functions, 0, env, table), nullptr);
    EXPECT_NE(functions.getLuaRef(0), -1);
    EXPECT_FALSE(functions.getModified(0));
    EXPECT_FALSE(functions.getError(0));

    const char* message = ScnScript::compileFunction(L, functions, 1, env, table);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(std::string(message).rfind("[string \"OnDeposit\"]:1:", 0), 0u) << message;
    EXPECT_TRUE(functions.getError(1));
    EXPECT_TRUE(functions.getModified(1));
    // The message lives in the function table under the entry's reference.
    lua_rawgeti(L, LUA_REGISTRYINDEX, table);
    lua_rawgeti(L, -1, functions.getLuaRef(1));
    EXPECT_STREQ(lua_tostring(L, -1), message);
    lua_pop(L, 2);

    EXPECT_EQ(ScnScript::compileFunction(L, functions, 2, env, table), nullptr);  // no code
    EXPECT_EQ(functions.getLuaRef(2), -1);
    EXPECT_FALSE(functions.getError(2));
    EXPECT_EQ(ScnScript::compileFunction(L, functions, 3, env, table), nullptr);

    std::string msg;
    EXPECT_TRUE(ScnScript::runFunction(L, functions, 0, table, &msg)) << msg;
    EXPECT_TRUE(ScnScript::runFunction(L, functions, 0, table, &msg)) << msg;
    EXPECT_FALSE(ScnScript::runFunction(L, functions, 1, table, &msg));  // failed to compile
    EXPECT_FALSE(ScnScript::runFunction(L, functions, 2, table, &msg));  // nothing to run
    EXPECT_EQ(msg, "");
    ScnScript::pushEnvironment(L, env);
    lua_getfield(L, -1, "count");
    EXPECT_EQ(lua_tointeger(L, -1), 2);
    lua_getfield(L, -2, "last");
    EXPECT_STREQ(lua_tostring(L, -1), "wheel");
    lua_pop(L, 3);
    EXPECT_EQ(luaEval(L, "count"), "nil");

    // A run-time failure stops the function until it is compiled again.
    EXPECT_FALSE(ScnScript::runFunction(L, functions, 3, table, &msg));
    EXPECT_EQ(msg, "[string \"OnPressed\"]:2: boom");
    EXPECT_TRUE(functions.getError(3));
    msg.clear();
    EXPECT_FALSE(ScnScript::runFunction(L, functions, 3, table, &msg));
    EXPECT_EQ(msg, "");
    functions.setCode(3, "count = 100");
    EXPECT_EQ(ScnScript::compileFunction(L, functions, 3, env, table), nullptr);
    EXPECT_FALSE(functions.getError(3));
    EXPECT_TRUE(ScnScript::runFunction(L, functions, 3, table, &msg)) << msg;

    // Recompiling replaces what ran before; emptied code leaves nothing to run.
    functions.setCode(0, "");
    EXPECT_EQ(ScnScript::compileFunction(L, functions, 0, env, table), nullptr);
    EXPECT_EQ(functions.getLuaRef(0), -1);
    EXPECT_FALSE(ScnScript::runFunction(L, functions, 0, table, &msg));

    const int ref = functions.getLuaRef(1);
    functions.setModified(1, true);
    ScnScript::removeCompiled(L, functions, 1, table);
    EXPECT_EQ(functions.getLuaRef(1), -1);
    EXPECT_FALSE(functions.getModified(1));
    lua_rawgeti(L, LUA_REGISTRYINDEX, table);
    lua_rawgeti(L, -1, ref);
    EXPECT_NE(lua_type(L, -1), LUA_TSTRING);  // a number on the table's free list now
    lua_pop(L, 2);

    ScnScript::releaseFunctionTable(L, table);
    ScnScript::releaseEnvironment(L, env);
}

TEST_F(ScriptBridgeTest, GlobalTextReportsCompileAndRunFailures)
{
    const int env = ScnScript::newEnvironment(L);
    std::string msg;
    EXPECT_FALSE(ScnScript::runGlobalText(L, "x = \n\n(", 0, &msg));
    EXPECT_EQ(msg.rfind("[string \"application-global\"]:3:", 0), 0u) << msg;
    EXPECT_FALSE(ScnScript::runGlobalText(L, "local t = nil\nt.x = 1", env, &msg));
    EXPECT_EQ(msg.rfind("[string \"processor-global\"]:2:", 0), 0u) << msg;
    EXPECT_FALSE(ScnScript::runGlobalText(L, "error(42, 0)", env, &msg));
    EXPECT_EQ(msg, "42");
    EXPECT_FALSE(ScnScript::runGlobalText(L, "error({}, 0)", env, &msg));
    EXPECT_EQ(msg, "(error object is not a string)");
    EXPECT_TRUE(ScnScript::runGlobalText(L, "", env, &msg));
    EXPECT_FALSE(ScnScript::runGlobalText(L, "x = 1", 987654, &msg));  // no such environment
    ScnScript::releaseEnvironment(L, env);
}

// -- error reports ------------------------------------------------------------------

TEST(ScriptErrors, ParserReadsChunkAndLineOfRealMessages)
{
    lua_State* L = AppGlobal::luaState();
    auto messageOf = [&](const char* code, const char* chunk) {
        std::string msg;
        if (luaL_loadbuffer(L, code, std::strlen(code), chunk) != 0 || lua_pcall(L, 0, 0, 0) != 0) {
            msg = lua_tostring(L, -1);
            lua_pop(L, 1);
        }
        return msg;
    };

    auto expectAt = [](const char* msg, const char* chunk, int line) {
        ScnScript::ErrorPosition p = ScnScript::parseError(msg);
        EXPECT_EQ(p.chunk, chunk) << (msg ? msg : "null");
        EXPECT_EQ(p.line, line) << (msg ? msg : "null");
    };
    expectAt(messageOf("local a = 1\nlocal b = = 2", "OnDeposit").c_str(), "OnDeposit", 2);
    // Quotes in the text come later.
    expectAt(messageOf("\n\n\n\n\n\n\n\n\n\nerror('say \"hi\"')", "processor-global").c_str(), "processor-global", 11);
    expectAt(messageOf("error('plain', 0)", "OnTime").c_str(), "", 0);
    expectAt("only \"one quote", "", 0);
    expectAt("[string \"cut\"]", "cut", 0);  // nothing after the quote
    expectAt(nullptr, "", 0);
}

TEST(ScriptErrors, ReportsPointAtTheNodeAndFunctionThatFailed)
{
    ScnNode application, processor, reg;
    ScnMFFunction functions(nullptr, "");
    functions.append("OnTime");
    functions.append("OnDeposit");
    functions.append("OnPressed");
    ScnScript::ErrorContext context{&application, "app", &processor, "Main", &reg, "register3", &functions};
    Channels::clearAll();

    ScnScript::reportError("[string \"OnPressed\"]:7: boom", context);
    ScnScript::reportError("[string \"application-global\"]:2: bad", context);
    ScnScript::reportError("[string \"processor-global\"]:5: worse", context);
    ScnScript::reportError("[string \"Elsewhere\"]:9: other chunk", context);
    ScnScript::reportError("no position at all", context);
    ScnScript::reportTextError("[string \"application-global\"]:4: text", &application, "design app");

    std::vector<LogRecord> r = drain(Channels::scriptError());
    ASSERT_EQ(r.size(), 6u);
    auto expect = [](const LogRecord& rec, const ScnNode* node, int reg, int line, const char* text) {
        EXPECT_EQ(rec.node, node) << text;
        EXPECT_EQ(rec.reg, reg) << text;
        EXPECT_EQ(rec.line, line) << text;
        EXPECT_STREQ(rec.text, text);
    };
    expect(r[0], &reg, 2, 7, "(register3): [string \"OnPressed\"]:7: boom");
    expect(r[1], &application, 0, 2, "(app): [string \"application-global\"]:2: bad");
    expect(r[2], &processor, 0, 5, "(Main): [string \"processor-global\"]:5: worse");
    expect(r[3], &reg, 0, 9, "(register3): [string \"Elsewhere\"]:9: other chunk");
    expect(r[4], &reg, 0, 0, "(register3): no position at all");
    expect(r[5], &application, 0, 4, "(design app): [string \"application-global\"]:4: text");
    EXPECT_TRUE(drain(Channels::error()).empty());
}
