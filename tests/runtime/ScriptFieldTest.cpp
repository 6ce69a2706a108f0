#include <gtest/gtest.h>

#include <lua.hpp>

#include "node/ScnField.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"

namespace {

std::string drainText()
{
    std::string all;
    for (const LogRecord& r : Channels::drainMerged()) all += std::string(r.text) + "\n";
    return all;
}

}  // namespace

TEST(ScriptField, EvaluatesExpressionsWithGlobalsAndFallsBackOnTheDefault)
{
    lua_State* L = AppGlobal::startLua();
    ASSERT_NE(L, nullptr);
    Channels::clearAll();
    ASSERT_EQ(luaL_dostring(L, "n = 4"), 0);

    ScnSFScript size(nullptr, "dim0", "2^4 + n");
    EXPECT_EQ(size.evaluate(1), 20);
    EXPECT_EQ(size.number, 20);
    EXPECT_EQ(drainText(), "");

    size = "someUndefinedName";
    EXPECT_EQ(size.evaluate(1), 1);
    EXPECT_EQ(drainText(), "(dim0): result must be a number. Using default value of 1\n");

    size = "2 +";  // does not compile
    EXPECT_EQ(size.evaluate(7), 7);
    std::string msg = drainText();
    EXPECT_EQ(msg.rfind("(dim0): [string \"initcode\"]:1:", 0), 0u) << msg;

    size = "error('boom')";
    EXPECT_EQ(size.evaluate(3), 3);
    EXPECT_NE(drainText().find("boom"), std::string::npos);

    size = "1e30";  // no int can hold it
    EXPECT_EQ(size.evaluate(5), 5);
    EXPECT_NE(drainText().find("Using default value of 5"), std::string::npos);

    ScnSFScript fromInt(nullptr, "dim1", 256);
    EXPECT_EQ(fromInt.evaluate(1), 256);
    EXPECT_EQ(lua_gettop(L), 0);  // nothing left on the stack
}

TEST(Channels, RingsDropTheOldestAndMergeBySequence)
{
    Channels::clearAll();
    LogRing small("small", 4);
    Channels::registerRing(&small);
    for (int i = 0; i < 6; ++i) LogStream(small, "src") << "line " << i;
    LogStream(Channels::error(), nullptr) << "no source";
    EXPECT_EQ(small.pending(), 3u);  // at most size - 1 pending
    std::vector<LogRecord> all = Channels::drainMerged();
    ASSERT_EQ(all.size(), 4u);
    EXPECT_STREQ(all[0].text, "(src): line 3");
    EXPECT_STREQ(all[2].text, "(src): line 5");
    EXPECT_STREQ(all[3].text, "(]: no source");
    EXPECT_LT(all[2].sequence, all[3].sequence);

    std::string longText(500, 'x');
    LogStream(small, "s") << longText;
    LogRecord r;
    ASSERT_TRUE(small.pop(r));
    EXPECT_EQ(std::string(r.text).size(), 239u);

    small.enabled = false;
    LogStream(small, "s") << "ignored";
    EXPECT_EQ(small.pending(), 0u);
    auto& rings = Channels::all();
    rings.erase(std::find(rings.begin(), rings.end(), &small));
}
