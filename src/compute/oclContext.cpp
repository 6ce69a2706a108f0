// Platforms, contexts and devices.
#include "compute/oclObject.h"

#include <CL/cl_ext.h>

#include <algorithm>
#include <cstring>

const char* const oclVendorNVIDIA = "NVIDIA Corporation";
const char* const oclVendorAMD = "Advanced Micro Devices, Inc.";
const char* const oclVendorIntel = "Intel Corporation";
const char* const oclVendorUnknown = "Unknown Vendor";

oclGLSharingHook oclGLSharingProperties;

namespace {

constexpr cl_uint kMaxPlatforms = 100;
constexpr cl_uint kMaxDevices = 100;
constexpr size_t kVendorSize = 200;

std::vector<cl_platform_id> platformIds()
{
    cl_uint count = 0;
    oclLastError = clGetPlatformIDs(0, nullptr, &count);
    // An ICD loader without any platform answers CL_PLATFORM_NOT_FOUND_KHR:
    // a machine without OpenCL, not a failure worth a message.
    if (oclLastError == CL_PLATFORM_NOT_FOUND_KHR) return {};
    if (!oclCheck("clGetPlatformIDs", nullptr)) return {};
    if (count > kMaxPlatforms) count = kMaxPlatforms;
    std::vector<cl_platform_id> ids(count);
    if (count == 0) return ids;
    oclLastError = clGetPlatformIDs(count, ids.data(), nullptr);
    if (!oclCheck("clGetPlatformIDs", nullptr)) return {};
    return ids;
}

bool platformVendor(cl_platform_id platform, char (&vendor)[kVendorSize])
{
    vendor[0] = '\0';
    oclLastError = clGetPlatformInfo(platform, CL_PLATFORM_VENDOR, kVendorSize, vendor, nullptr);
    vendor[kVendorSize - 1] = '\0';
    return oclCheck("clGetPlatformInfo", nullptr);
}

bool reportsGLSharing(cl_device_id device)
{
    size_t size = 0;
    if (clGetDeviceInfo(device, CL_DEVICE_EXTENSIONS, 0, nullptr, &size) != CL_SUCCESS || size == 0) return false;
    std::string ext(size, '\0');
    if (clGetDeviceInfo(device, CL_DEVICE_EXTENSIONS, size, ext.data(), nullptr) != CL_SUCCESS) return false;
    return oclExtensionListed(ext.c_str(), "cl_khr_gl_sharing");
}

// Whether the driver names a device for the current GL context. Asked only
// when a device declares cl_khr_gl_sharing: some drivers end the process when
// the GL entry points are called without it.
bool glContextHasDevice(cl_platform_id platform, const cl_device_id* devices, cl_uint count,
                        const std::vector<cl_context_properties>& sharing)
{
    bool any = false;
    for (cl_uint i = 0; i < count && !any; ++i) any = reportsGLSharing(devices[i]);
    if (!any) return false;

    auto getInfo = reinterpret_cast<clGetGLContextInfoKHR_fn>(
        clGetExtensionFunctionAddressForPlatform(platform, "clGetGLContextInfoKHR"));
    if (!getInfo) {
        oclMessage(oclErrorHandler, nullptr) << "clGetGLContextInfoKHR is not available: no OpenGL sharing";
        return false;
    }
    cl_device_id glDevice = nullptr;
    size_t returned = 0;
    oclLastError = getInfo(sharing.data(), CL_CURRENT_DEVICE_FOR_GL_CONTEXT_KHR, sizeof glDevice, &glDevice, &returned);
    if (!oclCheck("clGetGLContextInfoKHR", nullptr)) return false;
    return returned != 0;
}

// A context over `devices`, sharing with the current GL context when a GL
// layer supplies one and the driver reports a device for it.
cl_context contextForDevices(cl_platform_id platform, const cl_device_id* devices, cl_uint count, bool& shared)
{
    shared = false;
    const cl_context_properties plain[] = {CL_CONTEXT_PLATFORM, reinterpret_cast<cl_context_properties>(platform), 0};
    std::vector<cl_context_properties> sharing;
    if (oclGLSharingProperties) sharing = oclGLSharingProperties();
    bool share = false;
    if (!sharing.empty()) {
        sharing.push_back(CL_CONTEXT_PLATFORM);
        sharing.push_back(reinterpret_cast<cl_context_properties>(platform));
        sharing.push_back(0);
        share = glContextHasDevice(platform, devices, count, sharing);
    }
    cl_context context = clCreateContext(share ? sharing.data() : plain, count, devices, nullptr, nullptr, &oclLastError);
    if (!oclCheck("clCreateContext", nullptr)) return nullptr;
    shared = share;
    return context;
}

}  // namespace

std::vector<cl_context_properties> oclGLXSharing(void* glContext, void* display)
{
    return {CL_GL_CONTEXT_KHR, reinterpret_cast<cl_context_properties>(glContext), CL_GLX_DISPLAY_KHR,
            reinterpret_cast<cl_context_properties>(display)};
}

std::vector<cl_context_properties> oclEGLSharing(void* glContext, void* display)
{
    return {CL_GL_CONTEXT_KHR, reinterpret_cast<cl_context_properties>(glContext), CL_EGL_DISPLAY_KHR,
            reinterpret_cast<cl_context_properties>(display)};
}

bool oclExtensionListed(const char* extensions, const char* name)
{
    if (!extensions || !name || !*name) return false;
    const size_t n = std::strlen(name);
    for (const char* p = extensions; (p = std::strstr(p, name)) != nullptr; p += n) {
        const bool starts = p == extensions || p[-1] == ' ';
        const bool ends = p[n] == '\0' || p[n] == ' ';
        if (starts && ends) return true;
    }
    return false;
}

const char* oclKnownVendor(const char* vendor)
{
    if (!vendor) return oclVendorUnknown;
    if (std::strcmp(vendor, oclVendorNVIDIA) == 0) return oclVendorNVIDIA;
    if (std::strcmp(vendor, oclVendorAMD) == 0) return oclVendorAMD;
    if (std::strncmp(vendor, oclVendorIntel, 5) == 0) return oclVendorIntel;
    return oclVendorUnknown;
}

std::vector<oclPlatformInfo> oclListPlatforms()
{
    std::vector<oclPlatformInfo> out;
    for (cl_platform_id id : platformIds()) {
        char vendor[kVendorSize];
        if (platformVendor(id, vendor)) out.push_back({id, vendor});
    }
    return out;
}

oclContext* oclCreateContext(const char* vendor, cl_device_type type)
{
    if (!vendor) return nullptr;
    for (cl_platform_id platform : platformIds()) {
        char platformName[kVendorSize];
        if (!platformVendor(platform, platformName)) continue;
        if (std::strncmp(platformName, vendor, 5) != 0) continue;

        cl_context context = nullptr;
        bool shared = false;
        if (type == CL_DEVICE_TYPE_CPU) {
            const cl_context_properties plain[] = {CL_CONTEXT_PLATFORM,
                                                   reinterpret_cast<cl_context_properties>(platform), 0};
            context = clCreateContextFromType(plain, CL_DEVICE_TYPE_CPU, nullptr, nullptr, &oclLastError);
            if (!oclCheck("clCreateContextFromType", nullptr)) context = nullptr;
        } else if (type == CL_DEVICE_TYPE_GPU) {
            cl_device_id devices[kMaxDevices];
            cl_uint count = 0;
            oclLastError = clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, kMaxDevices, devices, &count);
            if (!oclCheck("clGetDeviceIDs", nullptr) || count == 0) continue;
            context = contextForDevices(platform, devices, std::min(count, kMaxDevices), shared);
        }
        if (context) {
            auto* c = new oclContext(context, platformName);
            c->setGLSharing(shared);
            return c;
        }
    }
    return nullptr;
}

oclContext* oclCreateContextForPlatform(cl_platform_id platform)
{
    char vendor[kVendorSize];
    if (!platformVendor(platform, vendor)) return nullptr;

    cl_device_id devices[kMaxDevices];
    cl_uint count = 0;
    for (cl_device_type type : {CL_DEVICE_TYPE_GPU, CL_DEVICE_TYPE_CPU}) {
        oclLastError = clGetDeviceIDs(platform, type, kMaxDevices, devices, &count);
        // No device of this type: try the next type rather than report.
        if (oclLastError == CL_DEVICE_NOT_FOUND) {
            count = 0;
            continue;
        }
        if (!oclCheck("clGetDeviceIDs", nullptr)) return nullptr;
        if (count > 0) break;
    }
    if (count == 0) {
        oclMessage(oclErrorHandler, nullptr) << "Platform " << vendor << " has neither GPU nor CPU devices";
        return nullptr;
    }
    bool shared = false;
    cl_context context = contextForDevices(platform, devices, std::min(count, kMaxDevices), shared);
    if (!context) return nullptr;
    auto* c = new oclContext(context, vendor, true);
    c->setGLSharing(shared);
    return c;
}

// ---------------------------------------------------------------- oclContext

oclContext::oclContext(cl_context context, const char* vendor, bool ownVendorName)
    : oclObject(""), m_context(context), m_vendor(oclKnownVendor(vendor))
{
    if (m_vendor == oclVendorUnknown && ownVendorName && vendor) {
        m_vendorCopy = vendor;
        m_vendor = m_vendorCopy.c_str();
    }
    m_name = m_vendor;

    size_t size = 0;
    oclLastError = clGetContextInfo(m_context, CL_CONTEXT_DEVICES, 0, nullptr, &size);
    if (!oclCheck("clGetContextInfo", this)) return;
    std::vector<cl_device_id> ids(size / sizeof(cl_device_id));
    oclLastError = clGetContextInfo(m_context, CL_CONTEXT_DEVICES, size, ids.data(), nullptr);
    if (!oclCheck("clGetContextInfo", this)) return;
    for (cl_device_id id : ids) m_devices.push_back(new oclDevice(this, id));
}

oclContext::~oclContext()
{
    for (oclDevice* d : m_devices) delete d;
}

// ---------------------------------------------------------------- oclDevice

oclDevice::oclDevice(oclContext* context, cl_device_id device) : oclObject(""), m_context(context), m_device(device)
{
    size_t size = 0;
    oclLastError = clGetDeviceInfo(device, CL_DEVICE_NAME, 0, nullptr, &size);
    if (oclCheck("clGetDeviceInfo", this) && size > 0) {
        m_deviceName.assign(size, '\0');
        oclLastError = clGetDeviceInfo(device, CL_DEVICE_NAME, size, m_deviceName.data(), nullptr);
        if (oclCheck("clGetDeviceInfo", this)) m_deviceName.resize(std::strlen(m_deviceName.c_str()));
        else m_deviceName.clear();
        m_name = m_deviceName.c_str();
    }

    // One in-order queue per device, always able to profile kernels.
    m_queue = clCreateCommandQueue(context->handle(), device, CL_QUEUE_PROFILING_ENABLE, &oclLastError);
    if (!oclCheck("clCreateCommandQueue", this)) m_queue = nullptr;
}

void oclContext::finishAll() const
{
    for (oclDevice* d : m_devices)
        if (d && d->queue()) clFinish(d->queue());
}
