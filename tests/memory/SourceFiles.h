// Test data of the file sources, made by the tests themselves: pictures
// written with stb, a short video encoded with libav, raw volumes and PLY
// models written byte by byte. Also loads the four file plug-ins into the
// process's Lua state as the start-up scan does.
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

#include "memory/MemSource.h"
#include "platform/DynLib.h"
#include "runtime/AppGlobal.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace sources {

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
    if (avformat_alloc_output_context2(&oc, nullptr, "avi", path.c_str()) < 0 || !oc) {
        error = "no avi muxer";
        return false;
    }
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    AVStream* st = codec ? avformat_new_stream(oc, nullptr) : nullptr;
    AVCodecContext* c = st ? avcodec_alloc_context3(codec) : nullptr;
    bool ok = c != nullptr;
    if (!ok) error = "no MPEG-4 encoder";
    AVFrame* frame = nullptr;
    AVPacket* pkt = av_packet_alloc();
    SwsContext* sws = nullptr;
    if (ok) {
        c->width = width;
        c->height = height;
        c->time_base = AVRational{1, fps};
        c->framerate = AVRational{fps, 1};
        c->pix_fmt = AV_PIX_FMT_YUV420P;
        c->gop_size = 4;
        c->max_b_frames = 0;
        c->qmin = 2;
        c->qmax = 3;
        c->bit_rate = 4000000;
        c->thread_count = 1;
        if (oc->oformat->flags & AVFMT_GLOBALHEADER) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        ok = avcodec_open2(c, codec, nullptr) >= 0 && avcodec_parameters_from_context(st->codecpar, c) >= 0;
        st->time_base = c->time_base;
        ok = ok && avio_open(&oc->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0 && avformat_write_header(oc, nullptr) >= 0;
        if (!ok) error = "unable to start the file";
    }
    if (ok) {
        frame = av_frame_alloc();
        frame->format = c->pix_fmt;
        frame->width = width;
        frame->height = height;
        ok = av_frame_get_buffer(frame, 0) >= 0;
        sws = sws_getContext(width, height, AV_PIX_FMT_RGBA, width, height, AV_PIX_FMT_YUV420P, SWS_POINT, nullptr,
                             nullptr, nullptr);
        ok = ok && sws;
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
        ok = av_frame_make_writable(frame) >= 0;
        const uint8_t* in[1] = {rgba.data()};
        const int stride[1] = {width * 4};
        sws_scale(sws, in, stride, 0, height, frame->data, frame->linesize);
        frame->pts = i;
        ok = ok && avcodec_send_frame(c, frame) >= 0;
        drain();
    }
    if (ok) {
        avcodec_send_frame(c, nullptr);
        drain();
        av_write_trailer(oc);
    }
    if (oc && oc->pb) avio_closep(&oc->pb);
    sws_freeContext(sws);
    av_frame_free(&frame);
    av_packet_free(&pkt);
    avcodec_free_context(&c);
    avformat_free_context(oc);
    if (!ok && error.empty()) error = "encoding failed";
    return ok;
}

}  // namespace sources
