// PLY models: the reader on files written here in ASCII and both binary byte
// orders and its refusals of damaged files (truncations, bad counts, bad
// types); then MemSourcePly loading columns of a model into OpenCL buffers
// through the plug-in `ply`.
#include <gtest/gtest.h>

#include <lua.hpp>

#include <cstring>
#include <string>
#include <vector>

#include "memory/MemSourcePly.h"
#include "memory/SourceFiles.h"
#include "plugins/ply/PlyReader.h"

using namespace sources;

namespace {

struct Vertex {
    float x, y, z;
    uint8_t red;
};

const Vertex kVertices[] = {{0.5f, -1.25f, 2.0f, 10}, {3.0f, 4.5f, -6.75f, 20}, {-7.5f, 8.0f, 9.25f, 30},
                            {1e-3f, -2e4f, 0.0f, 255}};
// A triangle and a quad.
const std::vector<std::vector<int32_t>> kFaces = {{0, 1, 2}, {3, 2, 1, 0}};

template <class T>
void put(std::string& out, T v, bool big)
{
    char b[sizeof(T)];
    std::memcpy(b, &v, sizeof(T));
    if (big)
        for (size_t i = 0; i < sizeof(T) / 2; ++i) std::swap(b[i], b[sizeof(T) - 1 - i]);
    out.append(b, sizeof(T));
}

// The model in one of the three encodings.
std::string model(ply::Format format)
{
    const char* name = format == ply::Format::Ascii                ? "ascii"
                       : format == ply::Format::BinaryLittleEndian ? "binary_little_endian"
                                                                    : "binary_big_endian";
    std::string s = std::string("ply\nformat ") + name +
                    " 1.0\ncomment written by the test\n"
                    "element vertex 4\nproperty float x\nproperty float y\nproperty float z\nproperty uchar red\n"
                    "element face 2\nproperty list uchar int vertex_indices\nend_header\n";
    const bool big = format == ply::Format::BinaryBigEndian;
    for (const Vertex& v : kVertices) {
        if (format == ply::Format::Ascii) {
            char line[128];
            std::snprintf(line, sizeof line, "%.9g %.9g %.9g %u\n", v.x, v.y, v.z, v.red);
            s += line;
        } else {
            put(s, v.x, big), put(s, v.y, big), put(s, v.z, big), put(s, v.red, big);
        }
    }
    for (const auto& f : kFaces) {
        if (format == ply::Format::Ascii) {
            s += std::to_string(f.size());
            for (int32_t i : f) s += " " + std::to_string(i);
            s += "\n";
        } else {
            put(s, static_cast<uint8_t>(f.size()), big);
            for (int32_t i : f) put(s, i, big);
        }
    }
    return s;
}

struct Read {
    bool ok = false;
    std::string error;
    ply::Header header;
    std::vector<double> values;
};

// Reads the header and then every element of `bytes`, keeping the values of
// the last one read.
Read readAll(const std::string& bytes, int element = -1)
{
    Read r;
    ply::MemoryInput in(bytes.data(), bytes.size());
    ply::Reader reader(in);
    if (!reader.readHeader(r.header, r.error)) return r;
    const size_t e = element < 0 ? r.header.elements.size() - 1 : static_cast<size_t>(element);
    r.ok = r.header.elements.empty() ||
           reader.readElement(r.header, e,
                              [&](uint64_t, size_t, uint32_t, double v) {
                                  r.values.push_back(v);
                                  return true;
                              },
                              r.error);
    return r;
}

}  // namespace

TEST(PlyReader, TheThreeEncodingsGiveTheSameElementsAndValues)
{
    for (ply::Format f : {ply::Format::Ascii, ply::Format::BinaryLittleEndian, ply::Format::BinaryBigEndian}) {
        SCOPED_TRACE(static_cast<int>(f));
        Read vertices = readAll(model(f), 0), faces = readAll(model(f), 1);
        ASSERT_TRUE(vertices.ok && faces.ok) << vertices.error << faces.error;
        EXPECT_EQ(vertices.header.format, f);
        ASSERT_EQ(vertices.header.elements.size(), 2u);
        const ply::Element& v = vertices.header.elements[0];
        EXPECT_EQ(v.name + " " + std::to_string(v.count) + " " + std::to_string(v.properties.size()), "vertex 4 4");
        EXPECT_EQ(v.properties[3].name, "red");
        EXPECT_EQ(v.properties[3].valueType, ply::Scalar::UInt8);
        std::vector<double> expected;
        for (const Vertex& x : kVertices) expected.insert(expected.end(), {x.x, x.y, x.z, static_cast<double>(x.red)});
        EXPECT_EQ(vertices.values, expected);
        const ply::Property& list = faces.header.elements[1].properties[0];
        EXPECT_TRUE(list.list && list.countTypeName == "uchar" && list.valueTypeName == "int");
        EXPECT_EQ(faces.values, (std::vector<double>{0, 1, 2, 3, 2, 1, 0}));
    }
}

TEST(PlyReader, DamagedHeadersAreRefusedWithTheLineAndTheReason)
{
    const std::string body = "element vertex 1\nproperty float x\nend_header\n1\n";
    const struct {
        std::string file;
        const char* reason;
    } cases[] = {
        {"plx\nformat ascii 1.0\n" + body, "not a PLY file"},
        {"ply\nformat ascii 2.0\n" + body, "unknown version '2.0'"},
        {"ply\nformat binary_middle_endian 1.0\n" + body, "unknown format"},
        {"ply\n" + body, "no format line"},
        {"ply\nformat ascii 1.0\nproperty float x\n" + body, "header line 3: property before any element"},
        {"ply\nformat ascii 1.0\nelement vertex -3\nproperty float x\nend_header\n", "bad count '-3'"},
        {"ply\nformat ascii 1.0\nelement vertex 12abc\nend_header\n", "bad count '12abc'"},
        {"ply\nformat ascii 1.0\nelement vertex 99999999999999999999\nend_header\n", "bad count"},
        {"ply\nformat ascii 1.0\nelement v 1\nproperty quad x\nend_header\n", "unknown type 'quad'"},
        {"ply\nformat ascii 1.0\nelement v 1\nproperty list float int x\nend_header\n", "integer type"},
        {"ply\nformat ascii 1.0\nelement v 1\nproperty list uchar int\nend_header\n", "a list property needs"},
        {"ply\nformat ascii 1.0\nelement v 1\nfrobnicate\nend_header\n", "unknown keyword 'frobnicate'"},
        {"ply\nformat ascii 1.0\nelement v 1\nproperty float x\n", "file ends inside the header"},
        {"ply\nformat ascii 1.0\ncomment " + std::string(2000, 'x') + "\nend_header\n", "too long"},
    };
    for (const auto& c : cases) {
        Read r = readAll(c.file);
        EXPECT_FALSE(r.ok);
        EXPECT_NE(r.error.find(c.reason), std::string::npos) << "wanted '" << c.reason << "', got '" << r.error << "'";
    }
    // A header without end is refused at the size limit, not read on.
    std::string endless = "ply\nformat ascii 1.0\n";
    while (endless.size() < ply::Reader::kMaxHeader + 100) endless += "comment more\n";
    Read r = readAll(endless);
    EXPECT_NE(r.error.find("header is longer than"), std::string::npos) << r.error;
}

TEST(PlyReader, DamagedDataIsRefusedWithTheItemThatFailed)
{
    const std::string head = "ply\nformat ascii 1.0\nelement v 2\nproperty uchar a\nproperty list uchar int l\nend_header\n";
    const struct {
        std::string data;
        const char* reason;
    } cases[] = {
        {"1 2 5 6\n300 0\n", "item 1 property 'a': '300' is out of range for uchar"},
        {"1.5 0\n2 0\n", "item 0 property 'a': '1.5' is no uchar"},
        {"1 -1\n", "list count: '-1' is out of range for uchar"},
        {"1 3 7 8\n", "list entry 2 of 3: unexpected end of data"},
        {"1 0\n2 1 x\n", "'x' is no int"},
        {"1 0\n" + std::string(200, '7') + " 0\n", "item 1 property 'a': a value of more than 79 characters"},
    };
    for (const auto& c : cases) {
        Read r = readAll(head + c.data, 0);
        EXPECT_FALSE(r.ok);
        EXPECT_NE(r.error.find(c.reason), std::string::npos) << "wanted '" << c.reason << "', got '" << r.error << "'";
        EXPECT_EQ(r.error.rfind("element 'v' item ", 0), 0u) << r.error;
    }
    // A count far beyond the data costs only the data: the end is found.
    Read huge = readAll("ply\nformat binary_little_endian 1.0\nelement v 900000000000000000\nproperty int a\n"
                        "end_header\n" + std::string(10, '\1'));
    EXPECT_FALSE(huge.ok);
    EXPECT_NE(huge.error.find("item 2 property 'a': unexpected end of data"), std::string::npos) << huge.error;
    // An element without properties has no data, whatever its count.
    Read empty = readAll("ply\nformat ascii 1.0\nelement nothing 900000000000000000\nelement v 1\n"
                         "property short s\nend_header\n-7\n");
    ASSERT_TRUE(empty.ok) << empty.error;
    EXPECT_EQ(empty.values, std::vector<double>{-7});
}

TEST(PlyReader, EveryTruncationOfEveryEncodingIsRefusedCleanly)
{
    for (ply::Format f : {ply::Format::Ascii, ply::Format::BinaryLittleEndian, ply::Format::BinaryBigEndian}) {
        const std::string whole = model(f);
        const size_t headerEnd = whole.find("end_header\n") + 11;
        for (size_t n = 0; n < whole.size(); ++n) {
            Read r = readAll(whole.substr(0, n));
            // An ASCII file cut after the last digit of a line is whole.
            if (f == ply::Format::Ascii && n == whole.size() - 1) continue;
            ASSERT_FALSE(r.ok) << "cut at " << n << " of " << whole.size();
            ASSERT_FALSE(r.error.empty());
            if (n >= headerEnd)
                EXPECT_EQ(r.error.rfind("element '", 0), 0u) << n << ": " << r.error;
            else
                EXPECT_NE(r.error.find("header"), std::string::npos) << n << ": " << r.error;
        }
    }
}

namespace {

class PlySource : public PlatformDocument {
protected:
    void SetUp() override
    {
        PlatformDocument::SetUp();
        if (HasFatalFailure()) return;
        loadPlugins();
        Channels::clearAll();
    }
    oclMem* object(const char* name) { return live<OclBuffer>(name)->object(); }

    template <class T>
    std::vector<T> values(oclMem* m)
    {
        std::vector<T> out;
        if (!m->map(CL_MAP_READ, 0)) return out;
        out.resize(m->proxy->byteSize() / sizeof(T));
        std::memcpy(out.data(), m->data, out.size() * sizeof(T));
        m->unmap(0);
        return out;
    }

    static MemSourcePly::LoadInfo info(int stride, int type, const char* element,
                                       std::initializer_list<const char*> properties)
    {
        MemSourcePly::LoadInfo i;
        i.stride = stride;
        i.type = type;
        std::snprintf(i.element, sizeof i.element, "%s", element);
        for (const char* p : properties) std::snprintf(i.property[i.count++], 100, "%s", p);
        return i;
    }
};

}  // namespace

TEST_F(PlySource, ColumnsOfEachEncodingLoadIntoBuffersAtTheirStride)
{
    open({buffer("positions", MemTypes::Float, "12"), buffer("padded", MemTypes::Float4, "4"),
          buffer("triangles", MemTypes::UInt, "6"), buffer("indices", MemTypes::UInt, "8"),
          buffer("reds", MemTypes::UChar, "3")});
    drain();
    std::vector<float> xyz;
    for (const Vertex& v : kVertices) xyz.insert(xyz.end(), {v.x, v.y, v.z});
    for (ply::Format f : {ply::Format::Ascii, ply::Format::BinaryLittleEndian, ply::Format::BinaryBigEndian}) {
        SCOPED_TRACE(static_cast<int>(f));
        writeBytes(m_ws / "model.ply", model(f));
        const std::string path = m_ws / "model.ply";
        for (const char* name : {"positions", "padded", "triangles", "indices", "reds"}) {
            // Clear what the last encoding left.
            oclMem* m = object(name);
            ASSERT_TRUE(m->map(CL_MAP_WRITE, 0));
            std::memset(m->data, 0xEE, m->proxy->byteSize());
            m->unmap(0);
        }
        auto load = [&](const char* name, const MemSourcePly::LoadInfo& i) {
            MemSourcePly source(object(name));
            source.open(path.c_str());
            return source.load(i);
        };
        ASSERT_TRUE(load("positions", info(12, MemTypes::Float, "vertex", {"x", "y", "z"})));
        EXPECT_EQ(values<float>(object("positions")), xyz);

        // Into float4 records: three columns then the rest of the record untouched.
        ASSERT_TRUE(load("padded", info(16, MemTypes::Float4, "vertex", {"z", "x", "y"})));
        const std::vector<float> p = values<float>(object("padded"));
        ASSERT_EQ(p.size(), 16u);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(std::vector<float>(p.begin() + i * 4, p.begin() + i * 4 + 3),
                      (std::vector<float>{kVertices[i].z, kVertices[i].x, kVertices[i].y}));
            uint32_t untouched;
            std::memcpy(&untouched, &p[i * 4 + 3], 4);
            EXPECT_EQ(untouched, 0xEEEEEEEEu);
        }

        // Index lists: at a stride of three the quad's fourth index is left
        // out; packed, each face takes as many indices as it has.
        ASSERT_TRUE(load("triangles", info(12, MemTypes::UInt, "face", {"vertex_indices"})));
        EXPECT_EQ(values<uint32_t>(object("triangles")), (std::vector<uint32_t>{0, 1, 2, 3, 2, 1}));
        ASSERT_TRUE(load("indices", info(0, MemTypes::UInt, "face", {"vertex_indices"})));
        EXPECT_EQ(values<uint32_t>(object("indices")), (std::vector<uint32_t>{0, 1, 2, 3, 2, 1, 0, 0xEEEEEEEEu}));

        // A buffer shorter than the element takes what fits.
        ASSERT_TRUE(load("reds", info(1, MemTypes::UChar, "vertex", {"red"})));
        EXPECT_EQ(values<uint8_t>(object("reds")), (std::vector<uint8_t>{10, 20, 30}));
        EXPECT_EQ(drain(), Lines{});
    }
}

TEST_F(PlySource, TheHeaderListsElementsWithTheirPropertiesForTheChooser)
{
    writeBytes(m_ws / "model.ply", model(ply::Format::BinaryBigEndian));
    MemSourcePly source(nullptr);
    ASSERT_TRUE(source.getFileInfo((m_ws / "model.ply").c_str()));
    ASSERT_EQ(source.elements.size(), 2u);
    const MemSourcePly::Element* vertex = nullptr;
    const MemSourcePly::Element* face = nullptr;
    for (const auto& e : source.elements) (e.name == "vertex" ? vertex : face) = &e;
    ASSERT_TRUE(vertex && face && face->name == "face");
    ASSERT_EQ(vertex->count * 10 + vertex->properties.size(), 44u);
    ASSERT_EQ(face->count * 10 + face->properties.size(), 21u);
    const auto& x = vertex->properties[0];
    const auto& red = vertex->properties[3];
    const auto& list = face->properties[0];
    EXPECT_EQ(x.name + " " + x.type + " " + red.type, "x float uchar");
    EXPECT_EQ(list.name + " " + list.type + " " + list.value_type, "vertex_indices list int");

    // Keys that are not strings and values that are not tables are skipped.
    lua_State* L = AppGlobal::luaState();
    ASSERT_EQ(luaL_dostring(L, "saved_info = ply.getFileInfo\n"
                               "ply.getFileInfo = function() return {[1] = {count = 9}, odd = 'text',\n"
                               "  points = {count = 3, property = {{name = 'p', type = 'list', value_type = 'short'}}}}\n"
                               "end"),
              0);
    const bool ok = source.getFileInfo("anything.ply");
    ASSERT_EQ(luaL_dostring(L, "ply.getFileInfo = saved_info"), 0);
    ASSERT_TRUE(ok);
    ASSERT_EQ(source.elements.size(), 1u);
    EXPECT_EQ(source.elements[0].name, "points");
    EXPECT_EQ(source.elements[0].count, 3);
    EXPECT_EQ(source.elements[0].properties[0].value_type, "short");

    // An unreadable file: no table, so false, and the list stays.
    EXPECT_FALSE(source.getFileInfo((m_ws / "absent.ply").c_str()));
    EXPECT_EQ(source.elements.size(), 1u);
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(PlySource, MissingAndDamagedModelsAreReportedAndTheBufferKeepsItsSize)
{
    open({buffer("positions", MemTypes::Float, "12")});
    drain();
    const std::string whole = model(ply::Format::BinaryLittleEndian);
    writeBytes(m_ws / "cut.ply", whole.substr(0, whole.size() - 10));
    writeBytes(m_ws / "model.ply", whole);
    oclMem* m = object("positions");
    auto load = [&](const std::string& file, const MemSourcePly::LoadInfo& i) {
        MemSourcePly s(m);
        s.open((m_ws / file).c_str());
        return s.load(i);
    };
    EXPECT_FALSE(load("absent.ply", info(12, MemTypes::Float, "vertex", {"x"})));
    EXPECT_FALSE(load("model.ply", info(12, MemTypes::Float, "vertex", {"x", "w"})));
    EXPECT_FALSE(load("model.ply", info(12, MemTypes::Float, "edge", {"x"})));
    EXPECT_FALSE(load("cut.ply", info(0, MemTypes::UInt, "face", {"vertex_indices"})));
    const Lines lines = drain();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].rfind("(ply.so): unable to open ", 0), 0u) << lines[0];
    EXPECT_NE(lines[1].find("element 'vertex' has no property 'w'"), std::string::npos) << lines[1];
    EXPECT_NE(lines[2].find("no element 'edge'"), std::string::npos) << lines[2];
    EXPECT_NE(lines[3].find("element 'face' item 1 property 'vertex_indices': list entry 1 of 4"), std::string::npos)
        << lines[3];
    EXPECT_NE(lines[3].find("unexpected end of data"), std::string::npos) << lines[3];
    EXPECT_EQ(m->proxy->byteSize(), 48u);
    EXPECT_EQ(m->mapFlags, 0u) << "a failed load leaves the buffer unmapped";

    // A script's wrong load table is refused by the plug-in with a message.
    lua_State* L = AppGlobal::luaState();
    ASSERT_EQ(luaL_dostring(L, "return pcall(ply.read, OpenCL.clPlatform.positions:getBuffer(), {file = 'x'})"), 0);
    EXPECT_FALSE(lua_toboolean(L, -2));
    EXPECT_NE(std::string(lua_tostring(L, -1)).find("load.element must be a string"), std::string::npos);
    lua_pop(L, 2);
}
