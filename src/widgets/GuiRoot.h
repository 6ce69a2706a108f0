// The top of the widget branch: the look of the whole kit.
#pragma once

#include <cstdint>

#include "node/ScnNode.h"

class GuiRoot : public ScnGroup {
    SCN_NODE(GuiRoot, ScnGroup)
public:
    GuiRoot();

    ~GuiRoot() override;

    // Create makes the picture and publishes the root as a script global;
    // destroy gives both back. Passing through on a path does neither.
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    // Repaints the whole picture; a new dim0 or dim1 makes it anew.
    void onUpdate(ScnAction& action) override;
    // Widget event pass (a GuiActionEvent): Ctrl+G while editing, hover,
    // OnSelect. Other walks are those of a group.
    void onEvent(ScnAction& action) override;
    // Redraws the dirty rectangle into the picture, then composites the
    // picture over the view.
    void onRender(ScnAction& action) override;

    // The palette from the fields: every colour takes `transparency` as its
    // alpha but TEXT and HIGHLIGHTTEXT; the fields get it back too.
    void rebuildPalette();
    // Unites `box` with the dirty rectangle.
    void invalidate(const ScnBox& box);
    void invalidateAll();
    bool dirtyEmpty() const;
    const double* dirty() const { return m_dirty; }
    unsigned pictureTexture() const { return m_texture; }
    unsigned pictureFramebuffer() const { return m_framebuffer; }
    bool visible() const { return m_visible; }
    void setVisible(bool on) { m_visible = on; }
    // The widget found under the mouse by the last event pass.
    ScnNode* hover() const { return m_hover; }

    // The root whose walk is under way (null outside one).
    static GuiRoot* current();
    static void invalidateCurrent(const ScnBox& box);
    // The widget that receives keys (an input) or null; it gets the event
    // pass before the walk.
    static ScnNode* focus();
    static void setFocus(ScnNode* widget);
    // Whether the enclosing window is open; true outside windows.
    static bool windowOpen();
    // Whether the right button became held in this frame's pass: its state
    // in the input table is held from the press on, with no edge of its own.
    static bool rightWentDown();
    // The text-cursor blink counter: a cursor shows while it is 0 or more.
    static int blink();

    // OnSelect: the pass ended unhandled with something under the mouse.
    static constexpr const char* kEvents[] = {"OnSelect"};
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;

    static ScnColor grey(float v) { return ScnColor{v, v, v, 1}; }

    ScnSFColor face3D{this, "3DFACE", grey(0.941176f)};
    ScnSFColor highlight3D{this, "3DHIGHLIGHT", ScnColor{1, 1, 1, 1}};
    ScnSFColor activeBorder{this, "ACTIVEBORDER", grey(0.705882f)};
    ScnSFColor light3D{this, "3DLIGHT", grey(0.890196f)};
    ScnSFColor shadow3D{this, "3DSHADOW", grey(0.627451f)};
    ScnSFColor darkShadow3D{this, "3DDKSHADOW", grey(0.411765f)};
    ScnSFColor text{this, "TEXT", ScnColor{0, 0, 0, 1}};
    ScnSF<int> dim0{this, "dim0", 1024};
    ScnSF<int> dim1{this, "dim1", 768};
    ScnSF<float> transparency{this, "transparency", 0.9f};
    ScnSFColor highlight{this, "HIGHLIGHT", ScnColor{0.2f, 0.6f, 1, 1}};
    ScnSFColor highlightText{this, "HIGHLIGHTTEXT", ScnColor{1, 1, 1, 0.5f}};
    ScnSFColor window{this, "WINDOW", ScnColor{1, 1, 1, 1}};
    ScnSF<int> cellSize{this, "cellSize", 18};

    // Part of the palette but not a field: never stored, keeps its default.
    ScnColor menuHilight{0.2f, 0.6f, 1, 1};

private:
    void makePicture();
    void releasePicture();

    double m_dirty[6];
    unsigned m_framebuffer = 0, m_texture = 0, m_depth = 0;
    // Bytes of the picture and its depth buffer on the memory statistics.
    int64_t m_pictureBytes = 0;
    bool m_visible = true;
    ScnNode* m_hover = nullptr;
};
