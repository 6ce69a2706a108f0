// Shared libraries: an owning handle around dlopen, and the loading of
// libraries below the workspace, which stay loaded for the life of the process.
#pragma once

#include <string>

namespace DynLib {

// One dlopen handle, closed when the object goes unless release() was called.
class Library {
public:
    Library() = default;
    ~Library();
    Library(Library&& other) noexcept;
    Library& operator=(Library&& other) noexcept;
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // Loads `path` with RTLD_NOW | RTLD_GLOBAL, replacing what was held. The
    // library's own folder serves as search folder for the libraries it
    // needs. On failure the handle is empty and error() holds dlerror's text.
    bool open(const std::string& path);
    bool isOpen() const { return m_handle != nullptr; }
    // The address of `name` in this library, null when absent or not open.
    void* symbol(const char* name) const;
    // Gives up ownership: the library stays loaded until the process ends.
    void* release();
    void close();
    const std::string& error() const { return m_error; }

private:
    void* m_handle = nullptr;
    std::string m_error;
};

// Loads "<project path>/<folder>/<name>", adding ".so" unless the name already
// ends with it. '\\' in `folder` and `name` are taken as '/'. The library is
// kept for the life of the process. False when it does not load; lastError()
// tells why.
bool loadLibrary(const std::string& folder, const std::string& name);

// The address of `symbolName` in a library that loadLibrary loaded, found by
// the `name` given there (with or without ".so"); null when either is missing.
void* findSymbol(const std::string& name, const char* symbolName);

// dlerror's text of the last failed loadLibrary, "" after a success.
const std::string& lastError();

}  // namespace DynLib
