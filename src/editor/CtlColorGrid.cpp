#include "editor/CtlColorGrid.h"

#include <cstring>

#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>

#include "node/ScnMFFunction.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnNodes.h"
#include "runtime/RtnSelection.h"

namespace {

QColor rgb(unsigned c)
{
    return QColor((c >> 16) & 0xFF, (c >> 8) & 0xFF, c & 0xFF);
}

constexpr unsigned kMarked = 0xFF3A00;  // a failed or edited function
constexpr unsigned kPlain = 0x3A3A3A;

}  // namespace

CtlColorGrid::CtlColorGrid(QWidget* parent) : QWidget(parent)
{
    setFocusPolicy(Qt::ClickFocus);
    m_menu = new QMenu(this);
    m_menu->addAction("Remove", this, [this] {
        RtnProcessor* p = processor();
        if (!p || m_selected < 0) return;
        RtnRegister* r = p->getRegister(m_selected);
        if (!r) return;
        RtnSelection::instance().clearRegister();
        p->deleteRegister(r);
        update(cellRect(m_selected));
    });
    RtnSelection::instance().addObserver(&m_observer);
}

CtlColorGrid::~CtlColorGrid()
{
    RtnSelection::instance().removeObserver(&m_observer);
}

QSize CtlColorGrid::sizeHint() const
{
    return {kLeft + kColumns * 90 + 4, kTop + (kCells / kColumns) * kCellHeight + 4};
}

int CtlColorGrid::cellWidth() const
{
    return std::max(50, (width() - kLeft) / kColumns);
}

int CtlColorGrid::cellAt(const QPoint& p) const
{
    if (p.x() < kLeft || p.y() < kTop) return -1;
    const int col = (p.x() - kLeft) / cellWidth(), row = (p.y() - kTop) / kCellHeight;
    if (col >= kColumns || row >= kCells / kColumns) return -1;
    return col + row * kColumns;
}

QRect CtlColorGrid::cellRect(int index) const
{
    const int w = cellWidth();
    return {kLeft + (index % kColumns) * w, kTop + (index / kColumns) * kCellHeight, w, kCellHeight};
}

unsigned CtlColorGrid::classColour(const ScnNode* token)
{
    if (!token) return 0xFFFFFF;
    const char* name = token->getType()->name;
    if (std::strcmp(name, "RtnProcessor") == 0) return 0xC69DA6;
    if (std::strncmp(name, "Gui", 3) == 0) return 0xD9D9D9;
    if (std::strncmp(name, "Ocl", 3) == 0) return 0xD1D8FF;
    if (std::strncmp(name, "Scn", 3) == 0 || std::strncmp(name, "Sns", 3) == 0) return 0xC9D99B;
    return 0xFFFFFF;
}

RtnProcessor* CtlColorGrid::processor() const
{
    return RtnSelection::instance().processor;
}

void CtlColorGrid::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), palette().window());
    RtnProcessor* p = processor();
    for (int i = 0; i < kCells; ++i) {
        const QRect box = cellRect(i);
        RtnRegister* r = p ? p->getRegister(i) : nullptr;
        if (!r) {
            painter.fillRect(box, palette().button());
        } else {
            ScnNode* first = r->marking.count() ? r->marking.path(0).resolve() : nullptr;
            painter.fillRect(box, i == m_selected ? QColor(Qt::white) : rgb(classColour(first)));
            QString text = first ? QString::fromStdString(first->getName()) : QString();
            if (r->marking.count() >= 2) text += " ... ";
            painter.setPen(Qt::black);
            painter.drawText(box.adjusted(22, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft, text);
            // A bar per function with code, from the right edge leftwards.
            int x = box.right() - 4;
            for (int f = 0; f < r->functions.count(); ++f) {
                if (r->functions.getCode(f).empty()) continue;
                const bool marked = r->functions.getError(f) || r->functions.getModified(f);
                painter.fillRect(QRect(x - 2, box.top() + 3, 3, box.height() - 6), rgb(marked ? kMarked : kPlain));
                x -= 4;
            }
        }
        painter.setPen(palette().dark().color());
        painter.drawRect(box.adjusted(0, 0, -1, -1));
    }
}

void CtlColorGrid::selectCell(int cell)
{
    RtnSelection& s = RtnSelection::instance();
    RtnProcessor* p = processor();
    if (!p || cell < 0 || cell >= kCells) return;
    const int function = s.function;
    s.clearFunction();
    s.clearRegister();
    m_selected = cell;
    if (RtnRegister* r = p->getRegister(cell)) {
        s.setRegister(r);
        s.setFunction(function >= 0 && function < r->functions.count() ? function : 0);
    }
    update();
}

void CtlColorGrid::mousePressEvent(QMouseEvent* event)
{
    const int cell = cellAt(event->position().toPoint());
    if (cell < 0) return;
    setFocus(Qt::MouseFocusReason);
    selectCell(cell);
    RtnProcessor* p = processor();
    if (event->modifiers() & Qt::ControlModifier && p && p->getRegister(cell)) m_dragged = cell;
}

void CtlColorGrid::mouseReleaseEvent(QMouseEvent* event)
{
    const int from = m_dragged;
    m_dragged = -1;
    const int to = cellAt(event->position().toPoint());
    RtnProcessor* p = processor();
    // Only an empty cell takes a dragged register.
    if (from < 0 || to < 0 || to == from || !p || p->getRegister(to)) return;
    RtnSelection& s = RtnSelection::instance();
    const int function = s.function;
    if (!p->moveRegister(from, to)) return;
    m_selected = to;
    if (RtnRegister* r = p->getRegister(to)) {
        s.setRegister(r);
        s.setFunction(function);
    }
    update();
}

void CtlColorGrid::keyPressEvent(QKeyEvent* event)
{
    // Up and down go by half a row: the grid's keys predate its 8 columns.
    int step = 0;
    switch (event->key()) {
    case Qt::Key_Left: step = -1; break;
    case Qt::Key_Right: step = 1; break;
    case Qt::Key_Up: step = -4; break;
    case Qt::Key_Down: step = 4; break;
    default: QWidget::keyPressEvent(event); return;
    }
    const int next = m_selected + step;
    if (m_selected >= 0 && next >= 0 && next < kCells) selectCell(next);
}

void CtlColorGrid::contextMenuEvent(QContextMenuEvent* event)
{
    const int cell = cellAt(event->pos());
    if (cell < 0) return;
    selectCell(cell);
    RtnProcessor* p = processor();
    if (p && p->getRegister(cell)) m_menu->popup(event->globalPos());
}

void CtlColorGrid::onSelection(RtnSelection& s)
{
    if (s.has(RtnSelection::ProcessorSelected) || s.has(RtnSelection::ProcessorCleared)) {
        m_selected = -1;
        update();
    }
    if (s.has(RtnSelection::RegisterSelected) && s.reg && s.processor) {
        for (int i = 0; i < kCells; ++i)
            if (s.processor->getRegister(i) == s.reg) m_selected = i;
        update();
    }
    if (s.has(RtnSelection::RegisterCleared)) {
        m_selected = -1;
        update();
    }
}
