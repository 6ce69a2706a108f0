#include "runtime/RtnNodes.h"

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
