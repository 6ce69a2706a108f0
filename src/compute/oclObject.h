// A thin object layer over the OpenCL C API. Every OpenCL handle the program
// holds has exactly one wrapper here that releases it; failures never throw:
// they go through the message handlers below and the call returns false or
// null.
#pragma once

// The layer is written against OpenCL 1.2 entry points (clCreateImage2D/3D,
// clCreateCommandQueue), which every ICD still exports.
#ifndef CL_TARGET_OPENCL_VERSION
#define CL_TARGET_OPENCL_VERSION 120
#endif
#ifndef CL_USE_DEPRECATED_OPENCL_1_1_APIS
#define CL_USE_DEPRECATED_OPENCL_1_1_APIS
#endif
#include <CL/cl.h>
#include <CL/cl_gl.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

class MemProxy;
class oclContext;
class oclProgram;

// ---------------------------------------------------------------- base

class oclObject {
public:
    explicit oclObject(const char* name, void* owner = nullptr);
    virtual ~oclObject();
    oclObject(const oclObject&) = delete;
    oclObject& operator=(const oclObject&) = delete;

    const char* name() const { return m_name; }

    // Scripts hold bare pointers that turn stale when a node rebuilds its
    // object; every pointer from a script is checked against the live set
    // before it is followed.
    static bool isLive(const void* object);

    // The object's one script value, kept in the Lua registry while the
    // object lives (0: none yet). The hook runs at destruction and clears
    // the value, so that a script holding it sees a dead object even when
    // a new object takes the same address.
    int luaRef = 0;
    static void (*luaReleaseHook)(oclObject* object);

    MemProxy* proxy = nullptr;  // typed element access; memory objects only
    void* owner = nullptr;      // the application object this one serves
    int32_t failed = 0;         // set by every error report naming this object

protected:
    const char* m_name;  // never null; not owned here
};

// ---------------------------------------------------------------- errors and messages

// Status of the most recent OpenCL call; every creating call writes into it.
extern cl_int oclLastError;

void oclInitErrorNames();
// Name of oclLastError as the header spells it, or "Unknown OpenCL error: N".
const char* oclErrorString();
// True when oclLastError is 0; otherwise reports
// "Failure in call to NAME : ERRORNAME" through the error handler.
bool oclCheck(const char* name, oclObject* object);

using oclHandler = void (*)(char* text, oclObject* object);
extern oclHandler oclErrorHandler;
extern oclHandler oclWarningHandler;
extern oclHandler oclInfoHandler;
extern oclHandler oclBuildLogHandler;
// The defaults, kept so that a replaced handler can be put back.
void oclDefaultErrorHandler(char* text, oclObject* object);
void oclDefaultWarningHandler(char* text, oclObject* object);
void oclDefaultInfoHandler(char* text, oclObject* object);
void oclDefaultBuildLogHandler(char* text, oclObject* object);

// Collects one message and hands it to `handler` when finished (explicitly or
// at destruction). Reporting through the error handler marks the object failed.
class oclMessage : public std::ostringstream {
public:
    oclMessage(oclHandler handler, oclObject* object, const char* file = nullptr, int line = 0);
    ~oclMessage() override;
    void finish();

private:
    oclHandler m_handler;
    oclObject* m_object;
    bool m_done = false;
};

// ---------------------------------------------------------------- contexts

// Properties that bind a new context to the current GL context, as key/value
// pairs without CL_CONTEXT_PLATFORM and without the closing 0. The GL layer
// installs the hook once its context is current; unset or empty means that no
// GL context is current and contexts are made without sharing.
using oclGLSharingHook = std::function<std::vector<cl_context_properties>()>;
extern oclGLSharingHook oclGLSharingProperties;
std::vector<cl_context_properties> oclGLXSharing(void* glContext, void* display);
std::vector<cl_context_properties> oclEGLSharing(void* glContext, void* display);

// Whether a space-separated extension list names `name` as a whole word.
bool oclExtensionListed(const char* extensions, const char* name);

extern const char* const oclVendorNVIDIA;   // "NVIDIA Corporation"
extern const char* const oclVendorAMD;      // "Advanced Micro Devices, Inc."
extern const char* const oclVendorIntel;    // "Intel Corporation"
extern const char* const oclVendorUnknown;  // "Unknown Vendor"
// The vendor constant a platform vendor string stands for: NVIDIA and AMD by
// the exact string, Intel by its first five characters, else "Unknown Vendor".
const char* oclKnownVendor(const char* vendor);

struct oclPlatformInfo {
    cl_platform_id id;
    std::string vendor;
};
// The platforms (at most 100) with their vendor strings.
std::vector<oclPlatformInfo> oclListPlatforms();

// The first platform whose vendor shares its first five characters with
// `vendor` and gives a context: GPU devices (GL sharing when possible) or a
// CPU context. Null when none does; no platform matching is not an error.
oclContext* oclCreateContext(const char* vendor, cl_device_type type);
// A context on one given platform, for a platform that none of the vendor
// calls took: its GPU devices if it has any, else its CPU devices. The
// context's name is the platform's vendor string.
oclContext* oclCreateContextForPlatform(cl_platform_id platform);

class oclDevice : public oclObject {
public:
    oclDevice(oclContext* context, cl_device_id device);
    oclContext* parent() const { return m_context; }
    cl_device_id handle() const { return m_device; }
    bool hasQueue() const { return m_queue != nullptr; }
    cl_command_queue queue() const { return m_queue; }

private:
    oclContext* m_context;
    cl_device_id m_device;
    cl_command_queue m_queue = nullptr;  // in order, profiling enabled
    std::string m_deviceName;
};

// Contexts, devices and queues live until the process ends: the destructors
// free only the wrappers, never the OpenCL objects.
class oclContext : public oclObject {
public:
    // `ownVendorName`: a vendor outside the three known ones keeps its own
    // string as the name instead of "Unknown Vendor".
    oclContext(cl_context context, const char* vendor, bool ownVendorName = false);
    ~oclContext() override;
    cl_context parent() const { return m_context; }
    cl_context handle() const { return m_context; }
    const char* vendor() const { return m_vendor; }
    oclDevice* device(size_t i) const { return i < m_devices.size() ? m_devices[i] : nullptr; }
    size_t deviceCount() const { return m_devices.size(); }
    // Whether the context was made with the GL context's sharing properties:
    // only then may clCreateFromGL* be called on it. Without sharing, memory
    // shared with OpenGL is an ordinary OpenCL object that acquire and
    // release copy.
    bool glSharing() const { return m_glSharing; }
    void setGLSharing(bool on) { m_glSharing = on; }
    // Waits until every queue of the context is idle: the driver must not
    // release a program, kernel or memory object that a queued command uses.
    void finishAll() const;

private:
    cl_context m_context;
    std::vector<oclDevice*> m_devices;
    const char* m_vendor;
    std::string m_vendorCopy;
    bool m_glSharing = false;
};

// ---------------------------------------------------------------- programs and kernels

class oclKernel;

class oclProgram : public oclObject {
public:
    struct Source {
        char file[400];    // empty: `text` belongs to the caller
        const char* text;  // NUL-terminated
        uint32_t lines;    // newline characters in text
    };

    oclProgram(oclContext* context, const char* name, void* owner = nullptr);
    // Releases the program and deletes the kernels still listed in kernels().
    ~oclProgram() override;

    // Appends a text the caller keeps alive until the next clearSources.
    void addSource(const char* text);
    // Appends a copy of `text` read from `file`; the program owns the copy.
    void addFileSource(const char* file, const char* text);
    void clearSources();
    std::vector<Source>& sources() { return m_sources; }
    std::vector<oclKernel*>& kernels() { return m_kernels; }
    oclContext* context() const { return m_context; }
    cl_program parent() const { return m_program; }
    cl_program handle() const { return m_program; }

    // Compiles all sources, in order, for all devices of the context: 1 on
    // success, 0 on failure (the compiler's log goes to the build-log handler).
    virtual int build();

private:
    cl_program m_program = nullptr;
    oclContext* m_context;
    std::vector<Source> m_sources;
    std::vector<oclKernel*> m_kernels;
    std::string m_ownName;
};

class oclMem;

class oclKernel : public oclObject {
public:
    // Takes its own reference to `kernel`; a null handle gives an inert object.
    oclKernel(oclProgram* program, cl_kernel kernel);
    ~oclKernel() override;
    oclProgram* parent() const { return m_program; }
    cl_kernel handle() const { return m_kernel; }

    void setProfiling(bool on) { m_profiling = on; }
    bool profiling() const { return m_profiling; }
    // The event slot to give the next enqueue, or null while not profiling.
    cl_event* prepareEvent();
    // Device times of the last launch in ns; both wait for it to end.
    uint64_t startTime();
    uint64_t endTime();

    // The kernel keeps a raw cl_mem per memory argument, and a rebuilt or
    // released object leaves it dangling: the arguments are remembered as
    // set, so that a launch can be refused instead of reaching the driver.
    // `object` null: argument `index` is no memory object now.
    void noteArgument(cl_uint index, const oclMem* object);
    // The first memory argument whose object is gone or has another handle
    // since it was set, or -1.
    int staleArgument() const;
    // The memory object set as argument `index`, or null.
    const oclMem* memArgument(size_t index) const;
    size_t argumentSlots() const { return m_memArguments.size(); }
    // Whether the kernel may write what argument `index` names: false for
    // read_only images, const pointers and __constant memory; true when the
    // driver keeps no argument information.
    bool argumentWritable(cl_uint index);

private:
    uint64_t eventTime(cl_profiling_info what, uint64_t& store);

    struct MemArgument {
        const oclMem* object = nullptr;
        uint32_t generation = 0;
    };
    std::vector<MemArgument> m_memArguments;
    std::vector<signed char> m_writable;  // per argument: -1 not asked yet, 0, 1

    oclProgram* m_program;
    cl_kernel m_kernel = nullptr;
    cl_event m_event = nullptr;
    bool m_profiling = false;
    uint64_t m_startTime = 0;
    uint64_t m_endTime = 0;
    std::string m_kernelName;
};

// ---------------------------------------------------------------- memory

// All operations take a device index selecting the context's device and its
// queue. Maps and transfers are blocking.
class oclMem : public oclObject {
public:
    oclMem(oclContext* context, const char* name, void* owner = nullptr) : oclObject(name, owner), m_context(context) {}
    ~oclMem() override;
    oclContext* parent() const { return m_context; }
    cl_mem handle() const { return mem; }
    bool isValid() const { return mem != nullptr; }

    virtual bool map(cl_map_flags flags, int d) = 0;
    // Keeps `data` for CL_MEM_USE_HOST_PTR objects: it is their host store.
    virtual bool unmap(int d);
    virtual void release();
    virtual size_t dim(int axis) = 0;

    // While mapped: the mapped pointer. CL_MEM_USE_HOST_PTR: the host store.
    void* data = nullptr;
    cl_map_flags mapFlags = 0;  // non-zero exactly while mapped
    cl_mem mem = nullptr;
    // Counts every change of `mem`: a driver may hand out a released
    // handle's address again, so the address alone does not tell a new object.
    uint32_t generation = 0;

protected:
    // Reports "Invalid cl_mem" and returns false when there is no handle.
    bool checkHandle();
    cl_command_queue queue(int d) const;
    cl_mem_flags memFlags();

    oclContext* m_context;
};

class oclBuffer : public oclMem {
public:
    oclBuffer(oclContext* context, const char* name, uint32_t extra = 0, void* owner = nullptr)
        : oclMem(context, name, owner), extra(extra) {}

    // Makes the buffer, releasing any previous one.
    bool create(cl_mem_flags flags, size_t size, void* host);
    bool map(cl_map_flags flags, int d) override;
    size_t dim(int axis) override;
    virtual bool read(int d);
    virtual bool write(int d);
    // A new buffer with the same flags; the content does not survive.
    virtual bool resize(size_t size, void* host);
    void release() override;

    uint32_t extra;  // element type code of plug-in buffers, else 0

private:
    cl_mem m_sizedMem = nullptr;  // the cl_mem that m_size belongs to
    size_t m_size = 0;
};

class oclImage2D : public oclMem {
public:
    using oclMem::oclMem;
    bool map(cl_map_flags flags, int d) override;
    size_t dim(int axis) override;
    virtual bool create(cl_mem_flags flags, const cl_image_format* format, size_t width, size_t height, void* host);
    virtual bool read(int d);
    virtual bool write(int d);
    virtual bool resize(size_t width, size_t height, void* host);
    virtual cl_image_format* format(cl_image_format* out);
};

class oclImage3D : public oclMem {
public:
    using oclMem::oclMem;
    bool map(cl_map_flags flags, int d) override;
    size_t dim(int axis) override;
    virtual bool create(cl_mem_flags flags, const cl_image_format* format, size_t width, size_t height, size_t depth,
                        void* host);
    virtual bool read(int d);
    virtual bool write(int d);
    virtual bool resize(size_t width, size_t height, size_t depth, void* host);
    virtual cl_image_format* format(cl_image_format* out);
};
