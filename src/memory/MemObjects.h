// Typed memory objects: an OpenCL buffer or image with its element proxy and,
// for CL_MEM_USE_HOST_PTR, a page-aligned host store that it owns. A failed
// creation leaves `mem` null and the object usable; the log has the reason.
#pragma once

#include <string>

#include "compute/oclObject.h"
#include "memory/MemProxy.h"

// Page-aligned memory from the system, for host stores. Null with a message
// naming the call on the error channel when the system refuses.
void* memHostAlloc(size_t size);
void memHostFree(void* p, size_t size);

// The three shapes own their proxy and a copy of their name.
class MemType1D : public oclBuffer {
public:
    MemType1D(oclContext* context, const std::string& name);
    ~MemType1D() override;

private:
    std::string m_ownName;
};

class MemType2D : public oclImage2D {
public:
    MemType2D(oclContext* context, const std::string& name);
    ~MemType2D() override;

private:
    std::string m_ownName;
};

class MemType3D : public oclImage3D {
public:
    MemType3D(oclContext* context, const std::string& name);
    ~MemType3D() override;

private:
    std::string m_ownName;
};

class MemTypeBuffer : public MemType1D {
public:
    MemTypeBuffer(oclContext* context, uint32_t count, uint32_t typeCode, const std::string& name, cl_mem_flags flags);
    ~MemTypeBuffer() override;
    // `size` in bytes; the host pointer argument is not used.
    bool resize(size_t size, void* host) override;

    uint32_t hostSize = 0;

private:
    cl_mem_flags m_flags;
};

class MemTypeImage2D : public MemType2D {
public:
    MemTypeImage2D(oclContext* context, uint32_t width, uint32_t height, cl_mem_flags flags,
                   const cl_image_format* format, const std::string& name);
    ~MemTypeImage2D() override;
    bool resize(size_t width, size_t height, void* host) override;

    uint32_t hostSize = 0;
    cl_mem_flags flags;

private:
    cl_image_format m_format;
};

class MemTypeImage3D : public MemType3D {
public:
    MemTypeImage3D(oclContext* context, uint32_t width, uint32_t height, uint32_t depth, cl_mem_flags flags,
                   const cl_image_format* format, const std::string& name);
    ~MemTypeImage3D() override;
    bool resize(size_t width, size_t height, size_t depth, void* host) override;

    uint32_t hostSize = 0;
    cl_mem_flags flags;

private:
    cl_image_format m_format;
};

// The element type a host view of an image uses. Half-float channels are
// kept as their 16-bit patterns: the catalogue's cl_float would address
// twice the bytes that a map gives.
uint32_t memImageElementType(const cl_image_format* format);
