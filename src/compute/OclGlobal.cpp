#include "compute/OclGlobal.h"

#include <cstring>

#include "compute/OclBuildLog.h"
#include "compute/OclNodes.h"
#include "compute/OclPlugin.h"
#include "compute/oclObject.h"
#include "compute/ClModule.h"
#include "memory/MemNodes.h"
#include "memory/MemTypes.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/ScnLua.h"

namespace OclGlobal {

namespace {

std::vector<oclContext*> s_contexts;
oclContext* s_current = nullptr;
std::string s_currentName;

void errorHandler(char* text, oclObject* object)
{
    LogStream(Channels::error(), object ? object->name() : "") << text;
}

void warningHandler(char* text, oclObject* object)
{
    LogStream(Channels::console(), object ? object->name() : "") << text;
}

void infoHandler(char* text, oclObject* object)
{
    LogStream s(Channels::intro(), "");
    if (object) s << "(" << object->name() << ")";
    s << text;
}

// A failed build's log, addressed to lines of the node's own text: the lines
// of every source but the last come before it.
void buildLogHandler(char* text, oclObject* object)
{
    auto* program = dynamic_cast<oclProgram*>(object);
    if (!program) return;
    OclBuildLog::Build b;
    b.program = program->name();
    b.owner = static_cast<ScnNode*>(program->owner);
    const auto& sources = program->sources();
    for (size_t i = 0; i + 1 < sources.size(); ++i) b.offset += static_cast<int>(sources[i].lines);
    OclBuildLog::handle(program->context() ? program->context()->name() : "", text, b);
}

void add(oclContext* c, bool makeCurrent)
{
    if (!c) return;
    s_contexts.push_back(c);
    if (makeCurrent || !s_current) {
        s_current = c;
        s_currentName = c->name();
    }
}

bool vendorMatches(const std::string& vendor, const char* known)
{
    return vendor.compare(0, 5, std::string(known).substr(0, 5)) == 0;
}

std::string roadLine(oclContext* c)
{
    return std::string("OpenCL context ") + c->name() +
           (c->glSharing() ? ": OpenGL sharing yes, buffers and textures are shared (cl_khr_gl_sharing)"
                           : ": OpenGL sharing no, acquire and release copy between OpenGL and OpenCL");
}

std::string deviceText(cl_device_id id, cl_device_info what)
{
    char value[512] = {};
    clGetDeviceInfo(id, what, sizeof value - 1, value, nullptr);
    return value;
}

}  // namespace

std::vector<std::string> summary()
{
    std::vector<std::string> lines;
    for (const oclPlatformInfo& p : oclListPlatforms()) {
        char name[256] = {}, version[256] = {};
        clGetPlatformInfo(p.id, CL_PLATFORM_NAME, sizeof name - 1, name, nullptr);
        clGetPlatformInfo(p.id, CL_PLATFORM_VERSION, sizeof version - 1, version, nullptr);
        lines.push_back(std::string("platform: ") + name + " (" + p.vendor + "), " + version);
    }
    if (lines.empty()) lines.push_back("platform: none");
    for (oclContext* c : s_contexts) {
        std::string line = std::string("context: ") + c->name() + (c == s_current ? " (current)" : "") +
                           ", sharing with OpenGL: " + (c->glSharing() ? "yes" : "no");
        lines.push_back(line);
        for (size_t i = 0; i < c->deviceCount(); ++i) {
            cl_device_id id = c->device(i)->handle();
            const std::string ext = deviceText(id, CL_DEVICE_EXTENSIONS);
            lines.push_back("  device: " + deviceText(id, CL_DEVICE_NAME) + ", " + deviceText(id, CL_DEVICE_VERSION) +
                            ", cl_khr_gl_sharing: " +
                            (oclExtensionListed(ext.c_str(), "cl_khr_gl_sharing") ? "yes" : "no"));
        }
    }
    return lines;
}

void startContexts()
{
    static bool started = false;
    if (started) return;
    started = true;
    oclInitErrorNames();
    oclErrorHandler = errorHandler;
    oclWarningHandler = warningHandler;
    oclInfoHandler = infoHandler;
    oclBuildLogHandler = buildLogHandler;

    add(oclCreateContext(oclVendorNVIDIA, CL_DEVICE_TYPE_GPU), true);
    add(oclCreateContext(oclVendorAMD, CL_DEVICE_TYPE_GPU), true);
    oclContext* intel = oclCreateContext(oclVendorIntel, CL_DEVICE_TYPE_CPU);
    if (intel) s_contexts.push_back(intel);
    // Platforms of no known vendor (PoCL, Mesa, newer vendor names) get a
    // context of their own, current when nothing else is.
    for (const oclPlatformInfo& p : oclListPlatforms()) {
        if (vendorMatches(p.vendor, oclVendorNVIDIA) || vendorMatches(p.vendor, oclVendorAMD) ||
            vendorMatches(p.vendor, oclVendorIntel))
            continue;
        add(oclCreateContextForPlatform(p.id), false);
    }
    // Which road memory shared with OpenGL takes, once per context.
    for (oclContext* c : s_contexts) VTRACE(roadLine(c));
    // Said once, so that a run without compute is not a puzzle.
    if (s_contexts.empty())
        LogStream(Channels::console(), "OpenCL") << "no OpenCL platform found: compute nodes are not built";
}

const std::vector<oclContext*>& contexts()
{
    return s_contexts;
}

oclContext* currentContext()
{
    return s_current;
}

const std::string& currentContextName()
{
    return s_currentName;
}

oclContext* findContext(const std::string& name)
{
    for (oclContext* c : s_contexts)
        if (std::strncmp(c->name(), name.c_str(), 5) == 0) return c;
    return nullptr;
}

std::vector<std::string> deviceInfo(oclDevice* device)
{
    std::vector<std::string> lines;
    if (!device) return lines;
    cl_device_id id = device->handle();
    char buf[1100];
    auto text = [&](const char* label, cl_device_info what) {
        char value[1024] = {};
        clGetDeviceInfo(id, what, sizeof value - 1, value, nullptr);
        std::snprintf(buf, sizeof buf, "%s : %s", label, value);
        lines.push_back(buf);
    };
    auto u32 = [&](const char* label, cl_device_info what) {
        cl_uint v = 0;
        clGetDeviceInfo(id, what, sizeof v, &v, nullptr);
        std::snprintf(buf, sizeof buf, "%s : %u", label, v);
        lines.push_back(buf);
    };
    auto size = [&](const char* label, cl_device_info what) {
        size_t v = 0;
        clGetDeviceInfo(id, what, sizeof v, &v, nullptr);
        std::snprintf(buf, sizeof buf, "%s : %u", label, static_cast<unsigned>(v));
        lines.push_back(buf);
    };
    auto u64 = [&](const char* label, cl_device_info what, int shift, const char* unit) {
        cl_ulong v = 0;
        clGetDeviceInfo(id, what, sizeof v, &v, nullptr);
        std::snprintf(buf, sizeof buf, "%s : %u %s", label, static_cast<unsigned>(v >> shift), unit);
        lines.push_back(buf);
    };
    auto yes = [&](const char* label, cl_device_info what, const char* on, const char* off) {
        cl_uint v = 0;
        clGetDeviceInfo(id, what, sizeof v, &v, nullptr);
        std::snprintf(buf, sizeof buf, "%s : %s", label, v == 1 ? on : off);
        lines.push_back(buf);
    };
    cl_device_type type = 0;
    clGetDeviceInfo(id, CL_DEVICE_TYPE, sizeof type, &type, nullptr);
    std::string types;
    if (type & CL_DEVICE_TYPE_CPU) types += "CPU ";
    if (type & CL_DEVICE_TYPE_GPU) types += "GPU ";
    if (type & CL_DEVICE_TYPE_ACCELERATOR) types += "ACCELERATOR ";
    if (type & CL_DEVICE_TYPE_DEFAULT) types += "DEFAULT ";
    if (!types.empty()) types.pop_back();
    lines.push_back("CL_DEVICE_TYPE : " + types);
    text("CL_DEVICE_VENDOR", CL_DEVICE_VENDOR);
    text("CL_DRIVER_VERSION", CL_DRIVER_VERSION);
    u32("CL_DEVICE_MAX_COMPUTE_UNITS", CL_DEVICE_MAX_COMPUTE_UNITS);
    u32("CL_DEVICE_MAX_WORK_ITEM_DIMENSIONS", CL_DEVICE_MAX_WORK_ITEM_DIMENSIONS);
    size_t sizes[3] = {};
    size_t got = 0;
    size_t all[64] = {};
    clGetDeviceInfo(id, CL_DEVICE_MAX_WORK_ITEM_SIZES, sizeof all, all, &got);
    for (int i = 0; i < 3; ++i) sizes[i] = all[i];
    std::snprintf(buf, sizeof buf, "CL_DEVICE_MAX_WORK_ITEM_SIZES : %u, %u, %u", static_cast<unsigned>(sizes[0]),
                  static_cast<unsigned>(sizes[1]), static_cast<unsigned>(sizes[2]));
    lines.push_back(buf);
    size("CL_DEVICE_MAX_WORK_GROUP_SIZE", CL_DEVICE_MAX_WORK_GROUP_SIZE);
    u32("CL_DEVICE_MAX_CLOCK_FREQUENCY", CL_DEVICE_MAX_CLOCK_FREQUENCY);
    u32("CL_DEVICE_ADDRESS_BITS", CL_DEVICE_ADDRESS_BITS);
    u64("CL_DEVICE_MAX_MEM_ALLOC_SIZE", CL_DEVICE_MAX_MEM_ALLOC_SIZE, 20, "MB");
    u64("CL_DEVICE_GLOBAL_MEM_SIZE", CL_DEVICE_GLOBAL_MEM_SIZE, 20, "MB");
    yes("CL_DEVICE_ERROR_CORRECTION_SUPPORT", CL_DEVICE_ERROR_CORRECTION_SUPPORT, "yes", "no");
    yes("CL_DEVICE_LOCAL_MEM_TYPE", CL_DEVICE_LOCAL_MEM_TYPE, "local", "global");
    u64("CL_DEVICE_LOCAL_MEM_SIZE", CL_DEVICE_LOCAL_MEM_SIZE, 10, "KB");
    u64("CL_DEVICE_MAX_CONSTANT_BUFFER_SIZE", CL_DEVICE_MAX_CONSTANT_BUFFER_SIZE, 10, "KB");
    yes("CL_DEVICE_IMAGE_SUPPORT", CL_DEVICE_IMAGE_SUPPORT, "yes", "no");
    u32("CL_DEVICE_MAX_READ_IMAGE_ARGS", CL_DEVICE_MAX_READ_IMAGE_ARGS);
    u32("CL_DEVICE_MAX_WRITE_IMAGE_ARGS", CL_DEVICE_MAX_WRITE_IMAGE_ARGS);
    size("CL_DEVICE_IMAGE2D_MAX_WIDTH", CL_DEVICE_IMAGE2D_MAX_WIDTH);
    size("CL_DEVICE_IMAGE2D_MAX_HEIGHT", CL_DEVICE_IMAGE2D_MAX_HEIGHT);
    size("CL_DEVICE_IMAGE3D_MAX_WIDTH", CL_DEVICE_IMAGE3D_MAX_WIDTH);
    size("CL_DEVICE_IMAGE3D_MAX_HEIGHT", CL_DEVICE_IMAGE3D_MAX_HEIGHT);
    size("CL_DEVICE_IMAGE3D_MAX_DEPTH", CL_DEVICE_IMAGE3D_MAX_DEPTH);
    u32("CL_DEVICE_PREFERRED_VECTOR_WIDTH_CHAR", CL_DEVICE_PREFERRED_VECTOR_WIDTH_CHAR);
    u32("CL_DEVICE_PREFERRED_VECTOR_WIDTH_SHORT", CL_DEVICE_PREFERRED_VECTOR_WIDTH_SHORT);
    u32("CL_DEVICE_PREFERRED_VECTOR_WIDTH_INT", CL_DEVICE_PREFERRED_VECTOR_WIDTH_INT);
    u32("CL_DEVICE_PREFERRED_VECTOR_WIDTH_LONG", CL_DEVICE_PREFERRED_VECTOR_WIDTH_LONG);
    u32("CL_DEVICE_PREFERRED_VECTOR_WIDTH_FLOAT", CL_DEVICE_PREFERRED_VECTOR_WIDTH_FLOAT);
    u32("CL_DEVICE_PREFERRED_VECTOR_WIDTH_DOUBLE", CL_DEVICE_PREFERRED_VECTOR_WIDTH_DOUBLE);
    return lines;
}

}  // namespace OclGlobal

namespace {

const char* const kChannelTypes[] = {"CL_SNORM_INT8", "CL_SNORM_INT16", "CL_UNORM_INT8", "CL_UNORM_INT16",
                                     "CL_UNORM_SHORT_565", "CL_UNORM_SHORT_555", "CL_UNORM_INT_101010",
                                     "CL_SIGNED_INT8", "CL_SIGNED_INT16", "CL_SIGNED_INT32", "CL_UNSIGNED_INT8",
                                     "CL_UNSIGNED_INT16", "CL_UNSIGNED_INT32", "CL_HALF_FLOAT", "CL_FLOAT"};
const char* const kChannelOrders[] = {"CL_R", "CL_A", "CL_RG", "CL_RA", "CL_RGB",
                                      "CL_RGBA", "CL_BGRA", "CL_ARGB", "CL_INTENSITY", "CL_LUMINANCE"};

}  // namespace

void OclGlobal::init()
{
    VTRACE("OclGlobal::init()-start");
    ScnLua::openModule(ClModule::open, "cl");
    {
        ScnLua::GcPause gc;
        ScnLua::registerNode<OclDevice>(&ScnGroup::s_type, "OclDevice", 64);
        ScnLua::registerNode<OclPlatform>(&ScnGroup::s_type, "OclPlatform", 64);
        ScnLua::registerNode<OclProgram>(&ScnNode::s_type, "OclProgram", 64);
        ScnLua::registerNode<OclBuffer>(&ScnNode::s_type, "OclBuffer", 64);
        ScnLua::registerNode<OclImage2D>(&ScnNode::s_type, "OclImage2D", 64);
        ScnLua::registerNode<OclImage3D>(&ScnNode::s_type, "OclImage3D", 64);
        ScnLua::registerNode<OclFileRef>(&ScnNode::s_type, "OclFileRef", 64);
        ScnLua::registerNode<OclPlugin>(&ScnNode::s_type, "OclPlugin", 64);
    }
    ScnEnum::registerTable("cl_mem_type", MemTypes::kNames, MemTypes::kCount);
    ScnEnum::registerTable("cl_channel_type", kChannelTypes, 15);
    ScnEnum::registerTable("cl_channel_order", kChannelOrders, 10);
    VTRACE("OclGlobal::init()-done");
}
