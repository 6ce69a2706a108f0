#include "render/ScnCameraExamine.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <glm/geometric.hpp>
#include <glm/gtc/quaternion.hpp>

#include "compute/OclLua.h"
#include "compute/oclObject.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "render/ScnViewpoint.h"
#include "runtime/BranchGlobals.h"
#include "runtime/ScnLua.h"
#include "widgets/InputState.h"

ScnNodeType ScnCameraExamine::s_type;

namespace {

constexpr double kPi = 3.14159265358979323846;

// The quaternion of a turn by `angle` about `axis` (right-handed).
glm::dquat turnAbout(const glm::dvec3& axis, double angle)
{
    return glm::angleAxis(angle, glm::normalize(axis));
}

glm::dvec3 column(const ScnMatrix16& m, int c)
{
    return glm::dvec3(m.m[4 * c], m.m[4 * c + 1], m.m[4 * c + 2]);
}

}  // namespace

ScnCameraExamine::ScnCameraExamine()
{
    name = "Camera";
}

void ScnCameraExamine::setMatrix(const ScnMatrix16& m)
{
    ScnCamera::setMatrix(m);
    xAxis = column(m, 0);
    yAxis = column(m, 1);
    zAxis = column(m, 2);
    position = column(m, 3);
}

void ScnCameraExamine::rebuild()
{
    ScnMatrix16 m;
    for (int i = 0; i < 3; ++i) {
        m.m[i] = xAxis[i];
        m.m[4 + i] = yAxis[i];
        m.m[8 + i] = zAxis[i];
        m.m[12 + i] = position[i];
    }
    m.m[3] = m.m[7] = m.m[11] = 0;
    m.m[15] = 1;
    ScnCamera::setMatrix(m);
}

// -- orbit mode and viewpoints -------------------------------------------------

void ScnCameraExamine::orbitFromAngles()
{
    const glm::dquat yaw = turnAbout(column(savedBasis, 2), orbitYaw);
    xAxis = yaw * column(savedBasis, 0);
    yAxis = yaw * column(savedBasis, 1);
    zAxis = yaw * column(savedBasis, 2);
    position = yaw * column(savedBasis, 3);
    const glm::dquat pitch = turnAbout(xAxis, orbitPitch);
    yAxis = pitch * yAxis;
    zAxis = pitch * zAxis;
    position = pitch * position;
    if (glm::length(position) > 0) position = glm::normalize(position) * orbitRadius;
    rebuild();
}

void ScnCameraExamine::setOrbital(double minimum, double maximum, double radius, double yaw, double pitch)
{
    mode = Orbit;
    orbitMin = minimum;
    orbitMax = maximum;
    orbitRadius = radius;
    orbitYaw = yaw;
    orbitPitch = pitch;
    xAxis = {1, 0, 0};
    yAxis = {0, 1, 0};
    zAxis = {0, 0, 1};
    position = {0, 0, radius};
    rebuild();
    savedBasis = worldMatrix;
    orbitFromAngles();
}

void ScnCameraExamine::setViewpoint(const ScnMatrix16& m)
{
    if (mode == Orbit) return;
    setMatrix(m);
}

void ScnCameraExamine::pushViewpoint(const ScnMatrix16& m)
{
    std::array<float, 16> saved;
    std::memcpy(saved.data(), worldFloat, sizeof worldFloat);
    viewpointStack.push_back(saved);
    setMatrix(m);
}

bool ScnCameraExamine::popViewpoint()
{
    if (viewpointStack.empty()) return false;
    ScnMatrix16 m;
    for (int i = 0; i < 16; ++i) m.m[i] = viewpointStack.back()[i];
    viewpointStack.pop_back();
    setMatrix(m);
    return true;
}

// -- navigation ---------------------------------------------------------------------

namespace {

bool mouseInside(const InputState& in)
{
    return in.normX > 0 && in.normX < 1.1 && in.normY > -0.1 && in.normY < 1.0;
}

}  // namespace

void ScnCameraExamine::navigateFree(ScnActionEvent&)
{
    const InputState& in = InputState::instance();
    const bool control = in.held(InputState::KeyControl);
    const bool shift = in.held(InputState::KeyShift);
    auto turnAll = [this](const glm::dvec3& axis, double angle) {
        const glm::dquat q = turnAbout(axis, angle);
        xAxis = q * xAxis;
        yAxis = q * yAxis;
        zAxis = q * zAxis;
    };
    // Eye and axes about the pivot.
    auto orbitPivot = [this, &turnAll](const glm::dvec3& axis, double angle) {
        position = pivot + turnAbout(axis, angle) * (position - pivot);
        turnAll(axis, angle);
    };

    // 1. The step follows the distance to what is looked at.
    if (active) speed = static_cast<float>(focusDistance / 105);
    const double step = speed.value;

    // 2. The view's scroll values: the first, or else the second.
    if (mouseInside(in)) {
        const double s = in.scroll[0], t = in.scroll[1];
        if (s != 0) {
            if (control)
                position -= yAxis * (step * 50 * s);
            else if (shift)
                nearPlane = static_cast<float>((1 - 1.4 * s) * nearPlane.value);
            else
                orbitPivot(glm::dvec3(0, 1, 0), -kPi * s);
        } else if (t != 0) {
            if (control)
                position += xAxis * (step * 50 * t);
            else if (shift)
                speed = static_cast<float>((1 - 1.4 * t) * speed.value);
            else
                orbitPivot(xAxis, -kPi * t);
        }
    }

    // 3. Keys, each on its own, one step per frame while held.
    const double move = speed.value;
    if (in.held(InputState::KeyUp)) turnAll(glm::dvec3(xAxis), -kKeyStep);
    if (in.held(InputState::KeyDown)) turnAll(glm::dvec3(xAxis), kKeyStep);
    if (in.held(InputState::KeyLeft)) turnAll(control ? glm::dvec3(zAxis) : glm::dvec3(yAxis), kKeyStep);
    if (in.held(InputState::KeyRight)) turnAll(control ? glm::dvec3(zAxis) : glm::dvec3(yAxis), -kKeyStep);
    struct MoveKey {
        int code;
        glm::dvec3 ScnCameraExamine::*axis;
        double sign;
    };
    static const MoveKey kMoves[] = {{'w', &ScnCameraExamine::zAxis, -1}, {'s', &ScnCameraExamine::zAxis, 1},
                                     {'a', &ScnCameraExamine::xAxis, -1}, {'d', &ScnCameraExamine::xAxis, 1},
                                     {'r', &ScnCameraExamine::yAxis, -1}, {'f', &ScnCameraExamine::yAxis, 1}};
    for (const MoveKey& k : kMoves)
        if (in.held(k.code)) {
            position += (this->*k.axis) * (k.sign * move);
            velocity = 0;
        }

    // 4. Right button turns (CONTROL tilts); the left button stops a flight.
    if (in.rightButton & InputState::Held) {
        if (control) {
            const glm::dquat q = turnAbout(zAxis, -kPi * in.normDeltaX);
            xAxis = q * xAxis;
            yAxis = q * yAxis;
        } else {
            const glm::dquat q = turnAbout(xAxis, kPi * in.normDeltaY) * turnAbout(yAxis, -kPi * in.normDeltaX);
            xAxis = q * xAxis;
            yAxis = q * yAxis;
            zAxis = q * zAxis;
        }
    } else if (in.leftButton & InputState::Held) {
        velocity = 0;
    }

    // 5. The wheel speeds a flight up forwards or backwards.
    if (in.wheel >= 1)
        velocity = std::max(-60.0, velocity - (velocity / 100 + 0.1));
    else if (in.wheel < 0)
        velocity = std::min(60.0, velocity + velocity / 100 + 0.1);

    // 6. A flight goes on until a move key or the left button stops it.
    if (velocity != 0) position += zAxis * (speed.value * velocity);

    // 7.
    rebuild();
}

void ScnCameraExamine::navigateOrbit(ScnActionEvent&)
{
    const InputState& in = InputState::instance();
    const bool right = in.rightButton & InputState::Held;
    if (!mouseInside(in) || !(right || in.wheel != 0)) return;
    if (right) {
        orbitYaw -= in.normDeltaX * kPi * 0.5;
        orbitPitch = std::clamp(orbitPitch + in.normDeltaY * kPi, 0.0, kMaxPitch);
        orbitFromAngles();
    }
    if (in.wheel != 0) orbitRadius = std::clamp(orbitRadius - in.wheel * (orbitMax - orbitMin) * 0.1, orbitMin, orbitMax);
    if (glm::length(position) > 0) position = glm::normalize(position) * orbitRadius;
    rebuild();
}

void ScnCameraExamine::applyToLight(ScnAction& action)
{
    // The head light reaches as far as the camera sees.
    if (light.node.range.value != farPlane.value) {
        light.node.range = farPlane.value;
        light.node.rebuildVolume();
    }
    action.pushMultiplied(worldMatrix);
    action.pushMultiplied(lightMatrix);
    action.apply(&light.node);
    action.popMatrix();
    action.popMatrix();
}

void ScnCameraExamine::onEvent(ScnAction& action)
{
    auto* event = dynamic_cast<ScnActionEvent*>(&action);
    if (event && active && visible.value && !action.handled && InputState::instance().capture) {
        if (mode == Orbit)
            navigateOrbit(*event);
        else
            navigateFree(*event);
    }
    ScnCamera::onEvent(action);
    applyToLight(action);
}

void ScnCameraExamine::onCreate(ScnAction& action)
{
    setMatrix(matrix.value);
    if (!pathLink) BranchGlobals::publish(this);
    applyToLight(action);
    ScnCamera::onCreate(action);
}

void ScnCameraExamine::onDestroy(ScnAction& action)
{
    if (!pathLink) BranchGlobals::withdraw(this, getName());
    applyToLight(action);
    ScnCamera::onDestroy(action);
}

// -- script methods -------------------------------------------------------------------

void ScnCameraExamine::addLuaMethods(ScnLuaClass<ScnCameraExamine>& c)
{
    c.add("displayAttachment", &ScnCameraExamine::luaDisplayAttachment);
    c.add("displayFramebuffer", &ScnCameraExamine::luaDisplayFramebuffer);
    c.add("getFieldOfView", &ScnCameraExamine::luaGetFieldOfView);
    c.add("getLeft", &ScnCameraExamine::luaGetLeft);
    c.add("getUp", &ScnCameraExamine::luaGetUp);
    c.add("getForward", &ScnCameraExamine::luaGetForward);
    c.add("getCameraParams", &ScnCameraExamine::luaGetCameraParams);
    c.add("setOrbital", &ScnCameraExamine::luaSetOrbital);
    c.add("drawScreenQuad", &ScnCameraExamine::luaDrawScreenQuad);
    c.add("getLight", &ScnCameraExamine::luaGetLight);
    c.add("setViewpoint", &ScnCameraExamine::luaSetViewpoint);
    c.add("pushViewpoint", &ScnCameraExamine::luaPushViewpoint);
    c.add("popViewpoint", &ScnCameraExamine::luaPopViewpoint);
}

int ScnCameraExamine::luaDisplayAttachment(lua_State* L)
{
    if (lua_type(L, 1) != LUA_TNUMBER) return luaL_typerror(L, 1, "number");
    const double n = lua_tonumber(L, 1);
    // Out-of-range numbers are kept out of int; the display step reports them.
    displayAttachment = n >= -2147483648.0 && n <= 2147483647.0 ? static_cast<int>(n) : -1;
    return 0;
}

int ScnCameraExamine::luaDisplayFramebuffer(lua_State* L)
{
    ScnFramebuffer* fb = ScnLuaClass<ScnFramebuffer>::check(L, 1);
    if (!fb) return luaL_typerror(L, 1, "framebuffer object");
    setDisplayFramebuffer(fb);
    return 0;
}

int ScnCameraExamine::luaGetFieldOfView(lua_State* L)
{
    lua_pushnumber(L, fov.value);
    return 1;
}

namespace {
int pushAxis(lua_State* L, const ScnMatrix16& m, int c, double sign)
{
    for (int i = 0; i < 3; ++i) lua_pushnumber(L, sign * m.m[4 * c + i]);
    lua_pushnumber(L, 1);
    return 4;
}
}  // namespace

int ScnCameraExamine::luaGetLeft(lua_State* L)
{
    return pushAxis(L, worldMatrix, 0, 1);
}

int ScnCameraExamine::luaGetUp(lua_State* L)
{
    return pushAxis(L, worldMatrix, 1, 1);
}

int ScnCameraExamine::luaGetForward(lua_State* L)
{
    return pushAxis(L, worldMatrix, 2, -1);
}

int ScnCameraExamine::luaGetCameraParams(lua_State* L)
{
    // The record gs_camera: axes and eye of the world matrix, axes of the
    // inverse, then far and near.
    constexpr size_t kSize = 120;
    auto* b = dynamic_cast<oclBuffer*>(OclLua::to(L, 1));
    if (!b) return luaL_typerror(L, 1, "1D buffer object");
    if (!b->proxy) return luaL_error(L, "Proxy missing in buffer object %s ", b->name());
    if (b->mapFlags == 0 || !b->data) return luaL_argerror(L, 1, "buffer not mapped");
    if (b->dim(0) < kSize) return luaL_argerror(L, 1, "buffer smaller than structure size");
    float record[30];
    float* p = record;
    for (int c = 0; c < 4; ++c) {
        for (int i = 0; i < 3; ++i) *p++ = static_cast<float>(worldMatrix.m[4 * c + i]);
        *p++ = c == 3 ? 1.0f : 0.0f;
    }
    for (int c = 0; c < 3; ++c) {
        for (int i = 0; i < 3; ++i) *p++ = static_cast<float>(inverseMatrix.m[4 * c + i]);
        *p++ = 0.0f;
    }
    *p++ = farPlane.value;
    *p++ = nearPlane.value;
    std::memcpy(b->data, record, kSize);
    return 0;
}

int ScnCameraExamine::luaSetOrbital(lua_State* L)
{
    auto arg = [L](int i, double fallback) { return lua_type(L, i) == LUA_TNUMBER ? lua_tonumber(L, i) : fallback; };
    const double degrees = kPi / 180;
    const double yaw = lua_type(L, 4) == LUA_TNUMBER ? lua_tonumber(L, 4) * degrees : 1.1;
    const double pitch = lua_type(L, 5) == LUA_TNUMBER ? lua_tonumber(L, 5) * degrees : 0.9;
    setOrbital(arg(1, 0.1), arg(2, 10), arg(3, 10), yaw, pitch);
    return 0;
}

int ScnCameraExamine::luaDrawScreenQuad(lua_State* L)
{
    ScnShader* shader = ScnLuaClass<ScnShader>::check(L, 1);
    if (!shader) return luaL_argerror(L, 1, "shader object");
    ScnScene::drawScreenQuad(*shader);
    return 0;
}

int ScnCameraExamine::luaGetLight(lua_State* L)
{
    // The light lives inside the camera: its Lua object is made when first asked for.
    if (!light.node.getLuaRef()) ScnLua::createLuaObject(L, &light.node);
    ScnLua::pushNode(L, &light.node);
    return 1;
}

int ScnCameraExamine::luaSetViewpoint(lua_State* L)
{
    if (auto* v = ScnLuaClass<ScnViewpoint>::check(L, 1)) setViewpoint(v->worldMatrix);
    return 0;
}

int ScnCameraExamine::luaPushViewpoint(lua_State* L)
{
    if (auto* v = ScnLuaClass<ScnViewpoint>::check(L, 1)) pushViewpoint(v->worldMatrix);
    return 0;
}

int ScnCameraExamine::luaPopViewpoint(lua_State*)
{
    popViewpoint();
    return 0;
}
