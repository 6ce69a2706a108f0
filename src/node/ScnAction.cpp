#include "node/ScnAction.h"

#include "node/ScnNode.h"

void ScnAction::apply(ScnNode* start)
{
    if (!start) return;
    ScnNode* savedStop = m_stop;
    m_stop = start;
    visitChain(start);
    m_stop = savedStop;
}

void ScnAction::walk(ScnNode* node)
{
    visitChain(node);
}

void ScnAction::visitChain(ScnNode* node)
{
    ScnNode* saved = m_pending;
    while (node) {
        m_pending = nullptr;
        visit(node);
        node = m_pending;
    }
    m_pending = saved;
}

void ScnAction::continueWalk(ScnNode* node, int mask)
{
    if (mask & Children) visitChain(node->getChild(0));
    if ((mask & Siblings) && node != m_stop) m_pending = node->next();
}
