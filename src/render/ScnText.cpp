#include "render/ScnText.h"

ScnNodeType ScnText::s_type;

ScnText::ScnText()
{
    name = "Text";
}
