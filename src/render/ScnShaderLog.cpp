#include "render/ScnShaderLog.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "node/ScnNode.h"

namespace ScnShaderLog {

LogRing& errors()
{
    static LogRing ring("ShaderErrorLog", 100);
    static bool registered = (Channels::registerRing(&ring), true);
    (void)registered;
    return ring;
}

static bool matches(const char* p, int& line)
{
    int first = 0;
    return std::sscanf(p, "%d(%d)", &first, &line) == 2 || std::sscanf(p, "error: %d:%d:", &first, &line) == 2 ||
           std::sscanf(p, "warning: %d:%d:", &first, &line) == 2 || std::sscanf(p, "%d:%d(", &first, &line) == 2;
}

int parse(const char* log, ScnNode* node, int stage)
{
    if (!log) return 0;
    const char* p = log;
    const char* end = log + std::strlen(log);
    const std::string source = node ? node->getName() : std::string();
    int posted = 0;
    while (p < end && *p) {
        int line = 0;
        if (matches(p, line)) {
            // The end is looked for a little past the start, as the drivers'
            // prefixes are never shorter than that.
            const char* from = p + 7 <= end ? p + 7 : end;
            const char* cut = std::strchr(from, '\n');
            if (!cut) cut = std::strchr(from, '\r');
            if (!cut) cut = end;
            std::string text(p, cut);
            if (!text.empty() && text.back() == '\r') text.pop_back();
            LogStream(errors(), source, node, line, 0, stage) << text;
            ++posted;
            p = cut < end ? cut + 1 : end;
        } else {
            const char* nl = std::strchr(p, '\n');
            if (!nl) break;
            p = nl + 1;
        }
        if (*p == '\n' || (*p == '\r' && p[1] == '\n')) break;  // an empty line ends the log
    }
    return posted;
}

}  // namespace ScnShaderLog
