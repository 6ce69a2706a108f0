// A reader of PLY files: ASCII and binary (little and big endian), elements
// with scalar and list properties. It streams: memory use does not depend on
// the counts a file claims, so a damaged header costs at most the time to
// reach the end of the data, where it is reported.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace ply {

enum class Scalar { Int8, UInt8, Int16, UInt16, Int32, UInt32, Float32, Float64 };

struct Property {
    std::string name;
    bool list = false;
    Scalar countType = Scalar::UInt8;  // lists only
    Scalar valueType = Scalar::Float32;
    std::string countTypeName;         // as the file spells them
    std::string valueTypeName;
};

struct Element {
    std::string name;
    uint64_t count = 0;
    std::vector<Property> properties;
};

enum class Format { Ascii, BinaryLittleEndian, BinaryBigEndian };

struct Header {
    Format format = Format::Ascii;
    std::vector<Element> elements;
    // Index of the element of that name, -1 when there is none.
    int find(const std::string& name) const;
};

// Where the bytes come from.
class Input {
public:
    virtual ~Input() = default;
    // Up to `n` bytes into `buffer`; 0 at the end.
    virtual size_t read(void* buffer, size_t n) = 0;
};

class FileInput : public Input {
public:
    explicit FileInput(const char* path) : m_file(std::fopen(path, "rb")) {}
    ~FileInput() override
    {
        if (m_file) std::fclose(m_file);
    }
    FileInput(const FileInput&) = delete;
    FileInput& operator=(const FileInput&) = delete;
    bool isOpen() const { return m_file != nullptr; }
    size_t read(void* buffer, size_t n) override { return m_file ? std::fread(buffer, 1, n, m_file) : 0; }

private:
    FILE* m_file;
};

class MemoryInput : public Input {
public:
    MemoryInput(const void* data, size_t size) : m_data(static_cast<const unsigned char*>(data)), m_size(size) {}
    size_t read(void* buffer, size_t n) override;

private:
    const unsigned char* m_data;
    size_t m_size;
    size_t m_at = 0;
};

// One value of the element being read: item index, the property's position
// among the element's properties, the position inside a list (0 for a
// scalar) and the value. Returning false stops the reading, with success.
using Visitor = std::function<bool(uint64_t item, size_t property, uint32_t index, double value)>;

class Reader {
public:
    explicit Reader(Input& input) : m_input(input) {}

    // Reads the header. On failure `error` says what and where.
    bool readHeader(Header& header, std::string& error);
    // Reads the data up to and including element `element` of a header that
    // readHeader gave, handing each value of that element to `visit`.
    bool readElement(const Header& header, size_t element, const Visitor& visit, std::string& error);

    // Limits on the header, which is read whole.
    static constexpr size_t kMaxLine = 1024;
    static constexpr size_t kMaxHeader = 1 << 16;

private:
    bool fill();
    bool getByte(unsigned char& c);
    bool readLine(std::string& line);
    // One whitespace-separated word of ASCII data.
    enum { kToken, kEnd, kTooLong };
    int readToken(char* token, size_t room);
    bool readValue(const Header& header, Scalar type, double& value, std::string& error);

    Input& m_input;
    unsigned char m_buffer[1 << 16];
    size_t m_pos = 0, m_end = 0;
    size_t m_headerBytes = 0;
    size_t m_line = 0;
};

// The name of a type as the library calls it ("uchar", "float", ...).
const char* scalarName(Scalar s);

}  // namespace ply
