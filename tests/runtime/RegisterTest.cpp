// Registers as the editor works on them in an open document: slots, tokens
// dropped and taken away, code compiled while the application runs, and the
// life of a token that leaves the run-time tree while a register holds it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "node/ScnMFFunction.h"
#include "runtime/Channels.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnDocument.h"
#include "support/DocumentFixture.h"

namespace {

// A group that counts its destruction, twins and design nodes apart. It
// passes for a ScnGroup everywhere else, scripts included.
class Probe : public ScnGroup {
public:
    Probe() { name = "probe"; }
    Probe(const Probe& other) : ScnGroup(other), m_twin(true) {}
    ~Probe() override { ++(m_twin ? s_twinsGone : s_designsGone); }

    static inline int s_twinsGone = 0;
    static inline int s_designsGone = 0;

protected:
    ScnNode* makeCopy() const override { return new Probe(*this); }

private:
    bool m_twin = false;
};

CmdRegister* twinOf(RtnRegister* r)
{
    return r ? dynamic_cast<CmdRegister*>(r->twin()) : nullptr;
}

CmdProcessor* twinOf(RtnProcessor* p)
{
    return p ? dynamic_cast<CmdProcessor*>(p->twin()) : nullptr;
}

std::vector<std::string> functionNames(const RtnRegister* r)
{
    std::vector<std::string> names;
    for (int i = 0; i < r->functions.count(); ++i) names.emplace_back(r->functions.entry(i).getName());
    return names;
}

class Register : public DocumentFixture {
protected:
    void SetUp() override
    {
        DocumentFixture::SetUp();
        if (HasFatalFailure()) return;
        std::string error;
        ASSERT_TRUE(m_doc.open("registers.3Dm", error)) << error;
        Probe::s_twinsGone = Probe::s_designsGone = 0;
        drain();
    }

    RtnApplication* app() { return m_doc.application(); }
    RtnProcessor* mainProcessor() { return app()->processorAt(0); }

    // What the code sheet does on "compile": the text, then the compile.
    static bool program(RtnRegister* r, int i, const std::string& code)
    {
        r->setFunctionCode(i, code);
        return r->compileFunction(i);
    }

    // The tree editor's insertion: the design node under the OpenGL branch,
    // its twin under the run-time world, then the create and update walks.
    ScnNode* addToWorld(ScnNode* node, const std::string& nodeName)
    {
        node->name = nodeName;
        app()->openGL.node.append(node);
        ScnNode* twin = node->instantiate();
        static_cast<ScnGroup*>(m_doc.runtime()->branch(CmdApplication::World))->append(twin);
        m_doc.runtime()->create(twin);
        m_doc.runtime()->update(twin);
        return twin;
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

TEST_F(Register, CreateFillsOnlyAFreeSlotInRangeWithThreeEmptyFunctionsAndATwin)
{
    RtnProcessor* p = mainProcessor();
    CmdProcessor* cp = twinOf(p);
    ASSERT_NE(cp, nullptr);

    RtnRegister* r = p->createRegister(7);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(p->getRegister(7), r);
    EXPECT_EQ(r->owner, p);
    EXPECT_EQ(functionNames(r), (std::vector<std::string>{"OnTime", "OnDeposit", "OnRemove"}));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(r->functions.getCode(i).empty()) << i;

    CmdRegister* t = twinOf(r);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->processor(), cp);
    EXPECT_EQ(cp->registers.get(7), t);

    // Refused: an occupied slot, and slots that do not exist.
    EXPECT_EQ(p->createRegister(7), nullptr);
    EXPECT_EQ(p->createRegister(-1), nullptr);
    EXPECT_EQ(p->createRegister(32), nullptr);
    EXPECT_EQ(p->getRegister(7), r);
    EXPECT_EQ(twinOf(r), t);
    EXPECT_EQ(p->colors.mask(), 1u << 7);

    ASSERT_NE(p->createRegister(0), nullptr);
    ASSERT_NE(p->createRegister(31), nullptr);
    for (int slot : {0, 7, 31}) {
        EXPECT_EQ(p->getRegister(slot)->index.value, slot);
        EXPECT_EQ(twinOf(p->getRegister(slot))->index(), slot);
        EXPECT_EQ(cp->registers.get(slot), twinOf(p->getRegister(slot)));
    }
}

TEST_F(Register, MoveKeepsIndexAndSlotAlikeAndTakesTheTokensAlongSilently)
{
    RtnProcessor* p = mainProcessor();
    CmdProcessor* cp = twinOf(p);
    auto* wheelDesign = new ScnGroup();
    ScnNode* wheel = addToWorld(wheelDesign, "wheel");
    RtnRegister* other = p->createRegister(3);
    ASSERT_TRUE(program(other, 0, "print('r3')"));
    RtnRegister* r = p->createRegister(5);
    ASSERT_TRUE(program(r, 0, "print('moved ' .. event:getName())"));
    ASSERT_TRUE(program(r, 1, "print('in ' .. event:getName())"));
    ASSERT_TRUE(program(r, 2, "print('out ' .. event:getName())"));
    r->deposit(wheelDesign);
    EXPECT_EQ(drain(), (Lines{"(script): in wheel"}));
    ASSERT_EQ(wheel->refCount(), 2);  // the world's child list and the register

    // Refused: an occupied target, a slot out of range, an empty source.
    EXPECT_FALSE(p->moveRegister(5, 3));
    EXPECT_FALSE(p->moveRegister(5, 32));
    EXPECT_FALSE(p->moveRegister(5, -1));
    EXPECT_FALSE(p->moveRegister(9, 10));
    EXPECT_EQ(p->getRegister(5), r);
    EXPECT_EQ(p->getRegister(3), other);
    EXPECT_EQ(r->index.value, 5);

    ASSERT_TRUE(p->moveRegister(5, 1));
    EXPECT_TRUE(drain().empty());  // no OnRemove, no OnDeposit
    EXPECT_EQ(p->getRegister(5), nullptr);
    EXPECT_EQ(p->getRegister(1), r);
    EXPECT_EQ(r->index.value, 1);
    ASSERT_NE(twinOf(r), nullptr);
    EXPECT_EQ(twinOf(r)->index(), 1);
    EXPECT_EQ(cp->registers.get(5), nullptr);
    EXPECT_EQ(cp->registers.get(1), twinOf(r));
    // The token moved, not copied: one listener, one reference from a register.
    EXPECT_EQ(twinOf(r)->tokens().size(), 1u);
    EXPECT_EQ(twinOf(r)->tokens().first(), wheel);
    EXPECT_EQ(wheel->listenerCount(), 1);
    EXPECT_EQ(wheel->refCount(), 2);
    EXPECT_EQ(wheelDesign->markingCount, 1);

    // At slot 1 its OnTime now runs before register 3's.
    m_doc.toggleSimulation();
    ticks(1);
    EXPECT_EQ(drain(), (Lines{"(script): moved wheel", "(script): r3"}));
    p->deleteRegister(r);
    EXPECT_EQ(drain(), (Lines{"(script): out wheel"}));
    EXPECT_EQ(wheel->listenerCount(), 0);
    EXPECT_EQ(wheel->refCount(), 1);
}

TEST_F(Register, ADroppedProcessorAddsItsEventsOnceAndTakenAwayLeavesThemAndItsType)
{
    RtnProcessor* p = mainProcessor();
    RtnRegister* r = p->createRegister(0);
    ASSERT_TRUE(program(r, 1, "print('deposit ' .. event:getName())"));
    ASSERT_TRUE(program(r, 2, "print('removed ' .. event:getName())"));
    RtnProcessor* second = app()->addProcessor("Second");
    CmdProcessor* token = twinOf(second);
    ASSERT_NE(token, nullptr);
    int refs = token->refCount();
    const std::vector<std::string> withEvents = {"OnTime", "OnDeposit", "OnRemove", "OnActivate", "OnDeactivate"};

    for (int drop = 1; drop <= 2; ++drop) {
        r->deposit(second);
        EXPECT_EQ(drain(), (Lines{"(script): deposit Second"}));
        EXPECT_EQ(functionNames(r), withEvents);  // the first token's class gives its events once
        EXPECT_EQ(r->marking.count(), drop);
        EXPECT_EQ(second->markingCount, drop);
        EXPECT_EQ(token->listenerCount(), drop);
        EXPECT_EQ(token->refCount(), refs + drop);
        EXPECT_EQ(twinOf(r)->tokens().size(), static_cast<size_t>(drop));
    }
    EXPECT_EQ(r->getTokenType(), &RtnProcessor::s_type);
    // The new functions work once compiled; each deposit hears the token.
    ASSERT_TRUE(program(r, RtnProcessor::OnDeactivate, "print('deactivated ' .. event:getName())"));
    token->setActive(false);
    EXPECT_EQ(drain(), (Lines{"(script): deactivated Second", "(script): deactivated Second"}));

    // The tokens leave as the token grid takes them: run-time side with
    // events, then the marking entry and its count.
    r->removeToken(5);  // no such entry: nothing happens
    r->removeToken(0);
    r->removeToken(0);
    EXPECT_EQ(drain(), (Lines{"(script): removed Second", "(script): removed Second"}));
    EXPECT_EQ(r->marking.count(), 0);
    EXPECT_EQ(second->markingCount, 0);
    EXPECT_EQ(token->listenerCount(), 0);
    EXPECT_TRUE(twinOf(r)->tokens().empty());
    EXPECT_EQ(functionNames(r), withEvents);
    EXPECT_EQ(r->functions.getCode(RtnProcessor::OnDeactivate), "print('deactivated ' .. event:getName())");
    const ScnNodeType* type = r->getTokenType();
    EXPECT_EQ(type, &r->tokenType);  // no token: the copy kept from the first one
    EXPECT_EQ(type->id, RtnProcessor::s_type.id);
    EXPECT_STREQ(type->name, "RtnProcessor");
    // The processor is no token any more: switching it tells this register nothing.
    token->setActive(true);
    token->setActive(false);
    EXPECT_TRUE(drain().empty());
}

TEST_F(Register, DeleteRunsOnRemoveForEachTokenAndTakesOffItsOwnCounts)
{
    RtnProcessor* p = mainProcessor();
    CmdProcessor* cp = twinOf(p);
    auto* wheel = new ScnGroup();
    ScnNode* wheelTwin = addToWorld(wheel, "wheel");
    RtnProcessor* second = app()->addProcessor("Second");

    RtnRegister* doomed = p->createRegister(2);
    ASSERT_TRUE(program(doomed, 2, "print('removed ' .. event:getName())"));
    RtnRegister* keeper = p->createRegister(4);
    ASSERT_TRUE(program(keeper, 0, "print('keeper ' .. event:getName())"));
    doomed->deposit(wheel);
    doomed->deposit(second);
    doomed->deposit(wheel);
    keeper->deposit(wheel);
    ASSERT_EQ(wheel->markingCount, 3);
    ASSERT_EQ(wheelTwin->listenerCount(), 3);
    ASSERT_EQ(wheelTwin->refCount(), 4);
    drain();

    // A register of another processor is not this processor's to delete.
    RtnRegister* foreign = second->createRegister(2);
    p->deleteRegister(foreign);
    EXPECT_EQ(second->getRegister(2), foreign);
    p->deleteRegister(nullptr);

    p->deleteRegister(doomed);
    EXPECT_EQ(drain(), (Lines{"(script): removed wheel", "(script): removed Second", "(script): removed wheel"}));
    EXPECT_EQ(p->getRegister(2), nullptr);
    EXPECT_EQ(cp->registers.get(2), nullptr);
    EXPECT_EQ(wheel->markingCount, 1);
    EXPECT_EQ(second->markingCount, 0);
    EXPECT_EQ(wheelTwin->listenerCount(), 1);
    EXPECT_EQ(wheelTwin->refCount(), 2);
    EXPECT_EQ(second->twin()->listenerCount(), 0);

    // The register that still holds the token goes on.
    m_doc.toggleSimulation();
    ticks(1);
    EXPECT_EQ(drain(), (Lines{"(script): keeper wheel"}));
}

TEST_F(Register, CompiledCodeReplacesRunningCodeAndRevivesAStoppedFunction)
{
    RtnRegister* r = mainProcessor()->createRegister(0);
    ASSERT_TRUE(program(r, 0, "print('v1')"));
    m_doc.toggleSimulation();
    ticks(1);
    EXPECT_EQ(drain(), (Lines{"(script): v1"}));

    // New text alone changes nothing that runs; it only clears the edit mark.
    r->functions.setModified(0, true);
    r->setFunctionCode(0, "print('v2')");
    EXPECT_FALSE(r->functions.getModified(0));
    ticks(1);
    EXPECT_EQ(drain(), (Lines{"(script): v1"}));
    ASSERT_TRUE(r->compileFunction(0));
    ticks(1);
    EXPECT_EQ(drain(), (Lines{"(script): v2"}));

    // A failing run silences the function, once reported.
    ASSERT_TRUE(program(r, 0, "error('stop here')"));
    ticks(3);
    std::vector<LogRecord> recs = Channels::drainMerged();
    ASSERT_EQ(recs.size(), 1u);
    EXPECT_NE(std::string(recs[0].text).find("stop here"), std::string::npos) << recs[0].text;
    EXPECT_EQ(recs[0].node, r);
    EXPECT_EQ(recs[0].reg, 0);
    EXPECT_TRUE(r->functions.getError(0));

    ASSERT_TRUE(program(r, 0, "print('v3')"));
    EXPECT_FALSE(r->functions.getError(0));
    ticks(2);
    EXPECT_EQ(drain(), (Lines{"(script): v3", "(script): v3"}));

    // A compile that fails is reported and leaves no old code running.
    EXPECT_FALSE(program(r, 0, "this is not lua"));
    Lines out = drain();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_NE(out[0].find("OnTime"), std::string::npos) << out[0];
    ticks(2);
    EXPECT_TRUE(drain().empty());

    // The same holds for an event that a token raises.
    ASSERT_TRUE(program(r, 1, "print('deposit a')"));
    r->deposit(mainProcessor());
    ASSERT_TRUE(program(r, 1, "print('deposit b')"));
    r->deposit(mainProcessor());
    EXPECT_EQ(drain(), (Lines{"(script): deposit a", "(script): deposit b"}));
}

// The frame's sweep keeps OnTime at hand between frames; a failure that
// reaches it by another road (a token's own event 0) must still stop it.
TEST_F(Register, OnTimeStoppedOutsideTheSweepStaysStoppedInTheSweep)
{
    auto* wheel = new ScnGroup();
    ScnNode* wheelTwin = addToWorld(wheel, "wheel");
    RtnRegister* r = mainProcessor()->createRegister(0);
    ASSERT_TRUE(program(r, 0, "n = (n or 0) + 1 if n == 2 then error('second run') end print('run ' .. n)"));
    r->deposit(wheel);
    m_doc.toggleSimulation();
    ticks(1);
    EXPECT_EQ(drain(), (Lines{"(script): run 1"}));

    wheelTwin->notify(0);  // the token's event 0 runs OnTime outside the sweep, and it fails
    ASSERT_TRUE(r->functions.getError(0));
    Channels::drainMerged();
    ticks(2);
    EXPECT_TRUE(drain().empty());

    // A function list that grows or shrinks under the register is seen too.
    ASSERT_TRUE(program(r, 0, "print('again')"));
    ticks(1);
    EXPECT_EQ(drain(), (Lines{"(script): again"}));
    r->functions.remove("OnTime");  // OnRemove, with no code, takes index 0
    ticks(1);
    EXPECT_TRUE(drain().empty());
}

TEST_F(Register, TokenDeletedFromTheRunTimeTreeLivesUntilTheRegisterLetsGo)
{
    RtnProcessor* p = mainProcessor();
    auto* design = new Probe();
    ScnNode* token = addToWorld(design, "wheel");
    ASSERT_NE(dynamic_cast<Probe*>(token), nullptr);
    RtnRegister* r = p->createRegister(0);
    ASSERT_TRUE(program(r, 2, "print('let go ' .. event:getName())"));
    r->functions.append("OnPoke");
    ASSERT_TRUE(program(r, 3, "print('poked ' .. event:getName())"));
    r->deposit(design);
    r->deposit(design);
    ASSERT_EQ(token->refCount(), 3);

    // The tree editor's removal: destroy walk, unlink; only an unheld node goes.
    auto* world = static_cast<ScnGroup*>(m_doc.runtime()->branch(CmdApplication::World));
    m_doc.runtime()->destroy(token);
    world->remove(token);
    EXPECT_EQ(token->refCount(), 2);
    if (token->refCount() == 0) delete token;
    EXPECT_EQ(Probe::s_twinsGone, 0);
    EXPECT_EQ(world->indexOfChild(token), -1);

    // Still a working token for the register.
    token->notify(3);
    EXPECT_EQ(drain(), (Lines{"(script): poked wheel", "(script): poked wheel"}));

    twinOf(r)->remove(token, true);
    EXPECT_EQ(drain(), (Lines{"(script): let go wheel"}));
    EXPECT_EQ(Probe::s_twinsGone, 0);
    EXPECT_EQ(token->refCount(), 1);

    // The last holder lets go: OnRemove still sees it, then it is destroyed.
    p->deleteRegister(r);
    EXPECT_EQ(drain(), (Lines{"(script): let go wheel"}));
    EXPECT_EQ(Probe::s_twinsGone, 1);
    EXPECT_EQ(design->twin(), nullptr);
    EXPECT_EQ(design->markingCount, 0);
    EXPECT_EQ(Probe::s_designsGone, 0);
}

TEST_F(Register, HeldTokenOutsideTheTreeGoesWithTheRunTimeTree)
{
    RtnProcessor* p = mainProcessor();
    auto* design = new Probe();
    ScnNode* token = addToWorld(design, "wheel");
    RtnRegister* r = p->createRegister(6);
    r->deposit(design);
    auto* world = static_cast<ScnGroup*>(m_doc.runtime()->branch(CmdApplication::World));
    m_doc.runtime()->destroy(token);
    world->remove(token);
    ASSERT_EQ(token->refCount(), 1);

    m_doc.close();
    EXPECT_EQ(Probe::s_twinsGone, 1);
    EXPECT_EQ(Probe::s_designsGone, 1);
}

TEST_F(Register, NotifyWithoutAFunctionForTheIndexDoesNothing)
{
    auto* wheel = new ScnGroup();
    ScnNode* wheelTwin = addToWorld(wheel, "wheel");
    RtnRegister* r = mainProcessor()->createRegister(0);
    ASSERT_TRUE(program(r, 1, "print('index 1 ' .. event:getName())"));
    r->deposit(wheel);
    EXPECT_EQ(drain(), (Lines{"(script): index 1 wheel"}));

    // A group adds no events: the register has only its three.
    ASSERT_EQ(r->functions.count(), 3);
    for (int i : {3, 4, 31, 200, -1}) wheelTwin->notify(i);
    EXPECT_TRUE(drain().empty());
    EXPECT_EQ(r->functions.count(), 3);
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(r->functions.getError(i)) << i;

    // An entry with no code is as silent as a missing one.
    r->functions.append("OnExtra");
    ASSERT_TRUE(r->compileFunction(3));
    wheelTwin->notify(3);
    EXPECT_TRUE(drain().empty());

    // The listener itself works: an index that has code fires by index.
    wheelTwin->notify(1);
    EXPECT_EQ(drain(), (Lines{"(script): index 1 wheel"}));
}

TEST_F(Register, DeletingAProcessorHeldAsATokenElsewhereLetsItGoFirst)
{
    RtnProcessor* p = mainProcessor();
    RtnProcessor* second = app()->addProcessor("Second");
    RtnProcessor* third = app()->addProcessor("Third");
    RtnRegister* holder = p->createRegister(0);
    ASSERT_TRUE(program(holder, 0, "print('tick ' .. tostring(event))"));
    ASSERT_TRUE(program(holder, 2, "print('gone ' .. tostring(event and event:getName()))"));
    // The second processor and one of the third's registers stand as tokens
    // in the first processor; the third holds the second too.
    RtnRegister* thirdReg = third->createRegister(5);
    holder->deposit(second);
    holder->deposit(thirdReg);
    third->createRegister(1)->deposit(second);
    ASSERT_EQ(second->markingCount, 2);
    drain();

    app()->deleteProcessor(second);
    EXPECT_EQ(drain(), (Lines{"(script): gone Second"}));
    EXPECT_EQ(holder->marking.count(), 1);
    EXPECT_EQ(twinOf(holder)->tokens().size(), 1u);

    third->deleteRegister(thirdReg);
    EXPECT_EQ(drain(), (Lines{"(script): gone nil"}));  // a run-time register has no script object
    EXPECT_EQ(holder->marking.count(), 0);
    EXPECT_TRUE(twinOf(holder)->tokens().empty());

    // The next frame and a save find nothing that is gone.
    m_doc.toggleSimulation();
    ticks(1);
    EXPECT_EQ(drain(), (Lines{"(script): tick nil"}));
    ASSERT_TRUE(m_doc.saveAs("after-delete.3Dm"));
    std::string error;
    ASSERT_TRUE(m_doc.open("after-delete.3Dm", error)) << error;
    EXPECT_EQ(app()->processorCount(), 2);
    EXPECT_EQ(app()->processorAt(0)->getRegister(0)->marking.count(), 0);
}

TEST_F(Register, MovingARegisterHeldAsATokenKeepsItHeldByItsNewTwin)
{
    RtnProcessor* p = mainProcessor();
    RtnProcessor* second = app()->addProcessor("Second");
    RtnRegister* holder = p->createRegister(0);
    ASSERT_TRUE(program(holder, 0, "print('tick ' .. tostring(event))"));
    RtnRegister* moved = second->createRegister(3);
    holder->deposit(moved);
    drain();

    ASSERT_TRUE(second->moveRegister(3, 9));
    ASSERT_EQ(twinOf(holder)->tokens().size(), 1u);
    EXPECT_EQ(twinOf(holder)->tokens().first(), moved->twin());
    EXPECT_EQ(moved->twin()->refCount(), 1);
    m_doc.toggleSimulation();
    ticks(1);
    EXPECT_EQ(drain().size(), 1u);
}
