// The two field classes of the script side: register slots and token paths.
#pragma once

#include <cstdint>

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

// A path to a node: child indices from the target up to its branch, always
// 408 bytes in a file. The resolved pointer is cached and never trusted from
// a file.
struct RtnPath {
    static constexpr uint32_t kMaxDepth = 100;
    uint32_t depth = 0;
    uint32_t index[kMaxDepth] = {};
    ScnNode* node = nullptr;

    // Finds the node from the application root, once, and caches it.
    ScnNode* resolve();
    // Rebuilds the indices from the live target; false (path kept) when the
    // target does not stand below the application.
    bool rebuild();
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

private:
    std::vector<RtnPath> m_paths;
};
