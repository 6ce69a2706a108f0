#include "widgets/GuiGlobal.h"

#include "runtime/AppGlobal.h"
#include "runtime/ScnLua.h"
#include "widgets/GuiComponent.h"
#include "widgets/GuiContainers.h"
#include "widgets/GuiControls.h"
#include "widgets/GuiMenus.h"
#include "widgets/GuiDraw.h"
#include "widgets/GuiRoot.h"
#include "widgets/SioModule.h"

void GuiGlobal::init()
{
    VTRACE("GuiGlobal::init()-start");
    ScnLua::openModule(SioModule::open, "sio");
    {
        ScnLua::GcPause gc;
        GuiDraw::init();
        ScnLua::registerNode<GuiComponent<ScnNode>>(&ScnNode::s_type, "GuiComponent<ScnNode>", 2);
        ScnLua::registerNode<GuiComponent<ScnGroup>>(&ScnGroup::s_type, "GuiComponent<ScnGroup>", 2);
        ScnLua::registerNode<GuiRoot>(&ScnGroup::s_type, "GuiRoot", 2);
        ScnNodeType* leaf = &GuiComponent<ScnNode>::s_type;
        ScnNodeType* group = &GuiComponent<ScnGroup>::s_type;
        ScnLua::registerNode<GuiButton>(leaf, "GuiButton", 8);
        ScnLua::registerNode<GuiCheckbox>(leaf, "GuiCheckbox", 8);
        ScnLua::registerNode<GuiRadioButton>(leaf, "GuiRadioButton", 8);
        ScnLua::registerNode<GuiWindow>(group, "GuiWindow", 8);
        ScnLua::registerNode<GuiLabel>(leaf, "GuiLabel", 8);
        ScnLua::registerNode<GuiText>(leaf, "GuiText", 8);
        ScnLua::registerNode<GuiSlider>(leaf, "GuiSlider", 8);
        ScnLua::registerNode<GuiAccelerator>(leaf, "GuiAccelerator", 8);
        ScnLua::registerNode<GuiCanvas>(group, "GuiCanvas", 8);
        ScnNodeRegistry::registerAlias("GuiCanvas2", GuiCanvas::s_type);
        ScnLua::registerNode<GuiListBox>(leaf, "GuiListBox", 8);
        ScnLua::registerNode<GuiMenu>(group, "GuiMenu", 8);
        ScnLua::registerNode<GuiMenuItem>(leaf, "GuiMenuItem", 8);
        ScnLua::registerNode<GuiMenuBar>(group, "GuiMenuBar", 8);
        ScnLua::registerNode<GuiMenuSeparator>(leaf, "GuiMenuSeparator", 8);
        ScnLua::registerNode<GuiFileDialog>(&GuiWindow::s_type, "GuiFileDialog", 8);
        ScnLua::registerNode<GuiToolBar>(group, "GuiToolBar", 8);
        ScnLua::registerNode<GuiToolBarButton>(leaf, "GuiToolBarButton", 8);
        ScnLua::registerNode<GuiToolBarSeparator>(leaf, "GuiToolBarSeparator", 8);
        ScnLua::registerNode<GuiInput>(leaf, "GuiInput", 8);
        ScnLua::registerNode<GuiTabCtrl>(group, "GuiTabCtrl", 8);
    }
    GuiDraw::loadIcons();
    VTRACE("GuiGlobal::init()-done");
}
