// The failure reports of the device-identity routines: every message follows
// "*ERROR* source:routine():line " on the same line, the source being the
// name the unit has always carried in the phone's sources.
#pragma once

#include <cstdarg>
#include <cstdio>

#include "platform/stdout_lock.h"

// Prints the location prefix and the message as one line: the arguments (errno
// among them) are taken before anything is printed, and a reader thread's event
// line never lands between the two halves.
__attribute__((format(printf, 4, 5))) inline void report_error(const char *source,
                                                               const char *routine, int line,
                                                               const char *fmt, ...) {
    StdoutLock hold;
    std::printf("*ERROR* %s:%s():%d ", source, routine, line);
    va_list ap;
    va_start(ap, fmt);
    std::vprintf(fmt, ap);
    va_end(ap);
}

// REPORT_ERROR(kSource, "format literal", args...): the prefix, then the message.
#define REPORT_ERROR(source, ...) report_error(source, __func__, __LINE__, __VA_ARGS__)

// The same, for a step that reports in the name of the routine it serves.
#define REPORT_ERROR_AS(source, routine, ...) report_error(source, routine, __LINE__, __VA_ARGS__)
