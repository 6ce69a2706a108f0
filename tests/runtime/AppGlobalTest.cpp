// Workspace choice, entering a workspace, and the trace file.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Settings.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

std::vector<std::string> drainErrors()
{
    std::vector<std::string> out;
    for (LogRecord r; Channels::error().pop(r);) out.emplace_back(r.text);
    return out;
}

// A private folder, an untouched working folder, program folder, settings file
// and cache variable for each test.
class AppGlobalTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_cwd = fs::current_path();
        m_programFolder = AppGlobal::programFolder();
        if (const char* c = std::getenv("XDG_CACHE_HOME")) m_cache = c, m_hadCache = true;
        // Even a faulty build must not write into the user's own folders.
        setenv("XDG_CACHE_HOME", (m_tmp + "/usercache").c_str(), 1);
        Settings::setFilePath(m_tmp + "/config/settings.ini");
        AppGlobal::setProgramFolder(m_tmp + "/prog");
        Channels::error().clear();
    }

    void TearDown() override
    {
        fs::current_path(m_cwd);
        AppGlobal::setProgramFolder(m_programFolder);
        Settings::setFilePath("");
        m_hadCache ? setenv("XDG_CACHE_HOME", m_cache.c_str(), 1) : unsetenv("XDG_CACHE_HOME");
        std::error_code ec;
        fs::permissions(m_tmp + "/ws", fs::perms::owner_all, fs::perm_options::add, ec);
    }

    std::string makeFolder(const std::string& rel)
    {
        fs::create_directories(m_tmp + "/" + rel);
        return m_tmp + "/" + rel;
    }

    TempDir m_dir{"velmora-appglobal"};
    std::string m_tmp = m_dir.path();
    fs::path m_cwd;
    std::string m_programFolder;
    std::string m_cache;
    bool m_hadCache = false;
};

TEST_F(AppGlobalTest, WorkspaceChoiceFromStoreOrDefault)
{
    EXPECT_EQ(AppGlobal::defaultWorkspace(), m_tmp + "/prog/workspace/");
    // A trailing '/' on the program folder does not double up.
    AppGlobal::setProgramFolder(m_tmp + "/prog/");
    EXPECT_EQ(AppGlobal::defaultWorkspace(), m_tmp + "/prog/workspace/");

    // No store at all: the default, and not a word about it.
    EXPECT_EQ(AppGlobal::lastWorkspace(), m_tmp + "/prog/workspace/");
    // A store without the value: the same.
    ASSERT_TRUE(Settings::set("Recent File List", "File1", "/x/a.3Dm"));
    EXPECT_EQ(AppGlobal::lastWorkspace(), m_tmp + "/prog/workspace/");
    EXPECT_TRUE(drainErrors().empty());

    // A stored value wins; backslashes from older stores become '/'.
    ASSERT_TRUE(Settings::set("Recent Workspace List", "Document1", "/data\\projects\\ws1\\"));
    EXPECT_EQ(AppGlobal::lastWorkspace(), "/data/projects/ws1/");
}

TEST_F(AppGlobalTest, VanishedWorkspaceIsRefusedAndDefaultTaken)
{
    const std::string good = makeFolder("first");
    ASSERT_TRUE(AppGlobal::setProjectPath(good));
    const std::string traceBefore = AppGlobal::tracePath();

    // The stored workspace has since been removed.
    ASSERT_TRUE(Settings::set("Recent Workspace List", "Document1", m_tmp + "/gone"));
    const std::string chosen = AppGlobal::lastWorkspace();
    EXPECT_FALSE(AppGlobal::setProjectPath(chosen));
    // Nothing changed: project path, working folder, trace.
    EXPECT_EQ(AppGlobal::projectPath(), good);
    EXPECT_TRUE(fs::equivalent(fs::current_path(), good));
    EXPECT_EQ(AppGlobal::tracePath(), traceBefore);
    // A plain file is no workspace either.
    std::ofstream(m_tmp + "/plain.txt") << "x";
    EXPECT_FALSE(AppGlobal::setProjectPath(m_tmp + "/plain.txt"));
    EXPECT_EQ(AppGlobal::projectPath(), good);

    // The caller falls back to the default workspace, whose trace is made there.
    const std::string def = makeFolder("prog/workspace");
    ASSERT_TRUE(AppGlobal::setProjectPath(AppGlobal::defaultWorkspace()));
    EXPECT_EQ(AppGlobal::projectPath(), AppGlobal::defaultWorkspace());
    EXPECT_TRUE(fs::equivalent(fs::current_path(), def));
    EXPECT_EQ(AppGlobal::tracePath(), def + "/velmora.txt");
    EXPECT_NE(readFile(def + "/velmora.txt").find("AppGlobal::setProjectPath " + AppGlobal::defaultWorkspace()),
              std::string::npos);
}

TEST_F(AppGlobalTest, TraceLinesInWorkspaceFile)
{
    const std::string ws = makeFolder("ws");
    std::ofstream(ws + "/velmora.txt") << "left over from the last run\n";
    ASSERT_TRUE(AppGlobal::setProjectPath(ws));
    EXPECT_EQ(AppGlobal::projectPath(), ws);
    EXPECT_TRUE(fs::equivalent(fs::current_path(), ws));
    ASSERT_EQ(AppGlobal::tracePath(), ws + "/velmora.txt");

    VTRACE("value " << 42 << " done");
    const int vtraceLine = __LINE__ - 1;
    AppGlobal::traceLine("/some/folder/Module.cpp", 7, "with a folder");

    // Read while the file is still open: every line is flushed at once.
    const std::vector<std::string> got = lines(readFile(ws + "/velmora.txt"));
    ASSERT_EQ(got.size(), 3u);
    std::smatch m;
    ASSERT_TRUE(std::regex_match(got[0], m, std::regex(R"(AppGlobal\.cpp\(\d+\):(.*))"))) << got[0];
    EXPECT_EQ(m[1].str(), "AppGlobal::setProjectPath " + ws);
    EXPECT_EQ(got[1], "AppGlobalTest.cpp(" + std::to_string(vtraceLine) + "):value 42 done");
    EXPECT_EQ(got[2], "Module.cpp(7):with a folder");

    // Entering the workspace again starts the trace afresh.
    ASSERT_TRUE(AppGlobal::setProjectPath(ws));
    EXPECT_EQ(lines(readFile(ws + "/velmora.txt")).size(), 1u);
}

TEST_F(AppGlobalTest, RelativePathIsKeptAbsolute)
{
    makeFolder("outer/inner");
    fs::current_path(m_tmp + "/outer");
    ASSERT_TRUE(AppGlobal::setProjectPath("inner"));
    EXPECT_TRUE(fs::equivalent(AppGlobal::projectPath(), m_tmp + "/outer/inner"));
    EXPECT_EQ(AppGlobal::projectPath().front(), '/');
    EXPECT_TRUE(fs::exists(m_tmp + "/outer/inner/velmora.txt"));
}

TEST_F(AppGlobalTest, TraceFallsBackToTheCacheFolderOrIsSilentlyLost)
{
    const std::string ws = makeFolder("ws");
    // A folder in the way of the trace file: not writable even for root.
    fs::create_directory(ws + "/velmora.txt");
    setenv("XDG_CACHE_HOME", (m_tmp + "/cache/home").c_str(), 1);
    ASSERT_TRUE(AppGlobal::setProjectPath(ws));
    EXPECT_EQ(AppGlobal::projectPath(), ws);
    const std::string fallback = m_tmp + "/cache/home/velmora/velmora.txt";
    ASSERT_EQ(AppGlobal::tracePath(), fallback);
    AppGlobal::traceLine("X.cpp", 3, "into the cache");
    const std::vector<std::string> got = lines(readFile(fallback));
    ASSERT_EQ(got.size(), 2u);
    EXPECT_NE(got[0].find("AppGlobal::setProjectPath " + ws), std::string::npos);
    EXPECT_EQ(got[1], "X.cpp(3):into the cache");

    // The cache folder would have to be made below a plain file.
    std::ofstream(m_tmp + "/blocker") << "x";
    setenv("XDG_CACHE_HOME", (m_tmp + "/blocker").c_str(), 1);
    ASSERT_TRUE(AppGlobal::setProjectPath(ws));
    EXPECT_EQ(AppGlobal::tracePath(), "");
    AppGlobal::traceLine("X.cpp", 1, "nowhere");  // must simply go nowhere
    EXPECT_TRUE(drainErrors().empty());

    // The next workspace that can hold a trace gets one again.
    const std::string other = makeFolder("other");
    ASSERT_TRUE(AppGlobal::setProjectPath(other));
    EXPECT_EQ(AppGlobal::tracePath(), other + "/velmora.txt");
}

TEST_F(AppGlobalTest, ReadOnlyWorkspaceTracesToCacheFolder)
{
    const std::string ws = makeFolder("ws");
    fs::permissions(ws, fs::perms::owner_read | fs::perms::owner_exec);
    if (access(ws.c_str(), W_OK) == 0) GTEST_SKIP() << "the folder stays writable for this user (root)";
    setenv("XDG_CACHE_HOME", (m_tmp + "/cache").c_str(), 1);

    ASSERT_TRUE(AppGlobal::setProjectPath(ws));
    EXPECT_EQ(AppGlobal::tracePath(), m_tmp + "/cache/velmora/velmora.txt");
    EXPECT_FALSE(fs::exists(ws + "/velmora.txt"));
}

}  // namespace
