// velmora: the editor. Chooses the workspace, opens the main window, which
// starts the engine in its world view, and runs until the window closes.
// `velmora [APPLICATION]` opens an application of the workspace at start;
// `--screenshot FILE.png` shows it for a moment, saves the window's picture
// and ends, for the documentation.
#include <cstdio>

#include <QApplication>
#include <QSurfaceFormat>
#include <QTimer>

#include "editor/CtlWorldView.h"
#include "editor/EdtStart.h"
#include "editor/FrmMain.h"
#include "platform/Paths.h"
#include "runtime/AppGlobal.h"

int main(int argc, char** argv)
{
    QSurfaceFormat::setDefaultFormat(CtlWorldView::surfaceFormat());
    QApplication qapp(argc, argv);
    QApplication::setApplicationName("velmora");

    QString application, screenshot;
    const QStringList args = QApplication::arguments();
    for (int i = 1; i < args.size(); ++i) {
        if (args[i] == "--screenshot" && i + 1 < args.size())
            screenshot = args[++i];
        else if (!args[i].startsWith('-') && application.isEmpty())
            application = args[i];
        else {
            std::fprintf(stderr, "usage: velmora [--screenshot FILE.png] [APPLICATION]\n");
            return 2;
        }
    }

    AppGlobal::setProgramFolder(Paths::executableFolder());
    EdtStart::enterWorkspace();

    FrmMain frame;
    int rc = 0;
    QObject::connect(&frame, &FrmMain::started, &frame, [&] {
        if (!application.isEmpty()) frame.openApplication(application);
        if (screenshot.isEmpty()) return;
        // A second of frames in edit mode, where the world's axes show, then
        // the picture.
        QTimer::singleShot(1000, &frame, [&] {
            if (!frame.grab().save(screenshot)) {
                std::fprintf(stderr, "velmora: cannot write %s\n", qPrintable(screenshot));
                rc = 1;
            }
            frame.close();
        });
    });
    if (screenshot.isEmpty())
        frame.showMaximized();
    else
        frame.show();
    const int result = qapp.exec();
    return rc ? rc : result;
}
