// The file plug-in `video`: frames of a video file into 2D memory objects,
// decoded with FFmpeg (libavformat, libavcodec) and turned into RGBA with
// libswscale. Open videos are numbered by handles; a frame is found by its
// time stamp, so frames can be read in any order: the next frame is simply
// decoded on, any other is reached by a seek to the key frame before it.
//
//   video.getFileExt()                  -> {".avi", ".mp4", ...}
//   video.open(path)                    -> handle, -1 when the file has no video stream
//   video.getFileInfo(handle)           -> {image_width=, image_height=, frame_count=,
//                                           frame_rate=, image_channel_order=,
//                                           image_channel_data_type=}
//   video.read(memory, handle, frame)   fills the object with frame `frame` (from 0)
//   video.close(handle)
//
// `frame_rate` is the time a frame stands, in milliseconds (40 for 25 frames
// a second): the unit of the program's clock.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <cmath>
#include <memory>
#include <vector>

#include "plugins/common/PluginMemory.h"

namespace {

constexpr uint64_t kMaxPixels = 1ull << 26;


class Video {
public:
    ~Video()
    {
        sws_freeContext(m_sws);
        av_frame_free(&m_frame);
        av_packet_free(&m_packet);
        avcodec_free_context(&m_decoder);
        avformat_close_input(&m_format);
    }

    bool open(const char* path, plugin::Error& err)
    {
        if (!plugin::regularFile(path, "video", err)) return false;
        if (avformat_open_input(&m_format, path, nullptr, nullptr) < 0) {
            err.format("unable to open video %s", path);
            return false;
        }
        if (avformat_find_stream_info(m_format, nullptr) < 0) {
            err.format("unable to read the streams of %s", path);
            return false;
        }
        const AVCodec* codec = nullptr;
        m_stream = av_find_best_stream(m_format, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
        if (m_stream < 0 || !codec) {
            err.format("%s holds no video stream that can be decoded", path);
            return false;
        }
        AVStream* st = m_format->streams[m_stream];
        m_decoder = avcodec_alloc_context3(codec);
        if (!m_decoder || avcodec_parameters_to_context(m_decoder, st->codecpar) < 0) {
            err.format("unable to set up the decoder of %s", path);
            return false;
        }
        m_decoder->thread_count = 1;
        if (avcodec_open2(m_decoder, codec, nullptr) < 0) {
            err.format("unable to open the decoder of %s", path);
            return false;
        }
        width = m_decoder->width;
        height = m_decoder->height;
        if (width <= 0 || height <= 0 || static_cast<uint64_t>(width) * height > kMaxPixels) {
            err.format("%s: a frame of %d by %d pixels is not supported", path, width, height);
            return false;
        }
        AVRational rate = st->avg_frame_rate.num > 0 ? st->avg_frame_rate : st->r_frame_rate;
        if (rate.num <= 0 || rate.den <= 0) rate = AVRational{25, 1};
        m_fps = av_q2d(rate);
        m_timeBase = av_q2d(st->time_base);
        m_start = st->start_time != AV_NOPTS_VALUE ? st->start_time : 0;
        m_frame = av_frame_alloc();
        m_packet = av_packet_alloc();
        if (!m_frame || !m_packet) {
            err.format("out of memory opening %s", path);
            return false;
        }
        frameCount = st->nb_frames > 0 ? static_cast<int>(std::min<int64_t>(st->nb_frames, INT32_MAX)) : countFrames();
        m_rgba.assign(static_cast<size_t>(width) * height * 4, 0);
        return true;
    }

    // Milliseconds per frame.
    int frameRate() const { return static_cast<int>(std::lround(1000.0 / m_fps)); }

    // Decodes frame `n` into the RGBA block.
    bool decode(int n, plugin::Error& err)
    {
        if (n < 0 || (frameCount > 0 && n >= frameCount)) {
            err.format("frame %d is not in the video (%d frames)", n, frameCount);
            return false;
        }
        if (n != m_next) {
            const int64_t ts = m_start + static_cast<int64_t>(std::floor(n / m_fps / m_timeBase + 0.5));
            if (av_seek_frame(m_format, m_stream, ts, AVSEEK_FLAG_BACKWARD) < 0 &&
                av_seek_frame(m_format, m_stream, m_start, AVSEEK_FLAG_BACKWARD) < 0) {
                err.format("unable to seek to frame %d", n);
                return false;
            }
            avcodec_flush_buffers(m_decoder);
            m_draining = false;
        }
        for (;;) {
            const int index = nextDecoded();
            if (index == kEnd) {
                err.format("frame %d could not be decoded", n);
                m_next = -1;
                return false;
            }
            if (index < n) continue;
            m_next = index + 1;
            return convert(err);
        }
    }

    const std::vector<uint8_t>& rgba() const { return m_rgba; }

    int width = 0, height = 0, frameCount = 0;

private:
    static constexpr int kEnd = INT32_MIN;

    // The index of the next frame the decoder gives (now in m_frame), or kEnd.
    int nextDecoded()
    {
        for (;;) {
            const int r = avcodec_receive_frame(m_decoder, m_frame);
            if (r == 0) {
                const int64_t pts = m_frame->best_effort_timestamp != AV_NOPTS_VALUE ? m_frame->best_effort_timestamp
                                                                                     : m_frame->pts;
                if (pts == AV_NOPTS_VALUE) return m_next < 0 ? 0 : m_next;
                return static_cast<int>(std::llround((pts - m_start) * m_timeBase * m_fps));
            }
            if (r == AVERROR_EOF) return kEnd;
            if (r != AVERROR(EAGAIN)) return kEnd;
            if (m_draining) return kEnd;
            // Feed the next packet of our stream, or start draining at the end.
            for (;;) {
                const int got = av_read_frame(m_format, m_packet);
                if (got < 0) {
                    avcodec_send_packet(m_decoder, nullptr);
                    m_draining = true;
                    break;
                }
                const bool ours = m_packet->stream_index == m_stream;
                const int sent = ours ? avcodec_send_packet(m_decoder, m_packet) : 0;
                av_packet_unref(m_packet);
                if (ours && sent >= 0) break;
            }
        }
    }

    bool convert(plugin::Error& err)
    {
        if (m_frame->width != width || m_frame->height != height) {
            err.format("a frame of %d by %d pixels in a video of %d by %d", m_frame->width, m_frame->height, width,
                       height);
            return false;
        }
        m_sws = sws_getCachedContext(m_sws, width, height, static_cast<AVPixelFormat>(m_frame->format), width, height,
                                     AV_PIX_FMT_RGBA, SWS_POINT, nullptr, nullptr, nullptr);
        if (!m_sws) {
            err.format("no conversion from the video's pixel format to RGBA");
            return false;
        }
        uint8_t* planes[4] = {m_rgba.data(), nullptr, nullptr, nullptr};
        const int strides[4] = {width * 4, 0, 0, 0};
        sws_scale(m_sws, m_frame->data, m_frame->linesize, 0, height, planes, strides);
        return true;
    }

    int countFrames()
    {
        int n = 0;
        while (av_read_frame(m_format, m_packet) >= 0) {
            if (m_packet->stream_index == m_stream) ++n;
            av_packet_unref(m_packet);
        }
        av_seek_frame(m_format, m_stream, m_start, AVSEEK_FLAG_BACKWARD);
        return n;
    }

    AVFormatContext* m_format = nullptr;
    AVCodecContext* m_decoder = nullptr;
    AVFrame* m_frame = nullptr;
    AVPacket* m_packet = nullptr;
    SwsContext* m_sws = nullptr;
    int m_stream = -1;
    double m_fps = 25, m_timeBase = 1;
    int64_t m_start = 0;
    int m_next = 0;  // the frame that decoding on gives, -1 unknown
    bool m_draining = false;
    std::vector<uint8_t> m_rgba;
};

std::vector<std::unique_ptr<Video>> s_videos;

Video* find(lua_State* L, int idx)
{
    const lua_Number h = luaL_checknumber(L, idx);
    if (h < 0 || h >= static_cast<lua_Number>(s_videos.size()) || h != std::floor(h)) return nullptr;
    return s_videos[static_cast<size_t>(h)].get();
}

int lGetFileExt(lua_State* L)
{
    return plugin::pushExtensions(L, {".avi", ".mp4", ".mkv", ".mov", ".webm", ".mpg", ".ogv"});
}

int openVideo(const char* path, plugin::Error& err)
{
    try {
        auto v = std::make_unique<Video>();
        if (!v->open(path, err)) return -1;
        for (size_t i = 0; i < s_videos.size(); ++i)
            if (!s_videos[i]) {
                s_videos[i] = std::move(v);
                return static_cast<int>(i);
            }
        s_videos.push_back(std::move(v));
        return static_cast<int>(s_videos.size() - 1);
    } catch (const std::exception& e) {
        err.format("unable to open video %s: %s", path, e.what());
        return -1;
    }
}

int lOpen(lua_State* L)
{
    const char* path = luaL_checkstring(L, 1);
    plugin::Error err;
    const int handle = openVideo(path, err);
    lua_pushnumber(L, handle);
    if (handle >= 0) return 1;
    lua_pushstring(L, err.text);
    return 2;
}

int lClose(lua_State* L)
{
    const lua_Number h = luaL_checknumber(L, 1);
    if (h >= 0 && h < static_cast<lua_Number>(s_videos.size())) s_videos[static_cast<size_t>(h)].reset();
    return 0;
}


int lGetFileInfo(lua_State* L)
{
    Video* v = find(L, 1);
    if (!v) return luaL_error(L, "invalid video handle %d", static_cast<int>(lua_tonumber(L, 1)));
    lua_createtable(L, 0, 6);
    plugin::setNumber(L, "image_width", v->width);
    plugin::setNumber(L, "image_height", v->height);
    plugin::setNumber(L, "frame_count", v->frameCount);
    plugin::setNumber(L, "frame_rate", v->frameRate());
    plugin::setNumber(L, "image_channel_order", CL_RGBA);
    plugin::setNumber(L, "image_channel_data_type", CL_UNORM_INT8);
    return 1;
}

bool readFrame(lua_State* L, Video* video, int frame, plugin::Error& err)
{
    VelmoraMemView v{};
    plugin::Target target;
    if (!plugin::view(L, 1, v, err) || !plugin::resolveTarget(v, target, err)) return false;
    if (!video->decode(frame, err)) return false;
    plugin::Pixels px;
    px.data = video->rgba().data();
    px.width = static_cast<uint32_t>(video->width);
    px.height = static_cast<uint32_t>(video->height);
    px.channels = 4;
    px.bottomUp = true;
    bool mapped = false;
    if (!plugin::mapForWrite(L, 1, v, mapped, err)) return false;
    plugin::writePixels(px, v, target);
    return plugin::unmapAfter(L, 1, mapped, err);
}

int lRead(lua_State* L)
{
    Video* video = find(L, 2);
    if (!video) return luaL_error(L, "invalid video handle %d", static_cast<int>(lua_tonumber(L, 2)));
    const int frame = static_cast<int>(luaL_checknumber(L, 3));
    plugin::Error err;
    bool ok = false;
    try {
        ok = readFrame(L, video, frame, err);
    } catch (const std::exception& e) {
        err.format("unable to read frame %d: %s", frame, e.what());
    }
    if (!ok) return luaL_error(L, "%s", err.text);
    return 0;
}

const luaL_Reg kFunctions[] = {
    {"getFileExt", lGetFileExt}, {"open", lOpen},   {"close", lClose},
    {"getFileInfo", lGetFileInfo}, {"read", lRead}, {nullptr, nullptr},
};

}  // namespace

extern "C" __attribute__((visibility("default"))) int lib_open(lua_State* L)
{
    av_log_set_level(AV_LOG_QUIET);
    luaL_register(L, "video", kFunctions);
    lua_pop(L, 1);
    return 0;
}
