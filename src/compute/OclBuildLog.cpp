#include "compute/OclBuildLog.h"

#include <cstdio>
#include <cstring>

namespace OclBuildLog {

LogRing& errors()
{
    static LogRing ring("KernelErrorLog", 100);
    static bool registered = (Channels::registerRing(&ring), true);
    (void)registered;
    return ring;
}

LogRing& warnings()
{
    static LogRing ring("KernelWarningLog", 200);
    static bool registered = (Channels::registerRing(&ring), true);
    (void)registered;
    return ring;
}

static void store(LogRing& ring, const Build& b, int line, const char* excerpt)
{
    LogStream(ring, b.program, b.owner, line - b.offset) << excerpt;
}

void parseNvidia(std::string log, const Build& b)
{
    char* text = log.data();
    char* end = text + log.size();
    char* p = text;
    int line = 0, column = 0;
    do {
        if (std::sscanf(p, ":%d:%d: error:", &line, &column) != 2 &&
            std::sscanf(p, ":%d:%d: warning:", &line, &column) != 2) {
            char* nl = std::strchr(p, '\n');
            if (!nl) break;
            p = nl + 1;
        } else {
            char* from = p + 7 <= end ? p + 7 : end;
            char* next = end;
            if (char* nl = std::strchr(from, '\n')) {
                *nl = 0;
                next = nl + 1;
            } else if (char* cr = std::strchr(from, '\r')) {
                *cr = 0;
                next = cr + 1;
            }
            // Warnings too: this form keeps everything with the errors.
            store(errors(), b, line, p);
            p = next;
        }
    } while (p < end && *p != 0 && *p != '\n');
}

void parseAmd(std::string log, const Build& b)
{
    char* h = log.data();
    for (;;) {
        char* m = std::strstr(h, ".cl(");
        if (!m) return;
        int line = 0;
        std::sscanf(m, ".cl(%d):", &line);
        char* close = std::strstr(m, "):");
        char* c = std::strchr(m, '^');
        if (!c || !close) return;
        char* msg = close + 3 <= c ? close + 3 : c;
        *c = 0;
        for (char* q = msg; *q; ++q)
            if (*q == '\n' || *q == '\t') *q = ' ';
        *m = 0;
        store(std::strncmp(msg, "warning", 7) == 0 ? warnings() : errors(), b, line, msg);
        h = c + 1;
    }
}

void parseIntel(std::string log, const Build& b)
{
    char* h = log.data();
    int line = 0;
    for (;;) {
        std::sscanf(h, ":%d:", &line);  // keeps the last line when it does not match
        char* d = std::strstr(h, "error:");
        char* rest = d ? d + 7 : nullptr;
        if (!d) {
            d = std::strstr(h, "warning:");
            rest = d ? d + 9 : nullptr;
        }
        if (!d) {
            LogStream(Channels::error(), b.program) << log.c_str();
            return;
        }
        char* end = log.data() + log.size();
        if (rest > end) rest = end;
        char* e = std::strchr(rest, ':');
        if (e) *e = 0;
        store(std::strncmp(d, "warning", 7) == 0 ? warnings() : errors(), b, line, d);
        if (!e) return;
        *e = ':';
        h = e + 1;
        if (*h == 0) return;
    }
}

// One line of the clang form; true when it matched.
static bool clangLine(const std::string& line, const Build& b)
{
    for (const char* kind : {"error", "warning"}) {
        LogRing& ring = kind[0] == 'e' ? errors() : warnings();
        std::string tag = std::string(kind) + ": ";
        // "FILE:LINE:COL: kind: text": find ": kind: " behind a LINE:COL pair.
        size_t at = line.find(": " + tag);
        if (at != std::string::npos) {
            size_t colEnd = at;
            size_t colStart = line.rfind(':', colEnd - 1);
            size_t lineStart = colStart == std::string::npos ? std::string::npos : line.rfind(':', colStart - 1);
            if (lineStart != std::string::npos) {
                int l = 0, c = 0;
                if (std::sscanf(line.c_str() + lineStart, ":%d:%d", &l, &c) == 2) {
                    store(ring, b, l, line.c_str() + at + 2);
                    return true;
                }
            }
        }
        // "kind: FILE:LINE:COL: text".
        if (line.compare(0, tag.size(), tag) == 0) {
            size_t p = tag.size();
            size_t first = line.find(':', p);
            int l = 0, c = 0;
            if (first != std::string::npos && std::sscanf(line.c_str() + first, ":%d:%d", &l, &c) == 2) {
                size_t textAt = line.find(": ", first + 1);
                std::string msg = tag + (textAt == std::string::npos ? std::string() : line.substr(textAt + 2));
                store(ring, b, l, msg.c_str());
                return true;
            }
        }
    }
    return false;
}

bool parseClang(const std::string& log, const Build& b)
{
    bool any = false;
    size_t pos = 0;
    while (pos <= log.size()) {
        size_t nl = log.find('\n', pos);
        std::string line = log.substr(pos, nl == std::string::npos ? std::string::npos : nl - pos);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        any |= clangLine(line, b);
        if (nl == std::string::npos) break;
        pos = nl + 1;
    }
    return any;
}

void handle(const std::string& contextName, const std::string& log, const Build& b)
{
    // A clean build leaves an empty log, or one of blanks only.
    if (log.find_first_not_of(" \t\r\n") == std::string::npos) return;
    if (contextName == "NVIDIA Corporation")
        parseNvidia(log, b);
    else if (contextName == "Advanced Micro Devices, Inc.")
        parseAmd(log, b);
    else if (contextName == "Intel Corporation")
        parseIntel(log, b);
    else if (!parseClang(log, b))
        LogStream(Channels::error(), b.program) << "Unknow platform! Cannot parse error... Please check Log file";
}

}  // namespace OclBuildLog
