// Moves widgets by whole pixels and resizes the one it starts at: the
// widget manipulator's change to a widget and everything in it.
#pragma once

#include "node/ScnAction.h"

class GuiActionTransform : public ScnActionTransform {
public:
    // `dx`, `dy` move every widget reached; a requested width or height that
    // is not 0 replaces that size of the first widget reached, rounded.
    GuiActionTransform(double dx, double dy, double width = 0, double height = 0);

    double translation[2];
    double requested[2];

protected:
    void visit(ScnNode* node) override;
};
