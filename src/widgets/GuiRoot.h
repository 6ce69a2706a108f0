// The top of the widget branch: the look of the whole kit.
#pragma once

#include "node/ScnNode.h"

class GuiRoot : public ScnGroup {
    SCN_NODE(GuiRoot, ScnGroup)
public:
    GuiRoot();

    // Published as a script global under its name, also along a path.
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;

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
};
