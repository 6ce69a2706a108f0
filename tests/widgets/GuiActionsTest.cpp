// The update and transform walks over widgets: the boxes they leave, read
// back as numbers, and the fields a move and a resize change.
#include <gtest/gtest.h>

#include <limits>
#include <memory>

#include "widgets/GuiActionEvent.h"
#include "widgets/GuiActionTransform.h"
#include "widgets/GuiActionUpdate.h"
#include "widgets/GuiComponent.h"
#include "widgets/GuiControls.h"
#include "widgets/GuiDraw.h"
#include "widgets/GuiRoot.h"

namespace {

struct Tree {
    // root: a panel (10, 20, 200 by 100) holding a button (30, 40, 64 by 22)
    // and a label (50, 70, 120 by 23); a plain group with a button beside.
    Tree()
    {
        panel->position = ScnVec3{10, 20, 0};
        panel->size = ScnVec3{200, 100, 0};
        button->position = ScnVec3{30, 40, 0};
        button->size = ScnVec3{64, 22, 0};
        label->position = ScnVec3{50, 70, 0};
        label->size = ScnVec3{120, 23, 0};
        other->position = ScnVec3{300, 5, 0};
        other->size = ScnVec3{40, 10, 0};
        panel->append(button);
        panel->append(label);
        group->append(other);
        root->append(panel);
        root->append(group);
    }
    ~Tree() { GuiDraw::setCellSize(cell); }
    int cell = GuiDraw::cellSize();
    std::unique_ptr<GuiRoot> root = std::make_unique<GuiRoot>();
    GuiComponent<ScnGroup>* panel = new GuiComponent<ScnGroup>("panel", 0, 0, true);
    GuiButton* button = new GuiButton();
    GuiLabel* label = new GuiLabel();
    ScnGroup* group = new ScnGroup();
    GuiButton* other = new GuiButton();
};

void expectBox(const ScnBox& b, double x0, double y0, double x1, double y1, const char* what)
{
    EXPECT_EQ(b.min[0], x0) << what;
    EXPECT_EQ(b.min[1], y0) << what;
    EXPECT_EQ(b.max[0], x1) << what;
    EXPECT_EQ(b.max[1], y1) << what;
    EXPECT_EQ(b.min[2], std::numeric_limits<double>::max()) << what << ": empty in z";
    EXPECT_EQ(b.max[2], std::numeric_limits<double>::lowest()) << what << ": empty in z";
}

TEST(GuiActions, UpdateBoxesComeFromTheFieldsOnePixelShortOfTheEventBoxes)
{
    Tree t;
    GuiActionUpdate update;
    update.apply(t.root.get());
    // Each widget its own fields, nested or not, the panel not grown by what
    // it holds; the last pixel row and column are left out.
    expectBox(t.panel->getBounds(), 10, 20, 209, 119, "panel");
    expectBox(t.button->getBounds(), 30, 40, 93, 61, "button");
    expectBox(t.label->getBounds(), 50, 70, 169, 92, "label");
    expectBox(t.other->getBounds(), 300, 5, 339, 14, "a widget under a plain group");

    // The event walk's boxes reach to x + width, y + height.
    GuiActionEvent event;
    event.apply(t.root.get());
    expectBox(t.button->getBounds(), 30, 40, 94, 62, "button after the event walk");
    expectBox(t.panel->getBounds(), 10, 20, 210, 120, "panel after the event walk");

    // An update along a path reaches the widget at its end.
    t.label->position = ScnVec3{51, 71, 0};
    GuiActionUpdate path;
    path.apply(path.buildPath(t.label, nullptr));
    expectBox(t.label->getBounds(), 51, 71, 170, 93, "label updated along its path");
}

TEST(GuiActions, ATransformMovesEveryWidgetReachedAndResizesOnlyTheFirst)
{
    Tree t;
    // Moves land on whole pixels; the requested width is rounded, a height
    // of 0 keeps the height.
    GuiActionTransform move(5.7, -3.2, 150.4, 0);
    move.apply(t.panel);
    EXPECT_EQ(t.panel->position.value.x, 15);
    EXPECT_EQ(t.panel->position.value.y, 17);
    EXPECT_EQ(t.panel->size.value.x, 150);
    EXPECT_EQ(t.panel->size.value.y, 100);
    EXPECT_EQ(t.button->position.value.x, 35) << "what the panel holds moves with it";
    EXPECT_EQ(t.button->position.value.y, 37);
    EXPECT_EQ(t.button->size.value.x, 64) << "but keeps its size";
    EXPECT_EQ(t.label->position.value.x, 55);
    EXPECT_EQ(t.label->size.value.y, 23);
    EXPECT_EQ(t.other->position.value.x, 300) << "the panel's sibling is not reached";

    // Started at a leaf the resize is that leaf's, by height only.
    GuiActionTransform grow(0, 0, 0, 30.5);
    grow.apply(t.other);
    EXPECT_EQ(t.other->size.value.x, 40);
    EXPECT_EQ(t.other->size.value.y, 31);
    EXPECT_EQ(t.other->position.value.x, 300);
}

}  // namespace
