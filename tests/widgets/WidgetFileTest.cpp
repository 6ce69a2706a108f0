// Widget classes in files: payloads built here by hand, one class for each
// kind of stored field (order, widths, defaults), the close button inline in
// a window, the old canvas name, and every widget class through an
// application file under its own name.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "node/ScnNode.h"
#include "runtime/RtnApplication.h"
#include "widgets/GuiContainers.h"
#include "widgets/GuiControls.h"
#include "widgets/GuiDraw.h"
#include "widgets/GuiMenus.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Little-endian values appended one after the other, as a writer must.
class Payload {
public:
    Payload& raw(const void* p, size_t n)
    {
        auto* b = static_cast<const uint8_t*>(p);
        bytes.insert(bytes.end(), b, b + n);
        return *this;
    }
    Payload& u32(uint32_t v) { return raw(&v, 4); }
    Payload& u16(uint16_t v) { return raw(&v, 2); }
    Payload& f32(float v) { return raw(&v, 4); }
    Payload& str(const std::string& s)
    {
        u32(static_cast<uint32_t>(s.size()));
        return raw(s.data(), s.size());
    }
    Payload& vec(double x, double y, double z)
    {
        for (double d : {x, y, z}) raw(&d, 8);
        return *this;
    }
    Payload& append(const Bytes& b) { return raw(b.data(), b.size()); }
    Bytes bytes;
};

Bytes written(const ScnNode& n)
{
    ScnOutStream out;
    n.write(out);
    return out.bytes();
}

// "" when equal, else where the two first differ.
std::string difference(const Bytes& got, const Bytes& want)
{
    if (got == want) return "";
    size_t i = 0;
    while (i < got.size() && i < want.size() && got[i] == want[i]) ++i;
    return "sizes " + std::to_string(got.size()) + " and " + std::to_string(want.size()) + ", first difference at byte " +
           std::to_string(i);
}

enum class Kind { Text, U32, F32, U16, Script, Format, Flags };

struct FieldLayout {
    Kind kind;
    const char* name;
    const char* text = "";  // default of Text and Script
    double number = 0;      // default of U32, F32, U16
};

struct ClassLayout {
    const char* cls;
    bool group;
    const char* nodeName;
    double width, height;
    std::vector<FieldLayout> fields;  // after position and size
    bool closeButton = false;
};

constexpr int c = 19;  // the cell size before any root sets one

// One class for each kind of stored field, and the window's close button.
const std::vector<ClassLayout>& classes()
{
    static const std::vector<ClassLayout> all = {
        {"GuiWindow", true, "window", 220, 220, {{Kind::U32, "style", "", 65535}, {Kind::Text, "label", "window"}}, true},
        {"GuiCanvas",
         true,
         "canvas2",
         200,
         200,
         {{Kind::Script, "dim0", "256"}, {Kind::Script, "dim1", "256"}, {Kind::Format, "format"}, {Kind::Flags, "flags"}}},
        {"GuiToolBarButton", false, "button", 20, c + 4, {{Kind::U16, "icon", "", 0}}},
        {"GuiButton", false, "button", 4 * c + 4, c + 4, {{Kind::Text, "Text"}, {Kind::Text, "Image"}}},
        {"GuiSlider", false, "slider", c + 4, 120, {{Kind::F32, "value", "", 0}, {Kind::U32, "style", "", 528}}},
    };
    return all;
}

const char* const kEveryClass[] = {
    "GuiWindow",  "GuiFileDialog", "GuiCanvas",      "GuiTabCtrl",     "GuiMenuBar",       "GuiMenu",
    "GuiMenuItem", "GuiMenuSeparator", "GuiToolBar", "GuiToolBarButton", "GuiToolBarSeparator", "GuiButton",
    "GuiCheckbox", "GuiRadioButton", "GuiLabel",     "GuiInput",       "GuiSlider",        "GuiAccelerator",
    "GuiListBox",  "GuiText",
};

// The close button inline after a window's fields: a default GuiButton.
Bytes defaultCloseButton()
{
    return Payload().str("button").vec(100, 100, 0).vec(4 * c + 4, c + 4, 0).str("").str("").bytes;
}

void putField(Payload& p, const FieldLayout& f, bool altered)
{
    switch (f.kind) {
    case Kind::Text: p.str(altered ? std::string("alt ") + f.name : f.text); break;
    case Kind::Script: p.str(altered ? "2^9" : f.text); break;
    case Kind::U32: p.u32(altered ? 0x12345678u : static_cast<uint32_t>(f.number)); break;
    case Kind::F32: p.f32(altered ? 0.625f : static_cast<float>(f.number)); break;
    case Kind::U16: p.u16(altered ? 0xBEEF : static_cast<uint16_t>(f.number)); break;
    // CL_RGBA, CL_UNORM_INT8 by default; CL_BGRA, CL_FLOAT altered.
    case Kind::Format: p.u32(altered ? 0x10B6 : 0x10B5).u32(altered ? 0x10DE : 0x10D2); break;
    case Kind::Flags:
        for (uint32_t w : altered ? std::vector<uint32_t>{2, 3, 4, 5} : std::vector<uint32_t>{1, 0, 0, 0}) p.u32(w);
        break;
    }
}

// The payload of a node of the class: defaults, or the altered values that
// alter() gives it.
Bytes payloadOf(const ClassLayout& s, bool altered)
{
    Payload p;
    p.str(altered ? "altered" : s.nodeName);
    if (s.group) p.u32(0);
    if (altered)
        p.vec(12.5, -40, 3).vec(333, 44, 1);
    else
        p.vec(100, 100, 0).vec(s.width, s.height, 0);
    for (const FieldLayout& f : s.fields) putField(p, f, altered);
    if (s.closeButton) p.append(defaultCloseButton());
    return p.bytes;
}

// Sets every stored field of `n`, found by its name, to the altered value:
// each field reads exactly the bytes that the data model gives it.
void setField(ScnNode& n, const char* name, const Bytes& bytes)
{
    ScnField* field = n.findField(name);
    ASSERT_NE(field, nullptr) << name;
    ScnInStream in(bytes);
    field->read(in);
    EXPECT_TRUE(!in.failed() && in.atEnd()) << name << " does not take " << bytes.size() << " bytes";
}

void alter(ScnNode& n, const ClassLayout& s)
{
    n.name = "altered";
    setField(n, "position", Payload().vec(12.5, -40, 3).bytes);
    setField(n, "size", Payload().vec(333, 44, 1).bytes);
    for (const FieldLayout& f : s.fields) {
        Payload p;
        putField(p, f, true);
        setField(n, f.name, p.bytes);
    }
}

std::unique_ptr<ScnNode> make(const char* cls)
{
    bool known = false;
    std::unique_ptr<ScnNode> n(ScnNodeRegistry::create(cls, &known));
    EXPECT_TRUE(known) << cls;
    return n;
}

Bytes objectFile(const ScnNode& n)
{
    ScnOutStream out;
    scnWriteObject(out, n);
    return out.bytes();
}

}  // namespace

TEST(WidgetLayout, DefaultsAndEveryStoredFieldHaveTheirBytesAndSurviveAnObjectFile)
{
    // A root created by an earlier test of the program has set its own.
    const int before = GuiDraw::cellSize();
    GuiDraw::setCellSize(c);
    for (const ClassLayout& s : classes()) {
        std::unique_ptr<ScnNode> n = make(s.cls);
        // name, children for groups, position, size, then the class's own.
        EXPECT_EQ(n->fieldCount(), 1 + (s.group ? 1 : 0) + 2 + static_cast<int>(s.fields.size())) << s.cls;
        EXPECT_EQ(difference(written(*n), payloadOf(s, false)), "") << s.cls;
        alter(*n, s);
        if (HasFatalFailure()) break;
        const Bytes want = payloadOf(s, true);
        EXPECT_EQ(difference(written(*n), want), "") << s.cls;

        Bytes file = objectFile(*n);
        Bytes head = Payload().str(s.cls).bytes;
        ASSERT_GE(file.size(), head.size());
        EXPECT_TRUE(std::equal(head.begin(), head.end(), file.begin())) << s.cls;
        std::string error;
        std::unique_ptr<ScnNode> back(scnReadObject(file, std::string(s.cls) + ".3Do", error));
        ASSERT_TRUE(back) << error;
        EXPECT_STREQ(back->getType()->name, s.cls);
        EXPECT_EQ(difference(written(*back), want), "") << s.cls;
    }
    GuiDraw::setCellSize(before);
}

TEST(WidgetLayout, DefaultSizesCountInTheCellSizeOfTheirTime)
{
    GuiDraw::setCellSize(18);
    GuiButton button;
    GuiToolBar bar;
    GuiSlider slider;
    GuiDraw::setCellSize(c);
    EXPECT_EQ(button.size.value.x, 76.0);
    EXPECT_EQ(button.size.value.y, 22.0);
    EXPECT_EQ(bar.size.value.y, 26.0);
    EXPECT_EQ(slider.size.value.x, 22.0);
}

TEST(WidgetLayout, EveryWidgetClassSurvivesAnApplicationFile)
{
    RtnApplication app;
    GuiRoot& root = app.gui.node;
    for (const char* cls : kEveryClass) {
        ScnNode* n = ScnNodeRegistry::create(cls);
        n->name = std::string("a ") + cls;
        for (const ClassLayout& s : classes())
            if (std::string(s.cls) == cls) alter(*n, s);
        root.append(n);
    }
    // Children inside group widgets: a button in the window, an item in the menu.
    auto* window = static_cast<GuiWindow*>(root.getChild(0));
    auto* inner = new GuiButton();
    inner->text = "inside";
    window->append(inner);
    window->closeButton.text = "x";
    auto* menu = static_cast<ScnGroup*>(root.getChild(5));
    ASSERT_STREQ(menu->getType()->name, "GuiMenu");
    menu->append(new GuiMenuItem());

    Bytes first = app.toBytes();
    std::string error;
    std::unique_ptr<RtnApplication> back(RtnApplication::readBytes(first, "widgets.3Dm", error));
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(difference(back->toBytes(), first), "");
    ASSERT_EQ(back->gui.node.childCount(), static_cast<int>(std::size(kEveryClass)));
    for (size_t i = 0; i < std::size(kEveryClass); ++i)
        EXPECT_STREQ(back->gui.node.getChild(static_cast<int>(i))->getType()->name, kEveryClass[i]) << i;
    auto* backWindow = static_cast<GuiWindow*>(back->gui.node.getChild(0));
    EXPECT_EQ(backWindow->closeButton.text.value, "x");
    ASSERT_EQ(backWindow->childCount(), 1);
    EXPECT_EQ(static_cast<GuiButton*>(backWindow->getChild(0))->text.value, "inside");
    ASSERT_EQ(back->gui.node.getChild(5)->childCount(), 1);
    EXPECT_EQ(back->gui.node.getChild(5)->getChild(0)->getType(), &GuiMenuItem::s_type);
}

TEST(WidgetLayout, WindowsCarryTheirCloseButtonInlineAfterTheirOwnFields)
{
    for (bool dialog : {false, true}) {
        std::unique_ptr<GuiWindow> w(dialog ? new GuiFileDialog() : new GuiWindow());
        w->closeButton.text = "X";
        w->closeButton.position = ScnVec3{301, 302, 0};
        w->closeButton.size = ScnVec3{15, 15, 0};
        Bytes b = written(*w);
        Bytes tail = Payload().str("button").vec(301, 302, 0).vec(15, 15, 0).str("X").str("").bytes;
        ASSERT_GT(b.size(), tail.size());
        EXPECT_TRUE(std::equal(tail.begin(), tail.end(), b.end() - static_cast<long>(tail.size()))) << dialog;

        std::unique_ptr<GuiWindow> back(dialog ? new GuiFileDialog() : new GuiWindow());
        ScnInStream in(b);
        back->read(in);
        EXPECT_FALSE(in.failed());
        EXPECT_TRUE(in.atEnd());
        EXPECT_EQ(back->closeButton.text.value, "X");
        EXPECT_EQ(back->closeButton.position.value.y, 302.0);

        // Without the button's bytes the object file is short.
        Bytes cut = objectFile(*w);
        cut.resize(cut.size() - tail.size());
        std::string error;
        ScnNode* bad = scnReadObject(cut, "cut.3Do", error);
        EXPECT_EQ(bad, nullptr);
        delete bad;
        EXPECT_NE(error.find("cut.3Do"), std::string::npos) << error;

        // A twin and a duplicate take the close button's values along.
        std::unique_ptr<ScnNode> twin(w->instantiate());
        std::unique_ptr<ScnNode> copy(w->duplicate());
        for (ScnNode* n : {twin.get(), copy.get()}) {
            EXPECT_EQ(n->getType(), w->getType());
            EXPECT_EQ(written(*n), b);
        }
    }
}

TEST(WidgetLayout, GuiCanvas2IsReadAsGuiCanvas)
{
    GuiCanvas canvas;
    canvas.dim0 = "512";
    Bytes payload = written(canvas);
    Bytes file = Payload().str("GuiCanvas2").append(payload).bytes;
    std::string error;
    std::unique_ptr<ScnNode> back(scnReadObject(file, "old.3Do", error));
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(back->getType(), &GuiCanvas::s_type);
    EXPECT_EQ(static_cast<GuiCanvas*>(back.get())->dim0.value, "512");
    // Written back under the class's own name.
    EXPECT_EQ(objectFile(*back), Payload().str("GuiCanvas").append(payload).bytes);

    // The same inside a child list.
    Bytes list = Payload().u32(1).str("GuiCanvas2").u32(static_cast<uint32_t>(payload.size())).append(payload).bytes;
    GuiWindow window;
    ScnInStream in(list);
    window.children.read(in);
    ASSERT_FALSE(in.failed());
    ASSERT_EQ(window.childCount(), 1);
    EXPECT_EQ(window.getChild(0)->getType(), &GuiCanvas::s_type);
}
