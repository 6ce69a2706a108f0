// The headless EGL context: several on one display, and reading frames back
// whatever state the GL calls before the read left behind.
#include <GL/glew.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/GlContext.h"

namespace {

std::unique_ptr<EglContext> make(int w, int h)
{
    std::string error;
    std::unique_ptr<EglContext> c = EglContext::create(w, h, error);
    EXPECT_TRUE(c) << error;
    return c;
}

// Clears the context's frame to one colour and reads back the pixel at (x, y).
std::vector<int> clearAndRead(EglContext& c, float r, float g, float b, int x, int y, std::string* why = nullptr)
{
    if (!c.acquire()) return {};
    glBindFramebuffer(GL_FRAMEBUFFER, c.defaultFramebuffer());
    glClearColor(r, g, b, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    c.swapBuffers();
    std::vector<uint8_t> f = c.readFrame(why);
    c.release();
    if (f.empty()) return {};
    const uint8_t* p = f.data() + (static_cast<size_t>(y) * c.width() + x) * 4;
    return {p[0], p[1], p[2], p[3]};
}

}  // namespace

TEST(EglContexts, DestroyingOneLeavesTheOthersOnTheDisplayWorkingAndCurrent)
{
    std::unique_ptr<EglContext> a = make(32, 16);
    std::unique_ptr<EglContext> b = make(16, 8);
    ASSERT_TRUE(a && b);
    EXPECT_EQ(a->sharing().display, b->sharing().display) << "one display for both";
    EXPECT_EQ(clearAndRead(*a, 0, 0, 1, 31, 15), (std::vector<int>{0, 0, 255, 255}));

    ASSERT_TRUE(b->acquire());
    a.reset();
    // Still current, as its own count says: the clear lands in its frame.
    glBindFramebuffer(GL_FRAMEBUFFER, b->defaultFramebuffer());
    glClearColor(1, 1, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    b->swapBuffers();
    std::vector<uint8_t> f = b->readFrame();
    b->release();
    ASSERT_EQ(f.size(), 16u * 8 * 4);
    EXPECT_EQ((std::vector<int>{f[0], f[1], f[2], f[3]}), (std::vector<int>{255, 255, 0, 255}));
    EXPECT_EQ(clearAndRead(*b, 1, 0, 0, 15, 7), (std::vector<int>{255, 0, 0, 255}));

    // A context made after the others went still finds a working display.
    b.reset();
    std::unique_ptr<EglContext> c = make(8, 8);
    ASSERT_TRUE(c);
    EXPECT_EQ(clearAndRead(*c, 0, 1, 0, 0, 0), (std::vector<int>{0, 255, 0, 255}));
}

TEST(EglContexts, ReadFrameIgnoresEarlierErrorsAndPackingState)
{
    std::unique_ptr<EglContext> c = make(16, 16);
    ASSERT_TRUE(c);
    ASSERT_TRUE(c->acquire());
    glEnable(12345);  // leaves GL_INVALID_ENUM pending, as a careless script would
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer);
    glBufferData(GL_PIXEL_PACK_BUFFER, 64, nullptr, GL_STREAM_READ);
    glPixelStorei(GL_PACK_ROW_LENGTH, 1000);
    glPixelStorei(GL_PACK_SKIP_ROWS, 3);
    std::string why = "not told";
    EXPECT_EQ(clearAndRead(*c, 0, 1, 1, 15, 15, &why), (std::vector<int>{0, 255, 255, 255}));
    EXPECT_EQ(why, "");
    // The state the caller had is back.
    GLint bound = 0, rowLength = 0, skipRows = 0;
    glGetIntegerv(GL_PIXEL_PACK_BUFFER_BINDING, &bound);
    glGetIntegerv(GL_PACK_ROW_LENGTH, &rowLength);
    glGetIntegerv(GL_PACK_SKIP_ROWS, &skipRows);
    EXPECT_EQ(bound, static_cast<GLint>(buffer));
    EXPECT_EQ(rowLength, 1000);
    EXPECT_EQ(skipRows, 3);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glDeleteBuffers(1, &buffer);
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    glPixelStorei(GL_PACK_SKIP_ROWS, 0);
    c->release();
}
