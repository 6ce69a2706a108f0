#include "widgets/InputState.h"

#include <algorithm>

namespace {
constexpr int64_t kDoubleClickLeft = 210;   // ms between two presses of a double click
constexpr int64_t kHoldDelay = 811;         // ms after a double click before the left button counts as held
constexpr int64_t kDoubleClickRight = 400;

bool isLetter(int code)
{
    return code >= 'a' && code <= 'z';
}

bool isDigit(int code)
{
    return code >= '0' && code <= '9';
}
}  // namespace

InputState& InputState::instance()
{
    static InputState state;
    return state;
}

void InputState::setCursor(double x, double y)
{
    m_now.x = x;
    m_now.y = y;
}

void InputState::setKey(int code, bool down, bool keypad)
{
    if (code < 0 || code >= kKeys) return;
    if (keypad && isDigit(code)) {
        const int d = code - '0';
        if (down && !m_now.pad[d]) m_now.padPressed[d] = true;
        m_now.pad[d] = down;
        return;
    }
    if (code == KeySpace || code == KeySpaceToo) {
        for (int c : {int(KeySpace), int(KeySpaceToo)}) {
            if (down && !m_now.keys[c]) m_now.keyPressed[c] = true;
            m_now.keys[c] = down;
        }
        return;
    }
    if (down && !m_now.keys[code]) m_now.keyPressed[code] = true;
    m_now.keys[code] = down;
}

void InputState::setButton(int button, bool down)
{
    bool& state = button == 1 ? m_now.left : m_now.right;
    bool& pressed = button == 1 ? m_now.leftPressed : m_now.rightPressed;
    if (button != 1 && button != 2) return;
    if (down && !state) pressed = true;
    state = down;
}

void InputState::addWheel(int notches)
{
    m_now.wheel += notches;
}

void InputState::setScroll(double first, double second)
{
    m_now.scroll[0] = first;
    m_now.scroll[1] = second;
}

void InputState::sample(uint32_t ms, int width, int height)
{
    // Position: clamped at 0, normalised by the view, deltas from the last frame.
    mouseX = static_cast<float>(std::max(0.0, m_now.x));
    mouseY = static_cast<float>(std::max(0.0, m_now.y));
    normX = width > 0 ? mouseX / static_cast<float>(width) : 0.0f;
    normY = height > 0 ? mouseY / static_cast<float>(height) : 0.0f;
    deltaX = mouseX - m_prevX;
    deltaY = mouseY - m_prevY;
    normDeltaX = normX - m_prevNormX;
    normDeltaY = normY - m_prevNormY;
    m_prevX = mouseX;
    m_prevY = mouseY;
    m_prevNormX = normX;
    m_prevNormY = normY;

    // Keys: 1 down now and before, 2 down now only, 4 down before only. A
    // letter writes the upper-case code while Shift is down, the lower-case
    // one while it is up; the other code keeps its last value. A top-row
    // digit is skipped while Shift is down; the numeric pad's always counts.
    const bool shift = m_now.keys[KeyShift];
    for (int k = 0; k < kKeys; ++k) {
        // A press already let go counts as down for this one sample.
        const bool top = m_now.keys[k] || m_now.keyPressed[k];
        bool pad = false;
        if (isDigit(k)) {
            pad = m_now.pad[k - '0'] || m_now.padPressed[k - '0'];
            m_now.padPressed[k - '0'] = false;
        }
        const bool now = top || pad, before = m_before[k];
        m_now.keyPressed[k] = false;
        m_before[k] = now;
        if (isDigit(k) && shift && !pad) continue;
        const uint32_t s = now && before ? 1u : now ? 2u : before ? 4u : 0u;
        if (isLetter(k))
            keys[shift ? k - 32 : k] = s;
        else if (k < 'A' || k > 'Z')
            keys[k] = s;
    }

    // Left button: a second press within 210 ms is a double click, after
    // which the button counts as held only once 811 ms have passed.
    const int64_t t = ms;
    if (m_now.leftPressed) {
        if (t - m_lastLeftPress < kDoubleClickLeft) {
            leftButton = DoubleClick;
            m_lastLeftPress -= kDoubleClickLeft;  // a third press is a new single press
            m_lastDouble = t;
        } else {
            leftButton = WentDown;
            m_lastLeftPress = t;
        }
    } else if (m_now.left) {
        if (t - m_lastDouble >= kHoldDelay) leftButton = Held;
    } else if (leftButton & (Held | WentDown)) {
        leftButton = WentUp;
    }
    m_now.leftPressed = false;

    // Right button: held from the press on, double click within 400 ms.
    if (m_now.rightPressed) {
        rightButton = t - m_lastRightPress < kDoubleClickRight ? (Held | DoubleClick) : Held;
        m_lastRightPress = t;
    } else if (m_now.right) {
        rightButton = Held;
    } else if (rightButton & (Held | WentDown)) {
        rightButton = WentUp;
    }
    m_now.rightPressed = false;

    wheel = m_now.wheel;
    m_now.wheel = 0;
    // A scroll value counts for the frame that samples it: the view sets
    // it anew for each frame it is to hold.
    scroll[0] = m_now.scroll[0];
    scroll[1] = m_now.scroll[1];
    m_now.scroll[0] = m_now.scroll[1] = 0;
}

void InputState::age()
{
    leftButton &= Held;
    rightButton &= Held;
    for (uint32_t& k : keys) k &= Held;
    wheel = 0;
    scroll[0] = scroll[1] = 0;
}

void InputState::clear()
{
    const bool keepCapture = capture;
    *this = InputState();
    capture = keepCapture;
}
