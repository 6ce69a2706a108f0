// The per-user store: a small text file "<user config folder>/settings.ini"
// of "[section]" lines and "key=value" lines below them. It holds the recent
// lists and a few values; section "Recent Workspace List", key "Document1" is
// the workspace in use.
#pragma once

#include <string>

namespace Settings {

// The value of `key` in `section`. False, with `out` untouched, when the file,
// the section or the key is missing. A damaged file reads as far as its lines
// make sense; lines that don't are ignored.
bool get(const std::string& section, const std::string& key, std::string& out);

// Stores `value` under `section` and `key` and rewrites the file, creating its
// folder. Values may hold any character but line ends; keys must not be empty,
// hold '=' or line ends, or start with '[', ';' or '#'; sections must not hold
// line ends or ']'. False, with a message on the error channel, when the value
// cannot be stored or the file cannot be written.
bool set(const std::string& section, const std::string& key, const std::string& value);

// Points the store at another file ("" returns to the default one).
void setFilePath(const std::string& path);
// The file in use.
std::string filePath();

}  // namespace Settings
