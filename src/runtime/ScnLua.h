// Node classes as Lua classes, and nodes as Lua objects.
//
// A class has three tables, made once at registration: the class metatable M
// (__metatable "(hidden)", __tostring, __index = T), the method table T
// (method name -> closure over dispatch) and T's metatable U, whose __index is
// the parent class's T, so that methods are inherited by plain table lookups.
// M is anchored in the registry; its reference is ScnNodeType::luaClassRef.
// M also anchors the userdata of every live node of the class, at integer
// keys given by luaL_ref; that key is the node's Lua reference.
//
// A node's Lua object is a userdata of tag LuaTag::kNode holding the node
// pointer, with its own metatable A (__index = __newindex = B, __tostring
// from M). B holds whatever scripts set on the node and its children by name;
// B's metatable C sends misses on to the class's T. B is also the userdata's
// environment, so the bridge reaches it in one step whatever a script does to
// A. The node owns its userdata: there is no __gc, and releasing the node
// clears the pointer in the block, so a script that kept the value holds a
// dead object that fails check() instead of pointing at freed memory.
//
// A class declares its script methods in one place, a static member
//   static void addLuaMethods(ScnLuaClass<Cls>& c) { c.add("name", &Cls::luaName); ... }
// that registration finds by itself. The parameter names the class, so a
// subclass without its own list is not handed its parent's again: it inherits
// those methods through U.
#pragma once

#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <type_traits>

#include <lua.hpp>

#include "node/ScnNode.h"
#include "runtime/LuaExt.h"

// The block of a node's userdata.
struct ScnLuaNodeBlock {
    ScnNode* node;  // null once the node is released
};

namespace ScnLua {

// The live node in the userdata at `idx`, or null (no node userdata, or one
// whose node is gone).
ScnNode* toNode(lua_State* L, int idx);

// Pushes exactly one value: the node's userdata, or nil for a null node or
// one with no Lua object.
void pushNode(lua_State* L, ScnNode* node);

// Gives `node` its userdata and tables and stores the reference with
// setLuaRef. Nothing happens for a node that has one already or whose class
// has no Lua class. False, with a message on the error channel, on failure.
bool createLuaObject(lua_State* L, ScnNode* node);

// Drops the node's reference in its class table, clears the pointer in its
// block and sets its reference to 0. Safe in ~ScnNode, where the node's
// dynamic class is already gone: the class table is then found by the block.
void releaseLuaObject(lua_State* L, ScnNode* node);

// parent.<child's name> = child, in the parent's instance table, unless an
// earlier sibling holds that name (see ScnScriptHooks::bindName).
bool bindName(lua_State* L, ScnNode* parent, ScnNode* child, bool inOrder = false);
// Clears parent.<child's name> if it still holds this child: a sibling of the
// same name that was bound later keeps its entry.
bool unbindName(lua_State* L, ScnNode* parent, ScnNode* child);
// Moves the entry in the parent's table from `oldName` to the present name.
bool rename(lua_State* L, ScnNode* node, const std::string& oldName);

// The globals under which branch roots are reached (OpenGL, Camera, ...).
// Setting a node without a Lua object sets nil.
bool setGlobalNode(lua_State* L, const char* name, ScnNode* node);
bool clearGlobalNode(lua_State* L, const char* name);

// Points g_scnScriptHooks at the functions above, on the process's state.
void installHooks();

// Remembers a class reference; releaseLuaObject searches these tables.
void noteClassRef(int ref);
// Copies the Lua message on top of the stack to the error channel and pops it.
void reportFailure(lua_State* L, const char* source);

}  // namespace ScnLua

// One script method: one record per method, made at registration as the
// full userdata upvalue of the method's closure, so that it belongs to the
// state (a heap record behind a light userdata would be invisible to leak
// checks under LuaJIT's GC64, which stores light userdata tagged).
template <class T>
struct ScnLuaMethod {
    const char* name;
    int (T::*call)(lua_State*);
};

// The class-independent part of registration: the three tables on the stack.
// Lives only inside the protected call that registers a class.
class ScnLuaClassBase {
public:
    lua_State* state() const { return m_L; }
    int metatableIndex() const { return m_m; }
    int methodsIndex() const { return m_t; }

protected:
    // Pushes M, T and U and links them; raises a Lua error when the parent
    // class has no Lua class yet (registration order is parent first).
    ScnLuaClassBase(lua_State* L, const ScnNodeType& type, lua_CFunction tostring);
    // T[name] = closure(dispatch, a userdata holding a copy of the `size`
    // bytes of `record`).
    void addClosure(const char* name, const void* record, size_t size, lua_CFunction dispatch);
    // Leaves M alone on top, anchors it in the registry and returns the reference.
    int finish();

    lua_State* m_L;
    int m_m, m_t, m_u;
};

template <class T>
class ScnLuaClass : public ScnLuaClassBase {
    static_assert(std::is_base_of_v<ScnNode, T>);

public:
    using Method = int (T::*)(lua_State*);

    // Adds a script method. The method sees its own arguments from stack
    // index 1 on and returns the number of results.
    void add(const char* name, Method call)
    {
        static_assert(std::is_trivially_copyable_v<ScnLuaMethod<T>>);
        const ScnLuaMethod<T> record{name, call};
        addClosure(name, &record, sizeof record, &dispatch);
    }

    // The object of this class at `idx`, or null.
    static T* check(lua_State* L, int idx)
    {
        ScnNode* node = ScnLua::toNode(L, idx);
        if constexpr (std::is_same_v<T, ScnNode>) {
            return node;
        } else {
            if (!node || !ScnNodeRegistry::isA(node->getType(), T::s_type)) return nullptr;
            return static_cast<T*>(node);
        }
    }

    // The one C function behind every method of the class.
    static int dispatch(lua_State* L)
    {
        T* self = check(L, 1);
        if (!self) return luaL_typerror(L, 1, T::s_type.name);
        lua_remove(L, 1);
        const auto* m = static_cast<const ScnLuaMethod<T>*>(lua_touserdata(L, lua_upvalueindex(1)));
        char what[160];
        try {
            return (self->*(m->call))(L);
        } catch (const std::exception& e) {
            // Only the C++ library's exceptions: a Lua built as C++ raises its
            // errors as other types, which must pass through untouched.
            std::snprintf(what, sizeof what, "%s", e.what());
        }
        // Outside the handler, so that the longjmp leaves no exception alive.
        return luaL_error(L, "%s: %s failed: %s", self->getName().c_str(), m->name, what);
    }

    // "Class (name)"; a released node has no name left to show.
    static int tostring(lua_State* L)
    {
        T* self = check(L, 1);
        lua_pushfstring(L, "%s (%s)", T::s_type.name, self ? self->getName().c_str() : "");
        return 1;
    }

    // Builds the class's tables after the class (and its parent) are in the
    // node registry. Does nothing without a state or when already built.
    static bool registerClass(lua_State* L)
    {
        if (!L) return false;
        if (T::s_type.luaClassRef) return true;
        if (lua_cpcall(L, &build, nullptr) != 0) {
            ScnLua::reportFailure(L, T::s_type.name);
            return false;
        }
        return true;
    }

private:
    explicit ScnLuaClass(lua_State* L) : ScnLuaClassBase(L, T::s_type, &tostring) {}

    static int build(lua_State* L)
    {
        lua_settop(L, 0);
        ScnLuaClass<T> c(L);
        if constexpr (requires(ScnLuaClass<T>& k) { T::addLuaMethods(k); }) T::addLuaMethods(c);
        T::s_type.luaClassRef = c.finish();
        return 0;
    }
};

namespace ScnLua {

// Stops the collector while a module registers its classes.
struct GcPause {
    lua_State* L;
    GcPause();
    ~GcPause();
};

// Runs body(L) with `args` as its one argument (a light userdata at index 1)
// under lua_pcall. Unlike lua_cpcall it allocates nothing after the first
// call for a body: the C function is made once per state and kept in the
// registry. Returns 0, or the error code with the message on the stack.
int pcall(lua_State* L, lua_CFunction body, void* args);
// pcall, with a failure's message written to the error channel under `source`.
bool protectedCall(lua_State* L, lua_CFunction body, void* args, const char* source);
// lua_gc under protection: a finaliser that raises is reported on the script
// error channel, under the chunk its message names, and the run goes on.
bool collect(lua_State* L, int what, int data);

// Opens a script module in a protected call of its own: a failing one is
// reported on the error channel and the other modules still open.
void openModule(lua_CFunction open, const char* name);

// The process's Lua state (null before Lua starts).
lua_State* processState();

// Registers a node class after its parent and builds its Lua class with the
// methods the class declares in its addLuaMethods.
template <class T>
void registerNode(ScnNodeType* parent, const char* name, uint32_t category)
{
    ScnNodeRegistry::registerClass(T::s_type, parent, name, &T::factory, category);
    ScnLuaClass<T>::registerClass(processState());
}

}  // namespace ScnLua
