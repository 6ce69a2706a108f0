#include "memory/MemModules.h"

#include <cmath>
#include <cstring>

#include <lua.hpp>

#include "compute/OclLua.h"
#include "memory/MemObjects.h"
#include "runtime/LuaExt.h"

// Every function here is a lua_CFunction: its errors leave by longjmp, so
// nothing in them owns memory or has a destructor to run.

namespace {

// ---------------------------------------------------------------- shared checks

// The live memory object at `idx`, or null.
oclMem* toMem(lua_State* L, int idx)
{
    return OclLua::toMem(L, idx);
}

oclMem* checkMem(lua_State* L, int idx)
{
    oclMem* m = toMem(L, idx);
    if (!m) luaL_typerror(L, idx, "memory object");
    return m;
}

void checkMapped(lua_State* L, oclMem* m)
{
    if (m->mapFlags == 0) luaL_error(L, "(%s): buffer not mapped", m->name());
}

// ---------------------------------------------------------------- mem

int memSet(lua_State* L)
{
    oclMem* m = checkMem(L, 1);
    checkMapped(L, m);
    return memProxyOf(L, m)->set(L);
}

int memGet(lua_State* L)
{
    oclMem* m = checkMem(L, 1);
    checkMapped(L, m);
    return memProxyOf(L, m)->get(L);
}

int memPrint(lua_State* L)
{
    oclMem* m = checkMem(L, 1);
    checkMapped(L, m);
    return memProxyOf(L, m)->print(L);
}

int initProtected(lua_State* L)
{
    auto* object = static_cast<oclObject*>(velmora_typedpointer(L, 1, LuaTag::kPointer));
    return static_cast<oclMem*>(object)->proxy->init(L);
}

// The one element operation that works unmapped: it maps for writing and
// unmaps again, also when the values are refused.
int memInit(lua_State* L)
{
    oclMem* m = checkMem(L, 1);
    MemProxy* proxy = memProxyOf(L, m);
    if (m->mapFlags != 0) return proxy->init(L);
    proxy->map(L, CL_MAP_WRITE);
    const int n = lua_gettop(L);
    lua_pushcfunction(L, initProtected);
    lua_insert(L, 1);
    const int status = lua_pcall(L, n, 0, 0);
    if (m->mapFlags != 0) m->unmap(0);
    if (status != 0) return lua_error(L);
    return 0;
}

int memDim(lua_State* L)
{
    return memProxyOf(L, checkMem(L, 1))->dim(L);
}

int memBytecopy(lua_State* L)
{
    for (int i : {1, 2, 4, 6})
        if (!lua_isnumber(L, i)) luaL_typerror(L, i, "number");
    oclMem* src = checkMem(L, 3);
    oclMem* dst = checkMem(L, 5);
    checkMapped(L, src);
    checkMapped(L, dst);
    const lua_Number count = lua_tonumber(L, 1), bytes = lua_tonumber(L, 2);
    const lua_Number srcStride = lua_tonumber(L, 4), dstStride = lua_tonumber(L, 6);
    if (count <= 0 || bytes <= 0) return 0;
    // A copy must stay inside both objects: refused whole, never cut.
    const lua_Number srcEnd = (count - 1) * srcStride + bytes, dstEnd = (count - 1) * dstStride + bytes;
    if (srcStride < 0 || dstStride < 0 || srcEnd > static_cast<lua_Number>(memProxyOf(L, src)->byteSize()))
        return luaL_error(L, "(%s): bytecopy out of range", src->name());
    if (dstEnd > static_cast<lua_Number>(memProxyOf(L, dst)->byteSize()))
        return luaL_error(L, "(%s): bytecopy out of range", dst->name());
    const auto n = static_cast<size_t>(count), b = static_cast<size_t>(bytes);
    const auto ss = static_cast<size_t>(srcStride), ds = static_cast<size_t>(dstStride);
    auto* s = static_cast<const char*>(src->data);
    auto* d = static_cast<char*>(dst->data);
    for (size_t i = 0; i < n; ++i) std::memmove(d + i * ds, s + i * ss, b);
    return 0;
}

int memSize(lua_State* L)
{
    lua_pushnumber(L, static_cast<lua_Number>(memProxyOf(L, checkMem(L, 1))->byteSize()));
    return 1;
}

int memElementsize(lua_State* L)
{
    lua_pushnumber(L, clTypeSize(memProxyOf(L, checkMem(L, 1))->typeCode()));
    return 1;
}

int memMap(lua_State* L)
{
    oclMem* m = checkMem(L, 1);
    if (!lua_isnumber(L, 2)) return luaL_argerror(L, 2, "mem.READ or mem.WRITE expected");
    return memProxyOf(L, m)->map(L, static_cast<cl_map_flags>(lua_tonumber(L, 2)));
}

int memUnmap(lua_State* L)
{
    return memProxyOf(L, checkMem(L, 1))->unmap(L);
}

int memRead(lua_State* L)
{
    return memProxyOf(L, checkMem(L, 1))->read(L);
}

int memWrite(lua_State* L)
{
    return memProxyOf(L, checkMem(L, 1))->write(L);
}

int memPack(lua_State* L)
{
    oclMem* m = checkMem(L, 1);
    auto* pbo = dynamic_cast<MemPboProxy*>(memProxyOf(L, m));
    if (!pbo) return luaL_error(L, "pack is not a valid operation for buffer ", m->name());
    return pbo->pack(L);
}

int memUnpack(lua_State* L)
{
    oclMem* m = checkMem(L, 1);
    auto* pbo = dynamic_cast<MemPboProxy*>(memProxyOf(L, m));
    if (!pbo) return luaL_error(L, "unpack is not a valid operation for buffer ", m->name());
    return pbo->unpack(L);
}

int memSizeof(lua_State* L)
{
    const lua_Number code = lua_isnumber(L, 1) ? lua_tonumber(L, 1) : -1;
    if (code < 0 || code >= MemTypes::kCount || code != static_cast<int>(code))
        return luaL_typerror(L, 1, "mem.CL_.. data type");
    lua_pushnumber(L, clTypeSize(static_cast<uint32_t>(code)));
    return 1;
}

const luaL_Reg kMem[] = {
    {"set", memSet},       {"get", memGet},         {"print", memPrint},
    {"init", memInit},     {"dim", memDim},         {"bytecopy", memBytecopy},
    {"size", memSize},     {"elementsize", memElementsize}, {"map", memMap},
    {"unmap", memUnmap},   {"read", memRead},       {"write", memWrite},
    {"pack", memPack},     {"unpack", memUnpack},   {"sizeof", memSizeof},
    {nullptr, nullptr},
};

// ---------------------------------------------------------------- struct types

constexpr int kStructSlots = 100;
constexpr size_t kStructName = 200;

struct StructEntry {
    int32_t key = 0;
    char name[kStructName] = {};
};

StructEntry s_entries[kStructSlots];
StructType s_types[kStructSlots];
uint32_t s_serial = 0;

// The cursor of struct.map: the type, and the buffer and offset of the
// record. The record's address is taken from the buffer at each access, so
// an unmap in between is noticed instead of written through.
StructType* s_current = nullptr;
oclBuffer* s_cursorBuffer = nullptr;
size_t s_cursorOffset = 0;

int32_t keyOf(const char* name)
{
    int32_t k = 0;
    for (const auto* p = reinterpret_cast<const signed char*>(name); *p; ++p) k += *p;
    return k;
}

int slotOf(int32_t key)
{
    return ((key % kStructSlots) + kStructSlots) % kStructSlots;
}

int findSlot(const char* name)
{
    const int start = slotOf(keyOf(name));
    for (int i = 0; i < kStructSlots; ++i) {
        const int s = (start + i) % kStructSlots;
        if (s_entries[s].name[0] && std::strcmp(s_entries[s].name, name) == 0) return s;
    }
    return -1;
}

void removeType(int slot)
{
    s_entries[slot].name[0] = '\0';
    s_types[slot] = StructType{};
    s_types[slot].serial = ++s_serial;  // whatever still points here is stale
}

// A new empty type; null when the table is full.
StructType* insertType(const char* name)
{
    const int existing = findSlot(name);
    if (existing >= 0) removeType(existing);
    const int32_t key = keyOf(name);
    const int start = slotOf(key);
    for (int i = 0; i < kStructSlots; ++i) {
        const int s = (start + i) % kStructSlots;
        if (s_entries[s].name[0]) continue;
        s_entries[s].key = key;
        std::strncpy(s_entries[s].name, name, kStructName - 1);
        s_types[s] = StructType{};
        s_types[s].serial = ++s_serial;
        return &s_types[s];
    }
    return nullptr;
}

uint32_t roundUp(uint32_t v, uint32_t to)
{
    return to ? (v + to - 1) / to * to : v;
}

// Appends a field under the layout rule: each field at the end of the one
// before, rounded up to its own size; the record rounded up to 16.
bool addField(StructType* t, const char* name, uint32_t type)
{
    if (t->fieldCount >= sizeof t->fields / sizeof t->fields[0]) return false;
    const uint32_t size = clTypeSize(type);
    uint32_t offset = 0;
    if (t->fieldCount) {
        const StructField& last = t->fields[t->fieldCount - 1];
        offset = roundUp(last.offset + clTypeSize(last.type), size);
    }
    StructField& f = t->fields[t->fieldCount++];
    std::strncpy(f.name, name, sizeof f.name - 1);
    f.name[sizeof f.name - 1] = '\0';
    f.type = type;
    f.offset = offset;
    t->size = static_cast<int32_t>(roundUp(offset + size, 16));
    return true;
}

// ---------------------------------------------------------------- struct

oclBuffer* checkBuffer(lua_State* L, int idx)
{
    auto* b = dynamic_cast<oclBuffer*>(OclLua::to(L, idx));
    if (!b) luaL_typerror(L, idx, "1D buffer");
    return b;
}

const char* checkName(lua_State* L, int idx)
{
    if (lua_type(L, idx) != LUA_TSTRING) luaL_typerror(L, idx, "string");
    return lua_tostring(L, idx);
}

int structCreate(lua_State* L)
{
    const char* name = checkName(L, 1);
    if (std::strlen(name) >= kStructName) return luaL_error(L, "struct name too long: %s", name);
    s_current = insertType(name);
    if (!s_current) return luaL_error(L, "too many struct types, %s not declared", name);
    return 0;
}

int structField(lua_State* L)
{
    if (!s_current) return luaL_error(L, "must call struct.create first");
    const char* name = checkName(L, 1);
    if (!lua_isnumber(L, 2)) return luaL_typerror(L, 2, "number");
    const lua_Number type = lua_tonumber(L, 2);
    if (type < 0 || type > 30 || type != static_cast<int>(type)) return luaL_typerror(L, 2, "cltype");
    if (!addField(s_current, name, static_cast<uint32_t>(type))) return luaL_error(L, "too many fields: %s", name);
    return 0;
}

int structInterpret(lua_State* L)
{
    oclBuffer* b = checkBuffer(L, 1);
    const char* name = checkName(L, 2);
    const int slot = findSlot(name);
    if (slot < 0) return luaL_error(L, "struct not defined: %s", name);
    if (!b->proxy) return luaL_error(L, "Proxy missing in buffer object %s ", b->name());
    b->proxy->structType = &s_types[slot];
    b->proxy->structSerial = s_types[slot].serial;
    return 0;
}

int structMap(lua_State* L)
{
    s_current = nullptr;
    s_cursorBuffer = nullptr;
    oclBuffer* b = checkBuffer(L, 1);
    if (b->mapFlags == 0) return luaL_error(L, "buffer not mapped (%s) ", b->name());
    MemProxy* p = b->proxy;
    if (!p) return luaL_error(L, "Proxy missing in buffer object (%s) ", b->name());
    if (!p->structType || p->structType->serial != p->structSerial)
        return luaL_error(L, "no structure type associated with buffer (%s) ", b->name());
    s_current = p->structType;
    const lua_Number index = lua_isnumber(L, 2) ? lua_tonumber(L, 2) : 0;
    // Truncated toward zero as an index; a number past any buffer stays past it.
    const lua_Number offset = static_cast<lua_Number>(s_current->size) * std::trunc(index);
    if (!(offset >= 0) || offset > static_cast<lua_Number>(b->dim(0)))
        return luaL_error(L, "memory address out of range for buffer ", b->name());
    p->recordOffset = static_cast<uint32_t>(offset);
    s_cursorBuffer = b;
    s_cursorOffset = p->recordOffset;
    return 0;
}

int structUnmap(lua_State* L)
{
    if (!s_current) return luaL_error(L, "buffer not mapped");
    s_current = nullptr;
    s_cursorBuffer = nullptr;
    return 0;
}

// The field's address in the mapped record, after every check.
char* fieldAddress(lua_State* L, const StructField*& field)
{
    oclBuffer* b = s_cursorBuffer;
    if (!s_current || !b || !oclObject::isLive(b) || b->mapFlags == 0 || !b->data) {
        luaL_error(L, "struct not mapped");
        return nullptr;
    }
    const char* name = checkName(L, 1);
    field = nullptr;
    for (uint32_t i = 0; i < s_current->fieldCount; ++i)
        if (std::strcmp(s_current->fields[i].name, name) == 0) {
            field = &s_current->fields[i];
            break;  // the first field of that name
        }
    if (!field) {
        luaL_error(L, "field not found: %s", name);
        return nullptr;
    }
    // The record one past the last passes struct.map; its fields do not.
    if (s_cursorOffset + field->offset + clTypeSize(field->type) > b->dim(0)) {
        luaL_error(L, "memory address out of range for buffer ");
        return nullptr;
    }
    return static_cast<char*>(b->data) + s_cursorOffset + field->offset;
}

template <class T>
void storeComponents(lua_State* L, char* at, int n)
{
    for (int i = 0; i < n; ++i) {
        const int slot = 2 + i;
        T v;
        if (lua_type(L, slot) == LUA_TNUMBER)
            v = MemProxyDetail::fromNumber<T>(lua_tonumber(L, slot));
        else if (lua_type(L, slot) == LUA_TBOOLEAN)
            v = static_cast<T>(lua_toboolean(L, slot) ? 1 : 0);
        else {
            luaL_typerror(L, slot, "number");
            return;
        }
        std::memcpy(at + i * sizeof(T), &v, sizeof(T));
    }
}

template <class T>
int pushComponents(lua_State* L, const char* at, int n)
{
    for (int i = 0; i < n; ++i) {
        T v;
        std::memcpy(&v, at + i * sizeof(T), sizeof(T));
        lua_pushnumber(L, static_cast<lua_Number>(v));
    }
    return n;
}

// Calls F<T>(…) with the scalar type behind a type code.
template <class R, class Op>
R byScalar(uint32_t code, Op op)
{
    using namespace MemTypes;
    static const uint32_t scalarOf[kCount] = {
        Char, UChar, Short, UShort, Int, UInt, Long, ULong, Half, Float, Double,   // scalars
        Char, UChar, Short, UShort, Int, UInt, Long, ULong, Float, Double,         // width 4
        Char, UChar, Short, UShort, Int, UInt, Long, ULong, Float, Double,         // width 2
    };
    switch (scalarOf[code]) {
    case Char: return op(cl_char{});
    case UChar: return op(cl_uchar{});
    case Short: return op(cl_short{});
    case UShort: case Half: return op(cl_ushort{});
    case Int: return op(cl_int{});
    case UInt: return op(cl_uint{});
    case Long: return op(cl_long{});
    case ULong: return op(cl_ulong{});
    case Float: return op(cl_float{});
    default: return op(cl_double{});
    }
}

int structSet(lua_State* L)
{
    const StructField* f = nullptr;
    char* at = fieldAddress(L, f);
    const int n = MemTypes::width(f->type);
    byScalar<int>(f->type, [&](auto tag) {
        storeComponents<decltype(tag)>(L, at, n);
        return 0;
    });
    return 0;
}

int structGet(lua_State* L)
{
    const StructField* f = nullptr;
    const char* at = fieldAddress(L, f);
    const int n = MemTypes::width(f->type);
    return byScalar<int>(f->type, [&](auto tag) { return pushComponents<decltype(tag)>(L, at, n); });
}

int structSize(lua_State* L)
{
    const char* name = checkName(L, 1);
    const int slot = findSlot(name);
    if (slot < 0) return luaL_error(L, "struct not found: %s", name);
    lua_pushnumber(L, s_types[slot].size);
    return 1;
}

const luaL_Reg kStruct[] = {
    {"create", structCreate}, {"field", structField}, {"interpret", structInterpret}, {"map", structMap},
    {"unmap", structUnmap},   {"set", structSet},     {"get", structGet},             {"size", structSize},
    {nullptr, nullptr},
};

}  // namespace

namespace MemModules {

int openMem(lua_State* L)
{
    luaL_register(L, "mem", kMem);
    lua_pushnumber(L, CL_MAP_READ);
    lua_setfield(L, -2, "READ");
    lua_pushnumber(L, CL_MAP_WRITE);
    lua_setfield(L, -2, "WRITE");
    lua_pushnumber(L, CL_MAP_READ | CL_MAP_WRITE);
    lua_setfield(L, -2, "READ_WRITE");
    lua_pop(L, 1);
    return 0;
}

int openStruct(lua_State* L)
{
    luaL_register(L, "struct", kStruct);
    lua_pop(L, 1);
    return 0;
}

StructType* findStruct(const char* name)
{
    const int slot = findSlot(name);
    return slot < 0 ? nullptr : &s_types[slot];
}

bool declareStruct(const char* name, std::initializer_list<std::pair<const char*, uint32_t>> fields)
{
    if (std::strlen(name) >= kStructName) return false;
    StructType* t = insertType(name);
    if (!t) return false;
    for (const auto& [fieldName, type] : fields)
        if (type >= MemTypes::kCount || !addField(t, fieldName, type)) return false;
    return true;
}

}  // namespace MemModules
