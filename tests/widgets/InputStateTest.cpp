// The input table as the view samples it: edges, letters by Shift, double
// clicks and the end-of-frame ageing.
#include <gtest/gtest.h>

#include "widgets/InputState.h"

namespace {

struct Fresh : ::testing::Test {
    void SetUp() override { in.clear(); }
    void TearDown() override { in.clear(); }
    InputState& in = InputState::instance();
    uint32_t ms = 1000;
    void frame()
    {
        in.age();
        ms += 25;
        in.sample(ms, 200, 100);
    }
};

}  // namespace

TEST_F(Fresh, KeysGoDownAreHeldAndGoUpAndLettersFollowShift)
{
    in.setKey('w', true);
    in.sample(ms, 200, 100);
    EXPECT_EQ(in.keys['w'], InputState::WentDown);
    EXPECT_FALSE(in.held('w'));
    frame();
    EXPECT_EQ(in.keys['w'], InputState::Held);
    in.setKey('w', false);
    frame();
    EXPECT_EQ(in.keys['w'], InputState::WentUp);
    frame();
    EXPECT_EQ(in.keys['w'], 0u);
    // With Shift held a letter writes its upper-case code only.
    in.setKey(InputState::KeyShift, true);
    in.setKey('a', true);
    frame();
    frame();
    EXPECT_EQ(in.keys['A'], InputState::Held);
    EXPECT_EQ(in.keys['a'], 0u);
    // With Shift down the top row's digits type signs and are skipped; the
    // numeric pad's count.
    in.setKey('4', true);
    in.setKey('5', true, true);
    frame();
    EXPECT_EQ(in.keys['4'], 0u);
    EXPECT_EQ(in.keys['5'], InputState::WentDown);
    in.setKey(InputState::KeyShift, false);
    frame();
    EXPECT_EQ(in.keys['4'], InputState::Held) << "seen once Shift is up, down since the frame before";
    in.setKey('5', false, true);
    frame();
    EXPECT_EQ(in.keys['5'], InputState::WentUp);
}

TEST_F(Fresh, AQuickTapBetweenFramesGoesDownThenUpAndSpaceHasBothCodes)
{
    // Pressed and let go before the view sampled: one frame down, one up.
    in.setKey('q', true);
    in.setKey('q', false);
    in.sample(ms, 200, 100);
    EXPECT_EQ(in.keys['q'], InputState::WentDown);
    frame();
    EXPECT_EQ(in.keys['q'], InputState::WentUp);
    frame();
    EXPECT_EQ(in.keys['q'], 0u);

    // SPACE reported by either code shows under both.
    in.setKey(139, true);
    frame();
    EXPECT_EQ(in.keys[32], InputState::WentDown);
    EXPECT_EQ(in.keys[139], InputState::WentDown);
    in.setKey(32, false);
    frame();
    EXPECT_EQ(in.keys[32], InputState::WentUp);
    EXPECT_EQ(in.keys[139], InputState::WentUp);
}

TEST_F(Fresh, PositionIsNormalisedWithDeltasAndWheelAndScrollLastOneFrame)
{
    in.setCursor(50, -5);
    in.sample(ms, 200, 100);
    EXPECT_EQ(in.mouseY, 0) << "negative positions are stored as 0";
    EXPECT_FLOAT_EQ(in.normX, 0.25f);
    in.setCursor(100, 60);
    in.addWheel(-2);
    in.setScroll(0.01, -0.02);
    frame();
    EXPECT_FLOAT_EQ(in.deltaX, 50);
    EXPECT_FLOAT_EQ(in.normDeltaX, 0.25f);
    EXPECT_FLOAT_EQ(in.normDeltaY, 0.6f);
    EXPECT_EQ(in.wheel, -2);
    EXPECT_EQ(in.scroll[1], -0.02);
    // One setting of the view counts for one frame.
    frame();
    EXPECT_EQ(in.wheel, 0);
    EXPECT_EQ(in.scroll[0], 0);
    EXPECT_FLOAT_EQ(in.deltaX, 0);
}

TEST_F(Fresh, LeftDoubleClickDelaysHoldAndRightIsHeldAtOnce)
{
    in.setButton(1, true);
    in.sample(ms, 200, 100);
    EXPECT_EQ(in.leftButton, InputState::WentDown);
    frame();
    EXPECT_EQ(in.leftButton, InputState::Held);
    in.setButton(1, false);
    frame();
    EXPECT_EQ(in.leftButton, InputState::WentUp);
    // A second press within 210 ms of the last accepted one is a double click.
    for (int i = 0; i < 10; ++i) frame();
    in.setButton(1, true);
    frame();
    EXPECT_EQ(in.leftButton, InputState::WentDown) << "a press 300 ms after the last is a single press";
    in.setButton(1, false);
    frame();
    in.setButton(1, true);
    frame();
    EXPECT_EQ(in.leftButton, InputState::DoubleClick);
    // ... after which the held button counts only once 811 ms have passed.
    frame();
    EXPECT_EQ(in.leftButton, 0u);
    for (int i = 0; i < 30; ++i) frame();
    EXPECT_EQ(in.leftButton, 0u) << "775 ms after the double click";
    frame();
    frame();
    EXPECT_EQ(in.leftButton, InputState::Held) << "825 ms after the double click";
    // The double click moved its press back by 210 ms: a third press 50 ms
    // after it is a single press again, a fourth one a double click.
    in.setButton(1, false);
    frame();
    for (int i = 0; i < 10; ++i) frame();
    in.setButton(1, true);
    frame();
    in.setButton(1, false);
    in.setButton(1, true);
    frame();
    EXPECT_EQ(in.leftButton, InputState::DoubleClick);
    in.setButton(1, false);
    frame();
    in.setButton(1, true);
    frame();
    EXPECT_EQ(in.leftButton, InputState::WentDown);
    in.setButton(1, false);
    in.setButton(1, true);
    frame();
    EXPECT_EQ(in.leftButton, InputState::DoubleClick);
    in.setButton(1, false);
    frame();
    in.setButton(2, true);
    frame();
    EXPECT_EQ(in.rightButton, InputState::Held);
    in.setButton(2, false);
    frame();
    EXPECT_EQ(in.rightButton, InputState::WentUp);
}
