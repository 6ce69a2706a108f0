#include "widgets/GuiActionEvent.h"

#include <limits>

#include "widgets/InputState.h"

ScnBox GuiActionEvent::eventBox(const ScnVec3& position, const ScnVec3& size)
{
    ScnBox box;
    box.min[0] = position.x;
    box.min[1] = position.y;
    box.max[0] = position.x + size.x;
    box.max[1] = position.y + size.y;
    box.min[2] = std::numeric_limits<double>::max();
    box.max[2] = std::numeric_limits<double>::lowest();
    return box;
}

bool GuiActionEvent::mouseInside(const ScnBox& box)
{
    const InputState& in = InputState::instance();
    return box.min[0] <= in.mouseX && in.mouseX < box.max[0] && box.min[1] <= in.mouseY && in.mouseY < box.max[1];
}
