#include "widgets/GuiGlobal.h"

#include "runtime/AppGlobal.h"
#include "runtime/ScnLua.h"
#include "widgets/GuiRoot.h"

void GuiGlobal::init()
{
    VTRACE("GuiGlobal::init()-start");
    {
        ScnLua::GcPause gc;
        ScnLua::registerNode<GuiRoot>(&ScnGroup::s_type, "GuiRoot", 2);
    }
    VTRACE("GuiGlobal::init()-done");
}
