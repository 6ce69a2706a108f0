#include "runtime/ScnLua.h"

#include <cstring>

#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/ScnScriptEnv.h"

namespace {

// Class references in order of registration, for releaseLuaObject.
int g_classRefs[ScnNodeRegistry::kMaxTypes];
int g_classRefCount = 0;

// Pushes the instance table B of the node userdata at `idx`; nil when there
// is none.
void pushInstanceTable(lua_State* L, int idx)
{
    if (lua_type(L, idx) != LUA_TUSERDATA) {
        lua_pushnil(L);
        return;
    }
    lua_getfenv(L, idx);
    if (!lua_istable(L, -1)) {
        lua_pop(L, 1);
        lua_pushnil(L);
    }
}

// The protected bodies below take their arguments as one light userdata and
// hold no C++ object with a destructor: a Lua error (out of memory, a global
// table's metamethod) unwinds them with longjmp.

int createBody(lua_State* L)
{
    auto* node = static_cast<ScnNode*>(lua_touserdata(L, 1));
    lua_rawgeti(L, LUA_REGISTRYINDEX, node->getLuaClassRef());  // 2: M
    if (!lua_istable(L, 2)) return luaL_error(L, "class %s has no script class", node->getType()->name);

    auto* block = static_cast<ScnLuaNodeBlock*>(velmora_newuserdatatyped(L, sizeof(ScnLuaNodeBlock), LuaTag::kNode));
    block->node = node;           // 3: userdata
    lua_createtable(L, 0, 3);     // 4: A
    lua_createtable(L, 0, 0);     // 5: B
    lua_createtable(L, 0, 1);     // 6: C

    lua_pushliteral(L, "__index");
    lua_rawget(L, 2);
    lua_setfield(L, 6, "__index");  // C.__index = T
    lua_pushvalue(L, 6);
    lua_setmetatable(L, 5);

    lua_pushvalue(L, 5);
    lua_setfield(L, 4, "__index");
    lua_pushvalue(L, 5);
    lua_setfield(L, 4, "__newindex");
    lua_pushliteral(L, "__tostring");
    lua_rawget(L, 2);
    lua_setfield(L, 4, "__tostring");
    lua_pushvalue(L, 4);
    lua_setmetatable(L, 3);
    lua_pushvalue(L, 5);
    lua_setfenv(L, 3);

    lua_pushvalue(L, 3);
    node->setLuaRef(luaL_ref(L, 2));
    return 0;
}

int releaseBody(lua_State* L)
{
    auto* node = static_cast<ScnNode*>(lua_touserdata(L, 1));
    const int ref = node->getLuaRef();
    // The node's own class first: right unless we are inside ~ScnNode, where
    // every node looks like a plain ScnNode. Then every class in turn; the
    // table whose entry holds this very node is the one.
    const int own = node->getLuaClassRef();
    for (int i = -1; i < g_classRefCount; ++i) {
        const int classRef = i < 0 ? own : g_classRefs[i];
        if (classRef == 0 || (i >= 0 && classRef == own)) continue;
        lua_rawgeti(L, LUA_REGISTRYINDEX, classRef);  // M
        if (!lua_istable(L, -1)) {
            lua_pop(L, 1);
            continue;
        }
        lua_rawgeti(L, -1, ref);
        auto* block = static_cast<ScnLuaNodeBlock*>(velmora_typedpointer(L, -1, LuaTag::kNode));
        lua_pop(L, 1);
        if (block && block->node == node) {
            block->node = nullptr;
            luaL_unref(L, -1, ref);
            lua_pop(L, 1);
            node->setLuaRef(0);
            return 0;
        }
        lua_pop(L, 1);
    }
    node->setLuaRef(0);
    return luaL_error(L, "no script object found for reference %d", ref);
}

struct NameArgs {
    ScnNode* parent;
    ScnNode* child;
    const std::string* oldName;  // rename only
    bool inOrder = false;        // bind only
};

void pushName(lua_State* L, const std::string& name)
{
    lua_pushlstring(L, name.data(), name.size());
}

// Stack 2: the parent, 3: its instance table B, 4: the child. False when
// either node has no Lua object.
bool pushParentAndChild(lua_State* L, const NameArgs* a)
{
    ScnLua::pushNode(L, a->parent);
    pushInstanceTable(L, 2);
    ScnLua::pushNode(L, a->child);
    return !lua_isnil(L, 3) && !lua_isnil(L, 4);
}

int bindBody(lua_State* L)
{
    const auto* a = static_cast<const NameArgs*>(lua_touserdata(L, 1));
    if (!pushParentAndChild(L, a)) return 0;
    pushName(L, a->child->getName());  // 5
    lua_pushvalue(L, 5);
    lua_rawget(L, 3);  // 6: present entry
    ScnNode* holder = ScnLua::toNode(L, 6);
    lua_pop(L, 1);
    if (holder && holder != a->child && holder->parent() == a->parent) {
        // Two siblings of one name: the first keeps it.
        if (a->inOrder) return 0;
        for (ScnNode* n = a->child->prev(); n; n = n->prev())
            if (n == holder) return 0;
    }
    lua_pushvalue(L, 4);
    lua_rawset(L, 3);
    return 0;
}

int unbindBody(lua_State* L)
{
    const auto* a = static_cast<const NameArgs*>(lua_touserdata(L, 1));
    if (!pushParentAndChild(L, a)) return 0;
    pushName(L, a->child->getName());
    lua_pushvalue(L, -1);
    lua_rawget(L, 3);  // 6: present entry
    if (!lua_rawequal(L, 6, 4)) return 0;
    lua_pop(L, 1);
    lua_pushnil(L);
    lua_rawset(L, 3);
    return 0;
}

int renameBody(lua_State* L)
{
    const auto* a = static_cast<const NameArgs*>(lua_touserdata(L, 1));
    if (!pushParentAndChild(L, a)) return 0;
    pushName(L, *a->oldName);        // 5
    lua_pushvalue(L, 5);
    lua_rawget(L, 3);                // 6
    if (lua_rawequal(L, 6, 4)) {
        lua_pushvalue(L, 5);
        lua_pushnil(L);
        lua_rawset(L, 3);
    }
    pushName(L, a->child->getName());
    lua_pushvalue(L, 4);
    lua_rawset(L, 3);
    return 0;
}

struct GlobalArgs {
    const char* name;
    ScnNode* node;  // null: clear
};

int setGlobalBody(lua_State* L)
{
    const auto* a = static_cast<const GlobalArgs*>(lua_touserdata(L, 1));
    ScnLua::pushNode(L, a->node);
    lua_setfield(L, LUA_GLOBALSINDEX, a->name);
    return 0;
}

const char* sourceOf(const ScnNode* node)
{
    return node ? node->getName().c_str() : "";
}

void hookCreate(ScnNode* node) { ScnLua::createLuaObject(AppGlobal::luaState(), node); }
void hookRelease(ScnNode* node) { ScnLua::releaseLuaObject(AppGlobal::luaState(), node); }
void hookBind(ScnNode* parent, ScnNode* child, bool inOrder)
{
    ScnLua::bindName(AppGlobal::luaState(), parent, child, inOrder);
}
void hookUnbind(ScnNode* parent, ScnNode* child) { ScnLua::unbindName(AppGlobal::luaState(), parent, child); }
void hookRename(ScnNode* node, const std::string& oldName) { ScnLua::rename(AppGlobal::luaState(), node, oldName); }

}  // namespace

// -- class tables ---------------------------------------------------------------

ScnLuaClassBase::ScnLuaClassBase(lua_State* L, const ScnNodeType& type, lua_CFunction tostring) : m_L(L)
{
    lua_newtable(L);
    m_m = lua_gettop(L);
    lua_newtable(L);
    m_t = lua_gettop(L);
    lua_newtable(L);
    m_u = lua_gettop(L);

    lua_pushliteral(L, "(hidden)");
    lua_setfield(L, m_m, "__metatable");
    lua_pushcfunction(L, tostring);
    lua_setfield(L, m_m, "__tostring");
    lua_pushvalue(L, m_t);
    lua_setfield(L, m_m, "__index");

    if (const ScnNodeType* parent = ScnNodeRegistry::parentOf(type)) {
        if (!parent->luaClassRef)
            luaL_error(L, "%s: parent class %s has no script class yet", type.name, parent->name ? parent->name : "?");
        lua_rawgeti(L, LUA_REGISTRYINDEX, parent->luaClassRef);
        lua_pushliteral(L, "__index");
        lua_rawget(L, -2);
        lua_setfield(L, m_u, "__index");
        lua_pop(L, 1);
    }
    lua_pushvalue(L, m_u);
    lua_setmetatable(L, m_t);
}

void ScnLuaClassBase::addClosure(const char* name, const void* record, size_t size, lua_CFunction dispatch)
{
    lua_pushstring(m_L, name);
    std::memcpy(lua_newuserdata(m_L, size), record, size);
    lua_pushcclosure(m_L, dispatch, 1);
    lua_rawset(m_L, m_t);
}

int ScnLuaClassBase::finish()
{
    lua_settop(m_L, m_m);
    int ref = luaL_ref(m_L, LUA_REGISTRYINDEX);
    ScnLua::noteClassRef(ref);
    return ref;
}

// -- nodes ----------------------------------------------------------------------

namespace ScnLua {

ScnNode* toNode(lua_State* L, int idx)
{
    auto* block = static_cast<ScnLuaNodeBlock*>(velmora_typedpointer(L, idx, LuaTag::kNode));
    return block ? block->node : nullptr;
}

void pushNode(lua_State* L, ScnNode* node)
{
    const int ref = node ? node->getLuaRef() : 0;
    if (ref == 0) {
        lua_pushnil(L);
        return;
    }
    lua_rawgeti(L, LUA_REGISTRYINDEX, node->getLuaClassRef());
    if (!lua_istable(L, -1)) {
        lua_pop(L, 1);
        lua_pushnil(L);
        return;
    }
    lua_rawgeti(L, -1, ref);
    lua_remove(L, -2);
}

bool createLuaObject(lua_State* L, ScnNode* node)
{
    if (!L || !node || node->getLuaRef() || !node->getLuaClassRef()) return false;
    return protectedCall(L, createBody, node, sourceOf(node));
}

void releaseLuaObject(lua_State* L, ScnNode* node)
{
    if (!node || !node->getLuaRef()) return;
    if (!L) {
        node->setLuaRef(0);
        return;
    }
    protectedCall(L, releaseBody, node, sourceOf(node));
}

bool bindName(lua_State* L, ScnNode* parent, ScnNode* child, bool inOrder)
{
    if (!parent || !child) return false;
    NameArgs a{parent, child, nullptr, inOrder};
    return protectedCall(L, bindBody, &a, sourceOf(child));
}

bool unbindName(lua_State* L, ScnNode* parent, ScnNode* child)
{
    if (!parent || !child) return false;
    NameArgs a{parent, child, nullptr};
    return protectedCall(L, unbindBody, &a, sourceOf(child));
}

bool rename(lua_State* L, ScnNode* node, const std::string& oldName)
{
    if (!node || !node->parent()) return false;
    NameArgs a{node->parent(), node, &oldName};
    return protectedCall(L, renameBody, &a, sourceOf(node));
}

bool setGlobalNode(lua_State* L, const char* name, ScnNode* node)
{
    if (!name) return false;
    GlobalArgs a{name, node};
    return protectedCall(L, setGlobalBody, &a, name);
}

bool clearGlobalNode(lua_State* L, const char* name)
{
    return setGlobalNode(L, name, nullptr);
}

void installHooks()
{
    g_scnScriptHooks.createObject = hookCreate;
    g_scnScriptHooks.releaseObject = hookRelease;
    g_scnScriptHooks.bindName = hookBind;
    g_scnScriptHooks.unbindName = hookUnbind;
    g_scnScriptHooks.rename = hookRename;
}

void noteClassRef(int ref)
{
    if (g_classRefCount < static_cast<int>(ScnNodeRegistry::kMaxTypes)) g_classRefs[g_classRefCount++] = ref;
}

namespace {

struct CacheArgs {
    lua_CFunction body;
};

// Makes the C function of a body once and keeps it under the body's address.
int cacheBody(lua_State* L)
{
    const auto* a = static_cast<const CacheArgs*>(lua_touserdata(L, 1));
    lua_pushlightuserdata(L, reinterpret_cast<void*>(a->body));
    lua_pushcfunction(L, a->body);
    lua_rawset(L, LUA_REGISTRYINDEX);
    return 0;
}

struct GcArgs {
    int what, data;
    int result;
};

int gcBody(lua_State* L)
{
    auto* a = static_cast<GcArgs*>(lua_touserdata(L, 1));
    a->result = lua_gc(L, a->what, a->data);
    return 0;
}

}  // namespace

int pcall(lua_State* L, lua_CFunction body, void* args)
{
    lua_pushlightuserdata(L, reinterpret_cast<void*>(body));
    lua_rawget(L, LUA_REGISTRYINDEX);
    if (!lua_isfunction(L, -1)) {
        lua_pop(L, 1);
        CacheArgs c{body};
        if (int rc = lua_cpcall(L, cacheBody, &c)) return rc;
        lua_pushlightuserdata(L, reinterpret_cast<void*>(body));
        lua_rawget(L, LUA_REGISTRYINDEX);
    }
    lua_pushlightuserdata(L, args);
    return lua_pcall(L, 1, 0, 0);
}

bool protectedCall(lua_State* L, lua_CFunction body, void* args, const char* source)
{
    if (!L) return false;
    if (pcall(L, body, args) == 0) return true;
    reportFailure(L, source);
    return false;
}

bool collect(lua_State* L, int what, int data)
{
    if (!L) return false;
    GcArgs a{what, data, 0};
    if (pcall(L, gcBody, &a) == 0) return true;
    const char* msg = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : "(error object is not a string)";
    std::string chunk = ScnScript::parseError(msg).chunk;
    LogStream(Channels::scriptError(), chunk.empty() ? "collect" : chunk.c_str()) << msg;
    lua_pop(L, 1);
    return false;
}

void reportFailure(lua_State* L, const char* source)
{
    const char* msg = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : "(error object is not a string)";
    LogStream(Channels::error(), source ? source : "") << msg;
    lua_pop(L, 1);
}

}  // namespace ScnLua

// -- module start helpers ----------------------------------------------------------

namespace ScnLua {

lua_State* processState() { return AppGlobal::luaState(); }

GcPause::GcPause() : L(AppGlobal::luaState())
{
    if (L) lua_gc(L, LUA_GCSTOP, 0);
}

GcPause::~GcPause()
{
    if (L) lua_gc(L, LUA_GCRESTART, 0);
}

void openModule(lua_CFunction open, const char* name)
{
    lua_State* L = AppGlobal::luaState();
    if (!L) return;
    if (lua_cpcall(L, open, nullptr) != 0) reportFailure(L, name);
}

}  // namespace ScnLua
