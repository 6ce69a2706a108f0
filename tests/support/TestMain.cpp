// Test entry: every run gets private caches for the OpenCL and GL drivers, and
// the node classes registered the way the program registers them.
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "runtime/AppGlobal.h"

#ifdef VELMORA_TEST_GL
#include <cstdio>
#include <memory>

#include "platform/GlContext.h"
#endif

int main(int argc, char** argv)
{
    char tmpl[] = "/tmp/velmora-test-cache-XXXXXX";
    const char* cache = mkdtemp(tmpl);
    if (cache) setenv("POCL_CACHE_DIR", cache, 1);
    setenv("MESA_SHADER_CACHE_DISABLE", "true", 1);
    ::testing::InitGoogleTest(&argc, argv);
#ifdef VELMORA_TEST_GL
    // Suites that draw get a headless context before the module chain, as
    // the program does: OpenCL discovery then comes after it.
    std::string glError;
    std::unique_ptr<EglContext> gl = EglContext::create(256, 192, glError);
    if (gl)
        GlContext::setActive(gl.get());
    else
        std::fprintf(stderr, "no headless OpenGL context: %s\n", glError.c_str());
#endif
    AppGlobal::startModules();
    int rc = RUN_ALL_TESTS();
#ifdef VELMORA_TEST_GL
    GlContext::setActive(nullptr);
#endif
    std::error_code ec;
    if (cache) std::filesystem::remove_all(cache, ec);
    return rc;
}
