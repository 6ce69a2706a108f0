#include "editor/EdtStart.h"

#include <QMessageBox>

#include "runtime/AppGlobal.h"

namespace EdtStart {

std::string enterWorkspace(QWidget* parent)
{
    std::string workspace = AppGlobal::lastWorkspace();
    if (!AppGlobal::setProjectPath(workspace)) {
        QMessageBox::warning(parent, QString::fromStdString(workspace),
                             "Unable to open workspace. Reverting to default workspace");
        workspace = AppGlobal::defaultWorkspace();
        AppGlobal::setProjectPath(workspace);
    }
    VTRACE("AppGlobal::setProjectPath " << workspace);
    return workspace;
}

}  // namespace EdtStart
