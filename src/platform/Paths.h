// Folders the program lives in and keeps per-user files in. Paths use '/'
// throughout; texts read from files may still hold '\\' and go through
// toNativePath before they are used.
#pragma once

#include <string>

namespace Paths {

// Folder of the running executable (from /proc/self/exe), without a trailing
// '/'; "" when it cannot be read.
std::string executableFolder();

// Per-user configuration folder: $XDG_CONFIG_HOME (or ~/.config) + "/velmora".
std::string userConfigFolder();

// Per-user cache folder: $XDG_CACHE_HOME (or ~/.cache) + "/velmora".
std::string userCacheFolder();

// Replaces every '\\' with '/'.
std::string toNativePath(std::string path);

// `a` and `b` joined by exactly one '/'; an empty `a` gives `b` unchanged.
std::string join(const std::string& a, const std::string& b);

// The file-name part of `path`: the text after its last '/' or '\\'.
std::string fileName(const std::string& path);

// Creates `folder` and its parents. True when it exists as a folder afterwards.
bool ensureFolder(const std::string& folder);

}  // namespace Paths
