// A string drawn in the scene with the shared font atlas "FONT.png": one
// quad a glyph, laid out from the origin along x and y, `scalar` world units
// to the picture's height.
#pragma once

#include "node/ScnNode.h"

class MemTypeFont;

class ScnText : public ScnNode {
    SCN_NODE(ScnText, ScnNode)
public:
    ScnText();
    ~ScnText() override;

    ScnSFString text{this, "text", "Text.."};
    // Size of the font in world units.
    ScnSF<float> scalar{this, "scalar", 14.0f};

    enum Event { OnPreRender = 3, OnPostRender = 4 };

    // The font all texts share, loaded once (at registration, or at the
    // first create where there was no context then); null when it cannot be
    // read, which is logged once: the texts then draw nothing.
    static MemTypeFont* font();
    static void loadFont();

    // Measures the text into the box and fills the two buffers again.
    void build();
    void setText(const std::string& value);
    int vertexCount() const { return m_count; }
    // The GL names of the positions (3 floats a vertex) and the texture
    // coordinates (2 floats a vertex); 0 before create.
    unsigned positionBuffer() const { return m_buffers[0]; }
    unsigned texCoordBuffer() const { return m_buffers[1]; }

    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onRender(ScnAction& action) override;
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
    ScnBox computeBounds() const override { return m_box; }

    // Script methods: setText(string), getText().
    static void addLuaMethods(ScnLuaClass<ScnText>& c);
    int luaSetText(lua_State* L);
    int luaGetText(lua_State* L);

private:
    void freeBuffers();
    ScnBox m_box;
    unsigned m_buffers[2] = {0, 0};
    int m_count = 0;
    bool m_stale = false;  // the buffers do not hold the present text
};
