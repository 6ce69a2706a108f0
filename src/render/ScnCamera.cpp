#include <GL/glew.h>

#include "render/ScnCamera.h"

#include <cmath>

#include "node/ScnMFFunction.h"
#include "platform/GlContext.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnLightbuffer.h"
#include "render/ScnScene.h"
#include "render/ScnViewpoint.h"

ScnNodeType ScnCamera::s_type;

ScnCamera::ScnCamera()
{
    name = "camera";
    refreshProjection();
}

ScnCamera::~ScnCamera()
{
    // A camera that goes without its destroy walk leaves nothing behind.
    ScnScene::removeFromQueue(this);
    if (ScnScene::mainCamera() == this) ScnScene::setMainCamera(nullptr);
    setDisplayFramebuffer(nullptr);
}

void ScnCamera::setDisplayFramebuffer(ScnFramebuffer* fb)
{
    if (fb == m_display) return;
    if (m_display) std::erase(m_display->m_viewers, this);
    m_display = fb;
    if (fb) fb->m_viewers.push_back(this);
}

void ScnCamera::setMatrix(const ScnMatrix16& m)
{
    worldMatrix = m;
    if (!scnInverse(worldMatrix, inverseMatrix)) inverseMatrix = ScnMatrix16{};
    for (int i = 0; i < 16; ++i) {
        worldFloat[i] = static_cast<float>(worldMatrix.m[i]);
        inverseFloat[i] = static_cast<float>(inverseMatrix.m[i]);
    }
    for (int i = 0; i < 3; ++i) eye[i] = worldMatrix.m[12 + i];
}

void ScnCamera::copyLens(const ScnNode& source)
{
    if (const auto* c = dynamic_cast<const ScnCamera*>(&source)) {
        fov = c->fov.value;
        aspect = c->aspect.value;
        farPlane = c->farPlane.value;
        nearPlane = c->nearPlane.value;
        setMatrix(c->worldMatrix);
    } else if (const auto* v = dynamic_cast<const ScnViewpoint*>(&source)) {
        fov = v->fov.value;
        aspect = v->aspect.value;
        farPlane = v->farPlane.value;
        nearPlane = v->nearPlane.value;
        setMatrix(v->worldMatrix);
    }
}

void ScnCamera::matchCamera(const ScnCamera& other)
{
    nearPlane = other.nearPlane.value;
    farPlane = other.farPlane.value;
    setMatrix(other.worldMatrix);
}

void ScnCamera::refreshProjection()
{
    const double halfHeight = std::tan(fov.value / 2.0) * nearPlane.value;
    frustum[0] = farPlane.value;
    frustum[1] = nearPlane.value;
    frustum[2] = halfHeight * aspect.value;
    frustum[3] = halfHeight;

    // The perspective of a lens given in degrees, in 32-bit floats as GL takes it.
    const float pi = 3.14159265358979323846f;
    const float degrees = fov.value * 180.0f / pi;
    const float n = nearPlane.value, f = farPlane.value;
    const float t = std::tan(degrees * pi / 360.0f) * n;
    const float r = t * aspect.value;
    for (float& e : projection) e = 0;
    if (r == 0 || t == 0 || f == n) return;  // a degenerate lens draws nothing
    projection[0] = 2 * n / (r - -r);
    projection[5] = 2 * n / (t - -t);
    projection[10] = -(f + n) / (f - n);
    projection[11] = -1;
    projection[14] = -2 * f * n / (f - n);
}

void ScnCamera::onEvent(ScnAction& action)
{
    if (active) ScnScene::enqueueCamera(this);
    ScnGroup::onEvent(action);
}

void ScnCamera::onUpdate(ScnAction& action)
{
    ScnFramebuffer* first = nullptr;
    for (ScnNode* n = firstChild(); n && !first; n = n->next()) first = dynamic_cast<ScnFramebuffer*>(n);
    setDisplayFramebuffer(first);
    displayAttachment = 0;
    ScnGroup::onUpdate(action);
}

void ScnCamera::onDestroy(ScnAction& action)
{
    ScnScene::removeFromQueue(this);
    setDisplayFramebuffer(nullptr);  // the children go with this walk
    ScnGroup::onDestroy(action);
}

void ScnCamera::addEvents(ScnMFFunction& f)
{
    if (f.indexOf("OnPreRender") < 0) f.append("OnPreRender");
    if (f.indexOf("OnPostRender") < 0) f.append("OnPostRender");
}

void ScnCamera::removeEvents(ScnMFFunction& f)
{
    f.remove("OnPreRender");
    f.remove("OnPostRender");
}

void ScnCamera::render(ScnRenderScene& target, ScnNode* scene)
{
    ScnActionRender& action = target.action;
    refreshProjection();
    action.takeCamera();
    notify(OnPreRender);
    for (ScnNode* n = firstChild(); n; n = n->next()) {
        if (auto* lb = dynamic_cast<ScnLightbuffer*>(n)) {
            // The light pass itself is started by a script in one of these.
            lb->camera = this;
            lb->begin();
            lb->end();
            lb->camera = nullptr;
            continue;
        }
        auto* fb = dynamic_cast<ScnFramebuffer*>(n);
        if (!fb) continue;  // shaders take part through their framebuffers
        fb->camera = this;
        target.width = fb->width.value;
        target.height = fb->height.value;
        if (fb->begin()) {
            ScnNode* root = fb->root();
            if (!root) root = scene;
            // A root deep in the tree is reached along its path, so that the
            // matrices of its ancestors apply.
            action.clearBindings();
            if (root) action.apply(root == scene ? scene : action.buildPath(root, nullptr));
            fb->end();
        }
        fb->camera = nullptr;
    }
    notify(OnPostRender);
}
