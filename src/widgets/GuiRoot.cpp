#include "widgets/GuiRoot.h"

ScnNodeType GuiRoot::s_type;

GuiRoot::GuiRoot()
{
    name = "gui";
}
