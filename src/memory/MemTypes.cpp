#include "memory/MemTypes.h"

namespace MemTypes {
const char* const kNames[kCount] = {
    "cl_char",   "cl_uchar",  "cl_short",  "cl_ushort",  "cl_int",    "cl_uint",   "cl_long",   "cl_ulong",
    "cl_half",   "cl_float",  "cl_double", "cl_char4",   "cl_uchar4", "cl_short4", "cl_ushort4", "cl_int4",
    "cl_uint4",  "cl_long4",  "cl_ulong4", "cl_float4",  "cl_double4", "cl_char2", "cl_uchar2", "cl_short2",
    "cl_ushort2", "cl_int2",  "cl_uint2",  "cl_long2",   "cl_ulong2", "cl_float2", "cl_double2",
};
}
