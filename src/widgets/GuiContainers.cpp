#include "widgets/GuiContainers.h"

ScnNodeType GuiWindow::s_type;
ScnNodeType GuiFileDialog::s_type;
ScnNodeType GuiTabCtrl::s_type;
ScnNodeType GuiCanvas::s_type;

GuiWindow::GuiWindow() : GuiWindow("window", 220, 220, 65535) {}

GuiWindow::GuiWindow(const char* nodeName, double width, double height, uint32_t styleBits)
    : GuiComponent(nodeName, width, height, true)
{
    style = styleBits;
}

void GuiWindow::read(ScnInStream& in)
{
    GuiComponent::read(in);
    if (!in.failed()) closeButton.read(in);
}

void GuiWindow::write(ScnOutStream& out) const
{
    GuiComponent::write(out);
    closeButton.write(out);
}

ScnNode* GuiWindow::instantiate()
{
    ScnNode* copy = GuiComponent::instantiate();
    if (auto* window = dynamic_cast<GuiWindow*>(copy)) window->closeButton.copyFieldsFrom(closeButton);
    return copy;
}

void GuiWindow::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiWindow::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiFileDialog::GuiFileDialog() : GuiWindow("filedialog", 400, 400, 2582) {}

void GuiFileDialog::addEvents(ScnMFFunction& f)
{
    GuiWindow::addEvents(f);
    guiAddEvents(f, kEvents);
}

void GuiFileDialog::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
    GuiWindow::removeEvents(f);
}

GuiTabCtrl::GuiTabCtrl() : GuiComponent("tabctrl", 100, 100, true) {}

void GuiTabCtrl::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiTabCtrl::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiCanvas::GuiCanvas() : GuiComponent("canvas2", 200, 200, true) {}

void GuiCanvas::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiCanvas::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}
