#include "memory/MemGlobal.h"

#include "memory/MemModules.h"
#include "runtime/AppGlobal.h"
#include "runtime/ScnLua.h"

void MemGlobal::init()
{
    VTRACE("MemGlobal::init()-start");
    {
        ScnLua::GcPause gc;
        ScnLua::openModule(MemModules::openStruct, "struct");
        ScnLua::openModule(MemModules::openMem, "mem");
    }
    VTRACE("MemGlobal::init()-done");
}
