#include "memory/MemProxy.h"

#include "runtime/Channels.h"

namespace MemProxyDetail {

char g_printBuffer[512];

void printLine(const char* text)
{
    LogStream(Channels::luaPrint(), "") << text;
}

}  // namespace MemProxyDetail

namespace {

// One switch over the 31 codes, for any family: F<U, T, N, Vector> names the
// class, `make` builds it.
template <template <class, class, int, bool> class F, class Make>
MemProxy* byCode(uint32_t code, Make make)
{
    using namespace MemTypes;
    switch (code) {
    case Char: return make(static_cast<F<cl_char, cl_char, 1, false>*>(nullptr));
    case UChar: return make(static_cast<F<cl_uchar, cl_uchar, 1, false>*>(nullptr));
    case Short: return make(static_cast<F<cl_short, cl_short, 1, false>*>(nullptr));
    case UShort: case Half: return make(static_cast<F<cl_ushort, cl_ushort, 1, false>*>(nullptr));
    case Int: return make(static_cast<F<cl_int, cl_int, 1, false>*>(nullptr));
    case UInt: return make(static_cast<F<cl_uint, cl_uint, 1, false>*>(nullptr));
    case Long: return make(static_cast<F<cl_long, cl_long, 1, false>*>(nullptr));
    case ULong: return make(static_cast<F<cl_ulong, cl_ulong, 1, false>*>(nullptr));
    case Float: return make(static_cast<F<cl_float, cl_float, 1, false>*>(nullptr));
    case Double: return make(static_cast<F<cl_double, cl_double, 1, false>*>(nullptr));
    case Char4: return make(static_cast<F<cl_char4, cl_char, 4, true>*>(nullptr));
    case UChar4: return make(static_cast<F<cl_uchar4, cl_uchar, 4, true>*>(nullptr));
    case Short4: return make(static_cast<F<cl_short4, cl_short, 4, true>*>(nullptr));
    case UShort4: return make(static_cast<F<cl_ushort4, cl_ushort, 4, true>*>(nullptr));
    case Int4: return make(static_cast<F<cl_int4, cl_int, 4, true>*>(nullptr));
    case UInt4: return make(static_cast<F<cl_uint4, cl_uint, 4, true>*>(nullptr));
    case Long4: return make(static_cast<F<cl_long4, cl_long, 4, true>*>(nullptr));
    case ULong4: return make(static_cast<F<cl_ulong4, cl_ulong, 4, true>*>(nullptr));
    case Float4: return make(static_cast<F<cl_float4, cl_float, 4, true>*>(nullptr));
    case Double4: return make(static_cast<F<cl_double4, cl_double, 4, true>*>(nullptr));
    case Char2: return make(static_cast<F<cl_char2, cl_char, 2, true>*>(nullptr));
    case UChar2: return make(static_cast<F<cl_uchar2, cl_uchar, 2, true>*>(nullptr));
    case Short2: return make(static_cast<F<cl_short2, cl_short, 2, true>*>(nullptr));
    case UShort2: return make(static_cast<F<cl_ushort2, cl_ushort, 2, true>*>(nullptr));
    case Int2: return make(static_cast<F<cl_int2, cl_int, 2, true>*>(nullptr));
    case UInt2: return make(static_cast<F<cl_uint2, cl_uint, 2, true>*>(nullptr));
    case Long2: return make(static_cast<F<cl_long2, cl_long, 2, true>*>(nullptr));
    case ULong2: return make(static_cast<F<cl_ulong2, cl_ulong, 2, true>*>(nullptr));
    case Float2: return make(static_cast<F<cl_float2, cl_float, 2, true>*>(nullptr));
    case Double2: return make(static_cast<F<cl_double2, cl_double, 2, true>*>(nullptr));
    default: return make(static_cast<F<cl_char, cl_char, 1, false>*>(nullptr));
    }
}

template <class U, class T, int N, bool V>
using Buffer = MemTypeElementProxy<U, T, N, V, oclBuffer, MemProxy, 1>;
template <class U, class T, int N, bool V>
using Image2D = MemTypeElementProxy<U, T, N, V, oclImage2D, MemProxy, 2>;
template <class U, class T, int N, bool V>
using Image3D = MemTypeElementProxy<U, T, N, V, oclImage3D, MemProxy, 3>;

template <template <class, class, int, bool> class F, class O>
MemProxy* make(O* object, uint32_t w, uint32_t h, uint32_t d, uint32_t code)
{
    const uint32_t dims[3] = {w, h, d};
    const uint32_t stored = code < MemTypes::kCount ? code : 0;
    return byCode<F>(code, [&](auto* tag) -> MemProxy* {
        using P = std::remove_pointer_t<decltype(tag)>;
        return new P(object, dims, stored);
    });
}

}  // namespace

MemProxy* makeBufferProxy(oclBuffer* object, uint32_t count, uint32_t code)
{
    return make<Buffer>(object, count, 0, 0, code);
}

MemProxy* makeImage2DProxy(oclImage2D* object, uint32_t width, uint32_t height, uint32_t code)
{
    return make<Image2D>(object, width, height, 0, code);
}

MemProxy* makeImage3DProxy(oclImage3D* object, uint32_t width, uint32_t height, uint32_t depth, uint32_t code)
{
    return make<Image3D>(object, width, height, depth, code);
}
