// The per-user settings file: round trips, refused values, damaged files.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "platform/Settings.h"
#include "runtime/Channels.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        Settings::setFilePath(m_file);
        Channels::error().clear();
    }
    void TearDown() override { Settings::setFilePath(""); }

    // The stored value, or "<untouched>" where there is none.
    std::string value(const std::string& section, const std::string& key)
    {
        std::string out = "<untouched>";
        if (!Settings::get(section, key, out)) EXPECT_EQ(out, "<untouched>");
        return out;
    }

    void writeRaw(const std::string& bytes)
    {
        fs::create_directories(fs::path(m_file).parent_path());
        std::ofstream(m_file, std::ios::binary) << bytes;
    }

    TempDir m_tmp{"velmora-settings"};
    std::string m_file = m_tmp / "deep/er/settings.ini";
};

TEST_F(SettingsTest, RoundTripCreatesFolderAndKeepsOtherValues)
{
    EXPECT_EQ(value("Recent Workspace List", "Document1"), "<untouched>");  // no file yet
    ASSERT_TRUE(Settings::set("Recent Workspace List", "Document1", "/home/u/my ws/"));
    ASSERT_TRUE(Settings::set("Recent Workspace List", "Document2", "C:\\old\\ws\\"));
    // Characters that mean something in the file's syntax, and edge spaces.
    ASSERT_TRUE(Settings::set("Values", "odd", " x=y;[z] #w "));
    ASSERT_TRUE(Settings::set("Values", "empty", ""));
    EXPECT_TRUE(fs::is_regular_file(m_file));

    EXPECT_EQ(value("Recent Workspace List", "Document1"), "/home/u/my ws/");
    EXPECT_EQ(value("Values", "odd"), " x=y;[z] #w ");
    EXPECT_EQ(value("Values", "empty"), "");
    // Keys belong to their section.
    EXPECT_EQ(value("Values", "Document1"), "<untouched>");
    EXPECT_EQ(value("Nowhere", "odd"), "<untouched>");

    // Overwriting one value leaves the others.
    ASSERT_TRUE(Settings::set("Recent Workspace List", "Document1", "/elsewhere"));
    EXPECT_EQ(value("Recent Workspace List", "Document1"), "/elsewhere");
    EXPECT_EQ(value("Recent Workspace List", "Document2"), "C:\\old\\ws\\");
    EXPECT_EQ(value("Values", "odd"), " x=y;[z] #w ");
    EXPECT_EQ(Channels::error().pending(), 0u);
}

TEST_F(SettingsTest, UnstorableValuesAreRefusedAndReported)
{
    ASSERT_TRUE(Settings::set("S", "k", "before"));
    EXPECT_FALSE(Settings::set("S", "k", "two\nlines"));
    EXPECT_FALSE(Settings::set("S", "k", "carriage\rreturn"));
    EXPECT_FALSE(Settings::set("S", "a=b", "v"));
    EXPECT_FALSE(Settings::set("S", "", "v"));
    EXPECT_FALSE(Settings::set("S", "[k]", "v"));
    EXPECT_FALSE(Settings::set("S]x", "k", "v"));
    EXPECT_EQ(Channels::error().pending(), 6u);
    EXPECT_EQ(value("S", "k"), "before");
    EXPECT_EQ(value("S]x", "k"), "<untouched>");  // the refused header did not get into the file
}

TEST_F(SettingsTest, DamagedFileReadsWhatMakesSenseAndCanBeRewritten)
{
    std::string bytes;
    std::mt19937 rng(1234);
    for (int i = 0; i < 65536; ++i) bytes += static_cast<char>(rng() & 0xff);
    bytes += std::string("\n\0\xff\xfe[\n", 6);
    bytes += "[Other]\r\nk=v\r\n";
    bytes += "[Recent Workspace List\n";  // a broken header: the next key has no section
    bytes += "Document1=/lost\n";
    bytes += "[Recent Workspace List]\n";
    bytes += "a line without an equals sign\n";
    bytes += "=a value without a key\n";
    bytes += "Document1=/first\n";
    bytes += "Document1=/kept\n";
    bytes += "Document2=/no line end";
    writeRaw(bytes);

    EXPECT_EQ(value("Other", "k"), "v");
    EXPECT_EQ(value("Other", "Document1"), "<untouched>");
    EXPECT_EQ(value("Recent Workspace List", "Document1"), "/kept");
    EXPECT_EQ(value("Recent Workspace List", "Document2"), "/no line end");
    EXPECT_EQ(value("Recent Workspace List", ""), "<untouched>");

    ASSERT_TRUE(Settings::set("Recent Workspace List", "Document3", "/new"));
    EXPECT_EQ(value("Recent Workspace List", "Document3"), "/new");
    EXPECT_EQ(value("Recent Workspace List", "Document1"), "/kept");
    EXPECT_EQ(value("Other", "k"), "v");
}

TEST_F(SettingsTest, OversizedUnreadableOrUnwritableFilesReadAsEmptyAndRefuseWrites)
{
    writeRaw("[S]\nk=v\n" + std::string(2 << 20, 'x'));
    EXPECT_EQ(value("S", "k"), "<untouched>");

    // A folder where the file should be.
    fs::remove(m_file);
    fs::create_directories(m_file);
    EXPECT_EQ(value("S", "k"), "<untouched>");
    EXPECT_FALSE(Settings::set("S", "k", "v"));

    // The settings folder would have to be made below a plain file.
    Channels::error().clear();
    std::ofstream(m_tmp / "blocker") << "x";
    Settings::setFilePath(m_tmp / "blocker/settings.ini");
    EXPECT_FALSE(Settings::set("S", "k", "v"));
    EXPECT_EQ(Channels::error().pending(), 1u);
    EXPECT_EQ(value("S", "k"), "<untouched>");
}

TEST_F(SettingsTest, DefaultFileLiesInUserConfigFolder)
{
    const char* old = std::getenv("XDG_CONFIG_HOME");
    const std::string saved = old ? old : "";
    setenv("XDG_CONFIG_HOME", (m_tmp / "cfg").c_str(), 1);
    Settings::setFilePath("");
    EXPECT_EQ(Settings::filePath(), m_tmp / "cfg/velmora/settings.ini");
    EXPECT_TRUE(Settings::set("Recent Workspace List", "Document1", "/ws"));
    EXPECT_TRUE(fs::is_regular_file(m_tmp / "cfg/velmora/settings.ini"));
    EXPECT_EQ(value("Recent Workspace List", "Document1"), "/ws");
    if (old)
        setenv("XDG_CONFIG_HOME", saved.c_str(), 1);
    else
        unsetenv("XDG_CONFIG_HOME");
}

}  // namespace
