#include "node/ScnField.h"

#include <charconv>
#include <cstdio>
#include <cstring>

#include "node/ScnNode.h"

ScnField::ScnField(ScnNode* owner, const char* name) : m_name(name ? name : "")
{
    if (owner) owner->addField(this);
}

std::string scnQuote(const std::string& s)
{
    std::string out = "\"";
    for (unsigned char c : s) {
        switch (c) {
        case '\n': out += "\\n"; break;
        case '\t': out += "\\t"; break;
        case '\r': out += "\\r"; break;
        case '\\': out += "\\\\"; break;
        case '"': out += "\\\""; break;
        default:
            if (c < 0x20 || c == 0x7f) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\x%02x", c);
                out += buf;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    out += '"';
    return out;
}

// The shortest text that reads back as the same value.
std::string scnNumber(double v)
{
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, r.ptr);
}

std::string scnNumber(float v)
{
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, r.ptr);
}

static std::string list(const double* v, int n)
{
    std::string s = "[";
    for (int i = 0; i < n; ++i) {
        if (i) s += ' ';
        s += scnNumber(v[i]);
    }
    return s + "]";
}

bool ScnMatrix16::isIdentity() const
{
    return std::memcmp(m, ScnMatrix16{}.m, sizeof m) == 0;
}

ScnMatrix16 ScnMatrix16::translation(double x, double y, double z)
{
    ScnMatrix16 r;
    r.m[12] = x;
    r.m[13] = y;
    r.m[14] = z;
    return r;
}

// -- text forms of the single-value fields ----------------------------------

template <> std::string ScnSF<char>::toText() const { return std::to_string(static_cast<int>(value)); }
template <> std::string ScnSF<unsigned short>::toText() const { return std::to_string(value); }
template <> std::string ScnSF<int>::toText() const { return std::to_string(value); }
template <> std::string ScnSF<unsigned int>::toText() const { return std::to_string(value); }
template <> std::string ScnSF<float>::toText() const { return scnNumber(value); }
template <> std::string ScnSF<ScnVec3>::toText() const
{
    const double v[3] = {value.x, value.y, value.z};
    return list(v, 3);
}
template <> std::string ScnSF<ScnColor>::toText() const
{
    const double v[4] = {value.r, value.g, value.b, value.a};
    std::string s = "[";
    for (int i = 0; i < 4; ++i) s += (i ? " " : "") + scnNumber(static_cast<float>(v[i]));
    return s + "]";
}
template <> std::string ScnSF<ScnMatrix16>::toText() const { return list(value.m, 16); }
template <> std::string ScnSF<ScnImageFormat>::toText() const
{
    return "[" + std::to_string(value.order) + " " + std::to_string(value.type) + "]";
}
template <> std::string ScnSF<ScnTextureFlags>::toText() const
{
    return "[" + std::to_string(value.w[0]) + " " + std::to_string(value.w[1]) + " " + std::to_string(value.w[2]) +
           " " + std::to_string(value.w[3]) + "]";
}

template <> std::string ScnSF<ScnPlyLoadInfo>::toText() const
{
    std::string s = "{stride=" + std::to_string(value.stride) + " type=" + std::to_string(value.type) +
                    " element=" + scnQuote(std::string(value.element, strnlen(value.element, 100))) + " property=[";
    int n = value.count < 0 ? 0 : (value.count > 10 ? 10 : value.count);
    for (int i = 0; i < n; ++i)
        s += (i ? " " : "") + scnQuote(std::string(value.property[i], strnlen(value.property[i], 100)));
    return s + "] count=" + std::to_string(value.count) + "}";
}

template <> const char* ScnSF<char>::kind() const { return "char"; }
template <> const char* ScnSF<unsigned short>::kind() const { return "ushort"; }
template <> const char* ScnSF<int>::kind() const { return "int"; }
template <> const char* ScnSF<unsigned int>::kind() const { return "uint"; }
template <> const char* ScnSF<float>::kind() const { return "float"; }
template <> const char* ScnSF<ScnVec3>::kind() const { return "vec3f"; }
template <> const char* ScnSF<ScnColor>::kind() const { return "color"; }
template <> const char* ScnSF<ScnMatrix16>::kind() const { return "matrix"; }
template <> const char* ScnSF<ScnImageFormat>::kind() const { return "imageformat"; }
template <> const char* ScnSF<ScnTextureFlags>::kind() const { return "textureflags"; }
template <> const char* ScnSF<ScnPlyLoadInfo>::kind() const { return "plyloadinfo"; }

void ScnSFBool::read(ScnInStream& in)
{
    uint8_t b;
    if (in.read(&b, 1)) value = b != 0;
}

void ScnSFBool::write(ScnOutStream& out) const
{
    uint8_t b = value ? 1 : 0;
    out.write(&b, 1);
}

std::string ScnSFBits::toText() const
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%x", value);
    return buf;
}

const char* const* ScnSFEnum::getNames(int& count) const
{
    return ScnEnum::getNames(m_table, count);
}

std::string ScnSFEnum::toText() const
{
    std::string s = std::to_string(value);
    if (const char* name = ScnEnum::nameOf(m_table, value)) s += std::string(" (") + name + ")";
    return s;
}

// -- strings ----------------------------------------------------------------

void ScnSFString::read(ScnInStream& in)
{
    uint32_t n = 0;
    if (!in.readU32(n)) return;
    std::string s;
    if (!in.readString(s, n)) return;
    value.swap(s);
}

void ScnSFString::write(ScnOutStream& out) const
{
    out.writeU32(static_cast<uint32_t>(value.size()));
    out.writeString(value);
}

void ScnSFScript::assign(const ScnField& other)
{
    ScnSFString::assign(other);
    number = static_cast<const ScnSFScript&>(other).number;
}

// -- arrays -----------------------------------------------------------------

template <> std::string ScnMF<int32_t>::toText() const
{
    std::string s = "[";
    for (size_t i = 0; i < values.size(); ++i) s += (i ? " " : "") + std::to_string(values[i]);
    return s + "]";
}
template <> std::string ScnMF<uint32_t>::toText() const
{
    std::string s = "[";
    for (size_t i = 0; i < values.size(); ++i) s += (i ? " " : "") + std::to_string(values[i]);
    return s + "]";
}
template <> std::string ScnMF<ScnMatrix16>::toText() const
{
    std::string s = "[";
    for (size_t i = 0; i < values.size(); ++i) s += (i ? " " : "") + list(values[i].m, 16);
    return s + "]";
}
template <> const char* ScnMF<int32_t>::kind() const { return "int[]"; }
template <> const char* ScnMF<uint32_t>::kind() const { return "uint[]"; }
template <> const char* ScnMF<ScnMatrix16>::kind() const { return "matrix[]"; }

// -- enumeration tables -----------------------------------------------------

namespace {

struct EnumTable {
    const char* name = nullptr;
    std::vector<const char*> names;  // ends with a null entry
    int count = 0;
    int first = 0;
};

constexpr int kPlaces = 1000;
EnumTable g_tables[kPlaces];

uint32_t keyOf(const char* s)
{
    uint32_t k = 0;
    for (; *s; ++s) k += static_cast<unsigned char>(*s);
    return k;
}

EnumTable* findPlace(const char* table, bool forInsert)
{
    uint32_t place = keyOf(table) % kPlaces;
    for (int probe = 0; probe < kPlaces; ++probe) {
        EnumTable& t = g_tables[(place + probe) % kPlaces];
        if (!t.name) return forInsert ? &t : nullptr;
        if (std::strcmp(t.name, table) == 0) return forInsert ? nullptr : &t;
    }
    return nullptr;
}

}  // namespace

namespace ScnEnum {

bool registerTable(const char* table, const char* const* names, int count, int first)
{
    if (!table || count < 0) return false;
    EnumTable* t = findPlace(table, true);
    if (!t) return false;
    t->name = table;
    t->names.assign(static_cast<size_t>(count) + 2, nullptr);
    for (int i = 0; i < count; ++i) t->names[i] = names ? names[i] : nullptr;
    t->count = count;
    t->first = first;
    return true;
}

const char* const* getNames(const char* table, int& count)
{
    EnumTable* t = table ? findPlace(table, false) : nullptr;
    count = t ? t->count : 0;
    return t ? t->names.data() : nullptr;
}

const char* nameOf(const char* table, int value)
{
    EnumTable* t = table ? findPlace(table, false) : nullptr;
    if (!t) return nullptr;
    int64_t index = int64_t(value) - t->first;
    return index >= 0 && index < t->count ? t->names[static_cast<size_t>(index)] : nullptr;
}

}  // namespace ScnEnum
