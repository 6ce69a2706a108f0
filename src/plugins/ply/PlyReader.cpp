#include "plugins/ply/PlyReader.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace ply {

namespace {

struct TypeName {
    const char* name;
    Scalar type;
};

const TypeName kTypes[] = {
    {"char", Scalar::Int8},     {"int8", Scalar::Int8},       {"uchar", Scalar::UInt8},   {"uint8", Scalar::UInt8},
    {"short", Scalar::Int16},   {"int16", Scalar::Int16},     {"ushort", Scalar::UInt16}, {"uint16", Scalar::UInt16},
    {"int", Scalar::Int32},     {"int32", Scalar::Int32},     {"uint", Scalar::UInt32},   {"uint32", Scalar::UInt32},
    {"float", Scalar::Float32}, {"float32", Scalar::Float32}, {"double", Scalar::Float64}, {"float64", Scalar::Float64},
};

bool typeOf(const std::string& name, Scalar& type)
{
    for (const TypeName& t : kTypes)
        if (name == t.name) {
            type = t.type;
            return true;
        }
    return false;
}

size_t sizeOf(Scalar s)
{
    switch (s) {
    case Scalar::Int8: case Scalar::UInt8: return 1;
    case Scalar::Int16: case Scalar::UInt16: return 2;
    case Scalar::Int32: case Scalar::UInt32: case Scalar::Float32: return 4;
    case Scalar::Float64: return 8;
    }
    return 1;
}

bool isInteger(Scalar s)
{
    return s != Scalar::Float32 && s != Scalar::Float64;
}

bool inRange(Scalar s, double v)
{
    switch (s) {
    case Scalar::Int8: return v >= -128 && v <= 127;
    case Scalar::UInt8: return v >= 0 && v <= 255;
    case Scalar::Int16: return v >= -32768 && v <= 32767;
    case Scalar::UInt16: return v >= 0 && v <= 65535;
    case Scalar::Int32: return v >= -2147483648.0 && v <= 2147483647.0;
    case Scalar::UInt32: return v >= 0 && v <= 4294967295.0;
    default: return true;
    }
}

std::vector<std::string> words(const std::string& line)
{
    std::vector<std::string> out;
    std::istringstream in(line);
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

// A count in the header: digits only, below 2^63.
bool parseCount(const std::string& text, uint64_t& value)
{
    if (text.empty() || text.size() > 18) return false;
    value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    return true;
}

}  // namespace

const char* scalarName(Scalar s)
{
    switch (s) {
    case Scalar::Int8: return "char";
    case Scalar::UInt8: return "uchar";
    case Scalar::Int16: return "short";
    case Scalar::UInt16: return "ushort";
    case Scalar::Int32: return "int";
    case Scalar::UInt32: return "uint";
    case Scalar::Float32: return "float";
    case Scalar::Float64: return "double";
    }
    return "?";
}

int Header::find(const std::string& name) const
{
    for (size_t i = 0; i < elements.size(); ++i)
        if (elements[i].name == name) return static_cast<int>(i);
    return -1;
}

size_t MemoryInput::read(void* buffer, size_t n)
{
    const size_t k = std::min(n, m_size - m_at);
    std::memcpy(buffer, m_data + m_at, k);
    m_at += k;
    return k;
}

bool Reader::fill()
{
    m_pos = 0;
    m_end = m_input.read(m_buffer, sizeof m_buffer);
    return m_end > 0;
}

bool Reader::getByte(unsigned char& c)
{
    if (m_pos == m_end && !fill()) return false;
    c = m_buffer[m_pos++];
    return true;
}

bool Reader::readLine(std::string& line)
{
    line.clear();
    unsigned char c;
    for (;;) {
        if (!getByte(c)) return false;
        if (++m_headerBytes > kMaxHeader) return false;
        if (c == '\n') break;
        if (line.size() >= kMaxLine) return false;
        line.push_back(static_cast<char>(c));
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    ++m_line;
    return true;
}

bool Reader::readHeader(Header& header, std::string& error)
{
    header = Header{};
    std::string line;
    auto fail = [&](const std::string& what) {
        error = "header line " + std::to_string(m_line) + ": " + what;
        return false;
    };
    auto cut = [&] {
        if (m_headerBytes > kMaxHeader) error = "header is longer than " + std::to_string(kMaxHeader) + " bytes";
        else if (line.size() >= kMaxLine) error = "header line " + std::to_string(m_line + 1) + " is too long";
        else error = "file ends inside the header";
        return false;
    };
    if (!readLine(line)) return cut();
    if (line != "ply") return fail("not a PLY file (no 'ply' at the start)");
    bool haveFormat = false;
    for (;;) {
        if (!readLine(line)) return cut();
        const std::vector<std::string> w = words(line);
        if (w.empty()) continue;
        if (w[0] == "comment" || w[0] == "obj_info") continue;
        if (w[0] == "end_header") {
            if (w.size() != 1) return fail("end_header takes nothing after it");
            break;
        }
        if (w[0] == "format") {
            if (haveFormat) return fail("a second format line");
            if (w.size() != 3) return fail("format needs a kind and a version");
            if (w[1] == "ascii") header.format = Format::Ascii;
            else if (w[1] == "binary_little_endian") header.format = Format::BinaryLittleEndian;
            else if (w[1] == "binary_big_endian") header.format = Format::BinaryBigEndian;
            else return fail("unknown format '" + w[1] + "'");
            if (w[2] != "1.0") return fail("unknown version '" + w[2] + "'");
            haveFormat = true;
        } else if (w[0] == "element") {
            if (w.size() != 3) return fail("element needs a name and a count");
            Element e;
            e.name = w[1];
            if (!parseCount(w[2], e.count)) return fail("bad count '" + w[2] + "' of element '" + w[1] + "'");
            header.elements.push_back(std::move(e));
        } else if (w[0] == "property") {
            if (header.elements.empty()) return fail("property before any element");
            Property p;
            if (w.size() >= 2 && w[1] == "list") {
                if (w.size() != 5) return fail("a list property needs a count type, a value type and a name");
                if (!typeOf(w[2], p.countType)) return fail("unknown type '" + w[2] + "'");
                if (!isInteger(p.countType)) return fail("a list count must have an integer type, not '" + w[2] + "'");
                if (!typeOf(w[3], p.valueType)) return fail("unknown type '" + w[3] + "'");
                p.list = true;
                p.countTypeName = w[2];
                p.valueTypeName = w[3];
                p.name = w[4];
            } else {
                if (w.size() != 3) return fail("a property needs a type and a name");
                if (!typeOf(w[1], p.valueType)) return fail("unknown type '" + w[1] + "'");
                p.valueTypeName = w[1];
                p.name = w[2];
            }
            header.elements.back().properties.push_back(std::move(p));
        } else {
            return fail("unknown keyword '" + w[0] + "'");
        }
    }
    if (!haveFormat) return fail("no format line before end_header");
    return true;
}

int Reader::readToken(char* token, size_t room)
{
    unsigned char c;
    do {
        if (!getByte(c)) return kEnd;
    } while (c == ' ' || c == '\t' || c == '\r' || c == '\n');
    size_t n = 0;
    for (;;) {
        if (n + 1 >= room) return kTooLong;
        token[n++] = static_cast<char>(c);
        if (m_pos == m_end && !fill()) break;
        c = m_buffer[m_pos];
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') break;
        ++m_pos;
    }
    token[n] = 0;
    return kToken;
}

bool Reader::readValue(const Header& header, Scalar type, double& value, std::string& error)
{
    if (header.format == Format::Ascii) {
        char token[80];
        const int got = readToken(token, sizeof token);
        if (got != kToken) {
            error = got == kEnd ? "unexpected end of data" : "a value of more than 79 characters";
            return false;
        }
        char* end = nullptr;
        errno = 0;
        if (isInteger(type)) {
            const long long v = std::strtoll(token, &end, 10);
            value = static_cast<double>(v);
        } else {
            value = std::strtod(token, &end);
            // The value the declared type holds, as a binary file would give it.
            if (type == Scalar::Float32) value = static_cast<float>(value);
        }
        if (end == token || *end != 0 || errno == ERANGE) {
            error = std::string("'") + token + "' is no " + scalarName(type);
            return false;
        }
        if (!inRange(type, value)) {
            error = std::string("'") + token + "' is out of range for " + scalarName(type);
            return false;
        }
        return true;
    }
    unsigned char b[8];
    const size_t n = sizeOf(type);
    for (size_t i = 0; i < n; ++i)
        if (!getByte(b[i])) {
            error = "unexpected end of data";
            return false;
        }
    if (header.format == Format::BinaryBigEndian)
        for (size_t i = 0; i < n / 2; ++i) std::swap(b[i], b[n - 1 - i]);
    switch (type) {
    case Scalar::Int8: value = static_cast<int8_t>(b[0]); break;
    case Scalar::UInt8: value = b[0]; break;
    case Scalar::Int16: { int16_t v; std::memcpy(&v, b, 2); value = v; break; }
    case Scalar::UInt16: { uint16_t v; std::memcpy(&v, b, 2); value = v; break; }
    case Scalar::Int32: { int32_t v; std::memcpy(&v, b, 4); value = v; break; }
    case Scalar::UInt32: { uint32_t v; std::memcpy(&v, b, 4); value = v; break; }
    case Scalar::Float32: { float v; std::memcpy(&v, b, 4); value = v; break; }
    case Scalar::Float64: { double v; std::memcpy(&v, b, 8); value = v; break; }
    }
    return true;
}

bool Reader::readElement(const Header& header, size_t element, const Visitor& visit, std::string& error)
{
    if (element >= header.elements.size()) {
        error = "no such element";
        return false;
    }
    for (size_t e = 0; e <= element; ++e) {
        const Element& el = header.elements[e];
        // An element without properties has no bytes, whatever its count.
        if (el.properties.empty()) continue;
        const bool chosen = e == element;
        for (uint64_t item = 0; item < el.count; ++item) {
            for (size_t p = 0; p < el.properties.size(); ++p) {
                const Property& prop = el.properties[p];
                auto fail = [&](const std::string& what) {
                    error = "element '" + el.name + "' item " + std::to_string(item) + " property '" + prop.name +
                            "': " + what;
                    return false;
                };
                double v = 0;
                std::string what;
                if (!prop.list) {
                    if (!readValue(header, prop.valueType, v, what)) return fail(what);
                    if (chosen && !visit(item, p, 0, v)) return true;
                    continue;
                }
                double count = 0;
                if (!readValue(header, prop.countType, count, what)) return fail("list count: " + what);
                if (count < 0) return fail("negative list count");
                const auto n = static_cast<uint64_t>(count);
                for (uint64_t i = 0; i < n; ++i) {
                    if (!readValue(header, prop.valueType, v, what))
                        return fail("list entry " + std::to_string(i) + " of " + std::to_string(n) + ": " + what);
                    if (chosen && !visit(item, p, static_cast<uint32_t>(i), v)) return true;
                }
            }
        }
    }
    return true;
}

}  // namespace ply
