#include <GL/glew.h>

#include "render/ScnText.h"

#include <vector>

#include <lua.hpp>

#include "memory/MemFont.h"
#include "node/ScnAction.h"
#include "node/ScnMFFunction.h"
#include "platform/GlContext.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "runtime/ScnLua.h"

ScnNodeType ScnText::s_type;

namespace {
MemTypeFont* s_font = nullptr;
bool s_fontTried = false;

// A field edit on this node or on its design peer.
bool editedHere(const ScnNode& node, const ScnAction& action)
{
    auto* update = dynamic_cast<const ScnActionUpdate*>(&action);
    if (!update || !update->pointer) return false;
    for (const ScnNode* n : {&node, static_cast<const ScnNode*>(node.designPeer()), static_cast<const ScnNode*>(node.twin())}) {
        if (!n) continue;
        for (int i = 0; i < n->fieldCount(); ++i)
            if (n->field(i) == update->pointer) return true;
    }
    return false;
}

// Binds a buffer of `components` floats a vertex to the attribute `name` of
// the program; false when the program has no such attribute.
bool bindAttribute(unsigned program, const char* name, unsigned buffer, int components)
{
    const GLint location = glGetAttribLocation(program, name);
    if (location < 0) return false;
    glEnableVertexAttribArray(static_cast<GLuint>(location));
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    glVertexAttribPointer(static_cast<GLuint>(location), components, GL_FLOAT, GL_FALSE, 0, nullptr);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    return true;
}

void unbindAttribute(unsigned program, const char* name)
{
    const GLint location = glGetAttribLocation(program, name);
    if (location >= 0) glDisableVertexAttribArray(static_cast<GLuint>(location));
}
}  // namespace

ScnText::ScnText()
{
    name = "Text";
}

ScnText::~ScnText()
{
    freeBuffers();
}

MemTypeFont* ScnText::font()
{
    if (!s_font && !s_fontTried && GlContext::ready()) loadFont();
    return s_font;
}

void ScnText::loadFont()
{
    if (!GlContext::ready()) return;  // the first create tries again
    s_fontTried = true;
    delete s_font;
    s_font = memFontByName("FONT.png");
}

void ScnText::freeBuffers()
{
    if (m_buffers[0] && GlContext::ready()) glDeleteBuffers(2, m_buffers);
    m_buffers[0] = m_buffers[1] = 0;
}

void ScnText::build()
{
    m_box = ScnBox{};
    m_count = 0;
    MemTypeFont* f = font();
    if (!f) return;
    const float s = scalar.value;
    f->textBounds(text.value.c_str(), s, m_box);
    std::vector<float> positions, coords;
    static const double kOrigin[3] = {0, 0, 0}, kX[3] = {1, 0, 0}, kY[3] = {0, 1, 0};
    f->textGeometry(positions, coords, text.value.data(), text.value.size(), s, kOrigin, kX, kY);
    m_count = static_cast<int>(positions.size() / 3);
    // Without a context the buffers keep the old text: the next draw
    // builds again rather than read past them.
    m_stale = !m_buffers[0] || !GlContext::ready();
    if (m_stale) return;
    glBindBuffer(GL_ARRAY_BUFFER, m_buffers[0]);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(positions.size() * sizeof(float)), positions.data(),
                 GL_STATIC_DRAW);
    glBindBuffer(GL_ARRAY_BUFFER, m_buffers[1]);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(coords.size() * sizeof(float)), coords.data(),
                 GL_STATIC_DRAW);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void ScnText::setText(const std::string& value)
{
    text = value;
    build();
}

void ScnText::onCreate(ScnAction& action)
{
    if (GlContext::ready()) {
        freeBuffers();
        glGenBuffers(2, m_buffers);
    }
    build();
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnText::onDestroy(ScnAction& action)
{
    freeBuffers();
    action.continueWalk(this, ScnAction::Siblings);
}

void ScnText::onUpdate(ScnAction& action)
{
    if (editedHere(*this, action)) build();
    action.continueWalk(this, ScnAction::Both);
}

void ScnText::onRender(ScnAction& action)
{
    auto* render = dynamic_cast<ScnActionRender*>(&action);
    if (!render || !enabled() || !GlContext::ready() || !m_buffers[0]) {
        action.continueWalk(this, ScnAction::Both);
        return;
    }
    if (m_stale) build();
    ScnShader* shader = ScnScene::currentShader;
    const unsigned program = shader ? shader->program : 0;
    if (program) {
        const GLint sampler = glGetUniformLocation(program, "gs_Characters");
        if (sampler >= 0 && s_font) {
            const uint32_t unit = render->nextTextureUnit++;
            glActiveTexture(GL_TEXTURE0 + unit);
            glBindTexture(GL_TEXTURE_2D, s_font->glId);
            glUniform1i(sampler, static_cast<GLint>(unit));
        }
        bindAttribute(program, "gs_Vertex", m_buffers[0], 3);
        bindAttribute(program, "gs_Texture", m_buffers[1], 2);
    }
    glEnable(GL_BLEND);
    notify(OnPreRender);
    glDrawArrays(GL_TRIANGLES, 0, m_count);
    notify(OnPostRender);
    glDisable(GL_BLEND);
    if (program) {
        // A later draw with fewer attributes must not read these buffers.
        unbindAttribute(program, "gs_Vertex");
        unbindAttribute(program, "gs_Texture");
        glBindTexture(GL_TEXTURE_2D, 0);
    }
    action.continueWalk(this, ScnAction::Both);
}

void ScnText::addEvents(ScnMFFunction& f)
{
    if (f.indexOf("OnPreRender") < 0) f.append("OnPreRender");
    if (f.indexOf("OnPostRender") < 0) f.append("OnPostRender");
}

void ScnText::removeEvents(ScnMFFunction& f)
{
    f.remove("OnPreRender");
    f.remove("OnPostRender");
}

void ScnText::addLuaMethods(ScnLuaClass<ScnText>& c)
{
    c.add("setText", &ScnText::luaSetText);
    c.add("getText", &ScnText::luaGetText);
}

int ScnText::luaSetText(lua_State* L)
{
    if (lua_type(L, 1) == LUA_TSTRING) setText(lua_tostring(L, 1));
    return 0;
}

int ScnText::luaGetText(lua_State* L)
{
    lua_pushlstring(L, text.value.data(), text.value.size());
    return 1;
}
