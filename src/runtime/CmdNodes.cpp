#include "runtime/CmdNodes.h"

#include <lua.hpp>

#include "node/ScnAction.h"
#include "node/ScnMFFunction.h"
#include "platform/GlContext.h"
#include "render/ScnScene.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/Clock.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnNodes.h"
#include "runtime/ScnLua.h"
#include "runtime/ScnScriptEnv.h"
#include "widgets/GuiActionUpdate.h"

ScnNodeType CmdRegister::s_type{0, 0, "CmdRegister", nullptr, 0};
ScnNodeType CmdProcessor::s_type;
ScnNodeType CmdApplication::s_type;

// -- registers ----------------------------------------------------------------

CmdRegister::CmdRegister(CmdProcessor* processor, RtnRegister* design)
    : m_processor(processor), m_index(design->index.value), m_functions(&design->functions)
{
    name = design->getName();
    processor->registers.put(m_index, this);
    design->linkTwin(this);
    lua_State* L = AppGlobal::luaState();
    if (!L) return;
    int ref = ScnScript::newFunctionTable(L);
    if (!ref) return;  // reported; the register stays without functions
    m_tableRef = ref;
    for (int i = 0; i < m_functions->count(); ++i)
        if (const char* msg = ScnScript::compileFunction(L, *m_functions, i, processor->environment(), m_tableRef))
            report(msg);
}

CmdRegister::~CmdRegister()
{
    // No OnRemove: the registers go with the tree.
    while (ScnNode* t = m_tokens.first()) {
        m_tokens.remove(t);
        t->removeListener(&m_listener);
        // A token that left the tree while it was held goes with its last holder.
        if (t->unref() && !t->parent()) delete t;
    }
    releaseFunctions();
    if (m_processor && m_processor->registers.get(m_index) == this) m_processor->registers.put(m_index, nullptr);
}

void CmdRegister::releaseFunctions()
{
    lua_State* L = AppGlobal::luaState();
    if (L && m_timeRef) luaL_unref(L, LUA_REGISTRYINDEX, m_timeRef);
    m_timeRef = 0;
    m_timeVersion = 0;
    if (!L || m_tableRef == -1) return;
    for (int i = 0; i < m_functions->count(); ++i) ScnScript::removeCompiled(L, *m_functions, i, m_tableRef);
    ScnScript::releaseFunctionTable(L, m_tableRef);
    m_tableRef = -1;
}

bool CmdRegister::recompile(int index)
{
    lua_State* L = AppGlobal::luaState();
    if (!L || m_tableRef == -1 || index < 0 || index >= m_functions->count()) return false;
    const char* msg = ScnScript::compileFunction(L, *m_functions, index, m_processor->environment(), m_tableRef);
    if (msg) report(msg);
    return msg == nullptr;
}

void CmdRegister::reportFailure(lua_State* L)
{
    const char* msg = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : "(error object is not a string)";
    report(msg);
    lua_pop(L, 1);
}

void CmdRegister::report(const char* message)
{
    ScnScript::ErrorContext ctx;
    CmdApplication* app = m_processor->application;
    ctx.application = app ? static_cast<ScnNode*>(app->design) : nullptr;
    ctx.applicationName = app ? app->getName() : std::string();
    ctx.processor = m_processor->designPeer();
    ctx.processorName = m_processor->getName();
    ctx.registerNode = designPeer();
    ctx.registerName = getName();
    ctx.functions = m_functions;
    ScnScript::reportError(message, ctx);
}

void CmdRegister::deposit(ScnNode* token, bool events)
{
    if (!token) return;
    token->ref();
    m_tokens.push(token);
    token->addListener(&m_listener);
    if (events) fire(RtnRegister::OnDeposit, token);
}

void CmdRegister::remove(ScnNode* token, bool events)
{
    if (!token || !m_tokens.remove(token)) return;
    bool last = token->unref();
    if (events) fire(RtnRegister::OnRemove, token);
    token->removeListener(&m_listener);
    if (last && !token->parent()) delete token;
}

void CmdRegister::onTokenEvent(int index, ScnNode* token)
{
    if (m_processor->active) fire(index, token);
}

namespace {

// What one event call needs inside its protected call.
struct FireArgs {
    CmdRegister* reg;
    int index;
    ScnNode* node;
    std::string message;
    bool failed = false;
};

// Sets `event` in the processor's environment and runs the function. Inside
// a protected call: an environment whose metatable raises on the write, or a
// finaliser run by an allocation here, ends in a reported error, not in a
// dead process.
int fireBody(lua_State* L)
{
    auto* a = static_cast<FireArgs*>(lua_touserdata(L, 1));
    CmdRegister* r = a->reg;
    ScnScript::pushEnvironment(L, r->processor()->environment());
    if (!lua_istable(L, -1)) return 0;
    int env = lua_gettop(L);
    lua_getfield(L, env, "event");  // the old value, restored after the call
    ScnLua::pushNode(L, a->node);
    lua_setfield(L, env, "event");
    if (!ScnScript::runFunction(L, r->functions(), a->index, r->functionTable(), &a->message) &&
        r->functions().getError(a->index))
        a->failed = true;
    lua_setfield(L, env, "event");  // nested events see their own `event` again
    return 0;
}

}  // namespace

void CmdRegister::run(int index, ScnNode* node)
{
    lua_State* L = AppGlobal::luaState();
    int top = lua_gettop(L);
    FireArgs a{this, index, node, {}};
    if (ScnLua::pcall(L, fireBody, &a) != 0) {
        const char* msg = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : "(error object is not a string)";
        report(msg);
    } else if (a.failed) {
        report(a.message.c_str());
    }
    lua_settop(L, top);
}

void CmdRegister::fire(int index, ScnNode* node)
{
    lua_State* L = AppGlobal::luaState();
    if (!L || m_tableRef == -1 || index < 0 || index >= m_functions->count()) return;
    if (m_functions->getError(index) || m_functions->getLuaRef(index) == -1) return;
    run(index, node);
}

bool CmdRegister::pushTimeFunction(lua_State* L)
{
    const uint32_t version = m_functions->version();
    if (version != m_timeVersion) {
        if (m_timeRef) luaL_unref(L, LUA_REGISTRYINDEX, m_timeRef);
        m_timeRef = 0;
        const ScnMFFunction& f = *m_functions;
        if (m_tableRef != -1 && f.count() > RtnRegister::OnTime && !f.getError(RtnRegister::OnTime) &&
            f.getLuaRef(RtnRegister::OnTime) != -1) {
            lua_rawgeti(L, LUA_REGISTRYINDEX, m_tableRef);
            lua_rawgeti(L, -1, f.getLuaRef(RtnRegister::OnTime));
            lua_remove(L, -2);
            m_timeRef = luaL_ref(L, LUA_REGISTRYINDEX);
            if (m_timeRef == LUA_REFNIL) m_timeRef = 0;
        }
        m_timeVersion = version;
    }
    if (!m_timeRef) return false;
    lua_rawgeti(L, LUA_REGISTRYINDEX, m_timeRef);
    return true;
}

// -- processors -------------------------------------------------------------------

CmdProcessor::CmdProcessor(RtnProcessor* design)
{
    name = design->getName();
    lua_State* L = AppGlobal::luaState();
    if (L) {
        ScnLua::createLuaObject(L, this);
        m_envRef = ScnScript::newEnvironment(L);
    }
    design->linkTwin(this);
    for (int i = 0; i < RtnProcessor::kRegisters; ++i)
        if (RtnRegister* r = design->getRegister(i)) new CmdRegister(this, r);
}

CmdProcessor::~CmdProcessor()
{
    registers.begin();
    while (CmdRegister* r = registers.nextValue()) {
        if (ScnNode* d = r->designPeer()) d->linkTwin(nullptr);
        delete r;
    }
    registers.clear();
    if (lua_State* L = AppGlobal::luaState()) {
        ScnScript::releaseEnvironment(L, m_envRef);
        ScnLua::releaseLuaObject(L, this);
    }
    m_envRef = 0;
}

void CmdProcessor::addLuaMethods(ScnLuaClass<CmdProcessor>& c)
{
    c.add("setActive", &CmdProcessor::luaSetActive);
}

int CmdProcessor::luaSetActive(lua_State* L)
{
    if (lua_isboolean(L, 1)) setActive(lua_toboolean(L, 1) != 0);
    return 0;
}

void CmdProcessor::setActive(bool on)
{
    if (on == active) return;
    // Both events run while the processor counts as active.
    if (on) {
        active = true;
        notify(RtnProcessor::OnActivate);
    } else {
        notify(RtnProcessor::OnDeactivate);
        active = false;
    }
}

namespace {

// The OnTime sweep of one processor in one protected call: the environment
// and the key "event" are pushed once, then each ready register sets `event`
// to its oldest token and runs its chunk under a pcall of its own, so that a
// failing function stops only itself.
int timeSweep(lua_State* L)
{
    auto* p = static_cast<CmdProcessor*>(lua_touserdata(L, 1));
    ScnScript::pushEnvironment(L, p->environment());
    if (!lua_istable(L, -1)) return 0;
    const int env = lua_gettop(L);
    lua_pushliteral(L, "event");
    const int key = env + 1;
    p->registers.begin();
    while (CmdRegister* r = p->registers.nextValue()) {
        // A register may stop the processor; the rest of the sweep stays silent.
        if (!p->active) break;
        if (!r->pushTimeFunction(L)) continue;
        lua_pushvalue(L, key);
        ScnLua::pushNode(L, r->tokens().first());
        lua_settable(L, env);  // stays set after the call
        if (lua_pcall(L, 0, 0, 0) != 0) {
            r->functions().setError(RtnRegister::OnTime, true);
            r->reportFailure(L);
        }
    }
    return 0;
}

}  // namespace

void CmdProcessor::onEvent(ScnAction& action)
{
    lua_State* L = AppGlobal::luaState();
    if (L && Engine::running && active && m_envRef) {
        const int top = lua_gettop(L);
        if (ScnLua::pcall(L, timeSweep, this) != 0) {
            // Only the environment's own metamethods can end the sweep.
            ScnScript::ErrorContext ctx;
            ctx.application = application ? static_cast<ScnNode*>(application->design) : nullptr;
            ctx.applicationName = application ? application->getName() : std::string();
            ctx.processor = designPeer();
            ctx.processorName = getName();
            ScnScript::reportError(lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : "(error object is not a string)",
                                   ctx);
        }
        lua_settop(L, top);
    }
    action.continueWalk(this, ScnAction::Both);
}

// -- the application twin -----------------------------------------------------------

static const CmdApplication::Branch kInstantiateOrder[] = {CmdApplication::World, CmdApplication::Camera,
                                                           CmdApplication::Scripts, CmdApplication::Gui,
                                                           CmdApplication::OpenCL};
static const CmdApplication::Branch kCreateOrder[] = {CmdApplication::OpenCL, CmdApplication::World,
                                                      CmdApplication::Camera, CmdApplication::Gui,
                                                      CmdApplication::Scripts};
static const CmdApplication::Branch kUpdateOrder[] = {CmdApplication::World, CmdApplication::Camera,
                                                      CmdApplication::Gui, CmdApplication::OpenCL,
                                                      CmdApplication::Scripts};
static const CmdApplication::Branch kDestroyOrder[] = {CmdApplication::World, CmdApplication::Camera,
                                                       CmdApplication::Gui, CmdApplication::OpenCL,
                                                       CmdApplication::Scripts};
static const CmdApplication::Branch kDeleteOrder[] = {CmdApplication::Gui, CmdApplication::Scripts,
                                                      CmdApplication::OpenCL, CmdApplication::World,
                                                      CmdApplication::Camera};

CmdApplication::CmdApplication(RtnApplication* app) : design(app)
{
    name = "application";
    for (Branch b : kInstantiateOrder) {
        ScnNode* twin = app->getChild(b)->instantiate();
        twin->setParent(this);
        twin->ref();  // owned by this object, not by a child list
        m_branches[b] = twin;
    }
    // Processors find their application for error reports.
    for (ScnNode* n = m_branches[Scripts]->getChild(0); n; n = n->next())
        if (auto* p = dynamic_cast<CmdProcessor*>(n)) p->application = this;
    create(nullptr);
    update(nullptr);
    // One collection after all the global texts, not one after each: each
    // full collection walks the whole heap, and a large tree's userdata with it.
    for (ScnNode* n = app->scripts.node.firstChild(); n; n = n->next())
        if (auto* p = dynamic_cast<RtnProcessor*>(n)) p->runGlobalScript(false);
    ScnScript::collectAfterGlobalText(AppGlobal::luaState());
    app->linkTwin(this);
}

CmdApplication::~CmdApplication()
{
    for (Branch b : kDeleteOrder) {
        delete m_branches[b];
        m_branches[b] = nullptr;
    }
}

// A run-time tree is never copied: asking for a copy is a fault of the caller.
ScnNode* CmdApplication::instantiate()
{
    LogStream(Channels::error(), "application") << "a run-time tree cannot be copied";
    return nullptr;
}

ScnNode* CmdApplication::duplicate()
{
    return instantiate();
}

ScnNode* CmdApplication::getChild(int index)
{
    return index >= 0 && index < BranchCount ? m_branches[index] : nullptr;
}

int CmdApplication::indexOfChild(const ScnNode* node)
{
    for (int i = 0; i < BranchCount; ++i)
        if (m_branches[i] == node) return i;
    return -1;
}

void CmdApplication::walkBranches(ScnAction& action, const Branch* order)
{
    for (int i = 0; i < BranchCount; ++i)
        if (m_branches[order[i]]) action.apply(m_branches[order[i]]);
}

void CmdApplication::create(ScnNode* start)
{
    GlScope gl;  // shaders and buffers are made and freed with the context current
    ScnActionCreate a;
    if (start)
        a.apply(a.buildPath(start, this));
    else
        walkBranches(a, kCreateOrder);
}

void CmdApplication::update(ScnNode* start, ScnField* changed)
{
    GlScope gl;  // shaders and buffers are made and freed with the context current
    GuiActionUpdate a(false, changed);
    if (start)
        a.apply(a.buildPath(start, this));
    else
        walkBranches(a, kUpdateOrder);
}

void CmdApplication::destroy(ScnNode* start)
{
    GlScope gl;  // shaders and buffers are made and freed with the context current
    ScnActionDestroy a;
    if (start)
        a.apply(a.buildPath(start, this));
    else
        walkBranches(a, kDestroyOrder);
}

void CmdApplication::destroyTree()
{
    for (ScnNode* n = design->scripts.node.firstChild(); n; n = n->next()) {
        auto* p = dynamic_cast<RtnProcessor*>(n);
        auto* cp = p ? dynamic_cast<CmdProcessor*>(p->twin()) : nullptr;
        if (!cp) continue;
        cp->registers.begin();
        while (CmdRegister* r = cp->registers.nextValue()) {
            r->releaseFunctions();
            if (ScnNode* d = r->designPeer()) d->linkTwin(nullptr);
            delete r;
        }
        p->linkTwin(nullptr);
    }
    destroy(nullptr);
}

ScnNode* CmdApplication::frameStep(int width, int height, bool showGui)
{
    return ScnFrame::step(*this, width, height, showGui);
}
