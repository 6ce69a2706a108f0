#include "editor/CtlProfiler.h"

#include <algorithm>

#include <QPainter>

#include "compute/OclNodes.h"
#include "compute/oclObject.h"
#include "runtime/RtnSelection.h"

CtlProfiler::CtlProfiler(QWidget* parent) : QWidget(parent)
{
    m_font.setStyleHint(QFont::Monospace);
    m_font.setPixelSize(12);
    RtnSelection::instance().addObserver(&m_observer);
}

CtlProfiler::~CtlProfiler()
{
    RtnSelection::instance().removeObserver(&m_observer);
    setProgram(nullptr);
}

OclSourceNode* CtlProfiler::twin() const
{
    // The twin is looked up anew each time: a reset or a rebuild replaces it.
    return m_design ? dynamic_cast<OclSourceNode*>(m_design->twin()) : nullptr;
}

void CtlProfiler::setProfiling(OclSourceNode* t, bool on)
{
    if (!t || !t->program()) return;
    for (oclKernel* k : t->program()->kernels())
        if (k && k->profiling() != on) k->setProfiling(on);
}

void CtlProfiler::setProgram(ScnNode* design)
{
    if (design && !dynamic_cast<OclSourceNode*>(design)) design = nullptr;
    if (design == m_design) return;
    setProfiling(twin(), false);
    m_design = design;
    setProfiling(twin(), true);
    update();
}

std::vector<CtlProfiler::Row> CtlProfiler::rows()
{
    std::vector<Row> out;
    OclSourceNode* t = twin();
    if (!t || !t->program()) return out;
    // Kernels made by a rebuild since binding start without profiling.
    setProfiling(t, true);
    for (oclKernel* k : t->program()->kernels()) {
        if (!k) continue;
        const uint64_t start = k->startTime(), end = k->endTime();
        if (end > start) out.push_back({QString::fromUtf8(k->name()), end - start});
    }
    return out;
}

void CtlProfiler::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), palette().button());
    painter.setFont(m_font);
    painter.setPen(Qt::black);
    const std::vector<Row> chart = rows();
    uint64_t scale = 0;
    for (const Row& r : chart) scale = std::max(scale, r.nanoseconds);
    const QString scaleText = QString::asprintf("%f", static_cast<double>(scale));
    const QFontMetrics metrics(m_font);
    painter.drawText(QPoint(width() - metrics.horizontalAdvance(scaleText) - 4, metrics.ascent() + 2), scaleText);
    const int space = width() - metrics.horizontalAdvance(scaleText) - 170;
    int y = 20;
    for (const Row& r : chart) {
        painter.drawText(QRect(0, y, 150, 20), Qt::AlignVCenter | Qt::AlignLeft, r.name);
        const int length = scale ? static_cast<int>(static_cast<double>(space) / scale * r.nanoseconds) : 0;
        painter.fillRect(QRect(160, y + 6, std::max(0, length), 20 - 12), QColor(255, 0, 0));
        const QString us = QString::asprintf("%ld \u00b5s", static_cast<long>(r.nanoseconds / 1000));
        painter.drawText(QRect(0, y, width() - 4, 20), Qt::AlignVCenter | Qt::AlignRight, us);
        y += 20;
    }
}

void CtlProfiler::onSelection(RtnSelection& s)
{
    // The chart belongs to the selected program, as its page does.
    if (s.has(RtnSelection::NodeDeselected) || s.has(RtnSelection::ApplicationClosed)) setProgram(nullptr);
    if (s.has(RtnSelection::NodeSelected)) setProgram(s.node);
}
