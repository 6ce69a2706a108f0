// The vocabulary of typed memory: element type codes 0 to 30 with their
// sizes and names, and the conversions between an OpenCL image format, an
// element type and OpenGL's format enumerations. The order of the codes is
// the enumeration cl_mem_type: width-4 types come before width-2 types.
#pragma once

#include <cstdint>

#include "compute/oclObject.h"

namespace MemTypes {
constexpr int kCount = 31;
extern const char* const kNames[kCount];

// Codes by name, for the switches that pick an element class.
enum Code : uint32_t {
    Char, UChar, Short, UShort, Int, UInt, Long, ULong, Half, Float, Double,
    Char4, UChar4, Short4, UShort4, Int4, UInt4, Long4, ULong4, Float4, Double4,
    Char2, UChar2, Short2, UShort2, Int2, UInt2, Long2, ULong2, Float2, Double2,
};

// Components of one element: 1, 2 or 4; 0 for an unknown code.
int width(uint32_t code);
}  // namespace MemTypes

// Size of one element in bytes; 0 with a message for an unknown code.
uint32_t clTypeSize(uint32_t code);

uint32_t CLimageFromatToCLmemoryType(const cl_image_format* format);
uint32_t CLimageFromatToGLinternalformat(const cl_image_format* format);
uint32_t CLimageFromatToGLformat(const cl_image_format* format);
uint32_t CLimageFromatToGLtype(const cl_image_format* format);

const char* clChannelOrderName(uint32_t order);
const char* clChannelTypeName(uint32_t type);
const char* glInternalFormatName(uint32_t format);
