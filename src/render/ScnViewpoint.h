// A stored position with its own lens, placed by the matrices above it.
// Cameras move to it (setViewpoint, pushViewpoint); the editor shows it as a
// green wire frustum while the scripts don't run.
#pragma once

#include "node/ScnNode.h"

class ScnViewpoint : public ScnNode {
    SCN_NODE(ScnViewpoint, ScnNode)
public:
    ScnViewpoint();

    ScnSF<float> fov{this, "fov", 1.0471976f};
    ScnSF<float> aspect{this, "aspect", 1.0f};
    ScnSF<float> farPlane{this, "far", 10.0f};
    ScnSF<float> nearPlane{this, "near", 0.1f};

    // Run-time: the world matrix, from the top of the action's matrix stack,
    // and the half size of the box that picks it.
    ScnMatrix16 worldMatrix;
    double boxHalfSize = 1;

    // Walk on, then take the world matrix; the event also sizes the box.
    void onUpdate(ScnAction& action) override;
    void onEvent(ScnAction& action) override;
    // While not running: the wire frustum, then walk on.
    void onRender(ScnAction& action) override;
};
