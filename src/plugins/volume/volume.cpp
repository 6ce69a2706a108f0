// The file plug-in `volume`: raw volumes into 3D memory objects.
//
// A volume is two files with one stem: "<stem>.vol", a short text that
// describes it, and "<stem>.raw", the samples. The text holds one setting a
// line ('#' starts a comment):
//
//   size 64 64 32        width, height and depth in samples (required)
//   channels 1           1, 2 or 4 samples per voxel (default 1)
//   type uint8           uint8, uint16 or float (default uint8)
//
// The raw file holds width * height * depth voxels of `channels` samples,
// little-endian, x fastest, then y, then z, and nothing else: its size must
// be exactly that. One channel is a luminance, two a luminance and alpha,
// four RGBA.
//
//   volume.getFileExt()           -> {".vol"}
//   volume.getFileInfo(path)      -> {image_width=, image_height=, image_depth=,
//                                     image_channel_order=, image_channel_data_type=} or nil
//   volume.read(memory, stem)     fills the object from "<stem>.vol" and "<stem>.raw"
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "plugins/common/PluginMemory.h"

namespace {

// Larger volumes are refused before anything is allocated.
constexpr uint64_t kMaxBytes = 1ull << 30;

struct Header {
    uint32_t width = 0, height = 0, depth = 0;
    int channels = 1;
    plugin::Pixels::Kind kind = plugin::Pixels::U8;
    int sampleBytes() const { return kind == plugin::Pixels::U8 ? 1 : kind == plugin::Pixels::U16 ? 2 : 4; }
    uint64_t bytes() const
    {
        return static_cast<uint64_t>(width) * height * depth * static_cast<uint64_t>(channels) * sampleBytes();
    }
};

bool parseHeader(const char* path, Header& h, plugin::Error& err)
{
    if (!plugin::regularFile(path, "volume", err)) return false;
    FILE* f = std::fopen(path, "rb");
    if (!f) {
        err.format("unable to open volume %s: %s", path, std::strerror(errno));
        return false;
    }
    char line[256];
    int number = 0;
    bool sized = false, ok = true;
    while (ok && std::fgets(line, sizeof line, f)) {
        ++number;
        if (char* hash = std::strchr(line, '#')) *hash = 0;
        char key[32] = {}, word[32] = {};
        long long a = 0, b = 0, c = 0;
        char extra = 0;
        if (std::sscanf(line, " %31s", key) != 1) continue;
        if (std::strcmp(key, "size") == 0) {
            if (std::sscanf(line, " size %lld %lld %lld %c", &a, &b, &c, &extra) != 3 || a <= 0 || b <= 0 || c <= 0 ||
                a > 65536 || b > 65536 || c > 65536) {
                err.format("%s, line %d: size needs three positive numbers up to 65536", path, number);
                ok = false;
            }
            h.width = static_cast<uint32_t>(a), h.height = static_cast<uint32_t>(b), h.depth = static_cast<uint32_t>(c);
            sized = true;
        } else if (std::strcmp(key, "channels") == 0) {
            if (std::sscanf(line, " channels %lld %c", &a, &extra) != 1 || (a != 1 && a != 2 && a != 4)) {
                err.format("%s, line %d: channels must be 1, 2 or 4", path, number);
                ok = false;
            }
            h.channels = static_cast<int>(a);
        } else if (std::strcmp(key, "type") == 0) {
            if (std::sscanf(line, " type %31s %c", word, &extra) != 1) word[0] = 0;
            if (std::strcmp(word, "uint8") == 0) h.kind = plugin::Pixels::U8;
            else if (std::strcmp(word, "uint16") == 0) h.kind = plugin::Pixels::U16;
            else if (std::strcmp(word, "float") == 0) h.kind = plugin::Pixels::F32;
            else {
                err.format("%s, line %d: type must be uint8, uint16 or float", path, number);
                ok = false;
            }
        } else {
            err.format("%s, line %d: unknown setting '%s'", path, number, key);
            ok = false;
        }
    }
    std::fclose(f);
    if (ok && !sized) {
        err.format("%s: no size given", path);
        ok = false;
    }
    if (ok && h.bytes() > kMaxBytes) {
        err.format("%s: %llu bytes of samples is too large", path, static_cast<unsigned long long>(h.bytes()));
        ok = false;
    }
    return ok;
}

int lGetFileExt(lua_State* L)
{
    return plugin::pushExtensions(L, {".vol"});
}


int lGetFileInfo(lua_State* L)
{
    const char* path = luaL_checkstring(L, 1);
    Header h;
    plugin::Error err;
    if (!parseHeader(path, h, err)) {
        lua_pushnil(L);
        lua_pushstring(L, err.text);
        return 2;
    }
    lua_createtable(L, 0, 5);
    plugin::setNumber(L, "image_width", h.width);
    plugin::setNumber(L, "image_height", h.height);
    plugin::setNumber(L, "image_depth", h.depth);
    plugin::setNumber(L, "image_channel_order", h.channels == 1 ? CL_LUMINANCE : h.channels == 2 ? CL_RA : CL_RGBA);
    plugin::setNumber(L, "image_channel_data_type",
           h.kind == plugin::Pixels::U8 ? CL_UNORM_INT8 : h.kind == plugin::Pixels::U16 ? CL_UNORM_INT16 : CL_FLOAT);
    return 1;
}

bool readInto(lua_State* L, const std::string& stem, plugin::Error& err)
{
    VelmoraMemView v{};
    plugin::Target target;
    if (!plugin::view(L, 1, v, err) || !plugin::resolveTarget(v, target, err)) return false;
    Header h;
    const std::string headerPath = stem + ".vol", rawPath = stem + ".raw";
    if (!parseHeader(headerPath.c_str(), h, err)) return false;
    struct stat st{};
    if (stat(rawPath.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
        err.format("unable to open volume data %s", rawPath.c_str());
        return false;
    }
    if (static_cast<uint64_t>(st.st_size) != h.bytes()) {
        err.format("volume data %s has %llu bytes, %s says %llu", rawPath.c_str(),
                   static_cast<unsigned long long>(st.st_size), headerPath.c_str(),
                   static_cast<unsigned long long>(h.bytes()));
        return false;
    }
    std::vector<unsigned char> samples(static_cast<size_t>(h.bytes()));
    FILE* f = std::fopen(rawPath.c_str(), "rb");
    const bool read = f && std::fread(samples.data(), 1, samples.size(), f) == samples.size();
    if (f) std::fclose(f);
    if (!read) {
        err.format("unable to read volume data %s", rawPath.c_str());
        return false;
    }
    // Samples are little-endian in the file, as in memory on the hosts served.
    plugin::Pixels px;
    px.data = samples.data();
    px.width = h.width, px.height = h.height, px.depth = h.depth;
    px.channels = h.channels;
    px.kind = h.kind;
    bool mapped = false;
    if (!plugin::mapForWrite(L, 1, v, mapped, err)) return false;
    plugin::writePixels(px, v, target);
    return plugin::unmapAfter(L, 1, mapped, err);
}

int lRead(lua_State* L)
{
    const char* stem = luaL_checkstring(L, 2);
    plugin::Error err;
    bool ok = false;
    try {
        ok = readInto(L, stem, err);
    } catch (const std::exception& e) {
        err.format("unable to read volume %s: %s", stem, e.what());
    }
    if (!ok) return luaL_error(L, "%s", err.text);
    return 0;
}

const luaL_Reg kFunctions[] = {
    {"getFileExt", lGetFileExt}, {"getFileInfo", lGetFileInfo}, {"read", lRead}, {nullptr, nullptr},
};

}  // namespace

extern "C" __attribute__((visibility("default"))) int lib_open(lua_State* L)
{
    luaL_register(L, "volume", kFunctions);
    lua_pop(L, 1);
    return 0;
}
