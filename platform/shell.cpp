#include "platform/shell.h"

#include <cstdio>
#include <cstdlib>

extern "C" int shell_run(const char *cmdline) {
    // Whatever the command prints must come after what we printed before it.
    std::fflush(stdout);
    int rc = std::system(cmdline);
    std::fflush(stdout);
    return rc;
}
