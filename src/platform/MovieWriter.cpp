#include "platform/MovieWriter.h"

#include <algorithm>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace {

std::string avError(const char* call, int rc)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(rc, text, sizeof text);
    return std::string(call) + " failed: " + text;
}

}  // namespace

void MovieWriter::frameSize(int viewWidth, int viewHeight, int& width, int& height)
{
    width = std::min(viewWidth, 1024) & ~1;
    height = std::min(viewHeight, 1024) & ~1;
}

MovieWriter::~MovieWriter()
{
    close();
}

bool MovieWriter::open(const std::string& path, int width, int height, std::string& error)
{
    close();
    // Failures come back as results; the encoders' chatter is not wanted.
    av_log_set_level(AV_LOG_ERROR);
    if (width < 2 || height < 2 || (width & 1) || (height & 1)) {
        error = "the frame size " + std::to_string(width) + "x" + std::to_string(height) + " cannot be recorded";
        return false;
    }
    int rc = avformat_alloc_output_context2(&m_format, nullptr, nullptr, path.c_str());
    if (rc < 0 || !m_format) {
        // An unknown extension: MP4 all the same.
        rc = avformat_alloc_output_context2(&m_format, nullptr, "mp4", path.c_str());
        if (rc < 0 || !m_format) {
            error = avError("avformat_alloc_output_context2", rc);
            m_format = nullptr;
            return false;
        }
    }
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_H264);
    if (!codec) codec = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    AVStream* stream = codec ? avformat_new_stream(m_format, nullptr) : nullptr;
    m_codec = codec ? avcodec_alloc_context3(codec) : nullptr;
    m_frame = av_frame_alloc();
    m_packet = av_packet_alloc();
    if (!stream || !m_codec || !m_frame || !m_packet) {
        error = codec ? "out of memory" : "no H.264 or MPEG-4 encoder";
        release();
        return false;
    }
    m_codecName = codec->name;
    m_width = width;
    m_height = height;
    m_codec->width = width;
    m_codec->height = height;
    m_codec->pix_fmt = AV_PIX_FMT_YUV420P;
    // Samples 22 ms apart with a frame on every other one: the movie plays at
    // about 22.7 frames a second whatever speed it was recorded at.
    m_codec->time_base = AVRational{22, 1000};
    m_codec->framerate = AVRational{1000, 44};
    m_codec->gop_size = 25;
    m_codec->max_b_frames = 0;
    m_codec->bit_rate = 4000000;
    if (m_format->oformat->flags & AVFMT_GLOBALHEADER) m_codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (codec->id == AV_CODEC_ID_H264) av_opt_set(m_codec->priv_data, "preset", "veryfast", 0);
    if ((rc = avcodec_open2(m_codec, codec, nullptr)) < 0) {
        error = avError("avcodec_open2", rc);
        release();
        return false;
    }
    stream->time_base = m_codec->time_base;
    avcodec_parameters_from_context(stream->codecpar, m_codec);
    m_frame->format = AV_PIX_FMT_YUV420P;
    m_frame->width = width;
    m_frame->height = height;
    if ((rc = av_frame_get_buffer(m_frame, 0)) < 0) {
        error = avError("av_frame_get_buffer", rc);
        release();
        return false;
    }
    m_scale = sws_getContext(width, height, AV_PIX_FMT_RGBA, width, height, AV_PIX_FMT_YUV420P, SWS_BILINEAR,
                             nullptr, nullptr, nullptr);
    if (!m_scale) {
        error = "sws_getContext failed";
        release();
        return false;
    }
    if (!(m_format->oformat->flags & AVFMT_NOFILE) && (rc = avio_open(&m_format->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) {
        error = avError("avio_open", rc);
        release();
        return false;
    }
    if ((rc = avformat_write_header(m_format, nullptr)) < 0) {
        error = avError("avformat_write_header", rc);
        release();
        return false;
    }
    m_frames = 0;
    return true;
}

bool MovieWriter::addFrame(const uint8_t* rgba, int srcWidth, int srcHeight)
{
    if (!isOpen() || !rgba || srcWidth < m_width || srcHeight < m_height) return false;
    if (av_frame_make_writable(m_frame) < 0) return false;
    // The GL rows run bottom up and the movie's top down: start at the top row
    // of the recorded part and step backwards.
    const int stride = srcWidth * 4;
    const uint8_t* top = rgba + static_cast<size_t>(m_height - 1) * stride;
    const int strides[1] = {-stride};
    sws_scale(m_scale, &top, strides, 0, m_height, m_frame->data, m_frame->linesize);
    m_frame->pts = 2 * m_frames;
    if (!write(m_frame)) return false;
    ++m_frames;
    return true;
}

bool MovieWriter::write(AVFrame* frame)
{
    if (avcodec_send_frame(m_codec, frame) < 0) return false;
    AVStream* stream = m_format->streams[0];
    for (;;) {
        int rc = avcodec_receive_packet(m_codec, m_packet);
        if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return true;
        if (rc < 0) return false;
        // Each frame lasts its two samples; without a duration the file's
        // length would end where the last frame starts, cutting it off.
        m_packet->duration = 2;
        av_packet_rescale_ts(m_packet, m_codec->time_base, stream->time_base);
        m_packet->stream_index = stream->index;
        rc = av_interleaved_write_frame(m_format, m_packet);
        av_packet_unref(m_packet);
        if (rc < 0) return false;
    }
}

bool MovieWriter::close()
{
    if (!isOpen()) return true;
    bool ok = write(nullptr);
    ok = av_write_trailer(m_format) == 0 && ok;
    release();
    return ok;
}

void MovieWriter::release()
{
    if (m_format && m_format->pb && !(m_format->oformat->flags & AVFMT_NOFILE)) avio_closep(&m_format->pb);
    sws_freeContext(m_scale);
    m_scale = nullptr;
    av_packet_free(&m_packet);
    av_frame_free(&m_frame);
    avcodec_free_context(&m_codec);
    avformat_free_context(m_format);
    m_format = nullptr;
}
