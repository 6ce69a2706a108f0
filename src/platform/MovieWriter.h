// Movie recording: frames of the view, as the GL reads them, encoded into a
// video file with FFmpeg's libraries. H.264 where the encoder is there,
// MPEG-4 Part 2 otherwise. Used by the editor's world view and by the
// headless runner, so it knows nothing of windows.
#pragma once

#include <cstdint>
#include <string>

struct AVFormatContext;
struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

class MovieWriter {
public:
    // The recorded size for a view: each side at most 1024, rounded down to
    // an even number (the encoders take only even sizes).
    static void frameSize(int viewWidth, int viewHeight, int& width, int& height);

    MovieWriter() = default;
    ~MovieWriter();
    MovieWriter(const MovieWriter&) = delete;
    MovieWriter& operator=(const MovieWriter&) = delete;

    // Creates `path` for frames of `width` by `height` (even, at least 2).
    // False with the reason in `error`; nothing stays open then.
    bool open(const std::string& path, int width, int height, std::string& error);
    // Adds the lower left width by height pixels of an RGBA picture of
    // `srcWidth` by `srcHeight`, bottom row first. False when the picture is
    // smaller than the movie or the encoder fails.
    bool addFrame(const uint8_t* rgba, int srcWidth, int srcHeight);
    // Flushes the encoder and closes the file; false when the end could not
    // be written.
    bool close();

    bool isOpen() const { return m_format != nullptr; }
    int width() const { return m_width; }
    int height() const { return m_height; }
    // Frames added since open.
    long frames() const { return m_frames; }
    // "h264" or "mpeg4", once open.
    const char* codecName() const { return m_codecName; }

private:
    bool write(AVFrame* frame);
    void release();

    AVFormatContext* m_format = nullptr;
    AVCodecContext* m_codec = nullptr;
    AVFrame* m_frame = nullptr;
    AVPacket* m_packet = nullptr;
    SwsContext* m_scale = nullptr;
    int m_width = 0, m_height = 0;
    long m_frames = 0;
    const char* m_codecName = "";
};
