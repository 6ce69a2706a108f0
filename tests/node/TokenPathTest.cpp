// Token paths among thousands of siblings, deep in the tree and through a
// framebuffer: looked up through an index they give what the lists give, and
// a save writes the bytes that looking up child by child writes.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "node/RtnFields.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnShader.h"
#include "runtime/RtnApplication.h"

namespace {

constexpr int kSiblings = 3000;
constexpr int kChain = 100;  // d100's path would need 101 entries

std::vector<uint8_t> bytesOf(const ScnField& f)
{
    ScnOutStream out;
    f.write(out);
    return out.bytes();
}

// Paths start from this root while the test runs, as in a load or a save.
struct RootScope {
    ScnNode* saved = RtnMFRef::s_root;
    explicit RootScope(ScnNode* root) { RtnMFRef::s_root = root; }
    ~RootScope() { RtnMFRef::s_root = saved; }
};

// The world holds "flat" (3,000 children) and a chain d1 .. d100 in which
// every link has an earlier sibling; three shaders stand below the camera's
// framebuffer. Register 0 holds tokens in all of them, register 1 holds
// register 0, which no path reaches.
std::unique_ptr<RtnApplication> scene()
{
    auto app = std::make_unique<RtnApplication>();
    auto* flat = new ScnGroup();
    flat->name = "flat";
    app->openGL.node.append(flat);
    for (int i = 0; i < kSiblings; ++i) {
        auto* g = new ScnGroup();
        g->name = "f" + std::to_string(i);
        flat->append(g);
    }
    ScnGroup* at = &app->openGL.node;
    for (int k = 1; k <= kChain; ++k) {
        if (k > 1) {
            auto* pad = new ScnGroup();
            pad->name = "pad";
            at->append(pad);
        }
        auto* d = new ScnGroup();
        d->name = "d" + std::to_string(k);
        at->append(d);
        at = d;
    }
    auto* fb = static_cast<ScnFramebuffer*>(app->camera.node.getChild(0));
    for (int s = 0; s < 3; ++s) {
        auto* sh = new ScnShader();
        sh->name = "s" + std::to_string(s);
        fb->shaders.append(sh);
    }
    return app;
}

ScnNode* chainNode(RtnApplication& app, int k)
{
    ScnNode* n = app.openGL.node.getChild(1);
    for (int i = 1; i < k; ++i) n = n->getChild(1);
    return n;
}

// Register 0's tokens, in order.
std::vector<ScnNode*> deposit(RtnApplication& app)
{
    ScnNode* flat = app.openGL.node.getChild(0);
    std::vector<ScnNode*> tokens = {flat->getChild(0),       flat->getChild(1234),  flat->getChild(kSiblings - 1),
                                    chainNode(app, 50),      chainNode(app, 99),    chainNode(app, kChain),
                                    app.camera.node.getChild(0)->getChild(2), &app.camera.node};
    RtnProcessor* p = app.processorAt(0);
    RtnRegister* r0 = p->createRegister(0);
    for (ScnNode* t : tokens) r0->deposit(t);
    p->createRegister(1)->deposit(r0);
    return tokens;
}

bool samePath(const RtnPath& a, const RtnPath& b)
{
    return a.depth == b.depth && std::memcmp(a.index, b.index, sizeof a.index) == 0;
}

}  // namespace

TEST(TokenPaths, RebuiltThroughAnIndexTheyCountAsTheListsDo)
{
    auto app = scene();
    deposit(*app);
    RootScope root(app.get());
    RtnRegister* r0 = app->processorAt(0)->getRegister(0);
    RtnPathIndex index;
    for (int i = 0; i < r0->marking.count(); ++i) {
        RtnPath byIndex = r0->marking.path(i), byWalk = r0->marking.path(i);
        EXPECT_EQ(byIndex.rebuild(&index), byWalk.rebuild()) << i;
        EXPECT_TRUE(samePath(byIndex, byWalk)) << i;
    }

    RtnPath last = r0->marking.path(2);
    ASSERT_TRUE(last.rebuild(&index));
    EXPECT_EQ(last.depth, 3u);
    EXPECT_EQ(last.index[0], static_cast<uint32_t>(kSiblings - 1));
    EXPECT_EQ(last.index[1], 0u);  // "flat" in the world
    EXPECT_EQ(last.index[2], 0u);  // the world branch

    // d99: 99 links, each the second child of its parent, then the branch.
    RtnPath deep = r0->marking.path(4);
    ASSERT_TRUE(deep.rebuild(&index));
    ASSERT_EQ(deep.depth, RtnPath::kMaxDepth);
    for (uint32_t k = 0; k + 1 < deep.depth; ++k) EXPECT_EQ(deep.index[k], 1u) << k;
    EXPECT_EQ(deep.index[99], 0u);
    // d100 is one level too deep: the path stays as it was.
    RtnPath tooDeep = r0->marking.path(5);
    EXPECT_FALSE(tooDeep.rebuild(&index));
    EXPECT_EQ(tooDeep.depth, 0u);

    RtnPath shader = r0->marking.path(6);
    ASSERT_TRUE(shader.rebuild(&index));
    ASSERT_EQ(shader.depth, 3u);
    EXPECT_EQ(shader.index[0], 2u);  // third shader of the framebuffer
    EXPECT_EQ(shader.index[1], 0u);  // the framebuffer in the camera
    EXPECT_EQ(shader.index[2], static_cast<uint32_t>(RtnApplication::Camera));
    RtnPath branch = r0->marking.path(7);
    ASSERT_TRUE(branch.rebuild(&index));
    EXPECT_EQ(branch.depth, 1u);
    EXPECT_EQ(branch.index[0], static_cast<uint32_t>(RtnApplication::Camera));

    // A register is held in a slot, not a list: no index finds it.
    RtnPath reg = app->processorAt(0)->getRegister(1)->marking.path(0);
    EXPECT_FALSE(reg.rebuild(&index));
    EXPECT_EQ(index.indexOf(app->processorAt(0), r0), -1);
}

TEST(TokenPaths, SavedAsByLookupChildByChildAndReadBackToTheSameNodes)
{
    auto app = scene();
    std::vector<ScnNode*> tokens = deposit(*app);
    RtnRegister* r0 = app->processorAt(0)->getRegister(0);
    std::vector<uint8_t> reference;
    {
        RootScope root(app.get());
        reference = bytesOf(r0->marking);  // no save in progress: child by child
        RtnPathIndex index;
        RtnMFRef::s_saveIndex = &index;
        std::vector<uint8_t> indexed = bytesOf(r0->marking);
        RtnMFRef::s_saveIndex = nullptr;
        EXPECT_EQ(indexed, reference);
    }

    const std::vector<uint8_t> bytes = app->toBytes();
    std::string error;
    std::unique_ptr<RtnApplication> back(RtnApplication::readBytes(bytes, "paths.3Dm", error));
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(back->toBytes(), bytes);

    RootScope root(back.get());
    RtnRegister* b0 = back->processorAt(0)->getRegister(0);
    EXPECT_EQ(bytesOf(b0->marking), reference);
    ASSERT_EQ(b0->marking.count(), static_cast<int>(tokens.size()));
    RtnPathIndex index;
    for (int i = 0; i < b0->marking.count(); ++i) {
        RtnPath walked = b0->marking.path(i);
        ScnNode* viaIndex = b0->marking.path(i).resolve(&index);
        EXPECT_EQ(viaIndex, walked.resolve()) << i;
        if (i == 5) {
            EXPECT_EQ(viaIndex, nullptr);  // d100 was saved with no path
            continue;
        }
        ASSERT_NE(viaIndex, nullptr) << i;
        EXPECT_EQ(viaIndex->getName(), tokens[i]->getName()) << i;
    }
    EXPECT_EQ(back->processorAt(0)->getRegister(1)->marking.path(0).resolve(&index), nullptr);

    // Indices past the end of a list, at the last level and above it, find nothing.
    for (auto [first, second] : {std::pair<uint32_t, uint32_t>{kSiblings, 0}, {5, 7}}) {
        RtnPath beyond;
        beyond.depth = 3;
        beyond.index[0] = first;
        beyond.index[1] = second;
        RtnPath walked = beyond;
        EXPECT_EQ(beyond.resolve(&index), nullptr);
        EXPECT_EQ(walked.resolve(), nullptr);
    }
}
