// What every memory object whose storage is an OpenGL object has in common:
// the road its cl_mem takes, and the hand-over around kernels.
//
// Two roads, one behaviour. On a context made with the GL context's sharing
// properties the cl_mem is a view of the GL object (clCreateFromGL*), and
// acquire and release are the driver's. On any other context (CPU platforms,
// GPU drivers without cl_khr_gl_sharing) the cl_mem is an ordinary buffer or
// image of the same size and format: acquire copies OpenGL to OpenCL, and
// release copies OpenCL back to OpenGL when a launch or transfer since the
// acquire could have written it. clCreateFromGL* is never called without
// sharing: some drivers end the process in it.
#pragma once

#include <cstdint>

#include "compute/oclObject.h"

class MemGLShared {
public:
    virtual ~MemGLShared() = default;

    // True on the sharing road.
    bool sharesGL() const { return m_shares; }
    bool acquired() const { return m_acquired; }
    // Whether a launch or transfer since the acquire may have written the cl_mem.
    bool written() const { return m_written; }

    // Hands the object to OpenCL on `queue`, or back to OpenGL. The result is
    // the OpenCL status, also left in oclLastError; a copy that fails has
    // reported itself on the error channel.
    cl_int acquireGL(cl_command_queue queue);
    cl_int releaseGL(cl_command_queue queue);
    // Marks the cl_mem as written, while it is acquired: a kernel that may
    // write it ran, or a transfer or copy wrote into it.
    void noteWrite() { if (m_acquired) m_written = true; }

    // Copies made on the copy road since construction, each way.
    uint32_t copiesToCL = 0;
    uint32_t copiesToGL = 0;

    // The entry points of the sharing road, so that the calls a sharing
    // context gets can be watched where no such driver exists.
    struct SharingCalls {
        cl_mem (*fromBuffer)(cl_context, cl_mem_flags, cl_GLuint, cl_int*);
        cl_mem (*fromTexture2D)(cl_context, cl_mem_flags, cl_GLenum, cl_GLint, cl_GLuint, cl_int*);
        cl_mem (*fromTexture3D)(cl_context, cl_mem_flags, cl_GLenum, cl_GLint, cl_GLuint, cl_int*);
        cl_int (*acquire)(cl_command_queue, cl_uint, const cl_mem*, cl_uint, const cl_event*, cl_event*);
        cl_int (*release)(cl_command_queue, cl_uint, const cl_mem*, cl_uint, const cl_event*, cl_event*);
    };
    static SharingCalls sharingCalls;
    static const SharingCalls driverCalls;

protected:
    explicit MemGLShared(oclContext* context) : m_shares(context && context->glSharing()) {}

    virtual oclMem& sharedMem() = 0;
    // The copies of the copy road; false after reporting a failure.
    virtual bool copyToCL(cl_command_queue queue) = 0;
    virtual bool copyToGL(cl_command_queue queue) = 0;
    // The cl_mem went away (a texture's map, release, resize): so did the
    // acquisition.
    void dropAcquisition() { m_acquired = m_written = false; }

    bool m_shares;
    bool m_acquired = false;
    bool m_written = false;
};
