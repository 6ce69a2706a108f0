#include "manipulators/GeoGlobal.h"

#include "runtime/AppGlobal.h"

void GeoGlobal::init()
{
    VTRACE("GeoGlobal::init()-start");
    VTRACE("GeoGlobal::init()-done");
}
