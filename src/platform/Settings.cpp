#include "platform/Settings.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/Paths.h"
#include "runtime/Channels.h"

namespace {

// A settings file is a handful of lines; anything far larger is not ours.
constexpr std::uintmax_t kMaxFileSize = 1u << 20;

std::string g_overridePath;

struct Section {
    std::string name;
    std::vector<std::pair<std::string, std::string>> entries;
};

bool validKey(const std::string& key)
{
    if (key.empty() || key[0] == '[' || key[0] == ';' || key[0] == '#') return false;
    return key.find_first_of("=\r\n") == std::string::npos;
}

bool validSection(const std::string& section)
{
    return section.find_first_of("]\r\n") == std::string::npos;
}

// Reads the file into sections in file order; a missing, unreadable or
// oversized file gives none.
std::vector<Section> readFile(const std::string& path)
{
    std::vector<Section> sections;
    std::error_code ec;
    auto size = std::filesystem::file_size(path, ec);
    if (ec || size > kMaxFileSize) return sections;
    std::ifstream in(path, std::ios::binary);
    if (!in) return sections;

    Section* current = nullptr;
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == ';' || line[0] == '#') continue;
        if (line[0] == '[') {
            if (line.back() != ']' || line.size() < 2) {
                current = nullptr;  // a broken header: its keys have no home
                continue;
            }
            std::string name = line.substr(1, line.size() - 2);
            if (!validSection(name)) {
                current = nullptr;
                continue;
            }
            current = nullptr;
            for (Section& s : sections)
                if (s.name == name) current = &s;
            if (!current) {
                sections.push_back(Section{name, {}});
                current = &sections.back();
            }
            continue;
        }
        size_t eq = line.find('=');
        if (!current || eq == std::string::npos) continue;
        std::string key = line.substr(0, eq);
        if (!validKey(key)) continue;
        std::string value = line.substr(eq + 1);
        bool replaced = false;
        for (auto& e : current->entries)
            if (e.first == key) {
                e.second = value;  // the last of duplicate keys wins
                replaced = true;
            }
        if (!replaced) current->entries.emplace_back(std::move(key), std::move(value));
    }
    return sections;
}

void reportError(const std::string& text)
{
    LogStream(Channels::error(), "settings") << text;
}

}  // namespace

namespace Settings {

std::string filePath()
{
    if (!g_overridePath.empty()) return g_overridePath;
    return Paths::join(Paths::userConfigFolder(), "settings.ini");
}

void setFilePath(const std::string& path) { g_overridePath = path; }

bool get(const std::string& section, const std::string& key, std::string& out)
{
    try {
        for (const Section& s : readFile(filePath())) {
            if (s.name != section) continue;
            for (const auto& e : s.entries)
                if (e.first == key) {
                    out = e.second;
                    return true;
                }
        }
    } catch (const std::exception& e) {
        reportError(std::string("Unable to read settings: ") + e.what());
    }
    return false;
}

bool set(const std::string& section, const std::string& key, const std::string& value)
{
    if (!validSection(section) || !validKey(key) || value.find_first_of("\r\n") != std::string::npos) {
        reportError("Setting not stored, invalid section, key or value: [" + section + "] " + key);
        return false;
    }
    try {
        const std::string path = filePath();
        std::vector<Section> sections = readFile(path);
        Section* target = nullptr;
        for (Section& s : sections)
            if (s.name == section) target = &s;
        if (!target) {
            sections.push_back(Section{section, {}});
            target = &sections.back();
        }
        bool replaced = false;
        for (auto& e : target->entries)
            if (e.first == key) {
                e.second = value;
                replaced = true;
            }
        if (!replaced) target->entries.emplace_back(key, value);

        std::ostringstream text;
        for (const Section& s : sections) {
            text << '[' << s.name << "]\n";
            for (const auto& e : s.entries) text << e.first << '=' << e.second << '\n';
        }

        std::filesystem::path file(path);
        if (file.has_parent_path() && !Paths::ensureFolder(file.parent_path().string())) {
            reportError("Unable to create settings folder: " + file.parent_path().string());
            return false;
        }
        // Write a sibling and rename it over the file, so that a crash while
        // writing never leaves a half-written store.
        const std::string temp = path + ".tmp";
        {
            std::ofstream out(temp, std::ios::binary | std::ios::trunc);
            out << text.str();
            out.flush();
            if (!out) {
                reportError("Unable to write settings file: " + temp);
                std::remove(temp.c_str());
                return false;
            }
        }
        if (std::rename(temp.c_str(), path.c_str()) != 0) {
            reportError("Unable to replace settings file: " + path);
            std::remove(temp.c_str());
            return false;
        }
        return true;
    } catch (const std::exception& e) {
        reportError(std::string("Unable to store setting: ") + e.what());
        return false;
    }
}

}  // namespace Settings
