// Loading libraries below the workspace and looking up their symbols.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "platform/DynLib.h"
#include "runtime/AppGlobal.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

// A workspace with a library, a library without lib_open and a file that is
// no library; the trace goes to the workspace, never to the user's cache.
class DynLibTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (const char* c = std::getenv("XDG_CACHE_HOME")) m_cache = c, m_hadCache = true;
        fs::create_directories(m_ws + "/bindings/libRec");
        fs::copy_file(VELMORA_TEST_RECORD_PLUGIN, m_ws + "/bindings/libRec/libRec.so");
        fs::copy_file(VELMORA_TEST_NOOPEN_PLUGIN, m_ws + "/bindings/libRec/libPlain.so");
        std::ofstream(m_ws + "/bindings/libRec/libJunk.so") << "not a library";
        setenv("XDG_CACHE_HOME", (m_ws + "/usercache").c_str(), 1);
        ASSERT_TRUE(AppGlobal::setProjectPath(m_ws));
    }
    void TearDown() override
    {
        fs::current_path(m_cwd);
        m_hadCache ? setenv("XDG_CACHE_HOME", m_cache.c_str(), 1) : unsetenv("XDG_CACHE_HOME");
    }

    TempDir m_dir{"velmora-dynlib"};
    std::string m_ws = m_dir.path();
    fs::path m_cwd = fs::current_path();
    std::string m_cache;
    bool m_hadCache = false;
};

TEST_F(DynLibTest, LoadsBelowProjectPathWithOrWithoutExtension)
{
    EXPECT_TRUE(DynLib::loadLibrary(".\\bindings\\libRec\\", "libRec"));
    EXPECT_EQ(DynLib::lastError(), "");
    EXPECT_NE(DynLib::findSymbol("libRec", "lib_open"), nullptr);
    EXPECT_EQ(DynLib::findSymbol("libRec.so", "lib_open"), DynLib::findSymbol("libRec", "lib_open"));
    EXPECT_EQ(DynLib::findSymbol("libRec", "no_such_symbol"), nullptr);

    EXPECT_TRUE(DynLib::loadLibrary("bindings/libRec", "libPlain.so"));
    EXPECT_NE(DynLib::findSymbol("libPlain", "noopen_plugin_value"), nullptr);
    EXPECT_EQ(DynLib::findSymbol("libPlain", "lib_open"), nullptr);
    // Found in its own library, not through the global scope.
    EXPECT_EQ(DynLib::findSymbol("libRec", "noopen_plugin_value"), nullptr);
}

TEST_F(DynLibTest, FailuresSayWhy)
{
    EXPECT_FALSE(DynLib::loadLibrary("bindings/none", "libNone"));
    EXPECT_NE(DynLib::lastError().find(m_ws + "/bindings/none/libNone.so"), std::string::npos)
        << DynLib::lastError();
    EXPECT_EQ(DynLib::findSymbol("libNone", "lib_open"), nullptr);

    EXPECT_FALSE(DynLib::loadLibrary("bindings/libRec", "libJunk"));
    EXPECT_NE(DynLib::lastError().find("libJunk.so"), std::string::npos) << DynLib::lastError();

    EXPECT_EQ(DynLib::findSymbol("never loaded", "lib_open"), nullptr);
}

TEST_F(DynLibTest, LibraryHandleOwnsItsLibrary)
{
    DynLib::Library lib;
    EXPECT_FALSE(lib.isOpen());
    EXPECT_EQ(lib.symbol("lib_open"), nullptr);

    ASSERT_TRUE(lib.open(m_ws + "/bindings/libRec/libRec.so"));
    EXPECT_NE(lib.symbol("lib_open"), nullptr);

    DynLib::Library moved(std::move(lib));
    EXPECT_FALSE(lib.isOpen());
    EXPECT_NE(moved.symbol("lib_open"), nullptr);

    EXPECT_FALSE(moved.open(m_ws + "/bindings/libRec/libJunk.so"));
    EXPECT_FALSE(moved.isOpen());
    EXPECT_FALSE(moved.error().empty());
}

}  // namespace

TEST_F(DynLibTest, ALibraryFindsWhatItNeedsInItsOwnFolder)
{
    fs::create_directories(m_ws + "/bindings/deps");
    const std::string dep = fs::path(VELMORA_TEST_DEP_LIB).filename().string();
    // Without the library it needs, the load fails and names what is missing.
    fs::copy_file(VELMORA_TEST_DEP_USER, m_ws + "/bindings/deps/libUser.so");
    EXPECT_FALSE(DynLib::loadLibrary("bindings/deps", "libUser"));
    EXPECT_NE(DynLib::lastError().find(dep), std::string::npos) << DynLib::lastError();

    fs::copy_file(VELMORA_TEST_DEP_LIB, m_ws + "/bindings/deps/" + dep);
    ASSERT_TRUE(DynLib::loadLibrary("bindings/deps", "libUser")) << DynLib::lastError();
    auto uses = reinterpret_cast<int (*)()>(DynLib::findSymbol("libUser", "velmora_test_uses_dependency"));
    ASSERT_NE(uses, nullptr);
    EXPECT_EQ(uses(), 43);
}
