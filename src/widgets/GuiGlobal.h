// Start of the widget module: its node classes.
#pragma once

namespace GuiGlobal {
// Registers the widget classes; traces its start and end.
void init();
}
