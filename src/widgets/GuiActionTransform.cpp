#include "widgets/GuiActionTransform.h"

#include "widgets/GuiComponent.h"

GuiActionTransform::GuiActionTransform(double dx, double dy, double width, double height)
    : ScnActionTransform(ScnMatrix16{}), translation{dx, dy}, requested{width, height}
{
}

void GuiActionTransform::visit(ScnNode* node)
{
    ScnSFVec3f *position = nullptr, *size = nullptr;
    if (guiWidgetFields(node, position, size)) {
        // Widgets look right on whole pixels only.
        const ScnVec3& p = position->value;
        const double dx = static_cast<double>(static_cast<long long>(translation[0]));
        const double dy = static_cast<double>(static_cast<long long>(translation[1]));
        *position = ScnVec3{p.x + dx, p.y + dy, p.z};
        if (requested[0] != 0 || requested[1] != 0) {
            ScnVec3 s = size->value;
            if (requested[0] != 0) s.x = static_cast<double>(static_cast<long long>(requested[0] + 0.5));
            if (requested[1] != 0) s.y = static_cast<double>(static_cast<long long>(requested[1] + 0.5));
            *size = s;
        }
        // Only the widget where the action starts is resized; what it holds
        // only moves with it.
        requested[0] = requested[1] = 0;
    }
    node->onTransform(*this);
}
