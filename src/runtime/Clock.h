// Time for the frame tick, behind small interfaces: the editor drives ticks
// from its timer, the headless runner drives them itself, and tests and
// repeatable runs use a clock that advances by hand.
#pragma once

#include <cstdint>
#include <functional>

class Clock {
public:
    virtual ~Clock() = default;
    // Milliseconds from an arbitrary base.
    virtual uint32_t milliseconds() = 0;
};

// The system's monotonic clock.
class SystemClock : public Clock {
public:
    uint32_t milliseconds() override;
};

// A clock that only moves when told to.
class ManualClock : public Clock {
public:
    uint32_t milliseconds() override { return now; }
    void advance(uint32_t ms) { now += ms; }
    uint32_t now = 0;
};

// One tick per 25 ms: reads the clock, counts the frame, sets the running
// value and runs the frame; tells the caller how long to wait for the next.
class Ticker {
public:
    static constexpr uint32_t kPeriod = 25;

    Ticker(Clock& clock, std::function<void()> frame) : m_clock(clock), m_frame(std::move(frame)) {}

    // Runs one tick; returns the delay before the next: 25 minus the time
    // since the last tick, at least 0.
    uint32_t tick();
    // Marks the start of timing, as after a load or a reset.
    void restart() { lastTick = m_clock.milliseconds(); }

    bool simulationOn = false;  // "Start Simulation" is checked
    uint32_t lastTick = 0;

private:
    Clock& m_clock;
    std::function<void()> m_frame;
};

namespace Engine {
// 25 while the simulation runs, 0 otherwise.
extern uint8_t running;
// The Lua collection that starts every frame: false (the default) runs an
// incremental step of kFrameCollectionKB, so that no frame pays for the whole
// heap and garbage goes within a bounded number of frames; true runs a full
// collection every frame. Load, reset and close always collect in full.
extern bool fullCollection;
constexpr int kFrameCollectionKB = 64;
// The per-user setting "[Engine] FullCollection=1" turns full collections on.
void readCollectionSetting();
// Runs the frame's collection as chosen above; the time it took is the
// caller's to measure.
void collectForFrame();
extern uint32_t frameCounter;
// Milliseconds at the last tick.
extern uint32_t lastTickTime;
}
