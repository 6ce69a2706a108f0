#include "widgets/GuiComponent.h"

#include "node/ScnMFFunction.h"
#include "runtime/ScnLua.h"

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
void GuiComponent<T>::addLuaMethods(ScnLuaClass<GuiComponent>& c)
{
    c.add("setVisible", &GuiComponent::luaSetVisible);
}

template <class T>
int GuiComponent<T>::luaSetVisible(lua_State* L)
{
    setVisible(lua_toboolean(L, 1) != 0);
    return 0;
}

template class GuiComponent<ScnNode>;
template class GuiComponent<ScnGroup>;

void guiAddEvents(ScnMFFunction& functions, std::span<const char* const> names)
{
    for (const char* n : names)
        if (functions.indexOf(n) < 0) functions.append(n);
}

void guiRemoveEvents(ScnMFFunction& functions, std::span<const char* const> names)
{
    for (const char* n : names) functions.remove(n);
}
