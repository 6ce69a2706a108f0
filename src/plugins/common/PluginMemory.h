// What the file plug-ins share: finding the memory object a script passed,
// mapping it for writing through the script module `mem` and unmapping it
// again, and converting decoded pixels into whatever image format the target
// object has. Header-only: each plug-in is one library of its own.
//
// Every function that calls into Lua does so under lua_pcall and reports a
// failure as text, so that the caller can free what it holds before it raises
// the error: a Lua error never passes over a C++ object with a destructor.
#pragma once

#ifndef CL_TARGET_OPENCL_VERSION
#define CL_TARGET_OPENCL_VERSION 120
#endif
#include <CL/cl.h>
#include <lua.hpp>
#include <sys/stat.h>

#include <cerrno>

#include <algorithm>
#include <initializer_list>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "memory/MemPluginApi.h"

namespace plugin {

// getFileExt's answer: the extensions as a list.
inline int pushExtensions(lua_State* L, std::initializer_list<const char*> extensions)
{
    lua_createtable(L, static_cast<int>(extensions.size()), 0);
    int i = 1;
    for (const char* e : extensions) {
        lua_pushstring(L, e);
        lua_rawseti(L, -2, i++);
    }
    return 1;
}

// A number field of the info table on top of the stack.
inline void setNumber(lua_State* L, const char* key, lua_Number v)
{
    lua_pushnumber(L, v);
    lua_setfield(L, -2, key);
}

// A message for the caller to raise once its C++ objects are gone.
struct Error {
    char text[512] = {};
    bool set() const { return text[0] != 0; }
    void format(const char* fmt, ...) __attribute__((format(printf, 2, 3)))
    {
        va_list ap;
        va_start(ap, fmt);
        std::vsnprintf(text, sizeof text, fmt, ap);
        va_end(ap);
    }
};

// A file is only opened when it is a regular file: a FIFO or a device would
// block the program or never end.
inline bool regularFile(const char* path, const char* what, Error& err)
{
    struct stat st{};
    if (stat(path, &st) != 0) {
        err.format("unable to open %s %s: %s", what, path, std::strerror(errno));
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        err.format("unable to open %s %s: not a regular file", what, path);
        return false;
    }
    return true;
}

// The view of the memory object at `idx`; false with a message when the value
// is none or the program published no view function.
inline bool view(lua_State* L, int idx, VelmoraMemView& v, Error& err)
{
    lua_getfield(L, LUA_REGISTRYINDEX, VELMORA_MEM_API_KEY);
    auto* api = static_cast<const VelmoraMemApi*>(lua_touserdata(L, -1));
    lua_pop(L, 1);
    if (!api || api->version != VELMORA_MEM_API_VERSION || !api->view) {
        err.format("the program offers no access to memory objects");
        return false;
    }
    if (!api->view(L, idx, &v)) {
        err.format("memory object expected, got %s", luaL_typename(L, idx));
        return false;
    }
    return true;
}

// Calls mem.<function>(object at idx[, flags]) under protection.
inline bool callMem(lua_State* L, int idx, const char* function, int flags, Error& err)
{
    idx = idx < 0 ? lua_gettop(L) + idx + 1 : idx;
    lua_getglobal(L, "mem");
    if (!lua_istable(L, -1)) {
        lua_pop(L, 1);
        err.format("the module mem is missing");
        return false;
    }
    lua_getfield(L, -1, function);
    lua_remove(L, -2);
    lua_pushvalue(L, idx);
    int n = 1;
    if (flags) {
        lua_pushnumber(L, flags);
        ++n;
    }
    if (lua_pcall(L, n, 0, 0) != 0) {
        err.format("%s", lua_isstring(L, -1) ? lua_tostring(L, -1) : "mem call failed");
        lua_pop(L, 1);
        return false;
    }
    return true;
}

// Maps the object at `idx` for writing unless a script already has it mapped,
// in which case it stays as the script left it. `mappedHere` tells whether
// unmapAfter has anything to undo. On success `v` holds the mapped view.
inline bool mapForWrite(lua_State* L, int idx, VelmoraMemView& v, bool& mappedHere, Error& err)
{
    mappedHere = false;
    if (!view(L, idx, v, err)) return false;
    if (v.mapFlags == 0) {
        if (!callMem(L, idx, "map", CL_MAP_WRITE, err)) return false;
        mappedHere = true;
        if (!view(L, idx, v, err)) return false;
    }
    if (!v.data) {
        err.format("memory object has no mapped data");
        if (mappedHere) {
            Error ignored;
            callMem(L, idx, "unmap", 0, ignored);
            mappedHere = false;
        }
        return false;
    }
    return true;
}

inline bool unmapAfter(lua_State* L, int idx, bool mappedHere, Error& err)
{
    return !mappedHere || callMem(L, idx, "unmap", 0, err);
}

// ---------------------------------------------------------------- pixels

// Decoded samples: `channels` 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA, packed,
// x fastest, then y, then z. 8- and 16-bit samples are normalised by 255 and
// 65535; float samples are taken as they are.
struct Pixels {
    enum Kind { U8, U16, F32 };
    const void* data = nullptr;
    uint32_t width = 0, height = 0, depth = 1;
    int channels = 4;
    Kind kind = U8;
    // Pictures (top row first, as files store them) go in bottom row first:
    // memory row 0 is the bottom row, where a texture has t = 0 and a shared
    // image y = 0. The top rows of the picture are kept when the object is
    // lower than the picture. Raw volumes keep the order of their file.
    bool bottomUp = false;
};

// The layout a target object wants, from its image format or, for a buffer,
// from its element type.
struct Target {
    int components = 0;         // channels per element
    int source[4] = {};         // per component: 0 r, 1 g, 2 b, 3 a, 4 luminance
    uint32_t type = 0;          // CL channel data type
    int bytes = 0;              // bytes per component
};

inline int channelBytes(uint32_t type)
{
    switch (type) {
    case CL_SNORM_INT8: case CL_UNORM_INT8: case CL_SIGNED_INT8: case CL_UNSIGNED_INT8: return 1;
    case CL_SNORM_INT16: case CL_UNORM_INT16: case CL_SIGNED_INT16: case CL_UNSIGNED_INT16: case CL_HALF_FLOAT: return 2;
    case CL_SIGNED_INT32: case CL_UNSIGNED_INT32: case CL_FLOAT: return 4;
    default: return 0;
    }
}

// The format a buffer's element type stands for: one component is a
// luminance, two red and green, four RGBA.
inline bool bufferFormat(uint32_t code, uint32_t& order, uint32_t& type)
{
    static const uint32_t kScalar[] = {CL_SNORM_INT8, CL_UNORM_INT8, CL_SNORM_INT16, CL_UNORM_INT16,
                                       CL_SIGNED_INT32, CL_UNSIGNED_INT32, 0, 0, CL_HALF_FLOAT, CL_FLOAT, 0};
    uint32_t base = code, width = 1;
    if (code >= 11 && code <= 20) base = code == 19 ? 9 : code == 20 ? 10 : code - 11, width = 4;
    else if (code >= 21 && code <= 30) base = code == 29 ? 9 : code == 30 ? 10 : code - 21, width = 2;
    if (base > 10 || !kScalar[base]) return false;
    type = kScalar[base];
    order = width == 4 ? CL_RGBA : width == 2 ? CL_RG : CL_LUMINANCE;
    return true;
}

inline bool resolveTarget(const VelmoraMemView& v, Target& t, Error& err)
{
    uint32_t order = v.channelOrder, type = v.channelType;
    if (order == 0 && !bufferFormat(v.typeCode, order, type)) {
        err.format("element type %u cannot hold pixels", v.typeCode);
        return false;
    }
    auto set = [&t](std::initializer_list<int> s) {
        t.components = 0;
        for (int c : s) t.source[t.components++] = c;
    };
    switch (order) {
    case CL_R: set({0}); break;
    case CL_A: set({3}); break;
    case CL_RG: set({0, 1}); break;
    case CL_RA: set({0, 3}); break;
    case CL_RGBA: set({0, 1, 2, 3}); break;
    case CL_BGRA: set({2, 1, 0, 3}); break;
    case CL_ARGB: set({3, 0, 1, 2}); break;
    case CL_INTENSITY: case CL_LUMINANCE: set({4}); break;
    default: err.format("channel order 0x%X is not supported", order); return false;
    }
    t.type = type;
    t.bytes = channelBytes(type);
    if (t.bytes == 0) {
        err.format("channel type 0x%X is not supported", type);
        return false;
    }
    if (static_cast<uint32_t>(t.bytes * t.components) != v.elementSize) {
        err.format("image format does not match its element size of %u bytes", v.elementSize);
        return false;
    }
    return true;
}

inline uint16_t toHalf(float f)
{
    uint32_t x;
    std::memcpy(&x, &f, 4);
    const uint32_t sign = (x >> 16) & 0x8000u;
    const int exp = static_cast<int>((x >> 23) & 0xFF) - 127 + 15;
    uint32_t mant = x & 0x7FFFFFu;
    if (((x >> 23) & 0xFF) == 0xFF) return static_cast<uint16_t>(sign | 0x7C00u | (mant ? 0x200u : 0));
    if (exp >= 31) return static_cast<uint16_t>(sign | 0x7C00u);
    if (exp <= 0) {
        if (exp < -10) return static_cast<uint16_t>(sign);
        mant |= 0x800000u;
        const int shift = 14 - exp;
        uint32_t h = mant >> shift;
        if ((mant >> (shift - 1)) & 1u) ++h;
        return static_cast<uint16_t>(sign | h);
    }
    uint32_t h = sign | (static_cast<uint32_t>(exp) << 10) | (mant >> 13);
    if (mant & 0x1000u) ++h;  // round half up; a carry moves into the exponent as it should
    return static_cast<uint16_t>(h);
}

// One component: `n` normalised (0..1 for integer files), `raw` the file's
// own sample value. Normalised and float channel types take `n`; 32-bit
// integer channels take the sample value as the file holds it.
inline void putComponent(unsigned char* p, uint32_t type, double n, double raw)
{
    auto clamp = [](double x, double lo, double hi) { return x < lo ? lo : x > hi ? hi : x; };
    switch (type) {
    case CL_UNORM_INT8: case CL_UNSIGNED_INT8: {
        const uint8_t b = static_cast<uint8_t>(std::lround(clamp(n, 0, 1) * 255));
        std::memcpy(p, &b, 1);
        break;
    }
    case CL_SNORM_INT8: case CL_SIGNED_INT8: {
        const int8_t b = static_cast<int8_t>(std::lround(clamp(n, -1, 1) * 127));
        std::memcpy(p, &b, 1);
        break;
    }
    case CL_UNORM_INT16: case CL_UNSIGNED_INT16: {
        const uint16_t s = static_cast<uint16_t>(std::lround(clamp(n, 0, 1) * 65535));
        std::memcpy(p, &s, 2);
        break;
    }
    case CL_SNORM_INT16: case CL_SIGNED_INT16: {
        const int16_t s = static_cast<int16_t>(std::lround(clamp(n, -1, 1) * 32767));
        std::memcpy(p, &s, 2);
        break;
    }
    case CL_HALF_FLOAT: {
        const uint16_t h = toHalf(static_cast<float>(n));
        std::memcpy(p, &h, 2);
        break;
    }
    case CL_SIGNED_INT32: {
        const int32_t i = static_cast<int32_t>(clamp(std::round(raw), -2147483648.0, 2147483647.0));
        std::memcpy(p, &i, 4);
        break;
    }
    case CL_UNSIGNED_INT32: {
        const uint32_t u = static_cast<uint32_t>(clamp(std::round(raw), 0, 4294967295.0));
        std::memcpy(p, &u, 4);
        break;
    }
    case CL_FLOAT: {
        const float f = static_cast<float>(n);
        std::memcpy(p, &f, 4);
        break;
    }
    default: break;
    }
}

// Writes the part of `px` that the object holds (the smaller extent on each
// axis) into the mapped store of `v`, converted to `t`. Nothing else of the
// store is touched.
inline void writePixels(const Pixels& px, const VelmoraMemView& v, const Target& t)
{
    const uint32_t w = std::min(px.width, v.dim[0]), h = std::min(px.height, v.dim[1]),
                   d = std::min(px.depth, v.dimensions >= 3 ? v.dim[2] : 1u);
    const double scale = px.kind == Pixels::U8 ? 255.0 : px.kind == Pixels::U16 ? 65535.0 : 1.0;
    auto* out = static_cast<unsigned char*>(v.data);
    const uint32_t objectHeight = v.dim[1];
    for (uint32_t z = 0; z < d; ++z)
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x) {
                // y counts picture rows from the top; the row it lands in:
                const uint32_t row = px.bottomUp ? objectHeight - 1 - y : y;
                const size_t at = (static_cast<size_t>(z) * px.height + y) * px.width + x;
                double raw[5] = {0, 0, 0, 0, 0};
                for (int c = 0; c < px.channels; ++c) {
                    const size_t i = at * px.channels + c;
                    raw[c] = px.kind == Pixels::U8    ? static_cast<const uint8_t*>(px.data)[i]
                             : px.kind == Pixels::U16 ? static_cast<const uint16_t*>(px.data)[i]
                                                      : static_cast<const float*>(px.data)[i];
                }
                // Expand to r, g, b, a and the luminance.
                double rgba[5];
                if (px.channels <= 2) {
                    rgba[0] = rgba[1] = rgba[2] = rgba[4] = raw[0];
                    rgba[3] = px.channels == 2 ? raw[1] : scale;
                } else {
                    rgba[0] = raw[0], rgba[1] = raw[1], rgba[2] = raw[2];
                    rgba[3] = px.channels == 4 ? raw[3] : scale;
                    rgba[4] = 0.299 * raw[0] + 0.587 * raw[1] + 0.114 * raw[2];
                }
                unsigned char* p =
                    out + ((static_cast<size_t>(z) * v.dim[1] + row) * v.dim[0] + x) * v.elementSize;
                for (int c = 0; c < t.components; ++c) {
                    const double r = rgba[t.source[c]];
                    putComponent(p + c * t.bytes, t.type, r / scale, r);
                }
            }
}

}  // namespace plugin
