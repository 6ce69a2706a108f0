// Traversal base. A node's hook does its work and continues the walk with a
// mask: 1 its children, 2 its next sibling, 3 both.
#pragma once

class ScnNode;

class ScnAction {
public:
    enum Walk { Children = 1, Siblings = 2, Both = 3 };
    virtual ~ScnAction() = default;

    // Walks the subtree of `start` only (its siblings are not visited).
    void apply(ScnNode* start);
    // Walks `node` and then its following siblings.
    void walk(ScnNode* node);
    // Continues after `node` with the given mask.
    void continueWalk(ScnNode* node, int mask);

protected:
    // Double dispatch into the node's hook for this action.
    virtual void visit(ScnNode* node) = 0;

private:
    // Visits a node and the siblings its hooks ask for, in a loop rather than
    // by recursion, so that long child lists cannot exhaust the stack.
    void visitChain(ScnNode* node);

    ScnNode* m_stop = nullptr;     // the node whose siblings an apply must not visit
    ScnNode* m_pending = nullptr;  // the sibling a hook asked for
};
