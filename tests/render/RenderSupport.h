// What the render tests share: a node that draws a quad over the whole view
// with the shader in use, shader texts of one colour, pixel read-back from
// the headless context, and a document opened from an application built in
// the test.
#pragma once

#include <GL/glew.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <lua.hpp>

#include "node/ScnAction.h"
#include "node/ScnNode.h"
#include "platform/GlContext.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/RtnApplication.h"
#include "support/DocumentFixture.h"

// Covers clip space from -1 to 1 at depth 0 when drawn with an identity
// matrix; it reports its render on the console channel so that the order of
// a frame can be read from the messages.
class TestQuad : public ScnNode {
    SCN_NODE(TestQuad, ScnNode)
public:
    TestQuad() { name = "quad"; }
    static bool s_log;

    void onRender(ScnAction& action) override
    {
        if (s_log) LogStream(Channels::console(), "quad") << "render";
        ScnShader* s = ScnScene::currentShader;
        if (s && s->program && GlContext::ready()) {
            GLint loc = glGetAttribLocation(s->program, "gs_Vertex");
            if (loc >= 0) {
                static GLuint vao = 0, vbo = 0;
                if (!vao) {
                    const float v[12] = {-1, -1, 0, 1, -1, 0, 1, 1, 0, -1, 1, 0};
                    glGenVertexArrays(1, &vao);
                    glGenBuffers(1, &vbo);
                    glBindBuffer(GL_ARRAY_BUFFER, vbo);
                    glBufferData(GL_ARRAY_BUFFER, sizeof v, v, GL_STATIC_DRAW);
                }
                glBindVertexArray(vao);
                glBindBuffer(GL_ARRAY_BUFFER, vbo);
                glEnableVertexAttribArray(loc);
                glVertexAttribPointer(loc, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
                glDrawArrays(GL_TRIANGLE_FAN, 0, 4);
                glDisableVertexAttribArray(loc);
                glBindVertexArray(0);
            }
        }
        action.continueWalk(this, ScnAction::Both);
    }
    ScnBox computeBounds() const override
    {
        ScnBox b;
        for (int i = 0; i < 3; ++i) {
            b.min[i] = -1;
            b.max[i] = 1;
        }
        return b;
    }
};

inline void registerTestQuad()
{
    if (!ScnNodeRegistry::find("TestQuad"))
        ScnNodeRegistry::registerClass(TestQuad::s_type, &ScnNode::s_type, "TestQuad", &TestQuad::factory, 2);
}

// A vertex text that ignores the matrices, and a fragment text of one colour.
inline const char* flatVertex()
{
    return "#version 330\nin vec4 gs_Vertex;\nvoid main()\n{\n    gl_Position = gs_Vertex;\n}\n";
}

inline std::string colourFragment(float r, float g, float b)
{
    return "#version 330\nout vec4 outColor;\nvoid main()\n{\n    outColor = vec4(" + std::to_string(r) + ", " +
           std::to_string(g) + ", " + std::to_string(b) + ", 1.0);\n}\n";
}

inline ScnShader* shader(const char* name, const char* vertex, const std::string& fragment)
{
    auto* s = new ScnShader();
    s->name = name;
    s->vertex = vertex;
    s->fragment = fragment;
    return s;
}

inline ScnShader* colourShader(const char* name, float r, float g, float b)
{
    return shader(name, flatVertex(), colourFragment(r, g, b));
}

inline const char* const kMvpVertex =
    "#version 330\nuniform mat4 gs_ModelViewProjectionMatrix;\nin vec4 gs_Vertex;\n"
    "void main() { gl_Position = gs_ModelViewProjectionMatrix * gs_Vertex; }\n";

using Pixel = std::array<int, 4>;

// The pixel at (x, y) of the frame drawn so far (shown first, so that the
// read sees what the frame has drawn up to now).
inline Pixel pixelAt(int x, int y)
{
    Pixel p{-1, -1, -1, -1};
    GlContext* c = GlContext::active();
    if (!c) return p;
    c->swapBuffers();
    std::vector<uint8_t> f = c->readFrame();
    if (f.empty() || x < 0 || y < 0 || x >= c->width() || y >= c->height()) return p;
    const uint8_t* q = f.data() + (static_cast<size_t>(y) * c->width() + x) * 4;
    return Pixel{q[0], q[1], q[2], q[3]};
}

inline Pixel centrePixel()
{
    GlContext* c = GlContext::active();
    return c ? pixelAt(c->width() / 2, c->height() / 2) : Pixel{-1, -1, -1, -1};
}

// Every test here needs the headless context that the test main made.
class GlTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(GlContext::active(), nullptr) << "no headless OpenGL context (Mesa's EGL is needed)";
        ASSERT_TRUE(m_scope.ok());
        Channels::clearAll();
    }
    GlScope m_scope;
};

// A matrix from its elements, column by column.
inline ScnMatrix16 columns(std::initializer_list<double> v)
{
    ScnMatrix16 m;
    std::copy(v.begin(), v.end(), m.m);
    return m;
}

inline void expectMatrix(const ScnMatrix16& got, const ScnMatrix16& want, const char* what = "")
{
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(got.m[i], want.m[i], 1e-12) << what << ", element " << i;
}

// Runs `code` in the global environment and returns its one result as
// text, or "ERROR: " and the message.
inline std::string eval(lua_State* L, const std::string& code)
{
    std::string out;
    if (luaL_loadbuffer(L, code.data(), code.size(), "test") != 0 || lua_pcall(L, 0, 1, 0) != 0)
        out = std::string("ERROR: ") + (lua_tostring(L, -1) ? lua_tostring(L, -1) : "?");
    else
        out = lua_isnil(L, -1) ? "nil" : lua_tostring(L, -1) ? lua_tostring(L, -1) : "?";
    lua_pop(L, 1);
    return out;
}

// Writes an application as the editor saves it: references resolved
// against the application itself.
inline bool writeApp(RtnApplication& app, const std::string& path, std::string& error)
{
    RtnMFRef::s_root = &app;
    const bool ok = app.writeFile(path, error);
    RtnMFRef::s_root = nullptr;
    return ok;
}

// A document in a workspace of its own, its view the size of the headless
// context, opened from an application that the test builds.
class RenderDoc : public DocumentFixture {
protected:
    void SetUp() override
    {
        DocumentFixture::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_NE(GlContext::active(), nullptr) << "no headless OpenGL context (Mesa's EGL is needed)";
        registerTestQuad();
        m_width = GlContext::active()->width();
        m_height = GlContext::active()->height();
        m_doc.setView(m_width, m_height, true);
    }
    void TearDown() override
    {
        TestQuad::s_log = false;
        DocumentFixture::TearDown();
    }
    // Saves the application and opens the file; what the opening said is
    // dropped unless the test reads it.
    void openApp(RtnApplication& app, bool keepMessages = false)
    {
        std::string error;
        ASSERT_TRUE(writeApp(app, m_ws / "test.3Dm", error)) << error;
        ASSERT_TRUE(m_doc.open("test.3Dm", error)) << error;
        if (!keepMessages) drain();
    }
    void tick()
    {
        m_doc.tick();
        m_clock.advance(25);
    }
    static void lua(const std::string& chunk)
    {
        lua_State* L = AppGlobal::luaState();
        ASSERT_EQ(luaL_loadstring(L, chunk.c_str()), 0) << lua_tostring(L, -1);
        ASSERT_EQ(lua_pcall(L, 0, 0, 0), 0) << lua_tostring(L, -1);
    }
    // The message of the error the chunk raises.
    static std::string luaError(const std::string& chunk)
    {
        lua_State* L = AppGlobal::luaState();
        if (luaL_loadstring(L, chunk.c_str()) != 0 || lua_pcall(L, 0, 0, 0) == 0) return "(no error)";
        std::string e = lua_tostring(L, -1);
        lua_pop(L, 1);
        return e;
    }
    static std::string global(const char* name)
    {
        lua_State* L = AppGlobal::luaState();
        lua_getglobal(L, name);
        const char* s = lua_tostring(L, -1);
        std::string out = s ? s : "nil";
        lua_pop(L, 1);
        return out;
    }
    int m_width = 0, m_height = 0;
};
