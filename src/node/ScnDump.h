// A readable listing of a tree: one node a line, indented, with its class,
// its name and every field's name and value.
#pragma once

#include <string>

class ScnNode;

std::string scnDump(const ScnNode& root);
