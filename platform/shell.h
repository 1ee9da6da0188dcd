// The system shell. Every command line the console runs goes through here.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Flushes standard output, then runs `cmdline` with /bin/sh -c, its standard
// input /dev/null (only the console's loop reads the station's input). For the
// console's own thread: descriptor 0 is pointed away while the command runs.
// Returns what system() returns: -1 when no shell could be started.
int shell_run(const char *cmdline);

#ifdef __cplusplus
}
#endif
