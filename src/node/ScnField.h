// Fields: the members of a node that read, write, copy and print themselves.
//
// A field registers itself with its owner node when it is constructed, so a
// class's field order is simply the order in which its members are declared.
// That order is the file format: files carry neither field names nor types.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "node/ScnStream.h"

class ScnNode;

class ScnField {
public:
    enum Mode : uint32_t { ReadWrite = 0, NotRead = 1, NotWritten = 2 };

    ScnField(ScnNode* owner, const char* name);
    virtual ~ScnField() = default;
    ScnField(const ScnField&) = delete;
    ScnField& operator=(const ScnField&) = delete;

    virtual void read(ScnInStream& in) = 0;
    virtual void write(ScnOutStream& out) const = 0;
    // Copies the value of a field of the same class.
    virtual void assign(const ScnField& other) = 0;
    // Byte width of a fixed-size field; 0 for variable size.
    virtual uint32_t size() const = 0;

    // The value as text, for the dump tool and the property pages.
    virtual std::string toText() const = 0;
    // A short name of the field's class.
    virtual const char* kind() const = 0;

    // Nodes that the field holds (children, an inline node, register slots),
    // for walks that must see the whole tree.
    virtual int nodeCount() const { return 0; }
    virtual ScnNode* nodeAt(int) const { return nullptr; }

    const char* name() const { return m_name; }
    uint32_t mode = ReadWrite;

protected:
    const char* m_name;
};

// Text helpers shared by the field classes.
std::string scnQuote(const std::string& s);
std::string scnNumber(double v);
std::string scnNumber(float v);

// A single value of a trivially copyable type, stored as its raw bytes.
template <class T>
class ScnSF : public ScnField {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    ScnSF(ScnNode* owner, const char* name, const T& def = T{}) : ScnField(owner, name), value(def) {}

    void read(ScnInStream& in) override { in.read(&value, sizeof(T)); }
    void write(ScnOutStream& out) const override { out.write(&value, sizeof(T)); }
    void assign(const ScnField& other) override { value = static_cast<const ScnSF<T>&>(other).value; }
    uint32_t size() const override { return sizeof(T); }
    std::string toText() const override;
    const char* kind() const override;

    operator const T&() const { return value; }
    ScnSF& operator=(const T& v) { value = v; return *this; }

    T value;
};

// The bool is one byte, 0 or 1; any other byte reads as true.
class ScnSFBool : public ScnField {
public:
    ScnSFBool(ScnNode* owner, const char* name, bool def = false) : ScnField(owner, name), value(def) {}
    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;
    void assign(const ScnField& other) override { value = static_cast<const ScnSFBool&>(other).value; }
    uint32_t size() const override { return 1; }
    std::string toText() const override { return value ? "true" : "false"; }
    const char* kind() const override { return "bool"; }
    operator bool() const { return value; }
    ScnSFBool& operator=(bool v) { value = v; return *this; }
    bool value;
};

// An int with the name of its enumeration table.
class ScnSFEnum : public ScnSF<int> {
public:
    ScnSFEnum(ScnNode* owner, const char* name, const char* table, int def = 0)
        : ScnSF<int>(owner, name, def), m_table(table) {}
    const char* kind() const override { return "enum"; }
    std::string toText() const override;
    // The table's names and their number; null and 0 when not registered.
    virtual const char* const* getNames(int& count) const;
    const char* tableName() const { return m_table; }
    using ScnSF<int>::operator=;

private:
    const char* m_table;
};

class ScnSFBits : public ScnSF<uint32_t> {
public:
    using ScnSF<uint32_t>::ScnSF;
    using ScnSF<uint32_t>::operator=;
    const char* kind() const override { return "bits"; }
    std::string toText() const override;
};

struct ScnVec3 { double x = 0, y = 0, z = 0; };
struct ScnColor { float r = 0, g = 0, b = 0, a = 1; };
struct ScnMatrix16 {
    double m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    bool isIdentity() const;
    static ScnMatrix16 translation(double x, double y, double z);
};
// The OpenCL image format pair, order first, with the OpenCL values.
struct ScnImageFormat { uint32_t order = 0; uint32_t type = 0; };
// Texture flags: four words, only the first is used (a filter bit mask).
struct ScnTextureFlags { uint32_t w[4] = {0, 0, 0, 0}; };

// What a node remembers of a choice from a ply file.
struct ScnPlyLoadInfo {
    int32_t stride = 0;          // bytes between two records in the target
    int32_t type = 0;            // element type code of the target
    char element[100] = {};      // name of the ply element
    char property[10][100] = {}; // names of the chosen properties
    int32_t count = 0;           // number of names used in property
};

using ScnSFChar = ScnSF<char>;
using ScnSFUShort = ScnSF<unsigned short>;
using ScnSFInt = ScnSF<int>;
using ScnSFUInt = ScnSF<unsigned int>;
using ScnSFULong = ScnSF<uint32_t>;  // an unsigned long is 32 bits in files
using ScnSFFloat = ScnSF<float>;
using ScnSFVec3f = ScnSF<ScnVec3>;
using ScnSFColor = ScnSF<ScnColor>;
using ScnSFMatrix = ScnSF<ScnMatrix16>;
using ScnSFImageFormat = ScnSF<ScnImageFormat>;
using ScnSFTextureFlags = ScnSF<ScnTextureFlags>;
using ScnSFPlyLoadInfo = ScnSF<ScnPlyLoadInfo>;

static_assert(sizeof(ScnVec3) == 24 && sizeof(ScnColor) == 16 && sizeof(ScnMatrix16) == 128);
static_assert(sizeof(ScnImageFormat) == 8 && sizeof(ScnTextureFlags) == 16);
static_assert(sizeof(ScnPlyLoadInfo) == 1112);

// Text: u32 length, then the bytes, no terminator.
class ScnSFString : public ScnField {
public:
    ScnSFString(ScnNode* owner, const char* name, const std::string& def = std::string())
        : ScnField(owner, name), value(def) {}
    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;
    void assign(const ScnField& other) override { value = static_cast<const ScnSFString&>(other).value; }
    uint32_t size() const override { return 0; }
    std::string toText() const override { return scnQuote(value); }
    const char* kind() const override { return "string"; }
    operator const std::string&() const { return value; }
    ScnSFString& operator=(const std::string& v) { value = v; return *this; }
    const char* c_str() const { return value.c_str(); }
    std::string value;
};

// A number or a Lua expression as text; the int is the value of the last
// evaluation and is not stored.
class ScnSFScript : public ScnSFString {
public:
    ScnSFScript(ScnNode* owner, const char* name, int def)
        : ScnSFString(owner, name, std::to_string(def)), number(def) {}
    ScnSFScript(ScnNode* owner, const char* name, const std::string& text, int def = 0)
        : ScnSFString(owner, name, text), number(def) {}
    void assign(const ScnField& other) override;
    const char* kind() const override { return "script"; }
    // Runs "OPENCLINIT = " .. text and keeps the result as an int; falls back
    // on `def` with a message on the error channel.
    int evaluate(int def);
    using ScnSFString::operator=;
    int number;
};

// An array of 32-bit values: u32 count, then the values.
template <class T>
class ScnMF : public ScnField {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    ScnMF(ScnNode* owner, const char* name) : ScnField(owner, name) {}
    // A list that starts with `count` copies of `def` (a table indexed by code).
    ScnMF(ScnNode* owner, const char* name, size_t count, const T& def = T{})
        : ScnField(owner, name), values(count, def) {}
    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;
    void assign(const ScnField& other) override { values = static_cast<const ScnMF<T>&>(other).values; }
    uint32_t size() const override { return 0; }
    std::string toText() const override;
    const char* kind() const override;
    std::vector<T> values;
};

using ScnMFInt = ScnMF<int32_t>;
using ScnMFUInt = ScnMF<uint32_t>;
using ScnMFMatrix = ScnMF<ScnMatrix16>;

// Enumeration tables, kept in a global hash table of 1000 places keyed by the
// byte sum of the table's name.
namespace ScnEnum {
// Registers a table of `count` names; the stored list ends with a null.
// `first` is the value of the first name: tables of OpenGL codes start at
// the first code rather than 0. Returns false when the table is full or the
// name is taken.
bool registerTable(const char* table, const char* const* names, int count, int first = 0);
// The names of a table and their number, or null and 0.
const char* const* getNames(const char* table, int& count);
// The name a table gives to a stored value, or null when it has none.
const char* nameOf(const char* table, int value);
}

// -- template definitions ---------------------------------------------------

template <class T>
void ScnMF<T>::read(ScnInStream& in)
{
    uint32_t count = 0;
    if (!in.readU32(count)) return;
    if (!in.checkCount(count, sizeof(T), "array count larger than the data that remains")) return;
    std::vector<T> v(count);
    if (count && !in.read(v.data(), count * sizeof(T))) return;
    values.swap(v);
}

template <class T>
void ScnMF<T>::write(ScnOutStream& out) const
{
    out.writeU32(static_cast<uint32_t>(values.size()));
    if (!values.empty()) out.write(values.data(), values.size() * sizeof(T));
}
