#include "node/ScnMFFunction.h"

#include <algorithm>
#include <cstring>

std::string_view ScnFunctionEntry::getName() const
{
    return std::string_view(name, strnlen(name, sizeof name));
}

void ScnFunctionEntry::setName(std::string_view n)
{
    std::memset(name, 0, sizeof name);
    std::memcpy(name, n.data(), std::min(n.size(), sizeof name - 1));
}

void ScnMFFunction::read(ScnInStream& in)
{
    uint32_t count = 0;
    if (!in.readU32(count)) return;
    if (!in.checkCount(count, 104, "function count larger than the data that remains")) return;
    // An entry in memory is larger than its least size in the file: room is
    // made only as far as the remaining bytes could fill it.
    std::vector<ScnFunctionEntry> entries;
    entries.reserve(std::min<size_t>(count, in.remaining() / sizeof(ScnFunctionEntry)));
    for (uint32_t i = 0; i < count; ++i) {
        ScnFunctionEntry& e = entries.emplace_back();
        uint32_t len = 0;
        // The name array is kept as read, so a file writes back byte for byte.
        if (!in.read(e.name, sizeof e.name) || !in.readU32(len) || !in.readString(e.code, len)) return;
    }
    m_entries.swap(entries);
    ++m_version;
}

void ScnMFFunction::write(ScnOutStream& out) const
{
    out.writeU32(static_cast<uint32_t>(m_entries.size()));
    for (const ScnFunctionEntry& e : m_entries) {
        out.write(e.name, sizeof e.name);
        out.writeU32(static_cast<uint32_t>(e.code.size()));
        out.writeString(e.code);
    }
}

void ScnMFFunction::assign(const ScnField& other)
{
    const auto& src = static_cast<const ScnMFFunction&>(other);
    if (&src == this) return;
    ++m_version;
    m_entries.clear();
    for (const ScnFunctionEntry& e : src.m_entries) {
        ScnFunctionEntry c;
        std::memcpy(c.name, e.name, sizeof c.name);
        c.code = e.code;
        append(c);
    }
}

std::string ScnMFFunction::toText() const
{
    std::string s = "[";
    for (size_t i = 0; i < m_entries.size(); ++i) {
        if (i) s += ", ";
        s += std::string(m_entries[i].getName()) + ": " + scnQuote(m_entries[i].code);
    }
    return s + "]";
}

void ScnMFFunction::append(const ScnFunctionEntry& entry)
{
    ++m_version;
    if (m_entries.size() == m_entries.capacity()) m_entries.reserve(m_entries.empty() ? 1 : m_entries.size() * 2);
    m_entries.push_back(entry);
}

void ScnMFFunction::append(std::string_view name, std::string_view code)
{
    ScnFunctionEntry e;
    e.setName(name);
    e.code = code;
    append(e);
}

int ScnMFFunction::indexOf(std::string_view name) const
{
    for (size_t i = 0; i < m_entries.size(); ++i)
        if (m_entries[i].getName() == name) return static_cast<int>(i);
    return -1;
}

void ScnMFFunction::remove(std::string_view name)
{
    int i = indexOf(name);
    if (i < 0) return;
    ++m_version;
    if (static_cast<size_t>(i) != m_entries.size() - 1) m_entries[i] = std::move(m_entries.back());
    m_entries.pop_back();
}

void ScnMFFunction::setCode(int i, std::string_view code)
{
    ++m_version;
    m_entries[i].code.assign(code.data(), code.size());
}
