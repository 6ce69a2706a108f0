// Buffers and images: blocking map, unmap, read and write, and re-creation.
#include "compute/oclObject.h"

// ---------------------------------------------------------------- oclMem

oclMem::~oclMem()
{
    if (mem) {
        if (m_context) m_context->finishAll();
        oclLastError = clReleaseMemObject(mem);
        mem = nullptr;
        oclCheck("clReleaseMemObject", this);
    }
}

bool oclMem::checkHandle()
{
    if (mem) return true;
    oclMessage(oclErrorHandler, this) << "Invalid cl_mem";
    return false;
}

cl_command_queue oclMem::queue(int d) const
{
    oclDevice* dev = m_context ? m_context->device(static_cast<size_t>(d)) : nullptr;
    return dev ? dev->queue() : nullptr;
}

cl_mem_flags oclMem::memFlags()
{
    cl_mem_flags flags = 0;
    oclLastError = clGetMemObjectInfo(mem, CL_MEM_FLAGS, sizeof flags, &flags, nullptr);
    oclCheck("clGetMemObjectInfo", this);
    return flags;
}

bool oclMem::unmap(int d)
{
    if (!mem) return false;
    const cl_mem_flags flags = memFlags();
    oclLastError = clEnqueueUnmapMemObject(queue(d), mem, data, 0, nullptr, nullptr);
    mapFlags = 0;
    // A host-pointer object keeps its host store as `data`.
    if (!(flags & CL_MEM_USE_HOST_PTR)) data = nullptr;
    return oclCheck("clEnqueueUnmapMemObject", this);
}

void oclMem::release()
{
    if (!mem) return;
    const cl_mem_flags flags = memFlags();
    if (m_context) m_context->finishAll();
    oclLastError = clReleaseMemObject(mem);
    mem = nullptr;
    ++generation;
    // Whatever mapping there was went with the object.
    mapFlags = 0;
    if (!(flags & CL_MEM_USE_HOST_PTR)) data = nullptr;
    oclCheck("clReleaseMemObject", this);
}

// ---------------------------------------------------------------- oclBuffer

bool oclBuffer::create(cl_mem_flags flags, size_t size, void* host)
{
    release();
    m_sizedMem = nullptr;
    mem = clCreateBuffer(m_context->handle(), flags, size, host, &oclLastError);
    ++generation;
    if (!oclCheck("clCreateBuffer", this)) {
        mem = nullptr;
        return false;
    }
    if (flags & CL_MEM_USE_HOST_PTR) data = host;
    return true;
}

bool oclBuffer::map(cl_map_flags flags, int d)
{
    if (!checkHandle()) return false;
    size_t size = 0;
    oclLastError = clGetMemObjectInfo(mem, CL_MEM_SIZE, sizeof size, &size, nullptr);
    if (!oclCheck("clGetMemObjectInfo", this)) return false;
    void* p = clEnqueueMapBuffer(queue(d), mem, CL_TRUE, flags, 0, size, 0, nullptr, nullptr, &oclLastError);
    if (!oclCheck("clEnqueueMapBuffer", this)) return false;
    data = p;
    mapFlags = flags;
    return true;
}

size_t oclBuffer::dim(int axis)
{
    if (axis != 0 || !mem) return 0;
    // Element access from scripts asks for the size at every call: it is
    // asked of the driver once per cl_mem.
    if (m_sizedMem == mem) return m_size;
    size_t size = 0;
    oclLastError = clGetMemObjectInfo(mem, CL_MEM_SIZE, sizeof size, &size, nullptr);
    if (!oclCheck("clGetMemObjectInfo", this)) return 0;
    m_sizedMem = mem;
    m_size = size;
    return size;
}

void oclBuffer::release()
{
    m_sizedMem = nullptr;
    oclMem::release();
}

bool oclBuffer::read(int d)
{
    if (!checkHandle()) return false;
    oclLastError = clEnqueueReadBuffer(queue(d), mem, CL_TRUE, 0, dim(0), data, 0, nullptr, nullptr);
    return oclCheck("clEnqueueReadBuffer", this);
}

bool oclBuffer::write(int d)
{
    if (!checkHandle()) return false;
    oclLastError = clEnqueueWriteBuffer(queue(d), mem, CL_TRUE, 0, dim(0), data, 0, nullptr, nullptr);
    return oclCheck("clEnqueueWriteBuffer", this);
}

bool oclBuffer::resize(size_t size, void* host)
{
    if (!checkHandle()) return false;
    const cl_mem_flags flags = memFlags();
    release();
    return create(flags, size, host);
}

// ---------------------------------------------------------------- images

namespace {

size_t imageInfo(oclMem* m, cl_image_info what)
{
    size_t v = 0;
    oclLastError = clGetImageInfo(m->mem, what, sizeof v, &v, nullptr);
    return oclCheck("clGetImageInfo", m) ? v : 0;
}

// Rows come back at the driver's pitch, which every user of `data` takes to
// be packed; the pitches are therefore not kept.
bool mapImage(oclMem* m, cl_command_queue queue, cl_map_flags flags, size_t w, size_t h, size_t depth)
{
    const size_t origin[3] = {0, 0, 0};
    const size_t region[3] = {w, h, depth};
    size_t rowPitch = 0, slicePitch = 0;
    void* p = clEnqueueMapImage(queue, m->mem, CL_TRUE, flags, origin, region, &rowPitch, &slicePitch, 0, nullptr,
                                nullptr, &oclLastError);
    if (!oclCheck("clEnqueueMapImage", m)) return false;
    m->data = p;
    m->mapFlags = flags;
    return true;
}

bool transferImage(oclMem* m, cl_command_queue queue, bool toHost, size_t w, size_t h, size_t depth)
{
    const size_t origin[3] = {0, 0, 0};
    const size_t region[3] = {w, h, depth};
    if (toHost) {
        oclLastError = clEnqueueReadImage(queue, m->mem, CL_TRUE, origin, region, 0, 0, m->data, 0, nullptr, nullptr);
        return oclCheck("clEnqueueReadImage", m);
    }
    oclLastError = clEnqueueWriteImage(queue, m->mem, CL_TRUE, origin, region, 0, 0, m->data, 0, nullptr, nullptr);
    return oclCheck("clEnqueueWriteImage", m);
}

cl_image_format* imageFormat(oclMem* m, cl_image_format* out)
{
    if (!out) return out;
    if (!m->mem) {
        oclMessage(oclErrorHandler, m) << "Invalid cl_mem";
        return out;
    }
    oclLastError = clGetImageInfo(m->mem, CL_IMAGE_FORMAT, sizeof *out, out, nullptr);
    oclCheck("clGetImageInfo", m);
    return out;
}

}  // namespace

bool oclImage2D::create(cl_mem_flags flags, const cl_image_format* format, size_t width, size_t height, void* host)
{
    release();
    mem = clCreateImage2D(m_context->handle(), flags, format, width, height, 0, host, &oclLastError);
    ++generation;
    if (!oclCheck("clCreateImage2D", this)) {
        mem = nullptr;
        return false;
    }
    if (flags & CL_MEM_USE_HOST_PTR) data = host;
    return true;
}

bool oclImage2D::map(cl_map_flags flags, int d)
{
    if (!checkHandle()) return false;
    return mapImage(this, queue(d), flags, imageInfo(this, CL_IMAGE_WIDTH), imageInfo(this, CL_IMAGE_HEIGHT), 1);
}

size_t oclImage2D::dim(int axis)
{
    if (!mem) return 0;
    if (axis == 0) return imageInfo(this, CL_IMAGE_WIDTH);
    if (axis == 1) return imageInfo(this, CL_IMAGE_HEIGHT);
    return 0;
}

bool oclImage2D::read(int d)
{
    if (!checkHandle()) return false;
    return transferImage(this, queue(d), true, dim(0), dim(1), 1);
}

bool oclImage2D::write(int d)
{
    if (!checkHandle()) return false;
    return transferImage(this, queue(d), false, dim(0), dim(1), 1);
}

bool oclImage2D::resize(size_t width, size_t height, void* host)
{
    if (!checkHandle()) return false;
    const cl_mem_flags flags = memFlags();
    cl_image_format fmt{};
    format(&fmt);
    release();
    return create(flags, &fmt, width, height, host);
}

cl_image_format* oclImage2D::format(cl_image_format* out) { return imageFormat(this, out); }

bool oclImage3D::create(cl_mem_flags flags, const cl_image_format* format, size_t width, size_t height, size_t depth,
                        void* host)
{
    release();
    mem = clCreateImage3D(m_context->handle(), flags, format, width, height, depth, 0, 0, host, &oclLastError);
    ++generation;
    if (!oclCheck("clCreateImage3D", this)) {
        mem = nullptr;
        return false;
    }
    if (flags & CL_MEM_USE_HOST_PTR) data = host;
    return true;
}

bool oclImage3D::map(cl_map_flags flags, int d)
{
    if (!checkHandle()) return false;
    return mapImage(this, queue(d), flags, imageInfo(this, CL_IMAGE_WIDTH), imageInfo(this, CL_IMAGE_HEIGHT),
                    imageInfo(this, CL_IMAGE_DEPTH));
}

size_t oclImage3D::dim(int axis)
{
    if (!mem) return 0;
    if (axis == 0) return imageInfo(this, CL_IMAGE_WIDTH);
    if (axis == 1) return imageInfo(this, CL_IMAGE_HEIGHT);
    if (axis == 2) return imageInfo(this, CL_IMAGE_DEPTH);
    return 0;
}

bool oclImage3D::read(int d)
{
    if (!checkHandle()) return false;
    return transferImage(this, queue(d), true, dim(0), dim(1), dim(2));
}

bool oclImage3D::write(int d)
{
    if (!checkHandle()) return false;
    return transferImage(this, queue(d), false, dim(0), dim(1), dim(2));
}

bool oclImage3D::resize(size_t width, size_t height, size_t depth, void* host)
{
    if (!checkHandle()) return false;
    const cl_mem_flags flags = memFlags();
    cl_image_format fmt{};
    format(&fmt);
    release();
    return create(flags, &fmt, width, height, depth, host);
}

cl_image_format* oclImage3D::format(cl_image_format* out) { return imageFormat(this, out); }
