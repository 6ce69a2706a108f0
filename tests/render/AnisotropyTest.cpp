// The texture anisotropy limit that the memory module reads at start, with
// the headless context current: the driver's own figure.
#include <gtest/gtest.h>

#include <GL/glew.h>

#include "memory/MemGlobal.h"
#include "platform/GlContext.h"

TEST(MemGlobalInit, ReadsTheDriversLargestAnisotropyWithAContext)
{
    GlScope gl;
    if (!GlContext::ready()) GTEST_SKIP() << "no headless OpenGL context";
    GLint v = 0;
    glGetIntegerv(GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT, &v);
    const bool known = glGetError() == GL_NO_ERROR;
    if (known) EXPECT_EQ(MemGlobal::maxAnisotropy(), v);
    else EXPECT_EQ(MemGlobal::maxAnisotropy(), 1) << "no extension: no anisotropy";
    EXPECT_GE(MemGlobal::maxAnisotropy(), 1);
}
