#include "platform/Paths.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

namespace {

// The user's home: $HOME, else the password database.
std::string homeFolder()
{
    if (const char* h = std::getenv("HOME"); h && *h) return h;
    std::vector<char> buf(16384);
    passwd pw{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &pw, buf.data(), buf.size(), &found) == 0 && found && found->pw_dir)
        return found->pw_dir;
    return "";
}

// $VAR when it holds an absolute path (relative values are to be ignored by
// the XDG rules), else ~/fallback; then "/velmora" below it.
std::string userFolder(const char* var, const char* fallback)
{
    std::string base;
    if (const char* v = std::getenv(var); v && v[0] == '/') {
        base = v;
    } else {
        // Without any home (a bare service account) /tmp keeps the program going.
        std::string home = homeFolder();
        base = home.empty() ? std::string("/tmp") : Paths::join(home, fallback);
    }
    return Paths::join(base, "velmora");
}

}  // namespace

namespace Paths {

std::string executableFolder()
{
    std::error_code ec;
    std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec) return "";
    return exe.parent_path().string();
}

std::string userConfigFolder() { return userFolder("XDG_CONFIG_HOME", ".config"); }

std::string userCacheFolder() { return userFolder("XDG_CACHE_HOME", ".cache"); }

std::string toNativePath(std::string path)
{
    for (char& c : path)
        if (c == '\\') c = '/';
    return path;
}

std::string join(const std::string& a, const std::string& b)
{
    if (a.empty()) return b;
    std::string out = a;
    size_t skip = 0;
    while (skip < b.size() && b[skip] == '/') ++skip;
    if (out.back() != '/') out += '/';
    out.append(b, skip, std::string::npos);
    return out;
}

std::string fileName(const std::string& path)
{
    size_t pos = path.find_last_of("/\\");
    return pos == std::string::npos ? path : path.substr(pos + 1);
}

bool ensureFolder(const std::string& folder)
{
    if (folder.empty()) return false;
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    return std::filesystem::is_directory(folder, ec);
}

}  // namespace Paths
