#include "platform/shell_quote.h"

#include <cstring>

namespace {

// Characters that mean nothing to the shell in the middle of a word.
bool is_plain(char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return std::strchr("._-/:@%+=,", c) != nullptr && c != '\0';
}

bool is_plain(std::string_view word) {
    for (char c : word)
        if (!is_plain(c)) return false;
    return true;
}

// The word as the shell must see it: as typed, or in single quotes with each
// quote inside written as '\'' (close, escaped quote, reopen).
size_t quoted_length(std::string_view word) {
    if (is_plain(word)) return word.size();
    size_t n = 2;
    for (char c : word) n += c == '\'' ? 4 : 1;
    return n;
}

void put_quoted(char *out, std::string_view word) {
    if (is_plain(word)) {
        std::memcpy(out, word.data(), word.size());
        return;
    }
    *out++ = '\'';
    for (char c : word) {
        if (c == '\'') {
            std::memcpy(out, "'\\''", 4);
            out += 4;
        } else {
            *out++ = c;
        }
    }
    *out = '\'';
}

bool room_for(size_t size, size_t len, size_t more) {
    return len < size && more <= size - 1 - len;
}

}  // namespace

bool shell_append_raw(char *buf, size_t size, size_t *len, std::string_view text) {
    if (!room_for(size, *len, text.size())) return false;
    std::memcpy(buf + *len, text.data(), text.size());
    *len += text.size();
    buf[*len] = '\0';
    return true;
}

bool shell_append_word(char *buf, size_t size, size_t *len, std::string_view word) {
    size_t n = quoted_length(word);
    if (!room_for(size, *len, 1 + n)) return false;
    buf[*len] = ' ';
    put_quoted(buf + *len + 1, word);
    *len += 1 + n;
    buf[*len] = '\0';
    return true;
}
