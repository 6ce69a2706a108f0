// Lua start: standard libraries, the plug-in scan with its lib_open contract,
// and the module dir.
#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <lua.hpp>

#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "support/TempDir.h"
#include "LuaRun.h"

namespace fs = std::filesystem;

namespace {

// Whether the library at `path` is loaded in this process now.
bool isLoaded(const std::string& path)
{
    void* h = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (h) dlclose(h);
    return h != nullptr;
}

std::vector<std::string> drainErrors()
{
    std::vector<std::string> out;
    for (LogRecord r; Channels::error().pop(r);) out.emplace_back(r.text);
    return out;
}

class LuaStartTest : public ::testing::Test {
protected:
    void SetUp() override { Channels::error().clear(); }
    void TearDown() override
    {
        if (m_L) lua_close(m_L);
    }

    void addPlugin(const char* built, const std::string& as)
    {
        fs::create_directories(m_plugins);
        fs::copy_file(built, m_plugins + "/" + as, fs::copy_options::overwrite_existing);
    }

    TempDir m_dir{"velmora-luastart"};
    std::string m_ws = m_dir.path();
    std::string m_plugins = m_ws + "/bindings/plugins";
    lua_State* m_L = nullptr;
};

TEST_F(LuaStartTest, PluginsOpenInNameOrderWithTheirNames)
{
    addPlugin(VELMORA_TEST_RECORD_PLUGIN, "zeta.so");
    addPlugin(VELMORA_TEST_RECORD_PLUGIN, "alpha.so");
    addPlugin(VELMORA_TEST_RECORD_PLUGIN, "mid.dot.so");
    // Not plug-ins: another extension, and a folder with the right name.
    addPlugin(VELMORA_TEST_RECORD_PLUGIN, "other.txt");
    fs::create_directories(m_plugins + "/folder.so");

    m_L = AppGlobal::newLuaState(m_ws);
    ASSERT_NE(m_L, nullptr);
    EXPECT_EQ(luaEval(m_L, "table.concat(plugin_calls, ',')"), "alpha,mid.dot,zeta");
    EXPECT_TRUE(drainErrors().empty());
    // The libraries stay loaded, so what lib_open registered still runs.
    ASSERT_TRUE(isLoaded(m_plugins + "/zeta.so"));
    EXPECT_EQ(luaEval(m_L, "plugin_echo()"), "echo");
    // Standard libraries and dir are there beside what the plug-ins made.
    EXPECT_EQ(luaEval(m_L, "type(string.format) .. type(io.open) .. type(dir.listFiles)"),
              "functionfunctionfunction");
    EXPECT_EQ(lua_gettop(m_L), 0);
}

TEST_F(LuaStartTest, FaultyPluginsAreReportedOnceAndScanGoesOn)
{
    addPlugin(VELMORA_TEST_RECORD_PLUGIN, "a_first.so");
    addPlugin(VELMORA_TEST_NOOPEN_PLUGIN, "b_noopen.so");
    addPlugin(VELMORA_TEST_FAILING_PLUGIN, "c_fails.so");
    addPlugin(VELMORA_TEST_RECORD_PLUGIN, "e_last.so");
    std::ofstream(m_plugins + "/d_broken.so") << "this is not a shared library\n";

    m_L = AppGlobal::newLuaState(m_ws);
    ASSERT_NE(m_L, nullptr);
    EXPECT_EQ(luaEval(m_L, "table.concat(plugin_calls, ',')"), "a_first,e_last");

    const std::vector<std::string> errors = drainErrors();
    ASSERT_EQ(errors.size(), 3u);
    EXPECT_EQ(errors[0], "(b_noopen): Function lib_open not found");
    EXPECT_EQ(errors[1].rfind("(c_fails): ", 0), 0u) << errors[1];
    EXPECT_NE(errors[1].find("refused to open c_fails"), std::string::npos) << errors[1];
    EXPECT_EQ(errors[2].rfind("(d_broken): ", 0), 0u) << errors[2];
    EXPECT_NE(errors[2].find("d_broken.so"), std::string::npos) << errors[2];
    // A library without lib_open stays loaded, unused.
    EXPECT_TRUE(isLoaded(m_plugins + "/b_noopen.so"));

    // The errors left nothing behind on the stack and the state still works.
    EXPECT_EQ(lua_gettop(m_L), 0);
    EXPECT_EQ(luaEval(m_L, "type(dir.listFiles)"), "function");
}

TEST_F(LuaStartTest, MissingOrEmptyPluginFolderFindsNothing)
{
    m_L = AppGlobal::newLuaState(m_ws);  // no bindings folder at all
    ASSERT_NE(m_L, nullptr);
    EXPECT_EQ(luaEval(m_L, "type(plugin_calls) .. type(dir.listFiles)"), "nilfunction");
    lua_close(m_L);

    fs::create_directories(m_plugins);
    m_L = AppGlobal::newLuaState(m_ws);
    ASSERT_NE(m_L, nullptr);
    EXPECT_EQ(luaEval(m_L, "type(plugin_calls) .. type(dir.listFiles)"), "nilfunction");
    EXPECT_TRUE(drainErrors().empty());
}

TEST_F(LuaStartTest, CollectorRunsAfterStart)
{
    m_L = AppGlobal::newLuaState(m_ws);
    ASSERT_NE(m_L, nullptr);
    // About 20 MB of garbage tables; a collector left stopped keeps all of it.
    EXPECT_EQ(luaRun(m_L, "for i = 1, 400000 do local t = {i} end"), "");
    EXPECT_EQ(luaEval(m_L, "collectgarbage('count') < 8192"), "true");
}

}  // namespace
