#include "platform/DynLib.h"

#include <dlfcn.h>

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

bool Library::open(const std::string& path)
{
    close();
    m_error.clear();
    dlerror();
    m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (!m_handle) {
        const char* e = dlerror();
        m_error = e ? e : ("cannot load " + path);
    }
    return m_handle != nullptr;
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
