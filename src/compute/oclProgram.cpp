// Programs built from source records, and kernels with profiling events.
#include "compute/oclObject.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t kBuildLogSize = 30000;
char s_buildLog[kBuildLogSize];

uint32_t countLines(const char* text)
{
    return text ? static_cast<uint32_t>(std::count(text, text + std::strlen(text), '\n')) : 0;
}

}  // namespace

// ---------------------------------------------------------------- oclProgram

oclProgram::oclProgram(oclContext* context, const char* name, void* owner)
    : oclObject(name, owner), m_context(context), m_ownName(name ? name : "")
{
    // The name is the node's, which a rename may move: keep a copy.
    m_name = m_ownName.c_str();
}

oclProgram::~oclProgram()
{
    if (m_context) m_context->finishAll();
    for (oclKernel* k : m_kernels) delete k;
    m_kernels.clear();
    clearSources();
    if (m_program) {
        oclLastError = clReleaseProgram(m_program);
        oclCheck("clReleaseProgram", this);
    }
}

void oclProgram::addSource(const char* text)
{
    Source s;
    s.file[0] = '\0';
    s.text = text ? text : "";
    s.lines = countLines(s.text);
    m_sources.push_back(s);
}

void oclProgram::addFileSource(const char* file, const char* text)
{
    Source s;
    std::snprintf(s.file, sizeof s.file, "%s", file && *file ? file : "?");
    const size_t n = text ? std::strlen(text) : 0;
    char* copy = new char[n + 1];
    if (n) std::memcpy(copy, text, n);
    copy[n] = '\0';
    s.text = copy;
    s.lines = countLines(copy);
    m_sources.push_back(s);
}

void oclProgram::clearSources()
{
    for (Source& s : m_sources)
        if (s.file[0]) delete[] s.text;
    m_sources.clear();
}

int oclProgram::build()
{
    failed = 0;
    if (m_program) {
        if (m_context) m_context->finishAll();
        oclLastError = clReleaseProgram(m_program);
        m_program = nullptr;
        oclCheck("clReleaseProgram", this);
    }

    std::vector<const char*> texts;
    std::vector<size_t> lengths;
    for (const Source& s : m_sources) {
        texts.push_back(s.text);
        lengths.push_back(std::strlen(s.text));
    }
    m_program = clCreateProgramWithSource(m_context->handle(), static_cast<cl_uint>(texts.size()), texts.data(),
                                          lengths.data(), &oclLastError);
    if (!oclCheck("clCreateProgramWithSource", this)) {
        m_program = nullptr;
        return 0;
    }

    // The argument qualifiers tell which memory a launch may write: an object
    // copied to and from OpenGL is copied back only when a kernel could have
    // changed it.
    oclLastError = clBuildProgram(m_program, 0, nullptr, "-cl-kernel-arg-info", nullptr, nullptr);
    const bool built = oclLastError == CL_SUCCESS;
    if (!built) oclCheck("clBuildProgram", this);

    s_buildLog[0] = '\0';
    oclDevice* dev = m_context->device(0);
    if (dev) {
        const cl_int saved = oclLastError;
        oclLastError =
            clGetProgramBuildInfo(m_program, dev->handle(), CL_PROGRAM_BUILD_LOG, kBuildLogSize, s_buildLog, nullptr);
        if (oclLastError != CL_SUCCESS) s_buildLog[0] = '\0';
        s_buildLog[kBuildLogSize - 1] = '\0';
        oclLastError = saved;
    }
    // A program that builds may still have been warned about: its warnings
    // take the same road as the errors of one that does not.
    if (built && !std::strstr(s_buildLog, "warning")) return 1;
    oclMessage log(oclBuildLogHandler, this);
    log << s_buildLog;
    log.finish();
    return built ? 1 : 0;
}

// ---------------------------------------------------------------- oclKernel

oclKernel::oclKernel(oclProgram* program, cl_kernel kernel) : oclObject("unnamed"), m_program(program)
{
    if (!kernel) return;
    size_t size = 0;
    oclLastError = clGetKernelInfo(kernel, CL_KERNEL_FUNCTION_NAME, 0, nullptr, &size);
    if (!oclCheck("clGetKernelInfo", this)) return;
    m_kernelName.assign(size, '\0');
    oclLastError = clGetKernelInfo(kernel, CL_KERNEL_FUNCTION_NAME, size, m_kernelName.data(), nullptr);
    if (!oclCheck("clGetKernelInfo", this)) return;
    m_kernelName.resize(std::strlen(m_kernelName.c_str()));
    m_name = m_kernelName.c_str();

    oclLastError = clRetainKernel(kernel);
    if (oclCheck("clRetainKernel", this)) m_kernel = kernel;
}

oclKernel::~oclKernel()
{
    if (m_kernel) {
        oclLastError = clReleaseKernel(m_kernel);
        oclCheck("clReleaseKernel", this);
    }
    if (m_event) clReleaseEvent(m_event);
}

void oclKernel::noteArgument(cl_uint index, const oclMem* object)
{
    if (index >= m_memArguments.size()) {
        if (!object) return;
        m_memArguments.resize(index + 1);
    }
    m_memArguments[index] = MemArgument{object, object ? object->generation : 0};
}

int oclKernel::staleArgument() const
{
    for (size_t i = 0; i < m_memArguments.size(); ++i) {
        const MemArgument& a = m_memArguments[i];
        if (a.object && (!oclObject::isLive(a.object) || a.object->generation != a.generation)) return static_cast<int>(i);
    }
    return -1;
}

const oclMem* oclKernel::memArgument(size_t index) const
{
    return index < m_memArguments.size() ? m_memArguments[index].object : nullptr;
}

bool oclKernel::argumentWritable(cl_uint index)
{
    if (index < m_writable.size() && m_writable[index] >= 0) return m_writable[index] == 1;
    bool writable = true;
    cl_kernel_arg_address_qualifier address = 0;
    cl_kernel_arg_access_qualifier access = 0;
    cl_kernel_arg_type_qualifier type = 0;
    // Without the information (a driver that keeps none) the argument counts
    // as written: a needless copy is slow, a missing one is wrong.
    if (m_kernel &&
        clGetKernelArgInfo(m_kernel, index, CL_KERNEL_ARG_ADDRESS_QUALIFIER, sizeof address, &address, nullptr) == CL_SUCCESS &&
        clGetKernelArgInfo(m_kernel, index, CL_KERNEL_ARG_ACCESS_QUALIFIER, sizeof access, &access, nullptr) == CL_SUCCESS &&
        clGetKernelArgInfo(m_kernel, index, CL_KERNEL_ARG_TYPE_QUALIFIER, sizeof type, &type, nullptr) == CL_SUCCESS) {
        writable = address != CL_KERNEL_ARG_ADDRESS_CONSTANT && access != CL_KERNEL_ARG_ACCESS_READ_ONLY &&
                   !(type & CL_KERNEL_ARG_TYPE_CONST);
    }
    if (index >= m_writable.size()) m_writable.resize(index + 1, -1);
    m_writable[index] = writable ? 1 : 0;
    return writable;
}

cl_event* oclKernel::prepareEvent()
{
    if (!m_profiling) {
        m_startTime = 0;
        m_endTime = 0;
        return nullptr;
    }
    if (m_event) {
        oclLastError = clReleaseEvent(m_event);
        oclCheck("clReleaseEvent", this);
    }
    m_event = nullptr;
    return &m_event;
}

uint64_t oclKernel::eventTime(cl_profiling_info what, uint64_t& store)
{
    if (!m_event) return store;
    // Waiting here synchronises the host with the launch being measured.
    clWaitForEvents(1, &m_event);
    cl_ulong t = 0;
    oclLastError = clGetEventProfilingInfo(m_event, what, sizeof t, &t, nullptr);
    if (oclCheck("clGetEventProfilingInfo", this)) store = t;
    return store;
}

uint64_t oclKernel::startTime() { return eventTime(CL_PROFILING_COMMAND_START, m_startTime); }
uint64_t oclKernel::endTime() { return eventTime(CL_PROFILING_COMMAND_END, m_endTime); }
