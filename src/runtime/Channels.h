// Message channels: fixed rings of records in static storage, one global
// sequence number across all of them so that readers can merge the rings in
// order of arrival. A message is written through a short-lived LogStream that
// claims the next slot on construction and copies its text in on destruction.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

class ScnNode;

struct LogRecord {
    uint32_t sequence = 0;
    ScnNode* node = nullptr;   // the node a diagnostic points at, or null
    int reg = 0;               // register index (processor script errors)
    int line = 0;              // 1-based line in the node's text, 0 for none
    int kind = 0;              // owner-defined (shader stage, display kind)
    char text[240] = {};       // at most 239 characters used
};

class LogRing {
public:
    LogRing(const char* name, uint32_t capacity);

    const char* name() const { return m_name; }
    uint32_t capacity() const { return m_capacity; }
    bool enabled = true;

    // Claims the next slot; when the ring is full the oldest record is dropped.
    LogRecord& claim();
    // Pending records, oldest first (the drain index moves to the write index).
    bool pop(LogRecord& out);
    const LogRecord* peek() const;
    uint32_t pending() const;
    void clear();

private:
    const char* m_name;
    uint32_t m_capacity;
    std::vector<LogRecord> m_slots;
    uint32_t m_read = 0, m_write = 0;
};

namespace Channels {
LogRing& console();        // console information, source "console" and general info
LogRing& error();          // errors, including "startup error"
LogRing& intro();          // hints after a project was opened
LogRing& luaPrint();       // print from scripts, source "script"
LogRing& scriptError();    // Lua errors in a processor: node, register, line

// Every ring, for drains that merge by sequence number. Rings that later
// subsystems own (kernel and shader diagnostics) add themselves here.
std::vector<LogRing*>& all();
void registerRing(LogRing* ring);

uint32_t nextSequence();
void resetSequence();
// Empties every ring and restarts the sequence count.
void clearAll();

// Drains every ring, merged by sequence number, oldest first. With `from`
// given, it receives the ring of each record, index for index.
std::vector<LogRecord> drainMerged(std::vector<const LogRing*>* from = nullptr);
}

class LogStream {
public:
    // Writes the prefix "(source): " ("(]: " for a null source).
    LogStream(LogRing& ring, const char* source, ScnNode* node = nullptr, int line = 0, int reg = 0, int kind = 0);
    LogStream(LogRing& ring, const std::string& source, ScnNode* node = nullptr, int line = 0, int reg = 0, int kind = 0)
        : LogStream(ring, source.c_str(), node, line, reg, kind) {}
    ~LogStream();
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

    LogStream& operator<<(const char* s) { if (m_ring.enabled && s) m_text += s; return *this; }
    LogStream& operator<<(const std::string& s) { if (m_ring.enabled) m_text += s; return *this; }
    LogStream& operator<<(char c) { if (m_ring.enabled) m_text += c; return *this; }
    LogStream& operator<<(int v) { return num(std::to_string(v)); }
    LogStream& operator<<(unsigned v) { return num(std::to_string(v)); }
    LogStream& operator<<(long v) { return num(std::to_string(v)); }
    LogStream& operator<<(unsigned long v) { return num(std::to_string(v)); }
    LogStream& operator<<(long long v) { return num(std::to_string(v)); }
    LogStream& operator<<(unsigned long long v) { return num(std::to_string(v)); }
    LogStream& operator<<(double v);

private:
    LogStream& num(const std::string& s) { if (m_ring.enabled) m_text += s; return *this; }
    LogRing& m_ring;
    LogRecord* m_record;
    std::string m_text;
};
