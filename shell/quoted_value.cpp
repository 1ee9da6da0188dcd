#include "shell/quoted_value.h"

#include <cstring>

const char *take_quoted_value(CommandLine &line, size_t first) {
    char *value = line.value;
    std::memset(value, 0, kValueSize);
    const char *head = line.word(first);
    if (head[0] != '"') {
        std::memcpy(value, head, std::strlen(head));   // a word is at most 99 characters
        return value;
    }

    // Each word followed by one blank, up to the first empty word.
    size_t len = 0;
    for (size_t i = first; i < kWordSlots && line.words.slot[i][0]; ++i) {
        size_t n = std::strlen(line.words.slot[i]);
        if (len + n + 1 > kValueSize - 1) return nullptr;
        std::memcpy(value + len, line.words.slot[i], n);
        value[len + n] = ' ';
        len += n + 1;
    }

    char *open = std::strchr(value, '"');
    char *close = std::strrchr(value, '"');
    if (close != open) *close = '\0';
    // With one quote only, the value runs to the end, trailing blank included.
    return open + 1;
}
