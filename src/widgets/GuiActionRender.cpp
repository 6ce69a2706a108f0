#include "widgets/GuiActionRender.h"

#include <GL/glew.h>

#include "platform/GlContext.h"
#include "render/ScnShader.h"
#include "widgets/GuiActionUpdate.h"
#include "widgets/GuiComponent.h"
#include "widgets/GuiDraw.h"
#include "widgets/GuiRoot.h"

void GuiActionRender::visit(ScnNode* node)
{
    if (stop) {
        continueWalk(node, Siblings);
        return;
    }
    GuiDraw::lower(0.001f);
    auto* shader = dynamic_cast<ScnShader*>(node);
    if (!shader || !shader->program || !shader->enabled() || !GlContext::ready()) {
        ScnActionRender::visit(node);
        return;
    }
    // A shader among widgets draws into its parent's extent: a widget's
    // size, or the root's picture.
    float w = viewport[0], h = viewport[1];
    ScnSFVec3f *position = nullptr, *size = nullptr;
    if (guiWidgetFields(node->parent(), position, size)) {
        w = static_cast<float>(size->value.x);
        h = static_cast<float>(size->value.y);
    } else if (auto* root = dynamic_cast<GuiRoot*>(node->parent())) {
        w = static_cast<float>(root->dim0.value);
        h = static_cast<float>(root->dim1.value);
    }
    glUseProgram(shader->program);
    GuiActionUpdate::setViewportUniform(shader->program, w, h);
    // The shader's own hook sends the viewport of the action with its
    // matrices: it is the parent's extent while the hook runs.
    const float kept[2] = {viewport[0], viewport[1]};
    viewport[0] = w;
    viewport[1] = h;
    ScnActionRender::visit(node);
    viewport[0] = kept[0];
    viewport[1] = kept[1];
}
