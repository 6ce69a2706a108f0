// Transforms, instances, texts, key sensors and the point reader: the world
// matrices nested transforms get (element by element), what scripts do to
// the local matrix, an object file drawn under the instance's placement, a
// text's pixels against its measured box, the key events a register hears,
// and an application file whose instance loads its object.
#include <GL/glew.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "memory/MemFont.h"
#include "memory/SourceFiles.h"
#include "node/ScnAction.h"
#include "render/ScnInstance.h"
#include "render/ScnScene.h"
#include "render/ScnTest.h"
#include "render/ScnText.h"
#include "render/ScnTransform.h"
#include "render/ScnWorld.h"
#include "render/SnsKeyboardSensor.h"
#include "runtime/CmdNodes.h"
#include "runtime/ScnLua.h"
#include "widgets/InputState.h"
#include "RenderSupport.h"

namespace {

ScnMatrix16 scaleAt(double s, double x, double y)
{
    return columns({s, 0, 0, 0, 0, s, 0, 0, 0, 0, s, 0, x, y, 0, 1});
}

// Places by the model-view-projection matrix; with no camera that is the
// model matrix alone, so world units are clip units.
ScnShader* placingShader()
{
    auto* s = new ScnShader();
    s->name = "placing";
    s->vertex =
        "#version 330\nin vec4 gs_Vertex;\nin vec2 gs_Texture;\nuniform mat4 gs_ModelViewProjectionMatrix;\n"
        "out vec2 uv;\nvoid main()\n{\n    uv = gs_Texture;\n    gl_Position = gs_ModelViewProjectionMatrix * gs_Vertex;\n}\n";
    s->fragment = "#version 330\nout vec4 outColor;\nvoid main()\n{\n    outColor = vec4(1.0, 1.0, 0.0, 1.0);\n}\n";
    return s;
}

// The same, with the font's coverage deciding which pixels are drawn.
ScnShader* glyphShader()
{
    ScnShader* s = placingShader();
    s->fragment =
        "#version 330\nuniform sampler2D gs_Characters;\nin vec2 uv;\nout vec4 outColor;\nvoid main()\n{\n"
        "    if (texture(gs_Characters, uv).a < 0.5) discard;\n    outColor = vec4(1.0, 1.0, 0.0, 1.0);\n}\n";
    return s;
}

struct Rect {
    int x0 = 1 << 20, y0 = 1 << 20, x1 = -1, y1 = -1;
    int count = 0;
};

// The box of the drawn (yellow) pixels of the frame.
Rect drawnPixels()
{
    Rect r;
    GlContext* c = GlContext::active();
    c->swapBuffers();
    std::vector<uint8_t> f = c->readFrame();
    for (int y = 0; y < c->height(); ++y)
        for (int x = 0; x < c->width(); ++x) {
            const uint8_t* p = f.data() + (static_cast<size_t>(y) * c->width() + x) * 4;
            if (p[0] > 200 && p[1] > 200 && p[2] < 50) {
                r.x0 = std::min(r.x0, x);
                r.y0 = std::min(r.y0, y);
                r.x1 = std::max(r.x1, x);
                r.y1 = std::max(r.y1, y);
                ++r.count;
            }
        }
    return r;
}

// Clip coordinates to the pixel column or row they fall in.
double pixelX(double clip)
{
    return (clip + 1) / 2 * GlContext::active()->width();
}
double pixelY(double clip)
{
    return (clip + 1) / 2 * GlContext::active()->height();
}

// Create, update and event walks as a load runs them, then one render with no camera.
void createAndDraw(ScnNode* tree)
{
    {
        ScnActionCreate create;
        create.apply(tree);
        ScnActionUpdate update;
        update.apply(tree);
        ScnActionEvent event;
        event.apply(tree);
    }
    GlPlatform::bindScreen();
    // What earlier tests left: a camera's viewport, a scissor.
    glViewport(0, 0, GlContext::active()->width(), GlContext::active()->height());
    glDisable(GL_SCISSOR_TEST);
    glClearColor(0, 0, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glDisable(GL_DEPTH_TEST);
    ScnActionRender render(nullptr, GlContext::active()->width(), GlContext::active()->height());
    render.apply(tree);
    glEnable(GL_DEPTH_TEST);
}

void destroy(ScnNode* tree)
{
    ScnActionDestroy d;
    d.apply(tree);
}

}  // namespace

// -- transforms ---------------------------------------------------------------------

TEST(Transforms, UpdateDerivesLocalsAndTheEventWalkComposesWorldsDownTheTree)
{
    // a: a quarter turn about z at (1, 2, 3); b below it: scale 2 at (2, 0, 0)
    // in a's frame; c below b: one up in b's frame. The tree holds world
    // matrices, worked out by hand.
    ScnGroup scene;
    auto* a = new ScnTransform();
    a->worldmatrix = columns({0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1});
    auto* b = new ScnTransform();
    b->worldmatrix = columns({0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 1, 4, 3, 1});
    auto* c = new ScnTransform();
    c->worldmatrix = columns({0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, -1, 4, 3, 1});
    scene.append(a);
    a->append(b);
    b->append(c);
    auto* quad = new TestQuad();  // -1..1 on each axis
    c->append(quad);

    ScnActionUpdate update;
    update.apply(&scene);
    expectMatrix(a->local, a->worldmatrix.value, "a has no transform above: local is world");
    expectMatrix(b->local, columns({2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 2, 0, 0, 1}), "b relative to a");
    expectMatrix(c->local, ScnMatrix16::translation(0, 1, 0), "c relative to b");
    // The quad's box, placed by c's world matrix: (x, y) -> (-2y - 1, 2x + 4).
    const ScnBox& box = quad->getBounds();
    EXPECT_NEAR(box.min[0], -3, 1e-12);
    EXPECT_NEAR(box.max[0], 1, 1e-12);
    EXPECT_NEAR(box.min[1], 2, 1e-12);
    EXPECT_NEAR(box.max[1], 6, 1e-12);
    EXPECT_EQ(ScnScene::currentTransform, nullptr);

    // Moving a's local matrix moves nothing until the event walk, which then
    // carries b and c along: world := parent world x local.
    a->local.m[12] += 1;
    expectMatrix(a->worldmatrix.value, columns({0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1}), "a before events");
    ScnActionEvent event;
    event.apply(&scene);
    expectMatrix(a->worldmatrix.value, columns({0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 2, 2, 3, 1}), "a");
    expectMatrix(b->worldmatrix.value, columns({0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 2, 4, 3, 1}), "b");
    expectMatrix(c->worldmatrix.value, columns({0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 0, 4, 3, 1}), "c");
    EXPECT_NEAR(quad->getBounds().min[0], -2, 1e-12) << "the boxes follow in the same walk";
    EXPECT_EQ(ScnScene::currentTransform, nullptr);
}

TEST(Transforms, ScriptMethodsChangeTheLocalMatrixAndTheWorldFollowsAtTheNextEvent)
{
    lua_State* L = AppGlobal::luaState();
    ASSERT_NE(L, nullptr);
    ScnTransform design;
    design.worldmatrix = scaleAt(2, 5, 0);
    std::unique_ptr<ScnNode> twin(design.instantiate());
    auto* t = static_cast<ScnTransform*>(twin.get());
    ScnActionUpdate update;
    update.apply(t);
    ASSERT_TRUE(ScnLua::setGlobalNode(L, "t", t));

    // Positions pass through floats on setTranslation, not on translate.
    EXPECT_EQ(eval(L, "t:setTranslation(0.1, 0.2, 0.3) t:translate(0.1, 0, 0) return 'ok'"), "ok");
    EXPECT_EQ(t->local.m[12], static_cast<double>(0.1f) + 0.1);
    EXPECT_EQ(t->local.m[13], static_cast<double>(0.2f));
    EXPECT_EQ(t->local.m[14], static_cast<double>(0.3f));
    EXPECT_EQ(t->worldmatrix.value.m[12], 5) << "the world matrix waits for the event walk";

    // A quarter turn about z drops the scale of 2 and keeps the position;
    // a quarter turn about x then goes ahead of it: x -> z, y -> -x, z -> -y.
    EXPECT_EQ(eval(L, "t:setTranslation(5, 0, 0) t:setRotation(math.pi / 2, 0, 0, 1) return 'ok'"), "ok");
    expectMatrix(t->local, columns({0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 5, 0, 0, 1}), "setRotation");
    EXPECT_EQ(eval(L, "t:rotate(math.pi / 2, 1, 0, 0) return 'ok'"), "ok");
    expectMatrix(t->local, columns({0, 0, 1, 0, -1, 0, 0, 0, 0, -1, 0, 0, 5, 0, 0, 1}), "rotate");
    // The axis is taken as given: twice the unit axis is not the same turn.
    EXPECT_EQ(eval(L, "t:setRotation(math.pi / 2, 0, 0, 2) return 'ok'"), "ok");
    EXPECT_GT(std::fabs(t->local.m[0]), 1e-3) << "not normalised";

    ScnActionEvent event;
    event.apply(t);
    expectMatrix(t->worldmatrix.value, t->local, "no transform above: world := local");

    const std::string bad = eval(L, "t:translate('x', 0, 0)");
    EXPECT_NE(bad.find("number expected"), std::string::npos) << bad;
    ScnLua::clearGlobalNode(L, "t");
}

// -- instances ------------------------------------------------------------------------

class Instances : public RenderDoc {
protected:
    void SetUp() override
    {
        RenderDoc::SetUp();
        std::filesystem::create_directories(m_ws / "data");
    }

    // arm: scale 0.5 at the origin; hand below it: scale 0.25 at (0.25,
    // 0.25), holding a quad from -1 to 1 on each axis.
    void writeObject(const char* file)
    {
        ScnTransform arm;
        arm.name = "arm";
        arm.worldmatrix = scaleAt(0.5, 0, 0);
        auto* hand = new ScnTransform();
        hand->name = "hand";
        hand->worldmatrix = scaleAt(0.25, 0.25, 0.25);
        hand->append(new TestQuad());
        arm.append(hand);
        std::string error;
        ASSERT_TRUE(scnWriteObject(m_ws / file, arm, error)) << error;
    }
    GlScope m_gl;  // current for the whole test
};

TEST_F(Instances, TheObjectIsDrawnUnderTheInstancesPlacementNestedTransformsIncluded)
{
    writeObject("data/arm.3Do");
    ScnInstance design;
    design.path = "data/arm.3Do";
    design.transform = ScnMatrix16::translation(0.25, 0.25, 0);
    ASSERT_TRUE(design.load());
    auto* arm = dynamic_cast<ScnTransform*>(design.root());
    ASSERT_NE(arm, nullptr);
    EXPECT_EQ(arm->parent(), &design);
    auto* hand = static_cast<ScnTransform*>(arm->findChild("hand"));
    ASSERT_NE(hand, nullptr);
    expectMatrix(arm->worldmatrix.value, scaleAt(0.5, 0.25, 0.25), "arm");
    expectMatrix(hand->worldmatrix.value, scaleAt(0.25, 0.5, 0.5), "hand moves with the arm");

    // The running copy: the quad covers clip 0.25..0.75 on both axes.
    ScnGroup scene;
    scene.append(placingShader());
    scene.append(design.instantiate());
    createAndDraw(&scene);
    const Rect r = drawnPixels();
    EXPECT_NEAR(r.x0, pixelX(0.25), 1.0);
    EXPECT_NEAR(r.x1 + 1, pixelX(0.75), 1.0);
    EXPECT_NEAR(r.y0, pixelY(0.25), 1.0);
    EXPECT_NEAR(r.y1 + 1, pixelY(0.75), 1.0);
    // The instance's box is the object's.
    const ScnBox& box = scene.getChild(1)->getBounds();
    EXPECT_NEAR(box.min[0], 0.25, 1e-12);
    EXPECT_NEAR(box.max[1], 0.75, 1e-12);
    destroy(&scene);
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(Instances, AMissingOrDamagedFileIsLoggedAndLeavesAnEmptyInstanceThatDrawsNothing)
{
    ScnInstance design;
    design.path = "data/none.3Do";
    EXPECT_FALSE(design.load());
    EXPECT_EQ(design.root(), nullptr);
    EXPECT_EQ(drain(), Lines{"(ScnInstance): File missing : " + m_ws / "data/none.3Do"});

    {
        std::ofstream f(m_ws / "data/bad.3Do", std::ios::binary);
        f.write("\x08\x00\x00\x00ScnGr", 9);  // the class name breaks off
    }
    design.path = "data/bad.3Do";
    EXPECT_FALSE(design.load());
    Lines lines = drain();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("bad.3Do: file is truncated or damaged"), std::string::npos) << lines[0];

    // A file that holds an instance of itself stops after ten levels.
    {
        ScnInstance self;
        self.path = "data/self.3Do";
        std::string error;
        ASSERT_TRUE(scnWriteObject(m_ws / "data/self.3Do", self, error)) << error;
        ScnInstance outer;
        outer.path = "data/self.3Do";
        EXPECT_TRUE(outer.load());
        int depth = 0;
        for (ScnNode* n = outer.root(); n; n = static_cast<ScnInstance*>(n)->root()) ++depth;
        EXPECT_EQ(depth, ScnAction::kInstanceDepth);
        lines = drain();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_NE(lines[0].find("instances nested deeper than 10"), std::string::npos) << lines[0];
    }

    // Drawn: nothing from the instance. The walk of its list ends at it (a
    // quad after it in the same group is not drawn); the quad after that
    // group still is.
    ScnGroup scene;
    scene.append(placingShader());
    auto* own = new ScnGroup();
    own->append(design.instantiate());
    auto* cutOff = new ScnTransform();
    cutOff->worldmatrix = scaleAt(0.25, 0.5, 0.5);
    cutOff->append(new TestQuad());
    own->append(cutOff);
    scene.append(own);
    auto* after = new ScnTransform();
    after->worldmatrix = scaleAt(0.25, -0.5, -0.5);
    after->append(new TestQuad());
    scene.append(after);
    createAndDraw(&scene);
    EXPECT_TRUE(own->getChild(0)->getBounds().isEmpty());
    const Rect r = drawnPixels();
    EXPECT_NEAR(r.x0, pixelX(-0.75), 1.0);
    EXPECT_NEAR(r.x1 + 1, pixelX(-0.25), 1.0);
    destroy(&scene);
}

// -- text -----------------------------------------------------------------------------

class Texts : public RenderDoc {
protected:
    void SetUp() override
    {
        RenderDoc::SetUp();
        if (HasFatalFailure()) return;
        const std::filesystem::path from = std::filesystem::path(VELMORA_BIN_DIR) / "workspace/data/textures/font";
        ASSERT_TRUE(std::filesystem::exists(from / "FONT.png")) << "the build renders the fonts into " << from;
        const std::filesystem::path to = std::filesystem::path(m_ws.path()) / "data/textures/font";
        std::filesystem::create_directories(to);
        for (const char* f : {"FONT.png", "FONT.txt"}) std::filesystem::copy_file(from / f, to / f);
        sources::loadPlugins();
        GlScope gl;
        ASSERT_TRUE(gl.ok());
        ScnText::loadFont();
        ASSERT_NE(ScnText::font(), nullptr);
        Channels::clearAll();
    }
    GlScope m_gl;  // current for the whole test
};

TEST_F(Texts, AGlyphLandsWhereTheMeasuredBoxSaysUnderItsTransform)
{
    ScnGroup design;
    design.append(glyphShader());
    auto* place = new ScnTransform();
    place->worldmatrix = ScnMatrix16::translation(-0.5, -0.5, 0);
    auto* label = new ScnText();
    label->text = "H";
    label->scalar = 5.0f;
    place->append(label);
    design.append(place);
    // The running copy, which scripts reach.
    std::unique_ptr<ScnNode> scene(design.instantiate());
    auto* text = static_cast<ScnText*>(label->twin());
    ASSERT_NE(text, nullptr);
    createAndDraw(scene.get());

    // The measured box: from the pen at 0 to the glyph's width and height,
    // with the height of "A" either way in depth.
    const MemTypeFont::Glyph& g = ScnText::font()->glyphs['H'];
    const ScnBox box = text->computeBounds();
    ASSERT_FALSE(box.isEmpty());
    EXPECT_NEAR(box.min[0], 0, 1e-6);
    EXPECT_NEAR(box.max[0], g.width * 5, 1e-5);
    EXPECT_NEAR(box.min[1], 0, 1e-6);
    EXPECT_NEAR(box.max[1], g.height * 5, 1e-5);
    EXPECT_NEAR(box.max[2], ScnText::font()->glyphs['A'].height * 5, 1e-5);
    EXPECT_EQ(text->vertexCount(), 6);

    // The drawn H: the box moved by the transform, and right by the glyph's
    // x offset; a capital stands on the baseline.
    const Rect r = drawnPixels();
    ASSERT_GT(r.count, 50) << "the H's strokes";
    const double shift = g.xoffset * 5;
    EXPECT_NEAR(r.x0, pixelX(-0.5 + box.min[0] + shift), 2.5);
    EXPECT_NEAR(r.x1 + 1, pixelX(-0.5 + box.max[0] + shift), 2.5);
    EXPECT_NEAR(r.y0, pixelY(-0.5 + box.min[1] + (g.yoffset - g.height) * 5), 2.5);
    EXPECT_NEAR(r.y1 + 1, pixelY(-0.5 + box.max[1] + (g.yoffset - g.height) * 5), 2.5);
    // The node's box in the scene is the measured one, placed.
    EXPECT_NEAR(text->getBounds().min[0], -0.5, 1e-6);

    // An empty string: no vertices, nothing drawn, an empty box but for depth.
    lua_State* L = AppGlobal::luaState();
    ASSERT_TRUE(ScnLua::setGlobalNode(L, "label", text));
    EXPECT_EQ(eval(L, "label:setText('') label:setText(42) return '[' .. label:getText() .. ']'"), "[]");
    ScnLua::clearGlobalNode(L, "label");
    EXPECT_EQ(text->vertexCount(), 0);
    GlPlatform::bindScreen();
    glClear(GL_COLOR_BUFFER_BIT);
    {
        ScnActionRender render(nullptr, GlContext::active()->width(), GlContext::active()->height());
        render.apply(scene.get());
    }
    EXPECT_EQ(drawnPixels().count, 0);
    destroy(scene.get());
}

TEST_F(Texts, AMissingFontDescriptionOrPictureIsLoggedAndTheTextDrawsNothing)
{
    const std::filesystem::path font = std::filesystem::path(m_ws.path()) / "data/textures/font";
    ScnGroup design;
    design.append(glyphShader());
    auto* label = new ScnText();
    label->text = "HI";
    label->scalar = 5.0f;
    design.append(label);

    // The picture without its description: every glyph is unset and gives
    // a quad of no size.
    std::filesystem::remove(font / "FONT.txt");
    ScnText::loadFont();
    ASSERT_NE(ScnText::font(), nullptr);
    EXPECT_EQ(drain(), Lines{"(): " + (font / "FONT.txt").string() + " not found"});
    {
        std::unique_ptr<ScnNode> scene(design.instantiate());
        createAndDraw(scene.get());
        EXPECT_EQ(static_cast<ScnText*>(label->twin())->vertexCount(), 12);
        EXPECT_EQ(drawnPixels().count, 0);
        destroy(scene.get());
    }

    // No picture either: no font, no vertices, an empty box.
    std::filesystem::remove(font / "FONT.png");
    ScnText::loadFont();
    EXPECT_EQ(ScnText::font(), nullptr);
    EXPECT_EQ(drain(), Lines{"(): Unable to read file FONT.png"});
    std::unique_ptr<ScnNode> scene(design.instantiate());
    createAndDraw(scene.get());
    auto* text = static_cast<ScnText*>(label->twin());
    EXPECT_EQ(text->vertexCount(), 0);
    EXPECT_TRUE(text->computeBounds().isEmpty());
    EXPECT_EQ(drawnPixels().count, 0);
    destroy(scene.get());
}

// -- key sensors ------------------------------------------------------------------------

class Sensors : public RenderDoc {
protected:
    void SetUp() override
    {
        RenderDoc::SetUp();
        if (HasFatalFailure()) return;
        InputState::instance().clear();
        RtnApplication app;
        auto* sensor = new SnsKeyboardSensor();
        sensor->map.values['a'] = 1;
        sensor->map.values[InputState::KeyLeft] = 1;
        app.openGL.node.append(sensor);
        auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
        RtnRegister* r = p->createRegister(0);
        sensor->addEvents(r->functions);
        r->functions.setCode(SnsKeyboardSensor::OnDown, "print('down ' .. event:getKey())");
        r->functions.setCode(SnsKeyboardSensor::OnPressed, "print('held ' .. event:getKey())");
        r->functions.setCode(SnsKeyboardSensor::OnUp, "print('up ' .. event:getKey())");
        r->marking.append(sensor);
        openApp(app);
    }
    void TearDown() override
    {
        InputState::instance().clear();
        RenderDoc::TearDown();
    }
    Lines frame()
    {
        tick();
        return drain();
    }
};

TEST_F(Sensors, MappedKeysFireDownThenHeldThenUpOnePerFrameWhileRunning)
{
    InputState& in = InputState::instance();
    in.setKey('a', true);
    EXPECT_EQ(frame(), Lines{}) << "not running: nothing";
    in.setKey('a', false);
    frame();
    m_doc.toggleSimulation();

    in.setKey('a', true);
    in.setKey('b', true);  // not in the map
    EXPECT_EQ(frame(), Lines{"(script): down 97"});
    EXPECT_EQ(frame(), Lines{"(script): held 97"});
    in.setKey(InputState::KeyLeft, true);
    EXPECT_EQ(frame(), (Lines{"(script): held 97", "(script): down 144"}));
    in.setKey('a', false);
    in.setKey(InputState::KeyLeft, false);
    EXPECT_EQ(frame(), (Lines{"(script): up 97", "(script): up 144"}));
    EXPECT_EQ(frame(), Lines{});
}

// -- the point reader -------------------------------------------------------------------

TEST_F(Instances, ThePointReaderTakesTheLinesThatHoldThreeNumbers)
{
    {
        std::ofstream f(m_ws / "cloud.txt");
        f << "1 2 3\nnot a point\n-4 0.5 9\n7 8\n" << std::string(12000, '7') << " 1 1\n0 -6 0\n";
    }
    ScnTest t;
    ScnActionCreate create;
    create.apply(&t);
    ASSERT_EQ(t.points().size(), 9u) << "the overlong line is not taken, nor its rest";
    EXPECT_EQ(t.points()[6], 0.0f);
    EXPECT_EQ(t.points()[7], -6.0f);
    const ScnBox b = t.computeBounds();
    EXPECT_EQ(b.min[0], -4);
    EXPECT_EQ(b.max[0], 1);
    EXPECT_EQ(b.min[1], -6);
    EXPECT_EQ(b.max[2], 9);
    EXPECT_EQ(drain(), Lines{"(ScnTest): 3 points read from cloud.txt"});
}

// -- files ------------------------------------------------------------------------------

TEST_F(Instances, AnApplicationReadsItsInstancesObjectsAndSavesWithoutThem)
{
    writeObject("data/arm.3Do");
    RtnApplication app;
    auto* t = new ScnTransform();
    t->name = "spin";
    t->worldmatrix = scaleAt(2, 1, -1);
    auto* inst = new ScnInstance();
    inst->name = "arms";
    inst->path = "data/arm.3Do";
    inst->transform = ScnMatrix16::translation(0, 3, 0);
    ASSERT_TRUE(inst->load());
    t->append(inst);
    app.openGL.node.append(t);
    std::string error;
    ASSERT_TRUE(writeApp(app, m_ws / "scene.3Dm", error)) << error;
    std::unique_ptr<RtnApplication> back(RtnApplication::readFile(m_ws / "scene.3Dm", error));
    ASSERT_NE(back, nullptr) << error;
    auto* arms = dynamic_cast<ScnInstance*>(back->openGL.node.findChild("spin")->findChild("arms"));
    ASSERT_NE(arms, nullptr);
    ASSERT_NE(arms->root(), nullptr) << "the read loads the object";
    expectMatrix(static_cast<ScnTransform*>(arms->root())->worldmatrix.value, scaleAt(0.5, 0, 3), "placed once");
    ASSERT_TRUE(writeApp(*back, m_ws / "again.3Dm", error)) << error;
    EXPECT_EQ(sources::readBytes(m_ws / "scene.3Dm"), sources::readBytes(m_ws / "again.3Dm"));
    EXPECT_EQ(drain(), Lines{});
}
