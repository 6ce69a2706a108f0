// Traversal base and the walks that do not render.
//
// An action is one walk over a tree. Its visit names the node's hook for this
// kind of action; the hook does its work and continues the walk with a mask
// (1 children, 2 next sibling, 3 both). Siblings are visited in a loop, never
// one call deeper each, so the stack grows only with the depth of the tree.
// Actions allocate nothing in ordinary walks: their stacks are fixed arrays
// inside the object, which lives on the caller's stack. A push beyond a
// stack's size is refused with a message on the error channel and balanced by
// its pop, so nothing is ever written past the arrays.
#pragma once

#include <cstdint>
#include <vector>

#include "node/ScnField.h"
#include "node/ScnNode.h"

class ScnAction {
public:
    enum Walk { Children = 1, Siblings = 2, Both = 3 };
    static constexpr int kMatrixDepth = 20;
    static constexpr int kSavedPointers = 20;
    static constexpr int kInstanceDepth = 10;
    static constexpr int kInstanceNameMax = 200;

    ScnAction();
    virtual ~ScnAction() = default;
    ScnAction(const ScnAction&) = delete;
    ScnAction& operator=(const ScnAction&) = delete;

    // Walks `node` and its subtree, but not its following siblings; then
    // clears the path links below it.
    virtual void apply(ScnNode* node);
    // The sibling step after a node that does not walk its children.
    virtual void continueWalk(ScnNode* node, int mask);
    // Goes on after a node that may have children: bit 1 its first child (or
    // the child its path link names), bit 2 its next sibling.
    virtual void walk(ScnNode* node, int mask);
    // For hooks that set state for the nodes that follow them and restore it
    // after: goes on to the next sibling (the sibling step of walk, with no
    // box of its own), and once the siblings after `node` and their subtrees
    // are walked calls node->afterWalkOn(*this, saved, flag). The calls come
    // at the end of the sibling list, the last asked first, so state set by
    // a long run of such siblings unwinds in order without deep recursion.
    void walkOnThen(ScnNode* node, void* saved = nullptr, int flag = 0);
    // Sets the path links from `node` up through its parents until the parent
    // is `stop` or there is none; returns the top of the chain, for apply.
    virtual ScnNode* buildPath(ScnNode* node, ScnNode* stop);
    // The topmost ancestor; null for null.
    virtual ScnNode* rootOf(ScnNode* node);

    bool handled = false;
    // The compute context handed down to the nodes below (an oclContext).
    void* context = nullptr;

    // Matrix stack; starts with the identity.
    const ScnMatrix16& top() const { return m_matrices[m_top]; }
    bool pushMatrix(const ScnMatrix16& m);
    bool pushMultiplied(const ScnMatrix16& m);  // m times the matrix below
    void popMatrix();
    void inverseTop(ScnMatrix16& out) const;
    int matrixDepth() const { return m_top + 1; }

    // Saved "current" pointers around the walk of a node's children.
    bool pushPointer(void* p);
    void* popPointer();

    // Names of the instances the walk is inside; the bottom record is empty.
    struct InstanceRecord {
        uint32_t sum = 0;
        char name[kInstanceNameMax + 1] = {};
    };
    bool pushInstance(const char* name);
    void popInstance();
    const InstanceRecord& instance() const { return m_instances[m_instanceTop]; }

protected:
    // Double dispatch into the node's hook for this action.
    virtual void visit(ScnNode* node) = 0;
    // Visits a node and then the siblings that the hooks ask for, in a loop:
    // long child lists cannot exhaust the stack. Then runs the afterWalkOn
    // calls asked for along the way.
    void visitChain(ScnNode* node);
    // Reports a refused push, once per walk and stack.
    void overflow(const char* what);

private:
    ScnMatrix16 m_matrices[kMatrixDepth];
    int m_top = 0;
    int m_matrixOverflow = 0;
    void* m_pointers[kSavedPointers] = {};
    int m_pointerCount = 0;
    int m_pointerOverflow = 0;
    InstanceRecord m_instances[kInstanceDepth];
    int m_instanceTop = 0;
    int m_instanceOverflow = 0;
    unsigned m_reported = 0;
    ScnNode* m_pending = nullptr;  // the sibling a hook asked for

    // The afterWalkOn calls still due, across the nested sibling lists.
    struct After {
        ScnNode* node;
        void* saved;
        int flag;
    };
    static constexpr int kAfterInline = 16;
    void pushAfter(const After& a);
    After popAfter();
    After m_after[kAfterInline] = {};
    int m_afterCount = 0;
    // Beyond the inline ones (long runs of such siblings) the calls wait on
    // one list per thread that keeps its capacity from walk to walk, so a
    // steady frame allocates nothing however long its child lists are. A
    // walk started inside a hook stacks its calls above those of the outer
    // walk and takes them off before it returns.
    static std::vector<After>& moreAfter();
};

// Walks that compute bounding boxes: leaves add their own box, groups the box
// of their children and their own.
class ScnActionBoxes : public ScnAction {
public:
    void continueWalk(ScnNode* node, int mask) override;
    void walk(ScnNode* node, int mask) override;
    ScnBox box;
};

class ScnActionEvent : public ScnActionBoxes {
public:
    explicit ScnActionEvent(ScnNode* camera = nullptr) : camera(camera) {}
    ScnNode* camera;
    double nearest = 1.7976931348623157e308;
    ScnNode* hit = nullptr;

protected:
    void visit(ScnNode* node) override { node->onEvent(*this); }
};

class ScnActionUpdate : public ScnActionBoxes {
public:
    ScnActionUpdate(bool flag = false, void* pointer = nullptr) : flag(flag), pointer(pointer) {}
    bool flag;
    void* pointer;

protected:
    void visit(ScnNode* node) override { node->onUpdate(*this); }
};

class ScnActionCreate : public ScnAction {
public:
    explicit ScnActionCreate(void* clContext = nullptr) { context = clContext; }
    void apply(ScnNode* node) override
    {
        m_bound = false;
        ScnAction::apply(node);
    }

protected:
    void visit(ScnNode* node) override;

private:
    // The first node bound by this action may have siblings that were bound
    // earlier; every later one follows its siblings in list order.
    bool m_bound = false;
};

class ScnActionDestroy : public ScnAction {
protected:
    void visit(ScnNode* node) override;
};

class ScnActionTransform : public ScnAction {
public:
    explicit ScnActionTransform(const ScnMatrix16& delta);
    ScnActionTransform(const ScnMatrix16& delta, const ScnMatrix16& scale, const ScnMatrix16& frame);
    ScnMatrix16 delta, scale, frame, frameInverse;
    bool hasDelta = false, hasScale = false;

protected:
    void visit(ScnNode* node) override { node->onTransform(*this); }
};

class ScnActionGetMatrix : public ScnAction {
protected:
    void visit(ScnNode* node) override;
};

class ScnActionGetModelMatrix : public ScnAction {
protected:
    void visit(ScnNode* node) override;
};

// Matrix helpers (column-major, translation in 12, 13, 14).
ScnMatrix16 scnMultiply(const ScnMatrix16& a, const ScnMatrix16& b);
bool scnInverse(const ScnMatrix16& m, ScnMatrix16& out);
ScnBox scnTransformBox(const ScnBox& box, const ScnMatrix16& m);
void scnExtendBox(ScnBox& box, const ScnBox& by);
