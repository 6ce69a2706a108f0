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

#include "editor/CtlOutput.h"
#include "editor/CtlWorldView.h"
#include "platform/MovieWriter.h"
#include "editor/EdtStart.h"
#include "editor/FrmMain.h"
#include "platform/Settings.h"
#include "render/ScnCameraExamine.h"
#include "runtime/CmdNodes.h"
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
