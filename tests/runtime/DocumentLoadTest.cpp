// Opening large documents: tokens among many siblings are resolved, counted
// and deposited as they were saved, and the garbage of the global texts is
// gone once the build ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <lua.hpp>

#include "runtime/AppGlobal.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "support/DocumentFixture.h"
#include "LuaRun.h"

namespace {

using DocumentLoad = DocumentFixture;

std::vector<char> fileBytes(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

RtnProcessor* addProcessor(RtnApplication& app, int k)
{
    RtnProcessor* p = k == 0 ? app.processorAt(0) : nullptr;
    if (!p) {
        p = new RtnProcessor();
        app.scripts.node.append(p);
    }
    p->name = "P" + std::to_string(k);
    return p;
}

}  // namespace

TEST_F(DocumentLoad, TokensAmongManySiblingsAreResolvedCountedAndDepositedAndSavedUnchanged)
{
    constexpr int kSiblings = 2000, kProcessors = 3;
    std::string error;
    {
        RtnApplication app;
        auto* flat = new ScnGroup();
        flat->name = "flat";
        app.openGL.node.append(flat);
        for (int i = 0; i < kSiblings; ++i) {
            auto* g = new ScnGroup();
            g->name = "f" + std::to_string(i);
            flat->append(g);
        }
        // Processor k holds f(k), f(1000 + k) and f(1999): the last one three times over.
        for (int k = 0; k < kProcessors; ++k) {
            RtnRegister* r = addProcessor(app, k)->createRegister(2);
            r->setFunctionCode(RtnRegister::OnDeposit, "print('P" + std::to_string(k) + " ' .. event:getName())");
            for (int i : {k, 1000 + k, kSiblings - 1}) r->deposit(flat->getChild(i));
        }
        ASSERT_TRUE(app.writeFile(m_ws / "tokens.3Dm", error)) << error;
    }
    ASSERT_TRUE(m_doc.open("tokens.3Dm", error)) << error;
    Lines out = drain();
    std::sort(out.begin(), out.end());
    Lines want;
    for (int k = 0; k < kProcessors; ++k)
        for (int i : {k, 1000 + k, kSiblings - 1})
            want.push_back("(script): P" + std::to_string(k) + " f" + std::to_string(i));
    std::sort(want.begin(), want.end());
    EXPECT_EQ(out, want);

    RtnApplication* app = m_doc.application();
    ScnNode* flat = app->openGL.node.getChild(0);
    for (int k = 0; k < kProcessors; ++k) {
        RtnRegister* r = app->processorAt(k)->getRegister(2);
        ASSERT_EQ(r->marking.count(), 3);
        EXPECT_EQ(r->marking.path(0).node, flat->getChild(k));
        EXPECT_EQ(r->marking.path(1).node, flat->getChild(1000 + k));
        EXPECT_EQ(r->marking.path(2).node, flat->getChild(kSiblings - 1));
        auto* twin = dynamic_cast<CmdRegister*>(r->twin());
        ASSERT_NE(twin, nullptr);
        EXPECT_EQ(twin->tokens().first(), flat->getChild(k)->twin());
        EXPECT_EQ(flat->getChild(k)->markingCount, 1);
    }
    EXPECT_EQ(flat->getChild(kSiblings - 1)->markingCount, kProcessors);
    EXPECT_EQ(flat->getChild(kProcessors)->markingCount, 0);

    ASSERT_TRUE(m_doc.saveAs("again.3Dm"));
    EXPECT_EQ(fileBytes(m_ws / "again.3Dm"), fileBytes(m_ws / "tokens.3Dm"));
}

TEST_F(DocumentLoad, GarbageOfTheGlobalTextsIsCollectedOnceTheBuildEndsAndTheirOrderStays)
{
    constexpr int kProcessors = 300;
    std::string error;
    {
        RtnApplication app;
        app.luaglobal = "finalised = 0";
        for (int k = 0; k < kProcessors; ++k)
            addProcessor(app, k)->luaglobal = "print('text " + std::to_string(k) + "')\n"
                                              "local p = newproxy(true)\n"
                                              "getmetatable(p).__gc = function() _G.finalised = _G.finalised + 1 end\n";
        ASSERT_TRUE(app.writeFile(m_ws / "garbage.3Dm", error)) << error;
    }
    ASSERT_TRUE(m_doc.open("garbage.3Dm", error)) << error;
    EXPECT_EQ(luaEval(AppGlobal::luaState(), "finalised"), std::to_string(kProcessors));
    Lines want;
    for (int k = 0; k < kProcessors; ++k) want.push_back("(script): text " + std::to_string(k));
    EXPECT_EQ(drain(), want);

    // A text run again alone from the editor is collected right after it.
    RtnProcessor* p = m_doc.application()->processorAt(7);
    ASSERT_TRUE(p->runGlobalScript());
    EXPECT_EQ(luaEval(AppGlobal::luaState(), "finalised"), std::to_string(kProcessors + 1));
    EXPECT_EQ(drain(), (Lines{"(script): text 7"}));
}
