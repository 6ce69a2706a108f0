// The node tree: ScnNode, ScnGroup, ScnMatrix, the class registry and the
// fields that hold nodes.
//
// Child lists are intrusive (each node carries its parent, next, prev and path
// link) so that walking a tree never allocates. A group owns its children by a
// reference count that only child lists and token queues touch.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "node/FCTFunctor.h"
#include "node/ScnField.h"

class ScnNode;
class ScnGroup;
class ScnAction;
class ScnShader;
class ScnMFFunction;
struct lua_State;
template <class T>
class ScnLuaClass;

using ScnFactory = ScnNode* (*)();

// One static record per class.
struct ScnNodeType {
    uint32_t id = 0;
    uint32_t category = 0;
    const char* name = nullptr;
    ScnFactory factory = nullptr;
    int luaClassRef = 0;
};

namespace ScnNodeRegistry {
// Room for ids below this; the sentinel "no parent" record has this id.
constexpr uint32_t kMaxTypes = 149;
// The category mask that creation by name tests.
constexpr uint32_t kActiveMask = 0xFFFF;

ScnNodeType& noParent();
// Registers a class after its parent. Registering a record twice keeps the first.
void registerClass(ScnNodeType& type, ScnNodeType* parent, const char* name, ScnFactory factory, uint32_t category);
void registerAlias(const char* alias, ScnNodeType& type);
// Class map first, then aliases; null when neither knows the name.
ScnNodeType* find(const std::string& name);
// Creation by name: an unknown name, or a class outside the active mask, gives a group.
ScnNode* create(const std::string& name, bool* known = nullptr);
const ScnNodeType* parentOf(const ScnNodeType& type);
// True when `type` is `base` or derives from it.
bool isA(const ScnNodeType* type, const ScnNodeType& base);
uint32_t count();
}

// The format version of the document being read; a class's read may test it
// to fill in defaults for fields that older files lack.
namespace ScnFile {
extern uint32_t formatVersion;
constexpr uint32_t kCurrentVersion = 2000;
}

// What the script bridge does for nodes, installed when Lua starts. The node
// layer calls these at the right moments and knows nothing of Lua itself.
struct ScnScriptHooks {
    // Gives a copy of a script-visible class its userdata and tables.
    void (*createObject)(ScnNode* node) = nullptr;
    // Drops a node's userdata when the node is destroyed; a script that kept
    // it holds a dead value afterwards.
    void (*releaseObject)(ScnNode* node) = nullptr;
    // parent.<child's name> = child, in the parent's instance table, unless
    // an earlier sibling of that name holds it: the first sibling wins, as
    // with findChild. `inOrder`: the siblings before `child` were bound in
    // this same walk, so a sibling holding the name is known to be earlier.
    void (*bindName)(ScnNode* parent, ScnNode* child, bool inOrder) = nullptr;
    // parent.<child's name> = nil.
    void (*unbindName)(ScnNode* parent, ScnNode* child) = nullptr;
    // Moves the parent's entry from the old name to the node's present name.
    void (*rename)(ScnNode* node, const std::string& oldName) = nullptr;
};
extern ScnScriptHooks g_scnScriptHooks;

struct ScnBox {
    double min[3] = {1.7976931348623157e308, 1.7976931348623157e308, 1.7976931348623157e308};
    double max[3] = {-1.7976931348623157e308, -1.7976931348623157e308, -1.7976931348623157e308};
    bool isEmpty() const { return min[0] > max[0] || min[1] > max[1] || min[2] > max[2]; }
};

// A linked list of child nodes: u32 count, then per child a node record
// (class name, payload size, payload).
template <class T>
class ScnMFNode;

class ScnMFNodeBase : public ScnField {
public:
    ScnMFNodeBase(ScnNode* owner, const char* name) : ScnField(owner, name), m_owner(owner) {}
    ~ScnMFNodeBase() override { release(); }

    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;
    // Copies the list by instantiating each child in order (duplicating under
    // the no-link flag).
    void assign(const ScnField& other) override;
    uint32_t size() const override { return 0; }
    std::string toText() const override { return std::to_string(m_count); }
    const char* kind() const override { return "nodes"; }
    int nodeCount() const override { return static_cast<int>(m_count); }
    ScnNode* nodeAt(int i) const override;

    ScnNode* first() const { return m_first; }
    ScnNode* last() const { return m_last; }
    uint32_t count() const { return m_count; }
    ScnNode* owner() const { return m_owner; }

    // Releases every child, last first: a child whose count drops to 0 is destroyed.
    void release();
    // Appends a node that has no parent; the list takes one reference.
    void append(ScnNode* node);

private:
    friend class ScnGroup;
    ScnNode* m_owner;
    ScnNode* m_first = nullptr;
    ScnNode* m_last = nullptr;  // so that appending does not walk the list
    uint32_t m_count = 0;
};

template <class T>
class ScnMFNode : public ScnMFNodeBase {
public:
    using ScnMFNodeBase::ScnMFNodeBase;
};

class ScnNode {
public:
    ScnNode();
    ScnNode(const ScnNode& other);
    ScnNode& operator=(const ScnNode&) = delete;

    static ScnNodeType s_type;
    static ScnNode* factory() { return new ScnNode(); }

    // Makes the twin: a copy with links both ways (none under the no-link flag).
    virtual ScnNode* instantiate();
    // A copy with no twin link, for copy and paste.
    virtual ScnNode* duplicate();
    virtual const ScnNodeType* getType() const { return &s_type; }
    virtual ~ScnNode();
    virtual void read(ScnInStream& in);
    virtual void write(ScnOutStream& out) const;
    virtual void onEvent(ScnAction& action);
    virtual void onDestroy(ScnAction& action);
    virtual void onTransform(ScnAction& action);
    virtual void onUpdate(ScnAction& action);
    virtual void onCreate(ScnAction& action);
    virtual void onRender(ScnAction& action);
    // Called by the action once the siblings after this node are walked, for
    // a hook that asked with walkOnThen; `saved` and `flag` are what it gave.
    virtual void afterWalkOn(ScnAction& action, void* saved, int flag);
    virtual void addEvents(ScnMFFunction& functions);
    virtual void removeEvents(ScnMFFunction& functions);
    virtual ScnShader* getShaderNode();
    // Nodes that feed shaders (textures, framebuffers, lights) bind
    // themselves to `shader` here; others do nothing.
    virtual void onRenderPass(ScnAction& action, ScnShader* shader);
    virtual const ScnBox& getBounds() const { return m_bounds; }
    virtual void setBounds(const ScnBox& box);
    virtual ScnBox computeBounds() const { return ScnBox{}; }
    virtual void setName(const std::string& text);
    virtual int getLuaClassRef() const { return getType()->luaClassRef; }
    virtual int getLuaRef() const { return m_luaRef; }
    virtual void setLuaRef(int ref) { m_luaRef = ref; }

    // Group operations; a node that is no group has no children. Nodes that
    // reach children without being groups (framebuffers, programs) override
    // these so that paths can pass through them.
    virtual ScnNode* findChild(const std::string& name);
    virtual ScnNode* getChild(int index);
    virtual int indexOfChild(const ScnNode* node);
    virtual int childCount() const { return 0; }
    // The list that getChild and indexOfChild count in, for walking it once
    // instead of looking each child up by index; null when the children are
    // not one list (or there are none). A class that overrides getChild
    // overrides this too.
    virtual const ScnMFNodeBase* childList() const { return nullptr; }
    // True for the wrappers that group operations treat specially (instances).
    virtual bool isInstanceWrapper() const { return false; }

    // Node events: every listener is told, in list order.
    void notify(int index);
    void addListener(ScnListener* listener);
    void removeListener(ScnListener* listener);
    int listenerCount() const { return static_cast<int>(m_listeners.size()); }

    // Fields in registration order.
    void addField(ScnField* field) { m_fields.push_back(field); }
    int fieldCount() const { return static_cast<int>(m_fields.size()); }
    ScnField* field(int i) const { return m_fields[i]; }
    ScnField* findField(const std::string& name) const;
    // Copies every field from a node of the same class.
    void copyFieldsFrom(const ScnNode& other);

    const std::string& getName() const { return name.value; }
    bool isA(const ScnNodeType& type) const { return ScnNodeRegistry::isA(getType(), type); }

    ScnNode* twin() const { return m_twin; }
    ScnNode* designPeer() const { return m_designPeer; }
    void linkTwin(ScnNode* twin);

    ScnNode* parent() const { return m_parent; }
    ScnNode* next() const { return m_next; }
    ScnNode* prev() const { return m_prev; }
    void setParent(ScnNode* p) { m_parent = p; }

    uint16_t refCount() const { return m_refCount; }
    void ref() { ++m_refCount; }
    // Takes one reference off; true when none is left (the caller destroys).
    bool unref() { return m_refCount == 0 || --m_refCount == 0; }

    bool enabled() const { return m_enabled; }
    void setEnabled(bool on) { m_enabled = on; }

    // Script methods: parent(), prev(), next() give a node or nil; getName()
    // gives "" for no name; setEnabled(flag); getAABBmin(), getAABBmax() give
    // three numbers each.
    static void addLuaMethods(ScnLuaClass<ScnNode>& c);
    int luaParent(lua_State* L);
    int luaPrev(lua_State* L);
    int luaNext(lua_State* L);
    int luaGetName(lua_State* L);
    int luaSetEnabled(lua_State* L);
    int luaGetAABBmin(lua_State* L);
    int luaGetAABBmax(lua_State* L);

    ScnNode* pathLink = nullptr;
    void* treeItem = nullptr;
    uint8_t markingCount = 0;

    // Set by duplicate for the duration of its work: instantiate makes no links.
    static bool s_noLink;

protected:
    // Makes a node of the same class with default fields; instantiate copies
    // the field values into it afterwards.
    virtual ScnNode* makeCopy() const { return new ScnNode(*this); }

private:
    friend class ScnMFNodeBase;
    friend class ScnGroup;
    friend class ScnAction;

    std::vector<ScnField*> m_fields;

public:
    ScnSFString name{this, "name", "node"};

private:
    std::vector<ScnListener*> m_listeners;
    ScnNode* m_twin = nullptr;
    ScnNode* m_designPeer = nullptr;
    ScnNode* m_parent = nullptr;
    ScnNode* m_next = nullptr;
    ScnNode* m_prev = nullptr;
    ScnBox m_bounds;
    double m_diagonal = 0;
    int m_luaRef = 0;
    uint16_t m_refCount = 0;
    bool m_enabled = true;
};

// Declares the class record, type and copy of a node class. The copy
// constructor only builds fresh fields: instantiate copies the values.
#define SCN_NODE_NO_FACTORY(Cls, Base)                                       \
public:                                                                      \
    static ScnNodeType s_type;                                               \
    const ScnNodeType* getType() const override { return &s_type; }          \
    Cls(const Cls& other) : Base(other) {}                                   \
                                                                             \
protected:                                                                   \
    ScnNode* makeCopy() const override { return new Cls(*this); }           \
                                                                             \
private:

// The same with a factory that makes a default node.
#define SCN_NODE(Cls, Base)                                                  \
    SCN_NODE_NO_FACTORY(Cls, Base)                                           \
public:                                                                      \
    static ScnNode* factory() { return new Cls(); }                          \
                                                                             \
private:

class ScnGroup : public ScnNode {
    SCN_NODE(ScnGroup, ScnNode)
public:
    ScnGroup();

    ScnMFNode<ScnNode> children{this, "children"};

    ScnNode* findChild(const std::string& name) override;
    ScnNode* getChild(int index) override;
    int indexOfChild(const ScnNode* node) override;
    int childCount() const override { return static_cast<int>(children.count()); }
    const ScnMFNodeBase* childList() const override { return &children; }

    ScnNode* firstChild() const { return children.first(); }

    // A node of a class this program does not know stands as a group that
    // keeps the class name and the bytes it was read from, so that a save
    // writes it back as it was instead of dropping it.
    struct Foreign {
        std::string className;
        std::vector<uint8_t> payload;
    };
    std::shared_ptr<const Foreign> foreign;

    // Script method getChild(i): the child at i from 0, nil when i is no
    // number or there is no such child.
    static void addLuaMethods(ScnLuaClass<ScnGroup>& c);
    int luaGetChild(lua_State* L);

    // Puts `child` at the front of this group, taking it from its old parent.
    void addFirst(ScnNode* child);
    // Puts `child` (or its outermost instance wrapper) before `sibling`, or at
    // the end when there is no sibling.
    void insertBefore(ScnNode* child, ScnNode* sibling);
    // Unlinks `child`; it is not destroyed, the caller owns it now.
    void remove(ScnNode* child);
    // `newNode` takes the place of `oldNode`, which loses its reference.
    void replace(ScnNode* oldNode, ScnNode* newNode);
    // Appends at the end (a convenience of insertBefore with no sibling).
    void append(ScnNode* child) { insertBefore(child, nullptr); }

    void onEvent(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    void onTransform(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onCreate(ScnAction& action) override;
    void onRender(ScnAction& action) override;

private:
    // Unlinks a node from whatever list holds it, without touching counts.
    static void unlink(ScnNode* node);
    ScnNode* m_cursor = nullptr;
};

class ScnMatrix : public ScnGroup {
    SCN_NODE(ScnMatrix, ScnGroup)
public:
    ScnMatrix();
    ScnSFMatrix worldmatrix{this, "worldmatrix"};
    void onTransform(ScnAction& action) override;
};

// A node held by value inside a field; the field's name is also the node's
// default name. Its bytes are the node's fields with no header.
template <class T>
class ScnSFNode : public ScnField {
public:
    ScnSFNode(ScnNode* owner, const char* name) : ScnField(owner, name) { node.name = name; }
    ScnSFNode(ScnNode* owner, const char* name, const char* nodeName) : ScnField(owner, name)
    {
        node.name = nodeName;
    }
    void read(ScnInStream& in) override
    {
        if (in.enter()) node.read(in);
        in.leave();
    }
    void write(ScnOutStream& out) const override { node.write(out); }
    // Copies the node and links the two as twins (not under the no-link flag).
    void assign(const ScnField& other) override
    {
        const T& src = static_cast<const ScnSFNode<T>&>(other).node;
        node.copyFieldsFrom(src);
        if (!ScnNode::s_noLink) const_cast<T&>(src).linkTwin(&node);
    }
    uint32_t size() const override { return 0; }
    std::string toText() const override { return node.getType()->name ? node.getType()->name : "?"; }
    const char* kind() const override { return "node"; }
    int nodeCount() const override { return 1; }
    ScnNode* nodeAt(int) const override { return const_cast<T*>(&node); }

    T node;
};

// Reads a .3Do object file (class name, then the node's fields). Returns the
// node, or null with a message naming the file in `error`.
ScnNode* scnReadObject(const std::string& path, std::string& error);
ScnNode* scnReadObject(const std::vector<uint8_t>& bytes, const std::string& path, std::string& error);
bool scnWriteObject(const std::string& path, const ScnNode& node, std::string& error);
void scnWriteObject(ScnOutStream& out, const ScnNode& node);
// The message for a failed read: "<path>: file is truncated or damaged at byte N (reason)".
std::string scnDamageMessage(const std::string& path, const ScnInStream& in);
