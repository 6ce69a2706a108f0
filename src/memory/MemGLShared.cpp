#include "memory/MemGLShared.h"

const MemGLShared::SharingCalls MemGLShared::driverCalls = {
    clCreateFromGLBuffer, clCreateFromGLTexture2D, clCreateFromGLTexture3D,
    clEnqueueAcquireGLObjects, clEnqueueReleaseGLObjects,
};

MemGLShared::SharingCalls MemGLShared::sharingCalls = MemGLShared::driverCalls;

cl_int MemGLShared::acquireGL(cl_command_queue queue)
{
    oclMem& m = sharedMem();
    if (m_shares) {
        oclLastError = sharingCalls.acquire(queue, 1, &m.mem, 0, nullptr, nullptr);
    } else {
        oclLastError = CL_SUCCESS;
        if (!copyToCL(queue)) {
            if (oclLastError == CL_SUCCESS) oclLastError = CL_INVALID_OPERATION;
            return oclLastError;
        }
        ++copiesToCL;
        oclLastError = CL_SUCCESS;
    }
    if (oclLastError == CL_SUCCESS) {
        m_acquired = true;
        m_written = false;
    }
    return oclLastError;
}

cl_int MemGLShared::releaseGL(cl_command_queue queue)
{
    oclMem& m = sharedMem();
    if (m_shares) {
        oclLastError = sharingCalls.release(queue, 1, &m.mem, 0, nullptr, nullptr);
    } else {
        oclLastError = CL_SUCCESS;
        // Only what was acquired and may have changed goes back.
        if (m_acquired && m_written) {
            if (!copyToGL(queue)) {
                if (oclLastError == CL_SUCCESS) oclLastError = CL_INVALID_OPERATION;
                return oclLastError;
            }
            ++copiesToGL;
        }
        oclLastError = CL_SUCCESS;
    }
    if (oclLastError == CL_SUCCESS) dropAcquisition();
    return oclLastError;
}
