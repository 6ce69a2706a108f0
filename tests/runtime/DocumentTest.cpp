// The document's life outside the frame: opening, refusing, saving, global
// text, the processor list and stored views.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <lua.hpp>

#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnDocument.h"
#include "support/DocumentFixture.h"
#include "LuaRun.h"

using Document = DocumentFixture;

TEST_F(Document, MissingFileGivesANewApplicationUnderThatName)
{
    std::string error;
    ASSERT_TRUE(m_doc.open("later.3Dm", error)) << error;
    RtnApplication* app = m_doc.application();
    ASSERT_NE(app, nullptr);
    EXPECT_EQ(app->fileName, "later.3Dm");
    EXPECT_EQ(app->processorCount(), 1);
    ASSERT_NE(m_doc.runtime(), nullptr);
    EXPECT_EQ(app->twin(), m_doc.runtime());
    EXPECT_TRUE(m_doc.save());
    EXPECT_TRUE(std::filesystem::exists(m_ws / "later.3Dm"));
}

TEST_F(Document, DamagedFileIsRefusedAndWhatIsOpenStays)
{
    std::string error;
    ASSERT_TRUE(m_doc.open("", error));
    RtnApplication* before = m_doc.application();
    std::ofstream(m_ws / "bad.3Dm") << std::string(300, '\x7f');
    EXPECT_FALSE(m_doc.open("bad.3Dm", error));
    EXPECT_NE(error.find("bad.3Dm: file is truncated or damaged at byte"), std::string::npos) << error;
    EXPECT_EQ(m_doc.application(), before);
    EXPECT_NE(m_doc.runtime(), nullptr);
}

TEST_F(Document, FailedSaveKeepsTheNameAndSaysWhy)
{
    std::string error;
    ASSERT_TRUE(m_doc.open("", error));
    EXPECT_FALSE(m_doc.saveAs("no/such/folder/x.3Dm"));
    EXPECT_EQ(m_doc.application()->fileName, "");
    Lines out = drain();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0], "(page): Unable to save file " + m_ws.path() + "/no/such/folder/x.3Dm -- likely a persmissions problem");
}

TEST_F(Document, GlobalTextErrorGivesOneLineWithItsLineAndTheLoadGoesOn)
{
    RtnApplication app;
    app.luaglobal = "x = 1\ny = = 2\n";
    std::string error;
    ASSERT_TRUE(app.writeFile(m_ws / "g.3Dm", error));
    ASSERT_TRUE(m_doc.open("g.3Dm", error)) << error;
    Channels::intro().clear();
    std::vector<LogRecord> recs = Channels::drainMerged();
    ASSERT_EQ(recs.size(), 1u);
    EXPECT_EQ(recs[0].line, 2);
    EXPECT_EQ(recs[0].node, m_doc.application());
    EXPECT_EQ(std::string(recs[0].text).rfind("(page): [string \"application-global\"]:2:", 0), 0u) << recs[0].text;
    EXPECT_NE(m_doc.runtime(), nullptr);
}

TEST_F(Document, ProcessorListStaysAlikeInBothTreesAndNewProcessorsRunFirst)
{
    std::string error;
    ASSERT_TRUE(m_doc.open("", error));
    RtnApplication* app = m_doc.application();
    RtnProcessor* main = app->processorAt(0);
    RtnProcessor* extra = app->addProcessor("Extra");
    EXPECT_EQ(app->processorCount(), 2);
    EXPECT_EQ(app->indexOfProcessor(extra), 1);
    auto* twinGroup = static_cast<ScnGroup*>(m_doc.runtime()->branch(CmdApplication::Scripts));
    EXPECT_EQ(twinGroup->getChild(0), extra->twin());  // runs first until the next reset

    for (RtnProcessor* p : {main, extra}) {
        RtnRegister* r = p->createRegister(0);
        ASSERT_NE(r, nullptr);
        r->setFunctionCode(0, "print('time " + p->getName() + "')");
        ASSERT_TRUE(r->compileFunction(0));
    }
    m_doc.toggleSimulation();
    m_doc.tick();
    EXPECT_EQ(drain(), (Lines{"(script): time Extra", "(script): time Main"}));

    ASSERT_TRUE(app->moveProcessor(extra, nullptr));
    EXPECT_EQ(twinGroup->getChild(1), extra->twin());
    m_doc.tick();
    EXPECT_EQ(drain(), (Lines{"(script): time Main", "(script): time Extra"}));

    RtnRegister* holder = main->getRegister(0);
    holder->setFunctionCode(2, "print('removed ' .. event:getName())");
    ASSERT_TRUE(holder->compileFunction(2));
    holder->deposit(extra);
    app->deleteProcessor(main);
    EXPECT_EQ(drain(), (Lines{"(script): removed Extra"}));
    EXPECT_EQ(app->processorCount(), 1);
    EXPECT_EQ(twinGroup->childCount(), 1);
    EXPECT_EQ(extra->markingCount, 0);
    m_doc.tick();
    EXPECT_EQ(drain(), (Lines{"(script): time Extra"}));
}

TEST_F(Document, ViewpointsStoreAndRecallTheCamera)
{
    std::string error;
    ASSERT_TRUE(m_doc.open("", error));
    RtnApplication* app = m_doc.application();
    auto* cam = dynamic_cast<ScnCamera*>(app->camera.node.twin());
    ASSERT_NE(cam, nullptr);
    cam->worldMatrix = ScnMatrix16::translation(1, 2, 3);
    // An empty (identity) slot takes the present view.
    ASSERT_TRUE(app->recallViewpoint(2, false));
    EXPECT_EQ(app->viewpoints.values[2].m[14], 3);
    cam->worldMatrix = ScnMatrix16::translation(9, 9, 9);
    ASSERT_TRUE(app->recallViewpoint(2, false));
    EXPECT_EQ(cam->worldMatrix.m[12], 1);
    cam->worldMatrix = ScnMatrix16::translation(5, 0, 0);
    ASSERT_TRUE(app->storeViewpoint(4));
    EXPECT_EQ(app->viewpoints.values[4].m[12], 5);
    EXPECT_FALSE(app->storeViewpoint(5));
    // With keep the present view overwrites the slot.
    cam->worldMatrix = ScnMatrix16::translation(7, 0, 0);
    ASSERT_TRUE(app->recallViewpoint(4, true));
    EXPECT_EQ(app->viewpoints.values[4].m[12], 7);
}

TEST_F(Document, OfSiblingsWithOneNameTheFirstIsReachedByNameAsByFindChild)
{
    RtnApplication app;
    for (const char* n : {"dup", "other", "dup", "dup"}) {
        auto* g = new ScnGroup();
        g->name = n;
        app.openGL.node.append(g);
    }
    std::string error;
    ASSERT_TRUE(app.writeFile(m_ws / "dups.3Dm", error)) << error;
    ASSERT_TRUE(m_doc.open("dups.3Dm", error)) << error;
    lua_State* L = AppGlobal::luaState();
    EXPECT_EQ(luaEval(L, "rawequal(OpenGL.dup, OpenGL:getChild(0))"), "true");
    EXPECT_EQ(luaEval(L, "rawequal(OpenGL.other, OpenGL:getChild(1))"), "true");
    ScnNode* world = m_doc.runtime()->branch(CmdApplication::World);
    EXPECT_EQ(world->findChild("dup"), world->getChild(0));

    // A node added in front later, by a walk of its own, takes the name too.
    auto* front = new ScnGroup();
    front->name = "dup";
    ScnNode* frontTwin = front->instantiate();
    m_doc.application()->openGL.node.addFirst(front);
    static_cast<ScnGroup*>(world)->addFirst(frontTwin);
    m_doc.runtime()->create(frontTwin);
    EXPECT_EQ(luaEval(L, "rawequal(OpenGL.dup, OpenGL:getChild(0))"), "true");
}

TEST_F(Document, OpeningAFileGivesTheFourHintsOnTheIntroChannel)
{
    std::string error;
    ASSERT_TRUE(m_doc.open("hints.3Dm", error)) << error;
    EXPECT_EQ(Channels::intro().pending(), 0u) << "a new application gives no hints";
    ASSERT_TRUE(m_doc.save());
    ASSERT_TRUE(m_doc.open("hints.3Dm", error)) << error;
    std::vector<std::string> hints;
    LogRecord r;
    while (Channels::intro().pop(r)) hints.emplace_back(r.text);
    EXPECT_EQ(hints, (std::vector<std::string>{
                         "(intro): w,a,s,d, ctrl and arrow keys to move",
                         "(intro): right mouse button and wheel to fly, CTRL to tilt",
                         "(intro): Single and double-click nodes to edit content",
                         "(intro): Hit \"play\" to start and \"reset\" to toggle between edit and runtime modes"}));
}
