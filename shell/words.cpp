#include "shell/words.h"

#include <cstring>
#include <string_view>

namespace {

struct Token {
    const char *start;
    size_t len;
};

}  // namespace

SplitResult split_line(const char *line, ArgWords &out) {
    std::memset(&out, 0, sizeof out);
    if (std::strlen(line) > kLineSize - 1) return SplitResult::kLineTooLong;

    // At most 255 characters, so at most 128 tokens: count them all before
    // deciding, so the checks come in their fixed order whatever the line holds.
    Token tokens[kLineSize / 2 + 1];
    size_t n = 0;
    for (const char *p = line; *p;) {
        if (*p == ' ') {
            ++p;
            continue;
        }
        const char *start = p;
        while (*p && *p != ' ') ++p;
        size_t len = static_cast<size_t>(p - start);
        // "ft" before the command word is the help pages' console prefix.
        if (n == 0 && std::string_view(start, len) == "ft") continue;
        tokens[n++] = Token{start, len};
    }

    if (n == 0) return SplitResult::kNoWords;
    if (n > kWordSlots) return SplitResult::kTooManyWords;
    for (size_t i = 0; i < n; ++i)
        if (tokens[i].len > kWordSize - 1) return SplitResult::kWordTooLong;

    for (size_t i = 0; i < n; ++i) std::memcpy(out.slot[i], tokens[i].start, tokens[i].len);
    out.count = n;
    return SplitResult::kOk;
}

const char *split_refusal(SplitResult r) {
    switch (r) {
    case SplitResult::kLineTooLong: return "Line too long (255 characters at most)";
    case SplitResult::kTooManyWords: return "Too many words (20 at most)";
    case SplitResult::kWordTooLong: return "Word too long (99 characters at most)";
    case SplitResult::kOk:
    case SplitResult::kNoWords: break;
    }
    return nullptr;
}
