// Widgets that hold other widgets or a picture of their own: windows, the
// file dialog, tab controls and canvases.
#pragma once

#include "widgets/GuiComponent.h"
#include "widgets/GuiControls.h"

class GuiWindow : public GuiComponent<ScnGroup> {
    SCN_NODE(GuiWindow, GuiComponent<ScnGroup>)
public:
    GuiWindow();

    // Bits: 1 client fill, 2 resize grip, 4 title bar with close button,
    // 8 vertical bar, 16 horizontal bar, 512 raised frame, 1024 sunken client
    // frame, 2048 floating. Other bits are carried along.
    ScnSFUInt style{this, "style", 65535};
    ScnSFString label{this, "label", "window"};

    // A member, not a child and not a field: a file holds its fields right
    // after the window's own, with no header.
    GuiButton closeButton;

    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;
    // The copy's close button takes over this one's values too.
    ScnNode* instantiate() override;

    static constexpr const char* kEvents[] = {"OnOpen",        "OnClose",       "OnMove",
                                              "OnHScrollDown", "OnHScrollMove", "OnHScrollUp",
                                              "OnVScrollDown", "OnVScrollMove", "OnVScrollUp"};
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;

protected:
    GuiWindow(const char* nodeName, double width, double height, uint32_t styleBits);
};

// A modal window that browses the file system; its events follow the window's.
class GuiFileDialog : public GuiWindow {
    SCN_NODE(GuiFileDialog, GuiWindow)
public:
    GuiFileDialog();

    static constexpr const char* kEvents[] = {"OnOk", "OnCancel"};
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
};

// Shows one of its child windows at a time, chosen by tabs.
class GuiTabCtrl : public GuiComponent<ScnGroup> {
    SCN_NODE(GuiTabCtrl, GuiComponent<ScnGroup>)
public:
    GuiTabCtrl();
    ScnSFUInt style{this, "style", 0};

    static constexpr const char* kEvents[] = {"OnChange"};
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
};

// A picture that scripts paint; its size in pixels is given by expressions.
class GuiCanvas : public GuiComponent<ScnGroup> {
    SCN_NODE(GuiCanvas, GuiComponent<ScnGroup>)
public:
    GuiCanvas();

    static constexpr uint32_t kCL_RGBA = 0x10B5;
    static constexpr uint32_t kCL_UNORM_INT8 = 0x10D2;

    ScnSFScript dim0{this, "dim0", 256};
    ScnSFScript dim1{this, "dim1", 256};
    // RGBA with 8 bits a channel, as the root's own picture.
    ScnSFImageFormat format{this, "format", ScnImageFormat{kCL_RGBA, kCL_UNORM_INT8}};
    ScnSFTextureFlags flags{this, "flags", ScnTextureFlags{{1, 0, 0, 0}}};

    static constexpr const char* kEvents[] = {"OnPaint",           "OnMouseDownLeft",  "OnMouseUpLeft",
                                              "OnMousePressedLeft", "OnMouseDownRight", "OnMouseUpRight",
                                              "OnMousePressedRight", "OnMouseMove",     "OnMouseWheel"};
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
};
