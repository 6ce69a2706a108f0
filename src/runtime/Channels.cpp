#include "runtime/Channels.h"

#include <algorithm>
#include <cstdio>

namespace {
uint32_t g_sequence = 0;
}

LogRing::LogRing(const char* name, uint32_t capacity)
    : m_name(name), m_capacity(capacity < 2 ? 2 : capacity), m_slots(m_capacity)
{
}

LogRecord& LogRing::claim()
{
    LogRecord& r = m_slots[m_write];
    m_write = (m_write + 1) % m_capacity;
    if (m_write == m_read) m_read = (m_read + 1) % m_capacity;  // full: drop the oldest
    r = LogRecord{};
    return r;
}

bool LogRing::pop(LogRecord& out)
{
    if (m_read == m_write) return false;
    out = m_slots[m_read];
    m_read = (m_read + 1) % m_capacity;
    return true;
}

const LogRecord* LogRing::peek() const
{
    return m_read == m_write ? nullptr : &m_slots[m_read];
}

uint32_t LogRing::pending() const
{
    return (m_write + m_capacity - m_read) % m_capacity;
}

void LogRing::clear()
{
    m_read = m_write = 0;
}

namespace Channels {

static LogRing s_console("console", 100);
static LogRing s_error("error", 100);
static LogRing s_intro("intro", 16384);
static LogRing s_luaPrint("luaprint", 16384);
static LogRing s_scriptError("scripterror", 100);

LogRing& console() { return s_console; }
LogRing& error() { return s_error; }
LogRing& intro() { return s_intro; }
LogRing& luaPrint() { return s_luaPrint; }
LogRing& scriptError() { return s_scriptError; }

std::vector<LogRing*>& all()
{
    static std::vector<LogRing*> rings{&s_console, &s_error, &s_intro, &s_luaPrint, &s_scriptError};
    return rings;
}

void registerRing(LogRing* ring)
{
    auto& v = all();
    if (std::find(v.begin(), v.end(), ring) == v.end()) v.push_back(ring);
}

uint32_t nextSequence() { return ++g_sequence; }
void resetSequence() { g_sequence = 0; }

void clearAll()
{
    for (LogRing* r : all()) r->clear();
    resetSequence();
}

std::vector<LogRecord> drainMerged(std::vector<const LogRing*>* from)
{
    std::vector<LogRecord> out;
    for (;;) {
        LogRing* best = nullptr;
        for (LogRing* r : all()) {
            const LogRecord* p = r->peek();
            if (p && (!best || p->sequence < best->peek()->sequence)) best = r;
        }
        if (!best) break;
        LogRecord rec;
        best->pop(rec);
        out.push_back(rec);
        if (from) from->push_back(best);
    }
    return out;
}

}  // namespace Channels

LogStream::LogStream(LogRing& ring, const char* source, ScnNode* node, int line, int reg, int kind)
    : m_ring(ring), m_record(nullptr)
{
    if (!ring.enabled) return;
    m_record = &ring.claim();
    m_record->sequence = Channels::nextSequence();
    m_record->node = node;
    m_record->line = line;
    m_record->reg = reg;
    m_record->kind = kind;
    if (source) {
        m_text = "(";
        m_text += source;
        m_text += "): ";
    } else {
        m_text = "(]: ";
    }
}

LogStream::~LogStream()
{
    if (!m_record) return;
    size_t n = std::min(m_text.size(), sizeof(m_record->text) - 1);
    std::memcpy(m_record->text, m_text.data(), n);
    m_record->text[n] = 0;
}

LogStream& LogStream::operator<<(double v)
{
    if (!m_ring.enabled) return *this;
    char buf[64];
    std::snprintf(buf, sizeof buf, "%g", v);
    m_text += buf;
    return *this;
}
