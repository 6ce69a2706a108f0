// The camera every application uses: the Camera branch is one of these. It
// navigates by keys, mouse, wheel and the view's scroll values in its event
// operation, flies on by itself at a velocity, orbits a pivot in orbit mode,
// carries a head light and keeps a stack of viewpoints.
#pragma once

#include <array>
#include <vector>

#include <glm/vec3.hpp>

#include "render/ScnCamera.h"
#include "render/ScnDeferredPointLight.h"

class ScnActionEvent;

class ScnCameraExamine : public ScnCamera {
    SCN_NODE(ScnCameraExamine, ScnCamera)
public:
    ScnCameraExamine();

    ScnSF<float> speed{this, "speed", 1.0f};  // translation step
    ScnSFMatrix matrix{this, "matrix", ScnMatrix16::translation(0, 0, 12)};  // the stored camera matrix
    ScnSFNode<ScnDeferredPointLight> light{this, "light"};  // the head light

    enum Mode { FreeFlight = 1, Orbit = 2 };
    // The angle of one frame's turn by an arrow key.
    static constexpr double kKeyStep = 0.025132741228718346;
    static constexpr double kMaxPitch = 1.2566370614359172;  // 0.4 pi

    // -- run-time members: the camera basis (columns of the matrix) --------------
    glm::dvec3 xAxis{1, 0, 0}, yAxis{0, 1, 0}, zAxis{0, 0, 1};
    glm::dvec3 position{0, 0, 12};
    glm::dvec3 pivot{0, 0, 0};
    double velocity = 0;  // fly speed, -60 to 60
    int mode = FreeFlight;
    ScnMatrix16 lightMatrix;  // the head light's offset from the camera
    ScnMatrix16 savedBasis;   // the matrix at the moment of setOrbital
    double orbitMin = 0.1, orbitMax = 10, orbitRadius = 10;
    double orbitYaw = 1.1, orbitPitch = 0.9;  // radians
    std::vector<std::array<float, 16>> viewpointStack;

    // The basis and position follow the matrix.
    void setMatrix(const ScnMatrix16& m) override;
    // Columns x, y, z and position, fourth row (0, 0, 0, 1), become the matrix.
    void rebuild();

    // Orbit mode around the origin: range, radius and the angles in radians.
    void setOrbital(double minimum, double maximum, double radius, double yaw, double pitch);
    // Moves to a viewpoint's matrix; nothing in orbit mode.
    void setViewpoint(const ScnMatrix16& m);
    // Saves the present matrix on the stack, then moves to `m`.
    void pushViewpoint(const ScnMatrix16& m);
    // Moves back to the last saved matrix; false on an empty stack.
    bool popViewpoint();

    // Navigation, then the camera's own event, then the head light's.
    void onEvent(ScnAction& action) override;
    // The basis from the `matrix` field; the Lua object becomes a global
    // under the node's name; the head light is created under the camera.
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;

    static void addLuaMethods(ScnLuaClass<ScnCameraExamine>& c);
    int luaDisplayAttachment(lua_State* L);
    int luaDisplayFramebuffer(lua_State* L);
    int luaGetFieldOfView(lua_State* L);
    int luaGetLeft(lua_State* L);
    int luaGetUp(lua_State* L);
    int luaGetForward(lua_State* L);
    int luaGetCameraParams(lua_State* L);
    int luaSetOrbital(lua_State* L);
    int luaDrawScreenQuad(lua_State* L);
    int luaGetLight(lua_State* L);
    int luaSetViewpoint(lua_State* L);
    int luaPushViewpoint(lua_State* L);
    int luaPopViewpoint(lua_State* L);

private:
    void navigateFree(ScnActionEvent& action);
    void navigateOrbit(ScnActionEvent& action);
    // Saved basis turned by yaw about its z axis, then by pitch about the new
    // x axis; the position kept at the orbit radius.
    void orbitFromAngles();
    // Walks the head light with the camera's and the light's matrices on the
    // stack; its range follows `far` first.
    void applyToLight(ScnAction& action);
};
