// Cameras: the view and projection of a scene; their children are the
// framebuffers they render. Viewpoints: stored positions with their own lens.
#pragma once

#include "node/ScnNode.h"
#include "render/ScnDeferredLight.h"

class ScnRenderScene;
class ScnFramebuffer;

class ScnCamera : public ScnGroup {
    SCN_NODE(ScnCamera, ScnGroup)
public:
    ScnCamera();

    ScnSF<float> fov{this, "fov", 1.0471976f};
    ScnSF<float> aspect{this, "aspect", 1.33333f};
    ScnSF<float> farPlane{this, "far", 5000.0f};
    ScnSF<float> nearPlane{this, "near", 0.1f};
    ScnSFBool visible{this, "visible", true};

    // Run-time members.
    ScnMatrix16 worldMatrix;  // camera to world
    bool active = false;

    // An active camera enters the render queue in the camera event pass.
    void onEvent(ScnAction& action) override;
    // Renders this camera's framebuffers, each with its root or `scene`; a
    // camera none of whose framebuffers has a target draws `scene` straight
    // into the view.
    virtual void render(ScnRenderScene& target, ScnNode* scene);
    // The framebuffer the display step shows, or null.
    ScnFramebuffer* displayFramebuffer();
    int displayAttachment = 0;
};

class ScnCameraExamine : public ScnCamera {
    SCN_NODE(ScnCameraExamine, ScnCamera)
public:
    ScnCameraExamine();

    ScnSF<float> speed{this, "speed", 1.0f};
    ScnSFMatrix matrix{this, "matrix", ScnMatrix16::translation(0, 0, 12)};
    ScnSFNode<ScnDeferredPointLight> light{this, "light"};

    // Until navigated, the view starts from the stored matrix.
    void onEvent(ScnAction& action) override;

    // The camera branch publishes itself as a script global under its name.
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
};

// A position a camera can be moved to, with its own lens.
class ScnViewpoint : public ScnNode {
    SCN_NODE(ScnViewpoint, ScnNode)
public:
    ScnViewpoint();

    ScnSF<float> fov{this, "fov", 1.0471976f};
    ScnSF<float> aspect{this, "aspect", 1.0f};
    ScnSF<float> farPlane{this, "far", 10.0f};
    ScnSF<float> nearPlane{this, "near", 0.1f};
};
