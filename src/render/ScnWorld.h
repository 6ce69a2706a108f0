// The world branch: a matrix group with a flag word, the root of the scene.
#pragma once

#include "node/ScnNode.h"

class ScnWorld : public ScnMatrix {
    SCN_NODE(ScnWorld, ScnMatrix)
public:
    ScnWorld();

    ScnSFBits flags{this, "flags", 65535};

    // A world publishes itself as a script global under its name.
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    // Step from the running value; the accumulated box becomes the scene box.
    void onEvent(ScnAction& action) override;
    // Axes while not running; the world is current for its children.
    void onRender(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;

    double step = 0;                  // seconds per frame while running
    ScnWorld* outerWorld = nullptr;   // the world current when the last update reached this one
};
