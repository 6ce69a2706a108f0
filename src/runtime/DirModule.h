// The Lua module dir: file listings for scripts.
#pragma once

struct lua_State;

namespace DirModule {

// Registers the global table dir with listFiles; leaves it on the stack. A
// lua_CFunction, so that it can run under lua_cpcall.
int open(lua_State* L);

// dir.listFiles([folder [, pattern [, keepExtension]]]): folder and pattern
// (each cut to 400 characters) are joined into one search pattern whose last
// part may hold '*', '?' and '[...]'. Returns the names, without folder, of
// the regular files that match, in byte order, as a table indexed from 1.
// "*.*" matches every file; names starting with '.' match only a part that
// starts with '.'. keepExtension false cuts each name from its last '.' on.
int listFiles(lua_State* L);

}  // namespace DirModule
