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

// The event names of a widget class, in the order of their numbers: the first
// is number 3, after the three that every register has. Names that the list
// holds already are kept where they stand.
void guiAddEvents(ScnMFFunction& functions, std::span<const char* const> names);
void guiRemoveEvents(ScnMFFunction& functions, std::span<const char* const> names);
