// Runs a command-line tool through the shell for the tools' tests.
#pragma once

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <sys/wait.h>

// Runs `cmd` (whose output the caller redirects) and returns its exit status,
// -1 when it did not exit. `err` names the file its standard error goes to.
//
// The leak checker of the sanitizer builds stops every thread at exit; its
// own tracer now and then faults while a driver thread is half torn down and
// then fails the process with "LeakSanitizer has encountered a fatal error".
// That is the checker failing, not a finding (a leak reads "detected memory
// leaks" and is not run again), so such a run is repeated, twice at most.
inline int runTool(const std::string& cmd, const std::string& err)
{
    int status = -1;
    for (int attempt = 0; attempt < 3; ++attempt) {
        const int rc = std::system(cmd.c_str());
        status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
        if (status == 0) break;
        std::ifstream f(err, std::ios::binary);
        const std::string text((std::istreambuf_iterator<char>(f)), {});
        if (text.find("LeakSanitizer has encountered a fatal error") == std::string::npos) break;
    }
    return status;
}
