#include "runtime/RtnNodes.h"

#include "runtime/AppGlobal.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "runtime/ScnScriptEnv.h"

ScnNodeType RtnGroup::s_type;
ScnNodeType RtnNode::s_type;
ScnNodeType RtnRegister::s_type;
ScnNodeType RtnProcessor::s_type;
RtnProcessor* RtnProcessor::s_current = nullptr;

RtnGroup::RtnGroup()
{
    name = "Scripts";
}

RtnRegister::RtnRegister()
{
    owner = RtnProcessor::s_current;
}

void RtnRegister::addDefaultFunctions()
{
    functions.append("OnTime");
    functions.append("OnDeposit");
    functions.append("OnRemove");
}

RtnProcessor::RtnProcessor()
{
    name = "Main";
}

RtnRegister* RtnProcessor::getRegister(int index) const
{
    return dynamic_cast<RtnRegister*>(colors.get(index));
}

void RtnProcessor::read(ScnInStream& in)
{
    RtnProcessor* saved = s_current;
    s_current = this;
    RtnNode::read(in);
    s_current = saved;
}

void RtnProcessor::write(ScnOutStream& out) const
{
    RtnProcessor* saved = s_current;
    s_current = const_cast<RtnProcessor*>(this);
    RtnNode::write(out);
    s_current = saved;
}

// -- registers: tokens and code ---------------------------------------------------

void RtnRegister::deposit(ScnNode* node)
{
    if (!node) return;
    bool first = marking.count() == 0;
    if (first) node->addEvents(functions);
    marking.append(node);
    if (auto* twin = dynamic_cast<CmdRegister*>(this->twin())) twin->deposit(node->twin(), true);
    ++node->markingCount;
    if (first) tokenType = *node->getType();
}

void RtnRegister::removeToken(int i)
{
    if (i < 0 || i >= marking.count()) return;
    ScnNode* n = marking.path(i).resolve();
    auto* twin = dynamic_cast<CmdRegister*>(this->twin());
    if (n && twin && n->twin()) twin->remove(n->twin(), true);
    marking.removeAt(i);
    if (n && n->markingCount) --n->markingCount;
}

void RtnRegister::setFunctionCode(int i, const std::string& text)
{
    if (i < 0 || i >= functions.count()) return;
    functions.setCode(i, text);
    functions.setModified(i, false);
}

bool RtnRegister::compileFunction(int i)
{
    auto* twin = dynamic_cast<CmdRegister*>(this->twin());
    return twin && twin->recompile(i);
}

const ScnNodeType* RtnRegister::getTokenType()
{
    for (int i = 0; i < marking.count(); ++i)
        if (ScnNode* n = marking.path(i).resolve()) return n->getType();
    return &tokenType;
}

void RtnRegister::depositAll(bool events)
{
    auto* twin = dynamic_cast<CmdRegister*>(this->twin());
    if (!twin) return;
    for (int i = 0; i < marking.count(); ++i)
        if (ScnNode* n = marking.path(i).resolve())
            if (n->twin()) twin->deposit(n->twin(), events);
}

void RtnRegister::removeAll(bool events)
{
    auto* twin = dynamic_cast<CmdRegister*>(this->twin());
    if (!twin) return;
    for (int i = 0; i < marking.count(); ++i)
        if (ScnNode* n = marking.path(i).resolve())
            if (n->twin()) twin->remove(n->twin(), events);
}

// -- processors ---------------------------------------------------------------------

ScnNode* RtnProcessor::instantiate()
{
    // Inside a duplicate the copy stays a design processor.
    if (s_noLink) return duplicate();
    return new CmdProcessor(this);
}

ScnNode* RtnProcessor::duplicate()
{
    // A copy for the editor's clipboard is a design processor.
    auto* copy = new RtnProcessor(*this);
    bool saved = s_noLink;
    s_noLink = true;
    copy->copyFieldsFrom(*this);
    s_noLink = saved;
    return copy;
}

void RtnProcessor::addEvents(ScnMFFunction& f)
{
    // A register that empties and fills again keeps the functions it had.
    for (const char* n : {"OnActivate", "OnDeactivate"})
        if (f.indexOf(n) < 0) f.append(n);
}

void RtnProcessor::removeEvents(ScnMFFunction& f)
{
    f.remove("OnActivate");
    f.remove("OnDeactivate");
}

RtnRegister* RtnProcessor::createRegister(int index)
{
    if (index < 0 || index >= kRegisters || colors.get(index)) return nullptr;
    RtnProcessor* saved = s_current;
    s_current = this;
    auto* reg = new RtnRegister();
    s_current = saved;
    reg->index = index;
    reg->addDefaultFunctions();
    colors.set(index, reg);
    if (auto* cp = dynamic_cast<CmdProcessor*>(twin())) new CmdRegister(cp, reg);
    return reg;
}

bool RtnProcessor::moveRegister(int from, int to)
{
    RtnRegister* reg = getRegister(from);
    if (!reg || to < 0 || to >= kRegisters || colors.get(to)) return false;
    RtnApplication* app = RtnApplication::current();
    // A register standing as a token elsewhere gets a new twin: the holders
    // let the old one go first.
    if (app) app->passTokenTwins(reg, false);
    reg->removeAll(false);
    delete reg->twin();
    colors.take(from);
    colors.set(to, reg);
    reg->index = to;
    if (auto* cp = dynamic_cast<CmdProcessor*>(twin())) new CmdRegister(cp, reg);
    reg->depositAll(false);
    if (app) app->passTokenTwins(reg, true);
    return true;
}

void RtnProcessor::deleteRegister(RtnRegister* reg)
{
    if (!reg || getRegister(reg->index.value) != reg) return;
    reg->removeAll(true);
    for (int i = 0; i < reg->marking.count(); ++i)
        if (ScnNode* n = reg->marking.path(i).resolve())
            if (n->markingCount) --n->markingCount;
    reg->marking.clear();
    // Registers elsewhere that hold this one as a token let it go first.
    if (RtnApplication* app = RtnApplication::current()) app->withdrawTokens(reg);
    delete reg->twin();
    delete colors.take(reg->index.value);
}

void RtnProcessor::setGlobalScript(const std::string& text)
{
    luaglobal = text;
    scriptChanged = true;
}

bool RtnProcessor::runGlobalScript(bool collect)
{
    scriptChanged = false;
    lua_State* L = AppGlobal::luaState();
    auto* cp = dynamic_cast<CmdProcessor*>(twin());
    if (!L || !cp || luaglobal.value.empty()) return true;
    std::string message;
    bool ok = ScnScript::runGlobalText(L, luaglobal.value, cp->environment(), &message);
    if (collect) ScnScript::collectAfterGlobalText(L);
    if (!ok) ScnScript::reportTextError(message.c_str(), this, getName());
    return ok;
}
