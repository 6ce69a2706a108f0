#include <GL/glew.h>

#include "render/ScnLightbuffer.h"

#include <algorithm>
#include <cstdio>

#include <lua.hpp>

#include "compute/OclLua.h"
#include "memory/MemGLObjects.h"
#include "node/ScnAction.h"
#include "platform/GlContext.h"
#include "render/ScnCamera.h"
#include "render/ScnDeferredLight.h"
#include "render/ScnScene.h"
#include "runtime/ScnLua.h"

namespace {

// The combiner reads the geometry buffer on units 0 to 3 and the three light
// targets on units 4, 5 and 6.
void setCombinerSamplers(unsigned program)
{
    ScnDeferredLight::setInputSamplers(program);
    const char* const lights[3] = {"gs_DiffuseLights", "gs_SpecularLights", "gs_AmbientLights"};
    for (int i = 0; i < 3; ++i) {
        const GLint location = glGetUniformLocation(program, lights[i]);
        if (location >= 0) glUniform1i(location, 4 + i);
    }
}

}  // namespace

ScnNodeType ScnLightbuffer::s_type;

ScnLightbuffer::ScnLightbuffer()
{
    name = "lighbuffer";
    attachment = 3;
    flags = ScnTextureFlags{{9, 0, 0, 0}};  // linear filtering, no pixel buffer
    lighting.node.loadSources("deferred\\lighting\\combiner");
}

void ScnLightbuffer::onCreate(ScnAction& action)
{
    lighting.node.afterLink = &setCombinerSamplers;
    lighting.node.build();
    ScnFramebuffer::onCreate(action);
}

void ScnLightbuffer::onDestroy(ScnAction& action)
{
    lighting.node.destroyProgram();
    ScnFramebuffer::onDestroy(action);
}

void ScnLightbuffer::onUpdate(ScnAction& action)
{
    lighting.node.rebuildFor(action);
    ScnFramebuffer::onUpdate(action);
}

bool ScnLightbuffer::begin()
{
    notify(OnPreRender);
    return true;
}

void ScnLightbuffer::end()
{
    notify(OnPostRender);
}

void ScnLightbuffer::doLighting(ScnFramebuffer& fb, const unsigned replacements[4])
{
    // Without targets on either side there is nothing to light or to write.
    if (!fbo || !fb.fbo || !GlContext::ready()) return;
    const int w = width.value, h = height.value;

    // 1. The inputs.
    for (int i = 0; i < 4; ++i) {
        glActiveTexture(GL_TEXTURE0 + i);
        glBindTexture(GL_TEXTURE_2D, replacements[i] ? replacements[i] : fb.textureOf(i));
    }

    // 2. The three light targets, cleared.
    static const GLenum kTargets[3] = {GL_COLOR_ATTACHMENT0, GL_COLOR_ATTACHMENT1, GL_COLOR_ATTACHMENT2};
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glDrawBuffers(std::min(targetCount(), 3), kTargets);
    glViewport(0, 0, w, h);  // gs_Viewport tells the light shaders this size
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);

    // 3. Lights add up. Each volume is drawn from one side only, and a volume
    // that reaches past the far or near plane is not cut open.
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE);
    glDisable(GL_DEPTH_TEST);
    const GLboolean culling = glIsEnabled(GL_CULL_FACE), clamping = glIsEnabled(GL_DEPTH_CLAMP);
    GLint cullFace = GL_BACK;
    glGetIntegerv(GL_CULL_FACE_MODE, &cullFace);
    glEnable(GL_CULL_FACE);
    glCullFace(GL_BACK);
    glEnable(GL_DEPTH_CLAMP);

    // 4. The light pass, with the camera that rendered this buffer.
    ScnCamera* cam = camera ? camera : ScnScene::mainCamera();
    if (cam) {
        ScnActionRender action(cam, w, h);
        action.viewport[0] = static_cast<float>(w);
        action.viewport[1] = static_cast<float>(h);
        const ScnDeferredLight::Frustum frustum(action);
        for (auto kind : {ScnDeferredLight::PointKind, ScnDeferredLight::SpotKind}) {
            for (ScnDeferredLight* light : ScnDeferredLight::ring(kind)) {
                const unsigned program = light->direct.node.program;
                if (!program) continue;  // a light whose shader did not build adds nothing
                glUseProgram(program);
                const GLint viewport = glGetUniformLocation(program, "gs_Viewport");
                if (viewport >= 0) glUniform2f(viewport, static_cast<float>(w), static_cast<float>(h));
                if (light->visible.value) light->drawVolume(action, frustum, cam->nearPlane.value);
            }
        }
        glUseProgram(0);
    }
    if (!culling) glDisable(GL_CULL_FACE);
    glCullFace(cullFace);
    if (!clamping) glDisable(GL_DEPTH_CLAMP);

    // 5. The light targets as inputs of the combiner.
    for (int i = 0; i < 3; ++i) {
        glActiveTexture(GL_TEXTURE4 + i);
        glBindTexture(GL_TEXTURE_2D, textureOf(i));
    }

    // 6, 7. The lit colour into attachment 0 of the geometry buffer.
    glBindFramebuffer(GL_FRAMEBUFFER, fb.fbo);
    glDrawBuffer(GL_COLOR_ATTACHMENT0);
    glDisable(GL_BLEND);
    glViewport(0, 0, w, h);
    ScnScene::drawScreenQuad(lighting.node);

    // 8. Back to the screen, units 0 to 6 empty, unit 6 active.
    GlPlatform::bindScreen();
    for (int i = 0; i <= 6; ++i) {
        glActiveTexture(GL_TEXTURE0 + i);
        glBindTexture(GL_TEXTURE_2D, 0);
    }
}

// -- script methods ------------------------------------------------------------------

void ScnLightbuffer::addLuaMethods(ScnLuaClass<ScnLightbuffer>& c)
{
    c.add("doLighting", &ScnLightbuffer::luaDoLighting);
    c.add("getShader", &ScnLightbuffer::luaGetShader);
}

int ScnLightbuffer::luaDoLighting(lua_State* L)
{
    if (!lua_isuserdata(L, 1)) return luaL_typerror(L, 1, "framebuffer object");
    ScnFramebuffer* fb = ScnLuaClass<ScnFramebuffer>::check(L, 1);
    if (!fb) return 0;  // a userdata of another kind is ignored
    unsigned replacements[4] = {};
    for (int i = 0; i < 4; ++i) {
        if (!lua_isuserdata(L, i + 2)) continue;
        if (auto* t = dynamic_cast<MemTypeTexture2D*>(OclLua::to(L, i + 2))) replacements[i] = t->glId;
    }
    doLighting(*fb, replacements);
    return 0;
}

int ScnLightbuffer::luaGetShader(lua_State* L)
{
    // The shader lives inside the light buffer: its Lua object is made when first asked for.
    if (!lighting.node.getLuaRef()) ScnLua::createLuaObject(L, &lighting.node);
    ScnLua::pushNode(L, &lighting.node);
    return 1;
}
