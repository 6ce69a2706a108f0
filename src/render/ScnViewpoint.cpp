#include <GL/glew.h>

#include "render/ScnViewpoint.h"

#include <cmath>

#include "platform/GlContext.h"
#include "render/ScnScene.h"
#include "runtime/Clock.h"

ScnNodeType ScnViewpoint::s_type;

ScnViewpoint::ScnViewpoint()
{
    name = "viewpoint";
}

void ScnViewpoint::onUpdate(ScnAction& action)
{
    ScnNode::onUpdate(action);
    worldMatrix = action.top();
}

void ScnViewpoint::onEvent(ScnAction& action)
{
    ScnNode::onEvent(action);
    worldMatrix = action.top();
    const double diagonal = ScnScene::sceneBox[6];
    boxHalfSize = diagonal > 0 ? diagonal / 40 : 1;
}

void ScnViewpoint::onRender(ScnAction& action)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    if (render && Engine::running == 0 && GlContext::ready()) {
        // The near rectangle and four short rays through its corners, in the
        // viewpoint's own space; the action's matrix stack places it.
        const double n = nearPlane.value;
        const double h = std::tan(fov.value / 2) * n, w = h * aspect.value;
        const double ray = (farPlane.value - n) / 100;
        const double corner[4][2] = {{-w, -h}, {w, -h}, {w, h}, {-w, h}};
        float v[(6 + 4 * 3) * 3];
        int k = 0;
        auto put = [&](double x, double y, double z) {
            v[k++] = static_cast<float>(x);
            v[k++] = static_cast<float>(y);
            v[k++] = static_cast<float>(z);
        };
        for (int i : {0, 1, 2, 0, 2, 3}) put(corner[i][0], corner[i][1], -n);
        const double s = (n + ray) / n;  // along the ray from the eye through the corner
        for (const auto& c : corner) {
            put(c[0], c[1], -n);
            put(c[0] * s, c[1] * s, -(n + ray));
            put(c[0], c[1], -n);
        }
        static const float kGreen[3] = {0, 0.5f, 0};
        ScnScene::beginWire(*render, kGreen);
        ScnScene::drawTriangles(v, k / 3);
        ScnScene::endWire();
    }
    ScnNode::onRender(action);
}
