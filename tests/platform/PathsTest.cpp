// Program and per-user folders and path text helpers.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Paths.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

// Sets environment variables for one test and puts the old values back.
class EnvGuard {
public:
    void set(const char* name, const char* value)
    {
        const char* old = std::getenv(name);
        m_saved.push_back({name, old ? old : "", old != nullptr});
        value ? setenv(name, value, 1) : unsetenv(name);
    }
    ~EnvGuard()
    {
        for (auto it = m_saved.rbegin(); it != m_saved.rend(); ++it)
            it->had ? setenv(it->name, it->value.c_str(), 1) : unsetenv(it->name);
    }

private:
    struct Saved {
        const char* name;
        std::string value;
        bool had;
    };
    std::vector<Saved> m_saved;
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
    TempDir tmp("velmora-paths");
    EXPECT_TRUE(Paths::ensureFolder(tmp / "a/b/c"));
    EXPECT_TRUE(fs::is_directory(tmp / "a/b/c"));
    EXPECT_TRUE(Paths::ensureFolder(tmp / "a/b/c"));  // already there
    std::ofstream(tmp / "file") << "x";
    EXPECT_FALSE(Paths::ensureFolder(tmp / "file"));
    EXPECT_FALSE(Paths::ensureFolder(tmp / "file/below"));
}

}  // namespace
