#include "editor/CtlOutput.h"

#include <cstring>
#include <thread>
#include <vector>

#include <QScrollBar>

#include "node/ScnNode.h"
#include "platform/Paths.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"

namespace {

constexpr int kRuntimeRole = CtlOutput::RegisterRole + 1;

// Text colours of the kinds that have one.
QColor colourOf(int kind)
{
    switch (kind) {
    case CtlOutput::ScriptError:
    case CtlOutput::KernelError:
    case CtlOutput::ShaderMessage: return QColor(0xC8, 0x0E, 0x0E);
    case CtlOutput::KernelWarning: return QColor(0xC6, 0x81, 0x37);
    case CtlOutput::Text: return QColor(0, 0, 0);
    case CtlOutput::Error: return QColor(0xFF, 0x6C, 0x28);
    default: return QColor();
    }
}

}  // namespace

CtlOutput::CtlOutput(QWidget* parent) : QListWidget(parent)
{
    setUniformItemSizes(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    connect(this, &QListWidget::itemClicked, this, &CtlOutput::activate);
    connect(this, &QListWidget::itemActivated, this, &CtlOutput::activate);
}

CtlOutput::~CtlOutput()
{
    if (m_log) std::fclose(m_log);
}

int CtlOutput::kindOf(const LogRing& ring)
{
    if (&ring == &Channels::scriptError()) return ScriptError;
    if (&ring == &Channels::error()) return Error;
    if (&ring == &Channels::console()) return Notice;
    if (&ring == &Channels::intro() || &ring == &Channels::luaPrint()) return Text;
    // The diagnostics rings belong to their subsystems; they are known by name.
    const char* name = ring.name();
    if (std::strcmp(name, "KernelErrorLog") == 0) return KernelError;
    if (std::strcmp(name, "KernelWarningLog") == 0) return KernelWarning;
    if (std::strcmp(name, "ShaderErrorLog") == 0) return ShaderMessage;
    return Notice;
}

bool CtlOutput::drain()
{
    std::vector<const LogRing*> from;
    std::vector<LogRecord> records = Channels::drainMerged(&from);
    Channels::resetSequence();
    if (records.empty()) return false;
    bool error = false;
    const bool atEnd = verticalScrollBar()->value() == verticalScrollBar()->maximum();
    setUpdatesEnabled(false);
    for (size_t i = 0; i < records.size(); ++i) {
        const LogRecord& r = records[i];
        const int kind = kindOf(*from[i]);
        if (m_log) std::fprintf(m_log, "%s\n", r.text);
        auto* item = new QListWidgetItem(QString::fromUtf8(r.text));
        item->setData(KindRole, kind);
        item->setData(NodeRole, QVariant::fromValue(reinterpret_cast<quintptr>(r.node)));
        item->setData(LineRole, r.line);
        item->setData(RegisterRole, r.reg);
        item->setData(kRuntimeRole, r.node && r.node->designPeer() != nullptr);
        if (QColor c = colourOf(kind); c.isValid()) item->setForeground(c);
        addItem(item);
        error = error || isErrorKind(kind);
    }
    while (count() > kMaxRows) delete takeItem(0);
    if (m_log) std::fflush(m_log);
    // Following the end, unless the user is reading further up.
    if (atEnd && !verticalScrollBar()->isSliderDown()) scrollToBottom();
    setUpdatesEnabled(true);
    return error;
}

void CtlOutput::clear()
{
    // Lets writers of this very moment finish their record first.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    Channels::clearAll();
    if (m_log) {
        std::fclose(m_log);
        m_log = std::fopen(m_logPath.c_str(), "w");
    }
    QListWidget::clear();
}

bool CtlOutput::setLogging(bool on)
{
    if (!on) {
        if (m_log) {
            std::fclose(m_log);
            m_log = nullptr;
            LogStream(Channels::console(), "console") << "logging is off";
        }
        return true;
    }
    if (m_log) return true;
    m_logPath = Paths::join(AppGlobal::projectPath(), "console.txt");
    m_log = std::fopen(m_logPath.c_str(), "w");
    if (!m_log) {
        LogStream(Channels::console(), "console") << "Unable to open log file: " << m_logPath;
        return false;
    }
    LogStream(Channels::console(), "console") << "Logging console to file: " << m_logPath;
    return true;
}

void CtlOutput::forgetNodes(bool runtimeOnly)
{
    for (int i = 0; i < count(); ++i) {
        QListWidgetItem* it = item(i);
        if (!runtimeOnly || it->data(kRuntimeRole).toBool()) it->setData(NodeRole, QVariant::fromValue(quintptr(0)));
    }
}

void CtlOutput::activate(QListWidgetItem* item)
{
    if (!item) return;
    auto* node = reinterpret_cast<ScnNode*>(item->data(NodeRole).value<quintptr>());
    emit jump(node, item->data(LineRole).toInt(), item->data(RegisterRole).toInt(), item->data(KindRole).toInt());
}
