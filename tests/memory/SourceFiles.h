// What the memory tests share: Lua chunks run in the process's state, a
// document holding one OpenCL platform with the nodes under test, the four
// file plug-ins loaded as the start-up scan does, and a short video encoded
// with libav.
#pragma once

#include <gtest/gtest.h>

#include <lua.hpp>

#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "compute/OclGlobal.h"
#include "compute/OclNodes.h"
#include "memory/MemNodes.h"
#include "memory/MemSource.h"
#include "platform/DynLib.h"
#include "runtime/AppGlobal.h"
#include "runtime/RtnApplication.h"
#include "support/DocumentFixture.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace sources {

// Runs a chunk in the process's state: "" or the error text. Chunks may
// call fails(pattern, f, ...): f(...) must raise an error matching pattern.
inline std::string run(const std::string& code)
{
    lua_State* L = AppGlobal::luaState();
    lua_getglobal(L, "fails");
    const bool defined = !lua_isnil(L, -1);
    lua_pop(L, 1);
    if (!defined)
        luaL_dostring(L, "function fails(pattern, f, ...)\n"
                         "  local ok, e = pcall(f, ...)\n"
                         "  if ok then error('no error for ' .. pattern, 2) end\n"
                         "  if not tostring(e):find(pattern) then error(tostring(e), 2) end\n"
                         "end");
    if (luaL_dostring(L, code.c_str()) == 0) return "";
    std::string e = lua_tostring(L, -1);
    lua_pop(L, 1);
    return e;
}

// Whether the chunk stops with an error that contains `part`.
inline ::testing::AssertionResult raises(const std::string& code, const std::string& part)
{
    const std::string e = run(code);
    if (!e.empty() && e.find(part) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "the error was '" << e << "'";
}

inline double number(const char* global)
{
    lua_State* L = AppGlobal::luaState();
    lua_getglobal(L, global);
    const double v = lua_tonumber(L, -1);
    lua_pop(L, 1);
    return v;
}

inline std::string text(const char* global)
{
    lua_State* L = AppGlobal::luaState();
    lua_getglobal(L, global);
    std::string s = lua_isstring(L, -1) ? lua_tostring(L, -1) : "";
    lua_pop(L, 1);
    return s;
}

inline OclBuffer* buffer(const char* name, uint32_t type, const char* dim)
{
    auto* b = new OclBuffer;
    b->setName(name);
    b->type = static_cast<int>(type);
    b->dim0 = dim;
    return b;
}

// A document with one platform holding `nodes`, saved and opened as a user
// would; live() finds the run-time twin of a node by name.
class PlatformDocument : public DocumentFixture {
protected:
    void SetUp() override
    {
        DocumentFixture::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_NE(OclGlobal::currentContext(), nullptr) << "no OpenCL platform on this machine";
    }
    void open(const std::vector<ScnNode*>& nodes, const std::string& global = "")
    {
        auto app = std::make_unique<RtnApplication>();
        app->setGlobalScript(global);
        auto* platform = new OclPlatform;
        for (ScnNode* n : nodes) platform->append(n);
        app->openCL.node.append(platform);
        std::string error;
        ASSERT_TRUE(app->writeFile(m_ws / "test.3Dm", error)) << error;
        ASSERT_TRUE(m_doc.open("test.3Dm", error)) << error;
    }
    template <class T>
    T* live(const char* nodeName)
    {
        auto* platform = static_cast<ScnGroup*>(m_doc.application()->openCL.node.getChild(0));
        for (int i = 0; ScnNode* n = platform->getChild(i); ++i)
            if (n->getName() == nodeName) return dynamic_cast<T*>(n->twin());
        return nullptr;
    }
};

// The plug-ins of the build, by module name.
inline const std::array<std::pair<const char*, const char*>, 4>& pluginFiles()
{
    static const std::array<std::pair<const char*, const char*>, 4> files = {{
        {"video", VELMORA_VIDEO_PLUGIN},
        {"image", VELMORA_IMAGE_PLUGIN},
        {"volume", VELMORA_VOLUME_PLUGIN},
        {"ply", VELMORA_PLY_PLUGIN},
    }};
    return files;
}

// Opens the four plug-ins in the process's state (the test programs start
// without a workspace, so the scan found none) and registers the sources
// again, as the start-up does with the plug-ins present.
inline void loadPlugins()
{
    static bool loaded = false;
    if (loaded) return;
    loaded = true;
    lua_State* L = AppGlobal::luaState();
    ASSERT_NE(L, nullptr);
    for (const auto& [name, path] : pluginFiles()) {
        DynLib::Library lib;
        ASSERT_TRUE(lib.open(path)) << lib.error();
        auto open = reinterpret_cast<lua_CFunction>(lib.symbol("lib_open"));
        ASSERT_NE(open, nullptr) << name;
        lib.release();
        ASSERT_EQ(lua_cpcall(L, open, const_cast<char*>(name)), 0) << name;
    }
    MemSource::registerSources(L);
}

inline void writeBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::string readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

struct Rgb {
    int r, g, b;
};

// Encodes `frames` frames of `width` by `height` at `fps` frames a second,
// each filled with colour(i), with MPEG-4 part 2 in an AVI file: key frames
// every 4 frames and predicted frames between them, so reading out of order
// needs real seeks.
inline bool encodeVideo(const std::string& path, int width, int height, int frames, int fps,
                        const std::function<Rgb(int)>& colour, std::string& error)
{
    AVFormatContext* oc = nullptr;
    if (avformat_alloc_output_context2(&oc, nullptr, "avi", path.c_str()) < 0 || !oc)
        return error = "no avi muxer", false;
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    AVStream* st = codec ? avformat_new_stream(oc, nullptr) : nullptr;
    AVCodecContext* c = st ? avcodec_alloc_context3(codec) : nullptr;
    AVFrame* frame = av_frame_alloc();
    AVPacket* pkt = av_packet_alloc();
    SwsContext* sws = sws_getContext(width, height, AV_PIX_FMT_RGBA, width, height, AV_PIX_FMT_YUV420P, SWS_POINT,
                                     nullptr, nullptr, nullptr);
    bool ok = c && frame && pkt && sws;
    if (ok) {
        c->width = frame->width = width;
        c->height = frame->height = height;
        c->time_base = AVRational{1, fps};
        c->framerate = AVRational{fps, 1};
        c->pix_fmt = AV_PIX_FMT_YUV420P;
        frame->format = c->pix_fmt;
        c->gop_size = 4, c->max_b_frames = 0, c->qmin = 2, c->qmax = 3, c->bit_rate = 4000000, c->thread_count = 1;
        if (oc->oformat->flags & AVFMT_GLOBALHEADER) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        ok = avcodec_open2(c, codec, nullptr) >= 0 && avcodec_parameters_from_context(st->codecpar, c) >= 0;
        st->time_base = c->time_base;
        ok = ok && avio_open(&oc->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0 && avformat_write_header(oc, nullptr) >= 0 &&
             av_frame_get_buffer(frame, 0) >= 0;
    }
    auto drain = [&]() {
        while (avcodec_receive_packet(c, pkt) == 0) {
            av_packet_rescale_ts(pkt, c->time_base, st->time_base);
            pkt->stream_index = st->index;
            av_interleaved_write_frame(oc, pkt);
        }
    };
    std::vector<uint8_t> rgba(static_cast<size_t>(width) * height * 4);
    for (int i = 0; ok && i < frames; ++i) {
        const Rgb col = colour(i);
        for (size_t p = 0; p < rgba.size(); p += 4)
            rgba[p] = static_cast<uint8_t>(col.r), rgba[p + 1] = static_cast<uint8_t>(col.g),
            rgba[p + 2] = static_cast<uint8_t>(col.b), rgba[p + 3] = 255;
        const uint8_t* in[1] = {rgba.data()};
        const int stride[1] = {width * 4};
        ok = av_frame_make_writable(frame) >= 0;
        sws_scale(sws, in, stride, 0, height, frame->data, frame->linesize);
        frame->pts = i;
        ok = ok && avcodec_send_frame(c, frame) >= 0;
        drain();
    }
    if (ok) avcodec_send_frame(c, nullptr), drain(), av_write_trailer(oc);
    if (oc->pb) avio_closep(&oc->pb);
    sws_freeContext(sws);
    av_frame_free(&frame);
    av_packet_free(&pkt);
    avcodec_free_context(&c);
    avformat_free_context(oc);
    if (!ok) error = "encoding failed";
    return ok;
}

}  // namespace sources
