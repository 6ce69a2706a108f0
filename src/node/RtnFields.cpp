#include "node/RtnFields.h"

#include <algorithm>
#include <cstring>

#include "node/ScnNode.h"

// -- register slots -----------------------------------------------------------

void RtnMFNode::set(int slot, ScnNode* node)
{
    if (slot < 0 || slot >= kSlots) return;
    if (m_slots[slot] && m_slots[slot] != node) delete m_slots[slot];
    m_slots[slot] = node;
    if (node) node->setParent(m_owner);
}

ScnNode* RtnMFNode::take(int slot)
{
    if (slot < 0 || slot >= kSlots) return nullptr;
    ScnNode* n = m_slots[slot];
    m_slots[slot] = nullptr;
    return n;
}

uint32_t RtnMFNode::mask() const
{
    uint32_t m = 0;
    for (int i = 0; i < kSlots; ++i)
        if (m_slots[i]) m |= 1u << i;
    return m;
}

void RtnMFNode::clear()
{
    for (ScnNode*& n : m_slots) {
        delete n;
        n = nullptr;
    }
}

int RtnMFNode::nodeCount() const
{
    int c = 0;
    for (ScnNode* n : m_slots) c += n != nullptr;
    return c;
}

ScnNode* RtnMFNode::nodeAt(int i) const
{
    for (ScnNode* n : m_slots)
        if (n && i-- == 0) return n;
    return nullptr;
}

void RtnMFNode::read(ScnInStream& in)
{
    uint32_t m = 0;
    if (!in.readU32(m)) return;
    if (!in.enter()) return;
    clear();
    for (int i = 0; i < kSlots && !in.failed(); ++i) {
        if (!(m & (1u << i))) continue;
        uint32_t n = 0;
        std::string cls;
        if (!in.readU32(n)) break;
        if (n > 255) {
            in.fail("class name of " + std::to_string(n) + " bytes");
            break;
        }
        if (!in.readString(cls, n)) break;
        ScnNode* node = ScnNodeRegistry::create(cls);
        set(i, node);
        node->read(in);
    }
    in.leave();
}

void RtnMFNode::write(ScnOutStream& out) const
{
    out.writeU32(mask());
    for (ScnNode* n : m_slots) {
        if (!n) continue;
        const char* cls = n->getType()->name ? n->getType()->name : "ScnGroup";
        uint32_t len = static_cast<uint32_t>(std::strlen(cls));
        out.writeU32(len);
        out.write(cls, len);
        n->write(out);
    }
}

void RtnMFNode::assign(const ScnField& other)
{
    const auto& src = static_cast<const RtnMFNode&>(other);
    if (&src == this) return;
    clear();
    for (int i = 0; i < kSlots; ++i)
        if (src.m_slots[i]) set(i, src.m_slots[i]->instantiate());  // null for run-time objects
}

std::string RtnMFNode::toText() const
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08x", mask());
    return buf;
}

// -- paths --------------------------------------------------------------------

ScnNode* RtnMFRef::s_root = nullptr;
RtnPathIndex* RtnMFRef::s_saveIndex = nullptr;

ScnNode* RtnPathIndex::childAt(ScnNode* parent, uint32_t index)
{
    const ScnMFNodeBase* list = parent->childList();
    if (!list) return parent->getChild(static_cast<int>(index));
    auto [it, fresh] = m_children.try_emplace(parent);
    std::vector<ScnNode*>& children = it->second;
    if (fresh) {
        children.reserve(list->count());
        for (ScnNode* n = list->first(); n; n = n->next()) children.push_back(n);
    }
    return index < children.size() ? children[index] : nullptr;
}

int RtnPathIndex::indexOf(ScnNode* parent, const ScnNode* child)
{
    const ScnMFNodeBase* list = parent->childList();
    if (!list) return parent->indexOfChild(child);
    if (m_placed.insert(parent).second) {
        int i = 0;
        for (ScnNode* n = list->first(); n; n = n->next(), ++i) m_places.try_emplace(n, Place{parent, i});
    }
    auto it = m_places.find(child);
    return it != m_places.end() && it->second.parent == parent ? it->second.index : -1;
}

namespace {

ScnNode* childAt(RtnPathIndex* lookup, ScnNode* parent, uint32_t index)
{
    return lookup ? lookup->childAt(parent, index) : parent->getChild(static_cast<int>(index));
}

int indexOf(RtnPathIndex* lookup, ScnNode* parent, const ScnNode* child)
{
    return lookup ? lookup->indexOf(parent, child) : parent->indexOfChild(child);
}

}  // namespace

ScnNode* RtnPath::resolve(RtnPathIndex* lookup)
{
    if (node || depth == 0 || depth > kMaxDepth || !RtnMFRef::s_root) return node;
    ScnNode* n = childAt(lookup, RtnMFRef::s_root, index[depth - 1]);
    for (int k = static_cast<int>(depth) - 2; k >= 0 && n; --k) n = childAt(lookup, n, index[k]);
    node = n;
    return node;
}

bool RtnPath::rebuild(RtnPathIndex* lookup)
{
    if (!node || !RtnMFRef::s_root) return false;
    uint32_t idx[kMaxDepth];
    uint32_t d = 0;
    ScnNode* n = node;
    while (n->parent()) {
        if (d >= kMaxDepth) return false;
        int i = indexOf(lookup, n->parent(), n);
        if (i < 0) return false;
        idx[d++] = static_cast<uint32_t>(i);
        n = n->parent();
    }
    int top = indexOf(lookup, RtnMFRef::s_root, n);
    if (top < 0 || d >= kMaxDepth) return false;
    idx[d++] = static_cast<uint32_t>(top);
    depth = d;
    std::memcpy(index, idx, d * sizeof(uint32_t));
    return true;
}

void RtnMFRef::read(ScnInStream& in)
{
    uint32_t count = 0;
    if (!in.readU32(count)) return;
    if (!in.checkCount(count, 408, "path count larger than the data that remains")) return;
    // A path in memory is larger than its record in the file: room is made
    // only as far as the remaining bytes could fill it.
    std::vector<RtnPath> paths;
    paths.reserve(std::min<size_t>(count, in.remaining() / sizeof(RtnPath)));
    for (uint32_t i = 0; i < count; ++i) {
        RtnPath& p = paths.emplace_back();
        uint32_t pointerWord;
        if (!in.readU32(p.depth)) return;
        if (p.depth > RtnPath::kMaxDepth) {
            in.fail("path of depth " + std::to_string(p.depth));
            return;
        }
        if (!in.read(p.index, sizeof p.index) || !in.readU32(pointerWord)) return;
        p.node = nullptr;  // a pointer from a file means nothing
    }
    m_paths.swap(paths);
}

void RtnMFRef::write(ScnOutStream& out) const
{
    out.writeU32(static_cast<uint32_t>(m_paths.size()));
    for (const RtnPath& p : m_paths) {
        // Indices are taken fresh from the live tree; a target that is gone
        // keeps its old path.
        RtnPath fresh = p;
        fresh.rebuild(s_saveIndex);
        out.writeU32(fresh.depth);
        out.write(fresh.index, sizeof fresh.index);
        // The pointer word has no meaning in a file; writing 0 keeps saves of
        // one tree identical.
        out.writeU32(0);
    }
}

void RtnMFRef::assign(const ScnField& other)
{
    m_paths = static_cast<const RtnMFRef&>(other).m_paths;
}

std::string RtnMFRef::toText() const
{
    std::string s = "[";
    for (size_t i = 0; i < m_paths.size(); ++i) {
        if (i) s += ", ";
        s += "<";
        for (uint32_t k = 0; k < m_paths[i].depth; ++k) s += (k ? " " : "") + std::to_string(m_paths[i].index[k]);
        s += ">";
    }
    return s + "]";
}

void RtnMFRef::append(ScnNode* target)
{
    RtnPath p;
    p.node = target;
    m_paths.push_back(p);
}

void RtnMFRef::removeAt(int i)
{
    if (i >= 0 && i < count()) m_paths.erase(m_paths.begin() + i);
}
