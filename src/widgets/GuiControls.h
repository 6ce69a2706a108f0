// The leaf controls: push controls, text controls, value controls and the
// list box. Each class's fields follow `position` and `size` in the order
// declared here, which is their order in a file.
#pragma once

#include <string>

#include "widgets/GuiComponent.h"

class GuiButton : public GuiComponent<ScnNode> {
    SCN_NODE(GuiButton, GuiComponent<ScnNode>)
public:
    GuiButton();
    ScnSFString text{this, "Text"};
    // Name of a picture that replaces the face.
    ScnSFString image{this, "Image"};

    static constexpr const char* kEvents[] = {"OnDown", "OnUp", "OnPressed"};
    enum Event { OnDown = 3, OnUp = 4, OnPressed = 5 };
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;

    // Between a press inside and the release, wherever the mouse goes.
    bool pressed() const { return m_pressed; }

protected:
    void serveEvent(GuiActionEvent& action) override;
    void draw() override;

private:
    bool m_pressed = false;
};

class GuiCheckbox : public GuiComponent<ScnNode> {
    SCN_NODE(GuiCheckbox, GuiComponent<ScnNode>)
public:
    GuiCheckbox();
    ScnSFString label{this, "label", "check"};

    static constexpr const char* kEvents[] = {"OnCheck", "OnClear"};
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
};

// Its caption is the node's name.
class GuiRadioButton : public GuiComponent<ScnNode> {
    SCN_NODE(GuiRadioButton, GuiComponent<ScnNode>)
public:
    GuiRadioButton();

    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
};

class GuiLabel : public GuiComponent<ScnNode> {
    SCN_NODE(GuiLabel, GuiComponent<ScnNode>)
public:
    GuiLabel();
    ScnSFString text{this, "Text"};
    // Bit 1: the background is filled.
    ScnSFUInt style{this, "style", 1};

    // Replaces the text and repaints; a non-string is ignored.
    void setText(const std::string& value);
    static void addLuaMethods(ScnLuaClass<GuiLabel>& c);
    int luaSetText(lua_State* L);

protected:
    // A label takes no press: found as hover only while editing.
    void serveEvent(GuiActionEvent& action) override;
    void draw() override;
};

class GuiInput : public GuiComponent<ScnNode> {
    SCN_NODE(GuiInput, GuiComponent<ScnNode>)
public:
    GuiInput();
    ScnSFString text{this, "Text"};
    ScnSFUInt style{this, "style", 1};

    static constexpr const char* kEvents[] = {"OnEnter"};
    enum Event { OnEnter = 3 };
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
    ~GuiInput() override;

    // Replaces the text and repaints; a non-string is ignored.
    void setText(const std::string& value);
    static void addLuaMethods(ScnLuaClass<GuiInput>& c);
    int luaSetText(lua_State* L);
    int luaGetText(lua_State* L);

    // The root hands the focus widget the pass before its walk: a press
    // outside lets focus go, keys are taken while it stays.
    void serveFocus(GuiActionEvent& action) { serveEvent(action); }
    int cursor() const { return m_cursor; }
    // The selected characters run from start to end (end not included);
    // empty when the two are equal.
    int selectionStart() const { return m_selStart; }
    int selectionEnd() const { return m_selEnd; }
    // The index of the character under pixel `x` of the view.
    int characterAt(double x) const;

protected:
    void serveEvent(GuiActionEvent& action) override;
    void draw() override;

private:
    // Edits by the keys of this frame, with the repeat counter.
    void takeKeys();
    // A held key acts at once when it is new, then each time the counter
    // has run down from `delay`.
    bool repeat(int code, int delay);
    // Removes the selected characters and puts the cursor where they began;
    // false when nothing is selected.
    bool deleteSelection();

    int m_cursor = 0;
    int m_selStart = 0, m_selEnd = 0;
    int m_lastKey = 0;
    int m_counter = 11;
    int m_cursorOffset = 1;  // pixels from the text's start
};

// A read-only text pane.
class GuiText : public GuiComponent<ScnNode> {
    SCN_NODE(GuiText, GuiComponent<ScnNode>)
public:
    GuiText();
    ScnSFString text{this, "Text"};
    ScnSFUInt style{this, "style", 1};
};

// The knob's place, 0 to 1.
class GuiSlider : public GuiComponent<ScnNode> {
    SCN_NODE(GuiSlider, GuiComponent<ScnNode>)
public:
    GuiSlider();
    ScnSFFloat value{this, "value", 0.0f};
    // Bit 512 vertical, bit 256 flat bevel.
    ScnSFUInt style{this, "style", 528};

    static constexpr const char* kEvents[] = {"OnDown", "OnMove", "OnUp"};
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
};

// A slider that springs back to the middle: -1 to 1.
class GuiAccelerator : public GuiComponent<ScnNode> {
    SCN_NODE(GuiAccelerator, GuiComponent<ScnNode>)
public:
    GuiAccelerator();
    ScnSFFloat value{this, "value", 0.0f};
    ScnSFUInt style{this, "style", 1040};

    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
};

class GuiListBox : public GuiComponent<ScnNode> {
    SCN_NODE(GuiListBox, GuiComponent<ScnNode>)
public:
    GuiListBox();
    // Bit 4: the cells draw with the icon atlas.
    ScnSFUInt style{this, "style", 0};

    static constexpr const char* kEvents[] = {"OnSelect", "OnDblClick"};
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;
};
