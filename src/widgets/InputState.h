// The table of key and mouse states that cameras and widgets read, sampled
// once a frame by the view and aged at the end of the frame.
//
// Two halves. What the window system reports between frames goes in through
// the report functions (setCursor, setKey, setButton, addWheel, setScroll):
// they only remember the raw state. sample() turns that into the states of
// this frame, with the edges and double clicks; nothing else writes them.
// The view (RtnDocument's frame) calls sample() before the frame step and
// age() after it; the headless runner and tests report through the same
// functions the window system will use.
#pragma once

#include <cstdint>

class InputState {
public:
    // Bits of a key or button state.
    enum : uint32_t { Held = 1, WentDown = 2, WentUp = 4, DoubleClick = 8 };
    // The kit's own key codes (letters: 65 to 90 with Shift, 97 to 122 without).
    enum Key : int {
        KeySpace = 32,
        KeyShift = 133,
        KeyControl = 134,
        KeyAlt = 135,
        KeySpaceToo = 139,
        KeyLeft = 144,
        KeyUp = 145,
        KeyRight = 146,
        KeyDown = 147,
    };
    static constexpr int kKeys = 256;

    static InputState& instance();

    // -- states of this frame, written by sample() ----------------------------
    int32_t wheel = 0;  // wheel notches of this frame, any sign
    uint32_t leftButton = 0, rightButton = 0;
    uint32_t keys[kKeys] = {};
    float mouseX = 0, mouseY = 0;  // pixels, y from the bottom, never negative
    float normX = 0, normY = 0;    // position divided by the view's size
    float deltaX = 0, deltaY = 0;  // pixels since the previous frame
    float normDeltaX = 0, normDeltaY = 0;
    // The view's two scroll values (its scroll bars), cleared every frame.
    double scroll[2] = {0, 0};
    // The view's input capture switch: with it off the camera does not
    // follow keys and mouse.
    bool capture = true;

    bool held(int code) const { return code >= 0 && code < kKeys && (keys[code] & Held); }

    // -- what the window system reports between frames --------------------------
    // Cursor in view pixels, y measured from the bottom.
    void setCursor(double x, double y);
    // A key by kit code; letters are reported by their lower-case code and
    // sampled into the upper-case one while Shift is held. SPACE has two
    // codes, 32 and 139: either reports both. A key pressed and let go
    // between two samples still goes down in the first and up in the next.
    // Digits say whether they come from the numeric pad: the top row's are
    // not sampled while Shift is down (they type the signs above them).
    void setKey(int code, bool down, bool keypad = false);
    // Button 1 left, 2 right. A press is remembered until the next sample
    // even when the button is up again by then.
    void setButton(int button, bool down);
    void addWheel(int notches);
    void setScroll(double first, double second);

    // The frame's sample: `ms` the clock, `width` and `height` the view.
    void sample(uint32_t ms, int width, int height);
    // End of frame: only the held bits stay; wheel and scroll values go.
    void age();
    // Everything back to nothing pressed (a new document, a test).
    void clear();

private:
    struct Reported {
        bool keys[kKeys] = {};
        bool keyPressed[kKeys] = {};  // went down since the last sample
        bool pad[10] = {}, padPressed[10] = {};  // the numeric pad's digits
        bool left = false, right = false;
        bool leftPressed = false, rightPressed = false;
        double x = 0, y = 0;
        int wheel = 0;
        double scroll[2] = {0, 0};
    };
    Reported m_now;
    bool m_before[kKeys] = {};  // the key array of the previous sample
    float m_prevX = 0, m_prevY = 0, m_prevNormX = 0, m_prevNormY = 0;
    int64_t m_lastLeftPress = -1000000, m_lastDouble = -1000000, m_lastRightPress = -1000000;
};
