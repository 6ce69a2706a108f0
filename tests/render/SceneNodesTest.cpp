// Scene nodes beyond their bytes: a transform moved by a transform action
// (the matrix element by element), the script classes of the scene classes,
// and a camera's children reached from a script.
#include <cstring>
#include <memory>
#include <string>

#include "compute/OclPlugin.h"
#include "node/ScnAction.h"
#include "render/ScnBuffers.h"
#include "render/ScnViewpoint.h"
#include "render/ScnScene.h"
#include "render/ScnTest.h"
#include "render/ScnTexture.h"
#include "render/ScnInstance.h"
#include "render/ScnTransform.h"
#include "render/SnsKeyboardSensor.h"
#include "runtime/CmdNodes.h"
#include "runtime/ScnLua.h"
#include "RenderSupport.h"

namespace {

// A group on the way to the target that notes what the walk had set when it
// passed.
class Probe : public ScnGroup {
public:
    ScnTransform* seenTransform = nullptr;
    ScnMatrix16 seenTop;
    int visits = 0;
    void onTransform(ScnAction& action) override
    {
        ++visits;
        seenTransform = ScnScene::currentTransform;
        seenTop = action.top();
        ScnGroup::onTransform(action);
    }
};

}  // namespace

TEST(TransformAction, TargetMovesByFrameDeltaScaleInThatOrderAndTheWayThereIsLeftAlone)
{
    // parent transform > probe group > target transform, and a sibling of the target.
    ScnTransform parent;
    parent.worldmatrix = ScnMatrix16::translation(5, 0, 0);
    auto* probe = new Probe();
    parent.append(probe);
    auto* target = new ScnTransform();
    // A quarter turn about z, at (1, 2, 3).
    target->worldmatrix = columns({0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1});
    probe->append(target);
    auto* sibling = new ScnTransform();
    sibling->worldmatrix = ScnMatrix16::translation(7, 7, 7);
    probe->append(sibling);

    // Delta: a quarter turn about x. Scale 2, 3, 0.5. Frame: the pivot at z = 4.
    ScnMatrix16 delta = columns({1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1});
    ScnMatrix16 scale = columns({2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 1});
    ScnActionTransform move(delta, scale, ScnMatrix16::translation(0, 0, 4));
    move.apply(move.buildPath(target, nullptr));

    // By hand: relative to the pivot the position is (1, 2, -1); scaled,
    // (2, 6, -0.5); turned about x, (2, 0.5, 6); back from the pivot,
    // (2, 0.5, 10). The axes turn with delta: x (0,1,0) -> (0,0,1),
    // y (-1,0,0) stays, z (0,0,1) -> (0,-1,0); the scale leaves them alone.
    expectMatrix(target->worldmatrix.value, columns({0, 0, 1, 0, -1, 0, 0, 0, 0, -1, 0, 0, 2, 0.5, 10, 1}));

    // On the way the parent was the current transform with its own matrix
    // on the stack, unmultiplied; afterwards nothing is current.
    EXPECT_EQ(probe->visits, 1);
    EXPECT_EQ(probe->seenTransform, &parent);
    expectMatrix(probe->seenTop, ScnMatrix16::translation(5, 0, 0));
    EXPECT_EQ(ScnScene::currentTransform, nullptr);
    expectMatrix(parent.worldmatrix.value, ScnMatrix16::translation(5, 0, 0));
    expectMatrix(sibling->worldmatrix.value, ScnMatrix16::translation(7, 7, 7));
    EXPECT_EQ(move.matrixDepth(), 1);
}

TEST(TransformAction, DeltaAloneTurnsAboutTheFrameAndScaledPositionsKeepFloatPrecision)
{
    ScnTransform t;
    t.worldmatrix = ScnMatrix16::translation(3, 0, 0);
    // A quarter turn about z around the point (1, 0, 0): (3,0,0) goes to (1,2,0).
    ScnMatrix16 turn = columns({0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    ScnActionTransform move(turn, ScnMatrix16{}, ScnMatrix16::translation(1, 0, 0));
    move.apply(&t);
    expectMatrix(t.worldmatrix.value, columns({0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1, 2, 0, 1}));

    // Positions are scaled in floats, in all three elements: 0.1 * 3 gives
    // the float nearest 0.3, not the double 0.30000000000000004.
    ScnTransform s;
    s.worldmatrix = ScnMatrix16::translation(0.1, 0.1, 0.7);
    ScnMatrix16 scale = columns({3, 0, 0, 0, 0, 3, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    ScnActionTransform scaleOnly(ScnMatrix16{}, scale, ScnMatrix16{});
    scaleOnly.apply(&s);
    EXPECT_EQ(s.worldmatrix.value.m[12], 0.30000001192092896);
    EXPECT_EQ(s.worldmatrix.value.m[13], 0.30000001192092896);
    EXPECT_EQ(s.worldmatrix.value.m[14], 0.69999998807907104);
    EXPECT_EQ(s.worldmatrix.value.m[0], 1.0);
}

TEST(SceneScripts, EachClassHasItsScriptClassAndGroupsGiveTheirChildren)
{
    lua_State* L = AppGlobal::luaState();
    const int top = lua_gettop(L);
    struct Row {
        ScnNode* design;
        const char* text;
        bool group;
    };
    // The classes that no other script test reaches.
    Row rows[] = {
        {new ScnInstance(), "ScnInstance (instance)", true},
        {new ScnViewpoint(), "ScnViewpoint (viewpoint)", false},
        {new ScnTexture3D(), "ScnTexture3D (glTexture3D)", false},
        {new ScnBufferArray(), "ScnBufferArray (glDrawArrays)", true},
        {new ScnTest(), "ScnTest (Test)", false},
        {new SnsKeyboardSensor(), "SnsKeyboardSensor (keyboard)", false},
        {new OclPlugin(), "OclPlugin (node)", false},
    };
    for (Row& r : rows) {
        SCOPED_TRACE(r.text);
        if (r.group) {
            auto* child = new ScnNode();
            child->name = "inner";
            static_cast<ScnGroup*>(r.design)->append(child);
        }
        std::unique_ptr<ScnNode> twin(r.design->instantiate());
        ASSERT_NE(twin->getLuaRef(), 0);
        ASSERT_TRUE(ScnLua::setGlobalNode(L, "probe", twin.get()));
        EXPECT_EQ(eval(L, "return tostring(probe)"), r.text);
        if (r.group)
            EXPECT_EQ(eval(L, "return probe:getChild(0):getName()"), "inner");
        else
            EXPECT_EQ(eval(L, "return probe.getChild"), "nil");
        ScnLua::clearGlobalNode(L, "probe");
        twin.reset();
        delete r.design;
    }
    EXPECT_EQ(lua_gettop(L), top);
}

using CameraScript = RenderDoc;

TEST_F(CameraScript, GetChildGivesTheCamerasChildrenInOrder)
{
    RtnApplication app;  // its camera starts with one framebuffer
    auto* view = new ScnViewpoint();
    view->name = "overview";
    app.camera.node.append(view);
    openApp(app);
    lua_State* L = AppGlobal::luaState();
    ScnNode* camera = m_doc.runtime()->branch(CmdApplication::Camera);
    ASSERT_EQ(camera->childCount(), 2);
    EXPECT_EQ(eval(L, "return Camera:getChild(0):getName()"), "framebuffer");
    EXPECT_EQ(eval(L, "return Camera:getChild(1):getName()"), "overview");
    EXPECT_EQ(eval(L, "return Camera:getChild(2)"), "nil");
    // The very node of the running tree, not a copy.
    ASSERT_EQ(luaL_dostring(L, "return Camera:getChild(0)"), 0);
    EXPECT_EQ(ScnLua::toNode(L, -1), camera->getChild(0));
    lua_pop(L, 1);
}
