// Timed input files: what each line reports to the input table and on which
// frame, and the message a damaged file gets.
#include <gtest/gtest.h>

#include <string>

#include "widgets/InputScript.h"
#include "widgets/InputState.h"

namespace {

class Script : public ::testing::Test {
protected:
    void SetUp() override { InputState::instance().clear(); }
    void TearDown() override { InputState::instance().clear(); }
    // Feeds `frame` and samples it as the view would.
    void frame(InputScript& s, long f)
    {
        InputState& in = InputState::instance();
        in.age();
        s.feed(f);
        in.sample(static_cast<uint32_t>(f * 25), 200, 100);
    }
};

}  // namespace

TEST_F(Script, EventsReachTheTableOnTheirFrame)
{
    InputScript s;
    std::string error;
    ASSERT_TRUE(s.parse("# a click and a key\n"
                        "\n"
                        "2 move 40 30\n"
                        "3 down left 50 20\r\n"
                        "5 up left 51 21\n"
                        "5 wheel -3 51 21\n"
                        "6 keydown RETURN\n"
                        "7 keyup return\n"
                        "6 down right 10 10\n",
                        error))
        << error;
    const InputState& in = InputState::instance();
    frame(s, 1);
    EXPECT_EQ(in.mouseX, 0);
    frame(s, 2);
    EXPECT_EQ(in.mouseX, 40);
    EXPECT_EQ(in.mouseY, 30);
    EXPECT_EQ(in.normX, 0.2f);
    frame(s, 3);
    EXPECT_EQ(in.leftButton, uint32_t(InputState::WentDown));
    EXPECT_EQ(in.mouseX, 50) << "a press moves the cursor first";
    frame(s, 4);
    EXPECT_EQ(in.leftButton, uint32_t(InputState::Held));
    frame(s, 5);
    EXPECT_EQ(in.leftButton, uint32_t(InputState::WentUp));
    EXPECT_EQ(in.wheel, -3);
    EXPECT_EQ(in.mouseY, 21);
    frame(s, 6);
    EXPECT_EQ(in.keys[132], uint32_t(InputState::WentDown));
    EXPECT_EQ(in.rightButton & InputState::Held, uint32_t(InputState::Held)) << "later lines of an earlier frame";
    EXPECT_EQ(in.wheel, 0);
    frame(s, 7);
    EXPECT_EQ(in.keys[132], uint32_t(InputState::WentUp));
}

TEST_F(Script, TextIsTypedOneCharacterEveryOtherFrame)
{
    InputScript s;
    std::string error;
    ASSERT_TRUE(s.parse("10 text aB\n", error)) << error;
    const InputState& in = InputState::instance();
    frame(s, 10);
    EXPECT_EQ(in.keys['a'], uint32_t(InputState::WentDown));
    frame(s, 11);
    EXPECT_EQ(in.keys['a'], uint32_t(InputState::WentUp));
    frame(s, 12);
    EXPECT_EQ(in.keys['B'], uint32_t(InputState::WentDown)) << "an upper-case letter is typed with Shift";
    EXPECT_EQ(in.keys[InputState::KeyShift], uint32_t(InputState::WentDown));
    frame(s, 13);
    EXPECT_EQ(in.keys[InputState::KeyShift], uint32_t(InputState::WentUp));
}

TEST_F(Script, PadDigitsCountUnderShiftAndTheTopRowsDoNot)
{
    InputScript s;
    std::string error;
    ASSERT_TRUE(s.parse("1 keydown SHIFT\n2 keydown 3\n2 keydown PAD4\n", error)) << error;
    const InputState& in = InputState::instance();
    frame(s, 1);
    frame(s, 2);
    EXPECT_EQ(in.keys['3'], 0u);
    EXPECT_EQ(in.keys['4'], uint32_t(InputState::WentDown));
}

TEST_F(Script, KeyNames)
{
    EXPECT_EQ(InputScript::keyCode("a"), 97);
    EXPECT_EQ(InputScript::keyCode("A"), 97) << "Shift, not the name, decides the case";
    EXPECT_EQ(InputScript::keyCode("7"), '7');
    EXPECT_EQ(InputScript::keyCode("escape"), 138);
    EXPECT_EQ(InputScript::keyCode("LEFT"), 144);
    EXPECT_EQ(InputScript::keyCode("DOWN"), 147);
    EXPECT_EQ(InputScript::keyCode("CONTROL"), 134);
    EXPECT_EQ(InputScript::keyCode("F13"), -1);
}

TEST_F(Script, DamagedFilesAreRefusedWithTheLineAndKeepNothing)
{
    struct Case {
        std::string text;
        const char* message;
    };
    const Case cases[] = {
        {"1 move 3 4\nx move 1 2\n", "line 2: expected a frame number and an event"},
        {"0 move 1 2\n", "line 1: frame 0 is not between 1 and 100000000"},
        {"1 jump 1 2\n", "line 1: unknown event \"jump\""},
        {"1 down middle 1 2\n", "line 1: button must be left or right"},
        {"1 move 1\n", "line 1: move needs the pixel coordinates X Y"},
        {"1 move 1 nan\n", "line 1: move needs the pixel coordinates X Y"},
        {"1 wheel 1.5 0 0\n", "line 1: wheel needs a whole number of notches"},
        {"1 keydown HYPER\n", "line 1: unknown key \"HYPER\""},
        {"1 move 1 2 3\n", "line 1: unexpected \"3\" after the event"},
        {"1 text a~\n", "line 1: cannot type \"~\""},
        {"1 keydown PADX\n", "line 1: unknown key \"PADX\""},
        // A file of a few megabytes must not turn into gigabytes of events.
        {"1 text " + std::string(300000, 'q') + "\n" + "2 text " + std::string(300000, 'q') + "\n",
         "line 2: more than 1000000 events"},
    };
    for (const Case& c : cases) {
        InputScript s;
        std::string error;
        ASSERT_TRUE(s.parse("1 move 5 5\n", error));
        EXPECT_FALSE(s.parse(c.text, error)) << c.text;
        EXPECT_EQ(error, c.message) << c.text;
        // The events read before stay as they were.
        ASSERT_EQ(s.events().size(), 1u) << c.text;
        EXPECT_EQ(s.events()[0].x, 5) << c.text;
    }
    InputScript s;
    std::string error;
    EXPECT_FALSE(s.load("/nonexistent/velmora-input.txt", error));
    EXPECT_EQ(error, "cannot read input file /nonexistent/velmora-input.txt");
}
