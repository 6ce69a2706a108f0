// The execution engine end to end: documents made in code, saved, opened and
// run frame by frame, with what scripts print as the observable.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

#include <lua.hpp>

#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnDocument.h"
#include "runtime/RtnSelection.h"
#include "support/DocumentFixture.h"
#include "LuaRun.h"

namespace {

RtnProcessor* appendProcessor(RtnApplication& app, const char* name)
{
    auto* p = new RtnProcessor();
    p->name = name;
    app.scripts.node.append(p);
    return p;
}

RtnRegister* addRegister(RtnProcessor* p, int slot, std::initializer_list<std::pair<int, const char*>> code)
{
    RtnRegister* r = p->createRegister(slot);
    for (auto& [i, text] : code) r->functions.setCode(i, text);
    return r;
}

class Engine : public DocumentFixture {
protected:
    // Saves `app` as `name` in the workspace and opens it.
    void openSaved(RtnApplication& app, const std::string& name = "test.3Dm")
    {
        std::string error;
        RtnMFRef::s_root = &app;
        ASSERT_TRUE(app.writeFile(m_ws / name, error)) << error;
        RtnMFRef::s_root = nullptr;
        ASSERT_TRUE(m_doc.open(name, error)) << error;
    }
    std::string bytes(const std::string& name)
    {
        std::ifstream f(m_ws / name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(f), {});
    }
    void ticks(int n)
    {
        for (int i = 0; i < n; ++i) {
            m_doc.tick();
            m_clock.advance(25);
        }
    }
};

}  // namespace

TEST_F(Engine, LoadRunsGlobalTextsThenDepositsFromTheLastProcessor)
{
    RtnApplication app;
    app.luaglobal = "print('app global')";
    auto* first = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    first->luaglobal = "print('first global')";
    RtnProcessor* second = appendProcessor(app, "Second");
    second->luaglobal = "print('second global')";
    RtnRegister* r1 = addRegister(first, 0, {{1, "print('first got ' .. event:getName())"}});
    r1->marking.append(&app.openGL.node);
    RtnRegister* r2 = addRegister(second, 2, {{1, "print('second got ' .. event:getName())"}});
    r2->marking.append(first);
    openSaved(app);
    EXPECT_EQ(drain(), (Lines{"(script): app global", "(script): first global", "(script): second global",
                              "(script): second got Main", "(script): first got OpenGL"}));
    // The markings were found again through their paths.
    EXPECT_EQ(m_doc.application()->openGL.node.markingCount, 1);
}

TEST_F(Engine, OnTimeRunsOnlyWhileRunningOncePerFrameAndRegister)
{
    RtnApplication app;
    auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    RtnRegister* a = addRegister(p, 0, {{0, "print('tick a', event)"}});
    addRegister(p, 5, {{0, "print('tick b', event and event:getName())"}});
    a->marking.append(&app.camera.node);
    a->marking.append(&app.openGL.node);
    openSaved(app);
    drain();

    ticks(3);
    EXPECT_TRUE(drain().empty());  // edit mode: time does not run

    m_doc.toggleSimulation();
    ticks(2);
    Lines out = drain();
    ASSERT_EQ(out.size(), 4u);
    EXPECT_EQ(out[0].find("(script): tick a\tScnCameraExamine (Camera)"), 0u) << out[0];  // the oldest token
    EXPECT_EQ(out[1], "(script): tick b\tnil");  // no token: event is nil

    m_doc.toggleSimulation();  // a second press pauses
    EXPECT_EQ(m_doc.state(), RtnDocument::State::Paused);
    ticks(2);
    EXPECT_TRUE(drain().empty());
    m_doc.toggleSimulation();
    ticks(1);
    EXPECT_EQ(drain().size(), 2u);
}

TEST_F(Engine, SetActiveFalseFiresOnDeactivateAndSilencesTheProcessor)
{
    RtnApplication app;
    auto* watched = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    RtnProcessor* watcher = appendProcessor(app, "Watcher");
    // Register 0 of the watched processor stops it; register 3 must then stay silent.
    addRegister(watched, 0, {{0, "print('r0'); _P.self:setActive(false)"}});
    addRegister(watched, 3, {{0, "print('r3')"}});
    watched->luaglobal = "self = Scripts.Main";
    RtnRegister* w = addRegister(watcher, 0, {});
    watched->addEvents(w->functions);
    w->functions.setCode(RtnProcessor::OnActivate, "print('activated ' .. event:getName())");
    w->functions.setCode(RtnProcessor::OnDeactivate, "print('deactivated ' .. event:getName())");
    w->marking.append(watched);
    openSaved(app);
    drain();

    m_doc.toggleSimulation();
    ticks(1);
    EXPECT_EQ(drain(), (Lines{"(script): r0", "(script): deactivated Main"}));
    ticks(2);
    EXPECT_TRUE(drain().empty());
    auto* cp = dynamic_cast<CmdProcessor*>(m_doc.application()->scripts.node.getChild(0)->twin());
    ASSERT_NE(cp, nullptr);
    cp->setActive(true);
    EXPECT_EQ(drain(), (Lines{"(script): activated Main"}));
}

TEST_F(Engine, ResetRunsEachOnRemoveThenEachOnDepositOnce)
{
    RtnApplication app;
    auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    RtnRegister* r = addRegister(p, 0, {{1, "print('in ' .. event:getName())"}, {2, "print('out ' .. event:getName())"}});
    r->marking.append(&app.openGL.node);
    r->marking.append(&app.gui.node);
    openSaved(app);
    EXPECT_EQ(drain(), (Lines{"(script): in OpenGL", "(script): in Gui"}));
    m_doc.toggleSimulation();
    m_doc.reset();
    EXPECT_EQ(drain(), (Lines{"(script): out OpenGL", "(script): out Gui", "(script): in OpenGL", "(script): in Gui"}));
    EXPECT_EQ(m_doc.state(), RtnDocument::State::Edit);
}

TEST_F(Engine, LoadRunSaveLeavesTheFileAsItWas)
{
    RtnApplication app;
    app.luaglobal = "counter = 0";
    auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    RtnRegister* r = addRegister(p, 4, {{0, "counter = counter + 1"}, {1, "print(event)"}});
    auto* g = new ScnGroup();
    g->name = "wheel";
    app.openGL.node.append(g);
    r->marking.append(g);
    openSaved(app, "a.3Dm");
    m_doc.toggleSimulation();
    ticks(5);
    ASSERT_TRUE(m_doc.saveAs("b.3Dm"));
    EXPECT_EQ(bytes("a.3Dm"), bytes("b.3Dm"));
}

TEST_F(Engine, EventIsRestoredAroundNestedEvents)
{
    RtnApplication app;
    auto* main = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    RtnProcessor* watched = appendProcessor(app, "Watched");
    RtnRegister* r = addRegister(main, 0, {});
    watched->addEvents(r->functions);
    r->functions.setCode(0, "print('outer ' .. event:getName()); Scripts.Watched:setActive(false); "
                            "print('again ' .. event:getName())");
    r->functions.setCode(RtnProcessor::OnDeactivate, "print('inner ' .. event:getName())");
    r->marking.append(watched);
    openSaved(app);
    drain();

    auto* cp = dynamic_cast<CmdProcessor*>(m_doc.application()->scripts.node.getChild(0)->twin());
    ASSERT_NE(cp, nullptr);
    CmdRegister* reg = cp->registers.get(0);
    ASSERT_NE(reg, nullptr);
    reg->fire(0, m_doc.runtime()->branch(CmdApplication::World));
    EXPECT_EQ(drain(), (Lines{"(script): outer OpenGL", "(script): inner Watched", "(script): again OpenGL"}));
}

TEST_F(Engine, AppModuleTellsTimeAndRunState)
{
    RtnApplication app;
    auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    addRegister(p, 0, {{0, "print('time', app.getTime(), app.isRunning())"}});
    p->luaglobal = "print('at load', app.isRunning(), app.getMaxMemBlock() > 0, app.setMonitor(0.5, 'x'))";
    m_clock.now = 1000;
    openSaved(app);
    EXPECT_EQ(drain(), (Lines{"(script): at load\tfalse\ttrue\ttrue"}));
    m_doc.toggleSimulation();
    ticks(2);
    EXPECT_EQ(drain(), (Lines{"(script): time\t1000\ttrue", "(script): time\t1025\ttrue"}));
    m_doc.toggleSimulation();  // paused: time goes on, scripts see it stopped
    ticks(1);
    lua_State* L = AppGlobal::luaState();
    ASSERT_EQ(luaL_dostring(L, "print(app.getTime(), app.isRunning())"), 0);
    EXPECT_EQ(drain(), (Lines{"(script): 1050\tfalse"}));
}

TEST_F(Engine, GarbageOfAFrameGoesWithinBoundedFramesAndDeadNodesStayRefused)
{
    RtnApplication app;
    auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    RtnProcessor* second = appendProcessor(app, "Second");
    p->luaglobal = "_G.kept = Scripts.Second";
    // Every frame drops a table and, in the first one, an object with a finaliser.
    RtnRegister* r = addRegister(p, 0, {{0, "_G.frames = (_G.frames or 0) + 1\n"
                                            "local junk = {}\n"
                                            "for i = 1, 200 do junk[i] = {i} end\n"
                                            "if _G.frames == 1 then\n"
                                            "  local p = newproxy(true)\n"
                                            "  getmetatable(p).__gc = function() _G.goneAt = _G.frames end\n"
                                            "end"}});
    r->deposit(&app.openGL.node);
    openSaved(app);
    lua_State* L = AppGlobal::luaState();
    auto goneAt = [L] { return std::stod(luaEval(L, "goneAt or -1")); };
    for (bool full : {false, true}) {
        ::Engine::fullCollection = full;
        ASSERT_EQ(luaL_dostring(L, "frames = nil goneAt = nil"), 0);
        if (m_doc.state() != RtnDocument::State::Running) m_doc.toggleSimulation();
        for (int i = 0; i < 400 && goneAt() < 0; ++i) ticks(1);
        // A full collection every frame takes it at the next frame; the
        // incremental steps within a bounded number of frames.
        EXPECT_GT(goneAt(), 0) << "full " << full;
        EXPECT_LE(goneAt(), full ? 2 : 200) << "full " << full;
    }
    ::Engine::fullCollection = false;

    // A processor that goes leaves a dead value behind, refused however many
    // frames and collections pass.
    app.scripts.node.remove(second);
    delete second;
    m_doc.application()->deleteProcessor(m_doc.application()->processorAt(1));
    ticks(50);
    const std::string refused = luaEval(L, "select(2, pcall(kept.getName, kept))");
    EXPECT_NE(refused.find("expected"), std::string::npos) << refused;
}
