#include "render/ScnTransform.h"

#include <cmath>
#include <cstring>

#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>
#include <lua.hpp>

#include "node/ScnAction.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "runtime/ScnLua.h"

ScnNodeType ScnTransform::s_type;

ScnTransform::ScnTransform()
{
    name = "transform";
}

void ScnTransform::descend(ScnAction& action)
{
    ScnTransform* saved = ScnScene::currentTransform;
    ScnScene::currentTransform = this;
    action.walk(this, ScnAction::Children);
    ScnScene::currentTransform = saved;
}

void ScnTransform::onRender(ScnAction& action)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    if (!enabled()) {
        action.walk(this, ScnAction::Siblings);
        return;
    }
    action.pushMatrix(worldmatrix.value);
    ScnShader* shader = ScnScene::currentShader;
    if (render && shader) shader->pushMatrices(*render, action.top());
    descend(action);
    action.popMatrix();
    // The shader may have changed below only for the children: the one
    // current here is the one the siblings draw with.
    shader = ScnScene::currentShader;
    if (render && shader) shader->pushMatrices(*render, action.top());
    action.walk(this, ScnAction::Siblings);
}

void ScnTransform::onCreate(ScnAction& action)
{
    action.pushMatrix(worldmatrix.value);
    descend(action);
    action.popMatrix();
    action.walk(this, ScnAction::Siblings);
}

void ScnTransform::onDestroy(ScnAction& action)
{
    action.pushMatrix(worldmatrix.value);
    descend(action);
    action.popMatrix();
    action.walk(this, ScnAction::Siblings);
}

void ScnTransform::onUpdate(ScnAction& action)
{
    local = worldmatrix.value;
    if (ScnTransform* parent = ScnScene::currentTransform) {
        ScnMatrix16 inverse;
        // A parent that cannot be inverted (a zero scale) leaves the world
        // matrix as the local one rather than making it up.
        if (scnInverse(parent->worldmatrix.value, inverse)) local = scnMultiply(inverse, local);
    }
    action.pushMatrix(worldmatrix.value);
    descend(action);
    action.popMatrix();
    action.walk(this, ScnAction::Siblings);
}

void ScnTransform::onEvent(ScnAction& action)
{
    if (ScnTransform* parent = ScnScene::currentTransform)
        worldmatrix.value = scnMultiply(parent->worldmatrix.value, local);
    else
        worldmatrix.value = local;
    if (!enabled()) {
        action.walk(this, ScnAction::Siblings);
        return;
    }
    action.pushMatrix(worldmatrix.value);
    descend(action);
    action.popMatrix();
    action.walk(this, ScnAction::Siblings);
}

void ScnTransform::onTransform(ScnAction& action)
{
    auto* move = dynamic_cast<ScnActionTransform*>(&action);
    if (!move) {
        ScnMatrix::onTransform(action);
        return;
    }
    if (pathLink) {
        // On the way: world matrices are absolute, so the push multiplies nothing.
        action.pushMatrix(worldmatrix.value);
        descend(action);
        action.popMatrix();
        action.walk(this, ScnAction::Siblings);
        return;
    }
    ScnMatrix16 world = scnMultiply(move->frameInverse, worldmatrix.value);
    if (move->hasScale) {
        // Only the position relative to the frame is scaled; the node's own
        // axes keep their length. The product is taken in floats: rounding a
        // double product to float instead is lost in two of the three lanes
        // when g++ 12 vectorises the loop at -O2.
        for (int i = 0; i < 3; ++i)
            world.m[12 + i] = static_cast<float>(world.m[12 + i]) * static_cast<float>(move->scale.m[i * 5]);
    }
    if (move->hasDelta) world = scnMultiply(move->delta, world);
    worldmatrix.value = scnMultiply(move->frame, world);
    action.walk(this, ScnAction::Siblings);
}

// -- rotation of the local matrix ---------------------------------------------------

namespace {

glm::dquat quaternionOf(double angle, double ax, double ay, double az)
{
    // glm::angleAxis would do the same; written out so that it is plain that
    // the axis is not normalised.
    const double s = std::sin(angle / 2);
    return glm::dquat(std::cos(angle / 2), ax * s, ay * s, az * s);
}

void setUpperLeft(ScnMatrix16& m, const glm::dmat3& r)
{
    for (int c = 0; c < 3; ++c)
        for (int row = 0; row < 3; ++row) m.m[c * 4 + row] = r[c][row];
}

glm::dmat3 upperLeft(const ScnMatrix16& m)
{
    glm::dmat3 r;
    for (int c = 0; c < 3; ++c)
        for (int row = 0; row < 3; ++row) r[c][row] = m.m[c * 4 + row];
    return r;
}

}  // namespace

void ScnTransform::setRotation(double angle, double ax, double ay, double az)
{
    setUpperLeft(local, glm::mat3_cast(quaternionOf(angle, ax, ay, az)));
}

void ScnTransform::rotate(double angle, double ax, double ay, double az)
{
    const glm::dquat present = glm::quat_cast(upperLeft(local));
    setUpperLeft(local, glm::mat3_cast(quaternionOf(angle, ax, ay, az) * present));
}

// -- script methods -------------------------------------------------------------------

void ScnTransform::addLuaMethods(ScnLuaClass<ScnTransform>& c)
{
    c.add("setTranslation", &ScnTransform::luaSetTranslation);
    c.add("translate", &ScnTransform::luaTranslate);
    c.add("setRotation", &ScnTransform::luaSetRotation);
    c.add("rotate", &ScnTransform::luaRotate);
}

int ScnTransform::luaSetTranslation(lua_State* L)
{
    const double x = luaL_checknumber(L, 1), y = luaL_checknumber(L, 2), z = luaL_checknumber(L, 3);
    local.m[12] = static_cast<float>(x);
    local.m[13] = static_cast<float>(y);
    local.m[14] = static_cast<float>(z);
    return 0;
}

int ScnTransform::luaTranslate(lua_State* L)
{
    const double x = luaL_checknumber(L, 1), y = luaL_checknumber(L, 2), z = luaL_checknumber(L, 3);
    local.m[12] += x;
    local.m[13] += y;
    local.m[14] += z;
    return 0;
}

int ScnTransform::luaSetRotation(lua_State* L)
{
    const double a = luaL_checknumber(L, 1), x = luaL_checknumber(L, 2), y = luaL_checknumber(L, 3),
                 z = luaL_checknumber(L, 4);
    setRotation(a, x, y, z);
    return 0;
}

int ScnTransform::luaRotate(lua_State* L)
{
    const double a = luaL_checknumber(L, 1), x = luaL_checknumber(L, 2), y = luaL_checknumber(L, 3),
                 z = luaL_checknumber(L, 4);
    rotate(a, x, y, z);
    return 0;
}
