#include <gtest/gtest.h>

#include <vector>

#include "node/ScnAction.h"
#include "node/ScnNode.h"
#include "render/ScnShader.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnNodes.h"

namespace {

ScnGroup* group(const char* name)
{
    auto* g = new ScnGroup();
    g->name = name;
    return g;
}

std::vector<std::string> names(ScnGroup& g)
{
    std::vector<std::string> out;
    for (ScnNode* n = g.firstChild(); n; n = n->next()) out.push_back(n->getName());
    return out;
}

// Records deletions so that release order and reference counts can be checked.
std::vector<std::string>* g_deleted = nullptr;
class Tracked : public ScnGroup {
    SCN_NODE(Tracked, ScnGroup)
public:
    Tracked() = default;
    ~Tracked() override
    {
        if (g_deleted) g_deleted->push_back(getName());
    }
};
ScnNodeType Tracked::s_type;

}  // namespace

TEST(NodeRegistry, LooksUpClassesAliasesAndFallsBackToAGroup)
{
    bool known = true;
    ScnNode* unknown = ScnNodeRegistry::create("NoSuchClass", &known);
    EXPECT_FALSE(known);
    EXPECT_EQ(unknown->getType(), &ScnGroup::s_type);
    EXPECT_EQ(unknown->getName(), "group");
    delete unknown;

    ScnNode* place = ScnNodeRegistry::create("RtnPlace", &known);
    EXPECT_TRUE(known);
    EXPECT_EQ(place->getType(), &RtnProcessor::s_type);
    EXPECT_EQ(place->getName(), "Main");
    delete place;

    EXPECT_EQ(ScnNodeRegistry::find("RtnPage"), &RtnApplication::s_type);
    EXPECT_EQ(ScnNodeRegistry::find("RtnPlaceDataColor"), &RtnRegister::s_type);

    // The factory of a shader gives the tree's default texts; a plain one is empty.
    ScnNode* shader = ScnNodeRegistry::create("ScnShader");
    EXPECT_EQ(static_cast<ScnShader*>(shader)->vertex.value, ScnShader::kDefaultVertex);
    EXPECT_TRUE(ScnShader().vertex.value.empty());
    delete shader;

    EXPECT_TRUE(ScnNodeRegistry::isA(&ScnCameraExamine::s_type, ScnCamera::s_type));
    EXPECT_FALSE(ScnNodeRegistry::isA(&ScnShader::s_type, ScnGroup::s_type));
    EXPECT_EQ(ScnNodeRegistry::parentOf(ScnNode::s_type), nullptr);
}

TEST(GroupOperations, AddInsertRemoveReplaceKeepListsAndCountsConsistent)
{
    ScnGroup root;
    ScnNode* a = group("a");
    ScnNode* b = group("b");
    ScnNode* c = group("c");
    root.append(a);
    root.addFirst(b);
    root.insertBefore(c, a);
    EXPECT_EQ(names(root), (std::vector<std::string>{"b", "c", "a"}));
    EXPECT_EQ(root.childCount(), 3);
    EXPECT_EQ(a->refCount(), 1);
    EXPECT_EQ(a->parent(), &root);
    EXPECT_EQ(root.firstChild()->prev(), nullptr);

    // Moving within the same group keeps the reference count.
    root.addFirst(a);
    EXPECT_EQ(names(root), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(a->refCount(), 1);
    EXPECT_EQ(root.childCount(), 3);

    // Moving to another group unlinks it from the first.
    ScnGroup other;
    other.insertBefore(b, nullptr);
    EXPECT_EQ(names(root), (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(names(other), (std::vector<std::string>{"b"}));
    EXPECT_EQ(b->parent(), &other);
    EXPECT_EQ(root.childCount(), 2);

    root.remove(c);
    EXPECT_EQ(c->parent(), nullptr);
    EXPECT_EQ(c->refCount(), 0);
    EXPECT_EQ(names(root), (std::vector<std::string>{"a"}));
    delete c;  // the caller owns a removed child

    ScnNode* d = group("d");
    root.replace(a, d);
    EXPECT_EQ(names(root), (std::vector<std::string>{"d"}));
    EXPECT_EQ(a->parent(), nullptr);
    EXPECT_EQ(a->next(), nullptr);
    EXPECT_EQ(a->refCount(), 0);
    EXPECT_EQ(d->refCount(), 1);
    delete a;
}

TEST(GroupOperations, LookupByNameAndIndex)
{
    ScnGroup root;
    EXPECT_EQ(root.getChild(0), nullptr);
    ScnNode* x = group("x");
    ScnNode* unnamed = group("");
    ScnNode* x2 = group("x");
    root.append(x);
    root.append(unnamed);
    root.append(x2);
    EXPECT_EQ(root.findChild("x"), x);  // the first match wins
    EXPECT_EQ(root.findChild(""), unnamed);
    EXPECT_EQ(root.findChild("X"), nullptr);  // case matters
    EXPECT_EQ(root.getChild(2), x2);
    EXPECT_EQ(root.getChild(3), nullptr);
    EXPECT_EQ(root.getChild(-1), nullptr);
    EXPECT_EQ(root.indexOfChild(x2), 2);
    ScnGroup stranger;
    EXPECT_EQ(root.indexOfChild(&stranger), -1);
}

TEST(GroupOperations, ReleaseDestroysLastFirstAndSparesSharedChildren)
{
    std::vector<std::string> deleted;
    g_deleted = &deleted;
    {
        auto* root = new Tracked();
        root->name = "root";
        auto* shared = new Tracked();
        shared->name = "shared";
        for (const char* n : {"one", "two"}) {
            auto* t = new Tracked();
            t->name = n;
            root->append(t);
        }
        root->append(shared);
        shared->ref();  // held by a token queue too
        root->children.release();
        EXPECT_EQ(deleted, (std::vector<std::string>{"two", "one"}));
        EXPECT_EQ(shared->parent(), nullptr);
        EXPECT_EQ(shared->refCount(), 1);
        delete shared;
        delete root;
    }
    g_deleted = nullptr;
}

TEST(NodeCopies, InstantiateLinksTwinsAndKeepsChildOrder)
{
    ScnGroup design;
    design.name = "design";
    design.setEnabled(false);
    for (const char* n : {"a", "b", "c"}) design.append(group(n));
    ScnNode* copy = design.instantiate();
    auto* twin = dynamic_cast<ScnGroup*>(copy);
    ASSERT_NE(twin, nullptr);
    EXPECT_EQ(twin->getName(), "design");
    EXPECT_FALSE(twin->enabled());
    EXPECT_EQ(names(*twin), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(design.twin(), twin);
    EXPECT_EQ(twin->designPeer(), &design);
    for (ScnNode* n = twin->firstChild(); n; n = n->next()) {
        EXPECT_EQ(n->refCount(), 1);
        EXPECT_EQ(n->parent(), twin);
        ASSERT_NE(n->designPeer(), nullptr);
        EXPECT_EQ(n->designPeer()->twin(), n);
    }
    // Destroying the twin clears the design side's link.
    delete twin;
    EXPECT_EQ(design.twin(), nullptr);
    EXPECT_EQ(design.getChild(0)->twin(), nullptr);
}

TEST(NodeCopies, DuplicateMakesNoLinksAtAnyDepth)
{
    RtnApplication app;
    ScnNode* dup = app.duplicate();
    EXPECT_EQ(app.twin(), nullptr);
    EXPECT_EQ(dup->designPeer(), nullptr);
    auto* d = static_cast<RtnApplication*>(dup);
    EXPECT_EQ(d->scripts.node.designPeer(), nullptr);
    EXPECT_EQ(app.scripts.node.getChild(0)->twin(), nullptr);
    EXPECT_EQ(d->scripts.node.getChild(0)->getName(), "Main");
    EXPECT_FALSE(ScnNode::s_noLink);
    delete dup;
}

TEST(NodeCopies, InlineNodesBecomeTwins)
{
    RtnApplication app;
    app.camera.node.speed = 3.5f;
    ScnNode* copy = app.instantiate();
    auto* twin = static_cast<RtnApplication*>(copy);
    EXPECT_EQ(app.camera.node.twin(), &twin->camera.node);
    EXPECT_EQ(twin->camera.node.speed.value, 3.5f);
    EXPECT_EQ(twin->camera.node.getChild(0)->getName(), "framebuffer");
    EXPECT_EQ(app.camera.node.light.node.twin(), &twin->camera.node.light.node);
    delete copy;
    EXPECT_EQ(app.camera.node.twin(), nullptr);
}

namespace {
struct Counter {
    ScnNode* node = nullptr;
    int calls = 0;
    int lastIndex = -1;
    FCTFunctor2V<Counter, int, ScnNode*>* self = nullptr;
    bool removeSelf = false;
    void onEvent(int index, ScnNode* n)
    {
        ++calls;
        lastIndex = index;
        if (removeSelf) n->removeListener(self);
    }
};
}  // namespace

TEST(NodeEvents, NotifyCallsListenersAndToleratesRemovalDuringTheLoop)
{
    ScnNode node;
    Counter a, b, c;
    FCTFunctor2V<Counter, int, ScnNode*> fa(&a, &Counter::onEvent), fb(&b, &Counter::onEvent),
        fc(&c, &Counter::onEvent);
    a.self = &fa;
    a.removeSelf = true;
    node.addListener(&fa);
    node.addListener(&fb);
    node.addListener(&fc);
    node.notify(4);
    // a removed itself and c took its place in the list, behind the loop: the
    // round ends early instead of running past the list.
    EXPECT_EQ(a.calls, 1);
    EXPECT_EQ(b.calls, 1);
    EXPECT_EQ(c.calls, 0);
    EXPECT_EQ(node.listenerCount(), 2);
    node.notify(5);
    EXPECT_EQ(a.calls, 1);
    EXPECT_EQ(b.calls, 2);
    EXPECT_EQ(c.calls, 1);
    EXPECT_EQ(c.lastIndex, 5);
}
