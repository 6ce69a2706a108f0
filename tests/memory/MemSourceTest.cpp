// File sources filling memory objects of an open document through the four
// plug-ins: pictures, a video followed by the clock, raw volumes, and the
// messages of missing and damaged files. Every picture is written here, and
// what is read back is compared with what was written.
#include <gtest/gtest.h>

#include <lua.hpp>

#include <stb/stb_image.h>
#include <stb/stb_image_write.h>

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "compute/OclGlobal.h"
#include "compute/OclNodes.h"
#include "memory/MemGlobal.h"
#include "memory/MemNodes.h"
#include "memory/MemSource.h"
#include "platform/GlContext.h"
#include "runtime/Clock.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "support/DocumentFixture.h"
#include "memory/SourceFiles.h"

namespace {

class Sources : public DocumentFixture {
protected:
    void SetUp() override
    {
        DocumentFixture::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_NE(OclGlobal::currentContext(), nullptr) << "no OpenCL platform on this machine";
        sources::loadPlugins();
        std::filesystem::create_directories(m_ws / "data");
        // The application clock and the tick clock start together.
        Engine::lastTickTime = 0;
        Channels::clearAll();
    }

    void open(std::initializer_list<ScnNode*> nodes)
    {
        auto app = std::make_unique<RtnApplication>();
        auto* platform = new OclPlatform;
        for (ScnNode* n : nodes) platform->append(n);
        app->openCL.node.append(platform);
        std::string error;
        ASSERT_TRUE(app->writeFile(m_ws / "sources.3Dm", error)) << error;
        ASSERT_TRUE(m_doc.open("sources.3Dm", error)) << error;
    }

    template <class T>
    T* live(const char* nodeName)
    {
        auto* platform = static_cast<ScnGroup*>(m_doc.application()->openCL.node.getChild(0));
        for (int i = 0; ScnNode* n = platform->getChild(i); ++i)
            if (n->getName() == nodeName) return dynamic_cast<T*>(n->twin());
        return nullptr;
    }

    std::string run(const std::string& code)
    {
        lua_State* L = AppGlobal::luaState();
        if (luaL_dostring(L, code.c_str()) == 0) return "";
        std::string e = lua_tostring(L, -1);
        lua_pop(L, 1);
        return e;
    }

    double number(const char* global)
    {
        lua_State* L = AppGlobal::luaState();
        lua_getglobal(L, global);
        const double v = lua_tonumber(L, -1);
        lua_pop(L, 1);
        return v;
    }

    // The bytes of a memory object, read through a map.
    static std::vector<uint8_t> bytesOf(oclMem* m)
    {
        std::vector<uint8_t> out;
        if (!m || !m->map(CL_MAP_READ, 0)) return out;
        const size_t n = m->proxy->byteSize();
        out.assign(static_cast<const uint8_t*>(m->data), static_cast<const uint8_t*>(m->data) + n);
        m->unmap(0);
        return out;
    }

    static OclImage2D* image2D(const char* name, const char* file, char source, uint32_t order, uint32_t type,
                               const char* w, const char* h)
    {
        auto* n = new OclImage2D;
        n->setName(name);
        n->file = file;
        n->source = source;
        n->format = ScnImageFormat{order, type};
        n->dim0 = w;
        n->dim1 = h;
        return n;
    }
};

// A 5 by 3 RGBA picture in which every byte differs.
std::vector<uint8_t> testPicture()
{
    std::vector<uint8_t> px(5 * 3 * 4);
    for (size_t i = 0; i < px.size(); ++i) px[i] = static_cast<uint8_t>(7 + i * 4);
    return px;
}

// The picture as a 2D object holds it: bottom row first, so that it stands
// upright in a texture (t = 1 at the top).
std::vector<uint8_t> bottomUp(const std::vector<uint8_t>& px, size_t rowBytes)
{
    std::vector<uint8_t> out;
    for (size_t row = px.size() / rowBytes; row-- > 0;)
        out.insert(out.end(), px.begin() + static_cast<long>(row * rowBytes),
                   px.begin() + static_cast<long>((row + 1) * rowBytes));
    return out;
}

sources::Rgb frameColour(int i)
{
    return {20 + 22 * i, 220 - 20 * i, (60 + 70 * i) % 256};
}

bool near(int a, int b, int tolerance = 12)
{
    return std::abs(a - b) <= tolerance;
}

// The frame whose colour the first pixel of `bytes` (RGBA8) shows, or -1.
int frameShown(const std::vector<uint8_t>& bytes, int frames)
{
    if (bytes.size() < 4) return -1;
    for (int i = 0; i < frames; ++i) {
        const sources::Rgb c = frameColour(i);
        if (near(bytes[0], c.r) && near(bytes[1], c.g) && near(bytes[2], c.b)) return i;
    }
    return -1;
}

}  // namespace

TEST_F(Sources, ExtensionsComeFromThePluginsAndAreMatchedExactlyBehindTheLastDot)
{
    EXPECT_EQ(MemSource::classify("data/clip.avi"), MemSource::Video);
    EXPECT_EQ(MemSource::classify("data/holiday.2024.png"), MemSource::Image);
    EXPECT_EQ(MemSource::classify("data/photo.jpg"), MemSource::Image);
    EXPECT_EQ(MemSource::classify("data/head.vol"), MemSource::Volume);
    EXPECT_EQ(MemSource::classify("data/png.avi.PNG"), MemSource::Unknown) << "case counts";
    EXPECT_EQ(MemSource::classify("data/noextension"), MemSource::Unknown);
    EXPECT_EQ(MemSource::classify("data/model.ply"), MemSource::Unknown);
    EXPECT_TRUE(MemSource::isPly("data/model.ply"));
    EXPECT_FALSE(MemSource::isPly("data/model.ply.png"));
    EXPECT_EQ(drain(), Lines{});

    // A module without getFileExt, and one whose getFileExt raises, are
    // reported under the plug-in's name and leave their tables empty.
    ASSERT_EQ(run("saved_ply, saved_video = ply, video\n"
                  "ply = {}\n"
                  "video = {getFileExt = function() error('no list today') end}"),
              "");
    MemSource::registerSources(AppGlobal::luaState());
    const Lines lines = drain();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].rfind("(video.so): ", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find("no list today"), std::string::npos) << lines[0];
    EXPECT_EQ(lines[1], "(ply.so): Function 'getFileExt' not found");
    EXPECT_EQ(MemSource::classify("data/clip.avi"), MemSource::Unknown);
    ASSERT_EQ(run("ply, video = saved_ply, saved_video"), "");
    MemSource::registerSources(AppGlobal::luaState());
    EXPECT_EQ(drain(), Lines{});
    EXPECT_EQ(MemSource::classify("data/clip.avi"), MemSource::Video);
}

TEST_F(Sources, TheStartUpScanOfAWorkspaceFindsTheFourPlugins)
{
    TempDir ws("velmora-file-plugins");
    std::filesystem::create_directories(ws / "bindings/plugins");
    for (const auto& [name, path] : sources::pluginFiles())
        std::filesystem::copy_file(path, ws / (std::string("bindings/plugins/") + name + ".so"));
    lua_State* L = AppGlobal::newLuaState(ws.path());
    ASSERT_NE(L, nullptr);
    EXPECT_EQ(drain(), Lines{});
    ASSERT_EQ(luaL_dostring(L, "local n = 0\n"
                               "for _, m in ipairs({image, video, volume, ply}) do\n"
                               "  n = n + #m.getFileExt()\n"
                               "end\n"
                               "assert(type(video.open) == 'function' and type(ply.read) == 'function')\n"
                               "return n, image.getFileExt()[1], ply.getFileExt()[1], volume.getFileExt()[1]"),
              0)
        << lua_tostring(L, -1);
    EXPECT_GE(lua_tonumber(L, -4), 1 + 6 + 1 + 1);
    EXPECT_STREQ(lua_tostring(L, -3), ".png");
    EXPECT_STREQ(lua_tostring(L, -2), ".ply");
    EXPECT_STREQ(lua_tostring(L, -1), ".vol");
    lua_close(L);
}

TEST_F(Sources, PicturesOfEveryFormatArriveInTheObjectsOwnFormat)
{
    const std::vector<uint8_t> px = testPicture();
    ASSERT_TRUE(stbi_write_png((m_ws / "data/pic.png").c_str(), 5, 3, 4, px.data(), 5 * 4));
    ASSERT_TRUE(stbi_write_tga((m_ws / "data/pic.tga").c_str(), 5, 3, 4, px.data()));
    // BMP keeps three channels; JPEG is lossy, so it gets flat colour.
    std::vector<uint8_t> rgb;
    for (size_t i = 0; i < px.size(); i += 4) rgb.insert(rgb.end(), {px[i], px[i + 1], px[i + 2]});
    ASSERT_TRUE(stbi_write_bmp((m_ws / "data/pic.bmp").c_str(), 5, 3, 3, rgb.data()));
    std::vector<uint8_t> flat(16 * 16 * 3);
    for (size_t i = 0; i < flat.size(); i += 3) flat[i] = 200, flat[i + 1] = 100, flat[i + 2] = 40;
    ASSERT_TRUE(stbi_write_jpg((m_ws / "data/flat.jpg").c_str(), 16, 16, 3, flat.data(), 95));
    std::vector<float> hdr(5 * 3 * 3);
    for (size_t i = 0; i < hdr.size(); ++i) hdr[i] = 0.25f * static_cast<float>(i);
    ASSERT_TRUE(stbi_write_hdr((m_ws / "data/pic.hdr").c_str(), 5, 3, 3, hdr.data()));

    open({image2D("png", "data/pic.png", 2, CL_RGBA, CL_UNSIGNED_INT8, "5", "3"),
          image2D("tga", "data/pic.tga", 2, CL_RGBA, CL_UNSIGNED_INT8, "5", "3"),
          image2D("bmp", "data/pic.bmp", 2, CL_RGBA, CL_UNSIGNED_INT8, "5", "3"),
          image2D("bgra", "data/pic.png", 2, CL_BGRA, CL_UNORM_INT8, "5", "3"),
          image2D("floats", "data/pic.png", 2, CL_RGBA, CL_FLOAT, "5", "3"),
          image2D("jpg", "data/flat.jpg", 2, CL_RGBA, CL_UNSIGNED_INT8, "16", "16"),
          image2D("hdr", "data/pic.hdr", 2, CL_RGBA, CL_FLOAT, "5", "3"),
          image2D("small", "data/pic.png", 2, CL_RGBA, CL_UNSIGNED_INT8, "2", "2")});
    EXPECT_EQ(drain(), Lines{});

    const std::vector<uint8_t> stored = bottomUp(px, 5 * 4);
    ASSERT_NE(stored, px);
    EXPECT_EQ(bytesOf(live<OclImage2D>("png")->object()), stored);
    EXPECT_EQ(bytesOf(live<OclImage2D>("tga")->object()), stored);
    std::vector<uint8_t> opaque = stored;
    for (size_t i = 3; i < opaque.size(); i += 4) opaque[i] = 255;
    EXPECT_EQ(bytesOf(live<OclImage2D>("bmp")->object()), opaque);

    std::vector<uint8_t> swapped = stored;
    for (size_t i = 0; i < swapped.size(); i += 4) std::swap(swapped[i], swapped[i + 2]);
    EXPECT_EQ(bytesOf(live<OclImage2D>("bgra")->object()), swapped);

    const std::vector<uint8_t> fb = bytesOf(live<OclImage2D>("floats")->object());
    ASSERT_EQ(fb.size(), px.size() * 4);
    for (size_t i = 0; i < px.size(); ++i) {
        float f;
        std::memcpy(&f, &fb[i * 4], 4);
        EXPECT_FLOAT_EQ(f, stored[i] / 255.0f) << i;
    }

    const std::vector<uint8_t> jb = bytesOf(live<OclImage2D>("jpg")->object());
    ASSERT_EQ(jb.size(), 16u * 16 * 4);
    for (size_t i = 0; i < jb.size(); i += 4)
        ASSERT_TRUE(near(jb[i], 200, 4) && near(jb[i + 1], 100, 4) && near(jb[i + 2], 40, 4) && jb[i + 3] == 255) << i;

    const std::vector<uint8_t> hb = bytesOf(live<OclImage2D>("hdr")->object());
    ASSERT_EQ(hb.size(), 5u * 3 * 16);
    for (size_t p = 0; p < 15; ++p)
        for (int c = 0; c < 3; ++c) {
            float f;
            std::memcpy(&f, &hb[p * 16 + c * 4], 4);
            // Object pixel p shows the picture's row 2 - p / 5.
            const size_t q = (2 - p / 5) * 5 + p % 5;
            // RGBE keeps 8 bits of mantissa against the largest channel.
            EXPECT_NEAR(f, hdr[q * 3 + c], hdr[q * 3 + 2] / 64 + 1e-6) << p << "," << c;
        }

    // A smaller object takes the top left corner of the picture: its top
    // row (the object's last) is the picture's first.
    const std::vector<uint8_t> sb = bytesOf(live<OclImage2D>("small")->object());
    ASSERT_EQ(sb.size(), 16u);
    EXPECT_EQ(std::vector<uint8_t>(sb.begin() + 8, sb.end()), std::vector<uint8_t>(px.begin(), px.begin() + 8));
    EXPECT_EQ(std::vector<uint8_t>(sb.begin(), sb.begin() + 8), std::vector<uint8_t>(px.begin() + 20, px.begin() + 28));

    // A grey picture arrives as grey in every colour channel.
    const uint8_t grey[4] = {0, 85, 170, 255};
    ASSERT_TRUE(stbi_write_png((m_ws / "data/grey.png").c_str(), 2, 2, 1, grey, 2));
    ASSERT_EQ(run("local i = OpenCL.clPlatform.small\n"
                  "i:setSource('data/grey.png')\n"
                  "local b = i:getBuffer()\n"
                  "mem.map(b, mem.READ)\n"
                  "local r, g, bl, a = mem.get(b, 1, 1)\n"
                  "mem.unmap(b)\n"
                  "assert(r == 85 and g == 85 and bl == 85 and a == 255, table.concat({r, g, bl, a}, ' '))\n"
                  "mem.map(b, mem.READ)\n"
                  "r, g, bl, a = mem.get(b, 1, 0)\n"
                  "mem.unmap(b)\n"
                  "assert(r == 255 and g == 255 and bl == 255 and a == 255, table.concat({r, g, bl, a}, ' '))"),
              "");
}

TEST_F(Sources, SetSourceResizesToThePictureAndRefusesWhatItCannotRead)
{
    const std::vector<uint8_t> px = testPicture();
    ASSERT_TRUE(stbi_write_png((m_ws / "data/pic.png").c_str(), 5, 3, 4, px.data(), 5 * 4));
    // A damaged picture: the PNG cut in the middle of its data.
    const std::string whole = sources::readBytes(m_ws / "data/pic.png");
    sources::writeBytes(m_ws / "data/cut.png", whole.substr(0, whole.size() / 2));
    sources::writeBytes(m_ws / "data/head.vol", "size 2 2 2\n");

    open({image2D("plain", "", 0, CL_RGBA, CL_UNSIGNED_INT8, "8", "8"),
          image2D("damaged", "data/cut.png", 2, CL_RGBA, CL_UNSIGNED_INT8, "4", "4")});
    // The damaged file is reported on Create under the plug-in's name; the
    // node keeps its object.
    const Lines created = drain();
    ASSERT_EQ(created.size(), 1u);
    EXPECT_EQ(created[0].rfind("(image.so): unable to read image ", 0), 0u) << created[0];
    EXPECT_NE(created[0].find("cut.png"), std::string::npos);
    ASSERT_NE(live<OclImage2D>("damaged")->object(), nullptr);

    ASSERT_EQ(run("local i = OpenCL.clPlatform.plain\n"
                  "frames = i:getFrameCount()\n"
                  "assert(i:getFrame() == nil and i:isPlaying() == nil)\n"
                  "i:setSource('data/pic.png')\n"
                  "framesAfter = i:getFrameCount()\n"
                  "local b = i:getBuffer()\n"
                  "w, h = mem.dim(b, 0), mem.dim(b, 1)\n"
                  "mem.map(b, mem.READ)\n"
                  "r, g, bl, a = mem.get(b, 4, 2)\n"
                  "mem.unmap(b)\n"
                  "i:setFrame(3) i:play() i:stop()\n"
                  "local function fails(name)\n"
                  "  local ok, e = pcall(i.setSource, i, name)\n"
                  "  assert(not ok)\n"
                  "  return e\n"
                  "end\n"
                  "e1 = fails('data/missing.png')\n"
                  "e2 = fails('data/pic.xyz')\n"
                  "e3 = fails('data/head.vol')\n"
                  "e4 = fails(3)\n"
                  "local ok, e = pcall(i.setFrame, i, 'x')\n"
                  "e6 = e\n"
                  "w2 = mem.dim(i:getBuffer(), 0)"),
              "");
    EXPECT_EQ(number("frames"), 0);
    EXPECT_EQ(number("framesAfter"), 1);
    EXPECT_EQ(number("w"), 5);
    EXPECT_EQ(number("h"), 3);
    // The object's top row is the picture's first: (4, 2) is its fifth pixel.
    EXPECT_EQ(number("r"), px[16]);
    EXPECT_EQ(number("g"), px[17]);
    EXPECT_EQ(number("bl"), px[18]);
    EXPECT_EQ(number("a"), px[19]);
    auto text = [this](const char* g) {
        lua_State* L = AppGlobal::luaState();
        lua_getglobal(L, g);
        std::string s = lua_isstring(L, -1) ? lua_tostring(L, -1) : "";
        lua_pop(L, 1);
        return s;
    };
    EXPECT_NE(text("e1").find("unable to read file data: data/missing.png"), std::string::npos) << text("e1");
    EXPECT_NE(text("e2").find("unsupported file format: data/pic.xyz"), std::string::npos) << text("e2");
    EXPECT_NE(text("e3").find("unable to read file data: data/head.vol"), std::string::npos) << text("e3");
    EXPECT_NE(text("e4").find("file expected"), std::string::npos) << text("e4");
    EXPECT_NE(text("e6").find("positive number expected"), std::string::npos) << text("e6");
    EXPECT_EQ(number("w2"), 5) << "a refused file leaves the object as it was";
    // The image source stays: still one frame.
    ASSERT_EQ(run("n = OpenCL.clPlatform.plain:getFrameCount()"), "");
    EXPECT_EQ(number("n"), 1);
    EXPECT_EQ(drain(), Lines{});

    // A picture whose header reads but whose data is cut: the object takes
    // its size, and the plug-in's failure to read is a line on the channel.
    ASSERT_EQ(run("OpenCL.clPlatform.plain:setSize(1, 1)\n"
                  "OpenCL.clPlatform.plain:setSource('data/cut.png')\n"
                  "w3 = mem.dim(OpenCL.clPlatform.plain:getBuffer(), 0)"),
              "");
    EXPECT_EQ(number("w3"), 5);
    const Lines cut = drain();
    ASSERT_EQ(cut.size(), 1u);
    EXPECT_EQ(cut[0].rfind("(image.so): unable to read image ", 0), 0u) << cut[0];
}

TEST_F(Sources, AnEditedFileIsReadAgainIntoTheRebuiltObjectAndAMappingIsKept)
{
    const std::vector<uint8_t> px = testPicture();
    std::vector<uint8_t> other(px.rbegin(), px.rend());
    ASSERT_TRUE(stbi_write_png((m_ws / "data/pic.png").c_str(), 5, 3, 4, px.data(), 5 * 4));
    ASSERT_TRUE(stbi_write_png((m_ws / "data/other.png").c_str(), 5, 3, 4, other.data(), 5 * 4));
    open({image2D("pic", "data/pic.png", 2, CL_RGBA, CL_UNSIGNED_INT8, "5", "3")});
    OclImage2D* twin = live<OclImage2D>("pic");
    EXPECT_EQ(bytesOf(twin->object()), bottomUp(px, 5 * 4));

    // A name edit is no reason to read the file again.
    MemSource* first = twin->memSource();
    m_doc.runtime()->update(twin, &twin->name);
    EXPECT_EQ(twin->memSource(), first);

    ASSERT_TRUE(twin->object()->map(CL_MAP_READ, 0));
    twin->file = "data/other.png";
    m_doc.runtime()->update(twin, &twin->file);
    oclMem* m = twin->object();
    ASSERT_EQ(m->mapFlags, static_cast<cl_map_flags>(CL_MAP_READ)) << "mapped again after the rebuild";
    EXPECT_EQ(std::vector<uint8_t>(static_cast<uint8_t*>(m->data), static_cast<uint8_t*>(m->data) + 60), bottomUp(other, 5 * 4));
    m->unmap(0);
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(Sources, AFileThatIsNoRegularFileIsRefusedWithoutWaitingOnIt)
{
    // Opening a FIFO for reading would block until a writer comes.
    ASSERT_EQ(mkfifo((m_ws / "data/pipe.png").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((m_ws / "data/pipe.vol").c_str(), 0600), 0);
    auto* volume = new OclImage3D;
    volume->file = "data/pipe.vol";
    volume->source = 3;
    volume->cl_mem_flags = 17;
    open({image2D("pipe", "data/pipe.png", 2, CL_RGBA, CL_UNSIGNED_INT8, "4", "4"), volume});
    const Lines lines = drain();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "(image.so): unable to open image " + (m_ws / "data/pipe.png") + ": not a regular file");
    EXPECT_EQ(lines[1], "(volume.so): unable to open volume " + (m_ws / "data/pipe.vol") + ": not a regular file");
    ASSERT_EQ(run("local ok, e = pcall(OpenCL.clPlatform.pipe.setSource, OpenCL.clPlatform.pipe, 'data/pipe.png')\n"
                  "assert(not ok and e:find('unable to read file data: data/pipe.png'), e)"),
              "");
}

TEST_F(Sources, AMemoryObjectWrittenAsPngReadsBackAsTheSamePixels)
{
    const std::vector<uint8_t> px = testPicture();
    ASSERT_TRUE(stbi_write_png((m_ws / "data/pic.png").c_str(), 5, 3, 4, px.data(), 5 * 4));
    open({image2D("bgra", "data/pic.png", 2, CL_BGRA, CL_UNORM_INT8, "5", "3")});
    ASSERT_EQ(run("image.write(OpenCL.clPlatform.bgra:getBuffer(), '" + (m_ws / "data/out.png") + "')"), "");
    int w = 0, h = 0, n = 0;
    stbi_uc* back = stbi_load((m_ws / "data/out.png").c_str(), &w, &h, &n, 4);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(w, 5);
    EXPECT_EQ(h, 3);
    EXPECT_EQ(std::vector<uint8_t>(back, back + 60), px);
    stbi_image_free(back);
    EXPECT_NE(run("image.write({}, 'x.png')").find("memory object expected"), std::string::npos);
}

TEST_F(Sources, AVideoGivesItsFramesByNumberAndFollowsTheClockWhilePlaying)
{
    std::string error;
    ASSERT_TRUE(sources::encodeVideo(m_ws / "data/clip.avi", 32, 24, 10, 25, frameColour, error)) << error;
    open({image2D("clip", "data/clip.avi", 1, CL_RGBA, CL_UNSIGNED_INT8, "32", "24")});
    EXPECT_EQ(drain(), Lines{});
    OclImage2D* node = live<OclImage2D>("clip");
    ASSERT_NE(node, nullptr);
    auto* video = dynamic_cast<MemSourceVideo*>(node->memSource());
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->info.frame_count, 10);
    EXPECT_EQ(video->info.frame_rate, 40) << "milliseconds per frame at 25 frames a second";
    EXPECT_EQ(video->info.image_width, 32);
    EXPECT_EQ(video->info.image_height, 24);
    EXPECT_EQ(frameShown(bytesOf(node->object()), 10), 0);

    // Every pixel of a frame, not just the first.
    const std::vector<uint8_t> first = bytesOf(node->object());
    for (size_t i = 0; i < first.size(); i += 4)
        ASSERT_TRUE(near(first[i], 20) && near(first[i + 1], 220) && near(first[i + 2], 60) && first[i + 3] == 255)
            << i;

    // Out of order, backwards across key frames, and the last one.
    ASSERT_EQ(run("v = OpenCL.clPlatform.clip\n"
                  "count = v:getFrameCount()\n"
                  "v:stop()\n"
                  "v:setFrame(7)"),
              "");
    EXPECT_EQ(number("count"), 10);
    EXPECT_EQ(frameShown(bytesOf(node->object()), 10), 7);
    for (int f : {2, 9, 5, 6, 0}) {
        ASSERT_EQ(run("v:setFrame(" + std::to_string(f) + ") f = v:getFrame()"), "");
        EXPECT_EQ(number("f"), f);
        EXPECT_EQ(frameShown(bytesOf(node->object()), 10), f) << "frame " << f;
    }
    EXPECT_EQ(drain(), Lines{});

    // Playing: each tick's event sweep reads the frame the clock has reached.
    m_clock.now = 1000;
    Engine::lastTickTime = 1000;
    ASSERT_EQ(run("v:setFrame(8) v:play() playing = v:isPlaying()"), "");
    lua_State* L = AppGlobal::luaState();
    lua_getglobal(L, "playing");
    EXPECT_TRUE(lua_isboolean(L, -1) && lua_toboolean(L, -1));
    lua_pop(L, 1);
    // 100 ms at 40 a frame: two frames on, 20 ms kept for the next step.
    m_clock.advance(100);
    m_doc.tick();
    EXPECT_EQ(video->frame, 0) << "8 + 2 wraps to 0";
    EXPECT_EQ(video->lastTime, 1080u);
    EXPECT_EQ(frameShown(bytesOf(node->object()), 10), 8) << "the sweep read the frame it stood on";
    m_clock.advance(20);
    m_doc.tick();
    EXPECT_EQ(video->frame, 1) << "the kept 20 ms and 20 more make one frame";
    EXPECT_EQ(frameShown(bytesOf(node->object()), 10), 0);
    m_clock.advance(39);
    m_doc.tick();
    EXPECT_EQ(video->frame, 1);
    EXPECT_EQ(frameShown(bytesOf(node->object()), 10), 1);

    // Stopped, the clock moves on and the picture stays.
    ASSERT_EQ(run("v:stop() playing = v:isPlaying()"), "");
    lua_getglobal(L, "playing");
    EXPECT_TRUE(lua_isboolean(L, -1) && !lua_toboolean(L, -1));
    lua_pop(L, 1);
    m_clock.advance(400);
    m_doc.tick();
    EXPECT_EQ(video->frame, 1);
    EXPECT_EQ(frameShown(bytesOf(node->object()), 10), 1);
    // play() restarts the count from now: the stopped time does not count.
    ASSERT_EQ(run("v:play()"), "");
    m_clock.advance(40);
    m_doc.tick();
    EXPECT_EQ(video->frame, 2);
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(Sources, VideoStepsFollowTheFrameRateAndKeepTheRestOfTheTime)
{
    // The arithmetic alone, on a source whose plug-in calls find no video:
    // each read reports the bad handle and still steps.
    MemSourceVideo v(nullptr);
    v.info.frame_count = 10;
    v.info.frame_rate = 40;
    Engine::lastTickTime = 500;
    v.play();
    Engine::lastTickTime = 600;
    v.read();
    EXPECT_EQ(v.frame, 2);
    EXPECT_EQ(v.lastTime, 580u);
    v.setFrame(9);
    Engine::lastTickTime = 620;
    v.read();
    EXPECT_EQ(v.frame, 0) << "wraps from the last frame to the first";
    v.info.frame_rate = 0;
    Engine::lastTickTime = 5000;
    v.read();
    EXPECT_EQ(v.frame, 0) << "no step without a frame rate";
    const Lines lines = drain();
    ASSERT_EQ(lines.size(), 3u);
    for (const std::string& l : lines) EXPECT_EQ(l.rfind("(video.so): invalid video handle -1", 0), 0u) << l;
    v.handle = -1;
}

TEST_F(Sources, AMissingVideoIsReportedAndTheNodeStaysUsable)
{
    open({image2D("clip", "data/none.avi", 1, CL_RGBA, CL_UNSIGNED_INT8, "4", "4")});
    const Lines lines = drain();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0].rfind("(video.so): unable to open video ", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1], "(video.so): invalid video handle -1");
    ASSERT_EQ(run("local v = OpenCL.clPlatform.clip\n"
                  "n = v:getFrameCount()\n"
                  "v:setSize(6, 2)\n"
                  "s = mem.size(v:getBuffer())"),
              "");
    EXPECT_EQ(number("n"), 0);
    EXPECT_EQ(number("s"), 6 * 2 * 4);
}

TEST_F(Sources, VolumesFillThreeDimensionalImagesFromTheirRawSamples)
{
    // 4 x 3 x 2 luminance samples, each different.
    std::string raw;
    for (int i = 0; i < 24; ++i) raw.push_back(static_cast<char>(10 + i * 9));
    sources::writeBytes(m_ws / "data/my.head.vol", "# a test volume\nsize 4 3 2\nchannels 1\ntype uint8\n");
    sources::writeBytes(m_ws / "data/my.head.raw", raw);
    // Two float channels (luminance, alpha) into a float image.
    std::string floats;
    for (int i = 0; i < 2 * 2 * 2 * 2; ++i) {
        const float f = 0.5f * static_cast<float>(i) - 1.0f;
        floats.append(reinterpret_cast<const char*>(&f), 4);
    }
    sources::writeBytes(m_ws / "data/fog.vol", "size 2 2 2\nchannels 2\ntype float\n");
    sources::writeBytes(m_ws / "data/fog.raw", floats);
    // A data file one byte short.
    sources::writeBytes(m_ws / "data/short.vol", "size 2 2 2\n");
    sources::writeBytes(m_ws / "data/short.raw", std::string(7, 'x'));

    auto volume = [](const char* name, const char* file, uint32_t type) {
        auto* n = new OclImage3D;
        n->setName(name);
        n->file = file;
        n->source = 3;
        n->cl_mem_flags = 17;
        n->format = ScnImageFormat{CL_RGBA, type};
        n->dim0 = "4";
        n->dim1 = "3";
        n->dim2 = "2";
        return n;
    };
    open({volume("head", "data/my.head.vol", CL_UNORM_INT8), volume("fog", "data/fog.vol", CL_FLOAT),
          volume("short", "data/short.vol", CL_UNORM_INT8)});
    const Lines lines = drain();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("(volume.so): volume data ", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find("short.raw has 7 bytes"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find("says 8"), std::string::npos) << lines[0];

    // The plug-in got the path without its extension.
    auto* head = live<OclImage3D>("head");
    ASSERT_NE(head->memSource(), nullptr);
    EXPECT_EQ(std::string(head->memSource()->file), m_ws / "data/my.head");

    const std::vector<uint8_t> hb = bytesOf(head->object());
    ASSERT_EQ(hb.size(), 24u * 4);
    for (int i = 0; i < 24; ++i) {
        const uint8_t v = static_cast<uint8_t>(10 + i * 9);
        EXPECT_EQ(hb[i * 4], v);
        EXPECT_EQ(hb[i * 4 + 1], v);
        EXPECT_EQ(hb[i * 4 + 2], v);
        EXPECT_EQ(hb[i * 4 + 3], 255);
    }
    // The fog volume is 2 x 2 x 2 inside a 4 x 3 x 2 object: voxel (x, y, z)
    // of the file lands at the same coordinates.
    const std::vector<uint8_t> fb = bytesOf(live<OclImage3D>("fog")->object());
    ASSERT_EQ(fb.size(), 24u * 16);
    for (int z = 0; z < 2; ++z)
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 2; ++x) {
                const int src = (z * 2 + y) * 2 + x;
                const int dst = (z * 3 + y) * 4 + x;
                float px[4];
                std::memcpy(px, &fb[static_cast<size_t>(dst) * 16], 16);
                const float l = 0.5f * static_cast<float>(src * 2) - 1.0f, a = l + 0.5f;
                EXPECT_FLOAT_EQ(px[0], l);
                EXPECT_FLOAT_EQ(px[2], l);
                EXPECT_FLOAT_EQ(px[3], a);
            }
    MemSourceVolume probe(nullptr);
    ASSERT_TRUE(probe.getFileInfo((m_ws / "data/fog.vol").c_str()));
    EXPECT_EQ(probe.info.image_width, 2);
    EXPECT_EQ(probe.info.image_depth, 2);
    EXPECT_EQ(probe.info.image_channel_order, CL_RA);
    EXPECT_EQ(probe.info.image_channel_data_type, CL_FLOAT);
    EXPECT_FALSE(probe.getFileInfo((m_ws / "data/absent.vol").c_str())) << "no table: false, no message";
    EXPECT_EQ(probe.info.image_width, 2);
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(Sources, APluginWithoutReadIsReportedAtEveryRead)
{
    const std::vector<uint8_t> px = testPicture();
    ASSERT_TRUE(stbi_write_png((m_ws / "data/pic.png").c_str(), 5, 3, 4, px.data(), 5 * 4));
    open({image2D("pic", "", 0, CL_RGBA, CL_UNSIGNED_INT8, "5", "3")});
    ASSERT_EQ(run("saved_read = image.read image.read = nil"), "");
    MemSourceImage source(live<OclImage2D>("pic")->object());
    source.open((m_ws / "data/pic.png").c_str());
    source.read();
    source.read();
    ASSERT_EQ(run("image.read = saved_read"), "");
    EXPECT_EQ(drain(), (Lines{"(image.so): Function 'read' not found", "(image.so): Function 'read' not found"}));
    source.read();
    EXPECT_EQ(drain(), Lines{});
    EXPECT_EQ(bytesOf(live<OclImage2D>("pic")->object()), bottomUp(px, 5 * 4));
}

TEST(MemGlobalInit, WithoutAContextTexturesGetNoAnisotropy)
{
    // This suite draws: its start-up had a context and read the driver's figure.
    if (GlContext::active()) GTEST_SKIP() << "the start-up had an OpenGL context";
    EXPECT_EQ(MemGlobal::maxAnisotropy(), 1);
}
