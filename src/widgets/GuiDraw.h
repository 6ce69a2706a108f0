// The widget kit's drawing layer: lines, filled triangles and glyph quads are
// collected into three batches in pixels of the root picture and sent to
// OpenGL in one go at a clip change or when a widget needs it.
//
// Every vertex takes the current colour and depth; depth runs from 0 (near)
// to 10000 and each nesting level lowers it. Integer pixel coordinates are
// moved by 0.1 so that rasterisation lands on the intended pixel. One state
// for the process: a frame draws exactly one root.
#pragma once

#include "node/ScnNode.h"

class MemTypeFont;

namespace GuiDraw {
// Bevel styles.
enum : unsigned { Raised = 4, Sunken = 8 };

// The palette that widgets draw with, rebuilt by the root from its colours.
enum Colour {
    Face3D, Highlight3D, ActiveBorder, Light3D, Shadow3D, DkShadow3D, Text, Highlight, HighlightText, Window,
    MenuHilight, PaletteSize
};
float* palette(Colour which);

// Loads the font and builds the programs.
void init();
// Loads the font "GUI.png" of the workspace when there is none yet.
void loadFont();
// Compiles the three programs, unless they stand; nothing without a
// current GL context (a root's create tries again).
void buildPrograms();
// Loads the icon atlas "icons.jpg" (data/textures/gui of the workspace)
// when there is none yet and a context is current. Without the file there
// is no atlas (texture 0) until a later call finds one; a file that can't
// be decoded gives a blank atlas and the loader's message.
void loadIcons();
unsigned iconTexture();
int iconWidth();
int iconHeight();
// Texture coordinates of atlas cell `n`: 32 cells to a row of 1/32 of the
// picture each way, starting a quarter of the way in, t1 below t0.
void iconCell(int n, float& s0, float& t0, float& s1, float& t1);
// The programs, buffers and font are given back (the end of the process or
// of a test's context).
void shutdown();

// 19 until the first root sets its own.
int cellSize();
void setCellSize(int size);
// The opacity that the root gives to the palette.
float opacity();
void setOpacity(float value);

void setColor(float r, float g, float b, float a);
void setColor(const float* rgba);
const float* color();
float depth();
// Depth minus d; widgets call it in matched pairs.
void lower(float d);
// Back to the far end, 9999, where every root's walk starts.
void resetDepth();

void fillRect(const ScnBox& box, double dx, double dy);
void fillRectInt(int x0, int y0, int x1, int y1);
void line(double x0, double y0, double x1, double y1);
void pixel(double x, double y);
void bevel(const ScnBox& box, unsigned style);
void cross(const ScnBox& box, double dx, double dy, float lineWidth);
// Glyph quads of `length` bytes of `text` from (x, y); null draws nothing.
void text(double x, double y, const char* text, int length);
int textWidth(const char* text, int length);
int textHeight();
double baseline();
float textScale();
MemTypeFont* font();

// The clip stack: the scissor box of everything drawn after it.
static constexpr int kClipDepth = 20;
void pushClip(const ScnBox& box, double dx, double dy);
void popClip();
void resetClip(float x0, float y0, float x1, float y1);
int clipDepth();
const float* clipTop();  // x0, y0, x1, y1

// Sends and empties the three batches, keeping their capacity.
void flush();
// Draws at once with the textured program; the caller binds unit 0.
void texturedQuad(const ScnBox& box, double dx, double dy, float s0, float t0, float s1, float t1);
// The root's picture, blended over the whole current clip at depth 0.
void drawPicture(unsigned texture);

// gs_Viewport of the three programs: width, height, 10000, 1.
void setViewport(int width, int height);

// For tests and statistics: vertices waiting in each batch.
int lineVertices();
int triangleVertices();
int textVertices();
}  // namespace GuiDraw
