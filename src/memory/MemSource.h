// Memory sources: what fills a memory object from a file. The program knows
// no file format itself: each family is served by a plug-in that registers a
// Lua module (`image`, `video`, `volume`, `ply`), and a source calls that
// module's functions in protected calls, handing it the memory object as the
// script value that `mem` takes. The plug-in maps the object and writes the
// pixels straight into it (MemPluginApi.h).
//
// Every failure of a plug-in call is one line on the error channel under the
// plug-in's file name ("image.so", ...); the source keeps its record's
// initial values and the object keeps its earlier content.
#pragma once

#include <cstdint>
#include <string>

struct lua_State;
class oclMem;
class oclImage2D;

class MemSource {
public:
    // What a file is, by its extension.
    enum Kind { Unknown = 0, Video = 1, Image = 2, Volume = 3 };

    explicit MemSource(oclMem* memory) : memory(memory) {}
    virtual ~MemSource() = default;
    MemSource(const MemSource&) = delete;
    MemSource& operator=(const MemSource&) = delete;

    // Copies the path, at most 399 characters.
    virtual void open(const char* path);
    virtual void read() {}
    virtual void close() {}

    // The extension is the text from the last '.', matched exactly, case
    // included, against the tables the plug-ins gave at start: video first,
    // then image, then volume.
    static Kind classify(const char* path);
    // True when `path` has an extension of the ply table.
    static bool isPly(const char* path);

    // Start-up: publishes the memory access of the plug-ins in the state and
    // asks each of video, image, volume and ply for its extensions
    // (getFileExt). A missing module or function is reported, not fatal.
    static void registerSources(lua_State* L);

    // One protected call of a plug-in function, with the arguments in this
    // order: the memory object, the text, the numbers, what pushExtra pushes.
    // takeResult, when given, reads the one result inside the protection.
    struct Call {
        const char* module;
        const char* function;
        // The memory object goes first when passMemory is set (a null one as
        // the value every function refuses).
        oclMem* memory = nullptr;
        bool passMemory = false;
        const char* text = nullptr;
        double numbers[2] = {0, 0};
        int numberCount = 0;
        int (*pushExtra)(lua_State* L, void* context) = nullptr;
        bool (*takeResult)(lua_State* L, void* context) = nullptr;
        void* context = nullptr;
        bool found = true;
        bool resultOk = false;
    };
    // Runs the call; a missing function ("Function 'read' not found") or a
    // Lua error is a line on the error channel under the plug-in's file name.
    // True when the call ran and, with takeResult, that accepted the result.
    static bool call(Call& c);
    // The integer `key` of the table on top of the stack, inside a call: a
    // missing or non-number value raises.
    static int32_t recordField(lua_State* L, const char* key);
    // "image.so" for "image".
    static std::string libraryName(const char* module);
    // A file name of a node or a script below the workspace; an absolute
    // path is taken as it is. Into a fixed block: script methods raise
    // errors by longjmp.
    static void workspacePath(const char* name, char (&out)[400]);
    // The picture size of an image or video file, through its plug-in.
    static bool pictureSize(Kind kind, const char* path, int32_t& width, int32_t& height);

    oclMem* memory;
    char file[400] = {};
};

// The records the plug-ins fill, with a new source's values.
struct MemImageInfo {
    int32_t image_width = 2, image_height = 2, image_channel_order = 0, image_channel_data_type = 0;
};
struct MemVideoInfo {
    int32_t image_width = 2, image_height = 2, frame_count = 0, frame_rate = 0, image_channel_order = 0,
            image_channel_data_type = 0;
};
struct MemVolumeInfo {
    int32_t image_width = 2, image_height = 2, image_depth = 2, image_channel_order = 0, image_channel_data_type = 0;
};

class MemSourceImage : public MemSource {
public:
    using MemSource::MemSource;
    // image.read(memory, file)
    void read() override;
    // image.getFileInfo(path) into `info`: true when a table came back.
    bool getFileInfo(const char* path);

    MemImageInfo info;
};

class MemSourceVideo : public MemSource {
public:
    using MemSource::MemSource;
    ~MemSourceVideo() override;
    // Opens the video with video.open, reads its record, and starts at frame
    // 0 with the clock's present time.
    void open(const char* path) override;
    // Reads the current frame into the object; while playing, then moves on
    // by the frames the clock says have passed (frame_rate units each),
    // keeping the rest of the time, and wraps at the end.
    void read() override;
    // video.close; the handle is given up.
    void close() override;
    // Opens the file by path, reads its record and closes it again.
    bool getFileInfo(const char* path);

    void play();
    void stop() { playing = false; }
    // The frame that the next read reads.
    void setFrame(int n) { frame = n; }

    MemVideoInfo info;
    int32_t frame = 0;
    uint32_t lastTime = 0;
    int32_t handle = -1;
    bool playing = true;

private:
    bool fileInfoOfHandle();
};

class MemSourceVolume : public MemSource {
public:
    using MemSource::MemSource;
    // As the base, then cuts the copy at its last '.': volume.read takes the
    // path without its extension.
    void open(const char* path) override;
    // volume.read(memory, file)
    void read() override;
    // volume.getFileInfo of the whole path.
    bool getFileInfo(const char* path);

    MemVolumeInfo info;
};

// The application time that videos follow: the millisecond clock that
// scripts read with app.getTime, taken once per tick.
uint32_t memSourceTime();

// The script methods of a node whose 2D object a picture or a video fills
// (the OpenCL image node and the 2D texture node): `source` is the node's
// own source slot, replaced by setSource.
namespace MemSourceScript {
// setSource(file): resizes `object` to the picture and reads it; raises
// "unsupported file format: NAME" or "unable to read file data: NAME".
int setSource(lua_State* L, oclImage2D* object, MemSource*& source, const char* nodeName);
int getFrameCount(lua_State* L, MemSource* source);
int setFrame(lua_State* L, MemSource* source);
int getFrame(lua_State* L, MemSource* source);
int play(lua_State* L, MemSource* source);
int stop(lua_State* L, MemSource* source);
int isPlaying(lua_State* L, MemSource* source);
}  // namespace MemSourceScript
