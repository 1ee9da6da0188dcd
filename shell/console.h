#pragma once

#include "shell/dispatch.h"

// One line as the loop handles it once read: refused, ignored or dispatched.
Dispatch run_line(const char *text, CommandLine &line);

// The console process: start-up, the command loop, shut-down. Returns the exit status.
int console_main();
