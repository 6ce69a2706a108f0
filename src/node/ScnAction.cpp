#include "node/ScnAction.h"

#include <algorithm>
#include <cstring>

#include <glm/glm.hpp>

#include "runtime/Channels.h"

// -- matrix and box helpers ---------------------------------------------------

static glm::dmat4 toGlm(const ScnMatrix16& m)
{
    glm::dmat4 g;
    std::memcpy(&g[0][0], m.m, sizeof m.m);
    return g;
}

static ScnMatrix16 fromGlm(const glm::dmat4& g)
{
    ScnMatrix16 m;
    std::memcpy(m.m, &g[0][0], sizeof m.m);
    return m;
}

ScnMatrix16 scnMultiply(const ScnMatrix16& a, const ScnMatrix16& b)
{
    return fromGlm(toGlm(a) * toGlm(b));
}

bool scnInverse(const ScnMatrix16& m, ScnMatrix16& out)
{
    glm::dmat4 g = toGlm(m);
    if (glm::determinant(g) == 0.0) return false;
    out = fromGlm(glm::inverse(g));
    return true;
}

ScnBox scnTransformBox(const ScnBox& box, const ScnMatrix16& m)
{
    ScnBox out;
    if (box.isEmpty()) return out;
    for (int c = 0; c < 8; ++c) {
        double p[3] = {(c & 1) ? box.max[0] : box.min[0], (c & 2) ? box.max[1] : box.min[1],
                       (c & 4) ? box.max[2] : box.min[2]};
        for (int i = 0; i < 3; ++i) {
            double v = m.m[i] * p[0] + m.m[4 + i] * p[1] + m.m[8 + i] * p[2] + m.m[12 + i];
            out.min[i] = std::min(out.min[i], v);
            out.max[i] = std::max(out.max[i], v);
        }
    }
    return out;
}

void scnExtendBox(ScnBox& box, const ScnBox& by)
{
    if (by.isEmpty()) return;
    for (int i = 0; i < 3; ++i) {
        box.min[i] = std::min(box.min[i], by.min[i]);
        box.max[i] = std::max(box.max[i], by.max[i]);
    }
}

// -- the walk ----------------------------------------------------------------

ScnAction::ScnAction() = default;

void ScnAction::visitChain(ScnNode* node)
{
    ScnNode* saved = m_pending;
    const int afterBase = m_afterCount;
    while (node) {
        m_pending = nullptr;
        visit(node);
        node = m_pending;
    }
    // The list is done: what its nodes set for their followers unwinds, last first.
    while (m_afterCount > afterBase) {
        After a = popAfter();
        a.node->afterWalkOn(*this, a.saved, a.flag);
    }
    m_pending = saved;
}

std::vector<ScnAction::After>& ScnAction::moreAfter()
{
    static thread_local std::vector<After> more;
    return more;
}

void ScnAction::pushAfter(const After& a)
{
    if (m_afterCount < kAfterInline)
        m_after[m_afterCount] = a;
    else
        moreAfter().push_back(a);
    ++m_afterCount;
}

ScnAction::After ScnAction::popAfter()
{
    --m_afterCount;
    if (m_afterCount < kAfterInline) return m_after[m_afterCount];
    std::vector<After>& more = moreAfter();
    After a = more.back();
    more.pop_back();
    return a;
}

void ScnAction::apply(ScnNode* node)
{
    if (!node) return;
    ScnNode* next = node->m_next;
    node->m_next = nullptr;
    visitChain(node);
    for (ScnNode* n = node; n;) {
        ScnNode* link = n->pathLink;
        n->pathLink = nullptr;
        n = link;
    }
    node->m_next = next;
}

void ScnAction::continueWalk(ScnNode* node, int)
{
    ScnNode* parent = node->parent();
    if (node->next() && !(parent && parent->pathLink)) m_pending = node->next();
}

void ScnAction::walk(ScnNode* node, int mask)
{
    if (mask & Children) {
        if (node->pathLink)
            visitChain(node->pathLink);
        else
            visitChain(node->getChild(0));
    }
    if (mask & Siblings) ScnAction::continueWalk(node, mask);
}

void ScnAction::walkOnThen(ScnNode* node, void* saved, int flag)
{
    pushAfter(After{node, saved, flag});
    ScnAction::continueWalk(node, Siblings);
}

ScnNode* ScnAction::buildPath(ScnNode* node, ScnNode* stop)
{
    if (!node) return nullptr;
    ScnNode* top = node;
    for (ScnNode* p = node->parent(); p && p != stop; p = p->parent()) {
        p->pathLink = top;
        top = p;
    }
    return top;
}

ScnNode* ScnAction::rootOf(ScnNode* node)
{
    while (node && node->parent()) node = node->parent();
    return node;
}

void ScnAction::overflow(const char* what)
{
    unsigned bit = what[0] == 'm' ? 1u : what[0] == 's' ? 2u : 4u;
    if (m_reported & bit) return;
    m_reported |= bit;
    LogStream(Channels::error(), "ScnAction") << what;
}

bool ScnAction::pushMatrix(const ScnMatrix16& m)
{
    if (m_matrixOverflow || m_top + 1 >= kMatrixDepth) {
        ++m_matrixOverflow;
        overflow("matrix nodes nested deeper than 20: the deeper ones are drawn with their parent's matrix");
        return false;
    }
    m_matrices[++m_top] = m;
    return true;
}

bool ScnAction::pushMultiplied(const ScnMatrix16& m)
{
    if (m_matrixOverflow || m_top + 1 >= kMatrixDepth) return pushMatrix(m);
    ScnMatrix16 r = scnMultiply(m_matrices[m_top], m);
    m_matrices[++m_top] = r;
    return true;
}

void ScnAction::popMatrix()
{
    if (m_matrixOverflow)
        --m_matrixOverflow;
    else if (m_top > 0)
        --m_top;
}

void ScnAction::inverseTop(ScnMatrix16& out) const
{
    if (!scnInverse(top(), out)) out = ScnMatrix16{};
}

bool ScnAction::pushPointer(void* p)
{
    if (m_pointerOverflow || m_pointerCount >= kSavedPointers) {
        ++m_pointerOverflow;
        overflow("saved pointers nested deeper than 20");
        return false;
    }
    m_pointers[m_pointerCount++] = p;
    return true;
}

void* ScnAction::popPointer()
{
    if (m_pointerOverflow) {
        --m_pointerOverflow;
        return nullptr;
    }
    return m_pointerCount > 0 ? m_pointers[--m_pointerCount] : nullptr;
}

bool ScnAction::pushInstance(const char* name)
{
    if (m_instanceOverflow || m_instanceTop + 1 >= kInstanceDepth) {
        ++m_instanceOverflow;
        overflow("instances nested deeper than 10");
        return false;
    }
    InstanceRecord& r = m_instances[++m_instanceTop];
    r = InstanceRecord{};
    if (name) {
        size_t n = strnlen(name, kInstanceNameMax);
        std::memcpy(r.name, name, n);
        for (size_t i = 0; i < n; ++i) r.sum += static_cast<unsigned char>(name[i]);
    }
    return true;
}

void ScnAction::popInstance()
{
    if (m_instanceOverflow)
        --m_instanceOverflow;
    else if (m_instanceTop > 0)
        --m_instanceTop;
}

// -- boxes ------------------------------------------------------------------------

void ScnActionBoxes::continueWalk(ScnNode* node, int mask)
{
    ScnBox own = node->computeBounds();
    if (!own.isEmpty()) {
        ScnBox world = scnTransformBox(own, top());
        node->setBounds(world);
        scnExtendBox(box, world);
    }
    ScnAction::continueWalk(node, mask);
}

void ScnActionBoxes::walk(ScnNode* node, int mask)
{
    if (mask & Children) {
        ScnBox kept = box;
        box = ScnBox{};
        ScnAction::walk(node, Children);
        scnExtendBox(box, scnTransformBox(node->computeBounds(), top()));
        node->setBounds(box);
        scnExtendBox(kept, box);
        box = kept;
    }
    if (mask & Siblings) ScnAction::walk(node, Siblings);
}

// -- create and destroy -----------------------------------------------------------

void ScnActionCreate::visit(ScnNode* node)
{
    // Every node after the first one off the path has its earlier siblings
    // visited before it in this walk.
    const bool inOrder = m_bound;
    if (!node->pathLink) m_bound = true;
    node->onCreate(*this);
    ScnNode* parent = node->parent();
    if (!node->pathLink && parent && parent->getLuaRef() && g_scnScriptHooks.bindName)
        g_scnScriptHooks.bindName(parent, node, inOrder);
}

void ScnActionDestroy::visit(ScnNode* node)
{
    ScnNode* parent = node->parent();
    if (!node->pathLink && parent && parent->getLuaRef() && g_scnScriptHooks.unbindName)
        g_scnScriptHooks.unbindName(parent, node);
    node->onDestroy(*this);
}

// -- transforms and matrices ------------------------------------------------------

ScnActionTransform::ScnActionTransform(const ScnMatrix16& d) : ScnActionTransform(d, ScnMatrix16{}, ScnMatrix16{}) {}

ScnActionTransform::ScnActionTransform(const ScnMatrix16& d, const ScnMatrix16& s, const ScnMatrix16& f)
    : delta(d), scale(s), frame(f)
{
    if (!scnInverse(frame, frameInverse)) frameInverse = ScnMatrix16{};
    hasDelta = !delta.isIdentity();
    hasScale = !scale.isIdentity();
}

void ScnActionGetModelMatrix::visit(ScnNode* node)
{
    if (auto* m = dynamic_cast<ScnMatrix*>(node))
        pushMatrix(m->worldmatrix.value);
    else if (!dynamic_cast<ScnGroup*>(node))
        return;
    if (!node->pathLink) return;
    walk(node, Both);
}

void ScnActionGetMatrix::visit(ScnNode* node)
{
    if (!dynamic_cast<ScnGroup*>(node)) return;  // a world is a group too
    if (node->pathLink) walk(node, Both);
}
