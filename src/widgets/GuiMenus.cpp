#include "widgets/GuiMenus.h"

#include "widgets/GuiDraw.h"

ScnNodeType GuiMenuBar::s_type;
ScnNodeType GuiMenu::s_type;
ScnNodeType GuiMenuItem::s_type;
ScnNodeType GuiMenuSeparator::s_type;
ScnNodeType GuiToolBar::s_type;
ScnNodeType GuiToolBarButton::s_type;
ScnNodeType GuiToolBarSeparator::s_type;

GuiMenuBar::GuiMenuBar() : GuiComponent("menubar", 0, GuiDraw::cellSize() + 4, true) {}

GuiMenu::GuiMenu() : GuiComponent("menu", 120, GuiDraw::cellSize(), false) {}

// Menu rows have no extent of their own: the menu that holds them gives it.
GuiMenuItem::GuiMenuItem() : GuiComponent("menuitem", 0, 0, false) {}

void GuiMenuItem::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiMenuItem::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiMenuSeparator::GuiMenuSeparator() : GuiComponent("separator", 0, 0, false) {}

GuiToolBar::GuiToolBar() : GuiComponent("toolbar", 3, GuiDraw::cellSize() + 8, true) {}

GuiToolBarButton::GuiToolBarButton() : GuiComponent("button", 20, GuiDraw::cellSize() + 4, false) {}

void GuiToolBarButton::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiToolBarButton::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiToolBarSeparator::GuiToolBarSeparator() : GuiComponent("separator", 8, GuiDraw::cellSize(), false) {}
