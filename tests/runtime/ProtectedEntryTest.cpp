// Every way from C++ into Lua runs under protection: scripts that make the
// collector, an environment or the globals table raise get their error
// reported with its source, and the process goes on.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include <lua.hpp>

#include "node/ScnField.h"
#include "runtime/AppGlobal.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "runtime/ScnLua.h"
#include "support/DocumentFixture.h"

namespace {

bool anyContains(const Lines& lines, const std::string& part)
{
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& l) { return l.find(part) != std::string::npos; });
}

class ProtectedEntry : public DocumentFixture {
protected:
    void SetUp() override
    {
        DocumentFixture::SetUp();
        if (HasFatalFailure()) return;
        std::string error;
        ASSERT_TRUE(m_doc.open("entries.3Dm", error)) << error;
        drain();
    }
    void TearDown() override
    {
        // Whatever a test did to the globals table, the next test gets a plain one.
        if (lua_State* L = AppGlobal::luaState()) {
            lua_pushnil(L);
            lua_setmetatable(L, LUA_GLOBALSINDEX);
        }
        DocumentFixture::TearDown();
    }
    RtnApplication* app() { return m_doc.application(); }
    void tick()
    {
        m_doc.tick();
        m_clock.advance(25);
    }
};

}  // namespace

TEST_F(ProtectedEntry, AFinaliserThatRaisesIsReportedAtFrameCloseAndReset)
{
    const char* makeGarbage =
        "local p = newproxy(true)\n"
        "getmetatable(p).__gc = function() error('finaliser fails') end\n";
    lua_State* L = AppGlobal::luaState();
    ASSERT_EQ(luaL_dostring(L, makeGarbage), 0);
    m_doc.toggleSimulation();
    tick();
    EXPECT_TRUE(anyContains(drain(), "finaliser fails"));
    ASSERT_EQ(luaL_dostring(L, makeGarbage), 0);
    m_doc.reset();
    EXPECT_TRUE(anyContains(drain(), "finaliser fails"));
    ASSERT_EQ(luaL_dostring(L, makeGarbage), 0);
    m_doc.close();
    EXPECT_TRUE(anyContains(drain(), "finaliser fails"));
    // Direct collections report the same way and answer false.
    ASSERT_EQ(luaL_dostring(L, makeGarbage), 0);
    EXPECT_FALSE(ScnLua::collect(L, LUA_GCCOLLECT, 0));
    EXPECT_TRUE(anyContains(drain(), "finaliser fails"));
    EXPECT_TRUE(ScnLua::collect(L, LUA_GCCOLLECT, 0));
}

TEST_F(ProtectedEntry, AnEnvironmentThatRefusesWritesFailsTheEventNotTheProcess)
{
    RtnProcessor* p = app()->processorAt(0);
    p->setGlobalScript("setmetatable(_P, {__index = _G, __newindex = function(t, k) error('no write of ' .. k) end})");
    ASSERT_TRUE(p->runGlobalScript());
    RtnRegister* r = p->createRegister(0);
    r->setFunctionCode(RtnRegister::OnTime, "print('time')");
    r->setFunctionCode(RtnRegister::OnDeposit, "print('deposit')");
    ASSERT_TRUE(r->compileFunction(RtnRegister::OnTime));
    ASSERT_TRUE(r->compileFunction(RtnRegister::OnDeposit));
    r->deposit(&app()->openGL.node);
    EXPECT_TRUE(anyContains(drain(), "no write of event"));
    m_doc.toggleSimulation();
    tick();
    Lines out = drain();
    EXPECT_TRUE(anyContains(out, "no write of event"));
    EXPECT_FALSE(anyContains(out, "(script): time"));
}

TEST_F(ProtectedEntry, GlobalsThatRaiseOnReadFailSizesAndBranchWithdrawal)
{
    lua_State* L = AppGlobal::luaState();
    // Writes to the globals vanish and reads of missing names raise.
    ASSERT_EQ(luaL_dostring(L,
                            "OpenGL = nil\n"
                            "setmetatable(_G, {__newindex = function() end,\n"
                            "                  __index = function(t, k) error('no read of ' .. k) end})"),
              0);
    ScnSFScript size(nullptr, "dim0", "2^4");
    EXPECT_EQ(size.evaluate(3), 3);
    EXPECT_TRUE(anyContains(drain(), "(dim0): "));
    // Closing withdraws the branch globals, reading them first.
    m_doc.close();
    EXPECT_TRUE(anyContains(drain(), "no read of OpenGL"));
    std::string error;
    EXPECT_TRUE(m_doc.open("again.3Dm", error)) << error;
}
