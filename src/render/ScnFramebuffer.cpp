#include <GL/glew.h>

#include "render/ScnFramebuffer.h"

#include <algorithm>
#include <string>

#include "compute/OclGlobal.h"
#include "compute/OclLua.h"
#include "memory/MemGLObjects.h"
#include "memory/MemStatistics.h"
#include "node/ScnAction.h"
#include "node/ScnMFFunction.h"
#include "node/ScnStream.h"
#include "platform/GlContext.h"
#include "render/ScnCamera.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/ScnLua.h"

namespace {
const GLenum kColourAttachments[ScnFramebuffer::kMaxTargets] = {GL_COLOR_ATTACHMENT0, GL_COLOR_ATTACHMENT1,
                                                               GL_COLOR_ATTACHMENT2, GL_COLOR_ATTACHMENT3};
// The key of the root in the node's script table: no script can spell it.
char s_rootKey;
}  // namespace

ScnNodeType ScnFramebuffer::s_type;

const char* const ScnFramebuffer::kDefaultPreRender =
    "gl.glViewport(0,0,event:dim(0),event:dim(1))\ngl.glDisable(gl.GL_BLEND)\ngl.glEnable(gl.GL_DEPTH_TEST)\n"
    "gl.glClear(gl.GL_DEPTH_BUFFER_BIT)\ngl.glClear(gl.GL_COLOR_BUFFER_BIT)\n";

ScnFramebuffer::ScnFramebuffer()
{
    name = "framebuffer";
}

ScnFramebuffer::~ScnFramebuffer()
{
    for (ScnCamera* c : m_viewers) c->m_display = nullptr;
    destroyTargets();
}

void ScnFramebuffer::read(ScnInStream& in)
{
    ScnNode::read(in);
    flags.value.w[0] = 2;
}

ScnNode* ScnFramebuffer::getChild(int index)
{
    return index < 0 ? nullptr : shaders.nodeAt(index);
}

int ScnFramebuffer::indexOfChild(const ScnNode* node)
{
    int i = 0;
    for (ScnNode* n = shaders.first(); n; n = n->next(), ++i)
        if (n == node) return i;
    return -1;
}

// -- targets ----------------------------------------------------------------------

unsigned ScnFramebuffer::textureOf(int i) const
{
    MemTypeFboTarget* t = target(i);
    return t ? t->glId : 0;
}

void ScnFramebuffer::createTargets(void* context)
{
    destroyTargets();
    GlScope gl;
    if (!gl.ok()) return;  // without a context nothing is drawn anyway
    if (width.value < 1 || height.value < 1) {
        LogStream(Channels::error(), getName()) << "Error creating frame buffer: size " << width.value << " x "
                                                << height.value;
        return;
    }
    auto* ctx = static_cast<oclContext*>(context ? context : OclGlobal::currentContext());
    m_count = std::clamp(attachment.value, 1, kMaxTargets);
    m_format = cl_image_format{format.value.order, format.value.type};
    const auto w = static_cast<uint32_t>(width.value), h = static_cast<uint32_t>(height.value);
    for (int i = 0; i < m_count; ++i)
        m_targets[i] = new MemTypeFboTarget(ctx, w, h, &m_format, "fbo attachment " + std::to_string(i), &flags.value);

    glGenRenderbuffers(1, &renderbuffer);
    glBindRenderbuffer(GL_RENDERBUFFER, renderbuffer);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width.value, height.value);
    glBindRenderbuffer(GL_RENDERBUFFER, 0);
    m_depthBytes = int64_t{width.value} * height.value * 3;
    MemStatistics::add(m_depthBytes);

    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    for (int i = 0; i < m_count; ++i)
        glFramebufferTexture2D(GL_FRAMEBUFFER, kColourAttachments[i], GL_TEXTURE_2D, m_targets[i]->glId, 0);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, renderbuffer);
    // An incomplete target is kept: drawing into it just shows nothing.
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
        LogStream(Channels::error(), getName()) << "Error creating frame buffer";
    GlPlatform::bindScreen();
}

void ScnFramebuffer::destroyTargets()
{
    if (fbo || renderbuffer) {
        GlScope gl;
        if (gl.ok()) {
            if (fbo) glDeleteFramebuffers(1, &fbo);
            if (renderbuffer) glDeleteRenderbuffers(1, &renderbuffer);
        }
    }
    fbo = renderbuffer = 0;
    MemStatistics::remove(m_depthBytes);
    m_depthBytes = 0;
    // Scripts that kept a target hold a dead value from here on.
    for (MemTypeFboTarget*& t : m_targets) {
        delete t;
        t = nullptr;
    }
    m_count = 0;
}

// -- walks ------------------------------------------------------------------------

void ScnFramebuffer::onCreate(ScnAction& action)
{
    createTargets(action.context);
    action.walk(this, ScnAction::Both);
}

void ScnFramebuffer::onDestroy(ScnAction& action)
{
    destroyTargets();
    action.walk(this, ScnAction::Both);
}

void ScnFramebuffer::onUpdate(ScnAction& action)
{
    auto* update = dynamic_cast<ScnActionUpdate*>(&action);
    if (update && update->pointer) {
        const ScnField* changed = static_cast<const ScnField*>(update->pointer);
        if (changed == &width || changed == &height || changed == &attachment || changed == &format ||
            changed == &flags)
            createTargets(action.context);
    }
    action.walk(this, ScnAction::Both);
}

void ScnFramebuffer::onRender(ScnAction& action)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    if (!render) return;
    if (ScnScene::currentShader) onRenderPass(action, ScnScene::currentShader);
    // It feeds every shader met from here to the end of the walk; the walk
    // itself stops here.
    render->pushBinding(this);
}

void ScnFramebuffer::onRenderPass(ScnAction& action, ScnShader* shader)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    const unsigned texture = textureOf(0);
    if (!render || !shader || !shader->program || !texture) return;
    const GLint location = glGetUniformLocation(shader->program, getName().c_str());
    if (location < 0) return;
    const GLuint unit = render->nextTextureUnit++;
    glActiveTexture(GL_TEXTURE0 + unit);
    glBindTexture(GL_TEXTURE_2D, texture);
    glUniform1i(location, static_cast<GLint>(unit));
    glActiveTexture(GL_TEXTURE0);
}

// -- drawing into it ---------------------------------------------------------------

bool ScnFramebuffer::scripted() const
{
    // The register holds the design node; a node made outside a document
    // counts its own listeners.
    const ScnNode* design = designPeer();
    return design ? design->markingCount > 0 : listenerCount() > 0;
}

bool ScnFramebuffer::begin()
{
    if (!fbo || !GlContext::ready()) return false;
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glDrawBuffers(m_count, kColourAttachments);
    if (!scripted()) {
        glViewport(0, 0, width.value, height.value);
        glDisable(GL_BLEND);
        glEnable(GL_DEPTH_TEST);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    }
    notify(OnPreRender);
    return true;
}

void ScnFramebuffer::end()
{
    glUseProgram(0);
    notify(OnPostRender);
    GlPlatform::bindScreen();
    glDisable(GL_DEPTH_TEST);
}

void ScnFramebuffer::addEvents(ScnMFFunction& f)
{
    if (f.indexOf("OnPreRender") < 0) f.append("OnPreRender", kDefaultPreRender);
    if (f.indexOf("OnPostRender") < 0) f.append("OnPostRender");
}

void ScnFramebuffer::removeEvents(ScnMFFunction& f)
{
    f.remove("OnPreRender");
    f.remove("OnPostRender");
}

// -- the root ----------------------------------------------------------------------

// The root is kept in the node's own script table, as the group's script
// value: a group deleted later leaves a dead value there, never a dangling
// pointer, and the entry goes with the framebuffer's script object.
ScnGroup* ScnFramebuffer::root() const
{
    lua_State* L = AppGlobal::luaState();
    if (!m_hasRoot || !L || !getLuaRef() || !lua_checkstack(L, 4)) return nullptr;
    ScnLua::pushNode(L, const_cast<ScnFramebuffer*>(this));
    ScnGroup* group = nullptr;
    if (lua_isuserdata(L, -1)) {
        lua_getfenv(L, -1);
        if (lua_istable(L, -1)) {
            lua_pushlightuserdata(L, &s_rootKey);
            lua_rawget(L, -2);
            group = ScnLuaClass<ScnGroup>::check(L, -1);
            lua_pop(L, 1);
        }
        lua_pop(L, 1);
    }
    lua_pop(L, 1);
    return group;
}

// -- script methods ----------------------------------------------------------------

void ScnFramebuffer::addLuaMethods(ScnLuaClass<ScnFramebuffer>& c)
{
    c.add("dim", &ScnFramebuffer::luaDim);
    c.add("setRoot", &ScnFramebuffer::luaSetRoot);
    c.add("getBuffer", &ScnFramebuffer::luaGetBuffer);
    c.add("glId", &ScnFramebuffer::luaGlId);
}

int ScnFramebuffer::luaDim(lua_State* L)
{
    if (lua_type(L, 1) != LUA_TNUMBER) return luaL_typerror(L, 1, "number");
    const lua_Number axis = lua_tonumber(L, 1);
    if (axis == 0)
        lua_pushnumber(L, width.value);
    else if (axis == 1)
        lua_pushnumber(L, height.value);
    else
        return luaL_argerror(L, 1, "0 or 1 exprected");
    return 1;
}

int ScnFramebuffer::luaSetRoot(lua_State* L)
{
    // Any call clears the root first, a refused one included.
    m_hasRoot = false;
    ScnLua::pushNode(L, this);
    if (!lua_isuserdata(L, -1)) return luaL_error(L, "%s: no script object", getName().c_str());
    lua_getfenv(L, -1);
    lua_pushlightuserdata(L, &s_rootKey);
    lua_pushnil(L);
    lua_rawset(L, -3);
    if (!ScnLuaClass<ScnGroup>::check(L, 1)) return luaL_typerror(L, 1, "group node");
    lua_pushlightuserdata(L, &s_rootKey);
    lua_pushvalue(L, 1);
    lua_rawset(L, -3);
    m_hasRoot = true;
    return 0;
}

int ScnFramebuffer::luaGetBuffer(lua_State* L)
{
    if (lua_type(L, 1) != LUA_TNUMBER) return luaL_typerror(L, 1, "number");
    const lua_Number i = lua_tonumber(L, 1);
    if (!(i >= 0 && i < std::clamp(attachment.value, 1, kMaxTargets))) return luaL_argerror(L, 1, "buffer index out of range");
    MemTypeFboTarget* t = target(static_cast<int>(i));
    if (t)
        OclLua::push(L, t);
    else
        lua_pushnil(L);  // no target without a context
    return 1;
}

int ScnFramebuffer::luaGlId(lua_State* L)
{
    if (lua_isnoneornil(L, 1)) {
        lua_pushnumber(L, fbo);
        return 1;
    }
    if (lua_type(L, 1) != LUA_TNUMBER) return luaL_typerror(L, 1, "number");
    const lua_Number i = lua_tonumber(L, 1);
    const unsigned texture = i >= 0 && i < kMaxTargets ? textureOf(static_cast<int>(i)) : 0;
    if (!texture) {
        // Kept inside int for the message; NaN shows as -1.
        const int shown = i >= -2147483648.0 && i <= 2147483647.0 ? static_cast<int>(i) : -1;
        return luaL_error(L, "invalid attachment index %d", shown);
    }
    lua_pushnumber(L, texture);
    return 1;
}
