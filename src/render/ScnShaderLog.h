// GLSL compile and link messages as diagnostics addressed to (node, line,
// stage) records, so that a sheet can mark the line and the runner can print
// it with its line.
#pragma once

#include "runtime/Channels.h"

class ScnNode;

namespace ScnShaderLog {

// The ring of GLSL diagnostics: the record's kind is the stage (1 vertex,
// 2 fragment, 3 geometry, 0 for a link message); 100 records.
LogRing& errors();

// Walks a driver's info log line by line. A line is a diagnostic when one of
// these forms reads both numbers, tried in this order: "%d(%d)" (NVIDIA),
// "error: %d:%d:", "warning: %d:%d:" (AMD, Intel) and "%d:%d(" (Mesa); the
// second number is the line. Each becomes a record with the line's text,
// prefixed by the node's name. Returns the number of records posted.
int parse(const char* log, ScnNode* node, int stage);

}  // namespace ScnShaderLog
