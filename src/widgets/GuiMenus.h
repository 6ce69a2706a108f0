// Menu bars, menus and tool bars, and the rows and buttons they lay out. The
// containers size themselves from their children, so only `GuiToolBar` and
// `GuiToolBarButton` store anything beyond `position` and `size`.
#pragma once

#include "widgets/GuiComponent.h"

class GuiMenuBar : public GuiComponent<ScnGroup> {
    SCN_NODE(GuiMenuBar, GuiComponent<ScnGroup>)
public:
    GuiMenuBar();
};

// Its title is the node's name; it opens on hover.
class GuiMenu : public GuiComponent<ScnGroup> {
    SCN_NODE(GuiMenu, GuiComponent<ScnGroup>)
public:
    GuiMenu();
};

class GuiMenuItem : public GuiComponent<ScnNode> {
    SCN_NODE(GuiMenuItem, GuiComponent<ScnNode>)
public:
    GuiMenuItem();

    static constexpr const char* kEvents[] = {"OnSelect"};
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
};

class GuiMenuSeparator : public GuiComponent<ScnNode> {
    SCN_NODE(GuiMenuSeparator, GuiComponent<ScnNode>)
public:
    GuiMenuSeparator();
};

class GuiToolBar : public GuiComponent<ScnGroup> {
    SCN_NODE(GuiToolBar, GuiComponent<ScnGroup>)
public:
    GuiToolBar();
    // 4 icons; the behaviour of the buttons: 16 radio that may be empty,
    // 32 momentary, 64 toggle, 128 radio that keeps one.
    ScnSFUInt style{this, "style", 16};
};

class GuiToolBarButton : public GuiComponent<ScnNode> {
    SCN_NODE(GuiToolBarButton, GuiComponent<ScnNode>)
public:
    GuiToolBarButton();
    // Cell of the icon atlas, 32 to a row.
    ScnSFUShort icon{this, "icon", 0};

    static constexpr const char* kEvents[] = {"OnDown", "OnUp"};
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
};

class GuiToolBarSeparator : public GuiComponent<ScnNode> {
    SCN_NODE(GuiToolBarSeparator, GuiComponent<ScnNode>)
public:
    GuiToolBarSeparator();
};
