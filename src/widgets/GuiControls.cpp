#include "widgets/GuiControls.h"

#include "widgets/GuiDraw.h"

namespace {
// Default sizes are counted in cells of the present cell size.
int cell()
{
    return GuiDraw::cellSize();
}
}

ScnNodeType GuiButton::s_type;
ScnNodeType GuiCheckbox::s_type;
ScnNodeType GuiRadioButton::s_type;
ScnNodeType GuiLabel::s_type;
ScnNodeType GuiInput::s_type;
ScnNodeType GuiText::s_type;
ScnNodeType GuiSlider::s_type;
ScnNodeType GuiAccelerator::s_type;
ScnNodeType GuiListBox::s_type;

GuiButton::GuiButton() : GuiComponent("button", 4 * cell() + 4, cell() + 4, true) {}

void GuiButton::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiButton::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiCheckbox::GuiCheckbox() : GuiComponent("check", 60, cell(), true) {}

void GuiCheckbox::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiCheckbox::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiRadioButton::GuiRadioButton() : GuiComponent("radio", 60, cell() + 4, true) {}

// A radio button raises what a check box raises.
void GuiRadioButton::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, GuiCheckbox::kEvents);
}

void GuiRadioButton::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, GuiCheckbox::kEvents);
}

GuiLabel::GuiLabel() : GuiComponent("text", 120, cell() + 4, true) {}

GuiInput::GuiInput() : GuiComponent("input", 120, cell() + 4, true) {}

void GuiInput::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiInput::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiText::GuiText() : GuiComponent("textpane", 120, 120, false) {}

GuiSlider::GuiSlider() : GuiComponent("slider", cell() + 4, 120, true) {}

void GuiSlider::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiSlider::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiAccelerator::GuiAccelerator() : GuiComponent("accelerator", 120, cell() + 4, true) {}

// The same handling as a slider, so the same events.
void GuiAccelerator::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, GuiSlider::kEvents);
}

void GuiAccelerator::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, GuiSlider::kEvents);
}

GuiListBox::GuiListBox() : GuiComponent("listbox", 100, 200, true) {}

void GuiListBox::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiListBox::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}
