// velmora-fonts: renders the bitmap fonts of the workspace template from a
// TrueType font with FreeType: for each font a square RGBA picture (white,
// coverage in alpha) and its ".txt" description, one "char" line per glyph
// with its rectangle (from the picture's top left), the offsets of its quad
// from the pen (x to the left edge, y up to the top edge) and its advance.
//
//   velmora-fonts FONT.ttf OUTPUT_FOLDER
#include <ft2build.h>
#include FT_FREETYPE_H

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <stb/stb_image_write.h>

namespace {

struct FontCut {
    const char* name;
    int pixels;  // em height in pixels
    int side;    // the picture is side by side
};

// Latin-1: printable ASCII and the upper half.
bool wanted(int c)
{
    return (c >= 32 && c <= 126) || (c >= 160 && c <= 255);
}

bool render(FT_Library lib, const std::string& fontFile, const FontCut& cut, const std::string& folder)
{
    FT_Face face = nullptr;
    if (FT_New_Face(lib, fontFile.c_str(), 0, &face)) {
        std::fprintf(stderr, "velmora-fonts: cannot open %s\n", fontFile.c_str());
        return false;
    }
    FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(cut.pixels));
    const int side = cut.side;
    std::vector<unsigned char> rgba(static_cast<size_t>(side) * side * 4, 0);
    for (size_t i = 0; i < rgba.size(); i += 4) rgba[i] = rgba[i + 1] = rgba[i + 2] = 255;

    const std::string txtPath = folder + "/" + cut.name + ".txt";
    FILE* txt = std::fopen(txtPath.c_str(), "wb");
    if (!txt) {
        std::fprintf(stderr, "velmora-fonts: cannot write %s\n", txtPath.c_str());
        FT_Done_Face(face);
        return false;
    }
    const int lineHeight = static_cast<int>((face->size->metrics.height + 63) >> 6);
    const int base = static_cast<int>((face->size->metrics.ascender + 63) >> 6);
    std::fprintf(txt, "info face=\"%s %s\" size=%d\n", face->family_name, face->style_name, cut.pixels);
    std::fprintf(txt, "common lineHeight=%d base=%d scaleW=%d scaleH=%d pages=1\n", lineHeight, base, side, side);

    // Shelves from the top left, one pixel between glyphs.
    int penX = 1, penY = 1, shelf = 0;
    bool ok = true;
    for (int c = 0; c < 256; ++c) {
        if (!wanted(c)) continue;
        if (FT_Load_Char(face, static_cast<FT_ULong>(c), FT_LOAD_RENDER)) continue;
        const FT_GlyphSlot g = face->glyph;
        const int w = static_cast<int>(g->bitmap.width), h = static_cast<int>(g->bitmap.rows);
        if (penX + w + 1 > side) {
            penX = 1;
            penY += shelf + 1;
            shelf = 0;
        }
        if (penY + h + 1 > side) {
            std::fprintf(stderr, "velmora-fonts: %s does not fit in %dx%d\n", cut.name, side, side);
            ok = false;
            break;
        }
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                rgba[(static_cast<size_t>(penY + y) * side + penX + x) * 4 + 3] =
                    g->bitmap.buffer[y * g->bitmap.pitch + x];
        std::fprintf(txt, "char id=%d x=%d y=%d width=%d height=%d xoffset=%d yoffset=%d xadvance=%d page=0 chnl=15\n", c,
                     penX, penY, w, h, g->bitmap_left, g->bitmap_top, static_cast<int>((g->advance.x + 63) >> 6));
        penX += w + 1;
        if (h > shelf) shelf = h;
    }
    if (ok && FT_HAS_KERNING(face)) {
        for (int a = 32; a < 127; ++a)
            for (int b = 32; b < 127; ++b) {
                FT_Vector k{};
                if (FT_Get_Kerning(face, FT_Get_Char_Index(face, a), FT_Get_Char_Index(face, b), FT_KERNING_DEFAULT, &k))
                    continue;
                const int amount = static_cast<int>(k.x >> 6);
                if (amount != 0) std::fprintf(txt, "kerning first=%d second=%d amount=%d\n", a, b, amount);
            }
    }
    std::fclose(txt);
    FT_Done_Face(face);
    if (!ok) return false;
    const std::string png = folder + "/" + cut.name + ".png";
    if (!stbi_write_png(png.c_str(), side, side, 4, rgba.data(), side * 4)) {
        std::fprintf(stderr, "velmora-fonts: cannot write %s\n", png.c_str());
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: velmora-fonts FONT.ttf OUTPUT_FOLDER\n");
        return 2;
    }
    std::error_code ec;
    std::filesystem::create_directories(argv[2], ec);
    FT_Library lib = nullptr;
    if (FT_Init_FreeType(&lib)) {
        std::fprintf(stderr, "velmora-fonts: FreeType does not start\n");
        return 1;
    }
    // The widget kit's small face and the scene text's large one.
    const FontCut cuts[] = {{"GUI", 14, 256}, {"FONT", 32, 512}};
    bool ok = true;
    for (const FontCut& s : cuts) ok = render(lib, argv[1], s, argv[2]) && ok;
    FT_Done_FreeType(lib);
    return ok ? 0 : 1;
}
