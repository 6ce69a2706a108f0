#include "manipulators/ManGlobal.h"

#include "manipulators/ManManipulator.h"
#include "runtime/AppGlobal.h"
#include "runtime/ScnLua.h"

void ManGlobal::init()
{
    VTRACE("ManGlobal::init()-start");
    {
        ScnLua::GcPause gc;
        ScnLua::registerNode<ManManipulator>(&ScnGroup::s_type, "ManManipulator", 2);
        ScnLua::registerNode<ManManipulatorGui>(&ManManipulator::s_type, "ManManipulatorGui", 32);
        ScnLua::registerNode<ManManipulator3D>(&ManManipulator::s_type, "ManManipulator3D", 32);
    }
    VTRACE("ManGlobal::init()-done");
}
