#include "node/ScnStream.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

ScnInStream::~ScnInStream()
{
    if (m_fd >= 0) ::close(m_fd);
}

bool ScnInStream::openFile(const std::string& path, std::string& error)
{
    // The type is looked at before the open: opening a FIFO for reading
    // would wait for a writer.
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        error = "Unable to open file " + path + ": " + std::strerror(errno);
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        error = "Unable to read file " + path + ": not a regular file";
        return false;
    }
    // Non-blocking all the same, in case the name was replaced in between.
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        error = "Unable to open file " + path + ": " + std::strerror(errno);
        return false;
    }
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        error = "Unable to read file " + path + ": not a regular file";
        return false;
    }
    if (m_fd >= 0) ::close(m_fd);
    m_fd = fd;
    m_data = nullptr;
    m_size = static_cast<size_t>(st.st_size);
    m_pos = 0;
    m_failed = false;
    m_failPos = 0;
    m_error.clear();
    m_depth = 0;
    m_window.clear();
    m_windowStart = 0;
    return true;
}

namespace {

// Reads up to n bytes at `offset`; fewer only at the end of the file or on an error.
size_t readAt(int fd, uint8_t* dst, size_t n, size_t offset)
{
    size_t got = 0;
    while (got < n) {
        ssize_t r = ::pread(fd, dst + got, n - got, static_cast<off_t>(offset + got));
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) break;
        got += static_cast<size_t>(r);
    }
    return got;
}

}  // namespace

bool ScnInStream::fetch(void* dst, size_t n)
{
    uint8_t* out = static_cast<uint8_t*>(dst);
    size_t pos = m_pos;
    while (n) {
        size_t windowEnd = m_windowStart + m_window.size();
        if (pos >= m_windowStart && pos < windowEnd) {
            size_t k = std::min(n, windowEnd - pos);
            std::memcpy(out, m_window.data() + (pos - m_windowStart), k);
            out += k;
            pos += k;
            n -= k;
            continue;
        }
        // A file that shrank since it was opened ends early.
        if (n >= kWindow) {
            // Large blocks go straight to their place.
            if (readAt(m_fd, out, n, pos) != n) return fail("the file ended before its size said");
            return true;
        }
        size_t want = std::min(kWindow, m_size - pos);
        m_window.resize(want);
        size_t got = readAt(m_fd, m_window.data(), want, pos);
        m_window.resize(got);
        m_windowStart = pos;
        if (got < std::min(n, want)) return fail("the file ended before its size said");
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
