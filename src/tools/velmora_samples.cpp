// velmora-samples: writes the sample applications into a folder. The samples
// are made from code at build time rather than kept as binary files.
#include <cstdio>
#include <string>

#include "platform/Paths.h"
#include "runtime/AppGlobal.h"
#include "runtime/RtnApplication.h"

namespace {

// A processor whose register holds the world as its token: it greets the
// token when it arrives and counts frames while the simulation runs.
bool writeHello(const std::string& folder)
{
    RtnApplication app;
    app.luaglobal = "frames = 0\n";
    auto* main = static_cast<RtnProcessor*>(app.scripts.node.getChild(0));
    main->luaglobal = "greeting = \"Hello from \"\n";
    RtnRegister* r = main->createRegister(0);
    r->functions.setCode(RtnRegister::OnTime,
                         "frames = frames + 1\nprint(\"frame \" .. frames .. \" at \" .. app.getTime() .. \" ms, token \" "
                         ".. event:getName())\n");
    r->functions.setCode(RtnRegister::OnDeposit, "print(greeting .. event:getName())\n");
    r->functions.setCode(RtnRegister::OnRemove, "print(\"Goodbye, \" .. event:getName())\n");
    r->marking.append(&app.openGL.node);
    RtnMFRef::s_root = &app;
    std::string error;
    bool ok = app.writeFile(folder + "/hello.3Dm", error);
    RtnMFRef::s_root = nullptr;
    if (!ok) std::fprintf(stderr, "velmora-samples: %s\n", error.c_str());
    return ok;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: velmora-samples FOLDER\n");
        return 2;
    }
    std::string folder = argv[1];
    if (!Paths::ensureFolder(folder)) {
        std::fprintf(stderr, "velmora-samples: cannot make folder %s\n", folder.c_str());
        return 1;
    }
    AppGlobal::startModules();
    return writeHello(folder) ? 0 : 1;
}
