#include "node/ScnNode.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "node/ScnAction.h"
#include "runtime/Channels.h"
#include "runtime/ScnLua.h"

// -- class registry -----------------------------------------------------------

namespace {

struct Registry {
    std::unordered_map<std::string, ScnNodeType*> classes;
    std::unordered_map<std::string, ScnNodeType*> aliases;
    const ScnNodeType* parents[ScnNodeRegistry::kMaxTypes] = {};
    uint32_t nextId = 1;
};

Registry& registry()
{
    static Registry r;
    return r;
}

}  // namespace

namespace ScnNodeRegistry {

ScnNodeType& noParent()
{
    static ScnNodeType sentinel{kMaxTypes, 0, "", nullptr, 0};
    return sentinel;
}

void registerClass(ScnNodeType& type, ScnNodeType* parent, const char* name, ScnFactory factory, uint32_t category)
{
    Registry& r = registry();
    if (type.id != 0) return;  // already registered
    if (r.nextId >= kMaxTypes) return;  // the parent table is full
    type.id = r.nextId++;
    type.category = category;
    type.name = name;
    type.factory = factory;
    r.parents[type.id] = parent ? parent : &noParent();
    r.classes.emplace(name, &type);
}

void registerAlias(const char* alias, ScnNodeType& type)
{
    registry().aliases.emplace(alias, &type);
}

ScnNodeType* find(const std::string& name)
{
    Registry& r = registry();
    auto it = r.classes.find(name);
    if (it != r.classes.end()) return it->second;
    it = r.aliases.find(name);
    return it != r.aliases.end() ? it->second : nullptr;
}

ScnNode* create(const std::string& name, bool* known)
{
    ScnNodeType* t = find(name);
    bool ok = t && t->factory && (t->category & kActiveMask);
    // Run-time classes are registered for scripts but cannot be made from a file.
    ScnNode* n = ok ? t->factory() : nullptr;
    if (known) *known = n != nullptr;
    return n ? n : ScnGroup::factory();
}

const ScnNodeType* parentOf(const ScnNodeType& type)
{
    if (type.id == 0 || type.id >= kMaxTypes) return nullptr;
    const ScnNodeType* p = registry().parents[type.id];
    return p == &noParent() ? nullptr : p;
}

bool isA(const ScnNodeType* type, const ScnNodeType& base)
{
    // Bounded by the table size, so a damaged table cannot loop.
    for (uint32_t i = 0; type && i < kMaxTypes; ++i, type = parentOf(*type))
        if (type == &base) return true;
    return false;
}

uint32_t count()
{
    return registry().nextId - 1;
}

}  // namespace ScnNodeRegistry

namespace ScnFile {
uint32_t formatVersion = kCurrentVersion;
}

// -- ScnNode ------------------------------------------------------------------

ScnNodeType ScnNode::s_type;
bool ScnNode::s_noLink = false;
ScnScriptHooks g_scnScriptHooks;

ScnNode::ScnNode()
{
    m_fields.reserve(20);
}

ScnNode::ScnNode(const ScnNode& other) : m_enabled(other.m_enabled)
{
    m_fields.reserve(other.m_fields.size());
}

ScnNode::~ScnNode()
{
    if (m_luaRef && g_scnScriptHooks.releaseObject) g_scnScriptHooks.releaseObject(this);
    if (m_twin && m_twin->m_designPeer == this) m_twin->m_designPeer = nullptr;
    if (m_designPeer && m_designPeer->m_twin == this) m_designPeer->m_twin = nullptr;
}

ScnNode* ScnNode::instantiate()
{
    ScnNode* copy = makeCopy();
    if (!copy) return nullptr;  // run-time objects are not copied
    copy->copyFieldsFrom(*this);
    if (!s_noLink) linkTwin(copy);
    // Only copies become reachable from scripts: design nodes never are.
    if (copy->getLuaClassRef() && g_scnScriptHooks.createObject) g_scnScriptHooks.createObject(copy);
    return copy;
}

ScnNode* ScnNode::duplicate()
{
    bool saved = s_noLink;
    s_noLink = true;
    ScnNode* copy = instantiate();
    s_noLink = saved;
    return copy;
}

void ScnNode::linkTwin(ScnNode* twin)
{
    m_twin = twin;
    if (twin) twin->m_designPeer = this;
}

void ScnNode::copyFieldsFrom(const ScnNode& other)
{
    size_t n = std::min(m_fields.size(), other.m_fields.size());
    for (size_t i = 0; i < n; ++i) m_fields[i]->assign(*other.m_fields[i]);
    m_enabled = other.m_enabled;
}

void ScnNode::read(ScnInStream& in)
{
    for (ScnField* f : m_fields) {
        if (f->mode != ScnField::NotRead) f->read(in);
        if (in.failed()) return;
    }
}

void ScnNode::write(ScnOutStream& out) const
{
    for (const ScnField* f : m_fields)
        if (f->mode != ScnField::NotWritten) f->write(out);
}

ScnField* ScnNode::findField(const std::string& fieldName) const
{
    for (ScnField* f : m_fields)
        if (fieldName == f->name()) return f;
    return nullptr;
}

void ScnNode::onEvent(ScnAction& action) { action.continueWalk(this, ScnAction::Both); }
void ScnNode::onDestroy(ScnAction& action) { action.continueWalk(this, ScnAction::Siblings); }
void ScnNode::onTransform(ScnAction& action) { action.continueWalk(this, ScnAction::Both); }
void ScnNode::onUpdate(ScnAction& action) { action.continueWalk(this, ScnAction::Both); }
void ScnNode::onCreate(ScnAction& action) { action.continueWalk(this, ScnAction::Siblings); }
void ScnNode::onRender(ScnAction& action) { action.continueWalk(this, ScnAction::Both); }
void ScnNode::afterWalkOn(ScnAction&, void*, int) {}
void ScnNode::addEvents(ScnMFFunction&) {}
void ScnNode::removeEvents(ScnMFFunction&) {}
ScnShader* ScnNode::getShaderNode() { return nullptr; }
void ScnNode::onRenderPass(ScnAction&, ScnShader*) {}

void ScnNode::setBounds(const ScnBox& box)
{
    m_bounds = box;
    double dx = box.max[0] - box.min[0], dy = box.max[1] - box.min[1], dz = box.max[2] - box.min[2];
    m_diagonal = box.isEmpty() ? 0 : std::sqrt(dx * dx + dy * dy + dz * dz);
}

void ScnNode::setName(const std::string& text)
{
    std::string old = name.value;
    name.value = text;
    if (m_parent && m_parent->getLuaRef() && g_scnScriptHooks.rename) g_scnScriptHooks.rename(this, old);
}

// -- script methods -------------------------------------------------------------

void ScnNode::addLuaMethods(ScnLuaClass<ScnNode>& c)
{
    c.add("parent", &ScnNode::luaParent);
    c.add("prev", &ScnNode::luaPrev);
    c.add("next", &ScnNode::luaNext);
    c.add("getName", &ScnNode::luaGetName);
    c.add("setEnabled", &ScnNode::luaSetEnabled);
    c.add("getAABBmin", &ScnNode::luaGetAABBmin);
    c.add("getAABBmax", &ScnNode::luaGetAABBmax);
}

int ScnNode::luaParent(lua_State* L)
{
    ScnLua::pushNode(L, m_parent);
    return 1;
}

int ScnNode::luaPrev(lua_State* L)
{
    ScnLua::pushNode(L, m_prev);
    return 1;
}

int ScnNode::luaNext(lua_State* L)
{
    ScnLua::pushNode(L, m_next);
    return 1;
}

int ScnNode::luaGetName(lua_State* L)
{
    lua_pushlstring(L, name.value.data(), name.value.size());
    return 1;
}

int ScnNode::luaSetEnabled(lua_State* L)
{
    setEnabled(lua_toboolean(L, 1) != 0);
    return 0;
}

int ScnNode::luaGetAABBmin(lua_State* L)
{
    const ScnBox& box = getBounds();
    for (double v : box.min) lua_pushnumber(L, v);
    return 3;
}

int ScnNode::luaGetAABBmax(lua_State* L)
{
    const ScnBox& box = getBounds();
    for (double v : box.max) lua_pushnumber(L, v);
    return 3;
}

ScnNode* ScnNode::findChild(const std::string&) { return nullptr; }
ScnNode* ScnNode::getChild(int) { return nullptr; }
int ScnNode::indexOfChild(const ScnNode*) { return -1; }

void ScnNode::notify(int index)
{
    // The count is re-read every round: a listener may remove itself.
    for (size_t i = 0; i < m_listeners.size(); ++i) (*m_listeners[i])(index, this);
}

void ScnNode::addListener(ScnListener* listener)
{
    if (m_listeners.size() == m_listeners.capacity()) m_listeners.reserve(m_listeners.size() + 5);
    m_listeners.push_back(listener);
}

void ScnNode::removeListener(ScnListener* listener)
{
    auto it = std::find(m_listeners.begin(), m_listeners.end(), listener);
    if (it == m_listeners.end()) return;
    *it = m_listeners.back();
    m_listeners.pop_back();
}

// -- child lists ----------------------------------------------------------------

ScnNode* ScnMFNodeBase::nodeAt(int i) const
{
    ScnNode* n = m_first;
    for (; n && i > 0; --i) n = n->m_next;
    return i == 0 ? n : nullptr;
}

void ScnMFNodeBase::release()
{
    ScnNode* n = m_last;
    m_first = m_last = nullptr;
    m_count = 0;
    while (n) {
        ScnNode* prev = n->m_prev;
        n->m_next = n->m_prev = nullptr;
        if (n->unref())
            delete n;
        else
            n->m_parent = nullptr;
        n = prev;
    }
}

void ScnMFNodeBase::append(ScnNode* node)
{
    ScnNode* tail = m_last;
    node->m_parent = m_owner;
    node->m_prev = tail;
    node->m_next = nullptr;
    if (tail)
        tail->m_next = node;
    else
        m_first = node;
    m_last = node;
    node->ref();
    ++m_count;
}

void ScnMFNodeBase::read(ScnInStream& in)
{
    uint32_t count = 0;
    if (!in.readU32(count)) return;
    // Each record holds at least a name length and a payload size.
    if (!in.checkCount(count, 8, "child count larger than the data that remains")) return;
    if (!in.enter()) return;
    release();
    ScnNode* tail = nullptr;
    for (uint32_t i = 0; i < count && !in.failed(); ++i) {
        uint32_t n = 0, payload = 0;
        std::string cls;
        if (!in.readU32(n)) break;
        if (n > 255) {
            in.fail("class name of " + std::to_string(n) + " bytes");
            break;
        }
        if (!in.readString(cls, n) || !in.readU32(payload)) break;
        if (!in.need(payload, "node payload longer than the data that remains")) break;
        size_t start = in.tell();
        bool known = false;
        ScnNode* node = ScnNodeRegistry::create(cls, &known);
        // Linked before its read, so that the list owns it whatever the read does.
        node->m_parent = m_owner;
        node->m_prev = tail;
        if (tail)
            tail->m_next = node;
        else
            m_first = node;
        tail = m_last = node;
        node->ref();
        ++m_count;
        if (known) {
            node->read(in);
            if (!in.failed() && in.tell() - start > payload) in.fail("node payload overruns its size");
            // A longer payload (a newer writer's extra fields) is skipped.
            if (!in.failed()) in.skip(payload - (in.tell() - start));
        } else {
            // An unknown class keeps a plain group in its place; its bytes
            // belong to another class's layout, so they are kept as they are.
            auto kept = std::make_shared<ScnGroup::Foreign>();
            kept->className = cls;
            kept->payload.resize(payload);
            if (in.read(kept->payload.data(), payload)) static_cast<ScnGroup*>(node)->foreign = std::move(kept);
        }
    }
    in.leave();
}

void ScnMFNodeBase::write(ScnOutStream& out) const
{
    out.writeU32(m_count);
    for (ScnNode* n = m_first; n; n = n->m_next) {
        if (n->getType() == &ScnGroup::s_type) {
            if (const auto& f = static_cast<const ScnGroup*>(n)->foreign) {
                if (n->childCount() == 0) {
                    out.writeU32(static_cast<uint32_t>(f->className.size()));
                    out.write(f->className.data(), f->className.size());
                    out.writeU32(static_cast<uint32_t>(f->payload.size()));
                    out.write(f->payload.data(), f->payload.size());
                    continue;
                }
                // Children were added to it: the old bytes no longer tell the node.
                LogStream(Channels::error(), n->getName())
                    << "class " << f->className << " is not known here: the node was changed, its own content is "
                    << "lost and it is saved as a group";
            }
        }
        const char* cls = n->getType()->name ? n->getType()->name : "ScnGroup";
        uint32_t len = static_cast<uint32_t>(std::strlen(cls));
        out.writeU32(len);
        out.write(cls, len);
        size_t at = out.tell();
        out.writeU32(0);
        n->write(out);
        out.patchU32(at, static_cast<uint32_t>(out.tell() - at - 4));
    }
}

void ScnMFNodeBase::assign(const ScnField& other)
{
    const ScnMFNodeBase& src = static_cast<const ScnMFNodeBase&>(other);
    if (&src == this) return;
    release();
    for (ScnNode* n = src.m_first; n; n = n->m_next)
        if (ScnNode* c = n->instantiate()) append(c);
}

// -- ScnGroup -------------------------------------------------------------------

ScnNodeType ScnGroup::s_type;

ScnGroup::ScnGroup()
{
    name = "group";
}

ScnNode* ScnGroup::findChild(const std::string& childName)
{
    for (m_cursor = children.first(); m_cursor; m_cursor = m_cursor->next())
        if (m_cursor->getName() == childName) return m_cursor;
    return nullptr;
}

ScnNode* ScnGroup::getChild(int index)
{
    if (index < 0) return nullptr;
    return children.nodeAt(index);
}

void ScnGroup::addLuaMethods(ScnLuaClass<ScnGroup>& c)
{
    c.add("getChild", &ScnGroup::luaGetChild);
}

int ScnGroup::luaGetChild(lua_State* L)
{
    // A number is truncated, as lua_tointeger would; anything else names no child.
    double index = lua_type(L, 1) == LUA_TNUMBER ? lua_tonumber(L, 1) : -1;
    if (index >= 0 && index <= 2147483647.0)
        ScnLua::pushNode(L, getChild(static_cast<int>(index)));
    else
        lua_pushnil(L);
    return 1;
}

int ScnGroup::indexOfChild(const ScnNode* node)
{
    int i = 0;
    for (ScnNode* n = children.first(); n; n = n->next(), ++i)
        if (n == node) return i;
    return -1;
}

void ScnGroup::unlink(ScnNode* node)
{
    ScnNode* p = node->m_parent;
    if (p) {
        // Only a list that really holds the node may be changed.
        for (int i = 0; i < p->fieldCount(); ++i) {
            auto* list = dynamic_cast<ScnMFNodeBase*>(p->field(i));
            if (!list) continue;
            bool holds = false;
            for (ScnNode* n = list->m_first; n; n = n->m_next)
                if (n == node) { holds = true; break; }
            if (!holds) continue;
            if (list->m_first == node) list->m_first = node->m_next;
            if (list->m_last == node) list->m_last = node->m_prev;
            --list->m_count;
            break;
        }
    }
    if (node->m_prev) node->m_prev->m_next = node->m_next;
    if (node->m_next) node->m_next->m_prev = node->m_prev;
    node->m_prev = node->m_next = nullptr;
    node->m_parent = nullptr;
}

void ScnGroup::addFirst(ScnNode* child)
{
    if (!child) return;
    ScnNode* old = child->parent();
    if (old && old->isInstanceWrapper()) {
        // The child stays inside its instance; the instance leaves this group.
        if (old->parent() == this) remove(old);
        return;
    }
    bool held = old != nullptr;
    if (held) unlink(child);
    child->m_parent = this;
    child->m_prev = nullptr;
    child->m_next = children.m_first;
    if (children.m_first) children.m_first->m_prev = child;
    children.m_first = child;
    if (!children.m_last) children.m_last = child;
    ++children.m_count;
    if (!held) child->ref();
}

void ScnGroup::insertBefore(ScnNode* child, ScnNode* sibling)
{
    if (!child || child == sibling) return;
    // Move the outermost instance wrapper, not the node inside it.
    ScnNode* mover = child;
    while (mover->parent() && mover->parent()->isInstanceWrapper()) mover = mover->parent();
    bool held = mover->parent() != nullptr;
    if (held) unlink(mover);
    if (sibling && sibling->parent() != this) sibling = nullptr;
    mover->m_parent = this;
    if (sibling) {
        mover->m_next = sibling;
        mover->m_prev = sibling->m_prev;
        if (sibling->m_prev)
            sibling->m_prev->m_next = mover;
        else
            children.m_first = mover;
        sibling->m_prev = mover;
    } else {
        ScnNode* tail = children.m_last;
        mover->m_prev = tail;
        mover->m_next = nullptr;
        if (tail)
            tail->m_next = mover;
        else
            children.m_first = mover;
        children.m_last = mover;
    }
    ++children.m_count;
    if (!held) mover->ref();
}

void ScnGroup::remove(ScnNode* child)
{
    if (!child || child->parent() != this || indexOfChild(child) < 0) return;
    unlink(child);
    if (child->m_refCount) --child->m_refCount;
}

void ScnGroup::replace(ScnNode* oldNode, ScnNode* newNode)
{
    if (!oldNode || !newNode || oldNode == newNode || oldNode->parent() != this || indexOfChild(oldNode) < 0) return;
    if (newNode->parent()) {
        unlink(newNode);
        if (newNode->m_refCount) --newNode->m_refCount;
    }
    newNode->m_parent = this;
    newNode->m_prev = oldNode->m_prev;
    newNode->m_next = oldNode->m_next;
    if (oldNode->m_prev)
        oldNode->m_prev->m_next = newNode;
    else
        children.m_first = newNode;
    if (oldNode->m_next)
        oldNode->m_next->m_prev = newNode;
    else
        children.m_last = newNode;
    newNode->ref();
    oldNode->m_prev = oldNode->m_next = nullptr;
    oldNode->m_parent = nullptr;
    if (oldNode->m_refCount) --oldNode->m_refCount;
}

// A group that is not enabled is skipped by event and render walks; its
// siblings are not.
void ScnGroup::onEvent(ScnAction& action) { action.walk(this, enabled() ? ScnAction::Both : ScnAction::Siblings); }
void ScnGroup::onDestroy(ScnAction& action) { action.walk(this, ScnAction::Both); }
void ScnGroup::onTransform(ScnAction& action) { action.walk(this, ScnAction::Both); }
void ScnGroup::onUpdate(ScnAction& action) { action.walk(this, ScnAction::Both); }
void ScnGroup::onCreate(ScnAction& action) { action.walk(this, ScnAction::Both); }
void ScnGroup::onRender(ScnAction& action) { action.walk(this, enabled() ? ScnAction::Both : ScnAction::Siblings); }

// -- ScnMatrix ------------------------------------------------------------------

ScnNodeType ScnMatrix::s_type;

ScnMatrix::ScnMatrix()
{
    name = "matrix";
}

void ScnMatrix::onTransform(ScnAction& action)
{
    action.walk(this, ScnAction::Both);
}
