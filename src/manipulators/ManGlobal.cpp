#include "manipulators/ManGlobal.h"

#include "runtime/AppGlobal.h"
#include "runtime/ScnLua.h"

void ManGlobal::init()
{
    VTRACE("ManGlobal::init()-start");
    VTRACE("ManGlobal::init()-done");
}
