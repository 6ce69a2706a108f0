#include "runtime/RtnGlobal.h"

#include "runtime/AppGlobal.h"
#include "runtime/AppModule.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnNodes.h"
#include "runtime/ScnLua.h"

void RtnGlobal::init()
{
    VTRACE("RtnGlobal::init()-start");
    {
        ScnLua::GcPause gc;
        ScnLua::openModule(AppModule::open, "app");
        ScnLua::registerNode<RtnGroup>(&ScnGroup::s_type, "RtnGroup", 2);
        ScnLua::registerNode<CmdProcessor>(&ScnNode::s_type, "CmdProcessor", 2);
        ScnLua::registerNode<CmdApplication>(&ScnGroup::s_type, "CmdApplication", 2);
        ScnLua::registerNode<RtnRegister>(&ScnNode::s_type, "RtnRegister", 128);
        ScnLua::registerNode<RtnProcessor>(&ScnNode::s_type, "RtnProcessor", 2);
        ScnLua::registerNode<RtnApplication>(&ScnGroup::s_type, "RtnApplication", 128);
        ScnNodeRegistry::registerAlias("RtnPage", RtnApplication::s_type);
        ScnNodeRegistry::registerAlias("RtnPlace", RtnProcessor::s_type);
        ScnNodeRegistry::registerAlias("RtnPlaceDataColor", RtnRegister::s_type);
    }
    VTRACE("RtnGlobal::init()-done");
}
