// The script module `cl`: the OpenCL calls a frame of an application needs,
// under the names of the functions they wrap. A script never names a queue:
// all work goes to device 0 of the context of the object at hand.
//
// Every function is a lua_CFunction whose errors leave by longjmp, so
// nothing in them owns memory or has a destructor to run.
#include "compute/ClModule.h"

#include <cstring>

#include <lua.hpp>

#include "compute/OclLua.h"
#include "compute/oclObject.h"
#include "memory/MemGLShared.h"
#include "memory/MemObjects.h"
#include "runtime/LuaExt.h"

namespace {

constexpr int kMaxSizes = 100;
size_t s_global[kMaxSizes];
size_t s_local[kMaxSizes];

oclObject* toObject(lua_State* L, int idx)
{
    return OclLua::to(L, idx);
}

template <class T>
T* toA(lua_State* L, int idx)
{
    return dynamic_cast<T*>(toObject(L, idx));
}

template <class T>
T* checkA(lua_State* L, int idx, const char* expected)
{
    T* o = toA<T>(L, idx);
    if (!o) luaL_typerror(L, idx, expected);
    return o;
}

cl_command_queue queueOf(oclContext* context)
{
    oclDevice* d = context ? context->device(0) : nullptr;
    return d && d->hasQueue() ? d->queue() : nullptr;
}

oclContext* contextOf(oclKernel* k)
{
    return k->parent() ? k->parent()->context() : nullptr;
}

// Raises the error of a failed call; returns normally when it succeeded.
void check(lua_State* L, const char* api, oclKernel* kernel = nullptr)
{
    if (oclLastError == CL_SUCCESS) return;
    if (kernel)
        luaL_error(L, "(%s) : error calling %s : %s", kernel->name(), api, oclErrorString());
    else
        luaL_error(L, "error calling %s : %s", api, oclErrorString());
}

void checkValid(lua_State* L, oclMem* m)
{
    if (!m->mem) luaL_error(L, "invalid memory object %s", m->name());
}

// Up to `max` entries of the table at `idx` into `out`, truncated; the
// count copied.
int copySizes(lua_State* L, int idx, size_t* out, int max)
{
    const int n = static_cast<int>(lua_objlen(L, idx));
    int copied = 0;
    for (int i = 1; i <= n && copied < max; ++i) {
        lua_rawgeti(L, idx, i);
        const lua_Number v = lua_tonumber(L, -1);
        out[copied++] = v > 0 ? static_cast<size_t>(v) : 0;
        lua_pop(L, 1);
    }
    return copied;
}

// A table of up to three numbers into `out` (entries left as they were
// when missing).
void tableOf3(lua_State* L, int idx, size_t (&out)[3], const char* expected)
{
    if (!lua_istable(L, idx)) luaL_typerror(L, idx, expected);
    for (int i = 0; i < 3; ++i) {
        lua_rawgeti(L, idx, i + 1);
        if (lua_isnumber(L, -1)) {
            const lua_Number v = lua_tonumber(L, -1);
            out[i] = v > 0 ? static_cast<size_t>(v) : 0;
        }
        lua_pop(L, 1);
    }
}

size_t numberArg(lua_State* L, int idx, const char* expected)
{
    if (!lua_isnumber(L, idx)) luaL_typerror(L, idx, expected);
    const lua_Number v = lua_tonumber(L, idx);
    return v > 0 ? static_cast<size_t>(v) : 0;
}

// ---------------------------------------------------------------- kernel arguments

template <class T>
T componentAt(lua_State* L, int idx)
{
    return lua_isnumber(L, idx) ? MemProxyDetail::fromNumber<T>(lua_tonumber(L, idx)) : T{};
}

// N components of T from a table at 4, or from arguments 4 to 3 + N.
template <class T, int N>
void vectorValue(lua_State* L, unsigned char* out)
{
    T v[N] = {};
    if (lua_istable(L, 4)) {
        for (int i = 0; i < N; ++i) {
            lua_rawgeti(L, 4, i + 1);
            v[i] = componentAt<T>(L, -1);
            lua_pop(L, 1);
        }
    } else {
        for (int i = 0; i < N; ++i) v[i] = componentAt<T>(L, 4 + i);
    }
    std::memcpy(out, v, sizeof v);
}

template <class T>
void scalarValue(lua_State* L, unsigned char* out)
{
    if (!lua_isnumber(L, 4)) luaL_typerror(L, 4, "number");
    const T v = MemProxyDetail::fromNumber<T>(lua_tonumber(L, 4));
    std::memcpy(out, &v, sizeof v);
}

int clSetKernelArgL(lua_State* L)
{
    oclKernel* k = checkA<oclKernel>(L, 1, "kernel");
    if (!lua_isnumber(L, 2)) return luaL_typerror(L, 2, "cl_uint");
    const auto index = static_cast<cl_uint>(lua_tonumber(L, 2));
    if (oclMem* m = toA<oclMem>(L, 3)) {
        checkValid(L, m);
        oclLastError = clSetKernelArg(k->handle(), index, sizeof(cl_mem), &m->mem);
        check(L, "clSetKernelArg", k);
        k->noteArgument(index, m);
        return 0;
    }
    if (!lua_isnumber(L, 3)) return luaL_typerror(L, 3, "buffer object");
    if (lua_gettop(L) < 4) {
        // A __local argument: the size only.
        oclLastError = clSetKernelArg(k->handle(), index, numberArg(L, 3, "buffer object"), nullptr);
        check(L, "clSetKernelArg", k);
        k->noteArgument(index, nullptr);
        return 0;
    }
    const lua_Number code = lua_tonumber(L, 3);
    unsigned char value[32] = {};
    using namespace MemTypes;
    const uint32_t c = code >= 0 && code < kCount ? static_cast<uint32_t>(code) : 99;
    switch (c) {
    case Char: case UChar:
        if (lua_type(L, 4) == LUA_TNUMBER) value[0] = MemProxyDetail::fromNumber<cl_uchar>(lua_tonumber(L, 4));
        else if (lua_type(L, 4) == LUA_TBOOLEAN) value[0] = lua_toboolean(L, 4) ? 1 : 0;
        else if (lua_type(L, 4) == LUA_TSTRING) value[0] = static_cast<unsigned char>(lua_tostring(L, 4)[0]);
        else return luaL_typerror(L, 4, "number");
        break;
    case Short: scalarValue<cl_short>(L, value); break;
    case UShort: case Half: scalarValue<cl_ushort>(L, value); break;
    case Int: scalarValue<cl_int>(L, value); break;
    case UInt: scalarValue<cl_uint>(L, value); break;
    case Float: scalarValue<cl_float>(L, value); break;
    case Double: scalarValue<cl_double>(L, value); break;
    case Char4: vectorValue<cl_char, 4>(L, value); break;
    case UChar4: vectorValue<cl_uchar, 4>(L, value); break;
    case Short4: vectorValue<cl_short, 4>(L, value); break;
    case UShort4: vectorValue<cl_ushort, 4>(L, value); break;
    case Int4: vectorValue<cl_int, 4>(L, value); break;
    case UInt4: vectorValue<cl_uint, 4>(L, value); break;
    case Float4: vectorValue<cl_float, 4>(L, value); break;
    case Double4: vectorValue<cl_double, 4>(L, value); break;
    case Char2: vectorValue<cl_char, 2>(L, value); break;
    case UChar2: vectorValue<cl_uchar, 2>(L, value); break;
    case Short2: vectorValue<cl_short, 2>(L, value); break;
    case UShort2: vectorValue<cl_ushort, 2>(L, value); break;
    case Int2: vectorValue<cl_int, 2>(L, value); break;
    case UInt2: vectorValue<cl_uint, 2>(L, value); break;
    case Float2: vectorValue<cl_float, 2>(L, value); break;
    case Double2: vectorValue<cl_double, 2>(L, value); break;
    default: return luaL_argerror(L, 3, "argument type not supported");
    }
    oclLastError = clSetKernelArg(k->handle(), index, clTypeSize(c), value);
    check(L, "clSetKernelArg", k);
    k->noteArgument(index, nullptr);
    return 0;
}

// ---------------------------------------------------------------- launches

// A launch with a memory argument whose object was rebuilt or released since
// it was set would hand the driver a dead handle.
void checkArguments(lua_State* L, oclKernel* k)
{
    const int stale = k->staleArgument();
    if (stale >= 0)
        luaL_error(L, "%s: argument %d names a memory object that was rebuilt or released; set it again",
                   k->name(), stale);
    // Memory shared with OpenGL belongs to OpenCL only between acquire and
    // release; a launch outside that would see another state on each road.
    for (size_t i = 0; i < k->argumentSlots(); ++i) {
        auto* shared = dynamic_cast<MemGLShared*>(const_cast<oclMem*>(k->memArgument(i)));
        if (shared && !shared->acquired())
            luaL_error(L, "%s: argument %d is shared with OpenGL and not acquired: call cl.clEnqueueAcquireGLObjects first",
                       k->name(), static_cast<int>(i));
    }
}

// After a launch: objects shared with OpenGL that the kernel may write go
// back to OpenGL at their release.
void noteWrites(oclKernel* k)
{
    for (size_t i = 0; i < k->argumentSlots(); ++i) {
        auto* shared = dynamic_cast<MemGLShared*>(const_cast<oclMem*>(k->memArgument(i)));
        if (shared && k->argumentWritable(static_cast<cl_uint>(i))) shared->noteWrite();
    }
}

// A transfer or copy into `m` changes what a release hands back.
void noteWrite(oclMem* m)
{
    if (auto* shared = dynamic_cast<MemGLShared*>(m)) shared->noteWrite();
}

int clEnqueueNDRangeKernelL(lua_State* L)
{
    oclKernel* k = checkA<oclKernel>(L, 1, "cl_kernel");
    if (!lua_isnumber(L, 2)) return luaL_typerror(L, 2, "number");
    const lua_Number dimNumber = lua_tonumber(L, 2);
    const cl_uint dim = dimNumber > 0 ? static_cast<cl_uint>(dimNumber) : 0;
    if (!lua_istable(L, 3)) return luaL_typerror(L, 3, "worksize dimension table");
    if (static_cast<cl_uint>(copySizes(L, 3, s_global, kMaxSizes)) < dim)
        return luaL_argerror(L, 1, "global worksize array size < workdim");
    const size_t* local = nullptr;
    if (lua_istable(L, 4)) {
        if (static_cast<cl_uint>(copySizes(L, 4, s_local, kMaxSizes)) < dim)
            return luaL_argerror(L, 1, "local worksize array size < workdim");
        local = s_local;
    }
    checkArguments(L, k);
    cl_command_queue q = queueOf(contextOf(k));
    if (!q) return 0;
    oclLastError = clEnqueueNDRangeKernel(q, k->handle(), dim, nullptr, s_global, local, 0, nullptr, k->prepareEvent());
    check(L, "clEnqueueNDRangeKernel", k);
    noteWrites(k);
    return 0;
}

int clEnqueueTaskL(lua_State* L)
{
    oclKernel* k = checkA<oclKernel>(L, 1, "cl_kernel");
    checkArguments(L, k);
    cl_command_queue q = queueOf(contextOf(k));
    if (!q) return 0;
    oclLastError = clEnqueueTask(q, k->handle(), 0, nullptr, k->prepareEvent());
    check(L, "clEnqueueTask", k);
    noteWrites(k);
    return 0;
}

// Hands an object shared with OpenGL to OpenCL or back: the driver's calls
// where the context shares with OpenGL, copies where it does not. No
// glFinish before and no wait after: the event sweep ends in clFinish.
int glObjects(lua_State* L, bool acquire)
{
    oclMem* m = checkA<oclMem>(L, 1, "memory object");
    checkValid(L, m);
    const char* api = acquire ? "clEnqueueAcquireGLObjects" : "clEnqueueReleaseGLObjects";
    auto* shared = dynamic_cast<MemGLShared*>(m);
    if (!shared) {
        // What a sharing driver answers for an object made without OpenGL.
        oclLastError = CL_INVALID_GL_OBJECT;
        check(L, api);
    }
    cl_command_queue q = queueOf(m->parent());
    if (!q) return 0;
    if (acquire) shared->acquireGL(q);
    else shared->releaseGL(q);
    check(L, api);
    return 0;
}

int clEnqueueAcquireGLObjectsL(lua_State* L)
{
    return glObjects(L, true);
}

int clEnqueueReleaseGLObjectsL(lua_State* L)
{
    return glObjects(L, false);
}

// ---------------------------------------------------------------- maps and transfers

cl_map_flags mapFlagsArg(lua_State* L)
{
    if (!lua_isnumber(L, 2)) luaL_typerror(L, 2, "cl.CL_MAP_READ, cl.CL_MAP_WRITE, cl.CL_MAP_READ_WRITE");
    return static_cast<cl_map_flags>(lua_tonumber(L, 2));
}

int clEnqueueMapBufferL(lua_State* L)
{
    auto* b = checkA<MemTypeBuffer>(L, 1, "OpenCL buffer object");
    const cl_map_flags flags = mapFlagsArg(L);
    return memProxyOf(L, b)->map(L, flags);
}

int clEnqueueMapImageL(lua_State* L)
{
    oclMem* m = checkA<oclMem>(L, 1, "OpenCL image object");
    if (!dynamic_cast<MemTypeImage2D*>(m) && !dynamic_cast<MemTypeImage3D*>(m))
        return luaL_typerror(L, 1, "OpenCL image buffer");
    const cl_map_flags flags = mapFlagsArg(L);
    return memProxyOf(L, m)->map(L, flags);
}

int clEnqueueUnmapMemObjectL(lua_State* L)
{
    oclMem* m = checkA<oclMem>(L, 1, "memory object");
    return memProxyOf(L, m)->unmap(L);
}

int bufferTransfer(lua_State* L, bool toHost)
{
    auto* b = checkA<oclBuffer>(L, 1, "OpenCL image object");
    if (b->mapFlags == 0) return luaL_argerror(L, 1, "image buffer not mapped");
    size_t offset = 0, bytes = b->dim(0);
    if (lua_gettop(L) > 1) {
        offset = numberArg(L, 2, "byte offset");
        bytes = numberArg(L, 3, "bytes to copy");
    }
    // The host side is the mapped block from its start: it holds no more
    // than the whole object.
    if (bytes > b->dim(0)) return luaL_argerror(L, 3, "more bytes than the buffer holds");
    cl_command_queue q = queueOf(b->parent());
    if (!q) return 0;
    if (toHost) {
        oclLastError = clEnqueueReadBuffer(q, b->mem, CL_TRUE, offset, bytes, b->data, 0, nullptr, nullptr);
        check(L, "clEnqueueReadBuffer");
    } else {
        oclLastError = clEnqueueWriteBuffer(q, b->mem, CL_TRUE, offset, bytes, b->data, 0, nullptr, nullptr);
        check(L, "clEnqueueWriteBuffer");
        noteWrite(b);
    }
    return 0;
}

int clEnqueueWriteBufferL(lua_State* L)
{
    return bufferTransfer(L, false);
}

int clEnqueueReadBufferL(lua_State* L)
{
    return bufferTransfer(L, true);
}

// Whole-object extent of an image: depth 1 for 2D.
void extentOf(oclMem* m, size_t (&region)[3])
{
    region[0] = m->dim(0);
    region[1] = m->dim(1);
    region[2] = dynamic_cast<oclImage3D*>(m) ? m->dim(2) : 1;
}

bool isImage(oclMem* m)
{
    return dynamic_cast<oclImage2D*>(m) || dynamic_cast<oclImage3D*>(m);
}

int imageTransfer(lua_State* L, bool toHost)
{
    oclMem* m = checkA<oclMem>(L, 1, "OpenCL image object");
    if (m->mapFlags == 0) return luaL_argerror(L, 1, "Image buffer not mapped");
    size_t origin[3] = {0, 0, 0}, region[3] = {0, 0, 1};
    size_t rowPitch = 0, slicePitch = 0;
    if (lua_gettop(L) > 1) {
        tableOf3(L, 2, origin, toHost ? "table containing origin" : "3-element table containing origin");
        tableOf3(L, 3, region, toHost ? "table containing region" : "3-element table containing region");
        if (lua_isnumber(L, 4)) rowPitch = numberArg(L, 4, "number");
        if (lua_isnumber(L, 5)) slicePitch = numberArg(L, 5, "number");
    } else {
        extentOf(m, region);
    }
    // The host side is the mapped block: what the pitches address must lie in it.
    const size_t element = m->proxy ? clTypeSize(m->proxy->typeCode()) : 0;
    const size_t row = rowPitch ? rowPitch : region[0] * element;
    const size_t slice = slicePitch ? slicePitch : row * region[1];
    const size_t need = region[0] && region[1] && region[2]
                            ? (region[2] - 1) * slice + (region[1] - 1) * row + region[0] * element
                            : 0;
    if (!m->proxy || need > m->proxy->byteSize()) return luaL_argerror(L, 3, "region larger than the mapped image");
    cl_command_queue q = queueOf(m->parent());
    if (!q) return 0;
    if (toHost) {
        oclLastError = clEnqueueReadImage(q, m->mem, CL_TRUE, origin, region, rowPitch, slicePitch, m->data, 0,
                                          nullptr, nullptr);
        check(L, "clEnqueueReadImage");
    } else {
        oclLastError = clEnqueueWriteImage(q, m->mem, CL_TRUE, origin, region, rowPitch, slicePitch, m->data, 0,
                                           nullptr, nullptr);
        check(L, "clEnqueueWriteImage");
        noteWrite(m);
    }
    return 0;
}

int clEnqueueWriteImageL(lua_State* L)
{
    return imageTransfer(L, false);
}

int clEnqueueReadImageL(lua_State* L)
{
    return imageTransfer(L, true);
}

// ---------------------------------------------------------------- copies

oclBuffer* copyBuffer(lua_State* L, int idx, const char* invalid)
{
    auto* b = checkA<oclBuffer>(L, idx, "OpenCL buffer object");
    if (!b->mem) luaL_argerror(L, idx, invalid);
    return b;
}

oclMem* copyImage(lua_State* L, int idx)
{
    oclMem* m = toA<oclMem>(L, idx);
    if (!m || !isImage(m)) luaL_typerror(L, idx, "OpenCL image object");
    if (!m->mem) luaL_argerror(L, idx, "valid OpenCL image object");
    return m;
}

cl_command_queue sameContextQueue(lua_State* L, oclMem* a, oclMem* b)
{
    if (a->parent() != b->parent()) luaL_error(L, "source and destination buffers are on different platforms");
    return queueOf(a->parent());
}

int clEnqueueCopyBufferL(lua_State* L)
{
    oclBuffer* src = copyBuffer(L, 1, "valid OpenCL buffer object");
    oclBuffer* dst = copyBuffer(L, 2, "not a valid OpenCL buffer object");
    cl_command_queue q = sameContextQueue(L, src, dst);
    size_t srcOffset = 0, dstOffset = 0, bytes = 0;
    if (lua_gettop(L) > 2) {
        srcOffset = numberArg(L, 3, "number");
        dstOffset = numberArg(L, 4, "number");
        bytes = numberArg(L, 5, "number");
    } else {
        bytes = src->dim(0) < dst->dim(0) ? src->dim(0) : dst->dim(0);
    }
    if (!q) return 0;
    oclLastError = clEnqueueCopyBuffer(q, src->mem, dst->mem, srcOffset, dstOffset, bytes, 0, nullptr, nullptr);
    check(L, "clEnqueueCopyBuffer");
    noteWrite(dst);
    return 0;
}

int clEnqueueCopyImageL(lua_State* L)
{
    oclMem* src = copyImage(L, 1);
    oclMem* dst = copyImage(L, 2);
    cl_command_queue q = sameContextQueue(L, src, dst);
    size_t srcOrigin[3] = {0, 0, 0}, dstOrigin[3] = {0, 0, 0}, region[3] = {0, 0, 1};
    if (lua_gettop(L) > 2) {
        tableOf3(L, 3, srcOrigin, "table containing start of source region");
        tableOf3(L, 4, dstOrigin, "table containing start of destination region");
        tableOf3(L, 5, region, "table containing region size");
    } else {
        if ((dynamic_cast<oclImage3D*>(src) != nullptr) != (dynamic_cast<oclImage3D*>(dst) != nullptr))
            return luaL_typerror(L, 2, "source, destination and region data");
        size_t a[3], b[3];
        extentOf(src, a);
        extentOf(dst, b);
        for (int i = 0; i < 3; ++i) region[i] = a[i] < b[i] ? a[i] : b[i];
    }
    if (!q) return 0;
    oclLastError = clEnqueueCopyImage(q, src->mem, dst->mem, srcOrigin, dstOrigin, region, 0, nullptr, nullptr);
    check(L, "clEnqueueCopyImage");
    noteWrite(dst);
    return 0;
}

int clEnqueueCopyImageToBufferL(lua_State* L)
{
    oclMem* src = copyImage(L, 1);
    oclBuffer* dst = copyBuffer(L, 2, "not a valid OpenCL buffer object");
    cl_command_queue q = sameContextQueue(L, src, dst);
    size_t origin[3] = {0, 0, 0}, region[3] = {0, 0, 1}, offset = 0;
    if (lua_gettop(L) > 2) {
        tableOf3(L, 3, origin, "table containing origin");
        tableOf3(L, 4, region, "table containing region");
        if (lua_isnumber(L, 5)) offset = numberArg(L, 5, "number");
    } else {
        extentOf(src, region);
    }
    if (!q) return 0;
    oclLastError = clEnqueueCopyImageToBuffer(q, src->mem, dst->mem, origin, region, offset, 0, nullptr, nullptr);
    check(L, "clEnqueueCopyImageToBuffer");
    noteWrite(dst);
    return 0;
}

int clEnqueueCopyBufferToImageL(lua_State* L)
{
    oclBuffer* src = copyBuffer(L, 1, "valid OpenCL buffer object");
    oclMem* dst = copyImage(L, 2);
    cl_command_queue q = sameContextQueue(L, src, dst);
    size_t origin[3] = {0, 0, 0}, region[3] = {0, 0, 1}, offset = 0;
    if (lua_gettop(L) > 2) {
        offset = numberArg(L, 3, "number");
        tableOf3(L, 4, origin, "table containing origin");
        tableOf3(L, 5, region, "table containing region");
    } else {
        extentOf(dst, region);
    }
    if (!q) return 0;
    oclLastError = clEnqueueCopyBufferToImage(q, src->mem, dst->mem, offset, origin, region, 0, nullptr, nullptr);
    check(L, "clEnqueueCopyBufferToImage");
    noteWrite(dst);
    return 0;
}

int clGetKernelWorkGroupInfoL(lua_State* L)
{
    oclKernel* k = checkA<oclKernel>(L, 1, "kernel");
    const lua_Number what = lua_isnumber(L, 2) ? lua_tonumber(L, 2) : 0;
    if (what != CL_KERNEL_WORK_GROUP_SIZE && what != CL_KERNEL_LOCAL_MEM_SIZE)
        return luaL_typerror(L, 2, "cl.CL_KERNEL_WORK_GROUP_SIZE or cl.CL_KERNEL_LOCAL_MEM_SIZE");
    oclContext* c = contextOf(k);
    oclDevice* d = c ? c->device(0) : nullptr;
    if (!d) return luaL_error(L, "(%s) : error calling %s : %s", k->name(), "clGetKernelWorkGroupInfo", "no device");
    if (what == CL_KERNEL_WORK_GROUP_SIZE) {
        size_t v = 0;
        oclLastError = clGetKernelWorkGroupInfo(k->handle(), d->handle(), CL_KERNEL_WORK_GROUP_SIZE, sizeof v, &v, nullptr);
        check(L, "clGetKernelWorkGroupInfo", k);
        lua_pushnumber(L, static_cast<lua_Number>(v));
    } else {
        cl_ulong v = 0;
        oclLastError = clGetKernelWorkGroupInfo(k->handle(), d->handle(), CL_KERNEL_LOCAL_MEM_SIZE, sizeof v, &v, nullptr);
        check(L, "clGetKernelWorkGroupInfo", k);
        lua_pushnumber(L, static_cast<lua_Number>(v));
    }
    return 1;
}

const luaL_Reg kFunctions[] = {
    {"clSetKernelArg", clSetKernelArgL},
    {"clEnqueueNDRangeKernel", clEnqueueNDRangeKernelL},
    {"clEnqueueTask", clEnqueueTaskL},
    {"clEnqueueAcquireGLObjects", clEnqueueAcquireGLObjectsL},
    {"clEnqueueReleaseGLObjects", clEnqueueReleaseGLObjectsL},
    {"clEnqueueMapBuffer", clEnqueueMapBufferL},
    {"clEnqueueMapImage", clEnqueueMapImageL},
    {"clEnqueueUnmapMemObject", clEnqueueUnmapMemObjectL},
    {"clEnqueueWriteBuffer", clEnqueueWriteBufferL},
    {"clEnqueueReadBuffer", clEnqueueReadBufferL},
    {"clEnqueueCopyBuffer", clEnqueueCopyBufferL},
    {"clEnqueueWriteImage", clEnqueueWriteImageL},
    {"clEnqueueReadImage", clEnqueueReadImageL},
    {"clEnqueueCopyImage", clEnqueueCopyImageL},
    {"clEnqueueCopyImageToBuffer", clEnqueueCopyImageToBufferL},
    {"clEnqueueCopyBufferToImage", clEnqueueCopyBufferToImageL},
    {"clGetKernelWorkGroupInfo", clGetKernelWorkGroupInfoL},
    {nullptr, nullptr},
};

}  // namespace

int ClModule::open(lua_State* L)
{
    luaL_register(L, "cl", kFunctions);
    for (int i = 0; i < MemTypes::kCount; ++i) {
        lua_pushnumber(L, i);
        lua_setfield(L, -2, MemTypes::kNames[i]);
    }
    const struct {
        const char* name;
        int value;
    } constants[] = {
        {"CL_MAP_READ", 1},
        {"CL_MAP_WRITE", 2},
        {"CL_MAP_READWRITE", 3},
        {"CL_KERNEL_WORK_GROUP_SIZE", CL_KERNEL_WORK_GROUP_SIZE},
        {"CL_KERNEL_LOCAL_MEM_SIZE", CL_KERNEL_LOCAL_MEM_SIZE},
    };
    for (const auto& c : constants) {
        lua_pushnumber(L, c.value);
        lua_setfield(L, -2, c.name);
    }
    lua_pop(L, 1);
    return 0;
}
