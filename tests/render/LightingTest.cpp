// The light pass: a geometry buffer drawn by the camera and lit through
// doLighting by point and spot lights, the head light, what reaches forward
// shaders through gs_Light[i], and the script methods of lights and light
// buffers.
//
// The scene: the camera at (10, 0, 0) looks down minus x at a plane x = -2
// that faces it; the lights stand at the origin (the event walk gives them
// the identity), 2 in front of the plane. The geometry buffer holds the
// surface colour, the normal and the position in eye space, as the
// workspace's light shaders read them, and the expected light of a pixel is
// computed here from the shaders' formula:
//   a = intensity * (1 - d / range) ^ attenuate,  diffuse * a * N.L
#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>

#include <lua.hpp>

#include "compute/OclGlobal.h"
#include "compute/OclLua.h"
#include "memory/MemObjects.h"
#include "memory/MemTypes.h"
#include "render/ScnCameraExamine.h"
#include "render/ScnDeferredPointLight.h"
#include "render/ScnDeferredSpotLight.h"
#include "render/ScnLightbuffer.h"
#include "render/ScnTransform.h"
#include "runtime/CmdNodes.h"
#include "RenderSupport.h"

namespace {

// The test quad stood up as the plane x = -2, 12 by 12, facing +x, written
// into the geometry buffer: colour, eye-space normal, eye-space position.
ScnShader* geometryShader()
{
    return shader("gbuffer",
                  "#version 330\nuniform mat4 gs_ModelViewProjectionMatrix;\nuniform mat4 gs_ModelViewMatrix;\n"
                  "uniform mat3 gs_NormalMatrix;\nin vec4 gs_Vertex;\nout vec3 position;\nout vec3 normal;\n"
                  "void main()\n{\n    vec4 p = vec4(-2.0, gs_Vertex.y * 6.0, -gs_Vertex.x * 6.0, 1.0);\n"
                  "    position = (gs_ModelViewMatrix * p).xyz;\n    normal = gs_NormalMatrix * vec3(1.0, 0.0, 0.0);\n"
                  "    gl_Position = gs_ModelViewProjectionMatrix * p;\n}\n",
                  "#version 330\nin vec3 position;\nin vec3 normal;\nlayout(location = 0) out vec4 colour;\n"
                  "layout(location = 1) out vec4 n;\nlayout(location = 2) out vec4 p;\nvoid main()\n{\n"
                  "    colour = vec4(0.8, 0.6, 0.4, 1.0);\n    n = vec4(normalize(normal), 0.0);\n"
                  "    p = vec4(position, 1.0);\n}\n");
}

constexpr float kSurface[3] = {0.8f, 0.6f, 0.4f};

struct Rgba {
    float v[4] = {-1, -1, -1, -1};
};

// One pixel of an attachment, as floats.
Rgba readTarget(unsigned fbo, int attachment, int x, int y)
{
    Rgba p;
    GlScope gl;
    glBindFramebuffer(GL_READ_FRAMEBUFFER, fbo);
    glReadBuffer(GL_COLOR_ATTACHMENT0 + attachment);
    glReadPixels(x, y, 1, 1, GL_RGBA, GL_FLOAT, p.v);
    GlPlatform::bindScreen();
    return p;
}

void expectRgb(const Rgba& p, double r, double g, double b, double tolerance, const char* what)
{
    EXPECT_NEAR(p.v[0], r, tolerance) << what;
    EXPECT_NEAR(p.v[1], g, tolerance) << what;
    EXPECT_NEAR(p.v[2], b, tolerance) << what;
}

class Lighting : public RenderDoc {
protected:
    void SetUp() override
    {
        RenderDoc::SetUp();
        if (HasFatalFailure()) return;
        // The workspace's light shaders, as the template has them.
        std::filesystem::copy(VELMORA_SOURCE_DIR "/assets/workspace/shaders", m_ws / "shaders",
                              std::filesystem::copy_options::recursive);
    }

    // The camera's framebuffer becomes the geometry buffer, a light buffer of
    // the same size follows it, and a register runs the light pass after the
    // light buffer's turn. The head light is off unless a test wants it.
    // Without the light pass the scene is the quad alone, for a shader that
    // the test adds.
    void build(RtnApplication& app, bool lightPass = true,
               const char* pass = "event:doLighting(Camera.framebuffer)")
    {
        ScnCameraExamine& camera = app.camera.node;
        ScnMatrix16 m;
        const double look[16] = {0, 0, -1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 10, 0, 0, 1};
        std::copy(look, look + 16, m.m);
        camera.matrix = m;
        camera.light.node.visible = false;
        auto& gbuffer = static_cast<ScnFramebuffer&>(*camera.getChild(0));
        gbuffer.attachment = 3;
        gbuffer.width = m_width;
        gbuffer.height = m_height;
        auto* lb = new ScnLightbuffer();
        lb->width = m_width;
        lb->height = m_height;
        camera.append(lb);
        if (!lightPass) {
            app.openGL.node.append(new TestQuad());
            return;
        }
        app.openGL.node.append(geometryShader());
        app.openGL.node.append(new TestQuad());
        auto* p = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
        RtnRegister* r = p->createRegister(0);
        r->deposit(lb);
        r->functions.setCode(ScnFramebuffer::OnPreRender, "");
        r->functions.setCode(ScnFramebuffer::OnPostRender, pass);
    }
    void open(RtnApplication& app)
    {
        openApp(app);
        m_doc.toggleSimulation();
    }
    ScnCamera& camera() { return *static_cast<ScnCamera*>(m_doc.runtime()->branch(CmdApplication::Camera)); }
    ScnFramebuffer& gbuffer() { return *static_cast<ScnFramebuffer*>(camera().getChild(0)); }
    ScnLightbuffer& lightbuffer() { return *static_cast<ScnLightbuffer*>(camera().getChild(1)); }
    ScnNode& world() { return *m_doc.runtime()->branch(CmdApplication::World); }
    // Where the pixel's centre meets the plane, in eye space: the plane lies
    // 12 in front of the eye, the lens is the default one (60 degrees) with
    // the view's aspect.
    void eyePoint(int x, int y, double p[3]) const
    {
        const double t = std::tan(1.0471976 / 2);
        const double ndcX = (x + 0.5) / m_width * 2 - 1, ndcY = (y + 0.5) / m_height * 2 - 1;
        p[0] = ndcX * t * (static_cast<double>(m_width) / m_height) * 12;
        p[1] = ndcY * t * 12;
        p[2] = -12;
    }
    // The light at the origin is at (0, 0, -10) in eye space; the normal is +z.
    double distance(int x, int y) const
    {
        double p[3];
        eyePoint(x, y, p);
        return std::sqrt(p[0] * p[0] + p[1] * p[1] + (p[2] + 10) * (p[2] + 10));
    }
    static double reach(double d, double range, double intensity, double attenuate)
    {
        return d < range ? intensity * std::pow(1 - d / range, attenuate) : 0;
    }
    // The diffuse light of a light at the origin, 2 in front of the plane.
    double lit(int x, int y, double range = 6, double intensity = 1) const
    {
        const double d = distance(x, y);
        return reach(d, range, intensity, 2) * 2 / d;
    }
    float lightAt(int x, int y, int attachment = 0) { return readTarget(lightbuffer().fbo, attachment, x, y).v[0]; }
};

}  // namespace

TEST_F(Lighting, APointLightIsBrighterNearItAsItsAttenuationSays)
{
    RtnApplication app;
    build(app);
    auto* light = new ScnDeferredPointLight();
    light->diffuse = ScnColor{1.0f, 0.5f, 0.25f, 1};
    light->ambient = ScnColor{0.1f, 0.2f, 0.0f, 1};
    light->specular = ScnColor{0, 0, 0, 1};
    light->intensity = 1.5f;
    light->attenuate = 2.0f;
    light->range = 6.0f;
    app.openGL.node.append(light);
    open(app);
    tick();
    EXPECT_TRUE(drain().empty());

    const int cx = m_width / 2, cy = m_height / 2;
    double p[3];
    eyePoint(cx + 30, cy + 10, p);
    expectRgb(readTarget(gbuffer().fbo, 2, cx + 30, cy + 10), p[0], p[1], p[2], 0.02, "eye-space position");
    EXPECT_NEAR(readTarget(gbuffer().fbo, 1, cx + 30, cy + 10).v[2], 1.0, 1e-3) << "eye-space normal";

    // By the light's foot and 35 pixels to the side.
    double lastDiffuse = 10;
    for (int dx : {0, 35}) {
        SCOPED_TRACE("pixel " + std::to_string(cx + dx));
        const double a = reach(distance(cx + dx, cy), 6, 1.5, 2), l = lit(cx + dx, cy, 6, 1.5);
        const Rgba diffuse = readTarget(lightbuffer().fbo, 0, cx + dx, cy);
        expectRgb(diffuse, l, 0.5 * l, 0.25 * l, 0.01, "diffuse");
        const Rgba ambient = readTarget(lightbuffer().fbo, 2, cx + dx, cy);
        expectRgb(ambient, 0.1 * a, 0.2 * a, 0, 0.005, "ambient");
        // The combiner wrote the lit colour over the surface colour.
        const Rgba out = readTarget(gbuffer().fbo, 0, cx + dx, cy);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(out.v[i], kSurface[i] * (diffuse.v[i] + ambient.v[i]), 0.01) << i;
        EXPECT_LT(diffuse.v[0], lastDiffuse) << "darker away from the light";
        lastDiffuse = diffuse.v[0];
    }
    EXPECT_GT(lastDiffuse, 0.05) << "the second pixel is still inside the range";
    // Beyond the range nothing is added: the surface is black there.
    ASSERT_GT(distance(cx + 80, cy), 6.0);
    EXPECT_EQ(lightAt(cx + 80, cy), 0.0f);
    EXPECT_EQ(readTarget(gbuffer().fbo, 0, cx + 80, cy).v[0], 0.0f);

    // A new range rebuilds the volume: with 3 the second pixel (3.3 away)
    // gets nothing.
    ScnDeferredLight& running = *static_cast<ScnDeferredLight*>(world().getChild(2));
    ASSERT_EQ(running.volume().size(), 36u * 3);
    EXPECT_FLOAT_EQ(running.volume()[0], 6.0f);
    lua("OpenGL.pointlight:setRange(3)");
    EXPECT_FLOAT_EQ(running.volume()[0], 3.0f);
    tick();
    EXPECT_NEAR(lightAt(cx, cy), lit(cx, cy, 3, 1.5), 0.01);
    EXPECT_EQ(lightAt(cx + 35, cy), 0.0f);
    // As the property page sends it: intensity leaves the volume, range rebuilds it.
    running.range = 5.0f;
    running.intensity = 1.0f;
    m_doc.runtime()->update(&running, &running.intensity);
    EXPECT_FLOAT_EQ(running.volume()[0], 3.0f);
    m_doc.runtime()->update(&running, &running.range);
    EXPECT_FLOAT_EQ(running.volume()[0], 5.0f);
}

TEST_F(Lighting, ALightUnderATransformShinesFromWhereTheTransformPutsIt)
{
    RtnApplication app;
    build(app);
    auto* lift = new ScnTransform();
    lift->worldmatrix = ScnMatrix16::translation(0, 1.5, 0);  // world y is the eye's y here
    auto* light = new ScnDeferredPointLight();
    light->specular = ScnColor{0, 0, 0, 1};
    lift->append(light);
    app.openGL.node.append(lift);
    open(app);
    tick();
    EXPECT_TRUE(drain().empty());

    // The light stands at (0, 1.5, -10) in eye space.
    const int cx = m_width / 2, cy = m_height / 2;
    const int foot = static_cast<int>((1.5 / (std::tan(1.0471976 / 2) * 12) + 1) / 2 * m_height);
    auto expected = [&](int y) {
        double p[3];
        eyePoint(cx, y, p);
        const double d = std::sqrt(p[0] * p[0] + (p[1] - 1.5) * (p[1] - 1.5) + (p[2] + 10) * (p[2] + 10));
        return reach(d, 6, 1, 2) * 2 / d;
    };
    for (int y : {foot, cy, cy - 20}) EXPECT_NEAR(lightAt(cx, y), expected(y), 0.01) << "row " << y;
    EXPECT_GT(lightAt(cx, foot), lightAt(cx, cy) + 0.05);
}

TEST_F(Lighting, ASpotLightLightsInsideItsConeOnly)
{
    RtnApplication app;
    build(app);
    auto* spot = new ScnDeferredSpotLight();
    spot->specular = ScnColor{0, 0, 0, 1};
    spot->spread = 0.96f;  // a half angle of 16 degrees, down the light's minus x axis
    app.openGL.node.append(spot);
    open(app);
    tick();
    EXPECT_TRUE(drain().empty());

    const int cx = m_width / 2, cy = m_height / 2;
    auto cosine = [&](int x, int y) { return 2 / distance(x, y); };
    // Inside: on the axis, and 4 pixels off on the diagonal.
    for (int off : {0, 4}) {
        ASSERT_GT(cosine(cx + off, cy + off), 0.97);
        const Rgba diffuse = readTarget(lightbuffer().fbo, 0, cx + off, cy + off);
        EXPECT_NEAR(diffuse.v[0], lit(cx + off, cy + off), 0.01) << off;
        EXPECT_NEAR(diffuse.v[2], lit(cx + off, cy + off), 0.01) << off;
    }
    // Outside the cone but inside the pyramid that carries it: nothing.
    const int ox = cx + 7, oy = cy + 7;
    ASSERT_LT(cosine(ox, oy), 0.955);
    double p[3];
    eyePoint(ox, oy, p);
    const double h = spot->halfSize() * 2 / 6;  // the pyramid's half size 2 down its axis
    ASSERT_LT(std::abs(p[0]), h);
    ASSERT_LT(std::abs(p[1]), h);
    EXPECT_EQ(lightAt(ox, oy), 0.0f);
    EXPECT_EQ(lightAt(cx + 30, cy), 0.0f) << "outside the volume";
    EXPECT_NEAR(readTarget(gbuffer().fbo, 0, cx, cy).v[1], kSurface[1] * lit(cx, cy), 0.01);
    EXPECT_EQ(readTarget(gbuffer().fbo, 0, ox, oy).v[1], 0.0f);

    // Hidden, the light still counts but is not drawn; the combiner still
    // runs, so the surface goes black.
    static_cast<ScnDeferredLight*>(world().getChild(2))->visible = false;
    tick();
    EXPECT_EQ(ScnDeferredLight::ring(ScnDeferredLight::SpotKind).size(), 1u);
    EXPECT_EQ(lightAt(cx, cy), 0.0f);
    EXPECT_EQ(readTarget(gbuffer().fbo, 0, cx, cy).v[0], 0.0f);
}

// The spot shader of older files: a hard edge, no highlight.
TEST_F(Lighting, TheSpotShaderOfOlderFilesLightsItsConeWithAHardEdge)
{
    RtnApplication app;
    build(app);
    auto* spot = new ScnDeferredSpotLight();
    spot->direct.node.loadSources("deferred\\lighting\\spotDirect");
    ASSERT_NE(spot->direct.node.fragment.value.find("hard-edged"), std::string::npos);
    app.openGL.node.append(spot);
    open(app);
    tick();
    EXPECT_TRUE(drain().empty());
    const int cx = m_width / 2, cy = m_height / 2;
    // The last pixel inside the cone has the full light.
    int in = 0;
    while (2 / distance(cx + in + 1, cy) > 0.9605) ++in;
    EXPECT_NEAR(lightAt(cx + in, cy), lit(cx + in, cy), 0.01);
    EXPECT_EQ(lightAt(cx, cy, 1), 0.0f) << "no highlight";
    EXPECT_EQ(lightAt(cx + 7, cy + 7), 0.0f);
}

TEST_F(Lighting, TheHeadLightFollowsTheCameraAndReachesAsFarAsItSees)
{
    RtnApplication app;
    build(app);
    app.camera.node.light.node.visible = true;
    app.camera.node.light.node.specular = ScnColor{0, 0, 0, 1};
    open(app);
    EXPECT_EQ(ScnDeferredLight::ring(ScnDeferredLight::PointKind).size(), 1u);
    tick();
    // The eye stands 12 before the plane inside the light's volume; with its
    // range at the camera's far plane (5000) the light has hardly faded.
    const int cx = m_width / 2, cy = m_height / 2;
    double p[3];
    eyePoint(cx, cy, p);
    const double d = std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]);
    EXPECT_NEAR(lightAt(cx, cy), reach(d, 5000, 1, 2) * 12 / d, 0.01);
    auto& head = static_cast<ScnCameraExamine&>(camera()).light.node;
    EXPECT_FLOAT_EQ(head.range.value, 5000.0f);
    EXPECT_NEAR(head.worldMatrix.m[12], 10.0, 1e-9) << "the head light stands at the eye";
}

// A texture given after the framebuffer replaces its attachment 0 as the
// surface colour: here the normals (0, 0, 1 in eye space), so the lit
// colour is blue only; the result still goes to attachment 0.
TEST_F(Lighting, ATextureArgumentReplacesTheSurfaceColour)
{
    RtnApplication app;
    build(app, true, "event:doLighting(Camera.framebuffer, Camera.framebuffer:getBuffer(1))");
    auto* light = new ScnDeferredPointLight();
    light->specular = ScnColor{0, 0, 0, 1};
    app.openGL.node.append(light);
    open(app);
    tick();
    EXPECT_TRUE(drain().empty());
    const int cx = m_width / 2, cy = m_height / 2;
    expectRgb(readTarget(gbuffer().fbo, 0, cx, cy), 0, 0, lit(cx, cy), 0.01, "lit normals");
}

// A forward shader reads every light through gs_Light[i] and gs_LightCount,
// with the axes and the position in eye space.
TEST_F(Lighting, ForwardShadersSeeEveryLightThroughTheIndexedUniforms)
{
    RtnApplication app;
    build(app, false);
    app.openGL.node.insertBefore(
        shader("forward", flatVertex(),
               "#version 330\n"
               "struct Light { vec4 diffuse; vec4 ambient; vec4 specular; vec3 xAxis; vec3 yAxis; vec3 zAxis; vec3 ePos;\n"
               "  float range; float intensity; float attenuate; int visible; float spread; int type; };\n"
               "uniform Light gs_Light[3];\nuniform int gs_LightCount;\n"
               "layout(location = 0) out vec4 c0;\nlayout(location = 1) out vec4 c1;\nlayout(location = 2) out vec4 c2;\n"
               "void main()\n{\n"
               "  c0 = vec4(gs_Light[0].ePos, float(gs_LightCount));\n"
               "  c1 = vec4(gs_Light[1].xAxis, float(gs_Light[1].type));\n"
               "  c2 = vec4(gs_Light[1].spread, gs_Light[0].range + gs_Light[0].intensity,\n"
               "            gs_Light[0].diffuse.g + gs_Light[0].diffuse.a, float(gs_Light[0].type + 10 * gs_Light[1].visible));\n"
               "}\n"),
        app.openGL.node.getChild(0));
    auto* point = new ScnDeferredPointLight();
    point->range = 4;
    point->intensity = 0.5f;
    point->diffuse = ScnColor{1, 0.25f, 1, 0};
    auto* spot = new ScnDeferredSpotLight();
    spot->spread = 0.75f;
    spot->visible = false;
    app.openGL.node.append(point);
    app.openGL.node.append(spot);
    open(app);
    tick();
    EXPECT_TRUE(drain().empty());
    const int cx = m_width / 2, cy = m_height / 2;
    // Light 0 at the origin is 10 in front of the eye; light 1's x axis is the
    // world's x, which points at the eye: +z in eye space. Three lights are
    // alive: the two and the hidden head light.
    const Rgba c0 = readTarget(gbuffer().fbo, 0, cx, cy);
    expectRgb(c0, 0, 0, -10, 1e-2, "position of light 0");
    EXPECT_EQ(c0.v[3], 3.0f);
    const Rgba c1 = readTarget(gbuffer().fbo, 1, cx, cy);
    expectRgb(c1, 0, 0, 1, 1e-3, "x axis of light 1");
    EXPECT_EQ(c1.v[3], 2.0f) << "a spot light is type 2 in the uniforms";
    const Rgba c2 = readTarget(gbuffer().fbo, 2, cx, cy);
    expectRgb(c2, 0.75, 4.5, 1.25, 1e-2, "spread; range + intensity; colours go with alpha 1");
    EXPECT_EQ(c2.v[3], 1.0f) << "a point light is type 1; the hidden spot light says visible 0";
}

TEST_F(Lighting, ScriptMethodsOfLightsAndTheLightBuffer)
{
    oclContext* context = OclGlobal::currentContext();
    ASSERT_NE(context, nullptr) << "no OpenCL platform on this machine";
    RtnApplication app;
    build(app);
    auto* spot = new ScnDeferredSpotLight();
    spot->diffuse = ScnColor{0.5f, 0.25f, 1, 1};
    app.openGL.node.append(spot);
    open(app);
    tick();

    lua("s = OpenGL.spotlight\n"
        "s:setAmbient(0.1, 0.2, 0.3, 0.4)\n"
        "s:setIntensity(2) s:setAttenuate(3) s:setSpread(0.9)\n"
        "diffuse = table.concat({s:getDiffuse()}, ' ')\n"
        "ambient = table.concat({s:getAmbient()}, ' ')\n"
        "numbers = table.concat({s:getRange(), s:getIntensity(), s:getAttenuate(), s:getSpread()}, ' ')\n"
        "shader = tostring(s:getShader())\n"
        "combiner = tostring(Camera.lighbuffer:getShader())\n");
    EXPECT_EQ(global("diffuse"), "0.5 0.25 1 1");
    EXPECT_EQ(global("ambient"), "0.10000000149012 0.20000000298023 0.30000001192093 0.40000000596046");
    EXPECT_EQ(global("numbers"), "6 2 3 0.89999997615814");
    EXPECT_EQ(global("shader"), "ScnShader (glShader)");
    EXPECT_EQ(global("combiner"), "ScnShader (lighting)");

    // The record gs_light, read back through a mapped buffer.
    lua_State* L = AppGlobal::luaState();
    MemTypeBuffer small(context, 100, MemTypes::UChar, "small", CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR);
    MemTypeBuffer record(context, 34, MemTypes::Float, "record", CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR);
    OclLua::push(L, &small);
    lua_setglobal(L, "small");
    OclLua::push(L, &record);
    lua_setglobal(L, "record");
    EXPECT_NE(luaError("s:getLightParams(record)").find("buffer not mapped"), std::string::npos);
    lua("mem.map(small, mem.WRITE)");
    EXPECT_NE(luaError("s:getLightParams(small)").find("buffer smaller than structure size"), std::string::npos);
    lua("mem.unmap(small)");
    EXPECT_NE(luaError("s:getLightParams(5)").find("1D buffer object"), std::string::npos);
    lua("mem.map(record, mem.READ_WRITE)\n"
        "s:getLightParams(record)\n"
        "local t = {}\n"
        "for i = 0, 31 do t[#t + 1] = string.format('%g', mem.get(record, i)) end\n"
        "values = table.concat(t, ' ')\n"
        "mem.unmap(record)\n");
    // Colours with 0 in w; the world matrix (identity) by columns; range,
    // intensity, attenuate, spread.
    EXPECT_EQ(global("values"), "0.5 0.25 1 0 0.1 0.2 0.3 0 1 1 1 0 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 0 6 2 3 0.9");
    unsigned char bytes[ScnDeferredLight::kRecordSize];
    static_cast<ScnDeferredLight*>(world().getChild(2))->fillRecord(bytes);
    uint32_t tail[2];
    std::memcpy(tail, bytes + 128, 8);
    EXPECT_EQ(tail[0], 1u) << "visible";
    EXPECT_EQ(tail[1], 1u) << "a spot light is type 1 in the record";

    // doLighting: a non-userdata first argument is refused, a userdata of
    // another class is ignored.
    EXPECT_NE(luaError("Camera.lighbuffer:doLighting(3)").find("framebuffer object"), std::string::npos);
    lua("Camera.lighbuffer:doLighting(record)");
    EXPECT_NE(luaError("s:setRange('x')").find("number"), std::string::npos);
    lua("small, record, s = nil, nil, nil");
}
