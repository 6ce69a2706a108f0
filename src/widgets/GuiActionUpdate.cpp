#include "widgets/GuiActionUpdate.h"

#include <GL/glew.h>

#include <cstring>
#include <limits>

#include "platform/GlContext.h"
#include "render/ScnShader.h"
#include "widgets/GuiComponent.h"
#include "widgets/GuiRoot.h"

ScnBox GuiActionUpdate::updateBox(const ScnVec3& position, const ScnVec3& size)
{
    ScnBox box;
    box.min[0] = position.x;
    box.min[1] = position.y;
    box.max[0] = position.x + size.x - 1;
    box.max[1] = position.y + size.y - 1;
    box.min[2] = std::numeric_limits<double>::max();
    box.max[2] = std::numeric_limits<double>::lowest();
    return box;
}

void GuiActionUpdate::setViewportUniform(unsigned program, float width, float height)
{
    if (!program || !GlContext::ready()) return;
    const GLint at = glGetUniformLocation(program, "gs_Viewport");
    if (at < 0) return;
    // The kit's programs take a vec4, the scene's a vec2: ask which.
    GLint count = 0;
    glGetProgramiv(program, GL_ACTIVE_UNIFORMS, &count);
    GLenum type = GL_FLOAT_VEC4;
    for (GLint i = 0; i < count; ++i) {
        char name[64];
        GLint size = 0;
        GLenum t = 0;
        glGetActiveUniform(program, static_cast<GLuint>(i), sizeof name, nullptr, &size, &t, name);
        if (std::strcmp(name, "gs_Viewport") == 0) {
            type = t;
            break;
        }
    }
    if (type == GL_FLOAT_VEC2)
        glUniform2f(at, width, height);
    else if (type == GL_FLOAT_VEC4)
        glUniform4f(at, width, height, 1, 1);
}

void GuiActionUpdate::visit(ScnNode* node)
{
    node->onUpdate(*this);
    auto* shader = dynamic_cast<ScnShader*>(node);
    if (!shader || !shader->program || !GlContext::ready()) return;
    // The target of a shader under a root is the root's picture; elsewhere
    // whatever the viewport covers now.
    // The root that stays current after its walk is not the target of a
    // shader elsewhere: look for one above this shader.
    GuiRoot* root = nullptr;
    for (ScnNode* p = node->parent(); p && !root; p = p->parent()) root = dynamic_cast<GuiRoot*>(p);
    float w = 0, h = 0;
    if (root) {
        w = static_cast<float>(root->dim0.value);
        h = static_cast<float>(root->dim1.value);
    } else {
        GLint v[4] = {};
        glGetIntegerv(GL_VIEWPORT, v);
        w = static_cast<float>(v[2]);
        h = static_cast<float>(v[3]);
    }
    GLint before = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &before);
    glUseProgram(shader->program);
    setViewportUniform(shader->program, w, h);
    glUseProgram(static_cast<GLuint>(before));
}

void GuiActionUpdate::continueWalk(ScnNode* node, int mask)
{
    ScnSFVec3f *position = nullptr, *size = nullptr;
    if (!guiWidgetFields(node, position, size)) {
        ScnActionUpdate::continueWalk(node, mask);
        return;
    }
    node->setBounds(updateBox(position->value, size->value));
    ScnAction::continueWalk(node, mask);
}

void GuiActionUpdate::walk(ScnNode* node, int mask)
{
    ScnSFVec3f *position = nullptr, *size = nullptr;
    if (!guiWidgetFields(node, position, size)) {
        ScnActionUpdate::walk(node, mask);
        return;
    }
    if (mask & Children) {
        // A widget's box is its own: what lies below adds nothing to it, and
        // widget boxes, empty in z, add nothing to the boxes above.
        ScnBox kept = box;
        box = ScnBox{};
        ScnAction::walk(node, Children);
        box = kept;
        node->setBounds(updateBox(position->value, size->value));
    }
    if (mask & Siblings) ScnAction::walk(node, Siblings);
}
