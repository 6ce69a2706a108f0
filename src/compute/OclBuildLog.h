// Turns a compiler's free-text build log into diagnostics addressed to a line
// of a program node's own text. Each vendor prints its own form; the parser
// is chosen by the name of the context the program was built on.
#pragma once

#include <string>

#include "runtime/Channels.h"

class ScnNode;

namespace OclBuildLog {

// The two diagnostic rings; their records carry the node and the line.
LogRing& errors();    // KernelErrorLog, 100 records
LogRing& warnings();  // KernelWarningLog, 200 records

// What one build hands to the parsers. `offset` is the number of lines in
// front of the node's own text (the shared include); it is taken off every
// reported line.
struct Build {
    std::string program;  // the program's name, the prefix of every record
    ScnNode* owner = nullptr;
    int offset = 0;
};

void parseNvidia(std::string log, const Build& b);
void parseAmd(std::string log, const Build& b);
void parseIntel(std::string log, const Build& b);
// The clang form (PoCL and others): "FILE:LINE:COL: error: text" and
// "error: FILE:LINE:COL: text", and the same with "warning". False when the
// log holds no line of either form.
bool parseClang(const std::string& log, const Build& b);

// Chooses the parser by the context's name: the three vendors by their exact
// names, the clang form for any other context; a log that matches nothing
// there gets the "Unknow platform!" message on the error channel.
void handle(const std::string& contextName, const std::string& log, const Build& b);

}  // namespace OclBuildLog
