// Bitmap fonts: the description's parse, the picture's orientation in the
// texture, the measures and the glyph quads; and the fonts that the build
// renders into the workspace template, loaded by name.
#include <gtest/gtest.h>

#include <GL/glew.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <stb/stb_image_write.h>

#include "compute/OclGlobal.h"
#include "memory/MemFont.h"
#include "platform/GlContext.h"
#include "support/DocumentFixture.h"
#include "support/TempDir.h"
#include "memory/SourceFiles.h"

namespace {

class Fonts : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(GlContext::active(), nullptr) << "no headless OpenGL context (Mesa's EGL is needed)";
        ASSERT_TRUE(m_gl.ok());
        // The picture is read through the image plug-in.
        sources::loadPlugins();
        Channels::clearAll();
    }

    // An 8 by 8 picture: red at the top left, blue at the bottom left.
    std::string picture(const std::string& name)
    {
        std::vector<unsigned char> px(8 * 8 * 4, 0);
        px[0] = 255;
        px[3] = 255;
        px[(7 * 8) * 4 + 2] = 255;
        px[(7 * 8) * 4 + 3] = 255;
        const std::string path = m_dir.path() + "/" + name;
        EXPECT_TRUE(stbi_write_png(path.c_str(), 8, 8, 4, px.data(), 8 * 4));
        return path;
    }

    static std::vector<unsigned char> pixels(MemTypeFont& font)
    {
        std::vector<unsigned char> px(font.dim(0) * font.dim(1) * 4);
        glBindTexture(GL_TEXTURE_2D, font.glId);
        glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, px.data());
        glBindTexture(GL_TEXTURE_2D, 0);
        return px;
    }

    GlScope m_gl;
    TempDir m_dir{"velmora-font"};
};

}  // namespace

TEST_F(Fonts, TheDescriptionIsReadInUnitsOfThePictureHeightAndThePictureStandsUpright)
{
    const std::string path = picture("small.png");
    std::ofstream(m_dir.path() + "/small.txt") << "info face=\"t\"\n"
                                                  "common lineHeight=4 base=3\n"
                                                  "char id=65 x=1 y=2 width=3 height=4 xoffset=0.5 yoffset=3 xadvance=4\n"
                                                  "char id=32 x=0 y=0 width=0 height=0 xoffset=1 yoffset=0 xadvance=2\n"
                                                  "charX id=66 x=1 y=2 width=3 height=4 xoffset=0 yoffset=0 xadvance=9\n"
                                                  "char id=300 x=1 y=1 width=1 height=1 xoffset=0 yoffset=0 xadvance=1\n"
                                                  "char id=67 x=1 y=2\n"
                                                  "kerning first=65 second=86 amount=-1\n"
                                                  "kerning first=65 second=87 amount=-2\n"
                                                  "kerning first=66\n";
    MemTypeFont font(OclGlobal::currentContext(), 8, 8, path);
    EXPECT_STREQ(font.name(), path.c_str());
    const MemTypeFont::Glyph& a = font.glyphs['A'];
    // Eighths are exact in float.
    EXPECT_EQ(std::vector<float>({a.x, a.y, a.xoffset, a.yoffset, a.xadvance, a.width, a.height}),
              std::vector<float>({1 / 8.0f, 2 / 8.0f, 0.5f / 8, 3 / 8.0f, 4 / 8.0f, 3 / 8.0f, 4 / 8.0f}));
    EXPECT_EQ(font.glyphs['B'].x, -1) << "\"charX\" is no char line";
    EXPECT_EQ(font.glyphs['C'].x, -1) << "a short char line is skipped";
    EXPECT_EQ(font.glyphs['D'].y, -1);
    EXPECT_EQ(font.kerning['A'][0] * 10 + font.kerning['A'][1], 868) << "a later pair replaces an earlier one";
    EXPECT_EQ(font.kerning['B'][0], -1);
    EXPECT_FLOAT_EQ(font.lineHeight, 0.5f);

    // The picture's top row is the texture's top (t = 1).
    const std::vector<unsigned char> px = pixels(font);
    EXPECT_EQ(px[(7 * 8) * 4 + 0] - px[(7 * 8) * 4 + 2], 255);
    EXPECT_EQ(px[2] - px[0], 255);

    // Measures.
    EXPECT_EQ(font.textWidth("AA ", 8), 10);
    EXPECT_EQ(font.lineHeightScaled(8), 4);
    ScnBox box;
    EXPECT_DOUBLE_EQ(font.textBounds("AB", 8, box), std::sqrt(3.0 * 3 + 4 * 4 + 8 * 8));
    EXPECT_EQ(std::vector<double>({box.min[0], box.max[0], box.max[1], box.min[2]}),
              std::vector<double>({0, 3, 4, -4}));
    // A new line is 1.3 line heights lower; each glyph adds its upper corner.
    EXPECT_DOUBLE_EQ(font.textBounds("\nA", 8, box), std::sqrt(3.0 * 3 + (4 - 0.5 * 1.3) * (4 - 0.5 * 1.3) + 8 * 8));

    // Quads: six vertices and six texture coordinates per glyph, laid along
    // the axes from the origin; a newline drops one line height.
    std::vector<float> v, t;
    const double origin[3] = {10, 0, 0}, xAxis[3] = {1, 0, 0}, yAxis[3] = {0, 1, 0};
    font.textGeometry(v, t, "A\nA", 3, 2, origin, xAxis, yAxis);
    ASSERT_EQ(v.size(), 2u * 6 * 3);
    ASSERT_EQ(t.size(), 2u * 6 * 2);
    // Left bottom, right top, and the second line one line height lower.
    EXPECT_EQ(std::vector<float>({v[0], v[1], v[6], v[7], v[18 + 1]}),
              std::vector<float>({10.125f, -0.25f, 10.875f, 0.75f, -1.25f}));
    EXPECT_EQ(std::vector<float>({t[0], t[1], t[4], t[5]}), std::vector<float>({0.125f, 0.25f, 0.5f, 0.75f}));
    v.clear(), t.clear();
    font.textGeometry(v, t, "\tA", 2, 1, origin, xAxis, yAxis);
    ASSERT_EQ(v.size(), 5u * 6 * 3) << "a tab is four blanks";
    // Each blank of the tab moves the pen by its offset, then its advance.
    EXPECT_FLOAT_EQ(v[4 * 18], 10 + 4 * (0.125f + 0.25f) + 0.0625f);
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(Fonts, AFontWithoutDescriptionKeepsItsPictureAndUnsetGlyphs)
{
    const std::string path = picture("bare.png");
    MemTypeFont font(OclGlobal::currentContext(), 8, 8, path);
    EXPECT_EQ(drain(), Lines{"(): " + m_dir.path() + "/bare.txt not found"});
    for (const MemTypeFont::Glyph& g : font.glyphs) EXPECT_TRUE(g.x == -1 && g.y == -1);
    EXPECT_FLOAT_EQ(font.lineHeight, 32.0f / 8);
    EXPECT_NE(font.glId, 0u);
}

TEST_F(Fonts, TheRenderedWorkspaceFontsLoadByName)
{
    const std::filesystem::path from = std::filesystem::path(VELMORA_BIN_DIR) / "workspace/data/textures/font";
    ASSERT_TRUE(std::filesystem::exists(from / "GUI.png")) << "the build renders the fonts into " << from;
    const std::filesystem::path to = std::filesystem::path(m_dir.path()) / "data/textures/font";
    std::filesystem::create_directories(to);
    for (const char* f : {"GUI.png", "GUI.txt", "FONT.png", "FONT.txt"}) std::filesystem::copy_file(from / f, to / f);
    // The workspace is entered as the current folder: it is left again
    // before the folder goes.
    struct Back {
        std::filesystem::path cwd = std::filesystem::current_path();
        ~Back() { std::filesystem::current_path(cwd); }
    } back;
    ASSERT_TRUE(AppGlobal::setProjectPath(m_dir.path()));
    Channels::clearAll();

    std::unique_ptr<MemTypeFont> gui(memFontByName("GUI.png"));
    ASSERT_NE(gui, nullptr);
    EXPECT_EQ(gui->dim(0) + gui->dim(1), 512u);
    for (int c = 33; c < 127; ++c) EXPECT_TRUE(gui->glyphs[c].x >= 0 && gui->glyphs[c].xadvance > 0) << c;
    EXPECT_GT(gui->glyphs['A'].width, 0);
    EXPECT_GT(gui->glyphs['A'].yoffset, gui->glyphs['A'].height * 0.9f) << "a capital stands on the baseline";
    EXPECT_GT(gui->glyphs['g'].height, gui->glyphs['g'].yoffset) << "a descender goes below it";
    EXPECT_FLOAT_EQ(gui->lineHeight * 256, 16);
    // A 14-pixel face: "Hello" is some 30 to 45 pixels wide.
    EXPECT_GT(gui->textWidth("Hello", 256), 30);
    EXPECT_LT(gui->textWidth("Hello", 256), 45);
    // The glyph's pixels are where its record says (alpha is coverage).
    const MemTypeFont::Glyph& g = gui->glyphs['H'];
    const std::vector<unsigned char> px = pixels(*gui);
    int covered = 0;
    const int x0 = static_cast<int>(g.x * 256 + 0.5f), top = 255 - static_cast<int>(g.y * 256 + 0.5f);
    for (int y = 0; y < static_cast<int>(g.height * 256 + 0.5f); ++y)
        for (int x = 0; x < static_cast<int>(g.width * 256 + 0.5f); ++x) covered += px[((top - y) * 256 + x0 + x) * 4 + 3] > 128;
    EXPECT_GT(covered, 10) << "the H's strokes";
    std::unique_ptr<MemTypeFont> large(memFontByName("FONT.png"));
    ASSERT_NE(large, nullptr);
    EXPECT_EQ(large->dim(1), 512u);

    EXPECT_EQ(memFontByName("missing.png"), nullptr);
    EXPECT_EQ(drain(), Lines{"(): Unable to read file missing.png"});
}
