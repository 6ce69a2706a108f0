// Start of the manipulator module: its node classes.
#pragma once

namespace ManGlobal {
// Registers the manipulator classes; traces its start and end.
void init();
}
