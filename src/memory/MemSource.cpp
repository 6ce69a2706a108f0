#include "memory/MemSource.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <lua.hpp>

#include "compute/OclLua.h"
#include "compute/oclObject.h"
#include "memory/MemPluginApi.h"
#include "memory/MemProxy.h"
#include "runtime/Channels.h"
#include "runtime/AppGlobal.h"
#include "runtime/Clock.h"
#include "runtime/LuaExt.h"
#include "runtime/ScnLua.h"

namespace {

constexpr size_t kMaxExtensions = 100;

// The extension tables, in the order of MemSource::Kind, then ply.
std::vector<std::string> s_extensions[4];
const char* const kModules[4] = {"video", "image", "volume", "ply"};

// The memory access published for the plug-ins.
int viewOf(lua_State* L, int idx, VelmoraMemView* v)
{
    oclMem* m = OclLua::toMem(L, idx);
    if (!m || !v) return 0;
    std::memset(v, 0, sizeof *v);
    v->data = m->mapFlags ? m->data : nullptr;
    v->mapFlags = m->mapFlags;
    if (MemProxy* p = m->proxy) {
        v->byteSize = p->byteSize();
        v->typeCode = p->typeCode();
        v->elementSize = clTypeSize(v->typeCode);
        v->dimensions = 0;
        for (int axis = 0; axis < 3; ++axis) {
            const uint32_t d = p->getDim(axis);
            v->dim[axis] = d ? d : 1;
            if (d) v->dimensions = static_cast<uint32_t>(axis + 1);
        }
        if (v->dimensions >= 2) {
            const cl_image_format f = p->format();
            v->channelOrder = f.image_channel_order;
            v->channelType = f.image_channel_data_type;
        }
    }
    return 1;
}

const VelmoraMemApi kApi = {VELMORA_MEM_API_VERSION, viewOf};

bool hasExtension(const std::vector<std::string>& table, const char* path)
{
    const char* dot = std::strrchr(path, '.');
    if (!dot) return false;
    for (const std::string& e : table)
        if (e == dot) return true;
    return false;
}

// getFileExt of one module, inside the protected call.
struct ExtCall {
    const char* module;
    std::vector<std::string>* table;
    bool found = true;
};

int extBody(lua_State* L)
{
    auto* c = static_cast<ExtCall*>(lua_touserdata(L, 1));
    if (!velmora_getfunction(L, c->module, "getFileExt")) {
        c->found = false;
        return 0;
    }
    lua_call(L, 0, 1);
    if (!lua_istable(L, -1)) return 0;
    for (int i = 1; c->table->size() < kMaxExtensions; ++i) {
        lua_rawgeti(L, -1, i);
        if (lua_isnil(L, -1)) break;
        if (lua_type(L, -1) == LUA_TSTRING) c->table->emplace_back(lua_tostring(L, -1));
        lua_pop(L, 1);
    }
    return 0;
}

int publishBody(lua_State* L)
{
    lua_pushlightuserdata(L, const_cast<VelmoraMemApi*>(&kApi));
    lua_setfield(L, LUA_REGISTRYINDEX, VELMORA_MEM_API_KEY);
    return 0;
}

void copyPath(char (&file)[400], const char* path)
{
    std::strncpy(file, path ? path : "", sizeof file - 1);
    file[sizeof file - 1] = 0;
}

}  // namespace

uint32_t memSourceTime()
{
    return Engine::lastTickTime;
}

// ---------------------------------------------------------------- calls

std::string MemSource::libraryName(const char* module)
{
    return std::string(module) + ".so";
}

namespace {

int callBody(lua_State* L)
{
    auto* c = static_cast<MemSource::Call*>(lua_touserdata(L, 1));
    if (!velmora_getfunction(L, c->module, c->function)) {
        c->found = false;
        return 0;
    }
    int n = 0;
    if (c->passMemory) {
        OclLua::push(L, c->memory);
        ++n;
    }
    if (c->text) {
        lua_pushstring(L, c->text);
        ++n;
    }
    for (int i = 0; i < c->numberCount; ++i) {
        lua_pushnumber(L, c->numbers[i]);
        ++n;
    }
    if (c->pushExtra) n += c->pushExtra(L, c->context);
    lua_call(L, n, c->takeResult ? 1 : 0);
    if (c->takeResult) c->resultOk = c->takeResult(L, c->context);
    return 0;
}

}  // namespace

bool MemSource::call(Call& c)
{
    lua_State* L = ScnLua::processState();
    if (!L) return false;
    const int top = lua_gettop(L);
    const int status = ScnLua::pcall(L, callBody, &c);
    if (status != 0) {
        LogStream(Channels::error(), libraryName(c.module))
            << (lua_isstring(L, -1) ? lua_tostring(L, -1) : "error in a plug-in call");
        lua_settop(L, top);
        return false;
    }
    lua_settop(L, top);
    if (!c.found) {
        LogStream(Channels::error(), libraryName(c.module)) << "Function '" << c.function << "' not found";
        return false;
    }
    return !c.takeResult || c.resultOk;
}

int32_t MemSource::recordField(lua_State* L, const char* key)
{
    lua_getfield(L, -1, key);
    if (!lua_isnumber(L, -1)) luaL_error(L, "getFileInfo: '%s' must be an integer", key);
    const auto v = static_cast<int32_t>(lua_tointeger(L, -1));
    lua_pop(L, 1);
    return v;
}

// ---------------------------------------------------------------- MemSource

void MemSource::open(const char* path)
{
    copyPath(file, path);
}

MemSource::Kind MemSource::classify(const char* path)
{
    if (!path) return Unknown;
    for (int k = 0; k < 3; ++k)
        if (hasExtension(s_extensions[k], path)) return static_cast<Kind>(k + 1);
    return Unknown;
}

bool MemSource::isPly(const char* path)
{
    return path && hasExtension(s_extensions[3], path);
}

void MemSource::registerSources(lua_State* L)
{
    if (!L) return;
    if (ScnLua::pcall(L, publishBody, nullptr) != 0) {
        LogStream(Channels::error(), "MemSource") << lua_tostring(L, -1);
        lua_pop(L, 1);
    }
    for (int k = 0; k < 4; ++k) {
        s_extensions[k].clear();
        ExtCall call{kModules[k], &s_extensions[k]};
        const int top = lua_gettop(L);
        if (ScnLua::pcall(L, extBody, &call) != 0)
            LogStream(Channels::error(), MemSource::libraryName(kModules[k]))
                << (lua_isstring(L, -1) ? lua_tostring(L, -1) : "error in getFileExt");
        else if (!call.found)
            LogStream(Channels::error(), MemSource::libraryName(kModules[k])) << "Function 'getFileExt' not found";
        lua_settop(L, top);
    }
}

// ---------------------------------------------------------------- images

namespace {

bool takeImageInfo(lua_State* L, void* context)
{
    if (!lua_istable(L, -1)) return false;
    MemImageInfo r;
    r.image_width = MemSource::recordField(L, "image_width");
    r.image_height = MemSource::recordField(L, "image_height");
    r.image_channel_data_type = MemSource::recordField(L, "image_channel_data_type");
    r.image_channel_order = MemSource::recordField(L, "image_channel_order");
    *static_cast<MemImageInfo*>(context) = r;
    return true;
}

bool takeVideoInfo(lua_State* L, void* context)
{
    if (!lua_istable(L, -1)) return false;
    MemVideoInfo r;
    r.image_width = MemSource::recordField(L, "image_width");
    r.image_height = MemSource::recordField(L, "image_height");
    r.frame_count = MemSource::recordField(L, "frame_count");
    r.frame_rate = MemSource::recordField(L, "frame_rate");
    r.image_channel_data_type = MemSource::recordField(L, "image_channel_data_type");
    r.image_channel_order = MemSource::recordField(L, "image_channel_order");
    *static_cast<MemVideoInfo*>(context) = r;
    return true;
}

bool takeVolumeInfo(lua_State* L, void* context)
{
    if (!lua_istable(L, -1)) return false;
    MemVolumeInfo r;
    r.image_width = MemSource::recordField(L, "image_width");
    r.image_height = MemSource::recordField(L, "image_height");
    r.image_depth = MemSource::recordField(L, "image_depth");
    r.image_channel_data_type = MemSource::recordField(L, "image_channel_data_type");
    r.image_channel_order = MemSource::recordField(L, "image_channel_order");
    *static_cast<MemVolumeInfo*>(context) = r;
    return true;
}

bool takeHandle(lua_State* L, void* context)
{
    *static_cast<int32_t*>(context) = lua_isnumber(L, -1) ? static_cast<int32_t>(lua_tointeger(L, -1)) : -1;
    return true;
}

}  // namespace

void MemSourceImage::read()
{
    MemSource::Call c{"image", "read"};
    c.memory = memory;
    c.passMemory = true;
    c.text = file;
    MemSource::call(c);
}

bool MemSourceImage::getFileInfo(const char* path)
{
    MemSource::Call c{"image", "getFileInfo"};
    c.text = path;
    c.takeResult = takeImageInfo;
    c.context = &info;
    return MemSource::call(c);
}

// ---------------------------------------------------------------- videos

MemSourceVideo::~MemSourceVideo()
{
    // A video still open holds the plug-in's decoder.
    if (handle >= 0) close();
}

bool MemSourceVideo::fileInfoOfHandle()
{
    MemSource::Call c{"video", "getFileInfo"};
    c.numbers[0] = handle;
    c.numberCount = 1;
    c.takeResult = takeVideoInfo;
    c.context = &info;
    return MemSource::call(c);
}

void MemSourceVideo::open(const char* path)
{
    MemSource::open(path);
    if (handle >= 0) close();
    MemSource::Call c{"video", "open"};
    c.text = file;
    c.takeResult = takeHandle;
    c.context = &handle;
    if (MemSource::call(c) && handle < 0)
        LogStream(Channels::error(), libraryName("video")) << "unable to open video " << file;
    // A handle of -1 goes on to the later calls as it is; they report it.
    fileInfoOfHandle();
    frame = 0;
    lastTime = memSourceTime();
}

void MemSourceVideo::read()
{
    MemSource::Call c{"video", "read"};
    c.memory = memory;
    c.passMemory = true;
    c.numbers[0] = handle;
    c.numbers[1] = frame;
    c.numberCount = 2;
    MemSource::call(c);
    if (!playing || info.frame_rate <= 0) return;
    const uint32_t now = memSourceTime();
    const uint32_t elapsed = now - lastTime;
    const uint32_t steps = elapsed / static_cast<uint32_t>(info.frame_rate);
    if (steps == 0) return;
    // The rest of the time counts toward the next step.
    lastTime = now - elapsed % static_cast<uint32_t>(info.frame_rate);
    if (info.frame_count > 0)
        frame = static_cast<int32_t>((static_cast<uint64_t>(frame < 0 ? 0 : frame) + steps) %
                                     static_cast<uint64_t>(info.frame_count));
}

void MemSourceVideo::close()
{
    MemSource::Call c{"video", "close"};
    c.numbers[0] = handle;
    c.numberCount = 1;
    MemSource::call(c);
    handle = -1;
}

void MemSourceVideo::play()
{
    lastTime = memSourceTime();
    playing = true;
}

bool MemSourceVideo::getFileInfo(const char* path)
{
    int32_t h = -1;
    MemSource::Call open{"video", "open"};
    open.text = path;
    open.takeResult = takeHandle;
    open.context = &h;
    if (!MemSource::call(open) || h < 0) return false;
    MemSource::Call get{"video", "getFileInfo"};
    get.numbers[0] = h;
    get.numberCount = 1;
    get.takeResult = takeVideoInfo;
    get.context = &info;
    const bool ok = MemSource::call(get);
    MemSource::Call close{"video", "close"};
    close.numbers[0] = h;
    close.numberCount = 1;
    MemSource::call(close);
    return ok;
}

// ---------------------------------------------------------------- volumes

void MemSourceVolume::open(const char* path)
{
    MemSource::open(path);
    if (char* dot = std::strrchr(file, '.')) *dot = 0;
}

void MemSourceVolume::read()
{
    MemSource::Call c{"volume", "read"};
    c.memory = memory;
    c.passMemory = true;
    c.text = file;
    MemSource::call(c);
}

bool MemSourceVolume::getFileInfo(const char* path)
{
    MemSource::Call c{"volume", "getFileInfo"};
    c.text = path;
    c.takeResult = takeVolumeInfo;
    c.context = &info;
    return MemSource::call(c);
}

void MemSource::workspacePath(const char* name, char (&out)[400])
{
    if (name[0] == '/') std::snprintf(out, sizeof out, "%s", name);
    else std::snprintf(out, sizeof out, "%s/%s", AppGlobal::projectPath().c_str(), name);
}

bool MemSource::pictureSize(Kind kind, const char* path, int32_t& width, int32_t& height)
{
    if (kind == Image) {
        MemSourceImage probe(nullptr);
        if (!probe.getFileInfo(path)) return false;
        width = probe.info.image_width, height = probe.info.image_height;
        return true;
    }
    if (kind != Video) return false;
    MemSourceVideo probe(nullptr);
    if (!probe.getFileInfo(path)) return false;
    width = probe.info.image_width, height = probe.info.image_height;
    return true;
}

// ---------------------------------------------------------------- script methods

namespace MemSourceScript {

// Nothing here owns memory while an error can be raised: the source is made
// after the last check, and the path is a fixed block.
int setSource(lua_State* L, oclImage2D* object, MemSource*& source, const char* nodeName)
{
    if (lua_type(L, 1) != LUA_TSTRING) return luaL_typerror(L, 1, "file");
    const char* name = lua_tostring(L, 1);
    char path[400];
    MemSource::workspacePath(name, path);
    const MemSource::Kind kind = MemSource::classify(path);
    if (kind == MemSource::Unknown) return luaL_error(L, "unsupported file format: %s", name);
    if (kind != MemSource::Image && kind != MemSource::Video) return luaL_error(L, "unable to read file data: %s", name);
    if (!object) return luaL_error(L, "invalid memory object %s", nodeName);
    int32_t width = 2, height = 2;
    if (!MemSource::pictureSize(kind, path, width, height)) return luaL_error(L, "unable to read file data: %s", name);
    // The node's size fields stay: `dim` keeps them and a rebuild returns to them.
    object->resize(static_cast<size_t>(width > 0 ? width : 1), static_cast<size_t>(height > 0 ? height : 1), nullptr);
    delete source;
    if (kind == MemSource::Image) source = new MemSourceImage(object);
    else source = new MemSourceVideo(object);
    source->open(path);
    source->read();
    return 0;
}

int getFrameCount(lua_State* L, MemSource* source)
{
    if (auto* v = dynamic_cast<MemSourceVideo*>(source)) lua_pushnumber(L, v->info.frame_count);
    else lua_pushnumber(L, dynamic_cast<MemSourceImage*>(source) ? 1 : 0);
    return 1;
}

int setFrame(lua_State* L, MemSource* source)
{
    if (!lua_isnumber(L, 1)) return luaL_argerror(L, 1, "positive number expected");
    if (auto* v = dynamic_cast<MemSourceVideo*>(source)) {
        v->setFrame(static_cast<int>(lua_tonumber(L, 1)));
        v->read();
    }
    return 0;
}

int getFrame(lua_State* L, MemSource* source)
{
    auto* v = dynamic_cast<MemSourceVideo*>(source);
    if (!v) return 0;
    lua_pushnumber(L, v->frame);
    return 1;
}

int play(lua_State*, MemSource* source)
{
    if (auto* v = dynamic_cast<MemSourceVideo*>(source)) v->play();
    return 0;
}

int stop(lua_State*, MemSource* source)
{
    if (auto* v = dynamic_cast<MemSourceVideo*>(source)) v->stop();
    return 0;
}

int isPlaying(lua_State* L, MemSource* source)
{
    auto* v = dynamic_cast<MemSourceVideo*>(source);
    if (!v) return 0;
    lua_pushboolean(L, v->playing);
    return 1;
}

}  // namespace MemSourceScript
