#include "widgets/GuiControls.h"

#include <GL/glew.h>

#include <algorithm>
#include <cmath>

#include <lua.hpp>

#include "platform/GlContext.h"
#include "runtime/Clock.h"
#include "runtime/ScnLua.h"
#include "widgets/GuiActionEvent.h"
#include "widgets/GuiDraw.h"
#include "widgets/GuiRoot.h"
#include "widgets/InputState.h"

namespace {
// Default sizes are counted in cells of the present cell size.
int cell()
{
    return GuiDraw::cellSize();
}
}

ScnNodeType GuiButton::s_type;
ScnNodeType GuiCheckbox::s_type;
ScnNodeType GuiRadioButton::s_type;
ScnNodeType GuiLabel::s_type;
ScnNodeType GuiInput::s_type;
ScnNodeType GuiText::s_type;
ScnNodeType GuiSlider::s_type;
ScnNodeType GuiAccelerator::s_type;
ScnNodeType GuiListBox::s_type;

GuiButton::GuiButton() : GuiComponent("button", 4 * cell() + 4, cell() + 4, true) {}

void GuiButton::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiButton::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

void GuiButton::serveEvent(GuiActionEvent& action)
{
    if (!Engine::running || action.handled) {
        offerHover(action);
        return;
    }
    const InputState& in = InputState::instance();
    if (m_pressed) {
        // The press captured the button: the release counts wherever the
        // mouse is, and nothing behind the button sees the mouse meanwhile.
        if (in.leftButton & (InputState::Held | InputState::WentDown)) {
            notify(OnPressed);
        } else {
            m_pressed = false;
            notify(OnUp);
            invalidate();
        }
        action.handled = true;
    } else if ((in.leftButton & InputState::WentDown) && GuiActionEvent::mouseInside(getBounds())) {
        m_pressed = true;
        notify(OnDown);
        invalidate();
        action.handled = true;
    }
}

void GuiButton::draw()
{
    ScnBox box = getBounds();
    GuiDraw::setColor(GuiDraw::palette(GuiDraw::Face3D));
    GuiDraw::fillRect(box, 2, 2);
    // A pressed face shows its caption one pixel right and down.
    const double shift = m_pressed ? 1 : 0;
    const double w = box.max[0] - box.min[0], h = box.max[1] - box.min[1];
    const int length = static_cast<int>(text.value.size());
    GuiDraw::setColor(GuiDraw::palette(GuiDraw::Text));
    GuiDraw::text(std::floor(box.min[0] + shift + w / 2 - GuiDraw::textWidth(text.value.c_str(), length) / 2.0),
                  std::floor(box.min[1] - shift + h / 2 - 4), text.value.c_str(), length);
    GuiDraw::bevel(box, m_pressed ? GuiDraw::Sunken : GuiDraw::Raised);
}

GuiCheckbox::GuiCheckbox() : GuiComponent("check", 60, cell(), true) {}

void GuiCheckbox::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiCheckbox::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiRadioButton::GuiRadioButton() : GuiComponent("radio", 60, cell() + 4, true) {}

// A radio button raises what a check box raises.
void GuiRadioButton::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, GuiCheckbox::kEvents);
}

void GuiRadioButton::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, GuiCheckbox::kEvents);
}

GuiLabel::GuiLabel() : GuiComponent("text", 120, cell() + 4, true) {}

void GuiLabel::setText(const std::string& value)
{
    text = value;
    invalidate();
}

void GuiLabel::addLuaMethods(ScnLuaClass<GuiLabel>& c)
{
    c.add("setText", &GuiLabel::luaSetText);
}

int GuiLabel::luaSetText(lua_State* L)
{
    if (lua_type(L, 1) == LUA_TSTRING) setText(lua_tostring(L, 1));
    return 0;
}

void GuiLabel::serveEvent(GuiActionEvent& action)
{
    if (!Engine::running) offerHover(action);
}

void GuiLabel::draw()
{
    const ScnBox& box = getBounds();
    if (style.value & 1) {
        GuiDraw::setColor(GuiDraw::palette(GuiDraw::Window));
        GuiDraw::fillRect(box, 0, 0);
        GuiDraw::flush();
    }
    GuiDraw::pushClip(box, 0, 0);
    GuiDraw::setColor(GuiDraw::palette(GuiDraw::Text));
    GuiDraw::text(box.min[0] + 4, box.max[1] - 6 - GuiDraw::textHeight(), text.value.c_str(),
                  static_cast<int>(text.value.size()));
    GuiDraw::popClip();
}

GuiInput::GuiInput() : GuiComponent("input", 120, cell() + 4, true) {}

GuiInput::~GuiInput()
{
    if (GuiRoot::focus() == this) GuiRoot::setFocus(nullptr);
}

void GuiInput::setText(const std::string& value)
{
    text = value;
    m_cursor = std::min<int>(m_cursor, static_cast<int>(text.value.size()));
    m_selStart = m_selEnd = m_cursor;
    invalidate();
}

void GuiInput::addLuaMethods(ScnLuaClass<GuiInput>& c)
{
    c.add("setText", &GuiInput::luaSetText);
    c.add("getText", &GuiInput::luaGetText);
}

int GuiInput::luaSetText(lua_State* L)
{
    if (lua_type(L, 1) == LUA_TSTRING) setText(lua_tostring(L, 1));
    return 0;
}

int GuiInput::luaGetText(lua_State* L)
{
    lua_pushlstring(L, text.value.data(), text.value.size());
    return 1;
}

int GuiInput::characterAt(double x) const
{
    double offset = x - getBounds().min[0];
    const std::string& s = text.value;
    for (int i = 0; i < static_cast<int>(s.size()); ++i) {
        offset -= GuiDraw::textWidth(s.c_str() + i, 1);
        if (offset < 0) return i;
    }
    return static_cast<int>(s.size());
}

void GuiInput::serveEvent(GuiActionEvent& action)
{
    if (!Engine::running || action.handled) {
        offerHover(action);
        return;
    }
    const InputState& in = InputState::instance();
    if ((in.leftButton & InputState::WentDown) || GuiRoot::rightWentDown()) {
        if (GuiActionEvent::mouseInside(getBounds())) {
            if (GuiRoot::focus() != this) GuiRoot::setFocus(this);
            m_cursor = characterAt(in.mouseX);
            m_selStart = m_selEnd = m_cursor;
            invalidate();
            action.handled = true;
        } else if (GuiRoot::focus() == this) {
            GuiRoot::setFocus(nullptr);
            invalidate();
        }
        return;
    }
    if (GuiRoot::focus() != this) return;
    const int length = static_cast<int>(text.value.size());
    if (in.leftButton & InputState::DoubleClick) {
        m_selStart = 0;
        m_selEnd = length;
    } else if (in.leftButton & InputState::Held) {
        // Dragging selects from the cursor to the mouse, either way.
        const int at = characterAt(in.mouseX);
        m_selStart = std::min(m_cursor, at);
        m_selEnd = std::max(m_cursor, at);
    } else {
        takeKeys();
    }
    if (in.keys[132] & InputState::WentDown) notify(OnEnter);
    m_cursorOffset = text.value.empty() ? 1 : GuiDraw::textWidth(text.value.c_str(), m_cursor) + 1;
    // Every frame: the cursor blinks.
    invalidate();
    action.handled = true;
}

bool GuiInput::repeat(int code, int delay)
{
    if (m_lastKey != code) {
        m_lastKey = code;
        m_counter = delay;
        return true;
    }
    if (m_counter <= 0) {
        m_counter = delay;
        return true;
    }
    --m_counter;
    return false;
}

bool GuiInput::deleteSelection()
{
    if (m_selStart >= m_selEnd) return false;
    text.value.erase(static_cast<size_t>(m_selStart), static_cast<size_t>(m_selEnd - m_selStart));
    m_cursor = m_selEnd = m_selStart;
    return true;
}

void GuiInput::takeKeys()
{
    const InputState& in = InputState::instance();
    auto printable = [](int k) {
        return (k >= 'a' && k <= 'z') || (k >= 'A' && k <= 'Z') || (k >= '0' && k <= '9') || k == ' ' ||
               (k >= 43 && k <= 46);
    };
    int key = -1;
    for (int k = 0; k < InputState::kKeys && key < 0; ++k)
        if ((in.keys[k] & InputState::WentDown) && printable(k)) key = k;
    std::string& s = text.value;
    const int length = static_cast<int>(s.size());
    auto held = [&](int code) { return (in.keys[code] & (InputState::Held | InputState::WentDown)) != 0; };
    const bool shift = held(InputState::KeyShift);
    if (key >= 0) {
        deleteSelection();
        if (repeat(key, 11)) {
            s.insert(s.begin() + m_cursor, static_cast<char>(key));
            ++m_cursor;
        }
        m_selStart = m_selEnd = m_cursor;
    } else if (held(129)) {  // BACKSPACE
        const bool first = m_lastKey != 129;
        if (repeat(129, 11) && !(first && deleteSelection()) && m_cursor > 0) s.erase(static_cast<size_t>(--m_cursor), 1);
        m_selStart = m_selEnd = m_cursor;
    } else if (held(InputState::KeyLeft)) {
        if (repeat(InputState::KeyLeft, 15)) {
            if (shift) {
                if (m_selStart == m_selEnd) m_selStart = m_selEnd = m_cursor;
                m_selStart = std::max(0, m_selStart - 1);
                m_cursor = m_selStart;
            } else if (m_selStart < m_selEnd) {
                m_cursor = m_selEnd = m_selStart;
            } else if (m_cursor > 0) {
                m_selStart = m_selEnd = --m_cursor;
            }
        }
    } else if (held(InputState::KeyRight)) {
        if (repeat(InputState::KeyRight, 15)) {
            if (shift) {
                if (m_selStart == m_selEnd) m_selStart = m_selEnd = m_cursor;
                m_selEnd = std::min(length, m_selEnd + 1);
                m_cursor = m_selEnd;
            } else if (m_selStart < m_selEnd) {
                m_cursor = m_selStart = m_selEnd;
            } else if (m_cursor < length) {
                m_selStart = m_selEnd = ++m_cursor;
            }
        }
    } else if (held(127)) {  // DELETE
        const bool first = m_lastKey != 127;
        if (repeat(127, 15) && !(first && deleteSelection()) && m_cursor < length)
            s.erase(static_cast<size_t>(m_cursor), 1);
        m_selStart = m_selEnd = m_cursor;
    } else {
        m_lastKey = 0;
        m_counter = 11;
    }
}

void GuiInput::draw()
{
    const ScnBox& box = getBounds();
    if (style.value & 1) {
        GuiDraw::setColor(GuiDraw::palette(GuiDraw::Window));
        GuiDraw::fillRect(box, 0, 0);
    }
    if (GuiRoot::focus() == this && GuiRoot::blink() >= 0) {
        GuiDraw::flush();
        const double x = box.min[0] + 2 + m_cursorOffset + 1;
        GuiDraw::lower(0.001f);
        GuiDraw::setColor(0, 0, 0, GuiDraw::opacity());
        GuiDraw::line(x, box.min[1] + 3, x, box.max[1] - 3);
        GuiDraw::lower(-0.001f);
        if (GlContext::ready()) glLineWidth(2);
        GuiDraw::flush();
        if (GlContext::ready()) glLineWidth(1);
    }
    const char* chars = text.value.c_str();
    const int length = static_cast<int>(text.value.size());
    const double tx = box.min[0] + 3, ty = box.min[1] + 5;
    GuiDraw::pushClip(box, 2, 2);
    GuiDraw::setColor(GuiDraw::palette(GuiDraw::Text));
    GuiDraw::text(tx, ty, chars, length);
    GuiDraw::popClip();
    const int from = std::clamp(m_selStart, 0, length), to = std::clamp(m_selEnd, 0, length);
    if (from < to) {
        // The selection: the same text again, in its own colours, over a
        // fill that reaches from one end of the selection to the other.
        ScnBox sel = box;
        sel.min[0] = tx + GuiDraw::textWidth(chars, from);
        sel.max[0] = tx + GuiDraw::textWidth(chars, to);
        GuiDraw::lower(0.001f);
        GuiDraw::pushClip(box, 2, 2);
        GuiDraw::pushClip(sel, 0, 2);
        GuiDraw::setColor(GuiDraw::palette(GuiDraw::Highlight));
        GuiDraw::fillRect(sel, 0, 2);
        GuiDraw::setColor(GuiDraw::palette(GuiDraw::HighlightText));
        GuiDraw::text(tx, ty, chars, length);
        GuiDraw::popClip();
        GuiDraw::popClip();
        GuiDraw::lower(-0.001f);
    }
    GuiDraw::bevel(box, GuiDraw::Sunken);
}

void GuiInput::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiInput::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiText::GuiText() : GuiComponent("textpane", 120, 120, false) {}

GuiSlider::GuiSlider() : GuiComponent("slider", cell() + 4, 120, true) {}

void GuiSlider::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiSlider::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}

GuiAccelerator::GuiAccelerator() : GuiComponent("accelerator", 120, cell() + 4, true) {}

// The same handling as a slider, so the same events.
void GuiAccelerator::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, GuiSlider::kEvents);
}

void GuiAccelerator::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, GuiSlider::kEvents);
}

GuiListBox::GuiListBox() : GuiComponent("listbox", 100, 200, true) {}

void GuiListBox::addEvents(ScnMFFunction& f)
{
    guiAddEvents(f, kEvents);
}

void GuiListBox::removeEvents(ScnMFFunction& f)
{
    guiRemoveEvents(f, kEvents);
}
