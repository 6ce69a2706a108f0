// PLY models: the reader on files written here in ASCII and both binary byte
// orders, its refusals of damaged files (truncations, bad counts, bad types)
// and a mutation run over them; then MemSourcePly loading columns of a model
// into OpenCL buffers through the plug-in `ply`.
#include <gtest/gtest.h>

#include <lua.hpp>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "compute/OclGlobal.h"
#include "compute/OclNodes.h"
#include "memory/MemNodes.h"
#include "memory/MemSourcePly.h"
#include "memory/SourceFiles.h"
#include "plugins/ply/PlyReader.h"
#include "runtime/RtnApplication.h"
#include "support/DocumentFixture.h"

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

std::vector<double> expectedVertices()
{
    std::vector<double> v;
    for (const Vertex& x : kVertices) v.insert(v.end(), {x.x, x.y, x.z, static_cast<double>(x.red)});
    return v;
}

}  // namespace

TEST(PlyReader, TheThreeEncodingsGiveTheSameElementsAndValues)
{
    for (ply::Format f : {ply::Format::Ascii, ply::Format::BinaryLittleEndian, ply::Format::BinaryBigEndian}) {
        SCOPED_TRACE(static_cast<int>(f));
        Read vertices = readAll(model(f), 0);
        ASSERT_TRUE(vertices.ok) << vertices.error;
        EXPECT_EQ(vertices.header.format, f);
        ASSERT_EQ(vertices.header.elements.size(), 2u);
        const ply::Element& v = vertices.header.elements[0];
        EXPECT_EQ(v.name, "vertex");
        EXPECT_EQ(v.count, 4u);
        ASSERT_EQ(v.properties.size(), 4u);
        EXPECT_EQ(v.properties[3].name, "red");
        EXPECT_EQ(v.properties[3].valueType, ply::Scalar::UInt8);
        EXPECT_EQ(vertices.values, expectedVertices());

        Read faces = readAll(model(f), 1);
        ASSERT_TRUE(faces.ok) << faces.error;
        const ply::Property& list = faces.header.elements[1].properties[0];
        EXPECT_TRUE(list.list);
        EXPECT_EQ(list.countTypeName, "uchar");
        EXPECT_EQ(list.valueTypeName, "int");
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

// Bytes of the seed models flipped, dropped, repeated and replaced by header
// words at random (a fixed seed, so a failure repeats): the reader answers
// each with a result or a message, within the bytes it was given.
TEST(PlyReader, SurvivesAMutationRunWithClearAnswers)
{
    std::mt19937 rng(20240611);
    const std::string seeds[] = {model(ply::Format::Ascii), model(ply::Format::BinaryLittleEndian),
                                 model(ply::Format::BinaryBigEndian)};
    const char* const words[] = {"list", "uchar", "double", "element", "property", "-1", "4294967295",
                                 "end_header\n", "format binary_big_endian 1.0\n", "\n", " "};
    int refused = 0, read = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string s = seeds[round % 3];
        const int edits = 1 + static_cast<int>(rng() % 4);
        for (int e = 0; e < edits && !s.empty(); ++e) {
            const size_t at = rng() % s.size();
            switch (rng() % 4) {
            case 0: s[at] = static_cast<char>(rng()); break;
            case 1: s.erase(at, 1 + rng() % 8); break;
            case 2: s.insert(at, s.substr(at, 1 + rng() % 16)); break;
            default: s.insert(at, words[rng() % std::size(words)]); break;
            }
        }
        Read r = readAll(s);
        if (r.ok) {
            ++read;
        } else {
            ++refused;
            ASSERT_FALSE(r.error.empty()) << "a refusal says why";
        }
    }
    EXPECT_GT(refused, 100);
    EXPECT_GT(read, 10);
}

// ---------------------------------------------------------------- MemSourcePly

namespace {

class PlySource : public DocumentFixture {
protected:
    void SetUp() override
    {
        DocumentFixture::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_NE(OclGlobal::currentContext(), nullptr) << "no OpenCL platform on this machine";
        sources::loadPlugins();
        Channels::clearAll();
    }

    void open(std::initializer_list<ScnNode*> nodes)
    {
        auto app = std::make_unique<RtnApplication>();
        auto* platform = new OclPlatform;
        for (ScnNode* n : nodes) platform->append(n);
        app->openCL.node.append(platform);
        std::string error;
        ASSERT_TRUE(app->writeFile(m_ws / "ply.3Dm", error)) << error;
        ASSERT_TRUE(m_doc.open("ply.3Dm", error)) << error;
        drain();
    }

    oclMem* object(const char* name)
    {
        auto* platform = static_cast<ScnGroup*>(m_doc.application()->openCL.node.getChild(0));
        for (int i = 0; ScnNode* n = platform->getChild(i); ++i)
            if (n->getName() == name) return static_cast<OclBuffer*>(n->twin())->object();
        return nullptr;
    }

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

    static OclBuffer* buffer(const char* name, uint32_t type, const char* dim)
    {
        auto* b = new OclBuffer;
        b->setName(name);
        b->type = static_cast<int>(type);
        b->dim0 = dim;
        return b;
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
    std::vector<float> xyz;
    for (const Vertex& v : kVertices) xyz.insert(xyz.end(), {v.x, v.y, v.z});
    for (ply::Format f : {ply::Format::Ascii, ply::Format::BinaryLittleEndian, ply::Format::BinaryBigEndian}) {
        SCOPED_TRACE(static_cast<int>(f));
        sources::writeBytes(m_ws / "model.ply", model(f));
        const std::string path = m_ws / "model.ply";
        for (const char* name : {"positions", "padded", "triangles", "indices", "reds"}) {
            // Clear what the last encoding left.
            oclMem* m = object(name);
            ASSERT_TRUE(m->map(CL_MAP_WRITE, 0));
            std::memset(m->data, 0xEE, m->proxy->byteSize());
            m->unmap(0);
        }
        MemSourcePly positions(object("positions"));
        positions.open(path.c_str());
        ASSERT_TRUE(positions.load(info(12, MemTypes::Float, "vertex", {"x", "y", "z"})));
        EXPECT_EQ(values<float>(object("positions")), xyz);

        // Into float4 records: three columns then the rest of the record untouched.
        MemSourcePly padded(object("padded"));
        padded.open(path.c_str());
        ASSERT_TRUE(padded.load(info(16, MemTypes::Float4, "vertex", {"z", "x", "y"})));
        const std::vector<float> p = values<float>(object("padded"));
        ASSERT_EQ(p.size(), 16u);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(p[i * 4], kVertices[i].z);
            EXPECT_EQ(p[i * 4 + 1], kVertices[i].x);
            EXPECT_EQ(p[i * 4 + 2], kVertices[i].y);
            uint32_t untouched;
            std::memcpy(&untouched, &p[i * 4 + 3], 4);
            EXPECT_EQ(untouched, 0xEEEEEEEEu);
        }

        // Index lists: at a stride of three the quad's fourth index is left
        // out; packed, each face takes as many indices as it has.
        MemSourcePly triangles(object("triangles"));
        triangles.open(path.c_str());
        ASSERT_TRUE(triangles.load(info(12, MemTypes::UInt, "face", {"vertex_indices"})));
        EXPECT_EQ(values<uint32_t>(object("triangles")), (std::vector<uint32_t>{0, 1, 2, 3, 2, 1}));
        MemSourcePly indices(object("indices"));
        indices.open(path.c_str());
        ASSERT_TRUE(indices.load(info(0, MemTypes::UInt, "face", {"vertex_indices"})));
        EXPECT_EQ(values<uint32_t>(object("indices")), (std::vector<uint32_t>{0, 1, 2, 3, 2, 1, 0, 0xEEEEEEEEu}));

        // A buffer shorter than the element takes what fits.
        MemSourcePly reds(object("reds"));
        reds.open(path.c_str());
        ASSERT_TRUE(reds.load(info(1, MemTypes::UChar, "vertex", {"red"})));
        EXPECT_EQ(values<uint8_t>(object("reds")), (std::vector<uint8_t>{10, 20, 30}));
        EXPECT_EQ(drain(), Lines{});
    }
}

TEST_F(PlySource, TheHeaderListsElementsWithTheirPropertiesForTheChooser)
{
    sources::writeBytes(m_ws / "model.ply", model(ply::Format::BinaryBigEndian));
    MemSourcePly source(nullptr);
    ASSERT_TRUE(source.getFileInfo((m_ws / "model.ply").c_str()));
    ASSERT_EQ(source.elements.size(), 2u);
    const MemSourcePly::Element* vertex = nullptr;
    const MemSourcePly::Element* face = nullptr;
    for (const auto& e : source.elements) (e.name == "vertex" ? vertex : face) = &e;
    ASSERT_TRUE(vertex && face && face->name == "face");
    EXPECT_EQ(vertex->count, 4);
    ASSERT_EQ(vertex->properties.size(), 4u);
    EXPECT_EQ(vertex->properties[0].name, "x");
    EXPECT_EQ(vertex->properties[0].type, "float");
    EXPECT_EQ(vertex->properties[3].type, "uchar");
    EXPECT_EQ(face->count, 2);
    ASSERT_EQ(face->properties.size(), 1u);
    EXPECT_EQ(face->properties[0].name, "vertex_indices");
    EXPECT_EQ(face->properties[0].type, "list");
    EXPECT_EQ(face->properties[0].value_type, "int");

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
    const std::string whole = model(ply::Format::BinaryLittleEndian);
    sources::writeBytes(m_ws / "cut.ply", whole.substr(0, whole.size() - 10));
    sources::writeBytes(m_ws / "model.ply", whole);
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
