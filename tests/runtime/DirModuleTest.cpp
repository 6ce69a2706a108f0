// dir.listFiles: pattern building, files only, extension cutting, order and
// argument errors.
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <lua.hpp>

#include "runtime/DirModule.h"

namespace fs = std::filesystem;

namespace {

class DirModuleTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/velmora-dir-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        m_tmp = tmpl;
        m_cwd = fs::current_path();
        for (const char* f : {"b.txt", "a.txt", "c.lua", "x.tar.gz", "noext", ".hidden.txt"})
            std::ofstream(m_tmp + "/" + f) << "x";
        fs::create_directory(m_tmp + "/sub.txt");  // a folder that matches "*.txt"

        m_L = luaL_newstate();
        ASSERT_NE(m_L, nullptr);
        luaL_openlibs(m_L);
        ASSERT_EQ(lua_cpcall(m_L, DirModule::open, nullptr), 0);
        lua_pushstring(m_L, m_tmp.c_str());
        lua_setglobal(m_L, "T");
    }

    void TearDown() override
    {
        if (m_L) lua_close(m_L);
        fs::current_path(m_cwd);
        std::error_code ec;
        fs::remove_all(m_tmp, ec);
    }

    // Runs `args` through dir.listFiles and returns the names joined by ',',
    // or "ERROR: " and the message.
    std::string list(const std::string& args)
    {
        const std::string code = "local t = dir.listFiles(" + args +
                                 ")\n"
                                 "local n = 0 for k in pairs(t) do n = n + 1 end\n"
                                 "assert(n == #t, 'not a sequence from 1')\n"
                                 "return table.concat(t, ',')";
        const int top = lua_gettop(m_L);
        std::string out;
        if (luaL_loadstring(m_L, code.c_str()) != 0 || lua_pcall(m_L, 0, 1, 0) != 0)
            out = std::string("ERROR: ") + lua_tostring(m_L, -1);
        else
            out = lua_tostring(m_L, -1);
        lua_settop(m_L, top);
        return out;
    }

    std::string m_tmp;
    fs::path m_cwd;
    lua_State* m_L = nullptr;
};

TEST_F(DirModuleTest, ListsMatchingFilesOnlyInOrderAndCutsExtensionsWhenAsked)
{
    EXPECT_EQ(list("T .. '/', '*.txt'"), "a.txt,b.txt");
    EXPECT_EQ(list("T .. '/', '*.txt', true"), "a.txt,b.txt");
    EXPECT_EQ(list("T .. '/*'"), "a.txt,b.txt,c.lua,noext,x.tar.gz");
    EXPECT_EQ(list("T, '/?.lua'"), "c.lua");
    // "*.*" means every file, with a dot or without; hidden files only by name.
    EXPECT_EQ(list("T .. '/', '*.*'"), "a.txt,b.txt,c.lua,noext,x.tar.gz");
    EXPECT_EQ(list("T .. '/', '.*.txt'"), ".hidden.txt");

    EXPECT_EQ(list("T .. '/', '*.txt', false"), "a,b");
    // Only the last extension goes; names without one stay whole.
    EXPECT_EQ(list("T .. '/*', nil, false"), "a,b,c,noext,x.tar");
    // Only a boolean false cuts: other values keep the extension and raise nothing.
    for (const char* keep : {"0", "'no'", "{}"}) EXPECT_EQ(list(std::string("T .. '/', '*.txt', ") + keep), "a.txt,b.txt");
}

TEST_F(DirModuleTest, PatternFormsAndMissingFolder)
{
    // Backslashes as scripts from older workspaces write them.
    EXPECT_EQ(list("T .. '\\\\', '*.lua'"), "c.lua");
    // No folder: the working folder.
    fs::current_path(m_tmp);
    EXPECT_EQ(list("nil, '*.lua'"), "c.lua");
    EXPECT_EQ(list("'', 'a.*'"), "a.txt");
    // A folder with no pattern, nothing at all, or a folder that is not there.
    EXPECT_EQ(list("T .. '/'"), "");
    EXPECT_EQ(list(""), "");
    EXPECT_EQ(list("T .. '/missing/', '*'"), "");
}

TEST_F(DirModuleTest, EachPartIsCutAt400Characters)
{
    // Cut, the pattern is 400 stars and matches every file; whole, the tail
    // would match none.
    EXPECT_EQ(list("T .. '/', string.rep('*', 400) .. '.nomatch'"), "a.txt,b.txt,c.lua,noext,x.tar.gz");

    // A folder padded with "./" to exactly 400 characters and then a tail that
    // names a folder that is not there.
    std::string folder = m_tmp + "/";
    while (folder.size() + 2 <= 400) folder += "./";
    if (folder.size() < 400) folder += "/";
    ASSERT_EQ(folder.size(), 400u);
    lua_pushstring(m_L, (folder + "missing/").c_str());
    lua_setglobal(m_L, "F");
    EXPECT_EQ(list("F, '*.lua'"), "c.lua");
}

TEST_F(DirModuleTest, BadArgumentsRaiseLuaErrors)
{
    const std::string e1 = list("{}");
    EXPECT_NE(e1.find("bad argument #1 to 'listFiles' (string expected, got table)"), std::string::npos) << e1;
    const std::string e2 = list("T, function() end");
    EXPECT_NE(e2.find("bad argument #2 to 'listFiles' (string expected, got function)"), std::string::npos) << e2;
    // The state is intact after the errors.
    EXPECT_EQ(list("T .. '/', 'c.lua'"), "c.lua");
    EXPECT_EQ(lua_gettop(m_L), 0);
}

}  // namespace
