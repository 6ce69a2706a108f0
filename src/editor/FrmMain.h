// The main window of the editor: menus, the tool bar with Start Simulation
// and Reset, the world view, the output pane, the status bar and the one
// timer that drives everything. It holds no engine logic: each tick asks the
// world view for a frame, each document command goes to the document.
#pragma once

#include <QMainWindow>
#include <QStringList>
#include <QTimer>

#include "node/FCTFunctor.h"
#include "runtime/Clock.h"
#include "runtime/RtnDocument.h"

class QAction;
class QLabel;
class QMenu;
class QTabWidget;
class CtlColorGrid;
class CtlOutput;
class CtlProfiler;
class QActionGroup;
class CtlWorldView;
class ScnNode;
class RtnSelection;

class FrmMain : public QMainWindow {
    Q_OBJECT
public:
    // Entries kept in each recent list, and shown in its menu.
    static constexpr int kRecentKept = 16;
    static constexpr int kRecentShown = 8;

    explicit FrmMain(QWidget* parent = nullptr);
    ~FrmMain() override;

    RtnDocument& document() { return m_doc; }
    CtlWorldView* worldView() const { return m_view; }
    CtlOutput* output() const { return m_output; }
    QTabWidget* outputTabs() const { return m_outputTabs; }
    QAction* startAction() const { return m_start; }
    QAction* resetAction() const { return m_reset; }
    QAction* recordAction() const { return m_record; }
    QMenu* recentApplicationMenu() const { return m_recentAppMenu; }
    CtlColorGrid* registerGrid() const { return m_grid; }
    CtlProfiler* profiler() const { return m_profiler; }
    // The five "Store Viewpoint" buttons, slot 0 to 4.
    QAction* viewpointButton(int slot) const { return m_viewpoints[slot]; }
    int checkedViewpoint() const { return m_checkedViewpoint; }
    // A "Store Viewpoint" click: the view goes into the slot being left,
    // then the camera takes slot `slot` (a slot at the identity, or any slot
    // with `keep`, first takes the present view).
    void chooseViewpoint(int slot, bool keep);
    const QStringList& recentApplications() const { return m_recentApps; }
    // True once the world view has started the engine and a document exists.
    bool isStarted() const { return m_startedUp; }

    // The document commands, without their file choosers.
    void newApplication();
    // `file` is relative to the workspace or absolute. False, with a message
    // box, when it cannot be read; what was open stays open.
    bool openApplication(const QString& file);
    bool saveApplicationAs(const QString& file);
    void reset();

    // One tick: the frame in the view, the frames-per-second figure and the
    // drain of the output, then the timer is armed for the rest of the 25 ms.
    void tick();
    // Recording into `file` (no chooser); false with a message box.
    bool startRecording(const QString& file);
    void stopRecording();

    // Writes a status bar pane: 0 the message pane, 1 the "FPS" pane, 2 the
    // "MB" pane of the tracked memory.
    void setStatusText(int pane, const QString& text);
    QString statusText(int pane) const;

signals:
    void started();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    void onViewStarted();
    void commandOpen();
    void commandSave();
    void commandSaveAs();
    void commandRecord(bool on);
    void simulationToggled(bool on);
    void stopOnError();
    void jumpTo(ScnNode* node, int line, int reg, int kind);
    void updateTitle();
    // The present view into the slot of the checked button, if any.
    void storeCheckedViewpoint();
    // Unchecks the viewpoint buttons, then checks `slot` (-1: none).
    void checkViewpoint(int slot);
    void onSelection(RtnSelection& s);
    void addRecentApplication(const QString& file);
    void fillRecentMenus();
    void switchWorkspace(const QString& folder);

    SystemClock m_clock;
    RtnDocument m_doc{m_clock};
    CtlWorldView* m_view = nullptr;
    CtlOutput* m_output = nullptr;
    QTabWidget* m_viewTab = nullptr;
    QTabWidget* m_outputTabs = nullptr;
    QAction* m_start = nullptr;
    QAction* m_reset = nullptr;
    QAction* m_save = nullptr;
    QAction* m_record = nullptr;
    QMenu* m_recentAppMenu = nullptr;
    QMenu* m_recentWorkspaceMenu = nullptr;
    QLabel* m_fpsPane = nullptr;
    QLabel* m_memoryPane = nullptr;
    CtlColorGrid* m_grid = nullptr;
    CtlProfiler* m_profiler = nullptr;
    QAction* m_viewpoints[5] = {};
    int m_checkedViewpoint = -1;
    FCTFunctor1V<FrmMain, RtnSelection&> m_observer{this, &FrmMain::onSelection};
    QTimer m_timer;
    QStringList m_recentApps, m_recentWorkspaces;
    double m_fps = 0;
    uint32_t m_lastTick = 0;
    bool m_startedUp = false;
};
