#include "widgets/GuiActionRender.h"

#include "widgets/GuiDraw.h"

void GuiActionRender::visit(ScnNode* node)
{
    if (stop) {
        continueWalk(node, Siblings);
        return;
    }
    GuiDraw::lower(0.001f);
    ScnActionRender::visit(node);
}
