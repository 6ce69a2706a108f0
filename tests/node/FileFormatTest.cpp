#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <future>
#include <memory>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "compute/OclNodes.h"
#include "node/ScnMFFunction.h"
#include "node/ScnNode.h"
#include "render/ScnDeferredPointLight.h"
#include "render/ScnDeferredSpotLight.h"
#include "render/ScnLightbuffer.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnShader.h"
#include "runtime/Channels.h"
#include "runtime/RtnApplication.h"
#include "support/TempDir.h"

namespace {

std::vector<uint8_t> bytesOf(const ScnField& f)
{
    ScnOutStream out;
    f.write(out);
    return out.bytes();
}

uint32_t u32At(const std::vector<uint8_t>& b, size_t at)
{
    uint32_t v;
    std::memcpy(&v, b.data() + at, 4);
    return v;
}

void putU32(std::vector<uint8_t>& b, size_t at, uint32_t v)
{
    std::memcpy(b.data() + at, &v, 4);
}

// An application with groups, a processor with registers, event functions
// with code and token paths.
std::unique_ptr<RtnApplication> richApplication()
{
    auto app = std::make_unique<RtnApplication>();
    app->luaglobal = "n = 4\nprint('global')";
    auto* g = new ScnGroup();
    g->name = "wheel";
    auto* inner = new ScnMatrix();
    inner->name = "hub";
    inner->worldmatrix = ScnMatrix16::translation(1, 2, 3);
    g->append(inner);
    app->openGL.node.append(g);
    app->openGL.node.append(ScnShader::factory());
    auto* program = new OclProgram();
    auto* platform = new OclPlatform();
    platform->platform = "Portable Computing Language";
    platform->append(program);
    app->openCL.node.append(platform);

    auto* proc = static_cast<RtnProcessor*>(app->scripts.node.getChild(0));
    proc->luaglobal = "local x = 1";
    auto* second = new RtnProcessor();
    second->name = "Second";
    second->x = 40;
    app->scripts.node.append(second);

    auto* reg = new RtnRegister();
    reg->addDefaultFunctions();
    reg->index = 3;
    reg->functions.setCode(0, "print('tick')");
    reg->functions.setCode(1, "print(event:getName())");
    reg->functions.append("OnCompute", "");
    reg->marking.append(inner);
    reg->marking.append(program);
    reg->marking.append(&app->camera.node);
    proc->colors.set(3, reg);
    auto* reg0 = new RtnRegister();
    reg0->addDefaultFunctions();
    proc->colors.set(0, reg0);
    return app;
}

}  // namespace

TEST(FieldEncoding, SmallCasesHaveTheirExactBytes)
{
    // Matrices, image formats, texture flags, load descriptions and child
    // lists are laid out in the scene class payloads.
    EXPECT_EQ(bytesOf(ScnSFString(nullptr, "s")), std::vector<uint8_t>(4, 0));
    EXPECT_EQ(bytesOf(ScnMFFunction(nullptr, "")), std::vector<uint8_t>(4, 0));
    EXPECT_EQ(bytesOf(RtnMFNode(nullptr, "colors")), std::vector<uint8_t>(4, 0));
    ScnMFFunction one(nullptr, "");
    one.append("OnTime");
    auto b = bytesOf(one);
    ASSERT_EQ(b.size(), 4u + 104u);
    EXPECT_EQ(u32At(b, 0), 1u);
    EXPECT_STREQ(reinterpret_cast<const char*>(b.data() + 4), "OnTime");
    EXPECT_EQ(u32At(b, 104), 0u);  // no code: length 0, no code bytes

    RtnMFRef refs(nullptr, "marking");
    refs.append(nullptr);
    EXPECT_EQ(bytesOf(refs).size(), 4u + 408u);
    EXPECT_EQ(bytesOf(ScnSFBool(nullptr, "b", true)), std::vector<uint8_t>{1});
    EXPECT_EQ(bytesOf(ScnSFVec3f(nullptr, "v")).size(), 24u);
    EXPECT_EQ(bytesOf(ScnSFColor(nullptr, "c")).size(), 16u);
    EXPECT_EQ(bytesOf(ScnSFUShort(nullptr, "u")).size(), 2u);
    EXPECT_EQ(bytesOf(ScnSFChar(nullptr, "c")).size(), 1u);
    EXPECT_EQ(bytesOf(ScnSFULong(nullptr, "l")).size(), 4u);
}

TEST(FieldEncoding, FunctionListEditing)
{
    ScnMFFunction f(nullptr, "");
    for (const char* n : {"OnTime", "OnDeposit", "OnRemove", "OnPressed"}) f.append(n);
    f.setCode(1, "x = 1");
    f.remove("OnTime");  // the last entry moves into its place
    ASSERT_EQ(f.count(), 3);
    EXPECT_EQ(f.entry(0).getName(), "OnPressed");
    EXPECT_EQ(f.getCode(1), "x = 1");
    f.remove("NotThere");
    EXPECT_EQ(f.count(), 3);
    f.setCode(1, "");
    EXPECT_EQ(f.getLength(1), 0u);

    // Only names and code are stored: flags and references start clear.
    f.setError(0, true);
    f.setLuaRef(0, 12);
    ScnMFFunction back(nullptr, "");
    std::vector<uint8_t> bytes = bytesOf(f);
    ScnInStream in(bytes);
    back.read(in);
    ASSERT_FALSE(in.failed());
    EXPECT_FALSE(back.getError(0));
    EXPECT_EQ(back.getLuaRef(0), -1);
    EXPECT_EQ(back.entry(2).getName(), "OnRemove");
}

TEST(EnumTables, HashPlacesCollideAndProbe)
{
    // "ab" and "ba" have the same byte sum, so the second probes onward.
    const char* first[] = {"ONE", "TWO"};
    const char* second[] = {"THREE"};
    ASSERT_TRUE(ScnEnum::registerTable("ab", first, 2));
    ASSERT_TRUE(ScnEnum::registerTable("ba", second, 1));
    EXPECT_FALSE(ScnEnum::registerTable("ab", second, 1));
    int n = 0;
    const char* const* a = ScnEnum::getNames("ab", n);
    ASSERT_EQ(n, 2);
    EXPECT_STREQ(a[1], "TWO");
    EXPECT_EQ(a[2], nullptr);
    const char* const* b = ScnEnum::getNames("ba", n);
    ASSERT_EQ(n, 1);
    EXPECT_STREQ(b[0], "THREE");
    EXPECT_EQ(ScnEnum::getNames("nope", n), nullptr);
    EXPECT_EQ(n, 0);
    ScnEnum::getNames("cl_channel_order", n);
    EXPECT_EQ(n, 10);
    ScnSFEnum e(nullptr, "type", "cl_mem_type", 19);
    EXPECT_EQ(e.toText(), "19 (cl_float4)");

    // A table of codes names values from its first code on, not from 0.
    const char* codes[] = {"C_BYTE", "C_SHORT", "C_FLOAT"};
    ASSERT_TRUE(ScnEnum::registerTable("codes", codes, 3, 5120));
    EXPECT_STREQ(ScnEnum::nameOf("codes", 5120), "C_BYTE");
    EXPECT_STREQ(ScnEnum::nameOf("codes", 5122), "C_FLOAT");
    EXPECT_EQ(ScnEnum::nameOf("codes", 5123), nullptr);
    EXPECT_EQ(ScnEnum::nameOf("codes", 0), nullptr);
    EXPECT_EQ(ScnEnum::nameOf("codes", 5119), nullptr);
    ScnSFEnum c(nullptr, "type", "codes", 5122);
    EXPECT_EQ(c.toText(), "5122 (C_FLOAT)");
    c.value = 2;
    EXPECT_EQ(c.toText(), "2");
}

TEST(ApplicationFile, RichApplicationRoundTripsByteForByte)
{
    auto app = richApplication();
    std::vector<uint8_t> first = app->toBytes();
    std::string error;
    std::unique_ptr<RtnApplication> back(RtnApplication::readBytes(first, "rich.3Dm", error));
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(back->toBytes(), first);

    auto* proc = static_cast<RtnProcessor*>(back->scripts.node.getChild(0));
    RtnRegister* reg = proc->getRegister(3);
    ASSERT_NE(reg, nullptr);
    EXPECT_EQ(reg->owner, proc);
    EXPECT_EQ(reg->functions.count(), 4);
    EXPECT_EQ(reg->functions.getCode(0), "print('tick')");
    ASSERT_EQ(reg->marking.count(), 3);
    RtnMFRef::s_root = back.get();
    EXPECT_EQ(reg->marking.path(0).resolve()->getName(), "hub");
    EXPECT_EQ(reg->marking.path(1).resolve()->getType(), &OclProgram::s_type);
    // A path of depth 1 names a branch root.
    EXPECT_EQ(reg->marking.path(2).depth, 1u);
    EXPECT_EQ(reg->marking.path(2).resolve(), &back->camera.node);
    EXPECT_EQ(proc->getRegister(1), nullptr);
    EXPECT_EQ(static_cast<RtnProcessor*>(back->scripts.node.getChild(1))->x.value, 40);
    RtnMFRef::s_root = nullptr;
}

TEST(ApplicationFile, PathsAreRebuiltFromTheLiveTreeAtEverySave)
{
    auto app = richApplication();
    auto* wheel = static_cast<ScnGroup*>(app->openGL.node.getChild(0));
    auto* hub = wheel->getChild(0);
    auto* proc = static_cast<RtnProcessor*>(app->scripts.node.getChild(0));
    RtnPath& path = proc->getRegister(3)->marking.path(0);

    RtnMFRef::s_root = app.get();
    app->toBytes();
    ASSERT_TRUE(path.rebuild());
    EXPECT_EQ(path.depth, 3u);
    EXPECT_EQ(path.index[2], 0u);  // the world branch
    EXPECT_EQ(path.index[1], 0u);  // wheel
    EXPECT_EQ(path.index[0], 0u);  // hub

    // An earlier sibling goes away: the saved path follows the node.
    auto* before = new ScnGroup();
    wheel->addFirst(before);
    hub->setName("renamed");
    std::vector<uint8_t> bytes = app->toBytes();
    std::string error;
    std::unique_ptr<RtnApplication> back(RtnApplication::readBytes(bytes, "p.3Dm", error));
    ASSERT_TRUE(back) << error;
    RtnMFRef::s_root = back.get();
    auto* backProc = static_cast<RtnProcessor*>(back->scripts.node.getChild(0));
    EXPECT_EQ(backProc->getRegister(3)->marking.path(0).resolve()->getName(), "renamed");
    RtnMFRef::s_root = nullptr;
}

TEST(ApplicationFile, OldVersionIsWrittenBackAsCurrentWithReservedBytesKept)
{
    // A 1012 writer did not know the geometry settings of shaders: leave them
    // out of the head light's shader to get that file's layout.
    RtnApplication app;
    ScnShader& sh = app.camera.node.light.node.direct.node;
    sh.vertexcount = 3;
    sh.inputtype.mode = sh.outputtype.mode = sh.vertexcount.mode = sh.usegeom.mode = ScnField::NotWritten;
    std::vector<uint8_t> bytes = app.toBytes();
    putU32(bytes, 0, 1012);
    for (size_t i = 4; i < 256; ++i) bytes[i] = static_cast<uint8_t>(i * 7);

    std::string error;
    std::unique_ptr<RtnApplication> back(RtnApplication::readBytes(bytes, "old.3Dm", error));
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(ScnFile::formatVersion, 1012u);
    EXPECT_EQ(back->camera.node.light.node.direct.node.vertexcount.value, 1);  // the default
    std::vector<uint8_t> again = back->toBytes();
    EXPECT_EQ(u32At(again, 0), 2000u);
    EXPECT_TRUE(std::equal(bytes.begin() + 4, bytes.begin() + 256, again.begin() + 4));
    EXPECT_EQ(again.size(), bytes.size() + 13);  // the four settings are written now
    ScnFile::formatVersion = 2000;
}

TEST(ApplicationFile, VersionRulesOfShadersLightsAndFramebuffers)
{
    // A shader object of a pre-1013 document lacks its last four fields.
    ScnShader s;
    s.vertex = "v";
    ScnOutStream out;
    s.write(out);
    std::vector<uint8_t> full = out.bytes();
    std::vector<uint8_t> old(full.begin(), full.end() - 13);  // 3 ints and a bool
    ScnFile::formatVersion = 1012;
    ScnShader r;
    r.vertexcount = 5;
    ScnInStream in(old);
    r.read(in);
    EXPECT_FALSE(in.failed());
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(r.vertex.value, "v");
    EXPECT_EQ(r.vertexcount.value, 5);  // left as it was
    ScnFile::formatVersion = 2000;
    ScnShader r2;
    ScnInStream in2(old);
    r2.read(in2);
    EXPECT_TRUE(in2.failed());  // a current file must have them

    ScnDeferredSpotLight spot;
    ScnOutStream so;
    spot.write(so);
    ScnFile::formatVersion = 1015;
    ScnDeferredSpotLight spotBack;
    ScnInStream sin(so.bytes());
    spotBack.read(sin);
    EXPECT_EQ(spotBack.direct.node.sourceName(), "deferred\\lighting\\spotDirect");
    ScnFile::formatVersion = 2000;

    ScnFramebuffer fb;
    EXPECT_EQ(fb.flags.value.w[0], 1u);
    ScnOutStream fo;
    fb.write(fo);
    ScnFramebuffer fbBack;
    ScnInStream fin(fo.bytes());
    fbBack.read(fin);
    EXPECT_EQ(fbBack.flags.value.w[0], 2u);
}

// A rich application whose world's first child ("ScnGroup") is renamed to a
// class nobody knows, of the same length.
std::vector<uint8_t> bytesWithAnUnknownClass()
{
    std::vector<uint8_t> bytes = richApplication()->toBytes();
    const char* needle = "ScnGroup";
    auto it = std::search(bytes.begin() + 256, bytes.end(), needle, needle + 8);
    if (it != bytes.end()) std::memcpy(&*it, "ZzzGroup", 8);
    return bytes;
}

TEST(ApplicationFile, AnUnknownClassReadsAsAGroupAndIsWrittenBackAsItWasOrTheSaveSaysWhatIsLost)
{
    std::vector<uint8_t> bytes = bytesWithAnUnknownClass();
    ASSERT_NE(std::search(bytes.begin(), bytes.end(), "ZzzGroup", "ZzzGroup" + 8), bytes.end());
    std::string error;
    std::unique_ptr<RtnApplication> back(RtnApplication::readBytes(bytes, "u.3Dm", error));
    ASSERT_TRUE(back) << error;
    auto* stand = static_cast<ScnGroup*>(back->openGL.node.getChild(0));
    EXPECT_EQ(stand->getType(), &ScnGroup::s_type);
    EXPECT_EQ(stand->getName(), "group");
    EXPECT_EQ(stand->childCount(), 0);
    EXPECT_EQ(back->openGL.node.getChild(1)->getType(), &ScnShader::s_type);
    EXPECT_EQ(back->luaglobal.value, "n = 4\nprint('global')");
    EXPECT_EQ(back->scripts.node.childCount(), 2);
    // Nothing touched it: the save gives the very bytes that were read.
    Channels::clearAll();
    EXPECT_EQ(back->toBytes(), bytes);
    EXPECT_TRUE(Channels::drainMerged().empty());

    // Changed, it cannot be kept as it was, and the save says so.
    stand->append(new ScnGroup());
    std::vector<uint8_t> changed = back->toBytes();
    std::vector<LogRecord> said = Channels::drainMerged();
    ASSERT_EQ(said.size(), 1u);
    EXPECT_NE(std::string(said[0].text).find("class ZzzGroup is not known here"), std::string::npos) << said[0].text;
    std::unique_ptr<RtnApplication> again(RtnApplication::readBytes(changed, "u2.3Dm", error));
    ASSERT_TRUE(again) << error;
    EXPECT_EQ(again->openGL.node.getChild(0)->getType(), &ScnGroup::s_type);
    EXPECT_EQ(again->openGL.node.getChild(0)->childCount(), 1);
}

TEST(DamagedFiles, EveryCutOfAValidFileIsRefusedWithTheByteOffset)
{
    auto app = richApplication();
    std::vector<uint8_t> bytes = app->toBytes();
    uint8_t header[256];
    std::memcpy(header, RtnApplication::s_header, 256);
    for (size_t cut = 0; cut < bytes.size(); ++cut) {
        std::vector<uint8_t> part(bytes.begin(), bytes.begin() + cut);
        std::string error;
        RtnApplication* back = RtnApplication::readBytes(part, "cut.3Dm", error);
        EXPECT_EQ(back, nullptr) << "cut at " << cut;
        delete back;
        EXPECT_NE(error.find("cut.3Dm: file is truncated or damaged at byte"), std::string::npos) << error;
    }
    // A refused file leaves the header block of the last good read alone.
    EXPECT_EQ(std::memcmp(header, RtnApplication::s_header, 256), 0);
}

TEST(DamagedFiles, CorruptCountsAndLengthsAreCaughtNotTrusted)
{
    auto app = richApplication();
    const std::vector<uint8_t> good = app->toBytes();
    int refused = 0, read = 0;
    // Overwrite each aligned word in turn with huge values: nothing may crash,
    // hang or allocate beyond the file, and most must be refused.
    for (size_t at = 256; at + 4 <= good.size(); at += 4) {
        for (uint32_t v : {0xFFFFFFFFu, 0x7FFFFFF0u, 0x10000u}) {
            std::vector<uint8_t> bad = good;
            putU32(bad, at, v);
            std::string error;
            RtnApplication* back = RtnApplication::readBytes(bad, "bad.3Dm", error);
            (back ? read : refused)++;
            if (!back) {
                EXPECT_FALSE(error.empty());
            }
            delete back;
        }
    }
    EXPECT_GT(refused, 0);
}

TEST(DamagedFiles, DeepNestingIsRefused)
{
    // Groups nested far deeper than any real tree: the reader must stop, not
    // exhaust the stack.
    ScnOutStream out;
    const int depth = 100000;
    for (int i = 0; i < depth; ++i) {
        out.writeU32(0);  // empty name
        out.writeU32(1);  // one child
        out.writeU32(8);
        out.write("ScnGroup", 8);
        out.writeU32(0);  // payload size (not trusted for known classes)
    }
    std::vector<uint8_t> body = out.bytes();
    ScnOutStream head;
    head.writeU32(8);
    head.write("ScnGroup", 8);
    std::vector<uint8_t> object = head.bytes();
    object.insert(object.end(), body.begin(), body.end());
    std::string error;
    ScnNode* node = scnReadObject(object, "deep.3Do", error);
    EXPECT_EQ(node, nullptr);
    EXPECT_NE(error.find("deep.3Do"), std::string::npos);
}

TEST(ObjectFile, GroupHoldsItsWholeSubtreeAndCutsAreRefused)
{
    ScnGroup g;
    g.name = "parts";
    auto* m = new ScnMatrix();
    m->name = "m";
    m->append(ScnShader::factory());
    g.append(m);
    ScnOutStream out;
    scnWriteObject(out, g);
    std::string error;
    std::unique_ptr<ScnNode> back(scnReadObject(out.bytes(), "parts.3Do", error));
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(back->getName(), "parts");
    ASSERT_EQ(back->childCount(), 1);
    EXPECT_EQ(back->getChild(0)->getChild(0)->getType(), &ScnShader::s_type);
    ScnOutStream again;
    scnWriteObject(again, *back);
    EXPECT_EQ(again.bytes(), out.bytes());

    for (size_t cut = 0; cut < out.bytes().size(); ++cut) {
        std::vector<uint8_t> part(out.bytes().begin(), out.bytes().begin() + cut);
        ScnNode* n = scnReadObject(part, "parts.3Do", error);
        EXPECT_EQ(n, nullptr) << "cut at " << cut;
        delete n;
    }
}

namespace {

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::ofstream f(path, std::ios::binary);
    f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

// Files are read through a window: values that straddle its edges, and blocks
// larger than it, must come out as they went in.
TEST(FileReading, FilesReadExactlyAsTheSameBytesInMemory)
{
    TempDir dir;
    auto app = richApplication();
    std::string script(200000, 'x');
    for (size_t i = 0; i < script.size(); i += 97) script[i] = static_cast<char>('a' + i % 26);
    app->luaglobal = script;
    for (int i = 0; i < 5000; ++i) {
        auto* g = new ScnGroup();
        g->name = "g" + std::to_string(i);
        app->openGL.node.append(g);
    }
    const std::vector<uint8_t> bytes = app->toBytes();
    ASSERT_GT(bytes.size(), 3u * 64 * 1024);
    writeBytes(dir / "a.3Dm", bytes);
    std::string error;
    std::unique_ptr<RtnApplication> back(RtnApplication::readFile(dir / "a.3Dm", error));
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(back->luaglobal.value, script);
    EXPECT_EQ(back->openGL.node.childCount(), 5002);
    EXPECT_EQ(back->toBytes(), bytes);

    ScnOutStream object;
    scnWriteObject(object, back->openGL.node);
    writeBytes(dir / "a.3Do", object.bytes());
    std::unique_ptr<ScnNode> node(scnReadObject(dir / "a.3Do", error));
    ASSERT_TRUE(node) << error;
    ScnOutStream again;
    scnWriteObject(again, *node);
    EXPECT_EQ(again.bytes(), object.bytes());
}

TEST(FileReading, HugeFilesAreJudgedByTheirContentNotLoadedWhole)
{
    TempDir dir;
    // 100 GB of holes: nothing this size may be allocated up front.
    for (const char* name : {"huge.3Dm", "huge.3Do"}) {
        std::string path = dir / name;
        int fd = ::open(path.c_str(), O_CREAT | O_WRONLY, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, off_t(100) << 30), 0);
        ::close(fd);
    }
    std::string error;
    RtnApplication* app = RtnApplication::readFile(dir / "huge.3Dm", error);
    EXPECT_EQ(app, nullptr);
    delete app;
    EXPECT_NE(error.find("huge.3Dm: file is truncated or damaged at byte"), std::string::npos) << error;
    error.clear();
    ScnNode* node = scnReadObject(dir / "huge.3Do", error);
    EXPECT_EQ(node, nullptr);
    delete node;
    EXPECT_NE(error.find("huge.3Do: file is truncated or damaged at byte 12 (unexpected data after the object)"),
              std::string::npos)
        << error;

    // A valid document with a huge tail is refused where the tail starts.
    std::vector<uint8_t> bytes = richApplication()->toBytes();
    writeBytes(dir / "tail.3Dm", bytes);
    ASSERT_EQ(::truncate((dir / "tail.3Dm").c_str(), off_t(100) << 30), 0);
    app = RtnApplication::readFile(dir / "tail.3Dm", error);
    EXPECT_EQ(app, nullptr);
    delete app;
    EXPECT_NE(error.find("at byte " + std::to_string(bytes.size()) + " (unexpected data after the document)"),
              std::string::npos)
        << error;
}

TEST(FileReading, FifosAndFoldersAreRefusedWithoutWaiting)
{
    TempDir dir;
    std::string fifo = dir / "pipe.3Dm";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0644), 0);
    auto readBoth = [&] {
        std::string e1, e2;
        RtnApplication* app = RtnApplication::readFile(fifo, e1);
        ScnNode* node = scnReadObject(fifo, e2);
        bool none = !app && !node;
        delete app;
        delete node;
        return std::make_tuple(none, e1, e2);
    };
    auto pending = std::async(std::launch::async, readBoth);
    if (pending.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        ADD_FAILURE() << "reading a FIFO waits for a writer";
        // Let the blocked reader go: a writer that closes at once.
        for (int i = 0; i < 2; ++i) {
            int fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
            if (fd >= 0) ::close(fd);
            pending.wait_for(std::chrono::seconds(1));
        }
    }
    auto [none, e1, e2] = pending.get();
    EXPECT_TRUE(none);
    EXPECT_EQ(e1, "Unable to read file " + fifo + ": not a regular file");
    EXPECT_EQ(e2, "Unable to read file " + fifo + ": not a regular file");

    std::string error;
    EXPECT_EQ(RtnApplication::readFile(dir.path(), error), nullptr);
    EXPECT_EQ(error, "Unable to read file " + dir.path() + ": not a regular file");
    EXPECT_EQ(RtnApplication::readFile(dir / "absent.3Dm", error), nullptr);
    EXPECT_NE(error.find("absent.3Dm"), std::string::npos);
}

TEST(FileReading, AFileThatShrinksWhileReadFailsSoftly)
{
    TempDir dir;
    std::vector<uint8_t> bytes(300000);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7);
    writeBytes(dir / "f", bytes);
    ScnInStream in;
    std::string error;
    ASSERT_TRUE(in.openFile(dir / "f", error)) << error;
    EXPECT_EQ(in.size(), bytes.size());
    uint32_t v = 0;
    ASSERT_TRUE(in.skip(65534));
    ASSERT_TRUE(in.readU32(v));  // across the window's edge
    uint32_t want;
    std::memcpy(&want, bytes.data() + 65534, 4);
    EXPECT_EQ(v, want);
    ASSERT_EQ(::truncate((dir / "f").c_str(), 100000), 0);
    std::vector<uint8_t> block(150000);
    EXPECT_FALSE(in.read(block.data(), block.size()));
    EXPECT_TRUE(in.failed());
    EXPECT_EQ(in.failPos(), 65538u);
    EXPECT_EQ(in.error(), "the file ended before its size said");
    EXPECT_FALSE(in.readU32(v));
}
