// The script modules `mem` (typed element access to any memory object) and
// `struct` (record layouts laid over 1D buffers), and the table of struct
// types that the camera and light classes declare their records in.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <utility>

struct lua_State;

struct StructField {
    char name[100];
    uint32_t type;
    uint32_t offset;
};

// A record layout. Its slot in the fixed table is reused when a type is
// removed or redeclared; `serial` changes with every declaration, which is
// how a buffer that was interpreted with an earlier one notices.
struct StructType {
    int32_t size = 0;
    uint32_t serial = 0;
    uint32_t fieldCount = 0;
    StructField fields[64];
};

namespace MemModules {

int openMem(lua_State* L);
int openStruct(lua_State* L);

// The type of that name, or null.
StructType* findStruct(const char* name);
// Declares (or redeclares) a type with its fields in order. False when the
// table is full or a field is refused.
bool declareStruct(const char* name, std::initializer_list<std::pair<const char*, uint32_t>> fields);

}  // namespace MemModules
