// The fuzz build's system shell: command lines are counted, never run.
#include <atomic>
#include <cstring>

#include "platform/shell.h"

namespace {
std::atomic<unsigned long> g_commands{0};
std::atomic<unsigned long> g_bytes{0};
}  // namespace

extern "C" int shell_run(const char *cmdline) {
    g_commands++;
    g_bytes += std::strlen(cmdline);
    return 0;
}
