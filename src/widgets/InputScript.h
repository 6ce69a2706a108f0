// Timed input from a text file, for runs without a window: each line names a
// frame and one event, which is reported to the input table before that
// frame samples it, through the same functions the editor's view calls.
//
//   # comment            blank lines and comments are skipped
//   FRAME move X Y       cursor to view pixel (X, Y), y from the bottom
//   FRAME down BUTTON X Y   BUTTON is left or right; the cursor moves first
//   FRAME up BUTTON X Y
//   FRAME wheel N X Y    N notches, any sign
//   FRAME keydown NAME   a letter, a digit or a key name (SHIFT, RETURN, ...;
//                        PAD0 to PAD9 for the numeric pad's digits)
//   FRAME keyup NAME
//   FRAME text WORDS     the rest of the line typed one character a frame:
//                        down on FRAME, up on FRAME + 1, the next one on FRAME + 2
//
// Frames count from 1, the first frame of the run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class InputScript {
public:
    struct Event {
        enum Kind : uint8_t { Move, Down, Up, Wheel, KeyDown, KeyUp };
        long frame = 0;
        Kind kind = Move;
        int code = 0;  // button, notches or key code
        double x = 0, y = 0;
        bool keypad = false;  // a digit of the numeric pad
    };
    // A script holds at most this many events (a line of text makes two to
    // four a character).
    static constexpr size_t kMaxEvents = 1000000;

    // Reads a file; false with a message naming the file and the line.
    bool load(const std::string& path, std::string& error);
    // Reads the text of a file; false with a message naming the line.
    bool parse(const std::string& text, std::string& error);
    // Reports the events of `frame` to the input table.
    void feed(long frame);
    const std::vector<Event>& events() const { return m_events; }

    // The kit's code of a key name ("a", "7", "RETURN", ...), -1 if unknown.
    static int keyCode(const std::string& name);

private:
    std::vector<Event> m_events;  // by frame, in file order within a frame
    size_t m_next = 0;
};
