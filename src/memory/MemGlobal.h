// Start of the memory module: the texture anisotropy limit, the script
// modules struct and mem, and the file sources.
#pragma once

namespace MemGlobal {
// Reads the driver's largest texture anisotropy, opens the struct and mem
// modules and registers the file sources (the plug-ins' extensions); traces
// its start and end.
void init();
// The largest anisotropy the driver allows, as read at init: 1 (no
// anisotropic filtering) without a current GL context or without the
// extension.
int maxAnisotropy();
}
