#include "widgets/GuiDraw.h"

#include <GL/glew.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "memory/MemFont.h"
#include "memory/MemGLObjects.h"
#include "platform/Paths.h"
#include "render/ScnTexture.h"
#include "runtime/AppGlobal.h"
#include "platform/GlContext.h"
#include "render/ScnShader.h"

namespace {

// Pixels to clip space: divided by the viewport and then, as w is 0.5 after
// the subtraction, by 0.5; y upward, depth 0 to 10000 onto -1 to 1.
const char* kVertexFlat =
    "#version 330\n"
    "uniform vec4 gs_Viewport;\n"
    "in vec4 gs_Vertex;\n"
    "in vec4 gs_Color;\n"
    "out vec4 color;\n"
    "void main()\n"
    "{\n"
    "    gl_Position = gs_Vertex / gs_Viewport - vec4(0.5);\n"
    "    color = gs_Color;\n"
    "}\n";
const char* kFragmentFlat =
    "#version 330\n"
    "in vec4 color;\n"
    "out vec4 outColor;\n"
    "void main()\n"
    "{\n"
    "    outColor = color;\n"
    "}\n";
const char* kVertexTextured =
    "#version 330\n"
    "uniform vec4 gs_Viewport;\n"
    "in vec4 gs_Vertex;\n"
    "in vec2 gs_Texture;\n"
    "out vec2 uv;\n"
    "void main()\n"
    "{\n"
    "    gl_Position = gs_Vertex / gs_Viewport - vec4(0.5);\n"
    "    uv = gs_Texture;\n"
    "}\n";
const char* kFragmentTextured =
    "#version 330\n"
    "uniform sampler2D gs_TextureID;\n"
    "in vec2 uv;\n"
    "out vec4 outColor;\n"
    "void main()\n"
    "{\n"
    "    outColor = texture(gs_TextureID, uv);\n"
    "}\n";
const char* kVertexGlyph =
    "#version 330\n"
    "uniform vec4 gs_Viewport;\n"
    "in vec4 gs_Vertex;\n"
    "in vec2 gs_Texture;\n"
    "in vec4 gs_Color;\n"
    "out vec2 uv;\n"
    "out vec4 color;\n"
    "void main()\n"
    "{\n"
    "    gl_Position = gs_Vertex / gs_Viewport - vec4(0.5);\n"
    "    uv = gs_Texture;\n"
    "    color = gs_Color;\n"
    "}\n";
// The colour's alpha steers how much of the soft glyph edge stays.
const char* kFragmentGlyph =
    "#version 330\n"
    "uniform sampler2D gs_Characters;\n"
    "in vec2 uv;\n"
    "in vec4 color;\n"
    "out vec4 outColor;\n"
    "void main()\n"
    "{\n"
    "    vec4 glyph = texture(gs_Characters, uv);\n"
    "    outColor = vec4(color.xyz, smoothstep(0.0, 1.0, glyph.a / color.a));\n"
    "}\n";

struct Batch {
    std::vector<float> positions, colors, texCoords;
    int vertices() const { return static_cast<int>(positions.size() / 3); }
    void clear()
    {
        positions.clear();
        colors.clear();
        texCoords.clear();
    }
};

struct State {
    float depth = 9999;
    float textProportion = 0.8f;
    float opacity = 1;
    int cellSize = 19;
    float color[4] = {0, 0, 0, 0};
    float clip[GuiDraw::kClipDepth][4] = {};
    int clipTop = 0;
    int clipOver = 0;  // pushes beyond the stack not yet popped
    Batch lines, triangles, text;
    ScnShader* flat = nullptr;
    ScnShader* textured = nullptr;
    ScnShader* glyph = nullptr;
    unsigned buffers[3] = {};  // positions, colours, texture coordinates
    unsigned vao = 0;
    MemTypeFont* font = nullptr;
    MemTypeImageTexture* icons = nullptr;
    float palette[GuiDraw::PaletteSize][4] = {};
};

State s;

float textScaleOf()
{
    return static_cast<float>(s.cellSize) * s.textProportion * 10.0f;
}

ScnShader* makeProgram(const char* name, const char* vertex, const char* fragment)
{
    auto* shader = new ScnShader();
    shader->name = name;
    shader->vertex = vertex;
    shader->fragment = fragment;
    shader->build();
    return shader;
}

void appendVertex(Batch& b, double x, double y)
{
    b.positions.push_back(static_cast<float>(x));
    b.positions.push_back(static_cast<float>(y));
    b.positions.push_back(s.depth);
    b.colors.insert(b.colors.end(), s.color, s.color + 4);
}

void triangle(double x0, double y0, double x1, double y1)
{
    appendVertex(s.triangles, x0, y0);
    appendVertex(s.triangles, x1, y0);
    appendVertex(s.triangles, x1, y1);
    appendVertex(s.triangles, x1, y1);
    appendVertex(s.triangles, x0, y1);
    appendVertex(s.triangles, x0, y0);
}

// Binds one attribute of the shared buffer of its place; -1 is skipped as
// OpenGL would ignore it.
void upload(int place, GLint location, int components, const std::vector<float>& data)
{
    glBindBuffer(GL_ARRAY_BUFFER, s.buffers[place]);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(data.size() * sizeof(float)), data.data(), GL_STATIC_DRAW);
    if (location >= 0) {
        glVertexAttribPointer(static_cast<GLuint>(location), components, GL_FLOAT, GL_FALSE, 0, nullptr);
        glEnableVertexAttribArray(static_cast<GLuint>(location));
    }
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void disable(GLint location)
{
    if (location >= 0) glDisableVertexAttribArray(static_cast<GLuint>(location));
}

void drawBatch(Batch& b, ScnShader* shader, GLenum mode, bool withTexture)
{
    if (b.positions.empty()) return;
    if (shader && shader->program && GlContext::ready()) {
        const unsigned p = shader->program;
        glBindVertexArray(s.vao);
        const GLint vertex = glGetAttribLocation(p, "gs_Vertex");
        const GLint color = glGetAttribLocation(p, "gs_Color");
        const GLint texture = withTexture ? glGetAttribLocation(p, "gs_Texture") : -1;
        upload(0, vertex, 3, b.positions);
        upload(1, color, 4, b.colors);
        if (withTexture) upload(2, texture, 2, b.texCoords);
        glUseProgram(p);
        glDrawArrays(mode, 0, b.vertices());
        glUseProgram(0);
        disable(vertex);
        disable(color);
        disable(texture);
        glBindVertexArray(0);
    }
    b.clear();
}

void scissorOf(const float* c, float extra)
{
    if (!GlContext::ready()) return;
    glScissor(static_cast<int>(c[0] + 0.1f), static_cast<int>(c[1] + 0.1f),
              static_cast<int>(std::max(0.0f, c[2] - c[0] + extra)), static_cast<int>(std::max(0.0f, c[3] - c[1] + extra)));
}

}  // namespace

void GuiDraw::init()
{
    loadFont();
    buildPrograms();
}

void GuiDraw::loadFont()
{
    if (!s.font) s.font = memFontByName("GUI.png");
}

void GuiDraw::loadIcons()
{
    if (s.icons || !GlContext::ready()) return;
    const std::string path = Paths::join(Paths::join(Paths::join(AppGlobal::projectPath(), "data"), "textures"),
                                         Paths::join("gui", "icons.jpg"));
    // A workspace without the atlas draws no icons; the next root's create
    // looks again.
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec)) return;
    // Cells are drawn pixel for pixel: no filtering across their edges.
    const MemTypeTexture2D::FLAGS flags{{MemTextureFlags::Nearest, 0, 0, 0}};
    s.icons = scnLoadTexture(path.c_str(), flags);
}

unsigned GuiDraw::iconTexture()
{
    return s.icons ? s.icons->glId : 0;
}

int GuiDraw::iconWidth()
{
    return s.icons ? static_cast<int>(s.icons->dim(0)) : 0;
}

int GuiDraw::iconHeight()
{
    return s.icons ? static_cast<int>(s.icons->dim(1)) : 0;
}

void GuiDraw::iconCell(int n, float& s0, float& t0, float& s1, float& t1)
{
    const int column = n % 32, row = n / 32;
    s0 = static_cast<float>(column) / 32.0f + 0.001f;
    s1 = s0 + 1.0f / 32.0f;
    t0 = static_cast<float>(row) / 32.0f + 0.25f;
    t1 = static_cast<float>(row - 1) / 32.0f + 0.25f;
}

void GuiDraw::buildPrograms()
{
    if (s.flat && s.flat->program) return;
    if (!GlContext::ready()) return;
    shutdown();
    s.flat = makeProgram("gui flat", kVertexFlat, kFragmentFlat);
    s.textured = makeProgram("gui textured", kVertexTextured, kFragmentTextured);
    s.glyph = makeProgram("gui glyph", kVertexGlyph, kFragmentGlyph);
    glGenBuffers(3, s.buffers);
    glGenVertexArrays(1, &s.vao);
    if (s.glyph->program) {
        glUseProgram(s.glyph->program);
        glUniform1i(glGetUniformLocation(s.glyph->program, "gs_Characters"), 0);
        glUseProgram(0);
    }
    if (s.textured->program) {
        glUseProgram(s.textured->program);
        glUniform1i(glGetUniformLocation(s.textured->program, "gs_TextureID"), 0);
        glUseProgram(0);
    }
}

void GuiDraw::shutdown()
{
    for (ScnShader** p : {&s.flat, &s.textured, &s.glyph}) {
        if (*p && GlContext::ready()) (*p)->destroyProgram();
        delete *p;
        *p = nullptr;
    }
    if (GlContext::ready()) {
        if (s.buffers[0]) glDeleteBuffers(3, s.buffers);
        if (s.vao) glDeleteVertexArrays(1, &s.vao);
    }
    s.buffers[0] = s.buffers[1] = s.buffers[2] = 0;
    s.vao = 0;
    s.lines.clear();
    s.triangles.clear();
    s.text.clear();
}

float* GuiDraw::palette(Colour which)
{
    return s.palette[which];
}

int GuiDraw::cellSize()
{
    return s.cellSize;
}

void GuiDraw::setCellSize(int size)
{
    s.cellSize = size;
}

float GuiDraw::opacity()
{
    return s.opacity;
}

void GuiDraw::setOpacity(float value)
{
    s.opacity = value;
}

void GuiDraw::setColor(float r, float g, float b, float a)
{
    s.color[0] = r;
    s.color[1] = g;
    s.color[2] = b;
    s.color[3] = a;
}

void GuiDraw::setColor(const float* rgba)
{
    setColor(rgba[0], rgba[1], rgba[2], rgba[3]);
}

const float* GuiDraw::color()
{
    return s.color;
}

float GuiDraw::depth()
{
    return s.depth;
}

void GuiDraw::lower(float d)
{
    s.depth -= d;
}

void GuiDraw::resetDepth()
{
    s.depth = 9999;
}

void GuiDraw::fillRect(const ScnBox& box, double dx, double dy)
{
    triangle(box.min[0] + dx + 0.1, box.min[1] + dy + 0.1, box.max[0] - dx - 0.1, box.max[1] - dy - 0.1);
}

void GuiDraw::fillRectInt(int x0, int y0, int x1, int y1)
{
    triangle(x0 + 0.1, y0 + 0.1, x1 - 0.1, y1 - 0.1);
}

void GuiDraw::line(double x0, double y0, double x1, double y1)
{
    appendVertex(s.lines, x0, y0);
    appendVertex(s.lines, x1, y1);
}

void GuiDraw::pixel(double x, double y)
{
    line(x + 0.1, y + 0.1, x + 1.1, y + 1.1);
}

void GuiDraw::bevel(const ScnBox& box, unsigned style)
{
    const double x0 = box.min[0] + 0.1, y0 = box.min[1] + 0.1, x1 = box.max[0] - 0.1, y1 = box.max[1] - 0.1;
    Colour c[4] = {Light3D, Light3D, Light3D, Light3D};
    if (style & Sunken) {
        c[0] = Shadow3D, c[1] = DkShadow3D, c[2] = Highlight3D, c[3] = Light3D;
    } else if (style & Raised) {
        c[0] = Highlight3D, c[1] = Light3D, c[2] = DkShadow3D, c[3] = Shadow3D;
    }
    setColor(palette(c[0]));
    line(x0, y0, x0, y1);
    line(x0, y1, x1 - 1, y1);
    setColor(palette(c[1]));
    line(x0 + 1, y0 + 1, x0 + 1, y1 - 1);
    line(x0 + 1, y1 - 1, x1 - 2, y1 - 1);
    setColor(palette(c[2]));
    line(x0 + 1, y0, x1, y0);
    line(x1, y0, x1, y1);
    setColor(palette(c[3]));
    line(x0 + 2, y0 + 1, x1 - 1, y0 + 1);
    line(x1 - 1, y0 + 1, x1 - 1, y1 - 1);
}

void GuiDraw::cross(const ScnBox& box, double dx, double dy, float lineWidth)
{
    flush();
    const double x0 = box.min[0] + dx - 0.1, y0 = box.min[1] + dy, x1 = box.max[0] - dx + 0.1, y1 = box.max[1] - dy;
    lower(0.001f);
    line(x0, y0, x1, y1);
    line(x0, y1, x1, y0);
    lower(-0.001f);
    if (GlContext::ready()) glLineWidth(lineWidth);
    flush();
    if (GlContext::ready()) glLineWidth(1);
}

void GuiDraw::text(double x, double y, const char* chars, int length)
{
    if (!chars || length <= 0 || !s.font) return;
    lower(0.001f);
    const size_t before = s.text.positions.size();
    const double origin[3] = {x, y, s.depth};
    const double xAxis[3] = {1, 0, 0}, yAxis[3] = {0, 1, 0};
    s.font->textGeometry(s.text.positions, s.text.texCoords, chars, static_cast<size_t>(length), textScaleOf(), origin,
                         xAxis, yAxis);
    lower(-0.001f);
    for (size_t i = before; i < s.text.positions.size(); i += 3) s.text.colors.insert(s.text.colors.end(), s.color, s.color + 4);
}

int GuiDraw::textWidth(const char* chars, int length)
{
    if (!chars || !s.font) return 0;
    float w = 0;
    for (int i = 0; i < length && chars[i]; ++i) w += s.font->glyphs[static_cast<unsigned char>(chars[i])].xadvance;
    return static_cast<int>(w * textScaleOf() + 0.5f);
}

int GuiDraw::textHeight()
{
    return s.font ? static_cast<int>(s.font->lineHeight * textScaleOf()) : 0;
}

double GuiDraw::baseline()
{
    return (1.0 - s.textProportion) * s.cellSize;
}

float GuiDraw::textScale()
{
    return textScaleOf();
}

MemTypeFont* GuiDraw::font()
{
    return s.font;
}

void GuiDraw::pushClip(const ScnBox& box, double dx, double dy)
{
    flush();
    const float* c = s.clip[s.clipTop];
    float n[4] = {std::max(c[0], static_cast<float>(box.min[0] + dx)), std::max(c[1], static_cast<float>(box.min[1] + dy)),
                  std::min(c[2], static_cast<float>(box.max[0] - dx)), std::min(c[3], static_cast<float>(box.max[1] - dy))};
    // Beyond the stack the narrower box clips what follows but is not kept:
    // its pop goes back to the deepest kept entry, and the pops of the
    // entries below stay where they belong.
    if (s.clipTop + 1 >= kClipDepth) {
        ++s.clipOver;
        scissorOf(n, 0.1f);
        return;
    }
    ++s.clipTop;
    std::copy(n, n + 4, s.clip[s.clipTop]);
    scissorOf(s.clip[s.clipTop], 0.1f);
}

void GuiDraw::popClip()
{
    flush();
    if (s.clipOver > 0)
        --s.clipOver;
    else if (s.clipTop > 0)
        --s.clipTop;
    scissorOf(s.clip[s.clipTop], 1.1f);
}

void GuiDraw::resetClip(float x0, float y0, float x1, float y1)
{
    s.clipTop = 0;
    s.clipOver = 0;
    s.clip[0][0] = x0;
    s.clip[0][1] = y0;
    s.clip[0][2] = x1;
    s.clip[0][3] = y1;
}

int GuiDraw::clipDepth()
{
    return s.clipTop;
}

const float* GuiDraw::clipTop()
{
    return s.clip[s.clipTop];
}

void GuiDraw::flush()
{
    drawBatch(s.lines, s.flat, GL_LINES, false);
    drawBatch(s.triangles, s.flat, GL_TRIANGLES, false);
    if (s.text.positions.empty()) return;
    const bool drawing = GlContext::ready() && s.font;
    if (drawing) {
        glActiveTexture(GL_TEXTURE0);
        glBindTexture(GL_TEXTURE_2D, s.font->glId);
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    }
    drawBatch(s.text, s.glyph, GL_TRIANGLES, true);
    if (drawing) {
        glDisable(GL_BLEND);
        glBindTexture(GL_TEXTURE_2D, 0);
    }
}

void GuiDraw::texturedQuad(const ScnBox& box, double dx, double dy, float s0, float t0, float s1, float t1)
{
    if (!s.textured || !s.textured->program || !GlContext::ready()) return;
    const float x0 = static_cast<float>(box.min[0] + dx), y0 = static_cast<float>(box.min[1] + dy);
    const float x1 = static_cast<float>(box.max[0] - dx), y1 = static_cast<float>(box.max[1] - dy);
    // Fixed-size arrays: a quad needs no batch and no allocation.
    const float positions[12] = {x0, y0, s.depth, x1, y0, s.depth, x1, y1, s.depth, x0, y1, s.depth};
    const float coords[8] = {s0, t0, s1, t0, s1, t1, s0, t1};
    const unsigned p = s.textured->program;
    glBindVertexArray(s.vao);
    const GLint vertex = glGetAttribLocation(p, "gs_Vertex");
    const GLint texture = glGetAttribLocation(p, "gs_Texture");
    glBindBuffer(GL_ARRAY_BUFFER, s.buffers[0]);
    glBufferData(GL_ARRAY_BUFFER, sizeof positions, positions, GL_STATIC_DRAW);
    if (vertex >= 0) {
        glVertexAttribPointer(static_cast<GLuint>(vertex), 3, GL_FLOAT, GL_FALSE, 0, nullptr);
        glEnableVertexAttribArray(static_cast<GLuint>(vertex));
    }
    glBindBuffer(GL_ARRAY_BUFFER, s.buffers[2]);
    glBufferData(GL_ARRAY_BUFFER, sizeof coords, coords, GL_STATIC_DRAW);
    if (texture >= 0) {
        glVertexAttribPointer(static_cast<GLuint>(texture), 2, GL_FLOAT, GL_FALSE, 0, nullptr);
        glEnableVertexAttribArray(static_cast<GLuint>(texture));
    }
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glUseProgram(p);
    glDrawArrays(GL_TRIANGLE_FAN, 0, 4);
    glUseProgram(0);
    disable(vertex);
    disable(texture);
    glBindVertexArray(0);
}

void GuiDraw::drawPicture(unsigned texture)
{
    if (!GlContext::ready()) return;
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, texture);
    glDisable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    const float* c = s.clip[s.clipTop];
    ScnBox box;
    box.min[0] = c[0], box.min[1] = c[1], box.max[0] = c[2], box.max[1] = c[3];
    const float keep = s.depth;
    s.depth = 0;
    // The picture covers the root's whole extent: texture coordinates follow
    // the clip as a share of entry 0.
    const float* whole = s.clip[0];
    const float w = std::max(1.0f, whole[2] - whole[0]), h = std::max(1.0f, whole[3] - whole[1]);
    texturedQuad(box, 0, 0, (c[0] - whole[0]) / w, (c[1] - whole[1]) / h, (c[2] - whole[0]) / w, (c[3] - whole[1]) / h);
    s.depth = keep;
    glDisable(GL_BLEND);
    glEnable(GL_DEPTH_TEST);
    glBindTexture(GL_TEXTURE_2D, 0);
}

void GuiDraw::setViewport(int width, int height)
{
    if (!GlContext::ready()) return;
    for (ScnShader* shader : {s.flat, s.textured, s.glyph}) {
        if (!shader || !shader->program) continue;
        glUseProgram(shader->program);
        glUniform4f(glGetUniformLocation(shader->program, "gs_Viewport"), static_cast<float>(width),
                    static_cast<float>(height), 10000.0f, 1.0f);
        glUseProgram(0);
    }
}

int GuiDraw::lineVertices()
{
    return s.lines.vertices();
}

int GuiDraw::triangleVertices()
{
    return s.triangles.vertices();
}

int GuiDraw::textVertices()
{
    return s.text.vertices();
}
