#include "memory/MemGlobal.h"

#include <GL/glew.h>

#include "memory/MemModules.h"
#include "memory/MemSource.h"
#include "platform/GlContext.h"
#include "runtime/AppGlobal.h"
#include "runtime/ScnLua.h"

#ifndef GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT
#define GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT 0x84FF
#endif

namespace {

int s_maxAnisotropy = 1;

// Headless runs may have no context at all; the query then has nothing to
// ask, and textures are made without anisotropy.
void readAnisotropy()
{
    s_maxAnisotropy = 1;
    if (!GlContext::ready()) return;
    for (int i = 0; i < 32 && glGetError() != GL_NO_ERROR; ++i) {
    }
    GLint v = 0;
    glGetIntegerv(GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT, &v);
    // A driver without the extension refuses the name and leaves v alone.
    if (glGetError() == GL_NO_ERROR && v >= 1) s_maxAnisotropy = v;
}

}  // namespace

int MemGlobal::maxAnisotropy()
{
    return s_maxAnisotropy;
}

void MemGlobal::init()
{
    VTRACE("MemGlobal::init()-start");
    readAnisotropy();
    VTRACE("MemGlobal::init() maximum texture anisotropy " << s_maxAnisotropy);
    {
        ScnLua::GcPause gc;
        ScnLua::openModule(MemModules::openStruct, "struct");
        ScnLua::openModule(MemModules::openMem, "mem");
        MemSource::registerSources(ScnLua::processState());
    }
    VTRACE("MemGlobal::init()-done");
}
