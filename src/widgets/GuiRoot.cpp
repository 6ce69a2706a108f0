#include "widgets/GuiRoot.h"

#include "widgets/GuiComponent.h"

ScnNodeType GuiRoot::s_type;

GuiRoot::GuiRoot()
{
    name = "gui";
}

void GuiRoot::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiRoot::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}
