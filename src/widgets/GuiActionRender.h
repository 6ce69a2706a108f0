// The render walk over the widget branch: each node it reaches lies 0.001
// nearer than the one before, so later siblings and deeper levels draw on
// top without sorting. A shader among the widgets gets gs_Viewport from
// the extent of its parent.
#pragma once

#include "render/ScnScene.h"

class GuiActionRender : public ScnActionRender {
public:
    GuiActionRender(ScnCamera* camera, int width, int height) : ScnActionRender(camera, width, height) {}

protected:
    void visit(ScnNode* node) override;
};
