// The program's start before the main window: the workspace is the last one
// used, from the per-user store, or the default one below the program folder.
#pragma once

#include <string>

class QWidget;

namespace EdtStart {

// Enters the last workspace; one that cannot be entered is reported in a
// warning box "Unable to open workspace. Reverting to default workspace",
// titled with its path, and the default workspace is entered instead.
// Returns the workspace entered.
std::string enterWorkspace(QWidget* parent = nullptr);

}  // namespace EdtStart
