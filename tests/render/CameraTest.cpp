// Cameras in the frame: navigation driven through the input entry of the
// view, orbit mode, viewpoints, the lens, and the projection placing a known
// quad on known pixels.
#include <cmath>
#include <string>

#include "compute/OclGlobal.h"
#include "compute/OclNodes.h"
#include "memory/MemNodes.h"
#include "memory/MemTypes.h"
#include "render/ScnCameraExamine.h"
#include "render/ScnViewpoint.h"
#include "render/ScnWorld.h"
#include "runtime/CmdNodes.h"
#include "widgets/InputState.h"
#include "RenderSupport.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kStep = 0.025132741228718346;

struct Vec {
    double x, y, z;
};

// Column `c` of the running camera's world matrix.
Vec column(const ScnCamera& c, int i)
{
    return Vec{c.worldMatrix.m[4 * i], c.worldMatrix.m[4 * i + 1], c.worldMatrix.m[4 * i + 2]};
}

#define EXPECT_VEC(v, ex, ey, ez)                 \
    do {                                          \
        Vec v_ = (v);                             \
        EXPECT_NEAR(v_.x, (ex), 1e-9) << "x";     \
        EXPECT_NEAR(v_.y, (ey), 1e-9) << "y";     \
        EXPECT_NEAR(v_.z, (ez), 1e-9) << "z";     \
    } while (0)

class CameraFrame : public RenderDoc {
protected:
    void SetUp() override
    {
        RenderDoc::SetUp();
        InputState::instance().clear();
    }
    void TearDown() override
    {
        InputState::instance().clear();
        RenderDoc::TearDown();
    }
    // An application with nothing in its world: the focus distance is the
    // eye's distance from the origin.
    void openEmpty()
    {
        RtnApplication app;
        openApp(app);
    }
    ScnCameraExamine& camera()
    {
        return *static_cast<ScnCameraExamine*>(m_doc.runtime()->branch(CmdApplication::Camera));
    }
    // Holds a key for `frames` frames after the one it went down on, then
    // lets it go with one frame more.
    void hold(int key, int frames)
    {
        InputState::instance().setKey(key, true);
        for (int i = 0; i <= frames; ++i) tick();
        InputState::instance().setKey(key, false);
        tick();
    }
};

}  // namespace

TEST_F(CameraFrame, MoveKeysStepByTheFocusDistanceOver105OnceHeldAndOnlyWithInputCapture)
{
    openEmpty();
    ScnCameraExamine& cam = camera();
    EXPECT_VEC(column(cam, 3), 0, 0, 12);
    InputState& in = InputState::instance();

    in.setKey('w', true);
    tick();  // went down: not held yet
    EXPECT_VEC(column(cam, 3), 0, 0, 12);
    tick();  // held: forward, along minus z, by focus / 105
    const double z1 = 12.0 - static_cast<double>(static_cast<float>(12.0 / 105));
    EXPECT_VEC(column(cam, 3), 0, 0, z1);
    EXPECT_FLOAT_EQ(cam.speed.value, static_cast<float>(12.0 / 105));
    in.setKey('w', false);
    in.setKey('d', true);
    tick();
    tick();  // right, along x
    const double x2 = static_cast<float>(z1 / 105);
    EXPECT_VEC(column(cam, 3), x2, 0, z1);
    in.setKey('d', false);
    in.setKey('r', true);
    tick();
    tick();  // down, along minus y
    const double y3 = -static_cast<float>(std::sqrt(x2 * x2 + z1 * z1) / 105);
    EXPECT_VEC(column(cam, 3), x2, y3, z1);
    in.setKey('r', false);
    tick();
    tick();
    EXPECT_VEC(column(cam, 3), x2, y3, z1);
    EXPECT_VEC(column(cam, 0), 1, 0, 0);
    EXPECT_VEC(column(cam, 2), 0, 0, 1);

    in.capture = false;
    hold('w', 2);
    in.capture = true;
    SCOPED_TRACE("no navigation without input capture");
    EXPECT_VEC(column(cam, 3), x2, y3, z1);
}

TEST_F(CameraFrame, ArrowKeysTurnTheAxesOneStepPerFrameHeld)
{
    openEmpty();
    ScnCameraExamine& cam = camera();
    InputState& in = InputState::instance();

    // UP: about the x axis by minus the step, three held frames.
    hold(InputState::KeyUp, 3);
    double a = 3 * kStep;
    EXPECT_VEC(column(cam, 0), 1, 0, 0);
    EXPECT_VEC(column(cam, 1), 0, std::cos(a), -std::sin(a));
    EXPECT_VEC(column(cam, 2), 0, std::sin(a), std::cos(a));
    {
        SCOPED_TRACE("turning does not move the eye");
        EXPECT_VEC(column(cam, 3), 0, 0, 12);
    }

    // DOWN turns back by as much.
    hold(InputState::KeyDown, 3);
    EXPECT_VEC(column(cam, 1), 0, 1, 0);
    EXPECT_VEC(column(cam, 2), 0, 0, 1);

    // LEFT: about the y axis by the step (the view turns left).
    hold(InputState::KeyLeft, 2);
    a = 2 * kStep;
    EXPECT_VEC(column(cam, 0), std::cos(a), 0, -std::sin(a));
    EXPECT_VEC(column(cam, 1), 0, 1, 0);
    EXPECT_VEC(column(cam, 2), std::sin(a), 0, std::cos(a));

    // RIGHT with CONTROL: a tilt about the (turned) z axis by minus the step.
    in.setKey(InputState::KeyControl, true);
    in.setKey(InputState::KeyRight, true);
    tick();
    tick();
    in.setKey(InputState::KeyRight, false);
    in.setKey(InputState::KeyControl, false);
    tick();
    const Vec z{std::sin(a), 0, std::cos(a)};
    const Vec x0{std::cos(a), 0, -std::sin(a)};
    // x turned about z by -step: x cos(s) - (z cross x) sin(s), with z cross x = y.
    const double s = kStep;
    EXPECT_VEC(column(cam, 0), x0.x * std::cos(s), -std::sin(s), x0.z * std::cos(s));
    EXPECT_VEC(column(cam, 1), x0.x * std::sin(s), std::cos(s), x0.z * std::sin(s));
    EXPECT_VEC(column(cam, 2), z.x, z.y, z.z);
}

TEST_F(CameraFrame, RightButtonDragTurnsByPiTimesTheNormalisedDelta)
{
    openEmpty();
    ScnCameraExamine& cam = camera();
    InputState& in = InputState::instance();
    in.setCursor(m_width * 0.5, m_height * 0.5);
    tick();
    // Sideways: about the y axis by -pi * delta x.
    in.setButton(2, true);
    in.setCursor(m_width * 0.6, m_height * 0.5);
    tick();
    const double dx = in.normDeltaX;
    ASSERT_NEAR(dx, 0.1, 1e-6);
    double a = -kPi * dx;
    EXPECT_VEC(column(cam, 0), std::cos(a), 0, -std::sin(a));
    EXPECT_VEC(column(cam, 2), std::sin(a), 0, std::cos(a));
    // Still held, no movement: no turn.
    tick();
    EXPECT_VEC(column(cam, 0), std::cos(a), 0, -std::sin(a));
    in.setButton(2, false);
    tick();

    // With CONTROL: x and y turn about z by -pi * delta x; z stays.
    openEmpty();
    ScnCameraExamine& again = camera();
    in.setCursor(m_width * 0.5, m_height * 0.5);
    in.setKey(InputState::KeyControl, true);
    tick();  // CONTROL counts as held from the next frame on
    in.setButton(2, true);
    in.setCursor(m_width * 0.45, m_height * 0.5);
    tick();
    a = -kPi * in.normDeltaX;
    ASSERT_NEAR(in.normDeltaX, -0.05, 1e-6);
    EXPECT_VEC(column(again, 0), std::cos(a), std::sin(a), 0);
    EXPECT_VEC(column(again, 1), -std::sin(a), std::cos(a), 0);
    EXPECT_VEC(column(again, 2), 0, 0, 1);
}

TEST_F(CameraFrame, WheelStartsAFlightThatTheLeftButtonStops)
{
    openEmpty();
    ScnCameraExamine& cam = camera();
    InputState& in = InputState::instance();
    in.addWheel(1);
    double z = 12, v = -0.1;
    auto fly = [&] { z += v * static_cast<float>(z / 105); };
    tick();
    fly();
    EXPECT_NEAR(cam.velocity, -0.1, 1e-12);
    EXPECT_VEC(column(cam, 3), 0, 0, z);
    tick();  // no input: the flight goes on
    fly();
    EXPECT_VEC(column(cam, 3), 0, 0, z);
    in.addWheel(1);  // faster: velocity - (velocity / 100 + 0.1)
    tick();
    v = -0.1 - (-0.1 / 100 + 0.1);
    fly();
    EXPECT_NEAR(cam.velocity, v, 1e-12);
    EXPECT_VEC(column(cam, 3), 0, 0, z);
    in.addWheel(-1);  // backwards: velocity + velocity / 100 + 0.1
    tick();
    v = v + v / 100 + 0.1;
    fly();
    EXPECT_NEAR(cam.velocity, v, 1e-12);
    in.setButton(1, true);
    tick();  // went down, not held yet: still flying
    fly();
    EXPECT_VEC(column(cam, 3), 0, 0, z);
    tick();  // held: stopped
    EXPECT_EQ(cam.velocity, 0);
    EXPECT_VEC(column(cam, 3), 0, 0, z);
    in.setButton(1, false);
}

TEST_F(CameraFrame, ScrollValuesOrbitThePivot)
{
    openEmpty();
    ScnCameraExamine& cam = camera();
    InputState& in = InputState::instance();
    in.setCursor(m_width * 0.5, m_height * 0.5);
    // The first value turns eye and axes about the world's y axis by -pi * s.
    in.setScroll(0.01, 0);
    tick();
    const double a = -kPi * 0.01;
    EXPECT_VEC(column(cam, 3), 12 * std::sin(a), 0, 12 * std::cos(a));
    EXPECT_VEC(column(cam, 2), std::sin(a), 0, std::cos(a));
}

TEST_F(CameraFrame, OrbitModeFromScriptsKeepsThePivotDistanceAndClampsPitch)
{
    openEmpty();
    ScnCameraExamine& cam = camera();
    lua("Camera:setOrbital(1, 5, 3, 90, 45)");
    EXPECT_EQ(cam.mode, ScnCameraExamine::Orbit);
    EXPECT_NEAR(cam.orbitYaw, kPi / 2, 1e-12);
    EXPECT_NEAR(cam.orbitPitch, kPi / 4, 1e-12);
    lua("Camera:setOrbital()");
    EXPECT_EQ(cam.orbitRadius, 10);
    EXPECT_NEAR(cam.orbitYaw, 1.1, 1e-12);
    EXPECT_NEAR(cam.orbitPitch, 0.9, 1e-12);
    // The eye at (0, 0, 10) turned by yaw about z, then by pitch about the new x axis.
    const double sy = std::sin(1.1), cy = std::cos(1.1), sp = std::sin(0.9), cp = std::cos(0.9);
    EXPECT_VEC(column(cam, 3), 10 * sy * sp, -10 * cy * sp, 10 * cp);
    EXPECT_VEC(column(cam, 0), cy, sy, 0);
    {
        SCOPED_TRACE("the camera looks at the pivot");
        EXPECT_VEC(column(cam, 2), sy * sp, -cy * sp, cp);
    }

    InputState& in = InputState::instance();
    in.setCursor(m_width * 0.5, m_height * 0.5);
    tick();
    // A long drag up: pitch is clamped at 0.4 pi; the distance stays the radius.
    in.setButton(2, true);
    in.setCursor(m_width * 0.55, m_height * 0.9);
    tick();
    const double yaw = 1.1 - in.normDeltaX * kPi * 0.5;
    EXPECT_NEAR(cam.orbitYaw, yaw, 1e-12);
    EXPECT_NEAR(cam.orbitPitch, 1.2566370614359172, 1e-12);
    const Vec p = column(cam, 3);
    EXPECT_NEAR(std::sqrt(p.x * p.x + p.y * p.y + p.z * p.z), 10, 1e-9);
    EXPECT_NEAR(p.z, 10 * std::cos(1.2566370614359172), 1e-9);
    in.setButton(2, false);
    tick();
    // The wheel: radius -= w * (max - min) * 0.1, within the range.
    in.addWheel(1);
    tick();
    EXPECT_NEAR(cam.orbitRadius, 10 - 0.99, 1e-12);
    const Vec q = column(cam, 3);
    EXPECT_NEAR(std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z), 9.01, 1e-9);
    in.addWheel(200);
    tick();
    EXPECT_EQ(cam.orbitRadius, 0.1);
    in.addWheel(-200);
    tick();
    EXPECT_EQ(cam.orbitRadius, 10);
    // Pitch never goes below 0.
    in.setButton(2, true);
    in.setCursor(m_width * 0.55, m_height * 0.0);
    tick();
    EXPECT_EQ(cam.orbitPitch, 0);
    in.setButton(2, false);
}

TEST_F(CameraFrame, ViewpointsFromScriptsPushPopAndAreIgnoredInOrbit)
{
    RtnApplication app;
    app.openGL.node.append(new ScnViewpoint());
    openApp(app);
    ScnCameraExamine& cam = camera();
    auto* vp = dynamic_cast<ScnViewpoint*>(m_doc.runtime()->branch(CmdApplication::World)->getChild(0));
    ASSERT_NE(vp, nullptr);
    // What the event walk leaves the viewpoint: here a place of our own.
    ScnMatrix16 place = ScnMatrix16::translation(4, -2, 7);
    place.m[0] = 0;  // x axis along y, y axis along minus x
    place.m[1] = 1;
    place.m[4] = -1;
    place.m[5] = 0;
    vp->worldMatrix = place;

    lua("Camera:pushViewpoint(OpenGL.viewpoint)");
    EXPECT_VEC(column(cam, 3), 4, -2, 7);
    EXPECT_VEC(column(cam, 0), 0, 1, 0);
    lua("Camera:pushViewpoint(42)");  // not userdata: ignored
    EXPECT_EQ(cam.viewpointStack.size(), 1u);
    lua("Camera:popViewpoint()");
    EXPECT_VEC(column(cam, 3), 0, 0, 12);
    EXPECT_VEC(column(cam, 0), 1, 0, 0);
    EXPECT_TRUE(cam.viewpointStack.empty());

    lua("Camera:setViewpoint(OpenGL.viewpoint)");
    EXPECT_VEC(column(cam, 3), 4, -2, 7);
    lua("Camera:setViewpoint(OpenGL)");  // not a viewpoint: nothing
    EXPECT_VEC(column(cam, 3), 4, -2, 7);
    lua("Camera:setOrbital()");
    const Vec orbit = column(cam, 3);
    lua("Camera:setViewpoint(OpenGL.viewpoint)");
    {
        SCOPED_TRACE("orbit mode ignores viewpoints");
        EXPECT_VEC(column(cam, 3), orbit.x, orbit.y, orbit.z);
    }

    // The lens and the axes as scripts see them.
    lua("local x, y, z, w = Camera:getForward(); assert(w == 1)\n"
        "camForward = string.format('%.6f %.6f %.6f', x, y, z)\n"
        "local a, b, c, d = Camera:getLeft(); assert(d == 1)\n"
        "camLeft = string.format('%.6f %.6f %.6f', a, b, c)\n"
        "camFov = Camera:getFieldOfView()");
    char want[128];
    const Vec z = column(cam, 2), x = column(cam, 0);
    std::snprintf(want, sizeof want, "%.6f %.6f %.6f", -z.x, -z.y, -z.z);
    EXPECT_EQ(global("camForward"), want);
    std::snprintf(want, sizeof want, "%.6f %.6f %.6f", x.x, x.y, x.z);
    EXPECT_EQ(global("camLeft"), want);
    EXPECT_FLOAT_EQ(std::stof(global("camFov")), 1.0471976f);

    // Wrong arguments are script errors with the specified words.
    EXPECT_NE(luaError("Camera:displayAttachment('x')").find("number expected"), std::string::npos);
    EXPECT_NE(luaError("Camera:drawScreenQuad(OpenGL)").find("shader object"), std::string::npos);
    EXPECT_NE(luaError("Camera:displayFramebuffer(OpenGL)").find("framebuffer object expected"), std::string::npos);
    lua("assert(tostring(Camera:getLight()) == 'ScnDeferredPointLight (light)')");
}

TEST(Viewpoint, TakesItsMatrixFromTheWalkAndSizesItsBoxFromTheScene)
{
    ScnViewpoint vp;
    ScnActionEvent event;
    event.pushMatrix(ScnMatrix16::translation(1, 2, 3));
    const double saved = ScnScene::sceneBox[6];
    ScnScene::sceneBox[6] = 80;
    event.apply(&vp);
    EXPECT_EQ(vp.worldMatrix.m[12], 1);
    EXPECT_EQ(vp.worldMatrix.m[14], 3);
    EXPECT_EQ(vp.boxHalfSize, 2);
    ScnScene::sceneBox[6] = 0;
    event.apply(&vp);
    EXPECT_EQ(vp.boxHalfSize, 1);
    ScnScene::sceneBox[6] = saved;

    // A camera copies lens and matrix from it.
    ScnCamera cam;
    vp.fov = 0.5f;
    vp.nearPlane = 0.25f;
    cam.copyLens(vp);
    EXPECT_EQ(cam.fov.value, 0.5f);
    EXPECT_EQ(cam.nearPlane.value, 0.25f);
    EXPECT_EQ(cam.farPlane.value, 10.0f);
    EXPECT_EQ(cam.eye[1], 2);
    EXPECT_EQ(cam.inverseMatrix.m[13], -2);
}

TEST(CameraLens, ProjectionAndFrustumFromTheFields)
{
    ScnCamera cam;
    cam.fov = 1.0471976f;
    cam.aspect = 2.0f;
    cam.nearPlane = 0.5f;
    cam.farPlane = 100.0f;
    cam.refreshProjection();
    const double t = std::tan(1.0471976 / 2);
    EXPECT_NEAR(cam.frustum[3], t * 0.5, 1e-7);
    EXPECT_NEAR(cam.frustum[2], t * 0.5 * 2, 1e-7);
    EXPECT_NEAR(cam.projection[0], 1 / (t * 2), 1e-5);
    EXPECT_NEAR(cam.projection[5], 1 / t, 1e-5);
    EXPECT_NEAR(cam.projection[10], -100.5 / 99.5, 1e-6);
    EXPECT_EQ(cam.projection[11], -1);
    EXPECT_NEAR(cam.projection[14], -2 * 100 * 0.5 / 99.5, 1e-6);
    EXPECT_EQ(cam.projection[15], 0);
    // gs_Aspect is twice the tangents of the half angles.
    ScnActionRender render(&cam, 64, 32);
    EXPECT_NEAR(render.aspect[0], 2 * t * 2, 1e-6);
    EXPECT_NEAR(render.aspect[1], 2 * t, 1e-6);
}

TEST_F(CameraFrame, ProjectionAndViewPlaceAQuadOnItsPixels)
{
    RtnApplication app;
    app.openGL.node.append(static_cast<ScnShader*>(ScnShader::factory()));  // green, through gs_ModelViewProjectionMatrix
    app.openGL.node.append(new TestQuad());  // -1..1 in x and y at z = 0
    app.camera.node.matrix = ScnMatrix16::translation(1, 0.5, 12);
    openApp(app);
    m_doc.toggleSimulation();  // no axes
    tick();
    // The quad seen from (1, 0.5, 12): x from -2 to 0, y from -1.5 to 0.5 at
    // distance 12; fov 60 degrees, aspect of the view.
    const double t = std::tan(1.0471976 / 2), aspect = double(m_width) / m_height;
    auto px = [&](double x) { return (x / (12 * t * aspect) + 1) / 2 * m_width; };
    auto py = [&](double y) { return (y / (12 * t) + 1) / 2 * m_height; };
    const Pixel green{0, 255, 0, 255}, black{0, 0, 0, 0};
    const int left = static_cast<int>(px(-2)), right = static_cast<int>(px(0));
    const int bottom = static_cast<int>(py(-1.5)), top = static_cast<int>(py(0.5));
    const int cx = (left + right) / 2, cy = (bottom + top) / 2;
    ASSERT_GT(right - left, 6);
    EXPECT_EQ(pixelAt(right - 2, cy), green) << "right edge at " << px(0);
    EXPECT_EQ(pixelAt(right + 2, cy), black);
    EXPECT_EQ(pixelAt(left + 2, cy), green) << "left edge at " << px(-2);
    EXPECT_EQ(pixelAt(left - 2, cy), black);
    EXPECT_EQ(pixelAt(cx, top - 2), green) << "top edge at " << py(0.5);
    EXPECT_EQ(pixelAt(cx, top + 2), black);
    EXPECT_EQ(pixelAt(cx, bottom + 2), green) << "bottom edge at " << py(-1.5);
    EXPECT_EQ(pixelAt(cx, bottom - 2), black);
}

TEST_F(CameraFrame, StoredViewpointsSurviveTheFileAndAreRecalled)
{
    openEmpty();
    hold(InputState::KeyLeft, 1);
    const ScnMatrix16 turned = camera().worldMatrix;
    RtnApplication* app = m_doc.application();
    ASSERT_TRUE(app->storeViewpoint(2));
    ASSERT_TRUE(m_doc.saveAs("stored.3Dm"));
    std::string error;
    std::unique_ptr<RtnApplication> read(RtnApplication::readFile((m_ws / "stored.3Dm"), error));
    ASSERT_TRUE(read) << error;
    EXPECT_EQ(read->toBytes(), app->toBytes()) << "the file reads back byte for byte";
    for (int i = 0; i < 16; ++i) EXPECT_EQ(read->viewpoints.values[2].m[i], turned.m[i]);

    ASSERT_TRUE(m_doc.open("stored.3Dm", error)) << error;
    {
        SCOPED_TRACE("a new running camera starts from its matrix field");
        EXPECT_VEC(column(camera(), 3), 0, 0, 12);
    }
    ASSERT_TRUE(m_doc.application()->recallViewpoint(2, false));
    for (int i = 0; i < 16; ++i) EXPECT_EQ(camera().worldMatrix.m[i], turned.m[i]);
    // The basis follows, so navigation goes on from the recalled view.
    hold('w', 1);
    const Vec z = column(camera(), 2);
    const Vec e = column(camera(), 3);
    const double speed = static_cast<float>(12.0 / 105);
    EXPECT_VEC(e, -z.x * speed, 0, 12 - z.z * speed);
}

TEST_F(CameraFrame, CameraParamsFillTheGsCameraRecordOfAMappedBuffer)
{
    ASSERT_NE(OclGlobal::currentContext(), nullptr) << "no OpenCL platform on this machine";
    RtnApplication app;
    auto* platform = new OclPlatform;
    for (const char* size : {"30", "29"}) {
        auto* b = new OclBuffer;
        b->type = MemTypes::Float;
        b->dim0 = size;
        b->name = std::string("b") + size;
        platform->append(b);
    }
    app.openCL.node.append(platform);
    // Turned a quarter about y and placed at (3, 4, 5).
    ScnMatrix16 m = ScnMatrix16::translation(3, 4, 5);
    m.m[0] = 0, m.m[2] = -1, m.m[8] = 1, m.m[10] = 0;
    app.camera.node.matrix = m;
    openApp(app);
    lua("b = OpenCL.clPlatform.b30:getBuffer(); small = OpenCL.clPlatform.b29:getBuffer()\n"
        "ok1, e1 = pcall(Camera.getCameraParams, Camera, b)\n"
        "mem.map(b, mem.READ_WRITE); mem.map(small, mem.READ_WRITE)\n"
        "Camera:getCameraParams(b)\n"
        "record = {}\n"
        "for i = 0, 29 do record[#record + 1] = string.format('%g', mem.get(b, i) + 0) end\n"
        "record = table.concat(record, ' ')\n"
        "ok2, e2 = pcall(Camera.getCameraParams, Camera, small)\n"
        "ok3, e3 = pcall(Camera.getCameraParams, Camera, OpenGL)\n"
        "mem.unmap(b); mem.unmap(small)");
    // xAxis, yAxis, zAxis, ePos, then the axes of the inverse, far, near.
    EXPECT_EQ(global("record"), "0 0 -1 0 0 1 0 0 1 0 0 0 3 4 5 1 0 0 1 0 0 1 0 0 -1 0 0 0 5000 0.1");
    EXPECT_NE(global("e1").find("buffer not mapped"), std::string::npos) << global("e1");
    EXPECT_NE(global("e2").find("buffer smaller than structure size"), std::string::npos) << global("e2");
    EXPECT_NE(global("e3").find("1D buffer object expected"), std::string::npos) << global("e3");
}
