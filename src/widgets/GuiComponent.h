// What every widget adds to a node: a place and a size in pixels of the root
// picture (stored), and the visible and selectable flags (not stored).
//
// The template is instantiated over ScnNode for leaf widgets and over ScnGroup
// for widgets with children; `position` and `size` follow the fields of the
// base, so the two kinds keep them at different places in a file.
#pragma once

#include <span>

#include "node/ScnNode.h"

struct lua_State;
class GuiActionEvent;
template <class T>
class ScnLuaClass;

template <class T>
class GuiComponent : public T {
public:
    static ScnNodeType s_type;
    static ScnNode* factory() { return new GuiComponent(); }
    const ScnNodeType* getType() const override { return &s_type; }

    // A bare component keeps the base's name and has no extent.
    GuiComponent() : GuiComponent(nullptr, 0, 0, true) {}
    // `nodeName` is what a new node is called (null keeps the base's name).
    GuiComponent(const char* nodeName, double width, double height, bool selectable);
    // A copy is always visible and takes over the selectable flag.
    GuiComponent(const GuiComponent& other) : T(other), m_selectable(other.m_selectable) {}

    ScnSFVec3f position{this, "position", ScnVec3{100, 100, 0}};
    ScnSFVec3f size{this, "size"};

    // A hidden widget neither draws nor invalidates; a window's visible flag
    // is its open state.
    bool visible() const { return m_visible; }
    void setVisible(bool on) { m_visible = on; }
    // Whether the widget can be found as hover.
    bool selectable() const { return m_selectable; }

    // From `position` to `position` + `size`, in all three components.
    ScnBox computeBounds() const override;

    // Widget event walk: the action goes on to the later siblings first and
    // the widget serves itself when they are done, so the last sibling (the
    // one drawn on top) is served first. A group serves its children before
    // itself. Other walks are those of the base.
    void onEvent(ScnAction& action) override;
    void afterWalkOn(ScnAction& action, void* saved, int flag) override;
    // Draws when visible, then goes on (a group to its children first).
    void onRender(ScnAction& action) override;
    // Tells the current root that the widget's box must be drawn again;
    // nothing while hidden.
    void invalidate();

protected:
    // What the widget does with the pass once the later siblings are served,
    // with its box up to date. A component offers itself as hover.
    virtual void serveEvent(GuiActionEvent& action);
    // Offers the widget as hover: selectable, in an open window, nothing
    // chosen yet in this pass and the mouse inside.
    void offerHover(GuiActionEvent& action);
    // The widget's own drawing; a bare component draws nothing.
    virtual void draw() {}

public:
    // Script method setVisible(flag).
    static void addLuaMethods(ScnLuaClass<GuiComponent>& c);
    int luaSetVisible(lua_State* L);

protected:
    ScnNode* makeCopy() const override { return new GuiComponent(*this); }

private:
    bool m_visible = true;
    bool m_selectable = true;
};

extern template class GuiComponent<ScnNode>;
extern template class GuiComponent<ScnGroup>;

// The position and size fields of a widget of either kind; false (and the
// pointers untouched) for a node that is no widget.
bool guiWidgetFields(ScnNode* node, ScnSFVec3f*& position, ScnSFVec3f*& size);

// The event names of a widget class, in the order of their numbers: the first
// is number 3, after the three that every register has. Names that the list
// holds already are kept where they stand.
void guiAddEvents(ScnMFFunction& functions, std::span<const char* const> names);
void guiRemoveEvents(ScnMFFunction& functions, std::span<const char* const> names);
