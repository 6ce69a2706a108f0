// A string drawn in the scene with the font atlas.
#pragma once

#include "node/ScnNode.h"

class ScnText : public ScnNode {
    SCN_NODE(ScnText, ScnNode)
public:
    ScnText();

    ScnSFString text{this, "text", "Text.."};
    // Size of the font in world units.
    ScnSF<float> scalar{this, "scalar", 14.0f};
};
