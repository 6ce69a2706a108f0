// Framebuffers in the frame: the scene drawn through the camera into the
// targets and shown on the screen quad, attachments chosen and refused,
// gs_Viewport, kernels reading a target, the render events and the clear of
// scripted and plain framebuffers, framebuffers feeding shaders inside a
// scene, roots, what a deleted root or display framebuffer leaves, the
// script methods and remade targets.
#include <dlfcn.h>

#include <algorithm>
#include <memory>
#include <string>

#include <lua.hpp>

#include "compute/OclGlobal.h"
#include "compute/OclLua.h"
#include "memory/MemGLObjects.h"
#include "memory/MemTypes.h"
#include "render/ScnCameraExamine.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnWorld.h"
#include "runtime/CmdNodes.h"
#include "RenderSupport.h"

namespace {

// Red into attachment 0, blue into attachment 1, through the camera's matrices.
ScnShader* twoColourShader()
{
    return shader("mrt", kMvpVertex,
                  "#version 330\nlayout(location = 0) out vec4 c0;\nlayout(location = 1) out vec4 c1;\n"
                  "void main() { c0 = vec4(1, 0, 0, 1); c1 = vec4(0, 0, 1, 1); }\n");
}

ScnGroup* group(const char* name)
{
    auto* g = new ScnGroup();
    g->name = name;
    return g;
}

ScnFramebuffer* framebuffer(const char* name, int w, int h)
{
    auto* fb = new ScnFramebuffer();
    fb->name = name;
    fb->width = w;
    fb->height = h;
    return fb;
}

GLint textureParameter(unsigned texture, GLenum which)
{
    GLint v = 0;
    glBindTexture(GL_TEXTURE_2D, texture);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, which, &v);
    glBindTexture(GL_TEXTURE_2D, 0);
    return v;
}

GLint renderbufferParameter(unsigned renderbuffer, GLenum which)
{
    GLint v = 0;
    glBindRenderbuffer(GL_RENDERBUFFER, renderbuffer);
    glGetRenderbufferParameteriv(GL_RENDERBUFFER, which, &v);
    glBindRenderbuffer(GL_RENDERBUFFER, 0);
    return v;
}

// The default OnPreRender script calls the gl module: loaded into the
// process's state as the plug-in folder would load it.
void loadGlModule()
{
    lua_State* L = AppGlobal::luaState();
    lua_getglobal(L, "gl");
    const bool loaded = lua_istable(L, -1);
    lua_pop(L, 1);
    if (loaded) return;
    void* lib = dlopen(VELMORA_GL_PLUGIN, RTLD_NOW);
    ASSERT_NE(lib, nullptr) << dlerror();
    auto open = reinterpret_cast<lua_CFunction>(dlsym(lib, "lib_open"));
    ASSERT_NE(open, nullptr);
    static char name[] = "gl";
    ASSERT_EQ(lua_cpcall(L, open, name), 0) << lua_tostring(L, -1);
}

class FramebufferFrame : public RenderDoc {
protected:
    void SetUp() override
    {
        RenderDoc::SetUp();
        if (!HasFatalFailure()) loadGlModule();
    }
    void TearDown() override
    {
        if (lua_State* L = AppGlobal::luaState()) luaL_dostring(L, "t0, t1, out, k, b = nil, nil, nil, nil, nil");
        m_kernel.reset();
        m_program.reset();
        RenderDoc::TearDown();
    }
    // The application's own framebuffer, the camera's first child.
    static ScnFramebuffer& designFramebuffer(RtnApplication& app)
    {
        return *static_cast<ScnFramebuffer*>(app.camera.node.getChild(0));
    }
    void open(RtnApplication& app)
    {
        openApp(app);
        m_doc.toggleSimulation();  // no axes
    }
    ScnCamera& camera() { return *static_cast<ScnCamera*>(m_doc.runtime()->branch(CmdApplication::Camera)); }
    ScnFramebuffer& runningFramebuffer() { return *static_cast<ScnFramebuffer*>(camera().getChild(0)); }
    ScnNode& world() { return *m_doc.runtime()->branch(CmdApplication::World); }
    oclKernel* kernel(const char* source, const char* name)
    {
        m_program = std::make_unique<oclProgram>(OclGlobal::currentContext(), "fbtest");
        m_program->addSource(source);
        EXPECT_EQ(m_program->build(), 1);
        cl_kernel k = clCreateKernel(m_program->handle(), name, &oclLastError);
        EXPECT_EQ(oclLastError, CL_SUCCESS) << name;
        m_kernel = std::make_unique<oclKernel>(m_program.get(), k);
        clReleaseKernel(k);
        return m_kernel.get();
    }
    std::unique_ptr<oclProgram> m_program;
    std::unique_ptr<oclKernel> m_kernel;
};

// Fills attachment 0 of a framebuffer with one colour.
void fill(ScnFramebuffer& fb, float r, float g, float b)
{
    glBindFramebuffer(GL_FRAMEBUFFER, fb.fbo);
    glViewport(0, 0, fb.width.value, fb.height.value);
    glClearColor(r, g, b, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glClearColor(0, 0, 0, 0);
    GlPlatform::bindScreen();
}

}  // namespace

TEST_F(FramebufferFrame, TheCameraDrawsIntoTheTargetsAndTheScreenQuadShowsTheChosenAttachment)
{
    RtnApplication app;
    app.openGL.node.append(twoColourShader());
    app.openGL.node.append(new TestQuad());  // -1..1 at z = 0, seen from (0, 0, 12)
    designFramebuffer(app).width = m_width / 2;  // shown twice as large
    designFramebuffer(app).height = m_height / 2;
    open(app);
    ScnFramebuffer& fb = runningFramebuffer();
    ASSERT_NE(fb.fbo, 0u);
    ASSERT_EQ(fb.targetCount(), 2);
    EXPECT_EQ(camera().displayFramebuffer(), &fb);
    {
        SCOPED_TRACE("the default format is RGBA in half floats, the depth a 24-bit renderbuffer");
        GlScope gl;
        EXPECT_EQ(textureParameter(fb.textureOf(1), GL_TEXTURE_INTERNAL_FORMAT), GL_RGBA16F);
        GLint attached = 0, depthType = 0;
        glBindFramebuffer(GL_FRAMEBUFFER, fb.fbo);
        glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT1,
                                              GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &attached);
        glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT,
                                              GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE, &depthType);
        GlPlatform::bindScreen();
        EXPECT_EQ(static_cast<unsigned>(attached), fb.textureOf(1));
        EXPECT_EQ(depthType, GL_RENDERBUFFER);
        EXPECT_EQ(renderbufferParameter(fb.renderbuffer, GL_RENDERBUFFER_INTERNAL_FORMAT), GL_DEPTH_COMPONENT24);
    }

    tick();
    // The quad's half size is 1 / (12 tan 30°) of the half height: about 14
    // pixels of the view; the framebuffer's size does not change where.
    const int cx = m_width / 2, cy = m_height / 2;
    const Pixel red{255, 0, 0, 255}, blue{0, 0, 255, 255}, black{0, 0, 0, 0};
    EXPECT_EQ(pixelAt(cx + 8, cy + 8), red);
    EXPECT_EQ(pixelAt(cx + 24, cy), black);
    EXPECT_EQ(pixelAt(cx, cy - 24), black);
    EXPECT_TRUE(drain().empty());

    lua("Camera:displayAttachment(1)");
    tick();
    EXPECT_EQ(pixelAt(cx - 8, cy - 8), blue) << "attachment 1 holds the second output";
    EXPECT_EQ(pixelAt(cx - 24, cy), black);

    // Nothing drawn: a plain framebuffer is cleared every frame.
    lua("OpenGL.mrt:setEnabled(false)");
    tick();
    EXPECT_EQ(centrePixel(), black);

    lua("Camera:displayAttachment(2)");
    tick();
    EXPECT_EQ(drain(), (Lines{"(ScnWorld): Invalid Framebuffer attachment 2"}));
    lua("Camera:displayAttachment(-1)");
    tick();
    EXPECT_EQ(drain(), (Lines{"(ScnWorld): Invalid Framebuffer attachment -1"}));
}

TEST_F(FramebufferFrame, GsViewportIsTheDisplayFramebuffersSize)
{
    RtnApplication app;
    app.openGL.node.append(shader("viewport", flatVertex(),
                                  "#version 330\nuniform vec2 gs_Viewport;\nout vec4 o;\n"
                                  "void main() { o = vec4(gs_Viewport / 1000.0, 0, 1); }\n"));
    app.openGL.node.append(new TestQuad());
    designFramebuffer(app).width = 200;
    designFramebuffer(app).height = 100;
    designFramebuffer(app).format = ScnImageFormat{CL_RGBA, CL_UNORM_INT8};
    open(app);
    tick();
    const Pixel p = centrePixel();
    EXPECT_NEAR(p[0], 0.2 * 255, 1) << "width 200";
    EXPECT_NEAR(p[1], 0.1 * 255, 1) << "height 100";
}

TEST_F(FramebufferFrame, AKernelReadsWhatTheCameraDrewIntoEachTarget)
{
    oclContext* context = OclGlobal::currentContext();
    ASSERT_NE(context, nullptr) << "no OpenCL platform on this machine";
    RtnApplication app;
    app.openGL.node.append(twoColourShader());
    app.openGL.node.append(new TestQuad());
    designFramebuffer(app).width = 64;
    designFramebuffer(app).height = 48;
    open(app);
    tick();
    oclKernel* k = kernel(
        "__kernel void sample(__read_only image2d_t img, __global float4* out, int w) {\n"
        "  int x = get_global_id(0), y = get_global_id(1);\n"
        "  out[y * w + x] = read_imagef(img, CLK_NORMALIZED_COORDS_FALSE | CLK_FILTER_NEAREST, (int2)(x, y));\n"
        "}\n",
        "sample");
    MemTypeBuffer out(context, 64 * 48, MemTypes::Float4, "out", CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR);
    lua_State* L = AppGlobal::luaState();
    OclLua::push(L, &out);
    lua_setglobal(L, "out");
    OclLua::push(L, k);
    lua_setglobal(L, "k");
    // Each target through the kernel: the centre has the drawn colour, the
    // corner the clear colour.
    lua("t0, t1 = Camera.framebuffer:getBuffer(0), Camera.framebuffer:getBuffer(1)\n"
        "local function read(t)\n"
        "  cl.clEnqueueAcquireGLObjects(t)\n"
        "  cl.clSetKernelArg(k, 0, t)\n"
        "  cl.clSetKernelArg(k, 1, out)\n"
        "  cl.clSetKernelArg(k, 2, cl.cl_int, 64)\n"
        "  cl.clEnqueueNDRangeKernel(k, 2, {64, 48})\n"
        "  cl.clEnqueueReleaseGLObjects(t)\n"
        "  mem.map(out, mem.READ)\n"
        "  local centre = table.concat({mem.get(out, 24 * 64 + 32)}, ' ')\n"
        "  local corner = table.concat({mem.get(out, 0)}, ' ')\n"
        "  mem.unmap(out)\n"
        "  return centre, corner\n"
        "end\n"
        "centre0, corner0 = read(t0)\n"
        "centre1, corner1 = read(t1)\n");
    EXPECT_EQ(global("centre0"), "1 0 0 1");
    EXPECT_EQ(global("corner0"), "0 0 0 0");
    EXPECT_EQ(global("centre1"), "0 0 1 1");
    EXPECT_EQ(global("corner1"), "0 0 0 0");
    EXPECT_TRUE(drain().empty());
}

TEST_F(FramebufferFrame, RenderEventsFireInFrameOrderAndAScriptedFramebufferIsClearedOnlyByItsScript)
{
    RtnApplication app;
    app.openGL.node.append(shader("red", kMvpVertex, colourFragment(1, 0, 0)));
    app.openGL.node.append(new TestQuad());
    designFramebuffer(app).width = m_width;
    designFramebuffer(app).height = m_height;
    auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    RtnRegister* cameraRegister = p->createRegister(0);
    cameraRegister->deposit(&app.camera.node);
    cameraRegister->functions.setCode(ScnCamera::OnPreRender, "print('camera pre')");
    cameraRegister->functions.setCode(ScnCamera::OnPostRender, "print('camera post')");
    RtnRegister* fbRegister = p->createRegister(1);
    fbRegister->deposit(&designFramebuffer(app));
    EXPECT_STREQ(fbRegister->functions.getCode(ScnFramebuffer::OnPreRender).c_str(), ScnFramebuffer::kDefaultPreRender);
    // Sets the viewport and clears the depth, not the colour.
    fbRegister->functions.setCode(ScnFramebuffer::OnPreRender,
                                  "print('fb pre ' .. event:dim(0) .. ' ' .. tostring(event))\n"
                                  "gl.glViewport(0, 0, event:dim(0), event:dim(1))\n"
                                  "gl.glClear(gl.GL_DEPTH_BUFFER_BIT)");
    fbRegister->functions.setCode(ScnFramebuffer::OnPostRender, "print('fb post')");
    cameraRegister->functions.setCode(RtnRegister::OnTime, "print('time')");
    open(app);
    TestQuad::s_log = true;
    tick();
    const std::string pre = "(script): fb pre " + std::to_string(m_width) + " ScnFramebuffer (framebuffer)";
    EXPECT_EQ(drain(), (Lines{"(script): camera pre", pre, "(quad): render", "(script): fb post",
                              "(script): camera post", "(script): time"}));
    EXPECT_EQ(centrePixel(), (Pixel{255, 0, 0, 255}));

    // Nothing is drawn any more, and nothing clears what was.
    lua("OpenGL.red:setEnabled(false)");
    tick();
    EXPECT_EQ(centrePixel(), (Pixel{255, 0, 0, 255})) << "a scripted framebuffer clears only what its script clears";

    // The default script, which the token brought, clears like the framebuffer itself does.
    auto* opened = static_cast<RtnProcessor*>(m_doc.application()->scripts.node.getChild(0));
    RtnRegister* openedRegister = opened->getRegister(1);
    ASSERT_NE(openedRegister, nullptr);
    openedRegister->setFunctionCode(ScnFramebuffer::OnPreRender, ScnFramebuffer::kDefaultPreRender);
    ASSERT_TRUE(openedRegister->compileFunction(ScnFramebuffer::OnPreRender));
    tick();
    EXPECT_EQ(centrePixel(), (Pixel{0, 0, 0, 0}));
    TestQuad::s_log = false;
    Lines errors;
    for (const std::string& line : drain())
        if (line.find("rror") != std::string::npos) errors.push_back(line);
    EXPECT_TRUE(errors.empty()) << errors[0];
}

TEST_F(FramebufferFrame, FramebuffersInASceneFeedTheShadersAfterThemOnUnitsOfTheirOwnAndEndTheirSiblingRun)
{
    RtnApplication app;
    ScnGroup* a = group("a");
    a->append(framebuffer("srcA", 4, 4));
    ScnGroup* b = group("b");
    b->append(framebuffer("srcB", 4, 4));
    b->append(shader("red", flatVertex(), colourFragment(1, 0, 0)));
    b->append(new TestQuad());  // never reached: the walk ends at srcB
    app.openGL.node.append(a);
    app.openGL.node.append(b);
    app.openGL.node.append(shader("sampler", flatVertex(),
                                  "#version 330\nuniform sampler2D srcA;\nuniform sampler2D srcB;\nout vec4 o;\n"
                                  "void main() { o = vec4(texture(srcA, vec2(0.5)).r, texture(srcB, vec2(0.5)).g, "
                                  "0, 1); }\n"));
    app.openGL.node.append(new TestQuad());
    open(app);
    auto* srcA = dynamic_cast<ScnFramebuffer*>(world().findChild("a")->findChild("srcA"));
    auto* srcB = dynamic_cast<ScnFramebuffer*>(world().findChild("b")->findChild("srcB"));
    ASSERT_TRUE(srcA && srcB && srcA->fbo && srcB->fbo);
    {
        GlScope gl;
        fill(*srcA, 1, 0, 0);
        fill(*srcB, 0, 1, 0);
    }
    TestQuad::s_log = true;
    tick();
    TestQuad::s_log = false;
    EXPECT_EQ(drain(), (Lines{"(quad): render"}));
    EXPECT_EQ(centrePixel(), (Pixel{255, 255, 0, 255})) << "red from srcA and green from srcB, each on its own unit";
}

TEST_F(FramebufferFrame, ARootLimitsTheDrawingAndADeletedRootOrDisplayFramebufferIsForgotten)
{
    RtnApplication app;
    ScnGroup* a = group("a");
    a->append(shader("green", kMvpVertex, colourFragment(0, 1, 0)));
    a->append(new TestQuad());
    ScnGroup* b = group("b");
    b->append(shader("blue", flatVertex(), colourFragment(0, 0, 1)));
    b->append(new TestQuad());  // covers the whole view
    app.openGL.node.append(a);
    app.openGL.node.append(b);
    app.openGL.node.append(framebuffer("shown", 4, 4));
    designFramebuffer(app).width = m_width;
    designFramebuffer(app).height = m_height;
    open(app);
    const Pixel green{0, 255, 0, 255}, blue{0, 0, 255, 255}, black{0, 0, 0, 0};
    tick();
    EXPECT_EQ(centrePixel(), blue);
    EXPECT_EQ(pixelAt(2, 2), blue);

    lua("Camera.framebuffer:setRoot(OpenGL.a)");
    tick();
    EXPECT_EQ(centrePixel(), green) << "only the root is drawn";
    EXPECT_EQ(pixelAt(2, 2), black);

    // A refused call still clears the root.
    lua("ok, e = pcall(Camera.framebuffer.setRoot, Camera.framebuffer, 5)");
    EXPECT_NE(global("e").find("group node expected"), std::string::npos) << global("e");
    tick();
    EXPECT_EQ(pixelAt(2, 2), blue);

    // The root deleted behind the framebuffer's back: the scene again.
    lua("Camera.framebuffer:setRoot(OpenGL.a)");
    auto& running = static_cast<ScnGroup&>(world());
    ScnNode* runningA = running.findChild("a");
    running.remove(runningA);
    delete runningA;
    tick();
    EXPECT_EQ(centrePixel(), blue);

    // The display framebuffer set by a script and then deleted.
    auto* shown = dynamic_cast<ScnFramebuffer*>(running.findChild("shown"));
    ASSERT_NE(shown, nullptr);
    lua("Camera:displayFramebuffer(OpenGL.shown)");
    EXPECT_EQ(camera().displayFramebuffer(), shown);
    running.remove(shown);
    delete shown;
    EXPECT_EQ(camera().displayFramebuffer(), nullptr);
    tick();
    EXPECT_TRUE(drain().empty());
}

TEST_F(FramebufferFrame, ScriptMethodsAndTargetsMadeAnewWhenTheSizeChanges)
{
    RtnApplication app;
    ScnFramebuffer& design = designFramebuffer(app);
    design.width = 32;
    design.height = 16;
    design.attachment = 3;
    design.format = ScnImageFormat{CL_RGBA, CL_UNORM_INT8};
    open(app);
    ScnFramebuffer& fb = runningFramebuffer();
    ASSERT_EQ(fb.targetCount(), 3);
    GlScope gl;
    EXPECT_EQ(textureParameter(fb.textureOf(2), GL_TEXTURE_INTERNAL_FORMAT), GL_RGBA8);
    EXPECT_STREQ(fb.target(2)->name(), "fbo attachment 2");

    lua("fb = Camera.framebuffer\n"
        "dims = fb:dim(0) .. ' ' .. fb:dim(1)\n"
        "local _, e1 = pcall(fb.dim, fb, 2)\n"
        "local _, e2 = pcall(fb.dim, fb, 'x')\n"
        "local _, e3 = pcall(fb.getBuffer, fb, 3)\n"
        "local _, e4 = pcall(fb.getBuffer, fb, -1)\n"
        "local _, e5 = pcall(fb.glId, fb, 3)\n"
        "errors = table.concat({e1, e2, e3, e4, e5}, '|')\n"
        "ids = fb:glId() .. ' ' .. fb:glId(0) .. ' ' .. fb:glId(2)\n"
        "b = fb:getBuffer(2)\n"
        "bufferType = type(b)");
    EXPECT_EQ(global("dims"), "32 16");
    const std::string errors = global("errors");
    for (const char* e : {"0 or 1 exprected", "number expected", "buffer index out of range", "invalid attachment index 3"})
        EXPECT_NE(errors.find(e), std::string::npos) << e << " in " << errors;
    EXPECT_NE(errors.find("buffer index out of range"), errors.rfind("buffer index out of range"))
        << "both indices refused: " << errors;
    EXPECT_EQ(global("ids"), std::to_string(fb.fbo) + " " + std::to_string(fb.textureOf(0)) + " " +
                                 std::to_string(fb.textureOf(2)));
    EXPECT_EQ(global("bufferType"), "userdata");

    // A new width: new targets of that size; the old one's script value dies.
    fb.width = 8;
    m_doc.runtime()->update(&fb, &fb.width);
    ASSERT_EQ(fb.targetCount(), 3);
    EXPECT_NE(fb.fbo, 0u);
    EXPECT_EQ(fb.target(0)->dim(0), 8u);
    EXPECT_EQ(textureParameter(fb.textureOf(0), GL_TEXTURE_WIDTH), 8);
    EXPECT_EQ(renderbufferParameter(fb.renderbuffer, GL_RENDERBUFFER_WIDTH), 8);
    lua_State* L = AppGlobal::luaState();
    lua_getglobal(L, "b");
    EXPECT_EQ(OclLua::to(L, -1), nullptr) << "scripts must fetch the targets again";
    lua_pop(L, 1);
    // An update that changes none of them keeps the targets.
    MemTypeFboTarget* kept = fb.target(0);
    m_doc.runtime()->update(&fb, &fb.name);
    EXPECT_EQ(fb.target(0), kept);

    // Wider than any texture may be: the framebuffer says so and keeps what it made.
    GLint largest = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &largest);
    ASSERT_GT(largest, 0);
    drain();
    fb.width = largest * 2;
    m_doc.runtime()->update(&fb, &fb.width);
    const Lines said = drain();
    EXPECT_NE(std::find(said.begin(), said.end(), "(framebuffer): Error creating frame buffer"), said.end())
        << (said.empty() ? "(nothing)" : said[0]);
    EXPECT_NE(fb.fbo, 0u);
    EXPECT_EQ(fb.targetCount(), 3);
}
