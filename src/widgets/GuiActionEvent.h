// The event walk over the widget branch: it keeps the handled flag of the
// world's event walk and finds the widget under the mouse (hover).
#pragma once

#include "node/ScnAction.h"

class GuiActionEvent : public ScnActionEvent {
public:
    explicit GuiActionEvent(ScnNode* camera = nullptr) : ScnActionEvent(camera) {}
    // The first selectable widget in the walk order with the mouse inside.
    ScnNode* hover = nullptr;

    // The box a widget is hit-tested against: (x, y) to (x + width,
    // y + height), empty in z.
    static ScnBox eventBox(const ScnVec3& position, const ScnVec3& size);
    // minimum <= mouse < maximum, with the mouse of the input table.
    static bool mouseInside(const ScnBox& box);
};
