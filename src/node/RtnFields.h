// The two field classes of the script side: register slots and token paths.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "node/ScnField.h"

class ScnNode;

// 32 slots of owned nodes: a u32 slot mask, then per set bit (from bit 0 up)
// the class name and the node's fields, with no payload size.
class RtnMFNode : public ScnField {
public:
    static constexpr int kSlots = 32;
    RtnMFNode(ScnNode* owner, const char* name) : ScnField(owner, name), m_owner(owner) {}
    ~RtnMFNode() override { clear(); }

    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;
    void assign(const ScnField& other) override;
    uint32_t size() const override { return 0; }
    std::string toText() const override;
    const char* kind() const override { return "slots"; }
    int nodeCount() const override;
    ScnNode* nodeAt(int i) const override;

    ScnNode* get(int slot) const { return slot >= 0 && slot < kSlots ? m_slots[slot] : nullptr; }
    // Stores a node in a slot (the slot must be free); the field owns it.
    void set(int slot, ScnNode* node);
    // Takes a node out of its slot; the caller owns it now.
    ScnNode* take(int slot);
    uint32_t mask() const;
    void clear();

private:
    ScnNode* m_owner;
    ScnNode* m_slots[kSlots] = {};
};

// Children by index, and indices of children, for many paths at once: each
// parent's child list is walked once, on first use, instead of once per path
// and level. It answers as getChild and indexOfChild do, for a tree that does
// not change while it lives: a load counting its markings and a save each
// keep one for that time only.
class RtnPathIndex {
public:
    ScnNode* childAt(ScnNode* parent, uint32_t index);
    int indexOf(ScnNode* parent, const ScnNode* child);

private:
    struct Place {
        const ScnNode* parent;
        int index;
    };
    std::unordered_map<const ScnNode*, std::vector<ScnNode*>> m_children;
    std::unordered_map<const ScnNode*, Place> m_places;  // child -> its parent and index
    std::unordered_set<const ScnNode*> m_placed;  // parents whose children are in m_places
};

// A path to a node: child indices from the target up to its branch, always
// 408 bytes in a file. The resolved pointer is cached and never trusted from
// a file.
struct RtnPath {
    static constexpr uint32_t kMaxDepth = 100;
    uint32_t depth = 0;
    uint32_t index[kMaxDepth] = {};
    ScnNode* node = nullptr;

    // Finds the node from the application root, once, and caches it. With an
    // index, children are looked up in it instead of by walking their lists.
    ScnNode* resolve(RtnPathIndex* lookup = nullptr);
    // Rebuilds the indices from the live target; false (path kept) when the
    // target does not stand below the application.
    bool rebuild(RtnPathIndex* lookup = nullptr);
};

class RtnMFRef : public ScnField {
public:
    RtnMFRef(ScnNode* owner, const char* name) : ScnField(owner, name) {}

    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;
    void assign(const ScnField& other) override;
    uint32_t size() const override { return 0; }
    std::string toText() const override;
    const char* kind() const override { return "paths"; }

    int count() const { return static_cast<int>(m_paths.size()); }
    RtnPath& path(int i) { return m_paths[i]; }
    void append(ScnNode* target);
    void removeAt(int i);
    void clear() { m_paths.clear(); }

    // The application whose branches the paths start from.
    static ScnNode* s_root;
    // While an application is written: the index its paths are rebuilt with.
    static RtnPathIndex* s_saveIndex;

private:
    std::vector<RtnPath> m_paths;
};
