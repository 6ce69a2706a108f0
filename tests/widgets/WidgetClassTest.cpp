// The widget classes as the registry and the scripts see them: parents,
// categories and start-up order, the flags that are not stored, and the one
// script method of the base.
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
#include "widgets/GuiRoot.h"

namespace {

struct Registration {
    const char* name;
    const ScnNodeType* type;
    const ScnNodeType* parent;
    uint32_t category;
};

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

}  // namespace

TEST(WidgetClasses, RegisteredInStartUpOrderUnderTheirParentsAndCategories)
{
    const ScnNodeType* leaf = &GuiComponent<ScnNode>::s_type;
    const ScnNodeType* group = &GuiComponent<ScnGroup>::s_type;
    const std::vector<Registration> order = {
        {"GuiComponent<ScnNode>", leaf, &ScnNode::s_type, 2},
        {"GuiComponent<ScnGroup>", group, &ScnGroup::s_type, 2},
        {"GuiRoot", &GuiRoot::s_type, &ScnGroup::s_type, 2},
        {"GuiButton", &GuiButton::s_type, leaf, 8},
        {"GuiCheckbox", &GuiCheckbox::s_type, leaf, 8},
        {"GuiRadioButton", &GuiRadioButton::s_type, leaf, 8},
        {"GuiWindow", &GuiWindow::s_type, group, 8},
        {"GuiLabel", &GuiLabel::s_type, leaf, 8},
        {"GuiText", &GuiText::s_type, leaf, 8},
        {"GuiSlider", &GuiSlider::s_type, leaf, 8},
        {"GuiAccelerator", &GuiAccelerator::s_type, leaf, 8},
        {"GuiCanvas", &GuiCanvas::s_type, group, 8},
        {"GuiListBox", &GuiListBox::s_type, leaf, 8},
        {"GuiMenu", &GuiMenu::s_type, group, 8},
        {"GuiMenuItem", &GuiMenuItem::s_type, leaf, 8},
        {"GuiMenuBar", &GuiMenuBar::s_type, group, 8},
        {"GuiMenuSeparator", &GuiMenuSeparator::s_type, leaf, 8},
        {"GuiFileDialog", &GuiFileDialog::s_type, &GuiWindow::s_type, 8},
        {"GuiToolBar", &GuiToolBar::s_type, group, 8},
        {"GuiToolBarButton", &GuiToolBarButton::s_type, leaf, 8},
        {"GuiToolBarSeparator", &GuiToolBarSeparator::s_type, leaf, 8},
        {"GuiInput", &GuiInput::s_type, leaf, 8},
        {"GuiTabCtrl", &GuiTabCtrl::s_type, group, 8},
    };
    for (size_t i = 0; i < order.size(); ++i) {
        const Registration& r = order[i];
        EXPECT_EQ(ScnNodeRegistry::find(r.name), r.type) << r.name;
        EXPECT_STREQ(r.type->name, r.name);
        EXPECT_EQ(ScnNodeRegistry::parentOf(*r.type), r.parent) << r.name;
        EXPECT_EQ(r.type->category, r.category) << r.name;
        EXPECT_NE(r.type->luaClassRef, 0) << r.name;
        // Nothing else registers in between: the ids follow the list.
        if (i > 0) {
            EXPECT_EQ(r.type->id, order[i - 1].type->id + 1) << r.name;
        }
    }
    EXPECT_EQ(ScnNodeRegistry::find("GuiCanvas2"), &GuiCanvas::s_type);
}

TEST(WidgetClasses, CopiesAreVisibleAndKeepTheSelectableFlag)
{
    // Menus, their rows, tool bar parts and text panes can't be found as hover.
    const std::vector<std::pair<const char*, bool>> selectable = {
        {"GuiWindow", true},        {"GuiFileDialog", true},     {"GuiCanvas", true},        {"GuiTabCtrl", true},
        {"GuiMenuBar", true},       {"GuiMenu", false},          {"GuiMenuItem", false},     {"GuiMenuSeparator", false},
        {"GuiToolBar", true},       {"GuiToolBarButton", false}, {"GuiToolBarSeparator", false},
        {"GuiButton", true},        {"GuiCheckbox", true},       {"GuiRadioButton", true},   {"GuiLabel", true},
        {"GuiInput", true},         {"GuiSlider", true},         {"GuiAccelerator", true},   {"GuiListBox", true},
        {"GuiText", false},
    };
    for (const auto& [cls, want] : selectable) {
        std::unique_ptr<ScnNode> n(ScnNodeRegistry::create(cls));
        ASSERT_STREQ(n->getType()->name, cls);
        bool isGroup = n->isA(GuiComponent<ScnGroup>::s_type);
        auto flags = [&](ScnNode* x) {
            return isGroup ? std::pair{static_cast<GuiComponent<ScnGroup>*>(x)->visible(),
                                       static_cast<GuiComponent<ScnGroup>*>(x)->selectable()}
                           : std::pair{static_cast<GuiComponent<ScnNode>*>(x)->visible(),
                                       static_cast<GuiComponent<ScnNode>*>(x)->selectable()};
        };
        EXPECT_EQ(flags(n.get()), std::pair(true, want)) << cls;
        if (isGroup)
            static_cast<GuiComponent<ScnGroup>*>(n.get())->setVisible(false);
        else
            static_cast<GuiComponent<ScnNode>*>(n.get())->setVisible(false);
        std::unique_ptr<ScnNode> copy(n->duplicate());
        EXPECT_EQ(flags(copy.get()), std::pair(true, want)) << cls;
        EXPECT_EQ(flags(n.get()), std::pair(false, want)) << cls;
    }
}

TEST(WidgetClasses, BoundsRunFromPositionToPositionPlusSize)
{
    GuiSlider slider;
    ScnBox start = slider.getBounds();
    EXPECT_EQ(start.min[0], 100.0);
    EXPECT_EQ(start.max[0], 100.0 + slider.size.value.x);
    EXPECT_EQ(start.max[1], 220.0);
    EXPECT_EQ(start.min[2], 0.0);
    EXPECT_EQ(start.max[2], 0.0);
    GuiWindow window;
    window.position = ScnVec3{10, 20, 0};
    window.size = ScnVec3{30, 40, 0};
    ScnBox box = window.computeBounds();
    EXPECT_EQ(box.min[0], 10.0);
    EXPECT_EQ(box.min[1], 20.0);
    EXPECT_EQ(box.max[0], 40.0);
    EXPECT_EQ(box.max[1], 60.0);
}

TEST(WidgetClasses, ScriptsSetTheVisibleFlagOfLeafAndGroupWidgets)
{
    lua_State* L = AppGlobal::luaState();
    ASSERT_NE(L, nullptr);
    GuiButton button;
    GuiWindow window;
    std::unique_ptr<ScnNode> b(button.instantiate());
    std::unique_ptr<ScnNode> w(window.instantiate());
    ASSERT_NE(b->getLuaRef(), 0);
    ASSERT_NE(w->getLuaRef(), 0);
    ScnLua::setGlobalNode(L, "widgetButton", b.get());
    ScnLua::setGlobalNode(L, "widgetWindow", w.get());
    auto* twinButton = static_cast<GuiButton*>(b.get());
    auto* twinWindow = static_cast<GuiWindow*>(w.get());

    EXPECT_EQ(run(L, "widgetButton:setVisible(false) widgetWindow:setVisible(false) return 'ok'"), "ok");
    EXPECT_FALSE(twinButton->visible());
    EXPECT_FALSE(twinWindow->visible());
    EXPECT_EQ(run(L, "widgetWindow:setVisible(true) return tostring(widgetWindow)"), "GuiWindow (window)");
    EXPECT_TRUE(twinWindow->visible());
    // Methods of the node classes are inherited.
    EXPECT_EQ(run(L, "return widgetButton:getName()"), "button");

    ScnLua::clearGlobalNode(L, "widgetButton");
    ScnLua::clearGlobalNode(L, "widgetWindow");
}
