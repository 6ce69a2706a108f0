// velmora-file: writes, copies and lists application (.3Dm) and object (.3Do) files.
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include <climits>
#include <cstdlib>
#include <unistd.h>

#include "node/ScnDump.h"
#include "node/ScnNode.h"
#include "platform/Paths.h"
#include "runtime/AppGlobal.h"
#include "runtime/RtnApplication.h"

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: velmora-file [--workspace DIR] new OUT.3Dm\n"
                 "       velmora-file [--workspace DIR] copy IN OUT\n"
                 "       velmora-file [--workspace DIR] dump IN\n"
                 "Files ending in .3Do are object files; all others are applications.\n");
    return 2;
}

bool endsWith(const std::string& s, const char* tail)
{
    size_t n = std::strlen(tail);
    if (s.size() < n) return false;
    for (size_t i = 0; i < n; ++i)
        if (std::tolower(static_cast<unsigned char>(s[s.size() - n + i])) != std::tolower(static_cast<unsigned char>(tail[i])))
            return false;
    return true;
}

// Paths given on the command line stay valid after the workspace becomes the
// working folder.
std::string absolute(const std::string& p)
{
    if (p.empty() || p[0] == '/') return p;
    char cwd[PATH_MAX];
    if (!getcwd(cwd, sizeof cwd)) return p;
    return std::string(cwd) + "/" + p;
}

// Loads either kind of file; exactly one of the results is set on success.
bool load(const std::string& path, std::unique_ptr<RtnApplication>& app, std::unique_ptr<ScnNode>& object)
{
    std::string error;
    if (endsWith(path, ".3Do")) {
        object.reset(scnReadObject(path, error));
        if (!object) std::fprintf(stderr, "velmora-file: %s\n", error.c_str());
        return object != nullptr;
    }
    app.reset(RtnApplication::readFile(path, error));
    if (!app) std::fprintf(stderr, "velmora-file: %s\n", error.c_str());
    return app != nullptr;
}

bool save(const std::string& path, const RtnApplication* app, const ScnNode* object)
{
    std::string error;
    bool ok = app ? app->writeFile(path, error) : scnWriteObject(path, *object, error);
    if (!ok) std::fprintf(stderr, "velmora-file: %s\n", error.c_str());
    return ok;
}

int run(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string workspace;
    if (args.size() >= 2 && args[0] == "--workspace") {
        workspace = absolute(args[1]);
        args.erase(args.begin(), args.begin() + 2);
    }
    if (args.empty()) return usage();
    const std::string cmd = args[0];
    for (size_t i = 1; i < args.size(); ++i) args[i] = absolute(Paths::toNativePath(args[i]));

    AppGlobal::setProgramFolder(Paths::executableFolder());
    if (workspace.empty()) workspace = AppGlobal::defaultWorkspace();
    if (!AppGlobal::setProjectPath(workspace)) {
        std::fprintf(stderr, "velmora-file: unable to open workspace %s\n", workspace.c_str());
        return 2;
    }
    AppGlobal::startModules();

    if (cmd == "new" && args.size() == 2) {
        RtnApplication app;
        return save(args[1], &app, nullptr) ? 0 : 1;
    }
    if (cmd == "copy" && args.size() == 3) {
        std::unique_ptr<RtnApplication> app;
        std::unique_ptr<ScnNode> object;
        if (!load(args[1], app, object)) return 1;
        if (endsWith(args[1], ".3Do") != endsWith(args[2], ".3Do")) {
            std::fprintf(stderr, "velmora-file: %s and %s are not files of the same kind\n", args[1].c_str(),
                         args[2].c_str());
            return 1;
        }
        return save(args[2], app.get(), object.get()) ? 0 : 1;
    }
    if (cmd == "dump" && args.size() == 2) {
        std::unique_ptr<RtnApplication> app;
        std::unique_ptr<ScnNode> object;
        if (!load(args[1], app, object)) return 1;
        std::string text = scnDump(app ? static_cast<const ScnNode&>(*app) : *object);
        std::fwrite(text.data(), 1, text.size(), stdout);
        return std::ferror(stdout) ? 1 : 0;
    }
    return usage();
}

}  // namespace

int main(int argc, char** argv)
{
    // Failures are reported where they happen; this only keeps anything that
    // slipped through (memory running out) from aborting without a word.
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "velmora-file: %s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "velmora-file: unexpected failure\n");
    }
    return 1;
}
