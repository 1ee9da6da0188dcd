// The value of "program write": word 3, or words joined from an opening double quote.
#pragma once

#include "shell/words.h"

// Fills `line.value` from word `first` on. Returns the value, or null when the
// joined words do not fit the 99 characters of the value buffer.
const char *take_quoted_value(CommandLine &line, size_t first);
