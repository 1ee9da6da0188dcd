// The split command line: 20 word slots of 99 characters and a NUL.
#pragma once

#include <cstddef>

constexpr size_t kWordSlots = 20;
constexpr size_t kWordSize = 100;      // 99 characters and the NUL
constexpr size_t kLineSize = 256;      // 255 characters and the NUL
constexpr size_t kValueSize = 100;     // joined quoted value, Bluetooth address

struct ArgWords {
    char slot[kWordSlots][kWordSize];
    size_t count;                      // words stored; slots past it are empty
};

// Everything one command line carries to its handler.
struct CommandLine {
    ArgWords words;
    char value[kValueSize];

    const char *word(size_t n) const { return n < kWordSlots ? words.slot[n] : ""; }
};

enum class SplitResult { kOk, kNoWords, kLineTooLong, kTooManyWords, kWordTooLong };

// Splits `line` at blanks into `out` (cleared first). Leading "ft" words are
// dropped. A line that breaks a limit is refused whole: `out` stays empty.
SplitResult split_line(const char *line, ArgWords &out);

// The one-line refusal printed for a line that breaks a limit; null otherwise.
const char *split_refusal(SplitResult r);
