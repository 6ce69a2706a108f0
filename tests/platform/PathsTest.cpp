// Program and per-user folders and path text helpers.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Paths.h"

namespace fs = std::filesystem;

namespace {

// Sets environment variables for one test and puts the old values back.
class EnvGuard {
public:
    void set(const char* name, const char* value)
    {
        if (const char* old = std::getenv(name))
            m_saved.emplace_back(name, std::string(old), true);
        else
            m_saved.emplace_back(name, std::string(), false);
        if (value)
            setenv(name, value, 1);
        else
            unsetenv(name);
    }
    ~EnvGuard()
    {
        for (auto it = m_saved.rbegin(); it != m_saved.rend(); ++it) {
            if (std::get<2>(*it))
                setenv(std::get<0>(*it), std::get<1>(*it).c_str(), 1);
            else
                unsetenv(std::get<0>(*it));
        }
    }

private:
    std::vector<std::tuple<const char*, std::string, bool>> m_saved;
};

TEST(PathsTest, ExecutableFolderHoldsThisProgram)
{
    const std::string folder = Paths::executableFolder();
    ASSERT_FALSE(folder.empty());
    EXPECT_EQ(folder.front(), '/');
    EXPECT_NE(folder.back(), '/');
    EXPECT_TRUE(fs::is_regular_file(folder + "/platform_tests"));
}

TEST(PathsTest, UserFoldersFollowXdgThenHome)
{
    EnvGuard env;
    env.set("XDG_CONFIG_HOME", "/x/config");
    env.set("XDG_CACHE_HOME", "/x/cache/");
    env.set("HOME", "/home/someone");
    EXPECT_EQ(Paths::userConfigFolder(), "/x/config/velmora");
    EXPECT_EQ(Paths::userCacheFolder(), "/x/cache/velmora");

    env.set("XDG_CONFIG_HOME", nullptr);
    env.set("XDG_CACHE_HOME", "");
    EXPECT_EQ(Paths::userConfigFolder(), "/home/someone/.config/velmora");
    EXPECT_EQ(Paths::userCacheFolder(), "/home/someone/.cache/velmora");

    // Relative values are not to be used.
    env.set("XDG_CONFIG_HOME", "relative/config");
    EXPECT_EQ(Paths::userConfigFolder(), "/home/someone/.config/velmora");
}

TEST(PathsTest, PathTextHelpers)
{
    EXPECT_EQ(Paths::toNativePath(".\\bindings\\libLua\\libLua"), "./bindings/libLua/libLua");
    EXPECT_EQ(Paths::toNativePath("/already/native"), "/already/native");

    EXPECT_EQ(Paths::join("/a", "b"), "/a/b");
    EXPECT_EQ(Paths::join("/a/", "/b/"), "/a/b/");
    EXPECT_EQ(Paths::join("", "b"), "b");
    EXPECT_EQ(Paths::join("/", "b"), "/b");

    EXPECT_EQ(Paths::fileName("/x/y/Module.cpp"), "Module.cpp");
    EXPECT_EQ(Paths::fileName("x\\y\\Module.cpp"), "Module.cpp");
    EXPECT_EQ(Paths::fileName("Module.cpp"), "Module.cpp");
}

TEST(PathsTest, EnsureFolderMakesParents)
{
    char tmpl[] = "/tmp/velmora-paths-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string tmp = tmpl;
    EXPECT_TRUE(Paths::ensureFolder(tmp + "/a/b/c"));
    EXPECT_TRUE(fs::is_directory(tmp + "/a/b/c"));
    EXPECT_TRUE(Paths::ensureFolder(tmp + "/a/b/c"));  // already there
    std::ofstream(tmp + "/file") << "x";
    EXPECT_FALSE(Paths::ensureFolder(tmp + "/file"));
    EXPECT_FALSE(Paths::ensureFolder(tmp + "/file/below"));
    std::error_code ec;
    fs::remove_all(tmp, ec);
}

}  // namespace
