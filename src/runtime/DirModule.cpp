#include "runtime/DirModule.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include <lua.hpp>

#include "platform/Paths.h"

namespace {

// Each of folder and pattern is cut to this many characters.
constexpr size_t kMaxPart = 400;

// Names of the regular files matching `search`, in byte order. Wildcards count
// only in the last part, as in the search patterns the scripts were written
// for; the folder part is taken literally.
std::vector<std::string> matchingFiles(const std::string& search, bool keepExtension)
{
    std::vector<std::string> names;
    const size_t slash = search.rfind('/');
    std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : search.substr(0, slash);
    std::string mask = slash == std::string::npos ? search : search.substr(slash + 1);
    if (mask.empty()) return names;
    if (mask == "*.*") mask = "*";  // the old spelling of "every file", dot or not

    DIR* d = opendir(folder.c_str());
    if (!d) return names;
    struct Closer {
        DIR* d;
        ~Closer() { closedir(d); }
    } closer{d};
    while (dirent* e = readdir(d)) {
        // FNM_PERIOD: hidden files only when the mask itself starts with '.'.
        if (fnmatch(mask.c_str(), e->d_name, FNM_PERIOD) != 0) continue;
        struct stat st;
        if (stat(Paths::join(folder, e->d_name).c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        names.emplace_back(e->d_name);
    }
    std::sort(names.begin(), names.end());
    if (!keepExtension)
        for (std::string& n : names)
            if (size_t dot = n.rfind('.'); dot != std::string::npos) n.erase(dot);
    return names;
}

// Builds the result table. Runs under lua_pcall so that a Lua memory error
// cannot unwind through the C++ frame that owns the names.
int pushNames(lua_State* L)
{
    const auto* names = static_cast<const std::vector<std::string>*>(lua_touserdata(L, 1));
    lua_createtable(L, static_cast<int>(names->size()), 0);
    int index = 1;
    for (const std::string& n : *names) {
        lua_pushlstring(L, n.data(), n.size());
        lua_rawseti(L, -2, index++);
    }
    return 1;
}

}  // namespace

namespace DirModule {

int listFiles(lua_State* L)
{
    // Argument errors are raised here, while no C++ object lives in this frame.
    size_t folderLen = 0, patternLen = 0;
    const char* folder = luaL_optlstring(L, 1, "", &folderLen);
    const char* pattern = luaL_optlstring(L, 2, "", &patternLen);
    // Only a boolean false cuts the extensions; any other value keeps them.
    const bool keepExtension = !(lua_type(L, 3) == LUA_TBOOLEAN && !lua_toboolean(L, 3));
    luaL_checkstack(L, 4, "dir.listFiles");
    lua_pushcfunction(L, pushNames);

    int status = 0;
    bool failed = false;
    try {
        std::string search(folder, std::min(folderLen, kMaxPart));
        search.append(pattern, std::min(patternLen, kMaxPart));
        std::vector<std::string> names = matchingFiles(Paths::toNativePath(search), keepExtension);
        lua_pushlightuserdata(L, &names);
        status = lua_pcall(L, 1, 1, 0);
    } catch (...) {
        failed = true;
    }
    if (failed) {
        lua_pop(L, 1);  // pushNames, never called
        return luaL_error(L, "dir.listFiles: out of memory");
    }
    if (status != 0) return lua_error(L);
    return 1;
}

int open(lua_State* L)
{
    static const luaL_Reg functions[] = {{"listFiles", listFiles}, {nullptr, nullptr}};
    luaL_register(L, "dir", functions);
    return 1;
}

}  // namespace DirModule
