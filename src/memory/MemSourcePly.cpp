#include "memory/MemSourcePly.h"

#include <cstring>

#include <lua.hpp>

namespace {

// A bounded copy of a name field of the record, which need not be ended.
std::string name(const char* field, size_t room)
{
    return std::string(field, strnlen(field, room));
}

int pushLoad(lua_State* L, void* context)
{
    const auto* c = static_cast<const std::pair<const MemSourcePly*, const MemSourcePly::LoadInfo*>*>(context);
    const MemSourcePly::LoadInfo& info = *c->second;
    lua_createtable(L, 0, 5);
    lua_pushstring(L, c->first->file);
    lua_setfield(L, -2, "file");
    lua_pushnumber(L, info.stride);
    lua_setfield(L, -2, "stride");
    lua_pushstring(L, name(info.element, sizeof info.element).c_str());
    lua_setfield(L, -2, "element");
    lua_pushnumber(L, info.type);
    lua_setfield(L, -2, "type");
    const int count = info.count < 0 ? 0 : info.count > 10 ? 10 : info.count;
    lua_createtable(L, count, 0);
    for (int i = 0; i < count; ++i) {
        lua_pushstring(L, name(info.property[i], sizeof info.property[i]).c_str());
        lua_rawseti(L, -2, i + 1);
    }
    lua_setfield(L, -2, "property");
    return 1;
}

// Raw look-ups: no metamethod of a plug-in's table runs here.
void rawField(lua_State* L, int table, const char* key)
{
    lua_pushstring(L, key);
    lua_rawget(L, table < 0 ? table - 1 : table);
}

std::string stringField(lua_State* L, int table, const char* key)
{
    rawField(L, table, key);
    std::string s = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : "";
    lua_pop(L, 1);
    return s;
}

// Walks the result into a local list first, so that a raise in between leaves
// the source's list as it was.
bool takeElements(lua_State* L, void* context)
{
    if (!lua_istable(L, -1)) return false;
    auto* out = static_cast<std::vector<MemSourcePly::Element>*>(context);
    out->clear();
    const int t = lua_gettop(L);
    lua_pushnil(L);
    while (lua_next(L, t) != 0) {
        // Only string keys name elements; lua_tostring would change a number key.
        if (lua_type(L, -2) == LUA_TSTRING && lua_istable(L, -1)) {
            MemSourcePly::Element e;
            e.name = lua_tostring(L, -2);
            rawField(L, -1, "count");
            e.count = lua_isnumber(L, -1) ? static_cast<int>(lua_tointeger(L, -1)) : 0;
            lua_pop(L, 1);
            rawField(L, -1, "property");
            if (lua_istable(L, -1)) {
                const int props = lua_gettop(L);
                for (int i = 1;; ++i) {
                    lua_rawgeti(L, props, i);
                    if (!lua_istable(L, -1)) {
                        lua_pop(L, 1);
                        break;
                    }
                    const int p = lua_gettop(L);
                    e.properties.push_back({stringField(L, p, "name"), stringField(L, p, "type"),
                                            stringField(L, p, "value_type")});
                    lua_pop(L, 1);
                }
            }
            lua_pop(L, 1);
            out->push_back(std::move(e));
        }
        lua_pop(L, 1);
    }
    return true;
}

}  // namespace

bool MemSourcePly::getFileInfo(const char* path)
{
    std::vector<Element> found;
    Call c{"ply", "getFileInfo"};
    c.text = path;
    c.takeResult = takeElements;
    c.context = &found;
    if (!call(c)) return false;
    elements = std::move(found);
    return true;
}

bool MemSourcePly::load(const LoadInfo& info)
{
    std::pair<const MemSourcePly*, const LoadInfo*> args{this, &info};
    Call c{"ply", "read"};
    c.memory = memory;
    c.passMemory = true;
    c.pushExtra = pushLoad;
    c.context = &args;
    return call(c);
}
