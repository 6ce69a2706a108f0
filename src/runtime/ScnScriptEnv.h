// Where script code lives and how it runs: processor environments, the
// function tables of registers, compiling and running event functions and
// global text, and the report of script errors.
//
// A processor's environment E is a table anchored in the globals table (the
// reference is an integer key there) with E._P = E and a metatable whose
// __index is the globals table: reads fall through to the globals, writes
// stay private to the processor. A register's function table F is anchored in
// the registry and holds, per event function, the compiled chunk or, after a
// failed compile, the message (kept alive there so the pointer handed out
// stays valid).
//
// An event function's text is the body of a chunk; running it is calling the
// chunk with no arguments under lua_pcall(L, 0, 0, 0).
//
// All functions here are called from C++ and never let a Lua error escape:
// failures come back as results and messages.
#pragma once

#include <string>

struct lua_State;
class ScnNode;
class ScnMFFunction;

namespace ScnScript {

inline constexpr const char* kApplicationChunk = "application-global";
inline constexpr const char* kProcessorChunk = "processor-global";

// A new environment; its reference in the globals table, 0 on failure.
int newEnvironment(lua_State* L);
// Pushes E (nil for an unknown reference).
void pushEnvironment(lua_State* L, int envRef);
void releaseEnvironment(lua_State* L, int envRef);

// A new function table; its registry reference, 0 on failure.
int newFunctionTable(lua_State* L);
void releaseFunctionTable(lua_State* L, int tableRef);

// Compiles entry `i` of `functions` into F with E as its environment, under
// the chunk name of the function. Whatever the entry held compiled before is
// dropped first. Returns null on success or for empty code; on failure the
// entry holds the message's reference and its error flag, and the message is
// returned (valid while F keeps it).
const char* compileFunction(lua_State* L, ScnMFFunction& functions, int i, int envRef, int tableRef);

// Drops the entry's compiled chunk or message: unref, reference -1, modified
// flag cleared.
void removeCompiled(lua_State* L, ScnMFFunction& functions, int i, int tableRef);

// Runs entry `i`. False when it did not run (no code, a failed compile, an
// earlier failure) or failed now; a failure sets the entry's error flag, so
// it is not run again until recompiled, and gives the message.
bool runFunction(lua_State* L, ScnMFFunction& functions, int i, int tableRef, std::string* message = nullptr);

// Loads and runs global text: with envRef 0 in the global environment under
// the chunk name "application-global", else in E under "processor-global".
// False with the message on failure. No collection follows: the caller runs
// collectAfterGlobalText, after one text or once after all of a build's.
bool runGlobalText(lua_State* L, const std::string& text, int envRef, std::string* message = nullptr);
// The full collection that follows global text; a finaliser that raises is
// reported on the script error channel, as at every other collection.
void collectAfterGlobalText(lua_State* L);

// The position in a Lua message "[string \"chunk\"]:line: text": the chunk
// name between the first two double quotes and the line read as %d from the
// third character after the second. Without both quotes: "" and 0.
struct ErrorPosition {
    std::string chunk;
    int line = 0;
};
ErrorPosition parseError(const char* message);

// The design nodes and run-time names that an error in a processor's code is
// reported against. The function list is searched for the failing chunk.
struct ErrorContext {
    ScnNode* application = nullptr;    // design node of the application
    std::string applicationName;       // name of the run-time application
    ScnNode* processor = nullptr;      // design node of the processor
    std::string processorName;         // name of the run-time processor
    ScnNode* registerNode = nullptr;   // design node of the register
    std::string registerName;          // name of the run-time register
    const ScnMFFunction* functions = nullptr;
};

// Writes `message` on the processor script error channel with the node,
// function index and line that the failing chunk points at:
// "application-global" -> application, 0; "processor-global" -> processor, 0;
// any other chunk -> register, index of the function of that name (0 when
// there is none).
void reportError(const char* message, const ErrorContext& context);

// A failure in global text, reported against the node that owns the text:
// index 0, the line from the message, `source` as the source.
void reportTextError(const char* message, ScnNode* owner, const std::string& source);

}  // namespace ScnScript
