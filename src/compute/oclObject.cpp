// Error names, the message stream and the replaceable handlers of the OpenCL
// layer. All of it is used from the one thread that owns the GL context.
#include "compute/oclObject.h"

#include <cstdio>
#include <unordered_set>

cl_int oclLastError = CL_SUCCESS;

namespace {

std::unordered_set<const void*>& liveObjects()
{
    // Never destroyed: objects may outlive static destruction.
    static auto* s = new std::unordered_set<const void*>;
    return *s;
}

constexpr int kErrorNames = 64;
const char* s_errorNames[kErrorNames] = {};
bool s_errorNamesReady = false;

void writeDefault(const char* tag, const char* text, oclObject* object)
{
    std::fputs(tag, stdout);
    if (object) {
        std::fputs(object->name(), stdout);
        std::fputc(':', stdout);
    }
    std::fputs(text, stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace

oclObject::oclObject(const char* name, void* owner) : owner(owner), m_name(name ? name : "")
{
    liveObjects().insert(this);
}

void (*oclObject::luaReleaseHook)(oclObject*) = nullptr;

oclObject::~oclObject()
{
    if (luaRef && luaReleaseHook) luaReleaseHook(this);
    liveObjects().erase(this);
}

bool oclObject::isLive(const void* object)
{
    return object && liveObjects().count(object) != 0;
}

void oclInitErrorNames()
{
    // Indexed by the negated status; the macro keeps the names and the header's
    // values from drifting apart.
#define OCL_ERROR_NAME(code) s_errorNames[-(code)] = #code
    OCL_ERROR_NAME(CL_SUCCESS);
    OCL_ERROR_NAME(CL_DEVICE_NOT_FOUND);
    OCL_ERROR_NAME(CL_DEVICE_NOT_AVAILABLE);
    OCL_ERROR_NAME(CL_COMPILER_NOT_AVAILABLE);
    OCL_ERROR_NAME(CL_MEM_OBJECT_ALLOCATION_FAILURE);
    OCL_ERROR_NAME(CL_OUT_OF_RESOURCES);
    OCL_ERROR_NAME(CL_OUT_OF_HOST_MEMORY);
    OCL_ERROR_NAME(CL_PROFILING_INFO_NOT_AVAILABLE);
    OCL_ERROR_NAME(CL_MEM_COPY_OVERLAP);
    OCL_ERROR_NAME(CL_IMAGE_FORMAT_MISMATCH);
    OCL_ERROR_NAME(CL_IMAGE_FORMAT_NOT_SUPPORTED);
    OCL_ERROR_NAME(CL_BUILD_PROGRAM_FAILURE);
    OCL_ERROR_NAME(CL_MAP_FAILURE);
    OCL_ERROR_NAME(CL_INVALID_VALUE);
    OCL_ERROR_NAME(CL_INVALID_DEVICE_TYPE);
    OCL_ERROR_NAME(CL_INVALID_PLATFORM);
    OCL_ERROR_NAME(CL_INVALID_DEVICE);
    OCL_ERROR_NAME(CL_INVALID_CONTEXT);
    OCL_ERROR_NAME(CL_INVALID_QUEUE_PROPERTIES);
    OCL_ERROR_NAME(CL_INVALID_COMMAND_QUEUE);
    OCL_ERROR_NAME(CL_INVALID_HOST_PTR);
    OCL_ERROR_NAME(CL_INVALID_MEM_OBJECT);
    OCL_ERROR_NAME(CL_INVALID_IMAGE_FORMAT_DESCRIPTOR);
    OCL_ERROR_NAME(CL_INVALID_IMAGE_SIZE);
    OCL_ERROR_NAME(CL_INVALID_SAMPLER);
    OCL_ERROR_NAME(CL_INVALID_BINARY);
    OCL_ERROR_NAME(CL_INVALID_BUILD_OPTIONS);
    OCL_ERROR_NAME(CL_INVALID_PROGRAM);
    OCL_ERROR_NAME(CL_INVALID_PROGRAM_EXECUTABLE);
    OCL_ERROR_NAME(CL_INVALID_KERNEL_NAME);
    OCL_ERROR_NAME(CL_INVALID_KERNEL_DEFINITION);
    OCL_ERROR_NAME(CL_INVALID_KERNEL);
    OCL_ERROR_NAME(CL_INVALID_ARG_INDEX);
    OCL_ERROR_NAME(CL_INVALID_ARG_VALUE);
    OCL_ERROR_NAME(CL_INVALID_ARG_SIZE);
    OCL_ERROR_NAME(CL_INVALID_KERNEL_ARGS);
    OCL_ERROR_NAME(CL_INVALID_WORK_DIMENSION);
    OCL_ERROR_NAME(CL_INVALID_WORK_GROUP_SIZE);
    OCL_ERROR_NAME(CL_INVALID_WORK_ITEM_SIZE);
    OCL_ERROR_NAME(CL_INVALID_GLOBAL_OFFSET);
    OCL_ERROR_NAME(CL_INVALID_EVENT_WAIT_LIST);
    OCL_ERROR_NAME(CL_INVALID_EVENT);
    OCL_ERROR_NAME(CL_INVALID_OPERATION);
    OCL_ERROR_NAME(CL_INVALID_GL_OBJECT);
    OCL_ERROR_NAME(CL_INVALID_BUFFER_SIZE);
    OCL_ERROR_NAME(CL_INVALID_MIP_LEVEL);
    OCL_ERROR_NAME(CL_INVALID_GLOBAL_WORK_SIZE);
#undef OCL_ERROR_NAME
    s_errorNamesReady = true;
}

const char* oclErrorString()
{
    if (!s_errorNamesReady) oclInitErrorNames();
    const cl_int e = oclLastError;
    if (e <= 0 && e > -kErrorNames && s_errorNames[-e]) return s_errorNames[-e];
    static char unknown[64];
    std::snprintf(unknown, sizeof unknown, "Unknown OpenCL error: %d", static_cast<int>(e));
    return unknown;
}

bool oclCheck(const char* name, oclObject* object)
{
    if (oclLastError == CL_SUCCESS) return true;
    oclMessage msg(oclErrorHandler, object);
    msg << "Failure in call to " << name << " : " << oclErrorString();
    msg.finish();
    return false;
}

void oclDefaultErrorHandler(char* text, oclObject* object) { writeDefault("(error):", text, object); }
void oclDefaultWarningHandler(char* text, oclObject* object) { writeDefault("(warning):", text, object); }
void oclDefaultInfoHandler(char* text, oclObject* object) { writeDefault("", text, object); }
void oclDefaultBuildLogHandler(char* text, oclObject* object) { writeDefault("(error):", text, object); }

oclHandler oclErrorHandler = oclDefaultErrorHandler;
oclHandler oclWarningHandler = oclDefaultWarningHandler;
oclHandler oclInfoHandler = oclDefaultInfoHandler;
oclHandler oclBuildLogHandler = oclDefaultBuildLogHandler;

oclMessage::oclMessage(oclHandler handler, oclObject* object, const char* file, int line)
    : m_handler(handler), m_object(object)
{
    if (file) *this << '(' << file << ':' << line << "):";
    if (object && handler == oclErrorHandler) object->failed = 1;
}

oclMessage::~oclMessage() { finish(); }

void oclMessage::finish()
{
    if (m_done) return;
    m_done = true;
    if (!m_handler) return;
    // Handlers may edit the text in place (the log parsers cut it into lines).
    const std::string text = str();
    std::vector<char> copy(text.begin(), text.end());
    copy.push_back('\0');
    m_handler(copy.data(), m_object);
}
