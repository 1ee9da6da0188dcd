// The failure reports of the device-identity routines: every message follows
// "*ERROR* source:routine():line " on the same line, the source being the
// name the unit has always carried in the phone's sources.
#pragma once

#include <cerrno>
#include <cstdio>

// Prints the location prefix and leaves errno as it found it, so the message
// printed right after can still show the errno of the failed call.
inline void print_error_location(const char *source, const char *routine, int line) {
    int saved = errno;
    std::printf("*ERROR* %s:%s():%d ", source, routine, line);
    errno = saved;
}

// REPORT_ERROR(kSource, "format literal", args...): the prefix, then the message.
#define REPORT_ERROR(source, ...) \
    (print_error_location(source, __func__, __LINE__), std::printf(__VA_ARGS__))

// The same, for a step that reports in the name of the routine it serves.
#define REPORT_ERROR_AS(source, routine, ...) \
    (print_error_location(source, routine, __LINE__), std::printf(__VA_ARGS__))
