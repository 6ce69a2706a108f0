// File sources filling memory objects of an open document through the four
// plug-ins: pictures, a video followed by the clock, raw volumes, and the
// messages of missing and damaged files. What is read back is compared with
// what was written.
#include <gtest/gtest.h>

#include <lua.hpp>

#include <stb/stb_image.h>
#include <stb/stb_image_write.h>

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "memory/MemSource.h"
#include "memory/SourceFiles.h"
#include "runtime/CmdNodes.h"

using namespace sources;

namespace {

class Sources : public PlatformDocument {
protected:
    void SetUp() override
    {
        PlatformDocument::SetUp();
        if (HasFatalFailure()) return;
        loadPlugins();
        std::filesystem::create_directories(m_ws / "data");
        // The application clock and the tick clock start together.
        Engine::lastTickTime = 0;
        Channels::clearAll();
    }

    // The bytes of a memory object, read through a map.
    static std::vector<uint8_t> bytesOf(oclMem* m)
    {
        std::vector<uint8_t> out;
        if (!m || !m->map(CL_MAP_READ, 0)) return out;
        out.assign(static_cast<const uint8_t*>(m->data), static_cast<const uint8_t*>(m->data) + m->proxy->byteSize());
        m->unmap(0);
        return out;
    }
    template <class T = OclImage2D>
    std::vector<uint8_t> bytesOf(const char* node)
    {
        return bytesOf(live<T>(node)->object());
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
    static OclImage3D* volume(const char* name, const char* file, uint32_t type)
    {
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
    }
    // The 5 by 3 test picture as data/pic.png.
    std::vector<uint8_t> writePicture()
    {
        std::vector<uint8_t> px(5 * 3 * 4);
        for (size_t i = 0; i < px.size(); ++i) px[i] = static_cast<uint8_t>(7 + i * 4);  // every byte differs
        EXPECT_TRUE(stbi_write_png((m_ws / "data/pic.png").c_str(), 5, 3, 4, px.data(), 5 * 4));
        return px;
    }
};

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

Rgb frameColour(int i) { return {20 + 22 * i, 220 - 20 * i, (60 + 70 * i) % 256}; }

bool near(int a, int b, int tolerance = 12) { return std::abs(a - b) <= tolerance; }

// The frame whose colour the first pixel of `bytes` (RGBA8) shows, or -1.
int frameShown(const std::vector<uint8_t>& bytes, int frames)
{
    for (int i = 0; bytes.size() >= 4 && i < frames; ++i) {
        const Rgb c = frameColour(i);
        if (near(bytes[0], c.r) && near(bytes[1], c.g) && near(bytes[2], c.b)) return i;
    }
    return -1;
}

float floatAt(const std::vector<uint8_t>& b, size_t index)
{
    float f;
    std::memcpy(&f, &b[index * 4], 4);
    return f;
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
    ASSERT_EQ(run("saved_ply, saved_video = ply, video\nply = {}\n"
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
    for (const auto& [name, path] : pluginFiles())
        std::filesystem::copy_file(path, ws / (std::string("bindings/plugins/") + name + ".so"));
    lua_State* L = AppGlobal::newLuaState(ws.path());
    ASSERT_NE(L, nullptr);
    EXPECT_EQ(drain(), Lines{});
    ASSERT_EQ(luaL_dostring(L, "local n = 0\n"
                               "for _, m in ipairs({image, video, volume, ply}) do n = n + #m.getFileExt() end\n"
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
    const std::vector<uint8_t> px = writePicture();
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
    EXPECT_EQ(bytesOf("png"), stored);
    EXPECT_EQ(bytesOf("tga"), stored);
    std::vector<uint8_t> opaque = stored, swapped = stored;
    for (size_t i = 0; i < stored.size(); i += 4) opaque[i + 3] = 255, std::swap(swapped[i], swapped[i + 2]);
    EXPECT_EQ(bytesOf("bmp"), opaque);
    EXPECT_EQ(bytesOf("bgra"), swapped);

    const std::vector<uint8_t> fb = bytesOf("floats");
    ASSERT_EQ(fb.size(), px.size() * 4);
    for (size_t i = 0; i < px.size(); ++i) EXPECT_FLOAT_EQ(floatAt(fb, i), stored[i] / 255.0f) << i;

    const std::vector<uint8_t> jb = bytesOf("jpg");
    ASSERT_EQ(jb.size(), 16u * 16 * 4);
    for (size_t i = 0; i < jb.size(); i += 4)
        ASSERT_TRUE(near(jb[i], 200, 4) && near(jb[i + 1], 100, 4) && near(jb[i + 2], 40, 4) && jb[i + 3] == 255) << i;

    const std::vector<uint8_t> hb = bytesOf("hdr");
    ASSERT_EQ(hb.size(), 5u * 3 * 16);
    for (size_t p = 0; p < 15; ++p)
        for (size_t c = 0; c < 3; ++c) {
            // Object pixel p shows the picture's row 2 - p / 5; RGBE keeps 8
            // bits of mantissa against the largest channel.
            const size_t q = (2 - p / 5) * 5 + p % 5;
            EXPECT_NEAR(floatAt(hb, p * 4 + c), hdr[q * 3 + c], hdr[q * 3 + 2] / 64 + 1e-6) << p << "," << c;
        }

    // A smaller object takes the top left corner of the picture: its top
    // row (the object's last) is the picture's first.
    const std::vector<uint8_t> sb = bytesOf("small");
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
                  "local got = table.concat({mem.get(b, 1, 1)}, ' ') .. ' ' .. table.concat({mem.get(b, 1, 0)}, ' ')\n"
                  "mem.unmap(b)\n"
                  "assert(got == '85 85 85 255 255 255 255 255', got)"),
              "");
}

TEST_F(Sources, SetSourceResizesToThePictureAndRefusesWhatItCannotRead)
{
    const std::vector<uint8_t> px = writePicture();
    // A damaged picture: the PNG cut in the middle of its data.
    const std::string whole = readBytes(m_ws / "data/pic.png");
    writeBytes(m_ws / "data/cut.png", whole.substr(0, whole.size() / 2));
    writeBytes(m_ws / "data/head.vol", "size 2 2 2\n");

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
                  "fails('unable to read file data: data/missing.png', i.setSource, i, 'data/missing.png')\n"
                  "fails('unsupported file format: data/pic.xyz', i.setSource, i, 'data/pic.xyz')\n"
                  "fails('unable to read file data: data/head.vol', i.setSource, i, 'data/head.vol')\n"
                  "fails('file expected', i.setSource, i, 3)\n"
                  "fails('positive number expected', i.setFrame, i, 'x')\n"
                  "w2 = mem.dim(i:getBuffer(), 0)"),
              "");
    EXPECT_EQ(number("frames"), 0);
    EXPECT_EQ(number("framesAfter"), 1);
    EXPECT_EQ(number("w"), 5);
    EXPECT_EQ(number("h"), 3);
    // The object's top row is the picture's first: (4, 2) is its fifth pixel.
    EXPECT_EQ(std::vector<double>({number("r"), number("g"), number("bl"), number("a")}),
              std::vector<double>(px.begin() + 16, px.begin() + 20));
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
    const std::vector<uint8_t> px = writePicture();
    std::vector<uint8_t> other(px.rbegin(), px.rend());
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
    EXPECT_EQ(std::vector<uint8_t>(static_cast<uint8_t*>(m->data), static_cast<uint8_t*>(m->data) + 60),
              bottomUp(other, 5 * 4));
    m->unmap(0);
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(Sources, AFileThatIsNoRegularFileIsRefusedWithoutWaitingOnIt)
{
    // Opening a FIFO for reading would block until a writer comes.
    ASSERT_EQ(mkfifo((m_ws / "data/pipe.png").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((m_ws / "data/pipe.vol").c_str(), 0600), 0);
    open({image2D("pipe", "data/pipe.png", 2, CL_RGBA, CL_UNSIGNED_INT8, "4", "4"),
          volume("vol", "data/pipe.vol", CL_UNORM_INT8)});
    EXPECT_EQ(drain(), (Lines{"(image.so): unable to open image " + (m_ws / "data/pipe.png") + ": not a regular file",
                              "(volume.so): unable to open volume " + (m_ws / "data/pipe.vol") +
                                  ": not a regular file"}));
    ASSERT_EQ(run("local ok, e = pcall(OpenCL.clPlatform.pipe.setSource, OpenCL.clPlatform.pipe, 'data/pipe.png')\n"
                  "assert(not ok and e:find('unable to read file data: data/pipe.png'), e)"),
              "");
}

TEST_F(Sources, AMemoryObjectWrittenAsPngReadsBackAsTheSamePixels)
{
    const std::vector<uint8_t> px = writePicture();
    open({image2D("bgra", "data/pic.png", 2, CL_BGRA, CL_UNORM_INT8, "5", "3")});
    ASSERT_EQ(run("image.write(OpenCL.clPlatform.bgra:getBuffer(), '" + (m_ws / "data/out.png") + "')"), "");
    int w = 0, h = 0, n = 0;
    stbi_uc* back = stbi_load((m_ws / "data/out.png").c_str(), &w, &h, &n, 4);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(w * 10 + h, 53);
    EXPECT_EQ(std::vector<uint8_t>(back, back + 60), px);
    stbi_image_free(back);
    EXPECT_NE(run("image.write({}, 'x.png')").find("memory object expected"), std::string::npos);
}

TEST_F(Sources, AVideoGivesItsFramesByNumberAndFollowsTheClockWhilePlaying)
{
    std::string error;
    ASSERT_TRUE(encodeVideo(m_ws / "data/clip.avi", 32, 24, 10, 25, frameColour, error)) << error;
    open({image2D("clip", "data/clip.avi", 1, CL_RGBA, CL_UNSIGNED_INT8, "32", "24")});
    EXPECT_EQ(drain(), Lines{});
    OclImage2D* node = live<OclImage2D>("clip");
    ASSERT_NE(node, nullptr);
    auto* video = dynamic_cast<MemSourceVideo*>(node->memSource());
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->info.frame_count, 10);
    EXPECT_EQ(video->info.frame_rate, 40) << "milliseconds per frame at 25 frames a second";
    EXPECT_EQ(video->info.image_width * 100 + video->info.image_height, 3224);
    // Every pixel of the first frame, not just the first.
    const std::vector<uint8_t> first = bytesOf(node->object());
    ASSERT_EQ(first.size(), 32u * 24 * 4);
    for (size_t i = 0; i < first.size(); i += 4)
        ASSERT_TRUE(near(first[i], 20) && near(first[i + 1], 220) && near(first[i + 2], 60) && first[i + 3] == 255)
            << i;
    auto shows = [&] { return frameShown(bytesOf(node->object()), 10); };

    // Out of order, backwards across key frames, and the last one.
    ASSERT_EQ(run("v = OpenCL.clPlatform.clip\ncount = v:getFrameCount()\nv:stop()"), "");
    EXPECT_EQ(number("count"), 10);
    for (int f : {7, 2, 9, 5, 6, 0}) {
        ASSERT_EQ(run("v:setFrame(" + std::to_string(f) + ") f = v:getFrame()"), "");
        EXPECT_EQ(number("f"), f);
        EXPECT_EQ(shows(), f) << "frame " << f;
    }
    EXPECT_EQ(drain(), Lines{});

    // Playing: each tick's event sweep reads the frame the clock has reached.
    m_clock.now = 1000;
    Engine::lastTickTime = 1000;
    ASSERT_EQ(run("v:setFrame(8) v:play() playing = tostring(v:isPlaying())"), "");
    EXPECT_EQ(text("playing"), "true");
    // 100 ms at 40 a frame: two frames on, 20 ms kept for the next step.
    m_clock.advance(100);
    m_doc.tick();
    EXPECT_EQ(video->frame, 0) << "8 + 2 wraps to 0";
    EXPECT_EQ(video->lastTime, 1080u);
    EXPECT_EQ(shows(), 8) << "the sweep read the frame it stood on";
    m_clock.advance(20);
    m_doc.tick();
    EXPECT_EQ(video->frame, 1) << "the kept 20 ms and 20 more make one frame";
    EXPECT_EQ(shows(), 0);
    m_clock.advance(39);
    m_doc.tick();
    EXPECT_EQ(video->frame, 1);
    EXPECT_EQ(shows(), 1);

    // Stopped, the clock moves on and the picture stays.
    ASSERT_EQ(run("v:stop() playing = tostring(v:isPlaying())"), "");
    EXPECT_EQ(text("playing"), "false");
    m_clock.advance(400);
    m_doc.tick();
    EXPECT_EQ(video->frame, 1);
    EXPECT_EQ(shows(), 1);
    // play() restarts the count from now: the stopped time does not count.
    ASSERT_EQ(run("v:play()"), "");
    m_clock.advance(40);
    m_doc.tick();
    EXPECT_EQ(video->frame, 2);
    EXPECT_EQ(drain(), Lines{});
}

TEST_F(Sources, AVideoWithoutFrameRateDoesNotStepAndABadHandleIsReported)
{
    MemSourceVideo v(nullptr);
    v.info.frame_count = 7;
    v.info.frame_rate = 0;
    v.frame = 3;
    Engine::lastTickTime = 500;
    v.play();
    Engine::lastTickTime = 5003;
    v.read();
    EXPECT_EQ(v.frame, 3);
    const Lines lines = drain();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("(video.so): invalid video handle -1", 0), 0u) << lines[0];
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
    writeBytes(m_ws / "data/my.head.vol", "# a test volume\nsize 4 3 2\nchannels 1\ntype uint8\n");
    writeBytes(m_ws / "data/my.head.raw", raw);
    // Two float channels (luminance, alpha) into a float image.
    std::string floats;
    for (int i = 0; i < 2 * 2 * 2 * 2; ++i) {
        const float f = 0.5f * static_cast<float>(i) - 1.0f;
        floats.append(reinterpret_cast<const char*>(&f), 4);
    }
    writeBytes(m_ws / "data/fog.vol", "size 2 2 2\nchannels 2\ntype float\n");
    writeBytes(m_ws / "data/fog.raw", floats);
    // A data file one byte short.
    writeBytes(m_ws / "data/short.vol", "size 2 2 2\n");
    writeBytes(m_ws / "data/short.raw", std::string(7, 'x'));

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
    for (size_t i = 0; i < hb.size(); ++i)
        EXPECT_EQ(hb[i], i % 4 == 3 ? 255 : static_cast<uint8_t>(10 + i / 4 * 9)) << i;
    // The fog volume is 2 x 2 x 2 inside a 4 x 3 x 2 object: voxel (x, y, z)
    // of the file lands at the same coordinates.
    const std::vector<uint8_t> fb = bytesOf<OclImage3D>("fog");
    ASSERT_EQ(fb.size(), 24u * 16);
    for (int z = 0; z < 2; ++z)
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 2; ++x) {
                const int src = (z * 2 + y) * 2 + x;
                const size_t dst = static_cast<size_t>((z * 3 + y) * 4 + x) * 4;
                const float l = 0.5f * static_cast<float>(src * 2) - 1.0f;
                EXPECT_FLOAT_EQ(floatAt(fb, dst), l);
                EXPECT_FLOAT_EQ(floatAt(fb, dst + 2), l);
                EXPECT_FLOAT_EQ(floatAt(fb, dst + 3), l + 0.5f);
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
    const std::vector<uint8_t> px = writePicture();
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
    EXPECT_EQ(bytesOf("pic"), bottomUp(px, 5 * 4));
}
