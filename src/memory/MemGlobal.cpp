#include "memory/MemGlobal.h"

#include <GL/glew.h>

#include "memory/MemModules.h"
#include "platform/GlContext.h"
#include "runtime/AppGlobal.h"
#include "runtime/ScnLua.h"

namespace {
int s_maxAnisotropy = 0;
}

void MemGlobal::init()
{
    VTRACE("MemGlobal::init()-start");
    if (GlContext::ready()) {
        GLint a = 0;
        glGetIntegerv(GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT, &a);
        // A driver without the extension answers with an error, not a value.
        if (glGetError() == GL_NO_ERROR) s_maxAnisotropy = a;
    }
    {
        ScnLua::GcPause gc;
        ScnLua::openModule(MemModules::openStruct, "struct");
        ScnLua::openModule(MemModules::openMem, "mem");
    }
    VTRACE("MemGlobal::init()-done");
}

int MemGlobal::maxAnisotropy()
{
    return s_maxAnisotropy;
}
