// The process's tracked memory: bytes of GPU memory that their owners add
// when they make a resource and take off when they release it. The editor
// shows the sum in its status bar; the figure is for display only.
#pragma once

#include <cstdint>

namespace MemStatistics {
void add(int64_t bytes);
void remove(int64_t bytes);
// The bytes added and not yet taken off.
int64_t bytes();
}
