#include "memory/MemFont.h"

#include <GL/glew.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "compute/OclGlobal.h"
#include "memory/MemSource.h"
#include "platform/GlContext.h"
#include "platform/Paths.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"

namespace {

// Every font's picture: four 8-bit channels, normalised.
const cl_image_format kFontFormat = {CL_RGBA, CL_UNORM_INT8};
const MemTypeTexture2D::FLAGS kFontFlags = {{MemTextureFlags::Linear, 0, 0, 0}};

void extend(ScnBox& box, double x, double y, double z)
{
    const double p[3] = {x, y, z};
    for (int i = 0; i < 3; ++i) {
        if (p[i] < box.min[i]) box.min[i] = p[i];
        if (p[i] > box.max[i]) box.max[i] = p[i];
    }
}

const MemTypeFont::Glyph& glyphOf(const MemTypeFont& f, char c)
{
    return f.glyphs[static_cast<unsigned char>(c)];
}

}  // namespace

MemTypeFont::MemTypeFont(oclContext* context, uint32_t width, uint32_t height, const std::string& path)
    : MemTypeImageTexture(context, width, height, &kFontFormat, path, &kFontFlags)
{
    for (Glyph& g : glyphs) g = Glyph{-1, -1, 0, 0, 0, 0, 0};
    for (auto& k : kerning) {
        k[0] = -1;
        k[1] = 0;
    }
    readPicture(path);
    readDescription(path);
}

// Through the image plug-in, which stores the picture bottom row first: its
// top row lands at the texture's top (t = 1), where the description's y,
// counted from the top, expects it; a smaller picture keeps its top there.
void MemTypeFont::readPicture(const std::string& path)
{
    MemSourceImage picture(this);
    picture.open(path.c_str());
    picture.read();
    picture.close();
}

void MemTypeFont::readDescription(const std::string& path)
{
    const float H = static_cast<float>(proxy->getDim(1));
    const size_t dot = path.find_last_of('.');
    const size_t slash = path.find_last_of('/');
    const std::string txt = (dot != std::string::npos && (slash == std::string::npos || dot > slash)
                                 ? path.substr(0, dot)
                                 : path) +
                            ".txt";
    FILE* f = std::fopen(txt.c_str(), "rb");
    if (!f) {
        LogStream(Channels::error(), "") << txt << " not found";
        lineHeight = H > 0 ? 32.0f / H : 0;
        return;
    }
    bool sawLineHeight = false;
    char line[400];
    while (std::fgets(line, sizeof line, f)) {
        if (std::strncmp(line, "char ", 5) == 0) {
            int id = 0, x = 0, y = 0, width = 0, height = 0;
            float xoffset = 0, yoffset = 0, xadvance = 0;
            if (std::sscanf(line, "char id=%d x=%d y=%d width=%d height=%d xoffset=%f yoffset=%f xadvance=%f", &id, &x,
                            &y, &width, &height, &xoffset, &yoffset, &xadvance) != 8)
                continue;
            // The table has 256 entries: other ids are not kept.
            if (id < 0 || id > 255 || H <= 0) continue;
            glyphs[id] = Glyph{x / H, y / H, xoffset / H, yoffset / H, xadvance / H, width / H, height / H};
        } else if (std::strncmp(line, "kerni", 5) == 0) {
            int first = 0, second = 0, amount = 0;
            if (std::sscanf(line, "kerning first=%d second=%d amount=%d", &first, &second, &amount) != 3) continue;
            if (first < 0 || first > 255) continue;
            kerning[first][0] = second;
            kerning[first][1] = amount;
        } else if (const char* p = std::strstr(line, "lineHeight")) {
            if (std::sscanf(p, "lineHeight=%f", &lineHeight) != 1) lineHeight = 32.0f;
            sawLineHeight = true;
        }
    }
    std::fclose(f);
    // A description without the word: the value its parse would fall back on.
    if (!sawLineHeight) lineHeight = 32.0f;
    lineHeight = H > 0 ? lineHeight / H : 0;
}

int MemTypeFont::textWidth(const char* text, float scale) const
{
    float w = 0;
    for (const char* c = text; c && *c; ++c) w += glyphOf(*this, *c).xadvance * scale;
    return static_cast<int>(w + 0.5f);
}

int MemTypeFont::lineHeightScaled(float scale) const
{
    return static_cast<int>(lineHeight * scale);
}

double MemTypeFont::textBounds(const char* text, float scale, ScnBox& box) const
{
    box = ScnBox{};
    double x = 0, y = 0;
    auto step = [&](const Glyph& g) {
        extend(box, x + g.width * scale, y + g.height * scale, 0);
        x += g.width * scale;
    };
    for (const char* c = text; c && *c; ++c) {
        if (*c == '\n' || *c == '\r') {
            x = 0;
            y -= lineHeight * 1.3;
        } else if (*c == '\t') {
            for (int i = 0; i < 4; ++i) step(glyphOf(*this, ' '));
        } else {
            step(glyphOf(*this, *c));
        }
    }
    const double h = glyphOf(*this, 'A').height * scale;
    extend(box, 0, 0, -h);
    extend(box, 0, 0, h);
    double d = 0;
    for (int i = 0; i < 3; ++i) d += (box.max[i] - box.min[i]) * (box.max[i] - box.min[i]);
    return std::sqrt(d);
}

void MemTypeFont::textGeometry(std::vector<float>& vertices, std::vector<float>& texCoords, const char* text,
                               size_t length, float scale, const double (&origin)[3], const double (&xAxis)[3],
                               const double (&yAxis)[3]) const
{
    float x = 0, y = 0;
    auto point = [&](float a, float b) {
        for (int i = 0; i < 3; ++i)
            vertices.push_back(static_cast<float>(origin[i] + scale * (a * xAxis[i] + b * yAxis[i])));
    };
    auto quad = [&](const Glyph& g) {
        const float left = x + g.xoffset, bottom = y - (g.height - g.yoffset);
        const float right = left + g.width, top = bottom + g.height;
        point(left, bottom);
        point(right, bottom);
        point(right, top);
        point(right, top);
        point(left, top);
        point(left, bottom);
        const float u = g.x, v = g.y;
        const float t[12] = {u, 1 - v - g.height, u + g.width, 1 - v - g.height, u + g.width, 1 - v,
                             u + g.width, 1 - v, u, 1 - v, u, 1 - v - g.height};
        texCoords.insert(texCoords.end(), t, t + 12);
        x += g.xadvance;
    };
    for (size_t i = 0; i < length && text[i]; ++i) {
        const char c = text[i];
        if (c == '\n' || c == '\r') {
            x = 0;
            y -= lineHeight;
        } else if (c == '\t') {
            // Each blank of a tab moves the pen by its x offset as well.
            const Glyph& blank = glyphOf(*this, ' ');
            for (int k = 0; k < 4; ++k) {
                x += blank.xoffset;
                quad(blank);
            }
        } else {
            quad(glyphOf(*this, c));
        }
    }
}

MemTypeFont* memFontByName(const std::string& name)
{
    const std::string path = Paths::join(Paths::join(Paths::join(AppGlobal::projectPath(), "data"), "textures"),
                                         Paths::join("font", name));
    // The picture's size through the image plug-in (2 by 2 until it answers).
    MemSourceImage probe(nullptr);
    if (!probe.getFileInfo(path.c_str())) {
        LogStream(Channels::console(), "") << "Unable to read file " << name;
        return nullptr;
    }
    return new MemTypeFont(OclGlobal::currentContext(), static_cast<uint32_t>(probe.info.image_width),
                           static_cast<uint32_t>(probe.info.image_height), path);
}
