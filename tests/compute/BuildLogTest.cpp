#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "compute/OclBuildLog.h"
#include "node/ScnNode.h"

namespace {

struct Rec {
    std::string ring;
    int line;
    std::string text;
    bool operator==(const Rec& o) const { return ring == o.ring && line == o.line && text == o.text; }
};

void PrintTo(const Rec& r, std::ostream* os) { *os << r.ring << ":" << r.line << ":" << r.text; }

class BuildLog : public ::testing::Test {
protected:
    void SetUp() override { Channels::clearAll(); }
    std::vector<Rec> drainRing(LogRing& ring, const char* name)
    {
        std::vector<Rec> out;
        for (LogRecord r; ring.pop(r);) {
            EXPECT_EQ(r.node, &m_node);
            out.push_back({name, r.line, r.text});
        }
        return out;
    }
    std::vector<Rec> all()
    {
        auto e = drainRing(OclBuildLog::errors(), "E");
        auto w = drainRing(OclBuildLog::warnings(), "W");
        e.insert(e.end(), w.begin(), w.end());
        return e;
    }
    static std::vector<std::string> errorChannel()
    {
        std::vector<std::string> out;
        for (LogRecord r; Channels::error().pop(r);) out.push_back(r.text);
        return out;
    }
    ScnNode m_node;
    OclBuildLog::Build m_build{"prog", &m_node, 2};
};

}  // namespace

TEST_F(BuildLog, NvidiaFormKeepsWarningsWithErrorsAndStopsAtABlankLine)
{
    OclBuildLog::parseNvidia(":3:5: error: expected ';'\n"
                             ":7:1: warning: unused variable 'x'\n"
                             "some other text\n"
                             ":9:2: error: after other text\n"
                             "\n"
                             ":12:1: error: after the blank line\n",
                             m_build);
    EXPECT_EQ(all(), (std::vector<Rec>{{"E", 1, "(prog): :3:5: error: expected ';'"},
                                       {"E", 5, "(prog): :7:1: warning: unused variable 'x'"},
                                       {"E", 7, "(prog): :9:2: error: after other text"}}));
}

TEST_F(BuildLog, AmdFormFlattensTheMessageUpToTheCaret)
{
    OclBuildLog::parseAmd("\"/tmp/OCL1.cl\", line 4: junk\n"
                          "/tmp/OCL1.cl(5): error: identifier \"y\" is undefined\n\t  y = 1;\n\t  ^\n\n"
                          "/tmp/OCL1.cl(6): warning: variable \"z\" was declared\n  but never referenced\n ^\n",
                          m_build);
    std::vector<Rec> got = all();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0], (Rec{"E", 3, "(prog): error: identifier \"y\" is undefined    y = 1;    "}));
    EXPECT_EQ(got[1].ring + std::to_string(got[1].line), "W4");
    EXPECT_EQ(got[1].text.find('\n'), std::string::npos);

    OclBuildLog::parseAmd("x.cl(3): error: no caret here\n", m_build);
    EXPECT_TRUE(all().empty());
}

TEST_F(BuildLog, IntelFormTakesErrorsFirstAndSendsUnknownLogsWhole)
{
    const char* log = ":5:3: warning: passed over: because : an error: comes later: tail";
    OclBuildLog::parseIntel(log, m_build);
    EXPECT_EQ(all(), (std::vector<Rec>{{"E", 3, "(prog): error: comes later"}}));
    // When nothing is left the whole log goes to the error channel, intact.
    EXPECT_EQ(errorChannel(), (std::vector<std::string>{std::string("(prog): ") + log}));

    OclBuildLog::parseIntel("nothing to see", m_build);
    EXPECT_TRUE(all().empty());
    EXPECT_EQ(errorChannel(), (std::vector<std::string>{"(prog): nothing to see"}));
}

TEST_F(BuildLog, ClangFormOfPoclInBothOrders)
{
    OclBuildLog::Build b = m_build;
    OclBuildLog::handle("Portable Computing Language",
                        "<source>:5:9: error: use of undeclared identifier 'q'\n"
                        "    q = 1;\n"
                        "        ^\n"
                        "<source>:4:7: warning: unused variable 'w'\n"
                        "error: <source>:8:1: expected '}'\n"
                        "1 warning and 2 errors generated.\n",
                        b);
    EXPECT_EQ(all(), (std::vector<Rec>{{"E", 3, "(prog): error: use of undeclared identifier 'q'"},
                                       {"E", 6, "(prog): error: expected '}'"},
                                       {"W", 2, "(prog): warning: unused variable 'w'"}}));
    EXPECT_TRUE(errorChannel().empty());

    // A clean build gives nothing; a log of no known form gives the fall-back.
    OclBuildLog::handle("Portable Computing Language", " \n", b);
    OclBuildLog::handle("Portable Computing Language", "the compiler crashed", b);
    EXPECT_TRUE(all().empty());
    EXPECT_EQ(errorChannel(),
              (std::vector<std::string>{"(prog): Unknow platform! Cannot parse error... Please check Log file"}));
}

TEST_F(BuildLog, LongMessagesAreCutAndFullRingsDropTheOldest)
{
    std::string longLog = ":3:1: error: " + std::string(400, 'x') + "\n";
    OclBuildLog::parseNvidia(longLog, m_build);
    std::vector<Rec> got = all();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].text, "(prog): :3:1: error: " + std::string(239 - 21, 'x'));

    std::string many;
    for (int i = 1; i <= 150; ++i) many += ":" + std::to_string(i + 2) + ":1: error: e" + std::to_string(i) + "\n";
    OclBuildLog::parseNvidia(many, m_build);
    got = all();
    ASSERT_EQ(got.size(), 99u);
    EXPECT_EQ(got.front().line, 52);
    EXPECT_EQ(got.back().line, 150);
}
