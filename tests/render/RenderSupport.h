// What the render tests share: a node that draws a quad over the whole view
// with the shader in use, shader texts of one colour, and pixel read-back
// from the headless context.
#pragma once

#include <GL/glew.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "node/ScnAction.h"
#include "node/ScnNode.h"
#include "platform/GlContext.h"
#include "render/ScnScene.h"
#include "render/ScnShader.h"
#include "runtime/Channels.h"

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

inline ScnShader* colourShader(const char* name, float r, float g, float b)
{
    auto* s = new ScnShader();
    s->name = name;
    s->vertex = flatVertex();
    s->fragment = colourFragment(r, g, b);
    return s;
}

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
