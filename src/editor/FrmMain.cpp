#include "editor/FrmMain.h"

#include <QApplication>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProcess>
#include <QSplitter>
#include <QStatusBar>
#include <QTabWidget>
#include <QToolBar>
#include <QVBoxLayout>

#include "editor/CtlColorGrid.h"
#include "editor/CtlOutput.h"
#include "editor/CtlProfiler.h"
#include "editor/CtlWorldView.h"
#include "memory/MemStatistics.h"
#include "node/ScnNode.h"
#include "platform/Settings.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnNodes.h"
#include "runtime/RtnSelection.h"
#include "widgets/InputState.h"

namespace {

const char* const kRecentApps = "Recent Document List";
const char* const kRecentWorkspaces = "Recent Workspace List";

QStringList readRecent(const char* section)
{
    QStringList list;
    std::string text;
    int count = FrmMain::kRecentKept;
    if (Settings::get(section, "DocumentCount", text)) count = std::clamp(std::atoi(text.c_str()), 2, FrmMain::kRecentKept);
    for (int i = 1; i <= count; ++i)
        if (Settings::get(section, "Document" + std::to_string(i), text) && !text.empty())
            list << QString::fromStdString(text);
    return list;
}

void writeRecent(const char* section, const QStringList& list)
{
    Settings::set(section, "DocumentCount", std::to_string(FrmMain::kRecentKept));
    for (int i = 1; i <= FrmMain::kRecentKept; ++i)
        Settings::set(section, "Document" + std::to_string(i), i <= list.size() ? list[i - 1].toStdString() : "");
}

QString workspaceFolder()
{
    return QString::fromStdString(AppGlobal::projectPath());
}

// A path inside the workspace is kept relative to it, as documents name files.
QString relativeToWorkspace(const QString& path)
{
    QDir ws(workspaceFolder());
    QString rel = ws.relativeFilePath(QFileInfo(path).absoluteFilePath());
    return rel.startsWith("..") ? QFileInfo(path).absoluteFilePath() : rel;
}

}  // namespace

FrmMain::FrmMain(QWidget* parent) : QMainWindow(parent)
{
    VTRACE("FrmMain::OnCreate()-start");
    resize(1336, 942);

    m_view = new CtlWorldView;
    m_viewTab = new QTabWidget;
    auto* scene = new QWidget;
    auto* sceneLayout = new QVBoxLayout(scene);
    sceneLayout->setContentsMargins(0, 0, 0, 0);
    sceneLayout->setSpacing(0);
    auto* viewBar = new QToolBar;
    viewBar->setIconSize(QSize(16, 15));
    QAction* gui = viewBar->addAction("Toggle GUI");
    gui->setCheckable(true);
    gui->setChecked(true);
    connect(gui, &QAction::toggled, this, [this](bool on) { m_view->showGui = on; });
    QAction* capture = viewBar->addAction("Capture");
    capture->setToolTip("Toggle input capture ");
    capture->setCheckable(true);
    capture->setChecked(true);
    connect(capture, &QAction::toggled, this, [](bool on) { InputState::instance().capture = on; });
    viewBar->addSeparator();
    for (int slot = 0; slot < 5; ++slot) {
        QAction* a = viewBar->addAction(QString::number(slot + 1));
        a->setToolTip("Store Viewpoint");
        a->setCheckable(true);
        connect(a, &QAction::triggered, this, [this, slot] {
            chooseViewpoint(slot, QApplication::keyboardModifiers() & Qt::ShiftModifier);
        });
        m_viewpoints[slot] = a;
    }
    sceneLayout->addWidget(viewBar);
    sceneLayout->addWidget(m_view, 1);
    m_viewTab->addTab(scene, "Scene");
    // The selected processor's registers, beside the scene.
    m_grid = new CtlColorGrid;
    m_viewTab->addTab(m_grid, "Registers");

    m_output = new CtlOutput;
    auto* outputPage = new QWidget;
    auto* outputLayout = new QVBoxLayout(outputPage);
    outputLayout->setContentsMargins(0, 0, 0, 0);
    outputLayout->setSpacing(0);
    auto* outputBar = new QToolBar;
    QAction* logging = outputBar->addAction("Write to console.txt");
    logging->setCheckable(true);
    connect(logging, &QAction::toggled, this, [this, logging](bool on) {
        if (!m_output->setLogging(on)) logging->setChecked(false);
    });
    outputLayout->addWidget(outputBar);
    outputLayout->addWidget(m_output, 1);
    m_outputTabs = new QTabWidget;
    m_outputTabs->addTab(outputPage, "Output");
    // The selected program's kernel times.
    m_profiler = new CtlProfiler;
    m_outputTabs->addTab(m_profiler, "Kernel times");

    auto* split = new QSplitter(Qt::Vertical);
    split->addWidget(m_viewTab);
    split->addWidget(m_outputTabs);
    split->setStretchFactor(0, 1);
    split->setSizes({height() - 150, 150});
    setCentralWidget(split);

    m_fpsPane = new QLabel;
    m_fpsPane->setMinimumWidth(70);
    statusBar()->addPermanentWidget(m_fpsPane);
    m_memoryPane = new QLabel;
    m_memoryPane->setMinimumWidth(70);
    statusBar()->addPermanentWidget(m_memoryPane);

    buildMenus();
    m_recentApps = readRecent(kRecentApps);
    m_recentWorkspaces = readRecent(kRecentWorkspaces);
    fillRecentMenus();

    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &FrmMain::tick);
    connect(m_view, &CtlWorldView::started, this, &FrmMain::onViewStarted);
    connect(m_output, &CtlOutput::jump, this, &FrmMain::jumpTo);
    RtnSelection::instance().addObserver(&m_observer);
    VTRACE("FrmMain::OnCreate()-done");
}

FrmMain::~FrmMain()
{
    RtnSelection::instance().removeObserver(&m_observer);
    m_timer.stop();
    m_view->stopRecording();
    m_output->forgetNodes(false);
    m_doc.close();
}

void FrmMain::buildMenus()
{
    QMenu* file = menuBar()->addMenu("&File");
    QMenu* fileNew = file->addMenu("New");
    fileNew->addAction("Application", this, &FrmMain::newApplication);
    QMenu* fileOpen = file->addMenu("Open");
    fileOpen->addAction("Application...", this, &FrmMain::commandOpen);
    m_save = file->addAction("Save", this, &FrmMain::commandSave);
    m_save->setShortcut(QKeySequence("Ctrl+S"));
    file->addAction("Save As...", this, &FrmMain::commandSaveAs);
    file->addSeparator();
    m_recentAppMenu = file->addMenu("Recent Application");
    m_recentWorkspaceMenu = file->addMenu("Recent Workspace");
    file->addSeparator();
    file->addAction("Exit", this, &QWidget::close);

    QMenu* tools = menuBar()->addMenu("&Tools");
    m_record = tools->addAction("Record Movie...");
    m_record->setCheckable(true);
    m_record->setToolTip("Start\\Stop recording the animation into a movie");
    connect(m_record, &QAction::triggered, this, &FrmMain::commandRecord);

    QMenu* help = menuBar()->addMenu("&Help");
    help->addAction("About...", this, [this] {
        QMessageBox::about(this, "About Velmora", "Velmora\nOpenCL, OpenGL and Lua in one tree of nodes.");
    });

    QToolBar* run = addToolBar("Simulation");
    m_start = run->addAction("Start Simulation");
    m_start->setCheckable(true);
    connect(m_start, &QAction::toggled, this, &FrmMain::simulationToggled);
    m_reset = run->addAction("Reset", this, &FrmMain::reset);
}

void FrmMain::onViewStarted()
{
    newApplication();
    m_startedUp = true;
    LogStream(Channels::console(), "console") << "Current workspace at " << AppGlobal::projectPath();
    emit started();
}

void FrmMain::newApplication()
{
    m_timer.stop();
    m_output->forgetNodes(false);
    std::string error;
    m_doc.open("", error);
    {
        const QSignalBlocker block(m_start);
        m_start->setChecked(false);
    }
    checkViewpoint(-1);
    updateTitle();
    m_timer.start(15);
}

bool FrmMain::openApplication(const QString& file)
{
    m_timer.stop();
    QApplication::setOverrideCursor(Qt::WaitCursor);
    m_output->forgetNodes(false);
    std::string error;
    const bool ok = m_doc.open(file.toStdString(), error);
    QApplication::restoreOverrideCursor();
    if (ok) {
        const QSignalBlocker block(m_start);
        m_start->setChecked(false);
        addRecentApplication(file);
        checkViewpoint(0);
    } else {
        QMessageBox::warning(this, file, QString::fromStdString(error));
    }
    updateTitle();
    m_timer.start(15);
    return ok;
}

bool FrmMain::saveApplicationAs(const QString& file)
{
    QApplication::setOverrideCursor(Qt::WaitCursor);
    storeCheckedViewpoint();
    const bool ok = m_doc.saveAs(file.toStdString());
    QApplication::restoreOverrideCursor();
    if (ok) addRecentApplication(file);
    updateTitle();
    return ok;
}

void FrmMain::commandOpen()
{
    QString file = QFileDialog::getOpenFileName(this, "Open Application", workspaceFolder(), "Applications (*.3Dm)");
    if (!file.isEmpty()) openApplication(relativeToWorkspace(file));
}

void FrmMain::commandSave()
{
    if (!m_doc.application()) return;
    if (m_doc.application()->fileName.empty()) {
        commandSaveAs();
        return;
    }
    QApplication::setOverrideCursor(Qt::WaitCursor);
    storeCheckedViewpoint();
    m_doc.save();
    QApplication::restoreOverrideCursor();
}

void FrmMain::commandSaveAs()
{
    if (!m_doc.application()) return;
    QString start = workspaceFolder();
    if (!m_doc.application()->fileName.empty())
        start = QDir(start).filePath(QString::fromStdString(m_doc.application()->fileName));
    QString file = QFileDialog::getSaveFileName(this, "Save Application As", start, "Applications (*.3Dm)");
    if (file.isEmpty()) return;
    if (QFileInfo(file).suffix().isEmpty()) file += ".3Dm";
    saveApplicationAs(relativeToWorkspace(file));
}

void FrmMain::reset()
{
    QApplication::setOverrideCursor(Qt::WaitCursor);
    m_timer.stop();
    m_output->forgetNodes(true);
    storeCheckedViewpoint();
    m_doc.reset();
    // The new camera starts where the checked slot says.
    if (m_checkedViewpoint >= 0 && m_doc.application()) m_doc.application()->recallViewpoint(m_checkedViewpoint, false);
    m_view->update();
    {
        const QSignalBlocker block(m_start);
        m_start->setChecked(false);
    }
    m_start->setEnabled(true);
    m_timer.start(15);
    QApplication::restoreOverrideCursor();
}

void FrmMain::simulationToggled(bool on)
{
    // The document toggles edit, running and paused; the button mirrors running.
    const bool running = m_doc.state() == RtnDocument::State::Running;
    if (on != running) m_doc.toggleSimulation();
}

void FrmMain::tick()
{
    const uint32_t delay = m_view->runFrame(m_doc);
    if (m_timer.isActive() || isVisible()) m_timer.start(static_cast<int>(delay));
    const uint32_t now = m_clock.milliseconds();
    const uint32_t dt = std::max<uint32_t>(1, now - m_lastTick);
    m_lastTick = now;
    m_fps = m_fps * 0.9 + (1000.0 / dt) * 0.1;
    m_fpsPane->setText(QString::asprintf("FPS %d", static_cast<int>(m_fps)));
    m_memoryPane->setText(QString::asprintf("MB %ld", static_cast<long>(MemStatistics::bytes() >> 20)));
    if (m_output->drain()) stopOnError();
    // Bars of failed functions and kernel times follow the frame.
    if (m_grid->isVisible()) m_grid->update();
    if (m_profiler->isVisible()) m_profiler->update();
}

void FrmMain::storeCheckedViewpoint()
{
    if (m_checkedViewpoint >= 0 && m_doc.application()) m_doc.application()->storeViewpoint(m_checkedViewpoint);
}

void FrmMain::checkViewpoint(int slot)
{
    // The buttons only show the slot: a click toggles its button before
    // the command sees it.
    m_checkedViewpoint = slot;
    for (int i = 0; i < 5; ++i) m_viewpoints[i]->setChecked(i == slot);
}

void FrmMain::chooseViewpoint(int slot, bool keep)
{
    if (slot < 0 || slot >= 5 || !m_doc.application()) return;
    // The view is saved in the slot being left, whichever it is.
    storeCheckedViewpoint();
    m_doc.application()->recallViewpoint(slot, keep);
    checkViewpoint(slot);
}

void FrmMain::onSelection(RtnSelection& s)
{
    if (s.has(RtnSelection::ProcessorSelected) && s.processor)
        m_viewTab->setTabText(m_viewTab->indexOf(m_grid), QString::fromStdString(s.processor->getName()));
    else if (s.has(RtnSelection::ProcessorCleared))
        m_viewTab->setTabText(m_viewTab->indexOf(m_grid), "Registers");
}

void FrmMain::stopOnError()
{
    // An error pauses the application and shows the message.
    m_start->setChecked(false);
    m_outputTabs->setCurrentIndex(0);
}

void FrmMain::jumpTo(ScnNode* node, int line, int /*reg*/, int kind)
{
    if (!CtlOutput::isErrorKind(kind)) return;
    if (node && RtnSelection::instance().node != node) {
        // A run-time node is shown as the design node it was made from.
        ScnNode* design = node->designPeer() ? node->designPeer() : node;
        RtnSelection::instance().setNode(design);
        node = design;
    }
    QString where = node ? QString::fromStdString(node->getName()) : QString("the application");
    if (auto* r = dynamic_cast<RtnRegister*>(node))
        if (auto* p = dynamic_cast<RtnProcessor*>(r->parent()))
            for (int i = 0; i < RtnProcessor::kRegisters; ++i)
                if (p->getRegister(i) == r) where = QString("%1, register %2").arg(QString::fromStdString(p->getName())).arg(i);
    setStatusText(0, QString("%1, line %2").arg(where).arg(line));
}

bool FrmMain::startRecording(const QString& file)
{
    std::string error;
    const bool ok = m_view->startRecording(file.toStdString(), error);
    if (!ok) QMessageBox::warning(this, "Record Movie", QString::fromStdString(error));
    const QSignalBlocker block(m_record);
    m_record->setChecked(ok);
    return ok;
}

void FrmMain::stopRecording()
{
    m_view->stopRecording();
    const QSignalBlocker block(m_record);
    m_record->setChecked(false);
}

void FrmMain::commandRecord(bool on)
{
    if (!on) {
        stopRecording();
        return;
    }
    QString file = QFileDialog::getSaveFileName(this, "Record Movie", QDir(workspaceFolder()).filePath("movie.mp4"),
                                                "Movies (*.mp4)");
    if (file.isEmpty()) {
        const QSignalBlocker block(m_record);
        m_record->setChecked(false);
        return;
    }
    startRecording(file);
}

void FrmMain::setStatusText(int pane, const QString& text)
{
    if (pane == 0)
        statusBar()->showMessage(text);
    else if (pane == 1)
        m_fpsPane->setText(text);
    else if (pane == 2)
        m_memoryPane->setText(text);
}

QString FrmMain::statusText(int pane) const
{
    switch (pane) {
    case 0: return statusBar()->currentMessage();
    case 1: return m_fpsPane->text();
    case 2: return m_memoryPane->text();
    default: return QString();
    }
}

void FrmMain::updateTitle()
{
    RtnApplication* app = m_doc.application();
    setWindowTitle(app && !app->fileName.empty() ? QString::fromStdString(app->fileName) : QString("unnamed"));
}

void FrmMain::addRecentApplication(const QString& file)
{
    QString entry = file;
    while (entry.startsWith('/') && !QFileInfo(entry).isAbsolute()) entry.remove(0, 1);
    m_recentApps.removeAll(entry);
    m_recentApps.prepend(entry);
    while (m_recentApps.size() > kRecentKept) m_recentApps.removeLast();
    writeRecent(kRecentApps, m_recentApps);
    fillRecentMenus();
}

void FrmMain::fillRecentMenus()
{
    m_recentAppMenu->clear();
    for (int i = 0; i < m_recentApps.size() && i < kRecentShown; ++i) {
        const QString file = m_recentApps[i];
        m_recentAppMenu->addAction(QString("&%1 %2").arg(i + 1).arg(file), this, [this, file] {
            const QString path = QDir(workspaceFolder()).filePath(file);
            if (!QFileInfo(path).isFile()) {
                // A file that is gone leaves the list.
                m_recentApps.removeAll(file);
                writeRecent(kRecentApps, m_recentApps);
                fillRecentMenus();
                return;
            }
            openApplication(file);
        });
    }
    if (m_recentAppMenu->isEmpty()) m_recentAppMenu->addAction("(empty)")->setEnabled(false);

    m_recentWorkspaceMenu->clear();
    int shown = 0;
    for (const QString& folder : m_recentWorkspaces) {
        if (shown == kRecentShown) break;
        if (!QFileInfo(folder).isDir()) continue;  // gone: not offered
        m_recentWorkspaceMenu->addAction(QString("&%1 %2").arg(++shown).arg(folder), this,
                                         [this, folder] { switchWorkspace(folder); });
    }
    if (m_recentWorkspaceMenu->isEmpty()) m_recentWorkspaceMenu->addAction("(empty)")->setEnabled(false);
}

void FrmMain::switchWorkspace(const QString& folder)
{
    // The program starts anew, and takes the workspace from the top of the list.
    m_recentWorkspaces.removeAll(folder);
    m_recentWorkspaces.prepend(folder);
    while (m_recentWorkspaces.size() > kRecentKept) m_recentWorkspaces.removeLast();
    writeRecent(kRecentWorkspaces, m_recentWorkspaces);
    // Applications of the old workspace mean nothing in the new one.
    const QString old = QDir(workspaceFolder()).absolutePath();
    QStringList kept;
    for (const QString& f : m_recentApps)
        if (QFileInfo(f).isAbsolute() && !f.startsWith(old + "/")) kept << f;
    m_recentApps = kept;
    writeRecent(kRecentApps, m_recentApps);
    if (!QProcess::startDetached(QCoreApplication::applicationFilePath(), {})) {
        QMessageBox::warning(this, "Recent Workspace", "The program could not be started again.");
        return;
    }
    close();
}

void FrmMain::closeEvent(QCloseEvent* event)
{
    // Shutdown order: the timer, the recording, then the document and its twin tree.
    m_timer.stop();
    stopRecording();
    m_output->forgetNodes(false);
    m_doc.close();
    event->accept();
}
