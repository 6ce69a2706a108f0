#include "render/ScnDeferredPointLight.h"

#include "render/ScnScene.h"
#include "runtime/ScnLua.h"

ScnNodeType ScnDeferredPointLight::s_type;

ScnDeferredPointLight::ScnDeferredPointLight()
{
    name = "pointlight";
    direct.node.loadSources("deferred\\lighting\\pointLight");
}

void ScnDeferredPointLight::makeVolume(std::vector<float>& v) const
{
    // Each face as two triangles, counter-clockwise seen from outside: the
    // face's axis a is fixed at s, u and w span it with u x w along +a.
    const float r = range.value;
    for (int face = 0; face < 6; ++face) {
        const int a = face / 2, u = (a + 1) % 3, w = (a + 2) % 3;
        const float s = face % 2 == 0 ? 1.0f : -1.0f;
        // Corners in the (u, w) plane, in order round the face as seen from +a.
        const float corner[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
        const int order[6] = {0, 1, 2, 0, 2, 3};
        for (int k = 0; k < 6; ++k) {
            // Seen from -a the order turns: swap u and w there.
            const float cu = corner[order[k]][s > 0 ? 0 : 1], cw = corner[order[k]][s > 0 ? 1 : 0];
            float p[3];
            p[a] = s;
            p[u] = cu;
            p[w] = cw;
            for (float c : p) v.push_back(c * r);
        }
    }
}

bool ScnDeferredPointLight::drawVolume(const ScnActionRender& action, const Frustum& frustum, double nearPlane)
{
    const double r = range.value + nearPlane;
    ScnBox local;
    for (int i = 0; i < 3; ++i) {
        local.min[i] = -r;
        local.max[i] = r;
    }
    const ScnBox box = scnTransformBox(local, worldMatrix);
    for (int i = 0; i < 3; ++i) {
        worldBox[i] = box.min[i];
        worldBox[3 + i] = box.max[i];
    }
    if (!frustum.touches(worldBox)) return false;
    bool inside = true;
    for (int i = 0; i < 3; ++i)
        inside = inside && action.cameraMatrix.m[12 + i] >= box.min[i] && action.cameraMatrix.m[12 + i] <= box.max[i];
    drawWith(action, worldMatrix, inside, 36);
    return true;
}

void ScnDeferredPointLight::addLuaMethods(ScnLuaClass<ScnDeferredPointLight>& c)
{
    c.add("getLightParams", &ScnDeferredPointLight::luaGetLightParams);
}
