// A bitmap font: a picture in a texture and its ".txt" description of glyph
// rectangles, offsets and advances, all divided by the picture's height.
#pragma once

#include <string>
#include <vector>

#include "memory/MemGLObjects.h"
#include "node/ScnNode.h"

class MemTypeFont : public MemTypeImageTexture {
public:
    // One glyph, in units of the picture's height: position in the picture
    // (from its top left), offset of the quad from the pen, advance, size.
    struct Glyph {
        float x, y, xoffset, yoffset, xadvance, width, height;
    };

    // Reads the picture at `path` into a texture of `width` by `height`, and
    // the description beside it (same name, ".txt"). The object's name is `path`.
    MemTypeFont(oclContext* context, uint32_t width, uint32_t height, const std::string& path);

    // Sum of the advances, rounded.
    int textWidth(const char* text, float scale) const;
    int lineHeightScaled(float scale) const;
    // Box of the text's glyph sizes, stretched by the height of "A" in depth;
    // returns the length of its diagonal.
    double textBounds(const char* text, float scale, ScnBox& box) const;
    // Appends six vertices (three floats each) and six texture coordinates
    // (two floats each) per glyph: the quads of the text laid out from
    // `origin` along `xAxis` and `yAxis`.
    void textGeometry(std::vector<float>& vertices, std::vector<float>& texCoords, const char* text, size_t length,
                      float scale, const double (&origin)[3], const double (&xAxis)[3],
                      const double (&yAxis)[3]) const;

    Glyph glyphs[256];
    int32_t kerning[256][2];  // second character and amount, by first; read, not used
    float lineHeight = 0;

private:
    void readPicture(const std::string& path);
    void readDescription(const std::string& path);
};

// The font `name` of the workspace's "data/textures/font/" folder, on the
// current OpenCL context; null with "Unable to read file NAME" on the
// console when its picture cannot be read.
MemTypeFont* memFontByName(const std::string& name);
