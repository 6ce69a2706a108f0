// The event functions of a register: name, code text and run state. In a file
// each entry is a 100-byte zero-filled name, a u32 code length and the code.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "node/ScnField.h"

struct ScnFunctionEntry {
    char name[100] = {};
    std::string code;
    bool modified = false;  // the code sheet holds edits not compiled yet
    bool error = false;     // a run failed; not called again until recompiled
    int luaRef = -1;

    std::string_view getName() const;
    void setName(std::string_view n);
};

class ScnMFFunction : public ScnField {
public:
    ScnMFFunction(ScnNode* owner, const char* name) : ScnField(owner, name) {}

    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;
    void assign(const ScnField& other) override;
    uint32_t size() const override { return 0; }
    std::string toText() const override;
    const char* kind() const override { return "functions"; }

    int count() const { return static_cast<int>(m_entries.size()); }
    // Appends a copy of `entry`; the list grows by doubling.
    void append(const ScnFunctionEntry& entry);
    void append(std::string_view name, std::string_view code = {});
    // Removes the entry of exactly this name: the last entry takes its place.
    void remove(std::string_view name);
    int indexOf(std::string_view name) const;

    ScnFunctionEntry& entry(int i)
    {
        ++m_version;
        return m_entries[i];
    }
    const ScnFunctionEntry& entry(int i) const { return m_entries[i]; }
    const std::string& getCode(int i) const { return m_entries[i].code; }
    // Replaces the code; "" leaves no code.
    void setCode(int i, std::string_view code);
    size_t getLength(int i) const { return m_entries[i].code.size(); }
    bool getModified(int i) const { return m_entries[i].modified; }
    void setModified(int i, bool on)
    {
        ++m_version;
        m_entries[i].modified = on;
    }
    bool getError(int i) const { return m_entries[i].error; }
    void setError(int i, bool on)
    {
        ++m_version;
        m_entries[i].error = on;
    }
    int getLuaRef(int i) const { return m_entries[i].luaRef; }
    void setLuaRef(int i, int ref)
    {
        ++m_version;
        m_entries[i].luaRef = ref;
    }
    // Changes with every change of the list or of an entry, so a holder may
    // cache what it derived from an entry and check one number per use.
    uint32_t version() const { return m_version; }

private:
    std::vector<ScnFunctionEntry> m_entries;
    uint32_t m_version = 1;
};
