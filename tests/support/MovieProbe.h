// Reads a movie file back with FFmpeg's libraries: how many frames decode,
// and their size. For the tests of recording.
#pragma once

#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

struct MovieProbe {
    int frames = 0;
    int width = 0, height = 0;
    std::string error;

    explicit MovieProbe(const std::string& path)
    {
        AVFormatContext* format = nullptr;
        if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) {
            error = "cannot open " + path;
            return;
        }
        avformat_find_stream_info(format, nullptr);
        const AVCodec* codec = nullptr;
        int stream = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
        AVCodecContext* ctx = stream >= 0 && codec ? avcodec_alloc_context3(codec) : nullptr;
        AVPacket* packet = av_packet_alloc();
        AVFrame* frame = av_frame_alloc();
        if (!ctx || avcodec_parameters_to_context(ctx, format->streams[stream]->codecpar) < 0 ||
            avcodec_open2(ctx, codec, nullptr) < 0) {
            error = "no video stream to decode";
        } else {
            auto receive = [&] {
                while (avcodec_receive_frame(ctx, frame) == 0) {
                    ++frames;
                    width = frame->width;
                    height = frame->height;
                }
            };
            while (av_read_frame(format, packet) >= 0) {
                if (packet->stream_index == stream) {
                    // A full decoder takes the packet once its frames are out.
                    while (avcodec_send_packet(ctx, packet) == AVERROR(EAGAIN)) receive();
                    receive();
                }
                av_packet_unref(packet);
            }
            while (avcodec_send_packet(ctx, nullptr) == AVERROR(EAGAIN)) receive();
            receive();
        }
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&ctx);
        avformat_close_input(&format);
    }
};
