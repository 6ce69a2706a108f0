// The module chain: each module registers its classes after their parents,
// which is what fixes the order.
#include "compute/OclGlobal.h"
#include "compute/OclLua.h"
#include "compute/oclObject.h"
#include "manipulators/GeoGlobal.h"
#include "manipulators/ManGlobal.h"
#include "memory/MemGlobal.h"
#include "platform/GlContext.h"
#include "render/ScnGlobal.h"
#include "runtime/AppGlobal.h"
#include "runtime/RtnGlobal.h"
#include "widgets/GuiGlobal.h"

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
    GeoGlobal::init();
    MemGlobal::init();
    ScnGlobal::init();
    OclGlobal::init();
    GuiGlobal::init();
    RtnGlobal::init();
    ManGlobal::init();
}
