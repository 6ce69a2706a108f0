#include "memory/MemNodes.h"

#include <cstdio>
#include <cstring>

#include <lua.hpp>

#include "compute/OclLua.h"
#include "node/ScnAction.h"
#include "runtime/AppGlobal.h"
#include "runtime/LuaExt.h"
#include "runtime/ScnLua.h"

ScnNodeType OclBuffer::s_type;
ScnNodeType OclImage2D::s_type;
ScnNodeType OclImage3D::s_type;

namespace {

// The pointer of an update walk names the field whose edit asked for it
// (the design node's or the twin's: compared by name). Null: no field.
bool changedOneOf(const ScnAction& action, const char* const* names)
{
    auto* field = static_cast<const ScnField*>(static_cast<const ScnActionUpdate&>(action).pointer);
    if (!field) return false;
    for (; *names; ++names)
        if (std::strcmp(field->name(), *names) == 0) return true;
    return false;
}

uint32_t evaluated(ScnSFScript& f)
{
    const int v = f.evaluate(1);
    return v > 0 ? static_cast<uint32_t>(v) : 0;
}

// A Lua number as an unsigned size, for the setSize methods.
uint32_t sizeArg(lua_State* L, int idx)
{
    if (!lua_isnumber(L, idx)) luaL_typerror(L, idx, "number");
    const lua_Number v = lua_tonumber(L, idx);
    return v > 0 ? static_cast<uint32_t>(v) : 0;
}

cl_image_format clFormat(const ScnImageFormat& f)
{
    return cl_image_format{f.order, f.type};
}

}  // namespace

// ---------------------------------------------------------------- shared

template <class O>
void OclMemNode<O>::dropObject()
{
    delete m_object;
    m_object = nullptr;
}

template <class O>
void OclMemNode<O>::replace()
{
    const cl_map_flags mapped = m_object ? m_object->mapFlags : 0;
    if (mapped) m_object->unmap(0);
    dropObject();
    build();
    // What a running script had mapped stays mapped across the edit.
    if (mapped && m_object) m_object->map(mapped, 0);
}

template <class O>
void OclMemNode<O>::onCreate(ScnAction& action)
{
    m_context = static_cast<oclContext*>(action.context);
    dropObject();
    build();
    action.continueWalk(this, ScnAction::Siblings);
}

template <class O>
void OclMemNode<O>::onUpdate(ScnAction& action)
{
    if (action.context != m_context || changedOneOf(action, rebuildFields())) {
        m_context = static_cast<oclContext*>(action.context);
        replace();
    }
    action.continueWalk(this, ScnAction::Both);
}

template <class O>
void OclMemNode<O>::onDestroy(ScnAction& action)
{
    dropObject();
    action.continueWalk(this, ScnAction::Siblings);
}

template <class O>
int OclMemNode<O>::luaGetBuffer(lua_State* L)
{
    if (m_object)
        OclLua::push(L, m_object);
    else
        lua_pushnil(L);
    return 1;
}

template class OclMemNode<MemTypeBuffer>;
template class OclMemNode<MemTypeImage2D>;
template class OclMemNode<MemTypeImage3D>;

// ---------------------------------------------------------------- buffers

OclBuffer::OclBuffer()
{
    name = "clBuffer";
}

void OclBuffer::build()
{
    const uint32_t count = evaluated(dim0);
    if (!m_context) return;
    m_object = new MemTypeBuffer(m_context, count, static_cast<uint32_t>(type.value), getName(), cl_mem_flags.value);
}

const char* const* OclBuffer::rebuildFields() const
{
    static const char* const names[] = {"cl_mem_flags", "type", "dim0", nullptr};
    return names;
}

void OclBuffer::addLuaMethods(ScnLuaClass<OclBuffer>& c)
{
    c.add("getBuffer", &OclBuffer::luaGetBuffer);
    c.add("dim", &OclBuffer::luaDim);
    c.add("setSize", &OclBuffer::luaSetSize);
}

int OclBuffer::luaDim(lua_State* L)
{
    if (!lua_isnumber(L, 1)) return luaL_typerror(L, 1, "number");
    if (lua_tonumber(L, 1) != 0) return luaL_argerror(L, 1, "buffer only has 1 dimension");
    lua_pushnumber(L, dim0.number);
    return 1;
}

int OclBuffer::luaSetSize(lua_State* L)
{
    const uint32_t count = sizeArg(L, 1);
    dim0.number = static_cast<int>(count);
    if (m_object && m_object->resize(static_cast<size_t>(clTypeSize(static_cast<uint32_t>(type.value))) * count, nullptr))
        return 0;
    char text[300];
    std::snprintf(text, sizeof text, "(%s): error resizing buffer to (%ul)", getName().c_str(), count);
    return luaL_error(L, "%s", text);
}

// ---------------------------------------------------------------- 2D images

OclImage2D::OclImage2D()
{
    name = "clImage2D";
}

OclImage2D::~OclImage2D()
{
    delete m_source;
}

void OclImage2D::dropObject()
{
    delete m_source;
    m_source = nullptr;
    OclMemNode::dropObject();
}

void OclImage2D::build()
{
    const uint32_t w = evaluated(dim0), h = evaluated(dim1);
    if (!m_context) return;
    const cl_image_format f = clFormat(format.value);
    m_object = new MemTypeImage2D(m_context, w, h, cl_mem_flags.value, &f, getName());
    char path[400];
    MemSource::workspacePath(file.value.c_str(), path);
    if (source.value == 1) {
        auto* v = new MemSourceVideo(m_object);
        m_source = v;
        v->open(path);
        v->read();
    } else if (source.value == 2) {
        auto* i = new MemSourceImage(m_object);
        m_source = i;
        i->open(path);
        i->read();
        i->close();
    } else {
        m_source = new MemSource(m_object);
    }
}

MemSourceVideo* OclImage2D::video() const
{
    return dynamic_cast<MemSourceVideo*>(m_source);
}

void OclImage2D::onEvent(ScnAction& action)
{
    MemSourceVideo* v = video();
    if (v && v->playing) v->read();
    action.continueWalk(this, ScnAction::Both);
}

const char* const* OclImage2D::rebuildFields() const
{
    static const char* const names[] = {"cl_mem_flags", "format", "file", "dim0", "dim1", nullptr};
    return names;
}

void OclImage2D::addLuaMethods(ScnLuaClass<OclImage2D>& c)
{
    c.add("getBuffer", &OclImage2D::luaGetBuffer);
    c.add("dim", &OclImage2D::luaDim);
    c.add("setSize", &OclImage2D::luaSetSize);
    c.add("setSource", &OclImage2D::luaSetSource);
    c.add("getFrameCount", &OclImage2D::luaGetFrameCount);
    c.add("setFrame", &OclImage2D::luaSetFrame);
    c.add("getFrame", &OclImage2D::luaGetFrame);
    c.add("play", &OclImage2D::luaPlay);
    c.add("stop", &OclImage2D::luaStop);
    c.add("isPlaying", &OclImage2D::luaIsPlaying);
}

int OclImage2D::luaDim(lua_State* L)
{
    if (!lua_isnumber(L, 1)) return luaL_typerror(L, 1, "number");
    const lua_Number axis = lua_tonumber(L, 1);
    if (axis == 0) lua_pushnumber(L, dim0.number);
    else if (axis == 1) lua_pushnumber(L, dim1.number);
    else return luaL_argerror(L, 1, "0 or 1");
    return 1;
}

int OclImage2D::luaSetSize(lua_State* L)
{
    const uint32_t w = sizeArg(L, 1), h = sizeArg(L, 2);
    dim0.number = static_cast<int>(w);
    dim1.number = static_cast<int>(h);
    if (m_object && m_object->resize(w, h, nullptr)) return 0;
    return luaL_error(L, "unable to resize buffer to (%d,%d)", static_cast<int>(w), static_cast<int>(h));
}

int OclImage2D::luaSetSource(lua_State* L)
{
    return MemSourceScript::setSource(L, m_object, m_source, getName().c_str());
}

int OclImage2D::luaGetFrameCount(lua_State* L)
{
    return MemSourceScript::getFrameCount(L, m_source);
}

int OclImage2D::luaSetFrame(lua_State* L)
{
    return MemSourceScript::setFrame(L, m_source);
}

int OclImage2D::luaGetFrame(lua_State* L)
{
    return MemSourceScript::getFrame(L, m_source);
}

int OclImage2D::luaPlay(lua_State* L)
{
    return MemSourceScript::play(L, m_source);
}

int OclImage2D::luaStop(lua_State* L)
{
    return MemSourceScript::stop(L, m_source);
}

int OclImage2D::luaIsPlaying(lua_State* L)
{
    return MemSourceScript::isPlaying(L, m_source);
}

// ---------------------------------------------------------------- 3D images

OclImage3D::OclImage3D()
{
    name = "clImage3D";
}

OclImage3D::~OclImage3D()
{
    delete m_source;
}

void OclImage3D::dropObject()
{
    delete m_source;
    m_source = nullptr;
    OclMemNode::dropObject();
}

void OclImage3D::build()
{
    const uint32_t w = evaluated(dim0), h = evaluated(dim1), d = evaluated(dim2);
    if (!m_context) return;
    const cl_image_format f = clFormat(format.value);
    m_object = new MemTypeImage3D(m_context, w, h, d, cl_mem_flags.value, &f, getName());
    if (source.value == 3) {
        char path[400];
        MemSource::workspacePath(file.value.c_str(), path);
        auto* v = new MemSourceVolume(m_object);
        m_source = v;
        v->open(path);
        v->read();
        v->close();
    } else {
        m_source = new MemSource(m_object);
    }
}

const char* const* OclImage3D::rebuildFields() const
{
    static const char* const names[] = {"cl_mem_flags", "format", "file", "dim0", "dim1", "dim2", nullptr};
    return names;
}

void OclImage3D::addLuaMethods(ScnLuaClass<OclImage3D>& c)
{
    c.add("getBuffer", &OclImage3D::luaGetBuffer);
    c.add("dim", &OclImage3D::luaDim);
    c.add("setSize", &OclImage3D::luaSetSize);
}

int OclImage3D::luaDim(lua_State* L)
{
    if (!lua_isnumber(L, 1)) return luaL_typerror(L, 1, "number");
    const lua_Number axis = lua_tonumber(L, 1);
    if (axis == 0) lua_pushnumber(L, dim0.number);
    else if (axis == 1) lua_pushnumber(L, dim1.number);
    else if (axis == 2) lua_pushnumber(L, dim2.number);
    else return luaL_argerror(L, 1, "0, 1 or 2 expected");
    return 1;
}

int OclImage3D::luaSetSize(lua_State* L)
{
    const uint32_t w = sizeArg(L, 1), h = sizeArg(L, 2), d = sizeArg(L, 3);
    dim0.number = static_cast<int>(w);
    dim1.number = static_cast<int>(h);
    dim2.number = static_cast<int>(d);
    if (m_object && m_object->resize(w, h, d, nullptr)) return 0;
    return luaL_error(L, "unable to resize buffer to (%d,%d,%d)", static_cast<int>(w), static_cast<int>(h),
                      static_cast<int>(d));
}
