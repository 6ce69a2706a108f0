// The widget kit in the frame step with Mesa: where widgets land in the view,
// in which colours, with the font; what a press does to a button and its
// register; what the root finds under the mouse; what `sio` reports; and that
// a steady frame with widgets allocates nothing.
#include <GL/glew.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <lua.hpp>

#include "memory/SourceFiles.h"
#include "platform/GlContext.h"
#include "runtime/CmdNodes.h"
#include "runtime/ScnLua.h"
#include "runtime/RtnApplication.h"
#include "support/AllocationCounter.h"
#include "support/DocumentFixture.h"
#include "memory/MemFont.h"
#include "render/ScnShader.h"
#include "widgets/GuiControls.h"
#include "widgets/GuiDraw.h"
#include "widgets/GuiRoot.h"
#include "widgets/InputState.h"

namespace {

using Pixel = std::array<int, 4>;

class Kit : public DocumentFixture {
protected:
    void SetUp() override
    {
        DocumentFixture::SetUp();
        ASSERT_NE(GlContext::active(), nullptr) << "no headless OpenGL context (Mesa's EGL is needed)";
        // The fonts and the icon atlas that the build renders.
        const std::filesystem::path built = std::filesystem::path(VELMORA_BIN_DIR) / "workspace/data/textures";
        const std::filesystem::path ws = std::filesystem::path(m_ws.path()) / "data/textures";
        for (const char* f : {"font/GUI.png", "font/GUI.txt", "gui/icons.jpg"}) {
            ASSERT_TRUE(std::filesystem::exists(built / f)) << "the build makes " << (built / f);
            std::filesystem::create_directories((ws / f).parent_path());
            std::filesystem::copy_file(built / f, ws / f);
        }
        // The program's start found no workspace font; this one has it, read
        // through the image plug-in.
        sources::loadPlugins();
        GlScope gl;
        ASSERT_TRUE(gl.ok());
        GuiDraw::loadFont();
        GlContext* c = GlContext::active();
        m_doc.setView(c->width(), c->height(), true);
        InputState::instance().clear();
        m_cellSize = GuiDraw::cellSize();
    }
    void TearDown() override
    {
        InputState::instance().clear();
        GuiDraw::setCellSize(m_cellSize);
        DocumentFixture::TearDown();
    }

    // A root the size of the view with a label at (20, 30), 100 by 40, and a
    // button at (150, 100), 60 by 30. Register 0 holds the root (OnSelect
    // prints), register 1 the button (its three events print).
    void open(const std::function<void(RtnApplication&)>& edit = {})
    {
        RtnApplication app;
        GlContext* c = GlContext::active();
        GuiRoot& root = app.gui.node;
        root.dim0 = c->width();
        root.dim1 = c->height();
        auto* label = new GuiLabel();
        label->name = "caption";
        label->position = ScnVec3{20, 30, 0};
        label->size = ScnVec3{100, 40, 0};
        root.append(label);
        auto* button = new GuiButton();
        button->name = "go";
        button->text = "Go";
        button->position = ScnVec3{150, 100, 0};
        button->size = ScnVec3{60, 30, 0};
        root.append(button);
        if (edit) edit(app);

        auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
        RtnRegister* r0 = p->createRegister(0);
        root.addEvents(r0->functions);
        r0->functions.setCode(3, "print('select ' .. event:getName() .. ' at ' .. sio.getMouseX() .. ',' .. "
                                 "sio.getMouseY())");
        r0->marking.append(&root);
        RtnRegister* r1 = p->createRegister(1);
        button->addEvents(r1->functions);
        r1->functions.setCode(GuiButton::OnDown, "print('down ' .. event:getName() .. ' ' .. sio.getMouseX(event) .. ',' .. "
                                                     "sio.getMouseY(event))");
        r1->functions.setCode(GuiButton::OnUp, "print('up ' .. event:getName())");
        r1->functions.setCode(GuiButton::OnPressed, "print('held ' .. event:getName())");
        r1->marking.append(button);

        std::string error;
        RtnMFRef::s_root = &app;
        ASSERT_TRUE(app.writeFile(m_ws / "ui.3Dm", error)) << error;
        RtnMFRef::s_root = nullptr;
        ASSERT_TRUE(m_doc.open("ui.3Dm", error)) << error;
        drain();
    }
    void tick()
    {
        m_doc.tick();
        m_clock.advance(25);
    }
    // Lets the double-click time pass, so that the next press is a single one.
    void pause()
    {
        for (int i = 0; i < 10; ++i) tick();
    }
    void press(double x, double y, int button = 1)
    {
        InputState::instance().setCursor(x, y);
        InputState::instance().setButton(button, true);
        tick();
    }
    void release(int button = 1)
    {
        InputState::instance().setButton(button, false);
        tick();
    }
    void type(int code)
    {
        InputState::instance().setKey(code, true);
        tick();
        InputState::instance().setKey(code, false);
        tick();
    }
    int m_cellSize = 19;
    GuiRoot* root() { return dynamic_cast<GuiRoot*>(m_doc.runtime()->branch(CmdApplication::Gui)); }
    ScnNode* widget(const char* name) { return root()->findChild(name); }

    static Pixel pixelAt(int x, int y)
    {
        GlContext* c = GlContext::active();
        std::vector<uint8_t> f = c->readFrame();
        if (f.empty()) return Pixel{-1, -1, -1, -1};
        const uint8_t* q = f.data() + (static_cast<size_t>(y) * c->width() + x) * 4;
        return Pixel{q[0], q[1], q[2], q[3]};
    }
    // Dark pixels (text) in a rectangle of the view.
    static int darkIn(int x0, int y0, int x1, int y1, int below)
    {
        GlContext* c = GlContext::active();
        std::vector<uint8_t> f = c->readFrame();
        int n = 0;
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x)
                if (f[(static_cast<size_t>(y) * c->width() + x) * 4] < below) ++n;
        return n;
    }
    // What a picture colour of (c, alpha) gives over the background b.
    static int over(float c, float alpha, int b) { return static_cast<int>(c * alpha * 255 + (1 - alpha) * b + 0.5f); }
    static std::array<int, 3> over(float r, float g, float b, float alpha, const Pixel& bg)
    {
        return {over(r, alpha, bg[0]), over(g, alpha, bg[1]), over(b, alpha, bg[2])};
    }
};

void expectNear(const Pixel& got, const std::array<int, 3>& want, const char* what)
{
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(got[i], want[i], 3) << what << " channel " << i;
}

}  // namespace

TEST_F(Kit, WidgetsLandAtTheirPlacesInPaletteColoursWithTheRootsOpacityAndCellSize)
{
    open([](RtnApplication& app) {
        app.gui.node.window = ScnColor{1, 0.5f, 0, 1};
        app.gui.node.transparency = 0.5f;
        app.gui.node.cellSize = 24;
    });
    m_doc.toggleSimulation();
    tick();
    const Pixel bg = pixelAt(5, 5);
    // The label's fill is WINDOW with the transparency as alpha, over what
    // the world left there. Its corners are inside, one pixel beyond is not.
    for (auto [x, y] : {std::pair{20, 30}, {119, 69}, {25, 35}})
        expectNear(pixelAt(x, y), over(1, 0.5f, 0, 0.5f, bg), "label fill");
    for (auto [x, y] : {std::pair{19, 30}, {20, 29}, {120, 50}, {60, 70}})
        expectNear(pixelAt(x, y), {bg[0], bg[1], bg[2]}, "outside the label");

    // The button: 3DFACE inside a raised bevel; the bevel's left edge is
    // 3DHIGHLIGHT, its bottom edge 3DDKSHADOW.
    const float face = 0.941176f, dark = 0.411765f;
    expectNear(pixelAt(155, 125), over(face, face, face, 0.5f, bg), "face");
    expectNear(pixelAt(150, 115), over(1, 1, 1, 0.5f, bg), "bevel left");
    expectNear(pixelAt(180, 100), over(dark, dark, dark, 0.5f, bg), "bevel bottom");
    expectNear(pixelAt(149, 115), {bg[0], bg[1], bg[2]}, "left of the button");

    EXPECT_EQ(GuiDraw::cellSize(), 24);
    // TEXT keeps its own alpha, the other colours take the opacity.
    EXPECT_FLOAT_EQ(GuiDraw::palette(GuiDraw::Text)[3], 1.0f);
    EXPECT_FLOAT_EQ(GuiDraw::palette(GuiDraw::Face3D)[3], 0.5f);
    EXPECT_FLOAT_EQ(GuiDraw::palette(GuiDraw::HighlightText)[3], 0.5f);
    EXPECT_FLOAT_EQ(root()->window.value.a, 0.5f) << "the fields get the opacity back";
}

TEST_F(Kit, TextIsDrawnWithTheFontInsideItsWidget)
{
    open([](RtnApplication& app) {
        static_cast<GuiLabel*>(app.gui.node.getChild(0))->text = "Hello";
    });
    ASSERT_NE(GuiDraw::font(), nullptr) << "GUI.png of the workspace";
    m_doc.toggleSimulation();
    tick();
    // Text starts 4 pixels in and hangs from 6 below the top.
    const int inLabel = darkIn(20, 30, 120, 70, 100);
    EXPECT_GT(inLabel, 20) << "glyphs of \"Hello\" in TEXT";
    EXPECT_EQ(darkIn(20, 30, 24, 70, 100), 0) << "nothing left of the text's start";
    EXPECT_GT(darkIn(24, 30, 24 + GuiDraw::textWidth("Hello", 5), 70, 100), inLabel * 9 / 10)
        << "the text lies within its measured width";
    EXPECT_GT(darkIn(152, 102, 208, 128, 150), 5) << "the button's caption";

    // setText repaints with the new text: a longer one covers more.
    lua_State* L = AppGlobal::luaState();
    ScnLua::setGlobalNode(L, "caption", widget("caption"));
    ASSERT_EQ(luaL_dostring(L, "caption:setText('Hello, wide world') caption:setText(42)"), 0) << lua_tostring(L, -1);
    ScnLua::clearGlobalNode(L, "caption");
    tick();
    EXPECT_GT(darkIn(20, 30, 120, 70, 100), inLabel);
}

TEST_F(Kit, APressedButtonHasItsEventsAndKeepsTheMouseUntilReleaseWhereverItGoes)
{
    open([](RtnApplication& app) {
        // A second button under the first one's drag path, and one on top
        // of the first: the later sibling is served first.
        auto* other = new GuiButton();
        other->name = "other";
        other->position = ScnVec3{20, 100, 0};
        other->size = ScnVec3{60, 30, 0};
        app.gui.node.append(other);
        auto* top = new GuiButton();
        top->name = "top";
        top->position = ScnVec3{170, 100, 0};
        top->size = ScnVec3{60, 30, 0};
        app.gui.node.append(top);
    });
    m_doc.toggleSimulation();
    InputState& in = InputState::instance();
    tick();
    auto* go = dynamic_cast<GuiButton*>(widget("go"));
    auto* other = dynamic_cast<GuiButton*>(widget("other"));
    auto* top = dynamic_cast<GuiButton*>(widget("top"));
    ASSERT_TRUE(go && other && top);
    drain();

    // A press and release outside every widget: no button event; with
    // nothing under the mouse, no OnSelect either.
    press(100, 150);
    release();
    pause();
    EXPECT_EQ(drain(), Lines{});

    // Inside: OnDown with the mouse relative to the button, OnPressed while
    // held, OnUp at release; the press is the button's, so no OnSelect.
    press(160, 110);
    EXPECT_TRUE(go->pressed());
    EXPECT_EQ(drain(), (Lines{"(script): down go 10,10"})) << "the mouse relative to the button's box";
    // Dragged over the other button and released there: the first keeps
    // the press and takes the release, the other never sees it.
    in.setCursor(30, 110);
    tick();
    release();
    EXPECT_FALSE(go->pressed());
    EXPECT_FALSE(other->pressed());
    EXPECT_EQ(drain(), (Lines{"(script): held go", "(script): up go"}));
    pause();

    // Where two overlap the one drawn last, on top, takes the press.
    press(180, 110);
    EXPECT_TRUE(top->pressed());
    EXPECT_FALSE(go->pressed());
    release();
}

TEST_F(Kit, TheRootSelectsWhatIsUnderTheMouseWhileEditingAndRunning)
{
    open([](RtnApplication& app) {
        auto* spot = new GuiComponent<ScnNode>("spot", 40, 40, true);
        spot->position = ScnVec3{200, 20, 0};
        app.gui.node.append(spot);
    });
    InputState& in = InputState::instance();
    // Editing: the label is found as hover and the frame step chooses it on
    // a click.
    in.setCursor(30, 40);
    tick();
    EXPECT_EQ(root()->hover(), widget("caption"));
    in.setButton(1, true);
    tick();
    tick();
    release();
    EXPECT_EQ(m_doc.chosenNode(), widget("caption")) << "chosen as the button goes up";

    // Running: a label takes no part; a bare component is found, and the
    // root tells its register.
    m_doc.toggleSimulation();
    tick();
    EXPECT_EQ(root()->hover(), nullptr);
    drain();
    in.setCursor(210.5, 30.5);
    tick();
    EXPECT_EQ(root()->hover(), widget("spot"));
    EXPECT_EQ(drain(), (Lines{"(script): select Gui at 210.5,30.5"}));
    // Its box ends before x + width.
    in.setCursor(240, 30);
    tick();
    EXPECT_EQ(root()->hover(), nullptr);
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(Kit, AnInputTakesFocusByAPressInsideAndKeysWhileItHasIt)
{
    GuiInput* design = nullptr;
    open([&](RtnApplication& app) {
        design = new GuiInput();
        design->name = "name";
        design->text = "ab";
        design->position = ScnVec3{20, 130, 0};
        design->size = ScnVec3{120, 23, 0};
        app.gui.node.append(design);
        auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
        RtnRegister* r = p->createRegister(2);
        design->addEvents(r->functions);
        r->functions.setCode(GuiInput::OnEnter, "print('enter ' .. event:getText())");
        r->marking.append(design);
    });
    m_doc.toggleSimulation();
    auto* input = dynamic_cast<GuiInput*>(widget("name"));
    ASSERT_NE(input, nullptr);
    InputState& in = InputState::instance();
    tick();
    type('x');
    EXPECT_EQ(input->text.value, "ab") << "no focus, no keys";

    // A press right of the text puts the cursor at its end.
    press(100, 140);
    release();
    EXPECT_EQ(GuiRoot::focus(), input);
    EXPECT_EQ(input->cursor(), 2);
    type('c');
    in.setKey(InputState::KeyShift, true);
    type('d');
    in.setKey(InputState::KeyShift, false);
    type(InputState::KeyLeft);
    type(129);  // BACKSPACE: the "c" before the cursor
    EXPECT_EQ(input->text.value, "abD");
    EXPECT_EQ(input->cursor(), 2);
    drain();
    type(132);
    EXPECT_EQ(drain(), (Lines{"(script): enter abD"}));

    // A press on the button lets focus go, and the button has its press.
    pause();
    press(160, 110);
    EXPECT_EQ(GuiRoot::focus(), nullptr);
    EXPECT_EQ(drain(), (Lines{"(script): down go 10,10"}));
    release();
    type('z');
    EXPECT_EQ(input->text.value, "abD");

    // The character under the mouse: left of the first advance is 0.
    EXPECT_EQ(input->characterAt(20), 0);
    EXPECT_EQ(input->characterAt(20 + GuiDraw::textWidth("a", 1)), 1);
    EXPECT_EQ(input->characterAt(1000), 3);
}

TEST_F(Kit, SioReportsTheMouseButtonsWheelAndKeys)
{
    open();
    m_doc.toggleSimulation();
    lua_State* L = AppGlobal::luaState();
    auto eval = [&](const char* expr) {
        std::string code = std::string("return tostring(") + expr + ")";
        if (luaL_dostring(L, code.c_str()) != 0) {
            std::string e = lua_tostring(L, -1);
            lua_pop(L, 1);
            return "error: " + e;
        }
        std::string r = lua_tostring(L, -1);
        lua_pop(L, 1);
        return r;
    };
    InputState& in = InputState::instance();
    in.setCursor(160, 112);
    in.setButton(1, true);
    in.addWheel(-2);
    in.setKey('x', true);
    in.setKey(InputState::KeyShift, true);
    in.sample(1000, 256, 192);
    EXPECT_EQ(eval("sio.getMouseX()"), "160");
    EXPECT_EQ(eval("sio.getMouseY()"), "112");
    EXPECT_EQ(eval("sio.getMouseWheel()"), "-2");
    EXPECT_EQ(eval("sio.isMousePressed(sio.MB_LEFT)"), "false") << "not held on the frame it went down";
    EXPECT_EQ(eval("sio.isMousePressed(sio.MB_RIGHT)"), "false");
    EXPECT_EQ(eval("sio.isKeyPressed('x')"), "true") << "upper-cased: code 88, written while Shift is down";
    EXPECT_EQ(eval("sio.isKeyPressed(120)"), "false");
    EXPECT_EQ(eval("sio.isKeyPressed(sio.VK_SHIFT)"), "true");
    EXPECT_EQ(eval("sio.VK_RETURN .. ' ' .. sio.VK_ESCAPE .. ' ' .. sio.MB_RIGHT"), "132 138 2");
    EXPECT_NE(eval("sio.isMousePressed(3)").find("iso.MB_LEFT, ios.MB_RIGHT expected"), std::string::npos);
    EXPECT_NE(eval("sio.isMousePressed(1.5)").find("iso.MB_LEFT, ios.MB_RIGHT expected"), std::string::npos);
    EXPECT_NE(eval("sio.isKeyPressed({})").find("Key code expected"), std::string::npos);
    in.age();
    in.sample(1100, 256, 192);
    EXPECT_EQ(eval("sio.isMousePressed(sio.MB_LEFT)"), "true");
    EXPECT_EQ(eval("sio.getMouseWheel()"), "0");
    EXPECT_EQ(eval("sio.getMouseX(42)"), "160") << "not a node: as with no argument";
}

TEST_F(Kit, SteadyFramesWithWidgetsAllocateNothing)
{
    open([](RtnApplication& app) {
        static_cast<GuiLabel*>(app.gui.node.getChild(0))->text = "Steady";
        // A long list of leaves: the event walk serves each one after the
        // siblings that follow it, more than its inline list holds.
        for (int i = 0; i < 40; ++i) {
            auto* b = new GuiButton();
            b->name = "b" + std::to_string(i);
            b->position = ScnVec3{300.0 + (i % 8) * 20, 20.0 + (i / 8) * 20, 0};
            b->size = ScnVec3{18, 18, 0};
            app.gui.node.append(b);
        }
    });
    m_doc.toggleSimulation();
    InputState& in = InputState::instance();
    in.setCursor(160, 110);
    auto* label = dynamic_cast<GuiLabel*>(widget("caption"));
    ASSERT_NE(label, nullptr);
    // Warm, repainting as the measured frames do: the batches reach their
    // size and the driver has compiled what a repaint draws with.
    for (int i = 0; i < 3; ++i) {
        label->invalidate();
        tick();
    }
    drain();
    // Every frame repaints: the label is invalidated each time.
    const long before = g_allocations;
    for (int i = 0; i < 5; ++i) {
        label->invalidate();
        tick();
    }
    EXPECT_EQ(g_allocations - before, 0);
    EXPECT_EQ(root()->childCount(), 42);
    EXPECT_FLOAT_EQ(GuiDraw::depth(), 9999.0f) << "the depth does not creep from frame to frame";
    EXPECT_EQ(GuiDraw::clipDepth(), 0);
    EXPECT_EQ(GuiDraw::lineVertices() + GuiDraw::triangleVertices() + GuiDraw::textVertices(), 0)
        << "the batches are sent by the end of the frame";
    expectNear(pixelAt(25, 35), over(1, 1, 1, 0.9f, pixelAt(5, 5)), "still drawn");
}

TEST_F(Kit, DrawingLayerEdgeCases)
{
    GlScope gl;
    ASSERT_TRUE(gl.ok());
    ASSERT_NE(GuiDraw::font(), nullptr);
    GuiDraw::flush();
    const float depth = GuiDraw::depth();
    GuiDraw::text(10, 10, "", 0);
    GuiDraw::text(10, 10, nullptr, 5);
    EXPECT_EQ(GuiDraw::textVertices(), 0);
    EXPECT_EQ(GuiDraw::depth(), depth) << "the paired depth changes cancel";

    // A tab is four spaces: their glyphs and their advance.
    GuiDraw::text(0, 0, "\t", 1);
    EXPECT_EQ(GuiDraw::textVertices(), 24);
    GuiDraw::flush();
    // Line breaks are measured like any byte.
    EXPECT_EQ(GuiDraw::textWidth("a\nb", 3),
              static_cast<int>((GuiDraw::font()->glyphs['a'].xadvance + GuiDraw::font()->glyphs['\n'].xadvance +
                                GuiDraw::font()->glyphs['b'].xadvance) *
                                   GuiDraw::textScale() +
                               0.5f));

    // Clips nest as intersections; a box outside leaves an empty entry, and
    // the scissor it gives has no negative size.
    GuiDraw::resetClip(0, 0, 200, 100);
    ScnBox a;
    a.min[0] = 10, a.min[1] = 20, a.max[0] = 150, a.max[1] = 300;
    GuiDraw::pushClip(a, 2, 3);
    const float* top = GuiDraw::clipTop();
    EXPECT_EQ((std::array<float, 4>{top[0], top[1], top[2], top[3]}), (std::array<float, 4>{12, 23, 148, 100}));
    ScnBox outside;
    outside.min[0] = 500, outside.min[1] = 500, outside.max[0] = 600, outside.max[1] = 600;
    GuiDraw::pushClip(outside, 0, 0);
    GLint scissor[4] = {};
    glGetIntegerv(GL_SCISSOR_BOX, scissor);
    EXPECT_EQ(scissor[2], 0);
    EXPECT_EQ(scissor[3], 0);
    EXPECT_EQ(GuiDraw::clipDepth(), 2);
    GuiDraw::popClip();
    glGetIntegerv(GL_SCISSOR_BOX, scissor);
    EXPECT_EQ((std::array<int, 4>{scissor[0], scissor[1], scissor[2], scissor[3]}),
              (std::array<int, 4>{12, 23, 137, 78}))
        << "a pop adds 1.1 to the size";
    GuiDraw::popClip();
    EXPECT_EQ(GuiDraw::clipDepth(), 0);

    // Nested deeper than the stack: every push narrows the scissor, and the
    // pops come back down through the same boxes.
    for (int i = 0; i < GuiDraw::kClipDepth + 5; ++i) {
        ScnBox b;
        b.min[0] = i, b.min[1] = i, b.max[0] = 200 - i, b.max[1] = 100 - i;
        GuiDraw::pushClip(b, 0, 0);
    }
    glGetIntegerv(GL_SCISSOR_BOX, scissor);
    EXPECT_EQ(scissor[0], GuiDraw::kClipDepth + 4) << "the deepest box clips";
    for (int i = 0; i < 5; ++i) GuiDraw::popClip();
    EXPECT_EQ(GuiDraw::clipTop()[0], GuiDraw::kClipDepth - 2);
    for (int i = 0; i < GuiDraw::kClipDepth; ++i) GuiDraw::popClip();
    EXPECT_EQ(GuiDraw::clipDepth(), 0) << "as many pops as pushes lead back to the bottom";
    EXPECT_EQ(GuiDraw::clipTop()[2], 200);

    // A fill is two triangles moved inward by the inset and 0.1.
    GuiDraw::setColor(GuiDraw::palette(GuiDraw::Window));
    GuiDraw::fillRect(a, 1, 1);
    EXPECT_EQ(GuiDraw::triangleVertices(), 6);
    GuiDraw::bevel(a, GuiDraw::Sunken);
    EXPECT_EQ(GuiDraw::lineVertices(), 16);
    EXPECT_EQ(std::vector<float>(GuiDraw::color(), GuiDraw::color() + 3),
              std::vector<float>(GuiDraw::palette(GuiDraw::Light3D), GuiDraw::palette(GuiDraw::Light3D) + 3))
        << "a sunken bevel ends with 3DLIGHT";
    GuiDraw::flush();
    EXPECT_EQ(GuiDraw::triangleVertices() + GuiDraw::lineVertices(), 0);
}

namespace {

// A program whose gs_Viewport is read back: a vec4 as the kit's own.
constexpr const char* kViewportVertex =
    "#version 330\nuniform vec4 gs_Viewport;\nin vec4 gs_Vertex;\nvoid main()\n{\n"
    "    gl_Position = gs_Vertex / gs_Viewport;\n}";
constexpr const char* kViewportFragment =
    "#version 330\nlayout(location = 0) out vec4 c;\nvoid main()\n{\n    c = vec4(1);\n}";

std::array<float, 4> viewportOf(ScnNode* node)
{
    std::array<float, 4> v{-1, -1, -1, -1};
    auto* shader = dynamic_cast<ScnShader*>(node);
    if (!shader || !shader->program) return v;
    GlScope gl;
    glGetUniformfv(shader->program, glGetUniformLocation(shader->program, "gs_Viewport"), v.data());
    return v;
}

ScnShader* viewportShader(const char* name)
{
    auto* s = new ScnShader();
    s->name = name;
    s->vertex = kViewportVertex;
    s->fragment = kViewportFragment;
    return s;
}

}  // namespace

TEST_F(Kit, TheApplicationsUpdateBoxesWidgetsAndTellsShadersTheirPicture)
{
    open([](RtnApplication& app) {
        GuiRoot& root = app.gui.node;
        root.append(viewportShader("rootShader"));
        auto* panel = new GuiComponent<ScnGroup>("panel", 0, 0, true);
        panel->position = ScnVec3{40, 50, 0};
        panel->size = ScnVec3{200, 120, 0};
        panel->append(viewportShader("panelShader"));
        root.append(panel);
        // A picture smaller than the view, and a shader in the world: the
        // root is not its target.
        root.dim0 = 320;
        root.dim1 = 200;
        app.openGL.node.append(viewportShader("worldShader"));
    });
    // Straight after the build the update walk has boxed every widget from
    // its fields, one pixel short of x + width and y + height.
    const ScnBox label = widget("caption")->getBounds();
    EXPECT_EQ((std::array<double, 4>{label.min[0], label.min[1], label.max[0], label.max[1]}),
              (std::array<double, 4>{20, 30, 119, 69}));
    const ScnBox panel = widget("panel")->getBounds();
    EXPECT_EQ((std::array<double, 4>{panel.min[0], panel.min[1], panel.max[0], panel.max[1]}),
              (std::array<double, 4>{40, 50, 239, 169}));
    // A shader under the root draws into the root's picture.
    const float w = static_cast<float>(root()->dim0.value), h = static_cast<float>(root()->dim1.value);
    EXPECT_EQ(viewportOf(widget("rootShader")), (std::array<float, 4>{w, h, 1, 1}));
    ScnNode* inner = widget("panel")->findChild("panelShader");
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(viewportOf(inner), (std::array<float, 4>{w, h, 1, 1})) << "the update gives the target's size";
    ASSERT_EQ(w, 320.0f);
    const std::array<float, 4> world = viewportOf(m_doc.runtime()->branch(CmdApplication::World)->findChild("worldShader"));
    EXPECT_NE(world[0], w) << "a shader outside the root is not told the root's picture";

    // The render walk gives a shader its parent's extent: the panel's size.
    tick();
    EXPECT_EQ(viewportOf(inner), (std::array<float, 4>{200, 120, 1, 1}));
    EXPECT_EQ(viewportOf(widget("rootShader")), (std::array<float, 4>{w, h, 1, 1}));
    // The event walk leaves the box reaching to x + width.
    EXPECT_EQ(widget("caption")->getBounds().max[0], 120);
}

TEST_F(Kit, AnInputTakesFocusByEitherButtonAndSelectsByMouseAndKeys)
{
    open([&](RtnApplication& app) {
        auto* input = new GuiInput();
        input->name = "name";
        input->text = "hello";
        input->position = ScnVec3{20, 130, 0};
        input->size = ScnVec3{120, 23, 0};
        app.gui.node.append(input);
    });
    m_doc.toggleSimulation();
    auto* input = dynamic_cast<GuiInput*>(widget("name"));
    ASSERT_NE(input, nullptr);
    InputState& in = InputState::instance();
    auto click = [&](int button, double x) {
        press(x, 140, button);
        release(button);
        pause();
    };
    // The x where character i of the text begins (the text starts 3 in).
    auto at = [&](int i) { return 20.0 + GuiDraw::textWidth("hello", i) + 1; };
    tick();

    // A right press inside takes focus and puts the cursor there; outside,
    // a right press lets it go.
    click(2, at(2));
    EXPECT_EQ(GuiRoot::focus(), input);
    EXPECT_EQ(input->cursor(), 2);
    EXPECT_EQ(input->selectionStart(), input->selectionEnd());
    click(2, 300);
    EXPECT_EQ(GuiRoot::focus(), nullptr);
    click(1, at(1));
    EXPECT_EQ(GuiRoot::focus(), input);
    EXPECT_EQ(input->cursor(), 1);

    // Dragging with the left button held selects from the cursor to the
    // mouse, whichever way it goes.
    press(at(1), 140);
    in.setCursor(at(4), 140);
    tick();
    tick();
    EXPECT_EQ(input->selectionStart(), 1);
    EXPECT_EQ(input->selectionEnd(), 4);
    in.setCursor(at(0), 140);
    tick();
    EXPECT_EQ(input->selectionStart(), 0);
    EXPECT_EQ(input->selectionEnd(), 1);
    release();
    pause();

    // The selection is drawn: HIGHLIGHT behind it, WINDOW beside it.
    press(at(1), 140);
    in.setCursor(at(5), 140);
    tick();
    tick();
    release();
    ASSERT_EQ(input->selectionStart(), 1);
    ASSERT_EQ(input->selectionEnd(), 5);
    {
        const Pixel bg = pixelAt(5, 5);
        expectNear(pixelAt(static_cast<int>(at(3)), 133), over(0.2f, 0.6f, 1, 0.9f, bg), "selection fill");
        expectNear(pixelAt(23, 133), over(1, 1, 1, 0.9f, bg), "unselected background");
        // Black glyphs would take the green of the fill away; HIGHLIGHTTEXT
        // is white.
        GlContext* c = GlContext::active();
        const std::vector<uint8_t> f = c->readFrame();
        int dark = 0, light = 0;
        for (int y = 134; y < 150; ++y)
            for (int x = static_cast<int>(at(3)); x < static_cast<int>(at(5)); ++x) {
                const int g = f[(static_cast<size_t>(y) * c->width() + x) * 4 + 1];
                dark += g < 100;
                light += g > 200;
            }
        EXPECT_EQ(dark, 0) << "the selected text is not drawn in TEXT";
        EXPECT_GT(light, 5) << "the selected text is drawn in HIGHLIGHTTEXT";
    }
    // A key replaces the selection.
    type('j');
    EXPECT_EQ(input->text.value, "hj");
    EXPECT_EQ(input->cursor(), 2);
    pause();

    // Shift with the arrows moves the ends of the selection; without Shift
    // an arrow collapses it; DELETE and BACKSPACE take a selection whole.
    in.setKey(InputState::KeyShift, true);
    type(InputState::KeyLeft);
    pause();
    type(InputState::KeyLeft);
    pause();
    type(InputState::KeyLeft);
    in.setKey(InputState::KeyShift, false);
    EXPECT_EQ(input->selectionStart(), 0) << "not below 0";
    EXPECT_EQ(input->selectionEnd(), 2);
    pause();
    type(InputState::KeyRight);
    EXPECT_EQ(input->selectionStart(), input->selectionEnd()) << "collapsed";
    EXPECT_EQ(input->cursor(), 2) << "to its end";
    pause();
    in.setKey(InputState::KeyShift, true);
    type(InputState::KeyLeft);
    in.setKey(InputState::KeyShift, false);
    pause();
    type(127);
    EXPECT_EQ(input->text.value, "h");
    EXPECT_EQ(input->cursor(), 1);

    // A double click selects all; BACKSPACE removes it.
    input->setText("abc");
    press(at(1), 140);
    release();
    in.setButton(1, true);
    tick();
    EXPECT_EQ(input->selectionStart(), 0);
    EXPECT_EQ(input->selectionEnd(), 3);
    release();
    type(129);
    EXPECT_EQ(input->text.value, "");
}

TEST_F(Kit, IconCellsAreDrawnUprightFromTheAtlas)
{
    GlScope gl;
    ASSERT_TRUE(gl.ok());
    GuiDraw::buildPrograms();
    GuiDraw::loadIcons();
    ASSERT_NE(GuiDraw::iconTexture(), 0u);
    EXPECT_EQ(GuiDraw::iconWidth(), 512);
    EXPECT_EQ(GuiDraw::iconHeight(), 512);
    float s0, t0, s1, t1;
    GuiDraw::iconCell(33, s0, t0, s1, t1);
    EXPECT_FLOAT_EQ(s0, 1 / 32.0f + 0.001f);
    EXPECT_FLOAT_EQ(t0, 0.25f + 1 / 32.0f);
    EXPECT_FLOAT_EQ(t1, 0.25f);

    // Cells 0 (folder) and 1 (file), each drawn 32 by 32 pixels into a
    // picture of our own, so one atlas pixel is two of the picture.
    const int w = 100, h = 50;
    GLuint target = 0, fbo = 0;
    glGenTextures(1, &target);
    glBindTexture(GL_TEXTURE_2D, target);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, target, 0);
    glViewport(0, 0, w, h);
    GuiDraw::setViewport(w, h);
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_SCISSOR_TEST);
    glDisable(GL_BLEND);
    glClearColor(0, 0, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, GuiDraw::iconTexture());
    for (int n : {0, 1}) {
        ScnBox box;
        box.min[0] = 10 + 40 * n, box.min[1] = 10, box.max[0] = 42 + 40 * n, box.max[1] = 42;
        GuiDraw::iconCell(n, s0, t0, s1, t1);
        GuiDraw::texturedQuad(box, 0, 0, s0, t0, s1, t1);
    }
    glBindTexture(GL_TEXTURE_2D, 0);
    std::string failure;
    const std::vector<uint8_t> picture = GlPlatform::readFramebuffer(fbo, w, h, failure);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &fbo);
    glDeleteTextures(1, &target);
    glEnable(GL_DEPTH_TEST);
    ASSERT_EQ(picture.size(), static_cast<size_t>(w * h * 4)) << failure;
    // The picture's pixel for the cell pixel (x, y), y from the cell's top.
    auto at = [&](int n, double x, double y) {
        const size_t px = static_cast<size_t>(10 + 40 * n + static_cast<int>(x * 2));
        const size_t py = static_cast<size_t>(10 + static_cast<int>((16 - y) * 2));
        const uint8_t* q = picture.data() + (py * w + px) * 4;
        return Pixel{q[0], q[1], q[2], q[3]};
    };
    auto near = [](const Pixel& p, int r, int g, int b, const char* what) {
        EXPECT_NEAR(p[0], r, 12) << what;
        EXPECT_NEAR(p[1], g, 12) << what;
        EXPECT_NEAR(p[2], b, 12) << what;
    };
    near(at(0, 8, 10), 232, 188, 64, "the folder's body");
    near(at(0, 4, 3), 190, 145, 40, "its tab, at the top left");
    near(at(0, 12, 2), 192, 192, 192, "the background above its right side");
    near(at(1, 8, 3.5), 250, 250, 250, "the file's paper");
    near(at(1, 1.5, 8), 192, 192, 192, "left of the page");
}

TEST_F(Kit, OnlyWhatChangedIsRedrawnAndCtrlGHidesTheWidgetsWhileEditing)
{
    open([](RtnApplication& app) { static_cast<GuiLabel*>(app.gui.node.getChild(0))->text = "Hi"; });
    InputState& in = InputState::instance();
    // CONTROL is held from the frame after it went down.
    auto ctrlG = [&]() {
        in.setKey(InputState::KeyControl, true);
        tick();
        in.setKey('g', true);
        tick();
        in.setKey('g', false);
        in.setKey(InputState::KeyControl, false);
        tick();
    };
    tick();
    const Pixel bg = pixelAt(5, 5);
    const std::array<int, 3> fill = over(1, 1, 1, 0.9f, bg);
    expectNear(pixelAt(25, 35), fill, "shown");
    ctrlG();
    EXPECT_FALSE(root()->visible());
    expectNear(pixelAt(25, 35), {bg[0], bg[1], bg[2]}, "hidden by Ctrl+G");
    ctrlG();
    EXPECT_TRUE(root()->visible());
    expectNear(pixelAt(25, 35), fill, "shown again");

    // Running: Ctrl+G does nothing, and a frame leaves the dirty rectangle
    // empty.
    m_doc.toggleSimulation();
    tick();
    ctrlG();
    EXPECT_TRUE(root()->visible());
    EXPECT_TRUE(root()->dirtyEmpty());
    const int before = darkIn(20, 30, 120, 70, 100);
    ASSERT_GT(before, 0);

    // A field changed behind the kit's back is not drawn: nothing asked for
    // it. setText asks for the label's own box, and only that.
    auto* label = dynamic_cast<GuiLabel*>(widget("caption"));
    label->text = "Hello there, world";
    tick();
    EXPECT_EQ(darkIn(20, 30, 120, 70, 100), before) << "not redrawn";
    lua_State* L = AppGlobal::luaState();
    ScnLua::setGlobalNode(L, "caption", label);
    ASSERT_EQ(luaL_dostring(L, "caption:setText('Hello there, world')"), 0) << lua_tostring(L, -1);
    const double* d = root()->dirty();
    EXPECT_EQ((std::array<double, 4>{d[0], d[1], d[3], d[4]}), (std::array<double, 4>{20, 30, 120, 70}));
    tick();
    EXPECT_GT(darkIn(20, 30, 120, 70, 100), before) << "redrawn";

    // Hiding invalidates while the old flag still stands; showing waits for
    // the next invalidation.
    ASSERT_EQ(luaL_dostring(L, "caption:setVisible(false)"), 0) << lua_tostring(L, -1);
    EXPECT_FALSE(root()->dirtyEmpty());
    tick();
    expectNear(pixelAt(25, 35), {bg[0], bg[1], bg[2]}, "hidden label");
    ASSERT_EQ(luaL_dostring(L, "caption:setVisible(true)"), 0) << lua_tostring(L, -1);
    EXPECT_TRUE(root()->dirtyEmpty());
    tick();
    expectNear(pixelAt(25, 35), {bg[0], bg[1], bg[2]}, "shown, but not yet drawn");
    label->invalidate();
    tick();
    expectNear(pixelAt(25, 35), fill, "drawn with the next invalidation");
    ScnLua::clearGlobalNode(L, "caption");
}
