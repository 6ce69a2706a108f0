// Start of the widget module: the `sio` module, the drawing layer (programs
// and font) and the node classes.
#pragma once

namespace GuiGlobal {
// Registers the widget classes; traces its start and end.
void init();
}
