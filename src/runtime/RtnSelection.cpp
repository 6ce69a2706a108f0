#include "runtime/RtnSelection.h"

#include <algorithm>

RtnSelection& RtnSelection::instance()
{
    static RtnSelection s;
    return s;
}

int RtnSelection::bitOf(Event e)
{
    int b = 0;
    for (unsigned v = e; v > 1; v >>= 1) ++b;
    return b;
}

bool RtnSelection::addObserver(Observer* o)
{
    if (!o || m_observers.size() >= kMaxObservers) return false;
    m_observers.push_back(o);
    return true;
}

void RtnSelection::removeObserver(Observer* o)
{
    m_observers.erase(std::remove(m_observers.begin(), m_observers.end(), o), m_observers.end());
}

void RtnSelection::raise(Event e)
{
    // Observers may raise events of their own; each sees its own bit.
    uint32_t saved = bits.mask;
    bits.mask = 0;
    bits.set(bitOf(e));
    for (size_t i = 0; i < m_observers.size(); ++i) (*m_observers[i])(*this);
    bits.mask = saved;
}

void RtnSelection::setApplication(RtnApplication* app)
{
    application = app;
    raise(ApplicationOpened);
}

void RtnSelection::clearApplication()
{
    application = nullptr;
    raise(ApplicationClosed);
}

void RtnSelection::setProcessor(RtnProcessor* p)
{
    processor = p;
    raise(ProcessorSelected);
}

void RtnSelection::clearProcessor()
{
    processor = nullptr;
    raise(ProcessorCleared);
}

void RtnSelection::setRegister(RtnRegister* r)
{
    reg = r;
    raise(RegisterSelected);
}

void RtnSelection::clearRegister()
{
    reg = nullptr;
    raise(RegisterCleared);
}

void RtnSelection::setFunction(int index)
{
    function = index;
    raise(FunctionSelected);
}

void RtnSelection::clearFunction()
{
    function = -1;
    raise(FunctionCleared);
}

void RtnSelection::setNode(ScnNode* n)
{
    if (node) raise(NodeDeselected);
    node = n;
    if (n) raise(NodeSelected);
}

void RtnSelection::setRunState(int state)
{
    runState = state;
    raise(RunStateChanged);
}

void RtnSelection::saveComing()
{
    raise(SaveComing);
}

void RtnSelection::beginRebuild()
{
    raise(TreeRebuilding);
    keptNode = node;
    setNode(nullptr);
}

void RtnSelection::endRebuild()
{
    setNode(keptNode);
    keptNode = nullptr;
    raise(TreeRebuilt);
}
