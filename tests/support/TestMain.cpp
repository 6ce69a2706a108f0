// Test entry: every run gets private caches for the OpenCL and GL drivers, and
// the node classes registered the way the program registers them.
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "runtime/AppGlobal.h"

int main(int argc, char** argv)
{
    char tmpl[] = "/tmp/velmora-test-cache-XXXXXX";
    const char* cache = mkdtemp(tmpl);
    if (cache) setenv("POCL_CACHE_DIR", cache, 1);
    setenv("MESA_SHADER_CACHE_DISABLE", "true", 1);
    ::testing::InitGoogleTest(&argc, argv);
    AppGlobal::startModules();
    int rc = RUN_ALL_TESTS();
    std::error_code ec;
    if (cache) std::filesystem::remove_all(cache, ec);
    return rc;
}
