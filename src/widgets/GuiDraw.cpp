#include "widgets/GuiDraw.h"

namespace {
int g_cellSize = 19;
}

int GuiDraw::cellSize()
{
    return g_cellSize;
}

void GuiDraw::setCellSize(int size)
{
    g_cellSize = size;
}
