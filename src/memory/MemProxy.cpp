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
    return MemProxyDetail::byCode<F>(code, [&](auto* tag) -> MemProxy* {
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
