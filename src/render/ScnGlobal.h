// Start of the render module: the driver check, the static shaders, the
// scene classes and the records kernels share with cameras and lights.
#pragma once

namespace ScnGlobal {
// Reads and checks the driver with the context current: version and shading
// language in the trace, the extensions in their order (the first missing
// one is reported on stderr and the error channel; the program goes on).
void checkContext();
// Registers the scene classes and their enum tables; builds the static
// shaders when a context is current. Traces its start and end.
void init();
}
