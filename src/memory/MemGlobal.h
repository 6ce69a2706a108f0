// Start of the memory module: the script modules struct and mem.
#pragma once

namespace MemGlobal {
// Opens the struct and mem modules; traces its start and end.
void init();
}
