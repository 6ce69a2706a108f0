#include "compute/OclNodes.h"

#include <lua.hpp>

#include "compute/OclGlobal.h"
#include "compute/OclLua.h"
#include "compute/oclObject.h"
#include "node/ScnAction.h"
#include "node/ScnMFFunction.h"
#include "runtime/Channels.h"
#include "runtime/LuaExt.h"
#include "runtime/RtnApplication.h"
#include "runtime/ScnLua.h"

ScnNodeType OclDevice::s_type;
ScnNodeType OclPlatform::s_type;
ScnNodeType OclProgram::s_type;
ScnNodeType OclFileRef::s_type;

const char* const OclProgram::kDefaultSource = "__kernel void clKernel()\n{\n}";

// -- the device root ---------------------------------------------------------------

OclDevice::OclDevice()
{
    name = "OpenCL";
}

void OclDevice::onUpdate(ScnAction& action)
{
    action.context = OclGlobal::currentContext();
    ScnGroup::onUpdate(action);
}

void OclDevice::onEvent(ScnAction& action)
{
    ScnGroup::onEvent(action);
    // No sweep's work runs into the next.
    if (oclContext* c = OclGlobal::currentContext())
        if (oclDevice* d = c->device(0))
            if (d->hasQueue()) clFinish(d->queue());
}

// -- platforms -----------------------------------------------------------------------

OclPlatform::OclPlatform()
{
    name = "clPlatform";
}

oclContext* OclPlatform::contextFor(bool report)
{
    oclContext* c = OclGlobal::findContext(platform.value);
    if (c || !report) return c;
    oclContext* current = OclGlobal::currentContext();
    LogStream(Channels::error(), getName())
        << "Platform not found, using " << (current ? current->name() : "") << " instead";
    return current;
}

void OclPlatform::onCreate(ScnAction& action)
{
    void* saved = action.context;
    action.context = contextFor(true);
    action.walk(this, ScnAction::Children);
    action.context = saved;
    action.walk(this, ScnAction::Siblings);
}

void OclPlatform::onUpdate(ScnAction& action)
{
    onCreate(action);
}

void OclPlatform::onDestroy(ScnAction& action)
{
    // Children of a context that is not there were never made.
    if (!contextFor(false)) return;
    action.walk(this, ScnAction::Both);
}

// -- programs and file references ---------------------------------------------------------

OclSourceNode::OclSourceNode(const char* fieldName, const char* def) : source(this, fieldName, def) {}

OclSourceNode::OclSourceNode(const OclSourceNode& other) : ScnNode(other), source(this, other.source.name(), "") {}

OclSourceNode::~OclSourceNode()
{
    release();
}

bool OclSourceNode::compile()
{
    if (!m_context) return false;
    m_program = new oclProgram(m_context, getName().c_str(), this);
    if (const std::string* include = includeText()) m_program->addSource(include->c_str());
    m_program->addSource(source.value.c_str());
    if (!m_program->build()) return false;
    cl_kernel handles[1000];
    cl_uint count = 0;
    oclLastError = clCreateKernelsInProgram(m_program->handle(), 1000, handles, &count);
    if (!oclCheck(kernelsCall(), m_program)) return false;
    for (cl_uint i = 0; i < count; ++i) {
        m_program->kernels().push_back(new oclKernel(m_program, handles[i]));
        clReleaseKernel(handles[i]);  // the wrapper holds its own reference
    }
    return true;
}

void OclSourceNode::release()
{
    delete m_program;  // its kernels go with it
    m_program = nullptr;
}

void OclSourceNode::compute()
{
    notify(3);
}

oclKernel* OclSourceNode::getKernel(const std::string& kernelName) const
{
    if (!m_program) return nullptr;
    for (oclKernel* k : m_program->kernels())
        if (kernelName == k->name()) return k;
    return nullptr;
}

void OclSourceNode::onCreate(ScnAction& action)
{
    m_context = static_cast<oclContext*>(action.context);
    compile();
    action.continueWalk(this, ScnAction::Siblings);
}

void OclSourceNode::onDestroy(ScnAction& action)
{
    release();
    action.continueWalk(this, ScnAction::Siblings);
    m_context = nullptr;
}

bool OclSourceNode::updateContext(ScnAction& action)
{
    if (action.context == m_context && !changed) return false;
    release();
    changed = false;
    m_context = static_cast<oclContext*>(action.context);
    compile();
    return true;
}

void OclSourceNode::addEvents(ScnMFFunction& f)
{
    if (f.indexOf("OnCompute") < 0) f.append("OnCompute");
}

void OclSourceNode::removeEvents(ScnMFFunction& f)
{
    f.remove("OnCompute");
}

int OclSourceNode::luaGetKernel(lua_State* L)
{
    if (lua_type(L, 1) != LUA_TSTRING) {
        lua_pushnil(L);
        return 1;
    }
    // Not found: the null object, which the cl functions refuse.
    OclLua::push(L, getKernel(lua_tostring(L, 1)));
    return 1;
}

int OclSourceNode::luaCompute(lua_State*)
{
    compute();
    return 0;
}

OclProgram::OclProgram() : OclSourceNode("source", kDefaultSource)
{
    name = "clProgram";
}

const std::string* OclProgram::includeText() const
{
    return &RtnApplication::currentInclude();
}

void OclProgram::addLuaMethods(ScnLuaClass<OclProgram>& c)
{
    c.add("getKernel", &OclProgram::luaGetKernel);
    c.add("compute", &OclProgram::luaCompute);
}

void OclProgram::onUpdate(ScnAction& action)
{
    updateContext(action);
    action.continueWalk(this, ScnAction::Both);
}

OclFileRef::OclFileRef() : OclSourceNode("", "")
{
    name = "clFile";
}

void OclFileRef::addLuaMethods(ScnLuaClass<OclFileRef>& c)
{
    c.add("getKernel", &OclFileRef::luaGetKernel);
    c.add("compute", &OclFileRef::luaCompute);
}

void OclFileRef::onUpdate(ScnAction& action)
{
    // A file reference does not go on to its siblings in an update.
    updateContext(action);
}
