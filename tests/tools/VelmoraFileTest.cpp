// The velmora-file tool, run as a user runs it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "support/TempDir.h"
#include "support/ToolRun.h"

namespace {

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

class VelmoraFile : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(std::system(("mkdir -p " + workspace + "/bindings/plugins " + dir + "/no-icd").c_str()), 0);
    }

    // `prefix` goes in front of the command (a time limit, for instance).
    Result run(const std::string& args, const std::string& prefix = "")
    {
        const std::string outFile = dir + "/stdout", errFile = dir + "/stderr";
        // Files need no compute device: without an OpenCL platform to find
        // the tool starts several times faster, which the cut test repays.
        const std::string cmd = "OCL_ICD_VENDORS=" + dir + "/no-icd " + prefix + " " + std::string(VELMORA_BIN_DIR) +
                                "/velmora-file" VELMORA_TOOL_SUFFIX " --workspace " + workspace + " " + args + " >" +
                                outFile + " 2>" + errFile;
        Result r;
        r.status = runTool(cmd, errFile);
        r.out = slurp(outFile);
        r.err = slurp(errFile);
        return r;
    }
    static std::string slurp(const std::string& path)
    {
        std::ifstream f(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(f), {});
    }
    TempDir m_tmp{"velmora-file-test"};
    const std::string dir = m_tmp.path(), workspace = dir + "/ws";
};

}  // namespace

TEST_F(VelmoraFile, NewWritesADefaultApplicationThatDumpShowsAndCopyWritesTheSameBytes)
{
    Result made = run("new " + dir + "/a.3Dm");
    ASSERT_EQ(made.status, 0) << made.err;
    Result copied = run("copy " + dir + "/a.3Dm " + dir + "/b.3Dm");
    ASSERT_EQ(copied.status, 0) << copied.err;
    EXPECT_EQ(slurp(dir + "/a.3Dm"), slurp(dir + "/b.3Dm"));
    Result dump = run("dump " + dir + "/a.3Dm");
    ASSERT_EQ(dump.status, 0) << dump.err;
    EXPECT_EQ(dump.out.rfind("RtnApplication \"page\"", 0), 0u) << dump.out;
    EXPECT_NE(dump.out.find("\n  Scripts: RtnGroup \"Scripts\""), std::string::npos) << dump.out;
    EXPECT_NE(dump.out.find("\n    RtnProcessor \"Main\" X=0 Y=0 textX=0 textY=0 colors=0x00000000 luaglobal=\"\""),
              std::string::npos)
        << dump.out;
    EXPECT_NE(dump.out.find("\n    ScnFramebuffer \"framebuffer\""), std::string::npos);
    EXPECT_NE(dump.out.find("#include=\"//global include for a all OpenCL programs \\n\\n\""), std::string::npos);
    EXPECT_NE(dump.out.find("light: ScnDeferredPointLight \"light\""), std::string::npos);
}

TEST_F(VelmoraFile, EveryCutIsRefusedWithAMessageAndFailingStatus)
{
    ASSERT_EQ(run("new " + dir + "/a.3Dm").status, 0);
    const std::string whole = slurp(dir + "/a.3Dm");
    ASSERT_GT(whole.size(), 256u);
    const std::string cutPath = dir + "/cut.3Dm";
    // One process per cut: the sanitizer build of the tool, several times
    // slower to start, takes a spread of cuts (the same reader meets every
    // cut in-process in the sanitizer suite of the node tests).
    const size_t step = std::string(VELMORA_TOOL_SUFFIX).empty() ? 1 : 13;
    for (size_t cut = 0; cut < whole.size(); cut += step) {
        std::ofstream(cutPath, std::ios::binary) << whole.substr(0, cut);
        Result r = run("dump " + cutPath);
        EXPECT_NE(r.status, 0) << "cut at " << cut;
        EXPECT_NE(r.err.find(cutPath + ": file is truncated or damaged at byte"), std::string::npos)
            << "cut at " << cut << ": " << r.err;
        EXPECT_TRUE(r.out.empty()) << "cut at " << cut;
    }
}

TEST_F(VelmoraFile, BadUseAndMissingFilesFail)
{
    EXPECT_EQ(run("").status, 2);
    EXPECT_EQ(run("frobnicate x").status, 2);
    Result missing = run("dump " + dir + "/nothing.3Dm");
    EXPECT_NE(missing.status, 0);
    EXPECT_NE(missing.err.find("nothing.3Dm"), std::string::npos);
    Result unwritable = run("new " + dir + "/no/such/folder/a.3Dm");
    EXPECT_NE(unwritable.status, 0);
    EXPECT_FALSE(unwritable.err.empty());
    // An object file is no application, and a copy between the kinds is refused.
    ASSERT_EQ(run("new " + dir + "/a.3Dm").status, 0);
    EXPECT_NE(run("copy " + dir + "/a.3Dm " + dir + "/a.3Do").status, 0);
}

// Neither a file too large for memory nor a FIFO may abort or block the tool.
TEST_F(VelmoraFile, HugeFilesAndFifosAreRefusedWithAMessage)
{
    for (const char* name : {"/huge.3Dm", "/huge.3Do"}) {
        ASSERT_EQ(std::system(("truncate -s 100G " + dir + name).c_str()), 0);
        Result r = run("dump " + dir + name, "timeout 60");
        EXPECT_EQ(r.status, 1) << r.err;
        EXPECT_NE(r.err.find(dir + name + ": file is truncated or damaged at byte"), std::string::npos) << r.err;
        EXPECT_TRUE(r.out.empty());
    }
    ASSERT_EQ(std::system(("mkfifo " + dir + "/pipe.3Dm").c_str()), 0);
    Result fifo = run("dump " + dir + "/pipe.3Dm", "timeout 20");
    EXPECT_EQ(fifo.status, 1) << "124 means it waited for a writer";
    EXPECT_EQ(fifo.err, "velmora-file: Unable to read file " + dir + "/pipe.3Dm: not a regular file\n");
    Result copy = run("copy " + dir + "/pipe.3Dm " + dir + "/b.3Dm", "timeout 20");
    EXPECT_EQ(copy.status, 1);
}
