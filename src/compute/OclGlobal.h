// The compute contexts of the process: made once at start, one per vendor
// platform, with one of them current. Nodes learn their context from the
// traversals.
#pragma once

#include <string>
#include <vector>

class oclContext;
class oclDevice;

namespace OclGlobal {

// Opens the cl module and registers the OpenCL node classes with their enum
// tables; traces its start and end. The contexts come earlier, from
// startContexts().
void init();

// Makes the contexts: the three vendor calls, then one for every platform
// that matched none of them (its name is the platform's vendor string).
// Installs the message handlers. Runs once; later calls do nothing.
void startContexts();

const std::vector<oclContext*>& contexts();
oclContext* currentContext();
// Its name; "" while no context exists.
const std::string& currentContextName();
// The first context whose name agrees with `name` in the first five characters.
oclContext* findContext(const std::string& name);

// Platforms, the contexts with their devices and whether each shares memory
// with OpenGL, one line each, for `velmora-run --info`.
std::vector<std::string> summary();

// The lines the property pages show for a device.
std::vector<std::string> deviceInfo(oclDevice* device);

}  // namespace OclGlobal
