// Start of the geometry helpers the manipulators draw with.
#pragma once

namespace GeoGlobal {
// Traces its start and end; the geometry module has nothing to register yet.
void init();
}
