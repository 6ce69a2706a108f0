#include "node/ScnStream.h"

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

bool scnReadFileBytes(const std::string& path, std::vector<uint8_t>& out, std::string& error)
{
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        error = "Unable to open file " + path + ": " + std::strerror(errno);
        return false;
    }
    struct stat st;
    if (fstat(fileno(f), &st) != 0 || !S_ISREG(st.st_mode)) {
        std::fclose(f);
        error = "Unable to read file " + path + ": not a regular file";
        return false;
    }
    out.resize(static_cast<size_t>(st.st_size));
    size_t got = out.empty() ? 0 : std::fread(out.data(), 1, out.size(), f);
    bool bad = std::ferror(f);
    std::fclose(f);
    if (bad || got != out.size()) {
        error = "Unable to read file " + path;
        return false;
    }
    return true;
}

bool scnWriteFileBytes(const std::string& path, const std::vector<uint8_t>& bytes, std::string& error)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        error = "Unable to write file " + path + ": " + std::strerror(errno);
        return false;
    }
    size_t put = bytes.empty() ? 0 : std::fwrite(bytes.data(), 1, bytes.size(), f);
    bool ok = put == bytes.size();
    ok = (std::fclose(f) == 0) && ok;
    if (!ok) error = "Unable to write file " + path + ": " + std::strerror(errno);
    return ok;
}
