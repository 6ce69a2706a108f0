// Process-wide state and the start-up services that need no window: the
// program folder, the workspace (project path), the trace, the Lua state with
// the plug-in scan, and the module chain.
#pragma once

#include <sstream>
#include <string>

struct lua_State;

namespace AppGlobal {

// The folder of the program's executables; the default workspace lies below
// it. Set once at start from the executable's location.
const std::string& programFolder();
void setProgramFolder(const std::string& folder);

// The default workspace: programFolder() + "/workspace/".
std::string defaultWorkspace();

// Workspace choice from the per-user store ("Recent Workspace List",
// "Document1"), falling back to the default workspace.
std::string lastWorkspace();

// Enters `path` as working folder and project path, then opens the trace
// "velmora.txt" there (truncating it) or, failing that, in the user's cache
// folder. False when the folder cannot be entered; nothing changes then.
bool setProjectPath(const std::string& path);
const std::string& projectPath();

// The trace: lines of the form file "(" line "):" text, flushed at once.
void traceLine(const char* file, int line, const std::string& text);
// Path of the trace file in use, "" when the trace is lost.
const std::string& tracePath();

// The process's one Lua state, null before startLua().
lua_State* luaState();

// Lua and plug-in start: a new state with the standard libraries, the scan of
// "<project>/bindings/plugins/*.so" calling each library's lib_open, and the
// module dir. Safe to call once per process; later calls return the state.
lua_State* startLua();

// What startLua() does, on a new state that the caller owns rather than the
// process's: the standard libraries, the plug-ins of
// "<project>/bindings/plugins/" and the module dir. Null when no state can be
// made. Lets a state be started against a workspace other than the current one.
lua_State* newLuaState(const std::string& project);

// The module chain, as far as the modules exist, with their start/done trace
// lines. Registers every node class; idempotent.
void startModules();

}  // namespace AppGlobal

#define VTRACE(expr)                                                          \
    do {                                                                      \
        std::ostringstream vtrace_os_;                                        \
        vtrace_os_ << expr;                                                   \
        AppGlobal::traceLine(__FILE_NAME__, __LINE__, vtrace_os_.str());      \
    } while (0)
