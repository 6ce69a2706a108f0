// Placement in the scene: transforms, whose world matrix is the whole
// placement of the node, and instances, which stand for a stored object file.
#pragma once

#include "node/ScnNode.h"

class ScnTransform : public ScnMatrix {
    SCN_NODE(ScnTransform, ScnMatrix)
public:
    ScnTransform();

    // Under a transform action: on the way to the action's target the node
    // is the current transform for the walk below it; at the target its
    // world matrix becomes frame x delta x frame^-1 x world, with the
    // translation scaled about the frame first when the action has a scale.
    void onTransform(ScnAction& action) override;
};

class ScnInstance : public ScnGroup {
    SCN_NODE(ScnInstance, ScnGroup)
public:
    ScnInstance();

    // The object file, relative to the workspace folder.
    ScnSFString path{this, "path"};
    // Applied once to the loaded object.
    ScnSFMatrix transform{this, "transform"};

    // Stored as path, name, transform: what the instance shows comes from
    // its file, so its child list is never stored.
    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;

    bool isInstanceWrapper() const override { return true; }
};
