// Typed element access over a memory object's host pointer. Every typed
// memory object owns one proxy; scripts reach elements only through it, so
// the switch on the element type is made once, when the proxy is made, and
// an element access from Lua costs one virtual call and no allocation.
//
// The classes are a small set of templates: the dimensionality (1, 2, 3)
// and the element shape (a scalar T, or a vector U of N components T) are
// parameters, and the names of the concrete families are aliases.
//
// Every operation that takes the Lua state may raise a Lua error, which
// leaves the function by longjmp: nothing in these functions owns anything
// that a destructor would have to free.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include <lua.hpp>

#include "compute/oclObject.h"
#include "memory/MemTypes.h"

struct StructType;

class MemProxy {
public:
    virtual ~MemProxy() = default;

    virtual int set(lua_State* L) = 0;
    virtual int get(lua_State* L) = 0;
    virtual int dim(lua_State* L) = 0;
    virtual int print(lua_State* L) = 0;
    virtual int init(lua_State* L) = 0;
    virtual int map(lua_State* L, cl_map_flags flags) = 0;
    virtual int unmap(lua_State* L) = 0;
    virtual int read(lua_State* L) = 0;
    virtual int write(lua_State* L) = 0;
    virtual size_t byteSize() const = 0;
    virtual void setDim(int axis, uint32_t n) = 0;
    virtual uint32_t getDim(int axis) const = 0;
    virtual uint32_t typeCode() const = 0;
    virtual cl_image_format format() = 0;

    // The record cursor of the struct module. The type is held with the
    // serial it had when it was laid over this object: a redeclared type has
    // a new serial, so a stale one is recognised without being followed.
    uint32_t recordOffset = 0;
    StructType* structType = nullptr;
    uint32_t structSerial = 0;
};

// Objects shared with OpenGL add a transfer to and from the GL object.
class MemPboProxy : public MemProxy {
public:
    virtual int pack(lua_State* L) = 0;
    virtual int unpack(lua_State* L) = 0;
};

namespace MemProxyDetail {

// A script number as an element index or coordinate: truncated toward zero;
// anything outside 0 .. 2^32-1 (and NaN) gives the largest value, which no
// dimension admits, so it is refused instead of wrapping onto an element.
inline uint32_t indexOf(lua_Number v)
{
    if (!(v > -1.0 && v < 4294967296.0)) return UINT32_MAX;
    return static_cast<uint32_t>(v);
}

// The text written after an element's header by print.
template <class T>
const char* scalarFormat()
{
    if constexpr (std::is_same_v<T, cl_char> || std::is_same_v<T, cl_int>) return "%d";
    else if constexpr (std::is_same_v<T, cl_uchar> || std::is_same_v<T, cl_uint>) return "%u";
    else if constexpr (std::is_same_v<T, cl_short>) return "%hd";
    else if constexpr (std::is_same_v<T, cl_ushort>) return "%hu";
    else if constexpr (std::is_same_v<T, cl_float>) return "%f";
    else if constexpr (std::is_same_v<T, cl_double>) return "%lf";
    else return nullptr;  // 64-bit integers have no text form
}

// Vector components: 8-bit values print through the 16-bit forms.
template <class T>
const char* componentFormat()
{
    if constexpr (std::is_same_v<T, cl_char> || std::is_same_v<T, cl_short>) return "%hd";
    else if constexpr (std::is_same_v<T, cl_uchar> || std::is_same_v<T, cl_ushort>) return "%hu";
    else return scalarFormat<T>();
}

// A Lua number into an element component: integers by truncation toward
// zero keeping the low bytes, floats by rounding.
template <class T>
T fromNumber(lua_Number v)
{
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(v);
    } else {
        if (v != v) return 0;  // NaN has no integer value
        if (v >= 9223372036854775808.0) return static_cast<T>(v < 18446744073709551616.0 ? static_cast<uint64_t>(v) : 0);
        if (v < -9223372036854775808.0) return 0;
        return static_cast<T>(static_cast<uint64_t>(static_cast<int64_t>(v)));
    }
}

template <class T>
lua_Number toNumber(T v)
{
    return static_cast<lua_Number>(v);
}

// Appends the text of `n` components at `p` to `out` (of `room` bytes).
template <class T>
void componentText(char* out, size_t room, const T* p, int n, bool vector)
{
    const char* f = vector ? componentFormat<T>() : scalarFormat<T>();
    if (!f) {
        std::snprintf(out, room, "%s",
                      vector ? " prtEntryN not implemented for given type " : " prtEntry1 not implemented for given type ");
        return;
    }
    size_t used = 0;
    for (int i = 0; i < n && used < room; ++i) {
        if (i) used += std::snprintf(out + used, room - used, ", ");
        if (used >= room) break;
        if constexpr (std::is_floating_point_v<T>)
            used += std::snprintf(out + used, room - used, f, static_cast<double>(p[i]));
        else if constexpr (std::is_signed_v<T>)
            used += std::snprintf(out + used, room - used, f, static_cast<int>(p[i]));
        else
            used += std::snprintf(out + used, room - used, f, static_cast<unsigned>(p[i]));
    }
}

// Writes one finished print line on the Lua print channel.
void printLine(const char* text);
// The one buffer print builds its lines in.
extern char g_printBuffer[512];

}  // namespace MemProxyDetail

// The shared map, unmap, read and write over an object of class O.
template <class O, class B>
class MemBaseProxy : public B {
public:
    explicit MemBaseProxy(O* object) : object(object) {}

    int map(lua_State* L, cl_map_flags flags) override
    {
        if (object->mapFlags != 0) return luaL_error(L, "(%s): buffer already mapped", object->name());
        if (!object->map(flags, 0)) return luaL_error(L, "(%s): error mapping buffer", object->name());
        return 0;
    }
    int unmap(lua_State* L) override
    {
        if (object->mapFlags == 0) return luaL_error(L, "(%s): buffer not mapped", object->name());
        if (!object->unmap(0)) return luaL_error(L, "(%s): error unmapping buffer", object->name());
        return 0;
    }
    int read(lua_State* L) override
    {
        if (object->mapFlags == 0) return luaL_error(L, "(%s): buffer not mapped", object->name());
        if (!object->read(0)) return luaL_error(L, "(%s): error reading buffer", object->name());
        return 0;
    }
    int write(lua_State* L) override
    {
        if (object->mapFlags == 0) return luaL_error(L, "(%s): buffer not mapped", object->name());
        if (!object->write(0)) return luaL_error(L, "(%s): error writing buffer", object->name());
        return 0;
    }
    cl_image_format format() override
    {
        cl_image_format f{0, 0};
        if constexpr (!std::is_same_v<O, oclBuffer>)
            if (object->mem) object->format(&f);
        return f;
    }

    O* object;
};

// Dimensions and type code of a D-dimensional proxy over an O.
template <class O, class B, int D>
class MemTypeDProxy : public MemBaseProxy<O, B> {
public:
    MemTypeDProxy(O* object, const uint32_t (&dims)[3], uint32_t code) : MemBaseProxy<O, B>(object), m_code(code)
    {
        for (int i = 0; i < 3; ++i) m_dims[i] = i < D ? dims[i] : 0;
    }
    void setDim(int axis, uint32_t n) override
    {
        if (axis >= 0 && axis < D) m_dims[axis] = n;
    }
    uint32_t getDim(int axis) const override { return axis >= 0 && axis < D ? m_dims[axis] : 0; }
    uint32_t typeCode() const override { return m_code; }

    int dim(lua_State* L) override
    {
        if (!lua_isnumber(L, 2)) return luaL_typerror(L, 2, "number");
        const uint32_t axis = MemProxyDetail::indexOf(lua_tonumber(L, 2));
        if (axis >= static_cast<uint32_t>(D))
            return luaL_error(L, D == 1 ? "(%s): buffer only has 1 dimension" : "(%s): buffer only has %d dimensions",
                              this->object->name(), D);
        lua_pushinteger(L, static_cast<lua_Integer>(m_dims[axis]));
        return 1;
    }

protected:
    // Coordinates from slots 2 on, checked against the dimensions; the
    // messages are those of each dimensionality.
    void coordinates(lua_State* L, uint32_t (&c)[3], uint32_t limit0)
    {
        for (int i = 0; i < D; ++i) {
            if (!lua_isnumber(L, 2 + i)) luaL_typerror(L, 2 + i, "number");
            c[i] = MemProxyDetail::indexOf(lua_tonumber(L, 2 + i));
        }
        const char* name = this->object->name();
        if constexpr (D == 2) {
            if (c[0] >= m_dims[0]) luaL_error(L, "(%s): invalid x coordinate %d ", name, static_cast<int>(c[0]));
            if (c[1] >= m_dims[1]) luaL_error(L, "(%s): invalid y coordinate %d ", name, static_cast<int>(c[1]));
        } else if constexpr (D == 3) {
            if (c[0] >= m_dims[0]) luaL_error(L, "(%s): x coordinate out of range %d ", name, static_cast<int>(c[0]));
            if (c[1] >= m_dims[1])
                luaL_error(L, "(%s): y coordinate out of range -  %d ", name, static_cast<int>(c[1]));
            if (c[2] >= m_dims[2])
                luaL_error(L, "(%s): z coordinate out of range - %d ", name, static_cast<int>(c[2]));
        } else {
            (void)limit0;
        }
    }
    size_t offsetOf(const uint32_t (&c)[3]) const
    {
        if constexpr (D == 1) return c[0];
        else if constexpr (D == 2) return static_cast<size_t>(c[1]) * m_dims[0] + c[0];
        else return (static_cast<size_t>(c[2]) * m_dims[1] + c[1]) * m_dims[0] + c[0];
    }
    // "[x,y] :" and the like, into the print buffer; returns its length.
    int header(const uint32_t (&c)[3], bool vector)
    {
        char* b = MemProxyDetail::g_printBuffer;
        const size_t n = sizeof MemProxyDetail::g_printBuffer;
        const char* open = vector ? " : (" : " :";
        if constexpr (D == 1) return std::snprintf(b, n, "[%d]%s", static_cast<int>(c[0]), open);
        else if constexpr (D == 2)
            return std::snprintf(b, n, "[%d,%d]%s", static_cast<int>(c[0]), static_cast<int>(c[1]), open);
        else
            return std::snprintf(b, n, "[%d,%d,%d]%s", static_cast<int>(c[0]), static_cast<int>(c[1]),
                                 static_cast<int>(c[2]), open);
    }
    size_t elements() const
    {
        size_t n = 1;
        for (int i = 0; i < D; ++i) n *= m_dims[i];
        return n;
    }

    uint32_t m_dims[3] = {};
    uint32_t m_code;
};

// Elements of N components of scalar type T stored as U (U = T when N is 1).
// `Vector` tells the scalar families (one value, no parentheses) from the
// vector ones.
template <class U, class T, int N, bool Vector, class O, class B, int D>
class MemTypeElementProxy : public MemTypeDProxy<O, B, D> {
    static_assert(sizeof(U) == sizeof(T) * N);
    using Base = MemTypeDProxy<O, B, D>;

public:
    using Base::Base;

    size_t byteSize() const override { return clTypeSize(this->m_code) * this->elements(); }

    int set(lua_State* L) override
    {
        uint32_t c[3] = {};
        if (!checkIndex(L, c, Op::Set)) return 0;
        T* e = element(c);
        const int first = 2 + D;
        for (int i = 0; i < N; ++i) {
            const int slot = first + i;
            if (lua_type(L, slot) == LUA_TNUMBER)
                e[i] = MemProxyDetail::fromNumber<T>(lua_tonumber(L, slot));
            else if (!lua_isnoneornil(L, slot))
                return luaL_typerror(L, slot, "number or null");
        }
        return 0;
    }

    int get(lua_State* L) override
    {
        uint32_t c[3] = {};
        if (!checkIndex(L, c, Op::Get)) return 0;
        const T* e = element(c);
        for (int i = 0; i < N; ++i) lua_pushnumber(L, MemProxyDetail::toNumber(e[i]));
        return N;
    }

    int print(lua_State* L) override
    {
        uint32_t c[3] = {};
        if (!checkIndex(L, c, Op::Print)) return 0;
        int used = this->header(c, Vector);
        char* b = MemProxyDetail::g_printBuffer;
        const size_t room = sizeof MemProxyDetail::g_printBuffer;
        MemProxyDetail::componentText<T>(b + used, room - used - 2, element(c), N, Vector);
        if (Vector) std::strcat(b, ")");
        MemProxyDetail::printLine(b);
        return 0;
    }

    int init(lua_State* L) override
    {
        T local[N] = {};
        for (int i = 0; i < N; ++i) {
            const int slot = 2 + i;
            if (lua_type(L, slot) == LUA_TNUMBER)
                local[i] = MemProxyDetail::fromNumber<T>(lua_tonumber(L, slot));
            else if (D == 1 && !Vector)
                return luaL_typerror(L, slot, "number");
            else if (!lua_isnoneornil(L, slot))
                return luaL_typerror(L, slot, "number or null");
        }
        auto* p = static_cast<T*>(this->object->data);
        if (!p) return 0;
        const size_t n = this->elements();
        for (size_t k = 0; k < n; ++k) std::memcpy(p + k * N, local, sizeof local);
        return 0;
    }

private:
    T* element(const uint32_t (&c)[3]) { return static_cast<T*>(this->object->data) + this->offsetOf(c) * N; }

    // False only where nothing is to be done: a vector buffer's print past
    // the end. Everything else out of range raises.
    enum class Op { Set, Get, Print };
    bool checkIndex(lua_State* L, uint32_t (&c)[3], Op op)
    {
        if constexpr (D == 1) {
            if (!lua_isnumber(L, 2)) luaL_typerror(L, 2, "number");
            c[0] = MemProxyDetail::indexOf(lua_tonumber(L, 2));
            const char* name = this->object->name();
            // What the cl_mem really holds, in elements.
            const size_t held = this->object->mem ? this->object->dim(0) / sizeof(U) : 0;
            const size_t limit = Vector ? held : this->m_dims[0];
            if (c[0] < limit) return true;
            if (op == Op::Set)
                luaL_error(L, "(%s): invalid index %d/%d ", name, static_cast<int>(c[0]), static_cast<int>(held));
            if (Vector && op == Op::Print) return false;
            luaL_error(L, "(%s): invalid index %d ", name, static_cast<int>(c[0]));
            return false;
        } else {
            this->coordinates(L, c, 0);
            return true;
        }
    }
};

// The object's proxy; raises "Proxy missing in buffer object NAME " without one.
inline MemProxy* memProxyOf(lua_State* L, oclMem* m)
{
    if (!m->proxy) luaL_error(L, "Proxy missing in buffer object %s ", m->name());
    return m->proxy;
}

// The families by their names: scalar (Proxy0) and vector (ProxyN) elements
// of buffers, 2D images and 3D images.
template <class T>
using MemBufferProxy0 = MemTypeElementProxy<T, T, 1, false, oclBuffer, MemProxy, 1>;
template <class U, class T, int N>
using MemBufferProxyN = MemTypeElementProxy<U, T, N, true, oclBuffer, MemProxy, 1>;
template <class T>
using MemImage2DProxy0 = MemTypeElementProxy<T, T, 1, false, oclImage2D, MemProxy, 2>;
template <class U, class T, int N>
using MemImage2DProxyN = MemTypeElementProxy<U, T, N, true, oclImage2D, MemProxy, 2>;
template <class T>
using MemImage3DProxy0 = MemTypeElementProxy<T, T, 1, false, oclImage3D, MemProxy, 3>;
template <class U, class T, int N>
using MemImage3DProxyN = MemTypeElementProxy<U, T, N, true, oclImage3D, MemProxy, 3>;

namespace MemProxyDetail {
// One switch over the 31 codes, for any family: F<U, T, N, Vector> names the
// class, `make` builds it.
template <template <class, class, int, bool> class F, class Make>
inline MemProxy* byCode(uint32_t code, Make make)
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

}  // namespace MemProxyDetail

// Textures shared with OpenGL: the element classes on the pixel-buffer base,
// with the texture that pack and unpack forward to and that knows the format.
template <class U, class T, int N, bool Vector, class O, int D, class Tex>
class MemTextureElementProxy : public MemTypeElementProxy<U, T, N, Vector, O, MemPboProxy, D> {
    using Base = MemTypeElementProxy<U, T, N, Vector, O, MemPboProxy, D>;

public:
    MemTextureElementProxy(Tex* texture, const uint32_t (&dims)[3], uint32_t code)
        : Base(texture, dims, code), texture(texture) {}

    int pack(lua_State* L) override
    {
        if (!texture->pack()) return luaL_error(L, "(%s): error calling pack", texture->name());
        return 0;
    }
    int unpack(lua_State* L) override
    {
        if (!texture->unpack()) return luaL_error(L, "(%s): error calling unpack", texture->name());
        return 0;
    }
    cl_image_format format() override
    {
        cl_image_format f{0, 0};
        texture->format(&f);
        return f;
    }

    Tex* texture;
};

class MemTypeTexture2D;
class MemTypeTexture3D;
template <class T>
using MemTexture2DProxy0 = MemTextureElementProxy<T, T, 1, false, oclImage2D, 2, MemTypeTexture2D>;
template <class U, class T, int N>
using MemTexture2DProxyN = MemTextureElementProxy<U, T, N, true, oclImage2D, 2, MemTypeTexture2D>;
template <class T>
using MemTexture3DProxy0 = MemTextureElementProxy<T, T, 1, false, oclImage3D, 3, MemTypeTexture3D>;
template <class U, class T, int N>
using MemTexture3DProxyN = MemTextureElementProxy<U, T, N, true, oclImage3D, 3, MemTypeTexture3D>;

// The proxy for a type code over an object; the one switch on the code.
// An unknown code gives the cl_char class, as an unsupported image format does.
MemProxy* makeBufferProxy(oclBuffer* object, uint32_t count, uint32_t code);
MemProxy* makeImage2DProxy(oclImage2D* object, uint32_t width, uint32_t height, uint32_t code);
MemProxy* makeImage3DProxy(oclImage3D* object, uint32_t width, uint32_t height, uint32_t depth, uint32_t code);
