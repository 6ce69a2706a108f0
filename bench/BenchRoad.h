// Start-up of the benchmarks that draw what kernels write: a headless GL
// context of size x size, the modules, and a program built from `source`.
#pragma once

#include <GL/glew.h>

#include <cstdio>
#include <memory>
#include <string>

#include "compute/OclGlobal.h"
#include "compute/oclObject.h"
#include "platform/GlContext.h"
#include "runtime/AppGlobal.h"

struct BenchRoad {
    std::unique_ptr<EglContext> gl;
    oclContext* context = nullptr;
    std::unique_ptr<oclProgram> program;

    // False when there is nothing to measure: no context, no platform, or a
    // program that does not build (`exitCode` says which is a failure).
    bool start(const char* name, int size, const char* source, int& exitCode)
    {
        exitCode = 0;
        std::string error;
        gl = EglContext::create(size, size, error);
        if (!gl) {
            std::printf("%s: no OpenGL context (%s)\n", name, error.c_str());
            return false;
        }
        GlContext::setActive(gl.get());
        AppGlobal::startModules();
        context = OclGlobal::currentContext();
        if (!context) {
            std::printf("%s: no OpenCL platform\n", name);
            return false;
        }
        GlScope scope;
        std::printf("%s: OpenCL %s, %s; OpenGL %s\n", name, context->name(),
                    context->glSharing() ? "sharing with OpenGL" : "no sharing: acquire and release copy",
                    reinterpret_cast<const char*>(glGetString(GL_RENDERER)));
        program = std::make_unique<oclProgram>(context, name);
        program->addSource(source);
        if (!program->build()) {
            std::printf("%s: the kernels do not build\n", name);
            exitCode = 1;
            return false;
        }
        return true;
    }
};
