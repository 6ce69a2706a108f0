// Branch roots reach scripts as globals under their node names.
#pragma once

#include <string>

class ScnNode;

namespace BranchGlobals {
// Stores the node's Lua object in the global table under its name; nothing
// for a node without a Lua object (design nodes).
void publish(ScnNode* node);
// Clears the global `name` if it still holds this node: a later tree may own it now.
void withdraw(ScnNode* node, const std::string& name);
}
