// Widgets as tokens: the first widget dropped on a register gives it the
// class's event functions from index 3, and an event a widget raises by its
// number reaches the function of that name.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "node/ScnMFFunction.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "support/DocumentFixture.h"
#include "widgets/GuiContainers.h"
#include "widgets/GuiControls.h"
#include "widgets/GuiMenus.h"

namespace {

using Names = std::vector<std::string>;

Names functionNames(const RtnRegister* r)
{
    Names names;
    for (int i = 0; i < r->functions.count(); ++i) names.emplace_back(r->functions.entry(i).getName());
    return names;
}

const Names kWindow = {"OnOpen",        "OnClose",       "OnMove",        "OnHScrollDown", "OnHScrollMove",
                       "OnHScrollUp",   "OnVScrollDown", "OnVScrollMove", "OnVScrollUp"};

Names concat(Names a, const Names& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Classes with their events in number order, from 3: the root, a window and
// the dialog that adds to its events, and leaves with many, some or none.
const std::vector<std::pair<const char*, Names>>& classEvents()
{
    static const std::vector<std::pair<const char*, Names>> all = {
        {"GuiRoot", {"OnSelect"}},
        {"GuiWindow", kWindow},
        {"GuiFileDialog", concat(kWindow, {"OnOk", "OnCancel"})},
        {"GuiCanvas",
         {"OnPaint", "OnMouseDownLeft", "OnMouseUpLeft", "OnMousePressedLeft", "OnMouseDownRight", "OnMouseUpRight",
          "OnMousePressedRight", "OnMouseMove", "OnMouseWheel"}},
        {"GuiButton", {"OnDown", "OnUp", "OnPressed"}},
        {"GuiListBox", {"OnSelect", "OnDblClick"}},
        {"GuiLabel", {}},
    };
    return all;
}

class WidgetEvents : public DocumentFixture {
protected:
    void SetUp() override
    {
        DocumentFixture::SetUp();
        if (HasFatalFailure()) return;
        std::string error;
        ASSERT_TRUE(m_doc.open("widgets.3Dm", error)) << error;
        drain();
    }

    RtnApplication* app() { return m_doc.application(); }

    // A widget in the design GUI branch, with its twin in the running one.
    ScnNode* addWidget(const char* cls)
    {
        ScnNode* node = ScnNodeRegistry::create(cls);
        app()->gui.node.append(node);
        ScnNode* twin = node->instantiate();
        static_cast<ScnGroup*>(m_doc.runtime()->branch(CmdApplication::Gui))->append(twin);
        m_doc.runtime()->create(twin);
        return node;
    }
};

}  // namespace

TEST_F(WidgetEvents, FirstWidgetTokenGivesItsClassEventsFromIndexThree)
{
    RtnProcessor* p = app()->processorAt(0);
    int slot = 0;
    for (const auto& [cls, events] : classEvents()) {
        RtnRegister* r = p->createRegister(slot++);
        ASSERT_NE(r, nullptr) << cls;
        ScnNode* widget = std::string(cls) == "GuiRoot" ? &app()->gui.node : addWidget(cls);
        r->deposit(widget);
        EXPECT_EQ(functionNames(r), concat({"OnTime", "OnDeposit", "OnRemove"}, events)) << cls;
        // A second token adds nothing more.
        r->deposit(widget);
        EXPECT_EQ(r->functions.count(), 3 + static_cast<int>(events.size())) << cls;

        // The class's removal takes its own names and no others.
        widget->removeEvents(r->functions);
        EXPECT_EQ(functionNames(r), (Names{"OnTime", "OnDeposit", "OnRemove"})) << cls;
    }
}

TEST_F(WidgetEvents, AnEventNumberReachesTheFunctionOfThatName)
{
    RtnProcessor* p = app()->processorAt(0);
    struct Case {
        const char* cls;
        int number;
        const char* name;
    };
    // Numbers as the widgets raise them: a button's OnPressed, a slider's
    // OnUp, a file dialog's OnCancel after the nine window events.
    const Case cases[] = {{"GuiButton", 5, "OnPressed"}, {"GuiSlider", 5, "OnUp"}, {"GuiFileDialog", 13, "OnCancel"},
                          {"GuiCanvas", 11, "OnMouseWheel"}, {"GuiToolBarButton", 4, "OnUp"}};
    int slot = 0;
    for (const Case& c : cases) {
        RtnRegister* r = p->createRegister(slot++);
        ScnNode* widget = addWidget(c.cls);
        r->deposit(widget);
        int at = r->functions.indexOf(c.name);
        ASSERT_EQ(at, c.number) << c.cls;
        r->setFunctionCode(at, std::string("print('") + c.name + " ' .. event:getName())");
        ASSERT_TRUE(r->compileFunction(at)) << c.cls;
        drain();
        widget->twin()->notify(c.number);
        EXPECT_EQ(drain(), (Lines{std::string("(script): ") + c.name + " " + widget->getName()})) << c.cls;
    }
}
