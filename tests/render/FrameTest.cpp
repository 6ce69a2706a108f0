// The frame step and the render walk with Mesa: what scripts see, which
// shader reaches which node, the render queue, the world's event pass, the gl
// module, and a walk that allocates nothing.
#include <EGL/egl.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "render/ScnCamera.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnWorld.h"
#include "support/AllocationCounter.h"
#include "RenderSupport.h"

namespace {

// "r,g,b" of the centre of what the main camera has drawn so far into the
// framebuffer it shows.
int luaCentre(lua_State* L)
{
    ScnCamera* camera = ScnScene::mainCamera();
    ScnFramebuffer* fb = camera ? camera->displayFramebuffer() : nullptr;
    if (!fb || !fb->fbo) return luaL_error(L, "no framebuffer to read");
    uint8_t p[4] = {};
    glBindFramebuffer(GL_READ_FRAMEBUFFER, fb->fbo);
    glReadBuffer(GL_COLOR_ATTACHMENT0);
    glReadPixels(fb->width.value / 2, fb->height.value / 2, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, p);
    GlPlatform::bindScreen();
    lua_pushfstring(L, "%d,%d,%d", p[0], p[1], p[2]);
    return 1;
}

// True when some GL context is current on this thread at the moment of the call.
int luaGlCurrent(lua_State* L)
{
    lua_pushboolean(L, eglGetCurrentContext() != EGL_NO_CONTEXT);
    return 1;
}

using Frame = RenderDoc;

}  // namespace

TEST_F(Frame, ScriptsSeeTheFrameDrawnBeforeTheirOnTime)
{
    lua_register(AppGlobal::luaState(), "centre", luaCentre);
    RtnApplication app;
    app.openGL.node.append(colourShader("green", 0, 1, 0));
    app.openGL.node.append(colourShader("red", 1, 0, 0));
    app.openGL.node.append(new TestQuad());
    auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    p->createRegister(0)->functions.setCode(0, "print('saw ' .. centre()); OpenGL.red:setEnabled(false)");
    openApp(app);
    m_doc.toggleSimulation();
    TestQuad::s_log = true;
    tick();
    // Drawn with the red shader; the script then hides it for the next frame.
    EXPECT_EQ(drain(), (Lines{"(quad): render", "(script): saw 255,0,0"}));
    tick();
    EXPECT_EQ(drain(), (Lines{"(quad): render", "(script): saw 0,255,0"}))
        << "a hidden shader leaves its siblings to the shader above it";
}

TEST_F(Frame, EditModeDrawsTheAxesAndRunningDoesNot)
{
    RtnApplication app;  // an empty world: only the marks can show
    // Drawn at the view's size, so that lines one pixel wide are not lost
    // when the framebuffer is shown.
    auto* fb = static_cast<ScnFramebuffer*>(app.camera.node.getChild(0));
    fb->width = m_width;
    fb->height = m_height;
    openApp(app);
    auto lit = [] {
        GlContext* c = GlContext::active();
        c->swapBuffers();
        std::vector<uint8_t> f = c->readFrame();
        int n = 0;
        for (size_t i = 0; i < f.size(); i += 4) n += f[i] || f[i + 1] || f[i + 2];
        return n;
    };
    tick();
    EXPECT_GT(lit(), 0) << "axes while not running";
    m_doc.toggleSimulation();
    tick();
    EXPECT_EQ(lit(), 0) << "no marks while running";
}

TEST_F(Frame, GlobalTextsAndLoadTimeDepositRunWithTheContextCurrent)
{
    lua_register(AppGlobal::luaState(), "glCurrent", luaGlCurrent);
    ASSERT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT) << "the test must start with no context current";
    RtnApplication app;
    app.luaglobal = "print('application ' .. tostring(glCurrent()))";
    auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    p->luaglobal = "print('processor ' .. tostring(glCurrent()))";
    RtnRegister* r = p->createRegister(0);
    r->functions.setCode(RtnRegister::OnDeposit, "print('deposit ' .. tostring(glCurrent()))");
    r->deposit(&app.openGL.node);
    openApp(app, true);
    EXPECT_EQ(drain(), (Lines{"(script): application true", "(script): processor true", "(script): deposit true"}));
    m_doc.reset();
    Lines again = drain();
    EXPECT_NE(std::find(again.begin(), again.end(), "(script): processor true"), again.end());
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
}

class Render : public GlTest {};

namespace {

// Notes, as the destroy walk reaches it, whether the current shader's program
// still exists.
class ProgramProbe : public ScnNode {
    SCN_NODE(ProgramProbe, ScnNode)
public:
    ProgramProbe() = default;
    int alive = -1;
    void onDestroy(ScnAction& action) override
    {
        ScnShader* s = ScnScene::currentShader;
        alive = s && s->program && glIsProgram(s->program);
        ScnNode::onDestroy(action);
    }
};
ScnNodeType ProgramProbe::s_type;

}  // namespace

// A shader reaches only the siblings that follow it: the red one inside a
// group leaves the quad after the group to green. A run of shaders as long
// as this one would take each a call deeper: the walks go along it in a loop
// and still undo each shader's state in order.
TEST_F(Render, ShadersReachTheSiblingsAfterThemAndAHundredThousandUnwindInOrder)
{
    ScnWorld world;
    ScnShader* green = colourShader("green", 0, 1, 0);
    world.append(green);
    auto* probe = new ProgramProbe();
    world.append(probe);
    auto* inner = new ScnGroup();
    inner->append(colourShader("red", 1, 0, 0));
    world.append(inner);
    for (int i = 0; i < 100000; ++i) world.append(new ScnShader());  // no texts: no program, green stays in use
    world.append(new TestQuad());
    {
        ScnActionCreate create;
        create.apply(&world);
    }
    ASSERT_NE(green->program, 0u);
    uint8_t running = Engine::running;
    Engine::running = 25;  // no axes
    GlPlatform::bindScreen();
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    {
        ScnActionUpdate update;
        update.apply(&world);
        ScnActionRender render(nullptr, 256, 192);
        render.apply(&world);
    }
    Engine::running = running;
    EXPECT_EQ(centrePixel(), (Pixel{0, 255, 0, 255}));
    EXPECT_EQ(ScnScene::currentShader, nullptr) << "the walk leaves no shader current";
    GLint program = -1;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    EXPECT_EQ(program, 0);
    ScnActionDestroy destroy;
    destroy.apply(&world);
    EXPECT_EQ(probe->alive, 1) << "a shader's program outlives the destroy of the nodes after it";
    EXPECT_EQ(green->program, 0u);
    EXPECT_EQ(ScnScene::currentShader, nullptr);
}

TEST_F(Render, WalkAllocatesNothingPerFrame)
{
    ScnWorld world;
    for (int i = 0; i < 20; ++i) {
        auto* g = new ScnGroup();
        g->append(colourShader("s", 0, 0, 1));
        for (int j = 0; j < 20; ++j) g->append(new ScnGroup());
        g->append(new TestQuad());
        world.append(g);
    }
    {
        ScnActionCreate create;
        create.apply(&world);
    }
    ScnCamera camera;
    camera.setMatrix(ScnMatrix16::translation(0, 0, 12));
    auto frame = [&] {
        ScnActionEvent event(&camera);
        event.apply(&world);
        ScnRenderScene scene(&camera, 256, 192);
        GlPlatform::bindScreen();
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        scene.action.apply(&world);  // axes included: not running
    };
    frame();  // first frame: static buffers are made
    long before = g_allocations;
    for (int i = 0; i < 5; ++i) frame();
    EXPECT_EQ(g_allocations - before, 0);
    EXPECT_EQ(centrePixel(), (Pixel{0, 0, 255, 255}));
    ScnActionDestroy destroy;
    destroy.apply(&world);
}

TEST_F(Render, WorldEventSetsStepAndSceneBox)
{
    ScnWorld world;
    world.append(new TestQuad());
    uint8_t running = Engine::running;
    Engine::running = 25;
    ScnActionEvent event;
    event.apply(&world);
    EXPECT_DOUBLE_EQ(world.step, 0.025);
    EXPECT_DOUBLE_EQ(ScnScene::sceneBox[0], -1);
    EXPECT_DOUBLE_EQ(ScnScene::sceneBox[5], 1);
    EXPECT_DOUBLE_EQ(ScnScene::sceneBox[6], std::sqrt(12.0));
    Engine::running = 0;
    ScnActionEvent still;
    still.apply(&world);
    EXPECT_DOUBLE_EQ(world.step, 0);
    Engine::running = running;
}

TEST(RenderQueue, DrainsInOrderGrowsAndDropsTheOldMainCamera)
{
    ScnCamera a, b, c;
    for (int i = 0; i < 3; ++i) {
        ScnScene::enqueueCamera(&a);
        ScnScene::enqueueCamera(&b);
    }
    ScnScene::enqueueCamera(&c);
    EXPECT_EQ(ScnScene::queuedCameras(), 7);
    ScnScene::setMainCamera(&a);
    EXPECT_TRUE(a.active);
    ScnScene::setMainCamera(&b);  // a leaves the queue and is no longer active
    EXPECT_FALSE(a.active);
    std::vector<ScnCamera*> order;
    while (ScnCamera* q = ScnScene::dequeueCamera()) order.push_back(q);
    EXPECT_EQ(order, (std::vector<ScnCamera*>{&b, &b, &b, &c}));
    ScnScene::setMainCamera(nullptr);
    EXPECT_FALSE(b.active);
    EXPECT_EQ(ScnScene::mainCamera(), nullptr);
}

TEST_F(Render, GlModuleDrivesTheContextFromScripts)
{
    TempDir ws("velmora-gl-module");
    std::filesystem::create_directories(ws / "bindings/plugins");
    std::filesystem::copy_file(VELMORA_GL_PLUGIN, ws / "bindings/plugins/gl.so");
    lua_State* L = AppGlobal::newLuaState(ws.path());
    ASSERT_NE(L, nullptr);
    GlPlatform::bindScreen();
    glDisable(GL_BLEND);
    // Also point sprites: coordinates replaced, point size from the vertex program.
    const char* script =
        "gl.glViewport(0, 0, 256, 192)\n"
        "gl.glClearColor(1, 0, 1, 1)\n"
        "gl.glClear(gl.GL_COLOR_BUFFER_BIT + gl.GL_DEPTH_BUFFER_BIT)\n"
        "gl.glEnable(gl.GL_BLEND)\n"
        "gl.glBlendFunc(gl.GL_SRC_ALPHA, gl.GL_ONE_MINUS_SRC_ALPHA)\n"
        "gl.glDepthFunc(gl.GL_LEQUAL)\n"
        "gl.glEnable(gl.GL_POINT_SPRITE)\n"
        "gl.glTexEnvi(gl.GL_POINT_SPRITE, gl.GL_COORD_REPLACE, gl.GL_TRUE)\n"
        "gl.glEnable(gl.GL_VERTEX_PROGRAM_POINT_SIZE)\n"
        "return gl.glIsEnabled(gl.GL_BLEND), gl.GL_BLEND, gl.glIsEnabled(gl.GL_VERTEX_PROGRAM_POINT_SIZE), "
        "gl.glGetError()";
    ASSERT_EQ(luaL_loadstring(L, script), 0);
    ASSERT_EQ(lua_pcall(L, 0, 4, 0), 0) << lua_tostring(L, -1);
    EXPECT_TRUE(lua_toboolean(L, -4));
    EXPECT_EQ(lua_tonumber(L, -3), GL_BLEND);
    EXPECT_TRUE(lua_toboolean(L, -2));
    EXPECT_EQ(lua_tonumber(L, -1), GL_NO_ERROR);
    lua_pop(L, 4);
    EXPECT_EQ(centrePixel(), (Pixel{255, 0, 255, 255}));
    GLint replace = 0, depthFunc = 0;
    glGetTexEnviv(GL_POINT_SPRITE, GL_COORD_REPLACE, &replace);
    glGetIntegerv(GL_DEPTH_FUNC, &depthFunc);
    EXPECT_EQ(replace, GL_TRUE);
    EXPECT_EQ(depthFunc, GL_LEQUAL);
    glTexEnvi(GL_POINT_SPRITE, GL_COORD_REPLACE, GL_FALSE);
    glDisable(GL_POINT_SPRITE);
    glDisable(GL_VERTEX_PROGRAM_POINT_SIZE);
    // A bad argument is a Lua error in the caller's protected call.
    ASSERT_EQ(luaL_loadstring(L, "gl.glViewport('wide')"), 0);
    EXPECT_NE(lua_pcall(L, 0, 0, 0), 0);
    lua_close(L);
    glDisable(GL_BLEND);
    glClearColor(0, 0, 0, 0);
    glDepthFunc(GL_LESS);
}
