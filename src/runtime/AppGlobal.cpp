// Process-wide state and the window-less start-up services. The module chain
// (startModules) lives in ModuleChain.cpp.
#include "runtime/AppGlobal.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

#include <lua.hpp>

#include "platform/DynLib.h"
#include "platform/Paths.h"
#include "platform/Settings.h"
#include "runtime/Channels.h"
#include "runtime/DirModule.h"
#include "runtime/LuaAlloc.h"
#include "runtime/LuaExt.h"
#include "runtime/ScnLua.h"

namespace {

std::string g_programFolder;
bool g_programFolderSet = false;
std::string g_projectPath;
std::ofstream g_trace;
std::string g_tracePath;
lua_State* g_lua = nullptr;

std::string currentFolder()
{
    std::vector<char> buf(4096);
    for (;;) {
        if (getcwd(buf.data(), buf.size())) return buf.data();
        if (errno != ERANGE) return "";
        buf.resize(buf.size() * 2);
    }
}

bool openTrace(const std::string& path)
{
    g_trace.close();
    g_trace.clear();
    g_trace.open(path, std::ios::out | std::ios::trunc);
    return g_trace.is_open();
}

void logLuaError(lua_State* L, const std::string& source)
{
    const char* msg = lua_tostring(L, -1);
    LogStream(Channels::error(), source) << (msg ? msg : "(error object is not a string)");
    lua_pop(L, 1);
}

// print's lines go to the Lua print channel instead of standard output.
void printToChannel(const char* line)
{
    try {
        LogStream(Channels::luaPrint(), "script") << line;
    } catch (...) {
        // Called from inside Lua: a line that cannot be logged is dropped.
    }
}

int openStandardLibraries(lua_State* L)
{
    luaL_openlibs(L);
    velmora_setprintfunc(L, printToChannel);
    return 0;
}

// Loads every "*.so" in `folder`, in name order, and runs its lib_open with the
// plug-in's name. A missing folder is an empty one. The libraries are never
// unloaded: what lib_open registered points into them.
void loadPlugins(lua_State* L, const std::string& folder)
{
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        std::error_code typeEc;
        if (it->path().extension() != ".so" || !it->is_regular_file(typeEc)) continue;
        files.push_back(it->path().filename().string());
    }
    std::sort(files.begin(), files.end());

    for (const std::string& file : files) {
        std::string name = file.substr(0, file.size() - 3);
        DynLib::Library lib;
        if (!lib.open(Paths::join(folder, file))) {
            LogStream(Channels::error(), name) << lib.error();
            continue;
        }
        auto libOpen = reinterpret_cast<lua_CFunction>(lib.symbol("lib_open"));
        lib.release();
        if (!libOpen) {
            LogStream(Channels::error(), name) << "Function lib_open not found";
            continue;
        }
        if (lua_cpcall(L, libOpen, name.data()) != 0) logLuaError(L, name);
    }
}

}  // namespace

namespace AppGlobal {

const std::string& programFolder()
{
    if (!g_programFolderSet) {
        g_programFolder = Paths::executableFolder();
        g_programFolderSet = true;
    }
    return g_programFolder;
}

void setProgramFolder(const std::string& folder)
{
    g_programFolder = Paths::toNativePath(folder);
    while (g_programFolder.size() > 1 && g_programFolder.back() == '/') g_programFolder.pop_back();
    g_programFolderSet = true;
}

std::string defaultWorkspace() { return Paths::join(programFolder(), "workspace/"); }

std::string lastWorkspace()
{
    std::string stored;
    if (Settings::get("Recent Workspace List", "Document1", stored) && !stored.empty())
        return Paths::toNativePath(stored);
    return defaultWorkspace();
}

bool setProjectPath(const std::string& path)
{
    const std::string native = Paths::toNativePath(path);
    if (native.empty()) return false;
    // Kept absolute: everything below the workspace is found from it after the
    // working folder has changed.
    const std::string absolute = native[0] == '/' ? native : Paths::join(currentFolder(), native);
    if (chdir(native.c_str()) != 0) return false;
    g_projectPath = absolute;

    const std::string local = Paths::join(absolute, "velmora.txt");
    if (openTrace(local)) {
        g_tracePath = local;
    } else {
        const std::string cache = Paths::userCacheFolder();
        const std::string fallback = Paths::join(cache, "velmora.txt");
        if (Paths::ensureFolder(cache) && openTrace(fallback))
            g_tracePath = fallback;
        else
            g_tracePath.clear();  // the trace is lost, the program goes on
    }
    VTRACE("AppGlobal::setProjectPath " << g_projectPath);
    return true;
}

const std::string& projectPath() { return g_projectPath; }

void traceLine(const char* file, int line, const std::string& text)
{
    if (!g_trace.is_open()) return;
    try {
        g_trace << Paths::fileName(file ? file : "") << '(' << line << "):" << text << '\n';
        g_trace.flush();
    } catch (...) {
        // A trace that cannot be written is lost; it never stops the program.
    }
}

const std::string& tracePath() { return g_tracePath; }

lua_State* luaState() { return g_lua; }

lua_State* newLuaState(const std::string& project)
{
    // The state allocates from a small-block pool of its own (LuaAlloc.h),
    // freed by lua_close.
    lua_State* L = LuaAlloc::newState();
    if (!L) {
        LogStream(Channels::error(), "lua") << "Unable to create the Lua state";
        return nullptr;
    }
    // Registration creates many objects that are only anchored once complete.
    lua_gc(L, LUA_GCSTOP, 0);
    if (lua_cpcall(L, openStandardLibraries, nullptr) != 0) logLuaError(L, "lua");
    try {
        loadPlugins(L, Paths::join(project, "bindings/plugins/"));
    } catch (const std::exception& e) {
        LogStream(Channels::error(), "plugins") << "Plug-in scan stopped: " << e.what();
    }
    if (lua_cpcall(L, DirModule::open, nullptr) != 0) logLuaError(L, "dir");
    lua_gc(L, LUA_GCRESTART, 0);
    return L;
}

lua_State* startLua()
{
    if (!g_lua) {
        g_lua = newLuaState(g_projectPath);
        // Nodes get their Lua objects on the process's state only.
        if (g_lua) ScnLua::installHooks();
    }
    return g_lua;
}

}  // namespace AppGlobal
