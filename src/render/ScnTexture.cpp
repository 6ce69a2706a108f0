#include <GL/glew.h>

#include "render/ScnTexture.h"

#include <cstring>

#include <lua.hpp>

#include "compute/OclGlobal.h"
#include "compute/OclLua.h"
#include "node/ScnAction.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "runtime/Channels.h"
#include "runtime/ScnLua.h"

ScnNodeType ScnTexture2D::s_type;
ScnNodeType ScnTexture3D::s_type;

namespace {

// The afterWalkOn flag of a node that entered the shader bindings.
constexpr int kLeaveBindings = 1;

// The pointer of an update walk names the field whose edit asked for it,
// on the design node or on its twin; null: no field. An update walk passes
// other nodes too, whose fields may bear the same names.
bool changedOneOf(const ScnAction& action, const ScnNode& node, const char* const* names)
{
    const auto* update = dynamic_cast<const ScnActionUpdate*>(&action);
    const auto* field = update ? static_cast<const ScnField*>(update->pointer) : nullptr;
    if (!field) return false;
    bool own = false;
    for (const ScnNode* n : {&node, static_cast<const ScnNode*>(node.designPeer())})
        for (int i = 0; n && !own && i < n->fieldCount(); ++i) own = n->field(i) == field;
    if (!own) return false;
    for (; *names; ++names)
        if (std::strcmp(field->name(), *names) == 0) return true;
    return false;
}

uint32_t evaluated(ScnSFScript& f)
{
    const int v = f.evaluate(1);
    return v > 0 ? static_cast<uint32_t>(v) : 0;
}

uint32_t sizeArg(lua_State* L, int idx)
{
    if (!lua_isnumber(L, idx)) luaL_typerror(L, idx, "number");
    const lua_Number v = lua_tonumber(L, idx);
    return v > 0 ? static_cast<uint32_t>(v) : 0;
}

// The context the walk hands down; the scene branch has none of its own, so
// its textures go on the current one, where kernels can reach them.
oclContext* contextOf(const ScnAction& action)
{
    if (action.context) return static_cast<oclContext*>(action.context);
    return OclGlobal::currentContext();
}

}  // namespace

// ---------------------------------------------------------------- shared

template <class O>
void ScnTextureNode<O>::drop()
{
    delete m_source;
    m_source = nullptr;
    delete m_object;
    m_object = nullptr;
}

template <class O>
void ScnTextureNode<O>::onCreate(ScnAction& action)
{
    m_context = contextOf(action);
    drop();
    build();
    action.continueWalk(this, ScnAction::Siblings);
}

template <class O>
void ScnTextureNode<O>::onUpdate(ScnAction& action)
{
    // `source` alone rebuilds nothing: it takes effect with the next of these.
    if (changedOneOf(action, *this, rebuildFields())) {
        m_context = contextOf(action);
        drop();
        build();
    }
    action.continueWalk(this, ScnAction::Both);
}

template <class O>
void ScnTextureNode<O>::onDestroy(ScnAction& action)
{
    drop();
    action.continueWalk(this, ScnAction::Siblings);
}

template <class O>
void ScnTextureNode<O>::onRender(ScnAction& action)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    if (!render || !enabled() || !m_object || !m_object->glId) {
        action.continueWalk(this, ScnAction::Siblings);
        return;
    }
    // A refused entry (more than the bindings hold) is counted and popped alike.
    render->pushBinding(this);
    if (ScnScene::currentShader) onRenderPass(action, ScnScene::currentShader);
    action.walkOnThen(this, nullptr, kLeaveBindings);
}

template <class O>
void ScnTextureNode<O>::afterWalkOn(ScnAction& action, void*, int flag)
{
    if (flag & kLeaveBindings)
        if (auto* render = dynamic_cast<ScnActionRender*>(&action)) render->popBinding();
}

template <class O>
void ScnTextureNode<O>::onRenderPass(ScnAction& action, ScnShader* shader)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    if (!render || !shader || !shader->program || !m_object || !m_object->glId) return;
    const GLint location = glGetUniformLocation(shader->program, getName().c_str());
    // A texture that the shader does not name takes no unit.
    if (location < 0) return;
    uint32_t unit;
    if (stacks()) {
        unit = render->nextTextureUnit++;
    } else {
        // Shares the unit of the texture ahead of it, overriding it there.
        unit = render->nextTextureUnit ? render->nextTextureUnit - 1 : 0;
    }
    glActiveTexture(GL_TEXTURE0 + unit);
    glBindTexture(glTarget(), m_object->glId);
    glUniform1i(location, static_cast<GLint>(unit));
}

template <class O>
int ScnTextureNode<O>::luaGetBuffer(lua_State* L)
{
    if (m_object)
        OclLua::push(L, m_object);
    else
        lua_pushnil(L);
    return 1;
}

template <class O>
int ScnTextureNode<O>::luaGlId(lua_State* L)
{
    if (!m_object) return luaL_error(L, "invalid memory object %s", getName().c_str());
    lua_pushnumber(L, m_object->glId);
    return 1;
}

template class ScnTextureNode<MemTypeImageTexture>;
template class ScnTextureNode<MemTypeTexture3D>;

// ---------------------------------------------------------------- 2D

ScnTexture2D::ScnTexture2D()
{
    name = "glTexture2D";
}

void ScnTexture2D::build()
{
    const uint32_t w = evaluated(dim0), h = evaluated(dim1);
    m_format = cl_image_format{format.value.order, format.value.type};
    m_object = new MemTypeImageTexture(m_context, w, h, &m_format, getName(), &flags.value);
    char path[400];
    MemSource::workspacePath(extension.value.c_str(), path);
    switch (source.value) {
    case 0: m_source = new MemSource(m_object); break;
    case 1: {
        auto* v = new MemSourceVideo(m_object);
        m_source = v;
        v->open(path);
        v->read();
        break;
    }
    case 2: {
        auto* i = new MemSourceImage(m_object);
        m_source = i;
        i->open(path);
        i->read();
        i->close();
        break;
    }
    default: break;  // no source object
    }
}

const char* const* ScnTexture2D::rebuildFields() const
{
    static const char* const names[] = {"extension", "dim0", "dim1", "format", "flags", nullptr};
    return names;
}

unsigned ScnTexture2D::glTarget() const
{
    return GL_TEXTURE_2D;
}

MemSourceVideo* ScnTexture2D::video() const
{
    return dynamic_cast<MemSourceVideo*>(m_source);
}

void ScnTexture2D::onEvent(ScnAction& action)
{
    MemSourceVideo* v = video();
    if (v && v->playing) v->read();
    action.continueWalk(this, ScnAction::Both);
}

void ScnTexture2D::addLuaMethods(ScnLuaClass<ScnTexture2D>& c)
{
    c.add("getBuffer", &ScnTexture2D::luaGetBuffer);
    c.add("glId", &ScnTexture2D::luaGlId);
    c.add("dim", &ScnTexture2D::luaDim);
    c.add("setSize", &ScnTexture2D::luaSetSize);
    c.add("setSource", &ScnTexture2D::luaSetSource);
    c.add("getFrameCount", &ScnTexture2D::luaGetFrameCount);
    c.add("getFrame", &ScnTexture2D::luaGetFrame);
    c.add("setFrame", &ScnTexture2D::luaSetFrame);
    c.add("play", &ScnTexture2D::luaPlay);
    c.add("stop", &ScnTexture2D::luaStop);
    c.add("isPlaying", &ScnTexture2D::luaIsPlaying);
}

int ScnTexture2D::luaDim(lua_State* L)
{
    if (!lua_isnumber(L, 1)) return luaL_typerror(L, 1, "number");
    const lua_Number axis = lua_tonumber(L, 1);
    if (axis == 0) lua_pushnumber(L, dim0.number);
    else if (axis == 1) lua_pushnumber(L, dim1.number);
    else return luaL_argerror(L, 1, "0 or 1 expected");
    return 1;
}

int ScnTexture2D::luaSetSize(lua_State* L)
{
    const uint32_t w = sizeArg(L, 1), h = sizeArg(L, 2);
    // The evaluated values, not the expressions: a rebuild goes back to these.
    dim0.number = static_cast<int>(w);
    dim1.number = static_cast<int>(h);
    if (m_object && m_object->resize(w, h, nullptr)) return 0;
    return luaL_error(L, "unable to resize buffer to (%d,%d)", static_cast<int>(w), static_cast<int>(h));
}

int ScnTexture2D::luaSetSource(lua_State* L)
{
    return MemSourceScript::setSource(L, m_object, m_source, getName().c_str());
}

int ScnTexture2D::luaGetFrameCount(lua_State* L)
{
    return MemSourceScript::getFrameCount(L, m_source);
}

int ScnTexture2D::luaGetFrame(lua_State* L)
{
    return MemSourceScript::getFrame(L, m_source);
}

int ScnTexture2D::luaSetFrame(lua_State* L)
{
    return MemSourceScript::setFrame(L, m_source);
}

int ScnTexture2D::luaPlay(lua_State* L)
{
    return MemSourceScript::play(L, m_source);
}

int ScnTexture2D::luaStop(lua_State* L)
{
    return MemSourceScript::stop(L, m_source);
}

int ScnTexture2D::luaIsPlaying(lua_State* L)
{
    return MemSourceScript::isPlaying(L, m_source);
}

// ---------------------------------------------------------------- 3D

ScnTexture3D::ScnTexture3D()
{
    name = "glTexture3D";
}

void ScnTexture3D::build()
{
    const uint32_t w = evaluated(dimX), h = evaluated(dimY), d = evaluated(dimZ);
    m_format = cl_image_format{format.value.order, format.value.type};
    m_object = new MemTypeTexture3D(m_context, w, h, d, &m_format, getName(), &flags.value);
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

const char* const* ScnTexture3D::rebuildFields() const
{
    static const char* const names[] = {"file", "dimX", "dimY", "dimZ", "format", "flags", nullptr};
    return names;
}

unsigned ScnTexture3D::glTarget() const
{
    return GL_TEXTURE_3D;
}

void ScnTexture3D::addLuaMethods(ScnLuaClass<ScnTexture3D>& c)
{
    c.add("getBuffer", &ScnTexture3D::luaGetBuffer);
    c.add("glId", &ScnTexture3D::luaGlId);
    c.add("dim", &ScnTexture3D::luaDim);
}

int ScnTexture3D::luaDim(lua_State* L)
{
    if (!lua_isnumber(L, 1)) return luaL_typerror(L, 1, "number");
    const lua_Number axis = lua_tonumber(L, 1);
    if (axis == 0) lua_pushnumber(L, dimX.number);
    else if (axis == 1) lua_pushnumber(L, dimY.number);
    else if (axis == 2) lua_pushnumber(L, dimZ.number);
    else return luaL_argerror(L, 1, "0, 1 or 2 expected");
    return 1;
}

// ---------------------------------------------------------------- widget kit

MemTypeImageTexture* scnLoadTexture(const char* path, const MemTypeTexture2D::FLAGS& flags)
{
    // Every such texture shares the default format; the object keeps a pointer to it.
    static const cl_image_format kFormat = {CL_RGBA, CL_UNORM_INT8};
    MemSourceImage picture(nullptr);
    if (!picture.getFileInfo(path)) {
        LogStream(Channels::console(), "") << "Unable to read file " << path;
        return new MemTypeImageTexture(OclGlobal::currentContext(), 64, 64, &kFormat, path, &flags);
    }
    auto* texture =
        new MemTypeImageTexture(OclGlobal::currentContext(), static_cast<uint32_t>(picture.info.image_width),
                                static_cast<uint32_t>(picture.info.image_height), &kFormat, path, &flags);
    picture.memory = texture;
    picture.open(path);
    picture.read();
    picture.close();
    return texture;
}
