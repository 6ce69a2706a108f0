#include <GL/glew.h>

#include "render/ScnGlobal.h"

#include <cstdio>
#include <string>

#include "memory/MemModules.h"
#include "memory/MemTypes.h"
#include "node/ScnField.h"
#include "platform/GlContext.h"
#include "render/ScnBuffers.h"
#include "render/ScnCamera.h"
#include "render/ScnCameraExamine.h"
#include "render/ScnDeferredLight.h"
#include "render/ScnDeferredPointLight.h"
#include "render/ScnDeferredSpotLight.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnInstance.h"
#include "render/ScnLightbuffer.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "render/ScnNoise3D.h"
#include "render/ScnTest.h"
#include "render/ScnText.h"
#include "render/ScnTexture.h"
#include "render/ScnTransform.h"
#include "render/ScnViewpoint.h"
#include "render/ScnWorld.h"
#include "render/SnsKeyboardSensor.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/ScnLua.h"

namespace {

const char* const kPrimitiveNames[] = {"GL_POINTS", "GL_LINES", "GL_LINE_LOOP", "GL_LINE_STRIP",
                                       "GL_TRIANGLES", "GL_TRIANGLE_STRIP", "GL_TRIANGLE_FAN"};
const char* const kVertexAttribTypes[] = {"GL_BYTE", "GL_UNSIGNED_BYTE", "GL_SHORT", "GL_UNSIGNED_SHORT",
                                          "GL_INT", "GL_UNSIGNED_INT", "GL_FLOAT"};

// Where there is no message box the text goes to stderr and the error channel.
void messageBox(const char* text, const char* caption)
{
    std::fprintf(stderr, "%s: %s\n", caption, text);
    LogStream(Channels::error(), caption) << text;
}

// Every texture unit starts with replacing texture environment, once, so
// that a fixed-function draw on any unit shows the texture as it is. Units
// beyond the fixed-function ones have no environment to set.
void prepareTextureUnits()
{
    GlScope gl;
    if (!gl.ok()) return;
    GLint units = 0, fixedUnits = 0;
    while (glGetError() != GL_NO_ERROR) {
    }
    glGetIntegerv(GL_MAX_TEXTURE_IMAGE_UNITS, &units);
    glGetIntegerv(GL_MAX_TEXTURE_UNITS, &fixedUnits);
    if (glGetError() != GL_NO_ERROR) fixedUnits = 0;  // a core context has none
    for (GLint i = 0; i < units && i < fixedUnits; ++i) {
        glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(i));
        glEnable(GL_TEXTURE_2D);
        glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
        glDisable(GL_TEXTURE_2D);
    }
    glActiveTexture(GL_TEXTURE0);
}

}  // namespace

namespace ScnGlobal {

void checkContext()
{
    if (!GlContext::ready()) return;
    const char* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    const char* glsl = reinterpret_cast<const char*>(glGetString(GL_SHADING_LANGUAGE_VERSION));
    VTRACE("GL_VERSION " << (version ? version : "(null)"));
    VTRACE("GL_SHADING_LANGUAGE_VERSION " << (glsl ? glsl : "(null)"));
    const char* ext = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    if (!ext) {
        messageBox("glGetString(GL_EXTENSIONS) == null", "Driver Problem ");
        return;
    }
    struct Need {
        const char* searched;
        const char* shown;
    };
    static const Need kNeeds[] = {{"GL_ARB_multitexture ", "GL_ARB_multitexture "},
                                  {"GL_ARB_vertex_program", "GL_ARB_vertex_program"},
                                  {"GL_ARB_fragment_program", "GL_ARB_fragment_program"},
                                  {"GL_EXT_framebuffer_object", "GL_EXT_framebuffer_object"},
                                  {"GL_ARB_multisample", "GL_ARB_multisample"},
                                  {"GL_ARB_shader_objects", "GL_ARB_shader_objects "},
                                  {"GL_ARB_texture_float", "GL_ARB_texture_float  "}};
    // The list ends with no blank, so the last name is found with one added.
    std::string all = std::string(ext) + " ";
    for (const Need& n : kNeeds) {
        if (all.find(n.searched) == std::string::npos) {
            messageBox(n.shown, "Hardware capablity not available ");
            break;
        }
    }
}


void init()
{
    VTRACE("ScnGlobal::init()-start");
    ScnEnum::registerTable("gl_primitive", kPrimitiveNames, 7);
    ScnEnum::registerTable("gl_vertexattrib_type", kVertexAttribTypes, 7, 5120);
    ScnEnum::registerTable("gl_buffer_type", MemTypes::kNames, MemTypes::kCount);
    ScnScene::initStatics();
    {
        ScnLua::GcPause gc;
        ScnLua::registerNode<ScnNode>(nullptr, "ScnNode", 2);
        ScnLua::registerNode<ScnGroup>(&ScnNode::s_type, "ScnGroup", 2);
        ScnLua::registerNode<ScnMatrix>(&ScnGroup::s_type, "ScnMatrix", 2);
        ScnLua::registerNode<ScnWorld>(&ScnMatrix::s_type, "ScnWorld", 2);
        ScnLua::registerNode<ScnTransform>(&ScnMatrix::s_type, "ScnTransform", 2);
        ScnLua::registerNode<ScnInstance>(&ScnGroup::s_type, "ScnInstance", 2);
        // Under ScnGroup, so that scripts reach a camera's framebuffers with getChild.
        ScnLua::registerNode<ScnCamera>(&ScnGroup::s_type, "ScnCamera", 2);
        ScnLua::registerNode<ScnCameraExamine>(&ScnCamera::s_type, "ScnCameraExamine", 2);
        ScnLua::registerNode<ScnViewpoint>(&ScnNode::s_type, "ScnViewpoint", 2);
        ScnLua::registerNode<ScnShader>(&ScnNode::s_type, "ScnShader", 4);
        ScnLua::registerNode<ScnDeferredLight>(&ScnNode::s_type, "ScnDeferredLight", 2);
        ScnLua::registerNode<ScnDeferredPointLight>(&ScnDeferredLight::s_type, "ScnDeferredPointLight", 2);
        ScnLua::registerNode<ScnDeferredSpotLight>(&ScnDeferredLight::s_type, "ScnDeferredSpotLight", 2);
        ScnLua::registerNode<ScnFramebuffer>(&ScnNode::s_type, "ScnFramebuffer", 4);
        ScnLua::registerNode<ScnLightbuffer>(&ScnFramebuffer::s_type, "ScnLightbuffer", 4);
        ScnLua::registerNode<ScnTexture2D>(&ScnNode::s_type, "ScnTexture2D", 4);
        prepareTextureUnits();
        ScnNodeRegistry::registerAlias("ScnTexture", ScnTexture2D::s_type);
        ScnLua::registerNode<ScnTexture3D>(&ScnNode::s_type, "ScnTexture3D", 4);
        ScnLua::registerNode<ScnBufferArray>(&ScnGroup::s_type, "ScnBufferArray", 2);
        ScnNodeRegistry::registerAlias("ScnBufferVertex", ScnBufferArray::s_type);
        ScnLua::registerNode<ScnBufferElement>(&ScnGroup::s_type, "ScnBufferElement", 2);
        ScnLua::registerNode<ScnBufferAttrib>(&ScnNode::s_type, "ScnBufferAttrib", 2);
        ScnLua::registerNode<ScnText>(&ScnNode::s_type, "ScnText", 2);
        // All texts share one font; without a context now, the first create loads it.
        if (GlContext::ready()) ScnText::loadFont();
        ScnLua::registerNode<ScnTest>(&ScnNode::s_type, "ScnTest", 2);
        ScnLua::registerNode<SnsKeyboardSensor>(&ScnNode::s_type, "SnsKeyboardSensor", 16);
        // Files and the editor know the noise cube; scripts have no class for it.
        ScnNodeRegistry::registerClass(ScnNoise3D::s_type, &ScnNode::s_type, "ScnNoise3D", &ScnNoise3D::factory, 4);
    }
    // The records kernels share with cameras and lights.
    using namespace MemTypes;
    MemModules::declareStruct("gs_camera", {{"xAxis", Float4}, {"yAxis", Float4}, {"zAxis", Float4},
                                            {"ePos", Float4}, {"xAxisInv", Float4}, {"yAxisInv", Float4},
                                            {"zAxisInv", Float4}, {"dFar", Float}, {"dNear", Float}});
    MemModules::declareStruct("gs_light", {{"diffuse", Float4}, {"ambient", Float4}, {"specular", Float4},
                                           {"xAxis", Float4}, {"yAxis", Float4}, {"zAxis", Float4},
                                           {"ePos", Float4}, {"range", Float}, {"intensity", Float},
                                           {"attenuate", Float}, {"spread", Float}, {"visible", Int},
                                           {"type", Int}});
    VTRACE("ScnGlobal::init()-done");
}

}  // namespace ScnGlobal
