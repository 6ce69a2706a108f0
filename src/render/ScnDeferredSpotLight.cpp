#include "render/ScnDeferredSpotLight.h"

#include <cmath>

#include <lua.hpp>

#include "node/ScnStream.h"
#include "render/ScnScene.h"
#include "runtime/ScnLua.h"

ScnNodeType ScnDeferredSpotLight::s_type;

ScnDeferredSpotLight::ScnDeferredSpotLight()
{
    name = "spotlight";
    direct.node.loadSources("deferred\\lighting\\spotLight");
}

void ScnDeferredSpotLight::read(ScnInStream& in)
{
    ScnDeferredLight::read(in);
    if (!in.failed() && ScnFile::formatVersion < 1016) direct.node.loadSources("deferred\\lighting\\spotDirect");
}

double ScnDeferredSpotLight::halfSize() const
{
    const double pi = 3.14159265358979323846;
    return std::tan(std::acos(static_cast<double>(spread.value)) * pi * 0.5) * range.value * 0.6;
}

void ScnDeferredSpotLight::makeVolume(std::vector<float>& v) const
{
    const float h = static_cast<float>(halfSize()), r = -range.value;
    const float p[18][3] = {{0, 0, 0}, {r, h, -h}, {r, h, h},  {0, 0, 0}, {r, h, h},   {r, -h, h},
                            {0, 0, 0}, {r, -h, h}, {r, -h, -h}, {0, 0, 0}, {r, -h, -h}, {r, h, -h},
                            {r, h, h}, {r, -h, -h}, {r, -h, h}, {r, -h, -h}, {r, h, h},  {r, h, -h}};
    for (const auto& q : p) v.insert(v.end(), q, q + 3);
}

bool ScnDeferredSpotLight::drawVolume(const ScnActionRender& action, const Frustum& frustum, double nearPlane)
{
    const double h = halfSize(), half = range.value * 0.5;
    // The box centred on the cone's middle, half the range down the light's x axis.
    ScnMatrix16 centre = worldMatrix;
    for (int i = 0; i < 3; ++i) centre.m[12 + i] -= worldMatrix.m[i] * half;
    ScnBox local;
    local.min[0] = -half - nearPlane;
    local.max[0] = half + nearPlane;
    for (int i = 1; i < 3; ++i) {
        local.min[i] = -h - nearPlane;
        local.max[i] = h + nearPlane;
    }
    const ScnBox box = scnTransformBox(local, centre);
    for (int i = 0; i < 3; ++i) {
        worldBox[i] = box.min[i];
        worldBox[3 + i] = box.max[i];
    }
    if (!frustum.touches(worldBox)) return false;
    // The eye in the box's own space.
    ScnMatrix16 inverse;
    bool inside = false;
    if (scnInverse(centre, inverse)) {
        const double* e = &action.cameraMatrix.m[12];
        double q[3];
        for (int i = 0; i < 3; ++i)
            q[i] = inverse.m[i] * e[0] + inverse.m[4 + i] * e[1] + inverse.m[8 + i] * e[2] + inverse.m[12 + i];
        const double margin = 1.1 * nearPlane;
        inside = std::abs(q[0]) < half + margin && std::abs(q[1]) < h + margin && std::abs(q[2]) < h + margin;
    }
    drawWith(action, worldMatrix, inside, 18);
    return true;
}

void ScnDeferredSpotLight::addLuaMethods(ScnLuaClass<ScnDeferredSpotLight>& c)
{
    c.add("getLightParams", &ScnDeferredSpotLight::luaGetLightParams);
    c.add("setSpread", &ScnDeferredSpotLight::luaSetSpread);
    c.add("getSpread", &ScnDeferredSpotLight::luaGetSpread);
}

int ScnDeferredSpotLight::luaSetSpread(lua_State* L)
{
    if (lua_type(L, 1) != LUA_TNUMBER) return luaL_typerror(L, 1, "number");
    spread.value = static_cast<float>(lua_tonumber(L, 1));
    if (m_created) rebuildVolume();
    return 0;
}

int ScnDeferredSpotLight::luaGetSpread(lua_State* L)
{
    lua_pushnumber(L, spread.value);
    return 1;
}
