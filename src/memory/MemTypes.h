// Element type codes 0 to 30 and their names. The order is the enumeration
// cl_mem_type: width-4 types come before width-2 types.
#pragma once

namespace MemTypes {
constexpr int kCount = 31;
extern const char* const kNames[kCount];
}
