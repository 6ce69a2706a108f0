#include "platform/DynLib.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <map>
#include <utility>

#include "platform/Paths.h"
#include "runtime/AppGlobal.h"

namespace {

std::string g_lastError;

// Handles of loadLibrary, by the name without ".so". Never closed: code and
// Lua functions from these libraries may be referenced until process exit.
std::map<std::string, void*>& loadedLibraries()
{
    static auto* libs = new std::map<std::string, void*>;
    return *libs;
}

bool endsWithSo(const std::string& name)
{
    return name.size() >= 3 && name.compare(name.size() - 3, 3, ".so") == 0;
}

std::string withoutSo(const std::string& name)
{
    return endsWithSo(name) ? name.substr(0, name.size() - 3) : name;
}

}  // namespace

namespace DynLib {

Library::~Library() { close(); }

Library::Library(Library&& other) noexcept
    : m_handle(std::exchange(other.m_handle, nullptr)), m_error(std::move(other.m_error))
{
}

Library& Library::operator=(Library&& other) noexcept
{
    if (this != &other) {
        close();
        m_handle = std::exchange(other.m_handle, nullptr);
        m_error = std::move(other.m_error);
    }
    return *this;
}

namespace {

// The library that dlerror names as missing in "NAME: cannot open shared
// object file: ...", or "" when the failure is of another kind.
std::string missingDependency(const std::string& error)
{
    const size_t at = error.find(": cannot open shared object file");
    if (at == std::string::npos || at == 0) return {};
    std::string name = error.substr(0, at);
    return name.find('/') == std::string::npos ? name : std::string();
}

// How deep dependencies beside a library are followed.
int g_depth = 0;
constexpr int kMaxDepth = 8;
constexpr int kMaxDependencies = 32;

}  // namespace

bool Library::open(const std::string& path)
{
    close();
    m_error.clear();
    // The library's own folder is searched for what it needs, as a search
    // folder would be: a dependency lying beside it is loaded first, by its
    // full path, and the loader then finds it by its name.
    const size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash);
    std::string lastMissing;
    for (int attempt = 0; attempt <= kMaxDependencies; ++attempt) {
        dlerror();
        m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
        if (m_handle) return true;
        const char* e = dlerror();
        m_error = e ? e : ("cannot load " + path);
        const std::string missing = missingDependency(m_error);
        if (missing.empty() || missing == lastMissing || g_depth >= kMaxDepth) break;
        lastMissing = missing;
        const std::string beside = folder + "/" + missing;
        struct stat st;
        if (stat(beside.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) break;
        Library dependency;
        ++g_depth;
        const bool loaded = dependency.open(beside);
        --g_depth;
        if (!loaded) {
            m_error = dependency.error();
            break;
        }
        dependency.release();  // stays for the library that needs it
    }
    return false;
}

void* Library::symbol(const char* name) const
{
    if (!m_handle || !name) return nullptr;
    return dlsym(m_handle, name);
}

void* Library::release() { return std::exchange(m_handle, nullptr); }

void Library::close()
{
    if (m_handle) dlclose(m_handle);
    m_handle = nullptr;
}

bool loadLibrary(const std::string& folder, const std::string& name)
{
    const std::string file = Paths::toNativePath(name);
    std::string path = Paths::join(Paths::join(AppGlobal::projectPath(), Paths::toNativePath(folder)), file);
    if (!endsWithSo(path)) path += ".so";
    Library lib;
    if (!lib.open(path)) {
        g_lastError = lib.error();
        return false;
    }
    g_lastError.clear();
    // A second load of the same library gives the same handle with one more
    // reference; keeping one entry is enough since nothing is ever closed.
    loadedLibraries()[withoutSo(Paths::fileName(file))] = lib.release();
    return true;
}

void* findSymbol(const std::string& name, const char* symbolName)
{
    auto& libs = loadedLibraries();
    auto it = libs.find(withoutSo(Paths::fileName(Paths::toNativePath(name))));
    if (it == libs.end() || !symbolName) return nullptr;
    return dlsym(it->second, symbolName);
}

const std::string& lastError() { return g_lastError; }

}  // namespace DynLib
