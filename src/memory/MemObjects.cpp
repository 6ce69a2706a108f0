#include "memory/MemObjects.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstring>

#include "runtime/Channels.h"

void* memHostAlloc(size_t size)
{
    if (size == 0) return nullptr;
    void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
        LogStream(Channels::error(), "") << "mmap: " << std::strerror(errno) << ": " << size;
        return nullptr;
    }
    return p;
}

void memHostFree(void* p, size_t size)
{
    if (p && size) munmap(p, size);
}

uint32_t memImageElementType(const cl_image_format* format)
{
    const uint32_t code = CLimageFromatToCLmemoryType(format);
    if (format->image_channel_data_type != CL_HALF_FLOAT) return code;
    return code == MemTypes::Float4 ? MemTypes::UShort4 : MemTypes::Half;
}

// ---------------------------------------------------------------- shapes

MemType1D::MemType1D(oclContext* context, const std::string& name) : oclBuffer(context, nullptr), m_ownName(name)
{
    m_name = m_ownName.c_str();
}

MemType1D::~MemType1D()
{
    delete proxy;
}

MemType2D::MemType2D(oclContext* context, const std::string& name) : oclImage2D(context, nullptr), m_ownName(name)
{
    m_name = m_ownName.c_str();
}

MemType2D::~MemType2D()
{
    delete proxy;
}

MemType3D::MemType3D(oclContext* context, const std::string& name) : oclImage3D(context, nullptr), m_ownName(name)
{
    m_name = m_ownName.c_str();
}

MemType3D::~MemType3D()
{
    delete proxy;
}

namespace {

// Grows a host store to `bytes` when `flags` ask for one; a large enough
// store is kept with its content.
void growStore(void*& data, uint32_t& hostSize, cl_mem_flags flags, size_t bytes)
{
    if (!(flags & CL_MEM_USE_HOST_PTR) || bytes <= hostSize) return;
    memHostFree(data, hostSize);
    data = memHostAlloc(bytes);
    hostSize = data ? static_cast<uint32_t>(bytes) : 0;
}

void dropStore(void*& data, uint32_t& hostSize, cl_mem_flags flags)
{
    if (!(flags & CL_MEM_USE_HOST_PTR)) return;
    memHostFree(data, hostSize);
    data = nullptr;
    hostSize = 0;
}

}  // namespace

// ---------------------------------------------------------------- buffers

MemTypeBuffer::MemTypeBuffer(oclContext* context, uint32_t count, uint32_t typeCode, const std::string& name,
                             cl_mem_flags flags)
    : MemType1D(context, name), m_flags(flags)
{
    proxy = makeBufferProxy(this, count, typeCode);
    growStore(data, hostSize, flags, proxy->byteSize());
    create(flags, proxy->byteSize(), (flags & CL_MEM_USE_HOST_PTR) ? data : nullptr);
}

MemTypeBuffer::~MemTypeBuffer()
{
    release();
    dropStore(data, hostSize, m_flags);
}

bool MemTypeBuffer::resize(size_t size, void*)
{
    if (mem) m_flags = memFlags();
    release();
    const uint32_t element = clTypeSize(proxy->typeCode());
    proxy->setDim(0, element ? static_cast<uint32_t>(size / element) : 0);
    growStore(data, hostSize, m_flags, proxy->byteSize());
    return create(m_flags, proxy->byteSize(), (m_flags & CL_MEM_USE_HOST_PTR) ? data : nullptr);
}

// ---------------------------------------------------------------- images

MemTypeImage2D::MemTypeImage2D(oclContext* context, uint32_t width, uint32_t height, cl_mem_flags flags,
                               const cl_image_format* format, const std::string& name)
    : MemType2D(context, name), flags(flags), m_format(*format)
{
    proxy = makeImage2DProxy(this, width, height, memImageElementType(format));
    growStore(data, hostSize, flags, proxy->byteSize());
    create(flags, format, width, height, (flags & CL_MEM_USE_HOST_PTR) ? data : nullptr);
}

MemTypeImage2D::~MemTypeImage2D()
{
    release();
    dropStore(data, hostSize, flags);
}

bool MemTypeImage2D::resize(size_t width, size_t height, void*)
{
    if (mem) format(&m_format);
    release();
    proxy->setDim(0, static_cast<uint32_t>(width));
    proxy->setDim(1, static_cast<uint32_t>(height));
    growStore(data, hostSize, flags, proxy->byteSize());
    return create(flags, &m_format, width, height, (flags & CL_MEM_USE_HOST_PTR) ? data : nullptr);
}

MemTypeImage3D::MemTypeImage3D(oclContext* context, uint32_t width, uint32_t height, uint32_t depth,
                               cl_mem_flags flags, const cl_image_format* format, const std::string& name)
    : MemType3D(context, name), flags(flags), m_format(*format)
{
    proxy = makeImage3DProxy(this, width, height, depth, memImageElementType(format));
    growStore(data, hostSize, flags, proxy->byteSize());
    create(flags, format, width, height, depth, (flags & CL_MEM_USE_HOST_PTR) ? data : nullptr);
}

MemTypeImage3D::~MemTypeImage3D()
{
    release();
    dropStore(data, hostSize, flags);
}

bool MemTypeImage3D::resize(size_t width, size_t height, size_t depth, void*)
{
    if (mem) format(&m_format);
    release();
    proxy->setDim(0, static_cast<uint32_t>(width));
    proxy->setDim(1, static_cast<uint32_t>(height));
    proxy->setDim(2, static_cast<uint32_t>(depth));
    growStore(data, hostSize, flags, proxy->byteSize());
    return create(flags, &m_format, width, height, depth, (flags & CL_MEM_USE_HOST_PTR) ? data : nullptr);
}
