#include "memory/MemTypes.h"

#include <GL/gl.h>
#include <GL/glext.h>

#include "runtime/Channels.h"

namespace MemTypes {
const char* const kNames[kCount] = {
    "cl_char",   "cl_uchar",  "cl_short",  "cl_ushort",  "cl_int",    "cl_uint",   "cl_long",   "cl_ulong",
    "cl_half",   "cl_float",  "cl_double", "cl_char4",   "cl_uchar4", "cl_short4", "cl_ushort4", "cl_int4",
    "cl_uint4",  "cl_long4",  "cl_ulong4", "cl_float4",  "cl_double4", "cl_char2", "cl_uchar2", "cl_short2",
    "cl_ushort2", "cl_int2",  "cl_uint2",  "cl_long2",   "cl_ulong2", "cl_float2", "cl_double2",
};

int width(uint32_t code)
{
    if (code <= Double) return 1;
    if (code <= Double4) return 4;
    if (code <= Double2) return 2;
    return 0;
}
}  // namespace MemTypes

namespace {
// Scalar sizes of the eleven scalar codes; vectors multiply by their width.
constexpr uint32_t kScalarSize[11] = {1, 1, 2, 2, 4, 4, 8, 8, 2, 4, 8};
// The scalar code behind each vector group member (char..double, no half).
constexpr uint32_t kVectorScalar[10] = {0, 1, 2, 3, 4, 5, 6, 7, 9, 10};
}  // namespace

uint32_t clTypeSize(uint32_t code)
{
    using namespace MemTypes;
    if (code <= Double) return kScalarSize[code];
    if (code <= Double4) return 4 * kScalarSize[kVectorScalar[code - Char4]];
    if (code <= Double2) return 2 * kScalarSize[kVectorScalar[code - Char2]];
    LogStream(Channels::error(), "clTypeSize") << " unknown type in clTypeSize " << code;
    return 0;
}

uint32_t CLimageFromatToCLmemoryType(const cl_image_format* f)
{
    using namespace MemTypes;
    uint32_t scalar = 0, wide = 0;
    switch (f->image_channel_data_type) {
    case CL_SNORM_INT8: case CL_SIGNED_INT8: scalar = Char; wide = Char4; break;
    case CL_UNORM_INT8: case CL_UNSIGNED_INT8: scalar = UChar; wide = UChar4; break;
    case CL_SNORM_INT16: case CL_SIGNED_INT16: scalar = Short; wide = Short4; break;
    case CL_UNORM_INT16: case CL_UNSIGNED_INT16: scalar = UShort; wide = UShort4; break;
    case CL_SIGNED_INT32: scalar = Int; wide = Int4; break;
    case CL_UNSIGNED_INT32: scalar = UInt; wide = UInt4; break;
    case CL_HALF_FLOAT: case CL_FLOAT: scalar = Float; wide = Float4; break;
    default:
        LogStream(Channels::error(), "CLimageFromatToCLmemoryType") << "Unsupported Image Format ";
        return 0;
    }
    switch (f->image_channel_order) {
    case CL_R: case CL_A: case CL_INTENSITY: case CL_LUMINANCE: return scalar;
    case CL_RGBA: case CL_BGRA: case CL_ARGB: return wide;
    default:
        LogStream(Channels::error(), "clImageFormatCardinality") << "Unsupported Image Format ";
        return 0;
    }
}

uint32_t CLimageFromatToGLinternalformat(const cl_image_format* f)
{
    const char* name = "CLimageFromatToGLinternalformat";
    // Column of the data type: 8-bit, 16-bit, 32-bit integer, half, float, other.
    int column;
    switch (f->image_channel_data_type) {
    case CL_SNORM_INT8: case CL_UNORM_INT8: case CL_SIGNED_INT8: case CL_UNSIGNED_INT8: column = 0; break;
    case CL_SNORM_INT16: case CL_UNORM_INT16: case CL_SIGNED_INT16: case CL_UNSIGNED_INT16: column = 1; break;
    case CL_SIGNED_INT32: case CL_UNSIGNED_INT32: column = 2; break;
    case CL_HALF_FLOAT: column = 3; break;
    case CL_FLOAT: column = 4; break;
    default: column = 5; break;
    }
    static const uint32_t kRgba[6] = {GL_RGBA8, GL_RGBA16, GL_RGBA, GL_RGBA16F, GL_RGBA32F, GL_RGBA};
    static const uint32_t kIntensity[6] = {GL_INTENSITY8,       GL_INTENSITY16,       GL_INTENSITY,
                                           GL_INTENSITY16F_ARB, GL_INTENSITY32F_ARB, GL_RGBA};
    static const uint32_t kLuminance[6] = {GL_LUMINANCE8,       GL_LUMINANCE16,       GL_LUMINANCE,
                                           GL_LUMINANCE16F_ARB, GL_LUMINANCE32F_ARB, GL_RGBA};
    const uint32_t* row = nullptr;
    const char* rowName = nullptr;
    switch (f->image_channel_order) {
    case CL_RGBA: case CL_BGRA: case CL_ARGB: row = kRgba; rowName = "GL_RGBA"; break;
    case CL_INTENSITY: row = kIntensity; rowName = "GL_INTENSITY"; break;
    case CL_LUMINANCE: row = kLuminance; rowName = "GL_LUMINANCE"; break;
    case CL_R: case CL_A: case CL_RG: case CL_RA: case CL_RGB:
        LogStream(Channels::error(), name) << "No conversion from " << clChannelOrderName(f->image_channel_order)
                                           << " to OpenGL texture internalformat : using GL_RGBA";
        return GL_RGBA;
    default:
        LogStream(Channels::error(), name) << "unknown value for cl_image_format.image_channel_order : "
                                           << f->image_channel_order;
        return GL_RGBA;
    }
    if (column == 2)
        LogStream(Channels::error(), name)
            << "No Conversion from CL_SIGNED_INT32/CL_UNSIGNED_INT32 to OpenGL internal format - using " << rowName;
    return row[column];
}

uint32_t CLimageFromatToGLformat(const cl_image_format* f)
{
    switch (f->image_channel_order) {
    case CL_RGBA: return GL_RGBA;
    case CL_BGRA: return GL_BGRA;
    case CL_INTENSITY: case CL_LUMINANCE: return GL_LUMINANCE;
    case CL_R: case CL_A: case CL_RG: case CL_RA: case CL_RGB: case CL_ARGB:
        LogStream(Channels::error(), "CLimageFromatToGLformat")
            << "No conversion from " << clChannelOrderName(f->image_channel_order)
            << " to OpenGL format : using GL_RGBA";
        return GL_RGBA;
    default:
        LogStream(Channels::error(), "CLimageFromatToGLformat")
            << "No conversion from cl_image_format.image_channel_order to OpenGL data format : using GL_RGBA";
        return GL_RGBA;
    }
}

uint32_t CLimageFromatToGLtype(const cl_image_format* f)
{
    switch (f->image_channel_data_type) {
    case CL_SNORM_INT8: case CL_SIGNED_INT8: return GL_BYTE;
    case CL_UNORM_INT8: case CL_UNSIGNED_INT8: return GL_UNSIGNED_BYTE;
    case CL_SNORM_INT16: case CL_SIGNED_INT16: return GL_SHORT;
    case CL_UNORM_INT16: case CL_UNSIGNED_INT16: return GL_UNSIGNED_SHORT;
    case CL_SIGNED_INT32: return GL_INT;
    case CL_UNSIGNED_INT32: return GL_UNSIGNED_INT;
    case CL_HALF_FLOAT: case CL_FLOAT: return GL_FLOAT;
    default:
        LogStream(Channels::error(), "CLimageFromatToGLtype")
            << "No conversion from cl_image_format.image_channel_data_type to OpenGL texure data type : using "
               "GL_UNSIGNED_INT";
        return GL_UNSIGNED_INT;
    }
}

const char* clChannelOrderName(uint32_t order)
{
    static const char* const kNames[] = {"CL_R",   "CL_A",    "CL_RG",   "CL_RA",        "CL_RGB",
                                         "CL_RGBA", "CL_BGRA", "CL_ARGB", "CL_INTENSITY", "CL_LUMINANCE"};
    if (order >= CL_R && order <= CL_LUMINANCE) return kNames[order - CL_R];
    return "Unkown cl_image_format.image_channel_order";
}

const char* clChannelTypeName(uint32_t type)
{
    switch (type) {
    case CL_SNORM_INT8: return "CL_SNORM_INT8";
    case CL_SNORM_INT16: return "CL_SNORM_INT16";
    case CL_UNORM_INT8: return "CL_UNORM_INT8";
    case CL_UNORM_INT16: return "CL_UNORM_INT16";
    case CL_SIGNED_INT8: return "CL_SIGNED_INT8";
    case CL_SIGNED_INT16: return "CL_SIGNED_INT16";
    case CL_SIGNED_INT32: return "CL_SIGNED_INT32";
    case CL_UNSIGNED_INT8: return "CL_UNSIGNED_INT8";
    case CL_UNSIGNED_INT16: return "CL_UNSIGNED_INT16";
    case CL_UNSIGNED_INT32: return "CL_UNSIGNED_INT32";
    case CL_HALF_FLOAT: return "CL_HALF_FLOAT";
    case CL_FLOAT: return "CL_FLOAT";
    default: return "Unkown cl_image_format.image_channel_data_type";
    }
}

const char* glInternalFormatName(uint32_t format)
{
    switch (format) {
    case GL_LUMINANCE8: return "GL_LUMINANCE8";
    case GL_LUMINANCE16: return "GL_LUMINANCE16";
    case GL_INTENSITY8: return "GL_INTENSITY8";
    case GL_INTENSITY16: return "GL_INTENSITY16";
    case GL_RGBA8: return "GL_RGBA8";
    case GL_RGBA16: return "GL_RGBA16";
    case GL_RGBA32F: return "GL_RGBA32F";
    case GL_INTENSITY32F_ARB: return "GL_INTENSITY32F_ARB";
    case GL_LUMINANCE32F_ARB: return "GL_LUMINANCE32F_ARB";
    case GL_RGBA16F: return "GL_RGBA16F";
    case GL_INTENSITY16F_ARB: return "GL_INTENSITY16F_ARB";
    case GL_LUMINANCE16F_ARB: return "GL_LUMINANCE16F_ARB";
    case GL_RGBA32UI: return "GL_RGBA32UI";
    case GL_RGBA16UI: return "GL_RGBA16UI";
    case GL_RGBA8UI: return "GL_RGBA8UI";
    case GL_RGBA32I: return "GL_RGBA32I";
    case GL_RGBA16I: return "GL_RGBA16I";
    case GL_RGBA8I: return "GL_RGBA8I";
    default: return "Unknown GL internalFormat";
    }
}
