// The file plug-in `image`: pictures into memory objects with stb_image
// (PNG, JPEG, BMP, TGA, HDR), and memory objects out to PNG files with
// stb_image_write. The pixels go straight from the decoder's block into the
// mapped store, converted to the object's own image format.
//
//   image.getFileExt()            -> {".png", ".jpg", ...}
//   image.getFileInfo(path)       -> {image_width=, image_height=, image_channel_order=,
//                                     image_channel_data_type=} or nil when unreadable
//   image.read(memory, path)      fills the object (the part of the picture it holds),
//                                 bottom row first: the picture stands upright in a texture
//   image.write(memory, path)     writes a 2D object as an RGBA PNG, the last row on top
#include <stb/stb_image.h>
#include <stb/stb_image_write.h>

#include <cstdlib>
#include <vector>

#include "plugins/common/PluginMemory.h"

namespace {

// Matched exactly, case included, by the program.

// Decoded pictures larger than this are refused: a damaged header must not
// make the decoder allocate without bound.
constexpr uint64_t kMaxPixels = 1ull << 26;

struct Info {
    int width = 0, height = 0, channels = 0;
    bool hdr = false, wide = false;
};

bool probe(const char* path, Info& info, plugin::Error& err)
{
    if (!plugin::regularFile(path, "image", err)) return false;
    if (!stbi_info(path, &info.width, &info.height, &info.channels)) {
        err.format("unable to read image %s: %s", path, stbi_failure_reason() ? stbi_failure_reason() : "unknown");
        return false;
    }
    if (info.width <= 0 || info.height <= 0 ||
        static_cast<uint64_t>(info.width) * static_cast<uint64_t>(info.height) > kMaxPixels) {
        err.format("unable to read image %s: %d by %d pixels is too large", path, info.width, info.height);
        return false;
    }
    info.hdr = stbi_is_hdr(path) != 0;
    info.wide = !info.hdr && stbi_is_16_bit(path) != 0;
    return true;
}

int lGetFileExt(lua_State* L)
{
    return plugin::pushExtensions(L, {".png", ".jpg", ".jpeg", ".bmp", ".tga", ".hdr"});
}


int lGetFileInfo(lua_State* L)
{
    const char* path = luaL_checkstring(L, 1);
    Info info;
    plugin::Error err;
    if (!probe(path, info, err)) {
        lua_pushnil(L);
        lua_pushstring(L, err.text);
        return 2;
    }
    const int order = info.channels == 1 ? CL_LUMINANCE : info.channels == 2 ? CL_RA : CL_RGBA;
    const int type = info.hdr ? CL_FLOAT : info.wide ? CL_UNORM_INT16 : CL_UNORM_INT8;
    lua_createtable(L, 0, 4);
    plugin::setNumber(L, "image_width", info.width);
    plugin::setNumber(L, "image_height", info.height);
    plugin::setNumber(L, "image_channel_order", order);
    plugin::setNumber(L, "image_channel_data_type", type);
    return 1;
}

struct Decoded {
    void* data = nullptr;
    ~Decoded() { stbi_image_free(data); }
};

bool readInto(lua_State* L, const char* path, plugin::Error& err)
{
    VelmoraMemView v{};
    plugin::Target target;
    if (!plugin::view(L, 1, v, err) || !plugin::resolveTarget(v, target, err)) return false;
    Info info;
    if (!probe(path, info, err)) return false;
    plugin::Pixels px;
    Decoded decoded;
    int w = 0, h = 0, n = 0;
    if (info.hdr) {
        decoded.data = stbi_loadf(path, &w, &h, &n, 4);
        px.kind = plugin::Pixels::F32;
    } else if (info.wide) {
        decoded.data = stbi_load_16(path, &w, &h, &n, 4);
        px.kind = plugin::Pixels::U16;
    } else {
        decoded.data = stbi_load(path, &w, &h, &n, 4);
        px.kind = plugin::Pixels::U8;
    }
    if (!decoded.data) {
        err.format("unable to read image %s: %s", path, stbi_failure_reason() ? stbi_failure_reason() : "unknown");
        return false;
    }
    px.data = decoded.data;
    px.width = static_cast<uint32_t>(w);
    px.height = static_cast<uint32_t>(h);
    // Grey pictures keep their grey as the luminance; stb expanded them to RGBA.
    px.channels = 4;
    px.bottomUp = true;
    bool mapped = false;
    if (!plugin::mapForWrite(L, 1, v, mapped, err)) return false;
    plugin::writePixels(px, v, target);
    return plugin::unmapAfter(L, 1, mapped, err);
}

int lRead(lua_State* L)
{
    const char* path = luaL_checkstring(L, 2);
    plugin::Error err;
    if (!readInto(L, path, err)) return luaL_error(L, "%s", err.text);
    return 0;
}

// An 8-bit component back from a stored one.
uint8_t component8(const unsigned char* p, uint32_t type)
{
    switch (type) {
    case CL_UNORM_INT8: case CL_UNSIGNED_INT8: return *p;
    case CL_UNORM_INT16: case CL_UNSIGNED_INT16: {
        uint16_t s;
        std::memcpy(&s, p, 2);
        return static_cast<uint8_t>((s + 128u) / 257u);
    }
    case CL_FLOAT: {
        float f;
        std::memcpy(&f, p, 4);
        return static_cast<uint8_t>(std::lround((f < 0 ? 0 : f > 1 ? 1 : f) * 255));
    }
    default: return 0;
    }
}

bool writeFrom(lua_State* L, const char* path, plugin::Error& err)
{
    VelmoraMemView v{};
    plugin::Target target;
    if (!plugin::view(L, 1, v, err) || !plugin::resolveTarget(v, target, err)) return false;
    if (target.type != CL_UNORM_INT8 && target.type != CL_UNSIGNED_INT8 && target.type != CL_UNORM_INT16 &&
        target.type != CL_UNSIGNED_INT16 && target.type != CL_FLOAT) {
        err.format("unable to write %s: channel type 0x%X has no PNG form", path, target.type);
        return false;
    }
    if (v.dim[0] == 0 || v.dim[1] == 0 || v.dim[0] > 65535 || v.dim[1] > 65535) {
        err.format("unable to write %s: %u by %u pixels", path, v.dim[0], v.dim[1]);
        return false;
    }
    bool mappedHere = false;
    if (v.mapFlags == 0) {
        if (!plugin::callMem(L, 1, "map", CL_MAP_READ, err)) return false;
        mappedHere = true;
        if (!plugin::view(L, 1, v, err)) return false;
    }
    std::vector<uint8_t> rgba;
    bool ok = v.data != nullptr;
    if (ok) {
        rgba.assign(static_cast<size_t>(v.dim[0]) * v.dim[1] * 4, 0);
        const auto* in = static_cast<const unsigned char*>(v.data);
        const size_t width = v.dim[0], height = v.dim[1];
        for (size_t i = 0; i < width * height; ++i) {
            // Memory holds the bottom row first; the file wants the top first.
            const size_t to = ((height - 1 - i / width) * width + i % width) * 4;
            uint8_t c[5] = {0, 0, 0, 255, 0};
            for (int k = 0; k < target.components; ++k) {
                const uint8_t value = component8(in + i * v.elementSize + k * target.bytes, target.type);
                if (target.source[k] == 4) c[0] = c[1] = c[2] = value;
                else c[target.source[k]] = value;
            }
            std::memcpy(&rgba[to], c, 4);
        }
    } else {
        err.format("unable to write %s: the object has no data", path);
    }
    plugin::Error unmapErr;
    const bool unmapped = plugin::unmapAfter(L, 1, mappedHere, unmapErr);
    if (!ok) return false;
    if (!unmapped) {
        err = unmapErr;
        return false;
    }
    if (!stbi_write_png(path, static_cast<int>(v.dim[0]), static_cast<int>(v.dim[1]), 4, rgba.data(),
                        static_cast<int>(v.dim[0] * 4))) {
        err.format("unable to write %s", path);
        return false;
    }
    return true;
}

int lWrite(lua_State* L)
{
    const char* path = luaL_checkstring(L, 2);
    plugin::Error err;
    bool ok = false;
    try {
        ok = writeFrom(L, path, err);
    } catch (const std::exception& e) {
        err.format("unable to write %s: %s", path, e.what());
    }
    if (!ok) return luaL_error(L, "%s", err.text);
    return 0;
}

const luaL_Reg kFunctions[] = {
    {"getFileExt", lGetFileExt}, {"getFileInfo", lGetFileInfo}, {"read", lRead}, {"write", lWrite}, {nullptr, nullptr},
};

}  // namespace

extern "C" __attribute__((visibility("default"))) int lib_open(lua_State* L)
{
    luaL_register(L, "image", kFunctions);
    lua_pop(L, 1);
    return 0;
}
