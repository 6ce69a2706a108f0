// The state of the widget kit's drawing layer that nodes need before anything
// is drawn: the cell size c, the height of one row and the unit in which every
// widget's default size is given.
#pragma once

namespace GuiDraw {
// 19 until the first root sets its own.
int cellSize();
void setCellSize(int size);
}
