// The widget classes as scripts and copies see them: the flags that are not
// stored, and the one script method of the base.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <lua.hpp>

#include "runtime/AppGlobal.h"
#include "runtime/ScnLua.h"
#include "widgets/GuiContainers.h"
#include "widgets/GuiControls.h"
#include "widgets/GuiMenus.h"

namespace {

std::string run(lua_State* L, const std::string& code)
{
    if (luaL_loadbuffer(L, code.data(), code.size(), "test") != 0 || lua_pcall(L, 0, 1, 0) != 0) {
        std::string msg = std::string("ERROR: ") + (lua_tostring(L, -1) ? lua_tostring(L, -1) : "?");
        lua_pop(L, 1);
        return msg;
    }
    std::string out = lua_tostring(L, -1) ? lua_tostring(L, -1) : "";
    lua_pop(L, 1);
    return out;
}

template <class Base>
std::pair<bool, bool> flags(ScnNode* n)
{
    auto* w = static_cast<GuiComponent<Base>*>(n);
    return {w->visible(), w->selectable()};
}

}  // namespace

TEST(WidgetClasses, CopiesAreVisibleAndKeepTheSelectableFlag)
{
    // Menus, their rows, tool bar parts and text panes can't be found as hover.
    const std::vector<std::pair<const char*, bool>> selectable = {
        {"GuiWindow", true}, {"GuiMenu", false}, {"GuiMenuItem", false}, {"GuiToolBarButton", false},
        {"GuiButton", true}, {"GuiInput", true}, {"GuiText", false},
    };
    for (const auto& [cls, want] : selectable) {
        std::unique_ptr<ScnNode> n(ScnNodeRegistry::create(cls));
        ASSERT_STREQ(n->getType()->name, cls);
        const bool group = n->isA(GuiComponent<ScnGroup>::s_type);
        auto get = [&](ScnNode* x) { return group ? flags<ScnGroup>(x) : flags<ScnNode>(x); };
        EXPECT_EQ(get(n.get()), std::pair(true, want)) << cls;
        if (group)
            static_cast<GuiComponent<ScnGroup>*>(n.get())->setVisible(false);
        else
            static_cast<GuiComponent<ScnNode>*>(n.get())->setVisible(false);
        std::unique_ptr<ScnNode> copy(n->duplicate());
        EXPECT_EQ(get(copy.get()), std::pair(true, want)) << cls;
        EXPECT_EQ(get(n.get()), std::pair(false, want)) << cls;
    }
}

TEST(WidgetClasses, ScriptsSetTheVisibleFlagOfLeafAndGroupWidgets)
{
    lua_State* L = AppGlobal::luaState();
    ASSERT_NE(L, nullptr);
    GuiButton button;
    GuiWindow window;
    std::unique_ptr<ScnNode> b(button.instantiate());
    std::unique_ptr<ScnNode> w(window.instantiate());
    ScnLua::setGlobalNode(L, "widgetButton", b.get());
    ScnLua::setGlobalNode(L, "widgetWindow", w.get());
    EXPECT_EQ(run(L, "widgetButton:setVisible(false) widgetWindow:setVisible(false) return 'ok'"), "ok");
    EXPECT_FALSE(static_cast<GuiButton*>(b.get())->visible());
    EXPECT_FALSE(static_cast<GuiWindow*>(w.get())->visible());
    EXPECT_EQ(run(L, "widgetWindow:setVisible(true) return tostring(widgetWindow)"), "GuiWindow (window)");
    EXPECT_TRUE(static_cast<GuiWindow*>(w.get())->visible());
    // Methods of the node classes are inherited.
    EXPECT_EQ(run(L, "return widgetButton:getName()"), "button");
    ScnLua::clearGlobalNode(L, "widgetButton");
    ScnLua::clearGlobalNode(L, "widgetWindow");
}
