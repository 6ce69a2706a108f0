// The editor driven as a user would: start, open, run, reset, save, record,
// and an error row that leads to its node. Runs on a real X display (Xvfb
// in the suite) with the engine's GL in the world view.
#include <filesystem>
#include <fstream>
#include <iterator>

#include <QMenu>
#include <QMessageBox>
#include <QTabWidget>
#include <QTimer>
#include <QtTest>

#include "editor/CtlColorGrid.h"
#include "editor/CtlOutput.h"
#include "editor/CtlProfiler.h"
#include "editor/CtlWorldView.h"
#include "memory/MemStatistics.h"
#include "platform/MovieWriter.h"
#include "editor/EdtStart.h"
#include "editor/FrmMain.h"
#include "platform/Settings.h"
#include "render/ScnCameraExamine.h"
#include "compute/OclNodes.h"
#include "compute/oclObject.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnNodes.h"
#include "runtime/AppGlobal.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnSelection.h"
#include "support/MovieProbe.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

std::string readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

struct Row {
    QString text;
    int kind;
};

// The rows of the output from `from` on.
std::vector<Row> rowsFrom(CtlOutput* out, int from)
{
    std::vector<Row> rows;
    for (int i = from; i < out->count(); ++i)
        rows.push_back({out->item(i)->text(), out->item(i)->data(CtlOutput::KindRole).toInt()});
    return rows;
}

int indexOf(const std::vector<Row>& rows, const QString& text, int kind)
{
    for (size_t i = 0; i < rows.size(); ++i)
        if (rows[i].text == text && rows[i].kind == kind) return static_cast<int>(i);
    return -1;
}

// Closes the next message box that comes up, keeping its title and text.
struct BoxCatcher {
    QString title, text;
    int seen = 0;
    QTimer timer;
    BoxCatcher()
    {
        timer.setInterval(20);
        QObject::connect(&timer, &QTimer::timeout, [this] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                title = box->windowTitle();
                text = box->text();
                ++seen;
                box->accept();
            }
        });
        timer.start();
    }
};

}  // namespace

class EditorTest : public QObject {
    Q_OBJECT
    TempDir m_tmp{"velmora-editor"};
    std::string m_workspace;
    FrmMain* m_frame = nullptr;

private slots:
    void initTestCase()
    {
        Settings::setFilePath(m_tmp / "settings.ini");
        AppGlobal::setProgramFolder(VELMORA_BIN_DIR);
        m_workspace = m_tmp / "workspace";
        fs::copy(std::string(VELMORA_BIN_DIR) + "/workspace", m_workspace, fs::copy_options::recursive);
    }

    // A last workspace that vanished: one warning, then the default one.
    void startFallsBackFromAVanishedWorkspace()
    {
        const std::string gone = m_tmp / "gone";
        QVERIFY(Settings::set("Recent Workspace List", "Document1", gone));
        BoxCatcher box;
        const std::string entered = EdtStart::enterWorkspace();
        QCOMPARE(box.seen, 1);
        QCOMPARE(box.text, QString("Unable to open workspace. Reverting to default workspace"));
        QCOMPARE(box.title, QString::fromStdString(gone));
        QCOMPARE(entered, AppGlobal::defaultWorkspace());
        QVERIFY(fs::equivalent(AppGlobal::projectPath(), AppGlobal::defaultWorkspace()));
        QVERIFY(fs::exists(fs::path(AppGlobal::defaultWorkspace()) / "velmora.txt"));

        // A workspace that is there is entered without a word.
        QVERIFY(Settings::set("Recent Workspace List", "Document1", m_workspace));
        BoxCatcher none;
        QVERIFY(fs::equivalent(EdtStart::enterWorkspace(), m_workspace));
        QCOMPARE(none.seen, 0);
        QVERIFY(fs::equivalent(AppGlobal::projectPath(), m_workspace));
    }

    void startsWithANewDocument()
    {
        m_frame = new FrmMain;
        m_frame->resize(900, 700);
        m_frame->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_frame));
        QTRY_VERIFY_WITH_TIMEOUT(m_frame->isStarted(), 30000);
        QCOMPARE(m_frame->windowTitle(), QString("unnamed"));
        QVERIFY(m_frame->document().application());
        QCOMPARE(m_frame->recentApplicationMenu()->actions().size(), 1);
        QCOMPARE(m_frame->recentApplicationMenu()->actions()[0]->text(), QString("(empty)"));
        m_frame->tick();
        QVERIFY(indexOf(rowsFrom(m_frame->output(), 0),
                        QString::fromStdString("(console): Current workspace at " + AppGlobal::projectPath()),
                        CtlOutput::Notice) >= 0);
    }

    // Open, run ten ticks, reset and save: the rows come in the order the
    // scripts wrote them, and the saved file is the file that was read.
    void opensRunsResetsAndSaves()
    {
        CtlOutput* out = m_frame->output();
        int mark = out->count();
        QVERIFY(m_frame->openApplication("samples/hello.3Dm"));
        QCOMPARE(m_frame->windowTitle(), QString("samples/hello.3Dm"));
        QCOMPARE(m_frame->recentApplications().value(0), QString("samples/hello.3Dm"));
        m_frame->tick();
        std::vector<Row> rows = rowsFrom(out, mark);
        // OnDeposit greets at load, then the document's hints.
        const int hello = indexOf(rows, "(script): Hello from OpenGL", CtlOutput::Text);
        const int first = indexOf(rows, "(intro): w,a,s,d, ctrl and arrow keys to move", CtlOutput::Text);
        const int last = indexOf(rows,
                                 "(intro): Hit \"play\" to start and \"reset\" to toggle between edit and runtime modes",
                                 CtlOutput::Text);
        QVERIFY2(hello >= 0 && first == hello + 1 && last == first + 3, "greeting then the four hints");
        QVERIFY2(indexOf(rows, "(script): frame 1", CtlOutput::Text) < 0, "nothing runs in edit mode");

        m_frame->startAction()->trigger();
        QVERIFY(m_frame->startAction()->isChecked());
        QCOMPARE(m_frame->document().state(), RtnDocument::State::Running);
        mark = out->count();
        for (int i = 0; i < 10; ++i) m_frame->tick();
        rows = rowsFrom(out, mark);
        QCOMPARE(static_cast<int>(rows.size()), 10);
        for (int i = 0; i < 10; ++i) {
            QVERIFY2(rows[i].text.startsWith(QString("(script): frame %1 at ").arg(i + 1)), qPrintable(rows[i].text));
            QVERIFY(rows[i].text.endsWith(" ms, token OpenGL"));
            QCOMPARE(rows[i].kind, int(CtlOutput::Text));
        }
        // The running copy's depth buffers and root picture are tracked and shown.
        QVERIFY(MemStatistics::bytes() >= (int64_t{1} << 20));
        QCOMPARE(m_frame->statusText(2), QString("MB %1").arg(MemStatistics::bytes() >> 20));

        mark = out->count();
        m_frame->reset();
        QVERIFY(!m_frame->startAction()->isChecked());
        QCOMPARE(m_frame->document().state(), RtnDocument::State::Edit);
        for (int i = 0; i < 3; ++i) m_frame->tick();
        rows = rowsFrom(out, mark);
        QCOMPARE(static_cast<int>(rows.size()), 2);
        QCOMPARE(rows[0].text, QString("(script): Goodbye, OpenGL"));
        QCOMPARE(rows[1].text, QString("(script): Hello from OpenGL"));

        const std::string copy = m_tmp / "copy.3Dm";
        QVERIFY(m_frame->saveApplicationAs(QString::fromStdString(copy)));
        QCOMPARE(m_frame->windowTitle(), QString::fromStdString(copy));
        const std::string original = readAll(m_workspace + "/samples/hello.3Dm");
        QVERIFY(!original.empty());
        QVERIFY2(readAll(copy) == original, "Save As writes the bytes that were read");
    }

    // The window's picture holds the frame: the view is cleared to black and
    // the axes are drawn on it.
    void screenshotShowsTheView()
    {
        m_frame->tick();
        QImage shot = m_frame->grab().toImage().convertToFormat(QImage::Format_RGB32);
        CtlWorldView* view = m_frame->worldView();
        const QRect box(view->mapTo(m_frame, QPoint(0, 0)) * shot.devicePixelRatio(), view->size() * shot.devicePixelRatio());
        QVERIFY(shot.rect().contains(box));
        long black = 0, lit = 0;
        for (int y = box.top(); y <= box.bottom(); ++y)
            for (int x = box.left(); x <= box.right(); ++x)
                (qGray(shot.pixel(x, y)) == 0 && (shot.pixel(x, y) & 0xFFFFFF) == 0 ? black : lit) += 1;
        const long all = static_cast<long>(box.width()) * box.height();
        QVERIFY2(black > all / 2, "the view's clear colour, not the window's background");
        QVERIFY2(lit > 0, "something is drawn");
    }

    // A script error stops the simulation, shows the output, and its row
    // leads to the register and the line.
    // Keys pressed in the view reach the camera through the frame's input:
    // W held moves the eye along the view direction, A to the side, and a key
    // outside the view's focus does nothing.
    void keysInTheViewMoveTheCamera()
    {
        CtlWorldView* view = m_frame->worldView();
        auto* cam = static_cast<ScnCameraExamine*>(m_frame->document().runtime()->branch(CmdApplication::Camera));
        QVERIFY(cam);
        view->setFocus();
        m_frame->tick();
        const double x0 = cam->eye[0], y0 = cam->eye[1], z0 = cam->eye[2];
        QTest::keyPress(view, Qt::Key_W);
        m_frame->tick();  // went down
        m_frame->tick();  // held: one step forward
        m_frame->tick();
        QTest::keyRelease(view, Qt::Key_W);
        m_frame->tick();
        const double z1 = cam->eye[2];
        QVERIFY2(z1 < z0 - 1e-6, "forward is along minus z from the start view");
        QCOMPARE(cam->eye[0], x0);
        QCOMPARE(cam->eye[1], y0);
        m_frame->tick();
        QCOMPARE(cam->eye[2], z1);  // released: no more steps

        QTest::keyPress(view, Qt::Key_A);
        m_frame->tick();
        m_frame->tick();
        QTest::keyRelease(view, Qt::Key_A);
        m_frame->tick();
        QVERIFY2(cam->eye[0] < x0 - 1e-6, "A moves to the left");
        QCOMPARE(cam->eye[2], z1);
    }

    void errorRowStopsAndLeadsToItsNode()
    {
        {
            RtnApplication app;
            auto* main = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
            RtnRegister* r = main->createRegister(3);
            r->functions.setCode(RtnRegister::OnTime, "local t = nil\nt.x = 1\n");
            r->marking.append(&app.openGL.node);
            RtnMFRef::s_root = &app;
            std::string error;
            QVERIFY2(app.writeFile(m_workspace + "/broken.3Dm", error), error.c_str());
            RtnMFRef::s_root = nullptr;
        }
        QVERIFY(m_frame->openApplication("broken.3Dm"));
        m_frame->outputTabs()->setCurrentIndex(-1);
        m_frame->startAction()->trigger();
        CtlOutput* out = m_frame->output();
        const int mark = out->count();
        m_frame->tick();
        int errorRow = -1;
        for (int i = mark; i < out->count(); ++i)
            if (out->item(i)->data(CtlOutput::KindRole).toInt() == CtlOutput::ScriptError) errorRow = i;
        QVERIFY2(errorRow >= 0, "a script error row");
        QCOMPARE(out->item(errorRow)->data(CtlOutput::LineRole).toInt(), 2);
        QCOMPARE(out->item(errorRow)->foreground().color(), QColor(0xC8, 0x0E, 0x0E));
        QVERIFY(!m_frame->startAction()->isChecked());
        QCOMPARE(m_frame->document().state(), RtnDocument::State::Paused);
        QCOMPARE(m_frame->outputTabs()->currentIndex(), 0);

        ScnNode* processor = m_frame->document().application()->scripts.node.getChild(0);
        QVERIFY(RtnSelection::instance().node != processor);
        out->scrollToItem(out->item(errorRow));
        QTest::mouseClick(out->viewport(), Qt::LeftButton, {}, out->visualItemRect(out->item(errorRow)).center());
        QCOMPARE(RtnSelection::instance().node, static_cast<RtnProcessor*>(processor)->getRegister(3));
        QVERIFY2(m_frame->statusText(0).endsWith("register 3, line 2"), qPrintable(m_frame->statusText(0)));
    }

    // The register grid of the selected processor: class colours, selection
    // by click, a Ctrl-drag onto an empty cell (and not onto a filled one),
    // the arrow keys, and "Remove".
    void registerGridSelectsMovesAndRemoves()
    {
        QVERIFY(m_frame->openApplication("samples/hello.3Dm"));
        m_frame->tick();
        RtnProcessor* p = RtnSelection::instance().processor;
        QVERIFY2(p, "opening selects the first processor");
        RtnRegister* r0 = p->getRegister(0);
        QVERIFY2(r0, "the sample's register sits in cell 0");
        RtnRegister* r9 = p->createRegister(9);
        r9->deposit(p);  // a processor as its token: the processor colour
        CtlColorGrid* grid = m_frame->registerGrid();
        grid->resize(22 + 8 * 60, 18 + 4 * 18 + 2);
        grid->show();
        auto colourAt = [grid](int cell) {
            const QRect box = grid->cellRect(cell);
            return grid->grab().toImage().pixelColor(box.left() + 12, box.top() + 2).rgb() & 0xFFFFFF;
        };
        QCOMPARE(colourAt(0), QRgb(0xC9D99B));  // a scene node's class
        QCOMPARE(colourAt(9), QRgb(0xC69DA6));  // a processor
        QCOMPARE(colourAt(4), grid->palette().button().color().rgb() & 0xFFFFFF);  // no register

        auto centre = [grid](int cell) { return grid->cellRect(cell).center(); };
        QTest::mouseClick(grid, Qt::LeftButton, {}, centre(9));
        QCOMPARE(RtnSelection::instance().reg, r9);
        QCOMPARE(grid->selectedCell(), 9);
        QCOMPARE(colourAt(9), QRgb(0xFFFFFF));  // the selected cell is white

        // Ctrl-drag 9 onto the filled cell 0: nothing moves; onto 13: it moves.
        QTest::mousePress(grid, Qt::LeftButton, Qt::ControlModifier, centre(9));
        QTest::mouseRelease(grid, Qt::LeftButton, Qt::ControlModifier, centre(0));
        QCOMPARE(p->getRegister(9), r9);
        QCOMPARE(p->getRegister(0), r0);
        QTest::mousePress(grid, Qt::LeftButton, Qt::ControlModifier, centre(9));
        QTest::mouseRelease(grid, Qt::LeftButton, Qt::ControlModifier, centre(13));
        QCOMPARE(p->getRegister(13), r9);
        QVERIFY(!p->getRegister(9));
        QCOMPARE(RtnSelection::instance().reg, r9);
        QCOMPARE(grid->selectedCell(), 13);

        // Up goes back by 4 inside the grid, and stays at the top row's edge.
        QTest::mouseClick(grid, Qt::LeftButton, {}, centre(5));
        QTest::keyClick(grid, Qt::Key_Up);
        QCOMPARE(grid->selectedCell(), 1);
        QTest::mouseClick(grid, Qt::LeftButton, {}, centre(3));
        QTest::keyClick(grid, Qt::Key_Up);
        QCOMPARE(grid->selectedCell(), 3);
        QTest::keyClick(grid, Qt::Key_Right);
        QCOMPARE(grid->selectedCell(), 4);
        QTest::keyClick(grid, Qt::Key_Down);
        QCOMPARE(grid->selectedCell(), 8);

        // "Remove" from the cell's menu.
        QTimer::singleShot(50, [] {
            if (auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget()))
                for (QAction* a : menu->actions())
                    if (a->text() == "Remove") a->trigger();
        });
        QContextMenuEvent context(QContextMenuEvent::Mouse, centre(13), grid->mapToGlobal(centre(13)));
        QApplication::sendEvent(grid, &context);
        QTRY_VERIFY_WITH_TIMEOUT(!p->getRegister(13), 2000);
        QVERIFY(!RtnSelection::instance().reg);
        if (QWidget* popup = QApplication::activePopupWidget()) popup->close();
    }

    // Store Viewpoint: the view goes into the slot being left, a stored slot
    // moves the camera back, and Reset starts the camera from the checked slot.
    void viewpointButtonsStoreAndRecall()
    {
        QVERIFY(m_frame->openApplication("samples/hello.3Dm"));
        QCOMPARE(m_frame->checkedViewpoint(), 0);
        m_frame->tick();
        auto* cam = static_cast<ScnCameraExamine*>(m_frame->document().runtime()->branch(CmdApplication::Camera));
        const double z0 = cam->eye[2];
        // Slot 1 at the identity takes the present view.
        m_frame->viewpointButton(1)->trigger();
        QCOMPARE(m_frame->checkedViewpoint(), 1);
        QVERIFY(m_frame->viewpointButton(1)->isChecked());
        QVERIFY(!m_frame->viewpointButton(0)->isChecked());
        QCOMPARE(cam->eye[2], z0);
        // Move, then go to slot 2: the moved view is kept in slot 1.
        ScnMatrix16 moved = cam->worldMatrix;
        moved.m[14] = z0 + 5;
        cam->setMatrix(moved);
        m_frame->viewpointButton(2)->trigger();
        QCOMPARE(m_frame->document().application()->viewpoints.values[1].m[14], z0 + 5);
        moved.m[14] = z0 - 3;
        cam->setMatrix(moved);
        m_frame->viewpointButton(1)->trigger();
        QCOMPARE(cam->eye[2], z0 + 5);
        QCOMPARE(m_frame->document().application()->viewpoints.values[2].m[14], z0 - 3);
        // Reset: the new camera starts from the checked slot.
        m_frame->reset();
        cam = static_cast<ScnCameraExamine*>(m_frame->document().runtime()->branch(CmdApplication::Camera));
        QCOMPARE(cam->eye[2], z0 + 5);
    }

    // The kernel chart of the selected program: a row for the kernel that ran,
    // with its time; profiling goes off again when the program is left.
    void profilerChartsTheSelectedProgram()
    {
        QVERIFY(m_frame->openApplication("samples/compute.3Dm"));
        ScnNode* platform = m_frame->document().application()->openCL.node.getChild(0);
        QVERIFY(platform);
        auto* program = dynamic_cast<OclProgram*>(static_cast<ScnGroup*>(platform)->getChild(0));
        QVERIFY(program);
        CtlProfiler* chart = m_frame->profiler();
        QVERIFY(chart->rows().empty());
        RtnSelection::instance().setNode(program);
        QCOMPARE(chart->program(), static_cast<ScnNode*>(program));
        QVERIFY2(chart->rows().empty(), "a kernel that never ran has no row");
        m_frame->startAction()->trigger();
        for (int i = 0; i < 3; ++i) m_frame->tick();
        const std::vector<CtlProfiler::Row> rows = chart->rows();
        QCOMPARE(static_cast<int>(rows.size()), 1);
        QCOMPARE(rows[0].name, QString("advance"));
        QVERIFY(rows[0].nanoseconds > 0);
        auto* twin = dynamic_cast<OclSourceNode*>(program->twin());
        QVERIFY(twin && twin->program() && !twin->program()->kernels().empty());
        QVERIFY(twin->program()->kernels()[0]->profiling());
        RtnSelection::instance().setNode(nullptr);
        QVERIFY(!chart->program());
        QVERIFY(!twin->program()->kernels()[0]->profiling());
        m_frame->reset();
    }

    // 40 ticks recorded decode back to 40 frames of the view's size.
    void recordsAMovie()
    {
        QVERIFY(m_frame->openApplication("samples/hello.3Dm"));
        const std::string movie = m_tmp / "movie.mp4";
        QVERIFY(m_frame->startRecording(QString::fromStdString(movie)));
        QVERIFY(m_frame->recordAction()->isChecked());
        for (int i = 0; i < 40; ++i) m_frame->tick();
        m_frame->stopRecording();
        QVERIFY(!m_frame->recordAction()->isChecked());
        CtlWorldView* view = m_frame->worldView();
        int w = 0, h = 0;
        MovieWriter::frameSize(view->width() * view->devicePixelRatio(), view->height() * view->devicePixelRatio(), w, h);
        MovieProbe probe(movie);
        QVERIFY2(probe.error.empty(), probe.error.c_str());
        QCOMPARE(probe.frames, 40);
        QCOMPARE(probe.width, w);
        QCOMPARE(probe.height, h);
    }

    void cleanupTestCase()
    {
        if (m_frame) m_frame->close();
        delete m_frame;
    }
};

QTEST_MAIN(EditorTest)
#include "EditorTest.moc"
