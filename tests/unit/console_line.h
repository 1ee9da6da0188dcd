// One console line through the dispatcher, as the station types it: what it printed.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "shell/dispatch.h"

inline std::string run(const char *text) {
    static CommandLine line;
    split_line(text, line.words);
    testing::internal::CaptureStdout();
    dispatch(line);
    return testing::internal::GetCapturedStdout();
}
