#include "widgets/GuiComponent.h"

#include <type_traits>

#include "node/ScnMFFunction.h"
#include "runtime/ScnLua.h"
#include "widgets/GuiActionEvent.h"
#include "widgets/GuiActionRender.h"
#include "widgets/GuiRoot.h"

template <class T>
ScnNodeType GuiComponent<T>::s_type;

template <class T>
GuiComponent<T>::GuiComponent(const char* nodeName, double width, double height, bool selectable)
    : m_selectable(selectable)
{
    if (nodeName) this->name = nodeName;
    size = ScnVec3{width, height, 0};
    this->setBounds(computeBounds());
}

template <class T>
ScnBox GuiComponent<T>::computeBounds() const
{
    const ScnVec3& p = position.value;
    const ScnVec3& s = size.value;
    ScnBox box;
    box.min[0] = p.x;
    box.min[1] = p.y;
    box.min[2] = p.z;
    box.max[0] = p.x + s.x;
    box.max[1] = p.y + s.y;
    box.max[2] = p.z + s.z;
    return box;
}

template <class T>
void GuiComponent<T>::onEvent(ScnAction& action)
{
    auto* event = dynamic_cast<GuiActionEvent*>(&action);
    if (!event) {
        T::onEvent(action);
        return;
    }
    // Only a moving action carries a translation; it lands on whole pixels.
    const ScnMatrix16& m = action.top();
    const double tx = static_cast<double>(static_cast<long long>(m.m[12]));
    const double ty = static_cast<double>(static_cast<long long>(m.m[13]));
    if (tx != 0 || ty != 0) position = ScnVec3{position.value.x + tx, position.value.y + ty, position.value.z};
    action.walkOnThen(this);
}

template <class T>
void GuiComponent<T>::afterWalkOn(ScnAction& action, void* saved, int flag)
{
    auto* event = dynamic_cast<GuiActionEvent*>(&action);
    if (!event) {
        T::afterWalkOn(action, saved, flag);
        return;
    }
    if constexpr (std::is_same_v<T, ScnGroup>) {
        if (this->enabled()) action.walk(this, ScnAction::Children);
    }
    this->setBounds(GuiActionEvent::eventBox(position.value, size.value));
    serveEvent(*event);
}

template <class T>
void GuiComponent<T>::serveEvent(GuiActionEvent& action)
{
    offerHover(action);
}

template <class T>
void GuiComponent<T>::offerHover(GuiActionEvent& action)
{
    if (GuiRoot::windowOpen() && m_selectable && !action.hover && GuiActionEvent::mouseInside(this->getBounds()))
        action.hover = this;
}

template <class T>
void GuiComponent<T>::onRender(ScnAction& action)
{
    if (!dynamic_cast<GuiActionRender*>(&action)) {
        T::onRender(action);
        return;
    }
    if (m_visible) draw();
    if constexpr (std::is_same_v<T, ScnGroup>)
        action.walk(this, this->enabled() ? ScnAction::Both : ScnAction::Siblings);
    else
        action.continueWalk(this, ScnAction::Siblings);
}

template <class T>
void GuiComponent<T>::invalidate()
{
    if (m_visible) GuiRoot::invalidateCurrent(this->getBounds());
}

template <class T>
void GuiComponent<T>::addLuaMethods(ScnLuaClass<GuiComponent>& c)
{
    c.add("setVisible", &GuiComponent::luaSetVisible);
}

template <class T>
int GuiComponent<T>::luaSetVisible(lua_State* L)
{
    // Hiding invalidates while the old flag still stands; showing waits for
    // the next invalidation that touches the widget.
    const bool on = lua_toboolean(L, 1) != 0;
    if (!on) invalidate();
    setVisible(on);
    return 0;
}

template class GuiComponent<ScnNode>;
template class GuiComponent<ScnGroup>;

bool guiWidgetFields(ScnNode* node, ScnSFVec3f*& position, ScnSFVec3f*& size)
{
    if (auto* leaf = dynamic_cast<GuiComponent<ScnNode>*>(node)) {
        position = &leaf->position;
        size = &leaf->size;
        return true;
    }
    if (auto* group = dynamic_cast<GuiComponent<ScnGroup>*>(node)) {
        position = &group->position;
        size = &group->size;
        return true;
    }
    return false;
}

void guiAddEvents(ScnMFFunction& functions, std::span<const char* const> names)
{
    for (const char* n : names)
        if (functions.indexOf(n) < 0) functions.append(n);
}

void guiRemoveEvents(ScnMFFunction& functions, std::span<const char* const> names)
{
    for (const char* n : names) functions.remove(n);
}
