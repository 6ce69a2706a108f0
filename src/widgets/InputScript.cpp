#include "widgets/InputScript.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <fstream>
#include <sstream>

#include "widgets/InputState.h"

namespace {

// A script is a few events a frame; anything far larger is a wrong file.
constexpr std::streamoff kMaxBytes = 16 << 20;
constexpr long kMaxFrame = 100000000;

struct Named {
    const char* name;
    int code;
};
const Named kKeys[] = {
    {"SPACE", 32},     {"DELETE", 127},   {"CANCEL", 128},  {"BACKSPACE", 129}, {"TAB", 130},      {"CLEAR", 131},
    {"RETURN", 132},   {"ENTER", 132},    {"SHIFT", 133},   {"CONTROL", 134},   {"CTRL", 134},     {"ALT", 135},
    {"PAUSE", 136},    {"CAPSLOCK", 137}, {"ESCAPE", 138},  {"PAGEUP", 140},    {"PAGEDOWN", 141}, {"END", 142},
    {"HOME", 143},     {"LEFT", 144},     {"UP", 145},      {"RIGHT", 146},     {"DOWN", 147},     {"SELECT", 148},
    {"PRINT", 149},    {"EXECUTE", 150},  {"PRINTSCREEN", 151}, {"INSERT", 152},
};

bool number(std::istringstream& in, double& out)
{
    in >> out;
    return !in.fail() && std::isfinite(out);
}

}  // namespace

int InputScript::keyCode(const std::string& name)
{
    if (name.size() == 1) {
        const unsigned char c = static_cast<unsigned char>(name[0]);
        // Letters are reported by their lower-case code; Shift decides.
        if (std::isalpha(c)) return std::tolower(c);
        if (std::isdigit(c)) return c;
        if (c == ' ') return 32;
        if (c == '+' || c == ',' || c == '-' || c == '.') return c;
        return -1;
    }
    std::string upper = name;
    for (char& ch : upper) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    for (const Named& k : kKeys)
        if (upper == k.name) return k.code;
    return -1;
}

bool InputScript::load(const std::string& path, std::string& error)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        error = "cannot read input file " + path;
        return false;
    }
    file.seekg(0, std::ios::end);
    const std::streamoff size = file.tellg();
    if (size < 0 || size > kMaxBytes) {
        error = "input file " + path + " is larger than 16 MiB";
        return false;
    }
    file.seekg(0);
    std::string text(static_cast<size_t>(size), '\0');
    file.read(text.data(), size);
    if (!parse(text, error)) {
        error = path + ": " + error;
        return false;
    }
    return true;
}

bool InputScript::parse(const std::string& text, std::string& error)
{
    std::vector<Event> events;
    std::istringstream lines(text);
    std::string line;
    int lineNo = 0;
    auto fail = [&](const std::string& why) {
        error = "line " + std::to_string(lineNo) + ": " + why;
        return false;
    };
    while (std::getline(lines, line)) {
        ++lineNo;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') continue;
        std::istringstream in(line);
        long frame = 0;
        std::string word;
        in >> frame >> word;
        if (in.fail()) return fail("expected a frame number and an event");
        if (frame < 1 || frame > kMaxFrame) return fail("frame " + std::to_string(frame) + " is not between 1 and 100000000");
        Event e;
        e.frame = frame;
        if (word == "move" || word == "down" || word == "up" || word == "wheel") {
            if (word == "down" || word == "up") {
                std::string button;
                in >> button;
                if (button != "left" && button != "right") return fail("button must be left or right");
                e.code = button == "left" ? 1 : 2;
            } else if (word == "wheel") {
                double notches = 0;
                if (!number(in, notches) || notches != std::floor(notches) || std::fabs(notches) > 1000)
                    return fail("wheel needs a whole number of notches");
                e.code = static_cast<int>(notches);
            }
            if (!number(in, e.x) || !number(in, e.y)) return fail(word + " needs the pixel coordinates X Y");
            e.kind = word == "move" ? Event::Move : word == "down" ? Event::Down : word == "up" ? Event::Up : Event::Wheel;
        } else if (word == "keydown" || word == "keyup") {
            std::string name;
            in >> name;
            if (name.size() == 4 && name.compare(0, 3, "PAD") == 0 && std::isdigit(static_cast<unsigned char>(name[3]))) {
                name.erase(0, 3);
                e.keypad = true;
            }
            e.code = keyCode(name);
            if (e.code < 0) return fail("unknown key \"" + name + "\"");
            e.kind = word == "keydown" ? Event::KeyDown : Event::KeyUp;
        } else if (word == "text") {
            std::string rest;
            std::getline(in, rest);
            if (!rest.empty() && rest[0] == ' ') rest.erase(0, 1);
            long f = frame;
            for (char c : rest) {
                const int code = keyCode(std::string(1, c));
                if (code < 0) return fail(std::string("cannot type \"") + c + "\"");
                const bool shift = std::isupper(static_cast<unsigned char>(c)) != 0;
                if (shift) events.push_back(Event{f, Event::KeyDown, InputState::KeyShift, 0, 0});
                events.push_back(Event{f, Event::KeyDown, code, 0, 0});
                events.push_back(Event{f + 1, Event::KeyUp, code, 0, 0});
                if (shift) events.push_back(Event{f + 1, Event::KeyUp, InputState::KeyShift, 0, 0});
                f += 2;
                if (events.size() > kMaxEvents) break;
            }
            if (events.size() > kMaxEvents) return fail("more than " + std::to_string(kMaxEvents) + " events");
            continue;
        } else {
            return fail("unknown event \"" + word + "\"");
        }
        std::string extra;
        if (in >> extra) return fail("unexpected \"" + extra + "\" after the event");
        if (events.size() >= kMaxEvents) return fail("more than " + std::to_string(kMaxEvents) + " events");
        events.push_back(e);
    }
    std::stable_sort(events.begin(), events.end(), [](const Event& a, const Event& b) { return a.frame < b.frame; });
    m_events = std::move(events);
    m_next = 0;
    return true;
}

void InputScript::feed(long frame)
{
    InputState& in = InputState::instance();
    while (m_next < m_events.size() && m_events[m_next].frame <= frame) {
        const Event& e = m_events[m_next++];
        switch (e.kind) {
        case Event::Move: in.setCursor(e.x, e.y); break;
        case Event::Down:
        case Event::Up:
            in.setCursor(e.x, e.y);
            in.setButton(e.code, e.kind == Event::Down);
            break;
        case Event::Wheel:
            in.setCursor(e.x, e.y);
            in.addWheel(e.code);
            break;
        case Event::KeyDown: in.setKey(e.code, true, e.keypad); break;
        case Event::KeyUp: in.setKey(e.code, false, e.keypad); break;
        }
    }
}
