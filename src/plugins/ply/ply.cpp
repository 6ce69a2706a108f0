// The file plug-in `ply`: columns of PLY models into 1D memory objects.
//
//   ply.getFileExt()              -> {".ply"}
//   ply.getFileInfo(path)         -> {<element> = {count=, property={{name=, type=, value_type=}, ...}}, ...}
//                                    or nil and the reason
//   ply.read(memory, load)        load = {file=, stride=, element=, type=, property={names}}
//
// A property's `type` is its type as the file spells it, or "list" for a list,
// whose `value_type` is then the type of its entries; a scalar's `value_type`
// is its type again.
//
// ply.read writes, for each item of the element, the chosen properties in the
// order given, each converted to the scalar of the element type code `type`
// (the component type of a vector code) and laid one after the other from
// the item's record start, `stride` bytes apart; a list gives all its entries
// in a row. A `stride` of 0 packs the records without gaps (each as long as
// its values), which is what index lists of mixed polygons need. What would
// lie beyond the stride, or beyond the object, is left out.
#include <cerrno>
#include <cmath>
#include <new>
#include <string>
#include <vector>

#include "plugins/common/PluginMemory.h"
#include "plugins/ply/PlyReader.h"

namespace {

int lGetFileExt(lua_State* L)
{
    return plugin::pushExtensions(L, {".ply"});
}

bool readHeader(const char* path, ply::Header& header, plugin::Error& err)
{
    if (!plugin::regularFile(path, "model", err)) return false;
    ply::FileInput in(path);
    if (!in.isOpen()) {
        err.format("unable to open %s: %s", path, std::strerror(errno));
        return false;
    }
    ply::Reader reader(in);
    std::string why;
    if (!reader.readHeader(header, why)) {
        err.format("%s: %s", path, why.c_str());
        return false;
    }
    return true;
}

bool fileInfo(const char* path, ply::Header& header, plugin::Error& err)
{
    try {
        return readHeader(path, header, err);
    } catch (const std::exception& e) {
        err.format("%s: %s", path, e.what());
        return false;
    }
}

int lGetFileInfo(lua_State* L)
{
    const char* path = luaL_checkstring(L, 1);
    // Held by a plain pointer: only running out of memory makes the Lua calls
    // below raise, and that would lose nothing but this block.
    auto* header = new (std::nothrow) ply::Header;
    plugin::Error err;
    if (!header || !fileInfo(path, *header, err)) {
        delete header;
        lua_pushnil(L);
        lua_pushstring(L, err.set() ? err.text : "out of memory");
        return 2;
    }
    lua_newtable(L);
    for (const ply::Element& e : header->elements) {
        lua_newtable(L);
        lua_pushnumber(L, static_cast<lua_Number>(e.count));
        lua_setfield(L, -2, "count");
        lua_createtable(L, static_cast<int>(e.properties.size()), 0);
        int i = 1;
        for (const ply::Property& p : e.properties) {
            lua_createtable(L, 0, 3);
            lua_pushstring(L, p.name.c_str());
            lua_setfield(L, -2, "name");
            lua_pushstring(L, p.list ? "list" : p.valueTypeName.c_str());
            lua_setfield(L, -2, "type");
            lua_pushstring(L, p.valueTypeName.c_str());
            lua_setfield(L, -2, "value_type");
            lua_rawseti(L, -2, i++);
        }
        lua_setfield(L, -2, "property");
        lua_setfield(L, -2, e.name.c_str());
    }
    delete header;
    return 1;
}

// ---------------------------------------------------------------- read

struct Load {
    std::string file, element;
    std::vector<std::string> properties;
    int64_t stride = 0;
    uint32_t type = 0;
};

// The scalar type code (0 .. 10) of an element type code.
bool scalarOf(uint32_t code, uint32_t& scalar, uint32_t& bytes)
{
    static const uint32_t kSize[] = {1, 1, 2, 2, 4, 4, 8, 8, 2, 4, 8};
    if (code <= 10) scalar = code;
    else if (code <= 20) scalar = code == 19 ? 9 : code == 20 ? 10 : code - 11;
    else if (code <= 30) scalar = code == 29 ? 9 : code == 30 ? 10 : code - 21;
    else return false;
    bytes = kSize[scalar];
    return true;
}

template <class T>
void storeInt(unsigned char* p, double v, double lo, double hi)
{
    if (v != v) v = 0;
    v = v < lo ? lo : v > hi ? hi : v;
    const T t = static_cast<T>(v);
    std::memcpy(p, &t, sizeof t);
}

void store(unsigned char* p, uint32_t scalar, double v)
{
    switch (scalar) {
    case 0: storeInt<int8_t>(p, v, -128, 127); break;
    case 1: storeInt<uint8_t>(p, v, 0, 255); break;
    case 2: storeInt<int16_t>(p, v, -32768, 32767); break;
    case 3: storeInt<uint16_t>(p, v, 0, 65535); break;
    case 4: storeInt<int32_t>(p, v, -2147483648.0, 2147483647.0); break;
    case 5: storeInt<uint32_t>(p, v, 0, 4294967295.0); break;
    case 6: storeInt<int64_t>(p, v, -9223372036854775808.0, 9223372036854774784.0); break;
    case 7: storeInt<uint64_t>(p, v, 0, 18446744073709549568.0); break;
    case 8: {
        const uint16_t h = plugin::toHalf(static_cast<float>(v));
        std::memcpy(p, &h, 2);
        break;
    }
    case 9: {
        const float f = static_cast<float>(v);
        std::memcpy(p, &f, 4);
        break;
    }
    default: std::memcpy(p, &v, 8); break;
    }
}

bool readInto(lua_State* L, const Load& load, plugin::Error& err)
{
    uint32_t scalar = 0, bytes = 0;
    if (!scalarOf(load.type, scalar, bytes)) {
        err.format("unknown element type %u", load.type);
        return false;
    }
    if (load.stride < 0) {
        err.format("negative stride %lld", static_cast<long long>(load.stride));
        return false;
    }
    if (!plugin::regularFile(load.file.c_str(), "model", err)) return false;
    ply::FileInput in(load.file.c_str());
    if (!in.isOpen()) {
        err.format("unable to open %s: %s", load.file.c_str(), std::strerror(errno));
        return false;
    }
    ply::Reader reader(in);
    ply::Header header;
    std::string why;
    if (!reader.readHeader(header, why)) {
        err.format("%s: %s", load.file.c_str(), why.c_str());
        return false;
    }
    const int element = header.find(load.element);
    if (element < 0) {
        err.format("%s: no element '%s'", load.file.c_str(), load.element.c_str());
        return false;
    }
    // For each property of the element: its place among the chosen ones, or -1.
    const ply::Element& el = header.elements[static_cast<size_t>(element)];
    std::vector<int> slot(el.properties.size(), -1);
    for (size_t k = 0; k < load.properties.size(); ++k) {
        size_t p = 0;
        while (p < el.properties.size() && el.properties[p].name != load.properties[k]) ++p;
        if (p == el.properties.size()) {
            err.format("%s: element '%s' has no property '%s'", load.file.c_str(), load.element.c_str(),
                       load.properties[k].c_str());
            return false;
        }
        if (slot[p] < 0) slot[p] = static_cast<int>(k);
    }
    if (load.properties.empty()) return true;

    VelmoraMemView v{};
    bool mapped = false;
    if (!plugin::mapForWrite(L, 1, v, mapped, err)) return false;
    auto* out = static_cast<unsigned char*>(v.data);
    const uint64_t capacity = v.byteSize, stride = static_cast<uint64_t>(load.stride);
    // The values of one item go one after the other from its record start, in
    // the order the chosen properties were named.
    uint64_t currentItem = UINT64_MAX, packedEnd = 0, recordStart = 0;
    std::vector<std::vector<double>> values(load.properties.size());
    auto flush = [&]() -> bool {
        if (currentItem == UINT64_MAX) return true;
        uint64_t at = recordStart;
        const uint64_t limit = stride ? recordStart + stride : capacity;
        for (auto& list : values) {
            for (double x : list) {
                if (at + bytes > limit || at + bytes > capacity) break;
                store(out + at, scalar, x);
                at += bytes;
            }
            list.clear();
        }
        packedEnd = at;
        return (stride ? recordStart + stride : packedEnd) < capacity;
    };
    bool ok = reader.readElement(
        header, static_cast<size_t>(element),
        [&](uint64_t item, size_t property, uint32_t, double value) {
            if (item != currentItem) {
                if (!flush()) return false;
                currentItem = item;
                recordStart = stride ? item * stride : packedEnd;
                if (recordStart >= capacity) return false;
            }
            if (slot[property] >= 0) {
                auto& list = values[static_cast<size_t>(slot[property])];
                // Entries that can never fit are not kept.
                if (list.size() * bytes < (stride ? stride : capacity)) list.push_back(value);
            }
            return true;
        },
        why);
    if (ok) flush();
    if (!ok) err.format("%s: %s", load.file.c_str(), why.c_str());
    plugin::Error unmapErr;
    if (!plugin::unmapAfter(L, 1, mapped, unmapErr) && ok) {
        err = unmapErr;
        ok = false;
    }
    return ok;
}

// The load table's fields; raises for a missing or mistyped one before any
// C++ object exists.
void checkLoad(lua_State* L)
{
    luaL_checktype(L, 2, LUA_TTABLE);
    lua_getfield(L, 2, "file");
    if (!lua_isstring(L, -1)) luaL_error(L, "ply.read: load.file must be a string");
    lua_getfield(L, 2, "element");
    if (!lua_isstring(L, -1)) luaL_error(L, "ply.read: load.element must be a string");
    lua_getfield(L, 2, "stride");
    if (!lua_isnumber(L, -1)) luaL_error(L, "ply.read: load.stride must be a number");
    lua_getfield(L, 2, "type");
    if (!lua_isnumber(L, -1)) luaL_error(L, "ply.read: load.type must be a number");
    lua_getfield(L, 2, "property");
    if (!lua_istable(L, -1)) luaL_error(L, "ply.read: load.property must be a table of names");
    for (int i = 1;; ++i) {
        lua_rawgeti(L, -1, i);
        const bool end = lua_isnil(L, -1);
        if (!end && !lua_isstring(L, -1)) luaL_error(L, "ply.read: load.property[%d] must be a string", i);
        lua_pop(L, 1);
        if (end || i > 1000) break;
    }
    lua_pop(L, 5);
}

bool fillLoad(lua_State* L, Load& load)
{
    lua_getfield(L, 2, "file");
    load.file = lua_tostring(L, -1);
    lua_getfield(L, 2, "element");
    load.element = lua_tostring(L, -1);
    lua_getfield(L, 2, "stride");
    load.stride = static_cast<int64_t>(lua_tonumber(L, -1));
    lua_getfield(L, 2, "type");
    const lua_Number type = lua_tonumber(L, -1);
    load.type = type >= 0 && type <= 30 ? static_cast<uint32_t>(type) : 31;
    lua_getfield(L, 2, "property");
    for (int i = 1; i <= 1000; ++i) {
        lua_rawgeti(L, -1, i);
        if (lua_isnil(L, -1)) {
            lua_pop(L, 1);
            break;
        }
        load.properties.emplace_back(lua_tostring(L, -1));
        lua_pop(L, 1);
    }
    lua_pop(L, 5);
    return true;
}

bool readLoad(lua_State* L, plugin::Error& err)
{
    try {
        Load load;
        fillLoad(L, load);
        return readInto(L, load, err);
    } catch (const std::exception& e) {
        err.format("ply.read: %s", e.what());
        return false;
    }
}

int lRead(lua_State* L)
{
    checkLoad(L);
    plugin::Error err;
    if (!readLoad(L, err)) return luaL_error(L, "%s", err.text);
    return 0;
}

const luaL_Reg kFunctions[] = {
    {"getFileExt", lGetFileExt}, {"getFileInfo", lGetFileInfo}, {"read", lRead}, {nullptr, nullptr},
};

}  // namespace

extern "C" __attribute__((visibility("default"))) int lib_open(lua_State* L)
{
    luaL_register(L, "ply", kFunctions);
    lua_pop(L, 1);
    return 0;
}
