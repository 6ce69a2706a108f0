// A folder under /tmp for one test, removed with everything in it afterwards.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class TempDir {
public:
    explicit TempDir(const char* tag = "velmora-test")
    {
        std::string tmpl = std::string("/tmp/") + tag + "-XXXXXX";
        if (mkdtemp(tmpl.data())) m_path = tmpl;
    }
    ~TempDir()
    {
        std::error_code ec;
        if (!m_path.empty()) std::filesystem::remove_all(m_path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};
