// The module chain: each module registers its classes after their parents,
// which is what fixes the order.
#include <lua.hpp>

#include "compute/ClModule.h"
#include "compute/OclGlobal.h"
#include "compute/OclLua.h"
#include "compute/OclNodes.h"
#include "memory/MemModules.h"
#include "memory/MemNodes.h"
#include "compute/oclObject.h"
#include "memory/MemTypes.h"
#include "node/ScnNode.h"
#include "platform/GlContext.h"
#include "render/ScnCamera.h"
#include "render/ScnDeferredLight.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "render/ScnWorld.h"
#include "runtime/AppGlobal.h"
#include "runtime/AppModule.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnNodes.h"
#include "runtime/ScnLua.h"
#include "widgets/GuiRoot.h"

namespace {

// Stops the Lua collector while a module registers its classes.
struct GcPause {
    lua_State* L = AppGlobal::luaState();
    GcPause() { if (L) lua_gc(L, LUA_GCSTOP, 0); }
    ~GcPause() { if (L) lua_gc(L, LUA_GCRESTART, 0); }
};

const char* const kPrimitiveNames[] = {"GL_POINTS", "GL_LINES", "GL_LINE_LOOP", "GL_LINE_STRIP",
                                       "GL_TRIANGLES", "GL_TRIANGLE_STRIP", "GL_TRIANGLE_FAN"};
const char* const kVertexAttribTypes[] = {"GL_BYTE", "GL_UNSIGNED_BYTE", "GL_SHORT", "GL_UNSIGNED_SHORT",
                                          "GL_INT", "GL_UNSIGNED_INT", "GL_FLOAT"};
const char* const kChannelTypes[] = {"CL_SNORM_INT8", "CL_SNORM_INT16", "CL_UNORM_INT8", "CL_UNORM_INT16",
                                     "CL_UNORM_SHORT_565", "CL_UNORM_SHORT_555", "CL_UNORM_INT_101010",
                                     "CL_SIGNED_INT8", "CL_SIGNED_INT16", "CL_SIGNED_INT32", "CL_UNSIGNED_INT8",
                                     "CL_UNSIGNED_INT16", "CL_UNSIGNED_INT32", "CL_HALF_FLOAT", "CL_FLOAT"};
const char* const kChannelOrders[] = {"CL_R", "CL_A", "CL_RG", "CL_RA", "CL_RGB",
                                      "CL_RGBA", "CL_BGRA", "CL_ARGB", "CL_INTENSITY", "CL_LUMINANCE"};

// Registers a node class and builds its Lua class, with the methods the class
// declares in its addLuaMethods.
template <class T>
void reg(ScnNodeType* parent, const char* name, uint32_t category)
{
    ScnNodeRegistry::registerClass(T::s_type, parent, name, &T::factory, category);
    ScnLuaClass<T>::registerClass(AppGlobal::luaState());
}

void geoInit()
{
    VTRACE("GeoGlobal::init()-start");
    VTRACE("GeoGlobal::init()-done");
}

// Opens a module with its own protected call: a failing one is reported and
// the others still open.
void openModule(lua_CFunction open, const char* name)
{
    lua_State* L = AppGlobal::luaState();
    if (!L) return;
    if (lua_cpcall(L, open, nullptr) != 0) ScnLua::reportFailure(L, name);
}

void memInit()
{
    VTRACE("MemGlobal::init()-start");
    {
        GcPause gc;
        openModule(MemModules::openStruct, "struct");
        openModule(MemModules::openMem, "mem");
    }
    VTRACE("MemGlobal::init()-done");
}

void scnInit()
{
    VTRACE("ScnGlobal::init()-start");
    ScnEnum::registerTable("gl_primitive", kPrimitiveNames, 7);
    ScnEnum::registerTable("gl_vertexattrib_type", kVertexAttribTypes, 7);
    ScnEnum::registerTable("gl_buffer_type", MemTypes::kNames, MemTypes::kCount);
    ScnGlobal::initRender();
    {
        GcPause gc;
        reg<ScnNode>(nullptr, "ScnNode", 2);
        reg<ScnGroup>(&ScnNode::s_type, "ScnGroup", 2);
        reg<ScnMatrix>(&ScnGroup::s_type, "ScnMatrix", 2);
        reg<ScnWorld>(&ScnMatrix::s_type, "ScnWorld", 2);
        reg<ScnCamera>(&ScnNode::s_type, "ScnCamera", 2);
        reg<ScnCameraExamine>(&ScnCamera::s_type, "ScnCameraExamine", 2);
        reg<ScnShader>(&ScnNode::s_type, "ScnShader", 4);
        reg<ScnDeferredLight>(&ScnNode::s_type, "ScnDeferredLight", 2);
        reg<ScnDeferredPointLight>(&ScnDeferredLight::s_type, "ScnDeferredPointLight", 2);
        reg<ScnDeferredSpotLight>(&ScnDeferredLight::s_type, "ScnDeferredSpotLight", 2);
        reg<ScnFramebuffer>(&ScnNode::s_type, "ScnFramebuffer", 4);
    }
    // The records kernels share with cameras and lights.
    using namespace MemTypes;
    MemModules::declareStruct("gs_camera", {{"xAxis", Float4}, {"yAxis", Float4}, {"zAxis", Float4},
                                            {"ePos", Float4}, {"xAxisInv", Float4}, {"yAxisInv", Float4},
                                            {"zAxisInv", Float4}, {"dFar", Float}, {"dNear", Float}});
    MemModules::declareStruct("gs_light", {{"diffuse", Float4}, {"ambient", Float4}, {"specular", Float4},
                                           {"xAxis", Float4}, {"yAxis", Float4}, {"zAxis", Float4},
                                           {"ePos", Float4}, {"range", Float}, {"intensity", Float},
                                           {"attenuate", Float}, {"spread", Float}, {"visible", UInt},
                                           {"type", UInt}});
    VTRACE("ScnGlobal::init()-done");
}

void oclInit()
{
    VTRACE("OclGlobal::init()-start");
    openModule(ClModule::open, "cl");
    {
        GcPause gc;
        reg<OclDevice>(&ScnGroup::s_type, "OclDevice", 64);
        reg<OclPlatform>(&ScnGroup::s_type, "OclPlatform", 64);
        reg<OclProgram>(&ScnNode::s_type, "OclProgram", 64);
        reg<OclBuffer>(&ScnNode::s_type, "OclBuffer", 64);
        reg<OclImage2D>(&ScnNode::s_type, "OclImage2D", 64);
        reg<OclImage3D>(&ScnNode::s_type, "OclImage3D", 64);
        reg<OclFileRef>(&ScnNode::s_type, "OclFileRef", 64);
    }
    ScnEnum::registerTable("cl_mem_type", MemTypes::kNames, MemTypes::kCount);
    ScnEnum::registerTable("cl_channel_type", kChannelTypes, 15);
    ScnEnum::registerTable("cl_channel_order", kChannelOrders, 10);
    VTRACE("OclGlobal::init()-done");
}

void guiInit()
{
    VTRACE("GuiGlobal::init()-start");
    {
        GcPause gc;
        reg<GuiRoot>(&ScnGroup::s_type, "GuiRoot", 2);
    }
    VTRACE("GuiGlobal::init()-done");
}

void rtnInit()
{
    VTRACE("RtnGlobal::init()-start");
    {
        GcPause gc;
        if (lua_State* L = AppGlobal::luaState()) lua_cpcall(L, AppModule::open, nullptr);
        reg<RtnGroup>(&ScnGroup::s_type, "RtnGroup", 2);
        reg<CmdProcessor>(&ScnNode::s_type, "CmdProcessor", 2);
        reg<CmdApplication>(&ScnGroup::s_type, "CmdApplication", 2);
        reg<RtnRegister>(&ScnNode::s_type, "RtnRegister", 128);
        reg<RtnProcessor>(&ScnNode::s_type, "RtnProcessor", 2);
        reg<RtnApplication>(&ScnGroup::s_type, "RtnApplication", 128);
        ScnNodeRegistry::registerAlias("RtnPage", RtnApplication::s_type);
        ScnNodeRegistry::registerAlias("RtnPlace", RtnProcessor::s_type);
        ScnNodeRegistry::registerAlias("RtnPlaceDataColor", RtnRegister::s_type);
    }
    VTRACE("RtnGlobal::init()-done");
}

}  // namespace

void AppGlobal::startModules()
{
    static bool started = false;
    if (started) return;
    started = true;
    // The whole chain runs with the GL context current, when there is one.
    GlScope gl;
    ScnGlobal::checkContext();
    // OpenCL contexts after the GL context, so that they can share with it.
    oclGLSharingProperties = [] {
        GlContext* c = GlContext::active();
        std::vector<cl_context_properties> none;
        if (!c || !c->isCurrent()) return none;
        GlContext::Sharing s = c->sharing();
        if (s.api == GlContext::Api::Egl) return oclEGLSharing(s.context, s.display);
        if (s.api == GlContext::Api::Glx) return oclGLXSharing(s.context, s.display);
        return none;
    };
    OclGlobal::startContexts();
    OclLua::install();
    startLua();
    geoInit();
    memInit();
    scnInit();
    oclInit();
    guiInit();
    rtnInit();
}
