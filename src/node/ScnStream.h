// Byte streams for the tagless file format.
//
// A stream reads from bytes in memory or from a regular file whose size is
// known before anything is read, so that every count and length can be
// checked against the bytes that remain: the format has no tags or
// checksums, and a damaged file may ask for anything. A file is read through
// a small window, so a huge file costs memory only for what the reader
// really takes from it. The first failure is kept (with its byte offset) and
// every later read fails softly, so a reader never needs to unwind by hand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

class ScnInStream {
public:
    ScnInStream(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    explicit ScnInStream(const std::vector<uint8_t>& bytes) : ScnInStream(bytes.data(), bytes.size()) {}
    // An empty stream, until openFile.
    ScnInStream() = default;
    ~ScnInStream();
    ScnInStream(const ScnInStream&) = delete;
    ScnInStream& operator=(const ScnInStream&) = delete;

    // Reads the regular file at `path` from now on. Anything else (a folder,
    // a FIFO, a device) is refused before it is opened, so nothing blocks.
    // On failure returns false with a message that names the file in `error`.
    bool openFile(const std::string& path, std::string& error);

    size_t tell() const { return m_pos; }
    size_t size() const { return m_size; }
    size_t remaining() const { return m_failed ? 0 : m_size - m_pos; }
    bool failed() const { return m_failed; }
    bool atEnd() const { return m_pos == m_size; }

    // Reads n bytes into dst; on a short stream marks the failure and leaves dst alone.
    bool read(void* dst, size_t n) {
        if (!need(n, "unexpected end of data")) return false;
        if (n && !copyOut(dst, n)) return false;
        m_pos += n;
        return true;
    }
    bool readU32(uint32_t& v) { return read(&v, 4); }
    bool readString(std::string& s, size_t n) {
        if (!need(n, "string longer than the data that remains")) return false;
        if (m_fd < 0) {
            s.assign(reinterpret_cast<const char*>(m_data + m_pos), n);
            m_pos += n;
            return true;
        }
        s.resize(n);
        return read(s.data(), n);
    }
    bool skip(size_t n) {
        if (!need(n, "block longer than the data that remains")) return false;
        m_pos += n;
        return true;
    }
    // Moves back to an earlier position (to re-read after a failed probe).
    void seek(size_t pos) { if (!m_failed && pos <= m_size) m_pos = pos; }

    // A count of items, each of at least itemMin bytes, must fit in what remains.
    bool checkCount(uint32_t count, size_t itemMin, const char* what) {
        if (m_failed) return false;
        if (itemMin && count > remaining() / itemMin) return fail(what);
        return true;
    }
    bool need(size_t n, const char* what) {
        if (m_failed) return false;
        if (n > m_size - m_pos) return fail(what);
        return true;
    }
    // Records the first failure at the current position.
    bool fail(const std::string& what) {
        if (!m_failed) {
            m_failed = true;
            m_failPos = m_pos;
            m_error = what;
        }
        return false;
    }
    size_t failPos() const { return m_failPos; }
    const std::string& error() const { return m_error; }

    // Nesting depth guard: a crafted file could nest groups until the stack is gone.
    static constexpr int kMaxDepth = 256;
    bool enter() {
        if (++m_depth > kMaxDepth) return fail("nodes nested deeper than " + std::to_string(kMaxDepth));
        return !m_failed;
    }
    void leave() { --m_depth; }

private:
    bool copyOut(void* dst, size_t n) {
        if (m_fd >= 0) return fetch(dst, n);
        std::memcpy(dst, m_data + m_pos, n);
        return true;
    }
    // Copies n bytes at the position from the file, through the window.
    bool fetch(void* dst, size_t n);

    static constexpr size_t kWindow = 64 * 1024;
    const uint8_t* m_data = nullptr;
    size_t m_size = 0;
    size_t m_pos = 0;
    int m_fd = -1;
    std::vector<uint8_t> m_window;
    size_t m_windowStart = 0;
    bool m_failed = false;
    size_t m_failPos = 0;
    std::string m_error;
    int m_depth = 0;
};

class ScnOutStream {
public:
    size_t tell() const { return m_buf.size(); }
    void write(const void* src, size_t n) {
        const uint8_t* p = static_cast<const uint8_t*>(src);
        m_buf.insert(m_buf.end(), p, p + n);
    }
    void writeU32(uint32_t v) { write(&v, 4); }
    void writeString(const std::string& s) { write(s.data(), s.size()); }
    void patchU32(size_t pos, uint32_t v) { std::memcpy(m_buf.data() + pos, &v, 4); }
    const std::vector<uint8_t>& bytes() const { return m_buf; }
    std::vector<uint8_t>& bytes() { return m_buf; }
    void reserve(size_t n) { m_buf.reserve(n); }

private:
    std::vector<uint8_t> m_buf;
};

// Writes a whole file. On failure returns false and puts a message that
// names the file into `error`.
bool scnWriteFileBytes(const std::string& path, const std::vector<uint8_t>& bytes, std::string& error);
