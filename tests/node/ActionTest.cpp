#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "node/ScnAction.h"
#include "node/ScnDump.h"
#include "node/ScnNode.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "runtime/Channels.h"
#include "support/AllocationCounter.h"

namespace {

std::vector<std::string>* g_log = nullptr;

// A leaf with a box of its own, and a matrix node that pushes its matrix
// around its children in update walks, as transforms do.
class BoxNode : public ScnNode {
    SCN_NODE(BoxNode, ScnNode)
public:
    BoxNode() = default;
    ScnBox computeBounds() const override
    {
        ScnBox b;
        for (int i = 0; i < 3; ++i) {
            b.min[i] = -1;
            b.max[i] = 1;
        }
        return b;
    }
};
ScnNodeType BoxNode::s_type;

class Shift : public ScnMatrix {
    SCN_NODE(Shift, ScnMatrix)
public:
    Shift() = default;
    void onUpdate(ScnAction& a) override
    {
        a.pushMatrix(scnMultiply(a.top(), worldmatrix.value));
        a.walk(this, ScnAction::Children);
        a.popMatrix();
        a.walk(this, ScnAction::Siblings);
    }
};
ScnNodeType Shift::s_type;

// Walks that record the names they visit, for every hook.
template <class Base>
struct Recording : Base {
    using Base::Base;
    std::vector<std::string> seen;
    void visit(ScnNode* n) override
    {
        seen.push_back(n->getName());
        Base::visit(n);
    }
};
struct RecEvent : Recording<ScnActionEvent> {};
struct RecUpdate : Recording<ScnActionUpdate> {};
struct RecCreate : Recording<ScnActionCreate> {};
struct RecDestroy : Recording<ScnActionDestroy> {};

ScnGroup* group(ScnGroup* parent, const char* name)
{
    auto* g = new ScnGroup();
    g->name = name;
    if (parent) parent->append(g);
    return g;
}

ScnNode* leaf(ScnGroup* parent, const char* name)
{
    auto* n = new ScnNode();
    n->name = name;
    parent->append(n);
    return n;
}

// root
//   a
//     a1
//     a2 (group)
//       a21
//   b (disabled group)
//     b1
//   c
struct Tree {
    ScnGroup root;
    ScnGroup *a, *a2, *b;
    ScnNode *a1, *a21, *b1, *c;
    Tree()
    {
        root.name = "root";
        a = group(&root, "a");
        a1 = leaf(a, "a1");
        a2 = group(a, "a2");
        a21 = leaf(a2, "a21");
        b = group(&root, "b");
        b1 = leaf(b, "b1");
        b->setEnabled(false);
        c = leaf(&root, "c");
    }
};

using Names = std::vector<std::string>;

}  // namespace

TEST(Actions, ApplyWalksTheSubtreeNotTheNextSiblingAndOnlyEventWalksSkipDisabledGroups)
{
    Tree t;
    RecUpdate w;
    w.apply(t.a);
    EXPECT_EQ(w.seen, (Names{"a", "a1", "a2", "a21"}));
    EXPECT_EQ(t.a->next(), t.b);
    RecUpdate all;
    all.apply(&t.root);
    EXPECT_EQ(all.seen, (Names{"root", "a", "a1", "a2", "a21", "b", "b1", "c"}));
    RecEvent e;
    e.apply(&t.root);
    EXPECT_EQ(e.seen, (Names{"root", "a", "a1", "a2", "a21", "b", "c"}));
    RecCreate c;
    c.apply(&t.root);
    EXPECT_EQ(c.seen, all.seen);
    RecDestroy d;
    d.apply(&t.root);
    EXPECT_EQ(d.seen, all.seen);
}

TEST(Actions, PathWalkVisitsOnlyThePathThenTheTargetSubtreeAndClearsLinks)
{
    Tree t;
    RecUpdate w;
    ScnNode* top = w.buildPath(t.a2, nullptr);
    EXPECT_EQ(top, &t.root);
    EXPECT_EQ(t.root.pathLink, t.a);
    w.apply(top);
    EXPECT_EQ(w.seen, (Names{"root", "a", "a2", "a21"}));
    for (ScnNode* n : {static_cast<ScnNode*>(&t.root), static_cast<ScnNode*>(t.a), static_cast<ScnNode*>(t.a2)})
        EXPECT_EQ(n->pathLink, nullptr);

    // A stop node is not entered: the chain starts below it.
    RecUpdate below;
    EXPECT_EQ(below.buildPath(t.a21, t.a), t.a2);
    below.apply(t.a2);
    EXPECT_EQ(below.seen, (Names{"a2", "a21"}));
    EXPECT_EQ(below.rootOf(t.a21), &t.root);
    EXPECT_EQ(below.rootOf(nullptr), nullptr);
}

TEST(Actions, UpdateWalkComputesBoxesThroughTheMatrixStack)
{
    ScnGroup root;
    root.name = "root";
    auto* empty = group(&root, "empty");
    auto* shift = new Shift();
    shift->worldmatrix = ScnMatrix16::translation(10, 0, 0);
    root.append(shift);
    auto* box = new BoxNode();
    shift->append(box);

    ScnActionUpdate u;
    u.apply(&root);
    EXPECT_TRUE(empty->getBounds().isEmpty());
    EXPECT_DOUBLE_EQ(box->getBounds().min[0], 9);
    EXPECT_DOUBLE_EQ(box->getBounds().max[0], 11);
    EXPECT_DOUBLE_EQ(shift->getBounds().min[0], 9);
    EXPECT_DOUBLE_EQ(root.getBounds().max[0], 11);
    EXPECT_DOUBLE_EQ(root.getBounds().min[1], -1);
    EXPECT_EQ(u.matrixDepth(), 1);
}

TEST(Actions, StackOverflowIsRefusedWithOneMessageAndStaysBalanced)
{
    Channels::clearAll();
    ScnActionUpdate a;
    ScnMatrix16 m = ScnMatrix16::translation(1, 2, 3);
    int accepted = 0;
    for (int i = 0; i < 30; ++i) accepted += a.pushMatrix(m);
    EXPECT_EQ(accepted, ScnAction::kMatrixDepth - 1);
    EXPECT_EQ(a.matrixDepth(), ScnAction::kMatrixDepth);
    for (int i = 0; i < 30; ++i) a.popMatrix();
    EXPECT_EQ(a.matrixDepth(), 1);
    EXPECT_TRUE(a.top().isIdentity());

    int saved = 0;
    for (int i = 0; i < 25; ++i) saved += a.pushPointer(&saved);
    EXPECT_EQ(saved, ScnAction::kSavedPointers);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(a.popPointer(), nullptr);  // the refused ones
    EXPECT_EQ(a.popPointer(), &saved);

    for (int i = 0; i < 12; ++i) a.pushInstance("inst");
    EXPECT_STREQ(a.instance().name, "inst");
    EXPECT_EQ(a.instance().sum, static_cast<uint32_t>('i' + 'n' + 's' + 't'));
    for (int i = 0; i < 12; ++i) a.popInstance();
    EXPECT_STREQ(a.instance().name, "");

    std::vector<LogRecord> msgs = Channels::drainMerged();
    ASSERT_EQ(msgs.size(), 3u);  // one per stack
    EXPECT_NE(std::string(msgs[0].text).find("(ScnAction): matrix nodes nested deeper than 20"), std::string::npos);
}

TEST(Actions, CreateBindsAndDestroyUnbindsNamesUnderScriptVisibleParents)
{
    Tree t;
    std::vector<std::string> log;
    g_log = &log;
    ScnScriptHooks saved = g_scnScriptHooks;
    g_scnScriptHooks.bindName = [](ScnNode* p, ScnNode* c, bool inOrder) {
        g_log->push_back((inOrder ? "+" : "+?") + p->getName() + "." + c->getName());
    };
    g_scnScriptHooks.unbindName = [](ScnNode* p, ScnNode* c) { g_log->push_back("-" + p->getName() + "." + c->getName()); };
    t.a->setLuaRef(7);  // only a has a script object

    ScnActionCreate create;
    create.apply(&t.root);
    EXPECT_EQ(log, (Names{"+a.a1", "+a.a2"}));
    log.clear();

    // Nodes passed on the way of a path are not bound again; the target is.
    ScnActionCreate path;
    path.apply(path.buildPath(t.a21, nullptr));
    EXPECT_TRUE(log.empty());
    path.apply(path.buildPath(t.a1, nullptr));
    // The target of a path is bound alone: its earlier siblings must be looked at.
    EXPECT_EQ(log, (Names{"+?a.a1"}));
    log.clear();

    ScnActionDestroy destroy;
    destroy.apply(t.a);
    EXPECT_EQ(log, (Names{"-a.a1", "-a.a2"}));

    t.a->setLuaRef(0);
    g_scnScriptHooks = saved;
    g_log = nullptr;
}

TEST(Actions, ModelMatrixIsTheLastMatrixOnThePath)
{
    ScnGroup root;
    auto* outer = new ScnMatrix();
    outer->worldmatrix = ScnMatrix16::translation(1, 0, 0);
    root.append(outer);
    auto* inner = new ScnMatrix();
    inner->worldmatrix = ScnMatrix16::translation(0, 5, 0);
    outer->append(inner);
    auto* target = new ScnNode();
    inner->append(target);
    leaf(&root, "other");

    ScnActionGetModelMatrix g;
    g.apply(g.buildPath(target, nullptr));
    EXPECT_EQ(g.top().m[13], 5);
    EXPECT_EQ(g.top().m[12], 0);
    EXPECT_EQ(g.matrixDepth(), 3);

    ScnActionGetMatrix id;
    id.apply(id.buildPath(target, nullptr));
    EXPECT_TRUE(id.top().isIdentity());
}

TEST(Actions, WalksAllocateNothing)
{
    Tree t;
    for (int i = 0; i < 1000; ++i) leaf(t.a2, "x");
    ScnActionEvent warm;
    warm.apply(&t.root);
    long before = g_allocations.load();
    for (int i = 0; i < 10; ++i) {
        ScnActionEvent e;
        e.apply(&t.root);
        ScnActionUpdate u;
        u.apply(u.buildPath(t.a21, nullptr));
    }
    EXPECT_EQ(g_allocations.load(), before);
}

// -- hooks that set state for the nodes after them ----------------------------------

namespace {

// Records the shader that is current when the create and destroy walks reach it.
class ShaderProbe : public ScnNode {
    SCN_NODE(ShaderProbe, ScnNode)
public:
    ShaderProbe() = default;
    std::vector<ScnShader*> seen;
    void onCreate(ScnAction& a) override
    {
        seen.push_back(ScnScene::currentShader);
        ScnNode::onCreate(a);
    }
    void onDestroy(ScnAction& a) override
    {
        seen.push_back(ScnScene::currentShader);
        ScnNode::onDestroy(a);
    }
};
ScnNodeType ShaderProbe::s_type;

template <class T>
T* add(ScnGroup* parent, T* node)
{
    parent->append(node);
    return node;
}

}  // namespace

// root: s1, p1, g { s2, p2 }, p3, s3, p4
TEST(ShaderWalks, AShaderIsCurrentForTheNodesAfterItUntilItsListEnds)
{
    ScnGroup root;
    ScnShader* s1 = add(&root, new ScnShader());
    ShaderProbe* p1 = add(&root, new ShaderProbe());
    ScnGroup* g = add(&root, new ScnGroup());
    ScnShader* s2 = add(g, new ScnShader());
    ShaderProbe* p2 = add(g, new ShaderProbe());
    ShaderProbe* p3 = add(&root, new ShaderProbe());
    ScnShader* s3 = add(&root, new ScnShader());
    ShaderProbe* p4 = add(&root, new ShaderProbe());
    ScnShader outer;
    ScnScene::currentShader = &outer;
    {
        ScnActionCreate create;
        create.apply(&root);
    }
    EXPECT_EQ(ScnScene::currentShader, &outer);
    {
        ScnActionDestroy destroy;
        destroy.apply(&root);
    }
    EXPECT_EQ(ScnScene::currentShader, &outer);
    ScnScene::currentShader = nullptr;
    EXPECT_EQ(p1->seen, (std::vector<ScnShader*>{s1, s1}));
    EXPECT_EQ(p2->seen, (std::vector<ScnShader*>{s2, s2}));
    EXPECT_EQ(p3->seen, (std::vector<ScnShader*>{s1, s1})) << "s2 reaches only the rest of its own list";
    EXPECT_EQ(p4->seen, (std::vector<ScnShader*>{s3, s3}));

    // A path walk reaches only the target: the shader before it in its list is not walked.
    p2->seen.clear();
    ScnActionCreate path;
    path.apply(path.buildPath(p2, nullptr));
    EXPECT_EQ(p2->seen, (std::vector<ScnShader*>{nullptr}));
    EXPECT_EQ(ScnScene::currentShader, nullptr);
}

// Each sibling a call deeper would need far more than the stack: every walk,
// the copy, the dump and the file must go along the list in a loop.
TEST(ShaderWalks, AHundredThousandSiblingsGoThroughEveryWalkCopyAndFile)
{
    const int kShaders = 100000, kCount = kShaders + 1000;
    ScnGroup root;
    for (int i = 0; i < kShaders; ++i) root.append(new ScnShader());
    for (int i = kShaders; i < kCount; ++i) root.append(new ScnNode());
    ScnShader* lastShader = static_cast<ScnShader*>(root.getChild(kShaders - 1));
    auto* last = add(&root, new ShaderProbe());

    auto count = [](auto& walk, ScnNode* top) {
        walk.apply(top);
        return walk.seen.size();
    };
    const size_t all = kCount + 2;
    Recording<ScnActionCreate> create;
    EXPECT_EQ(count(create, &root), all);
    EXPECT_EQ(last->seen, (std::vector<ScnShader*>{lastShader}));
    EXPECT_EQ(ScnScene::currentShader, nullptr);
    Recording<ScnActionEvent> event;
    EXPECT_EQ(count(event, &root), all);
    Recording<ScnActionUpdate> update;
    EXPECT_EQ(count(update, &root), all);
    Recording<ScnActionTransform> transform(ScnMatrix16::translation(1, 0, 0));
    EXPECT_EQ(count(transform, &root), all);
    Recording<ScnActionRender> render(nullptr, 64, 64);
    EXPECT_EQ(count(render, &root), all);
    EXPECT_EQ(ScnScene::currentShader, nullptr);
    Recording<ScnActionDestroy> destroy;
    EXPECT_EQ(count(destroy, &root), all);
    EXPECT_EQ(ScnScene::currentShader, nullptr);

    std::unique_ptr<ScnNode> copy(root.duplicate());
    ASSERT_EQ(copy->childCount(), kCount + 1);
    EXPECT_EQ(copy->getChild(kShaders - 1)->getType(), &ScnShader::s_type);

    root.remove(last);
    delete last;
    ScnOutStream out;
    scnWriteObject(out, root);
    std::string error;
    std::unique_ptr<ScnNode> back(scnReadObject(out.bytes(), "wide.3Do", error));
    ASSERT_TRUE(back) << error;
    ASSERT_EQ(back->childCount(), kCount);
    EXPECT_EQ(back->getChild(kShaders - 1)->getType(), &ScnShader::s_type);
    ScnOutStream again;
    scnWriteObject(again, *back);
    EXPECT_EQ(again.bytes(), out.bytes());
    std::string text = scnDump(*back);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), kCount + 1);
}

// -- long runs of nodes that undo something after their followers -------------------

namespace {

// Asks for an afterWalkOn call in event walks and logs it; the one with a
// nested root starts a walk of its own there, from inside its hook, as a
// framebuffer does when it renders.
class Undoer : public ScnNode {
    SCN_NODE(Undoer, ScnNode)
public:
    Undoer() = default;
    std::vector<std::string>* log = nullptr;
    ScnNode* nested = nullptr;
    void onEvent(ScnAction& a) override
    {
        if (nested) {
            ScnActionEvent inner;
            inner.apply(nested);
        }
        a.walkOnThen(this, nullptr, 0);
    }
    void afterWalkOn(ScnAction&, void*, int) override { log->push_back(getName()); }
};
ScnNodeType Undoer::s_type;

}  // namespace

TEST(Actions, LongRunsOfUndoingNodesUnwindInOrderAcrossNestedWalksWithoutAllocating)
{
    // Outer list of 40, the 21st starts a walk over an inner list of 30:
    // both are longer than what an action holds inline.
    std::vector<std::string> log;
    ScnGroup outer, inner;
    std::vector<Undoer*> outerNodes, innerNodes;
    for (int i = 0; i < 30; ++i) {
        auto* u = add(&inner, new Undoer());
        u->name = "i" + std::to_string(i);
        u->log = &log;
        innerNodes.push_back(u);
    }
    for (int i = 0; i < 40; ++i) {
        auto* u = add(&outer, new Undoer());
        u->name = "o" + std::to_string(i);
        u->log = &log;
        outerNodes.push_back(u);
    }
    outerNodes[20]->nested = &inner;

    Names want;
    for (int i = 29; i >= 0; --i) want.push_back("i" + std::to_string(i));
    for (int i = 39; i >= 0; --i) want.push_back("o" + std::to_string(i));
    {
        ScnActionEvent e;
        e.apply(&outer);
    }
    EXPECT_EQ(log, want) << "each list undoes its own, last asked first, the inner one inside the hook";

    // Walk after walk, with new actions each time, nothing is allocated.
    log.reserve(log.size() * 4);
    const long before = g_allocations.load();
    for (int i = 0; i < 3; ++i) {
        ScnActionEvent e;
        e.apply(&outer);
    }
    EXPECT_EQ(g_allocations.load(), before);
    EXPECT_EQ(log.size(), want.size() * 4);
}
