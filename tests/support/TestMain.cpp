// Test entry: every run gets private caches for the OpenCL and GL drivers, and
// the node classes registered the way the program registers them.
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "runtime/AppGlobal.h"

int main(int argc, char** argv)
{
    char tmpl[] = "/tmp/velmora-test-cache-XXXXXX";
    if (const char* dir = mkdtemp(tmpl)) setenv("POCL_CACHE_DIR", dir, 1);
    setenv("MESA_SHADER_CACHE_DISABLE", "true", 1);
    ::testing::InitGoogleTest(&argc, argv);
    AppGlobal::startModules();
    return RUN_ALL_TESTS();
}
