// Command lines built from operator words. Each word reaches the command as
// exactly one argument, whatever it holds: a word of plain characters goes in as
// typed, any other is single-quoted. A line that would not fit its buffer is
// refused whole, never cut, so a shortened command can never run.
#pragma once

#include <cstddef>
#include <string_view>

// Appends `text` at `*len` as it stands (our own fixed text: program, options,
// redirections). False, with nothing appended, when the result would not fit
// `size` bytes with its NUL.
bool shell_append_raw(char *buf, size_t size, size_t *len, std::string_view text);

// Appends one blank and `word` as one shell word. An empty word adds nothing
// after the blank, so the command sees only the words that are present.
// False, with nothing appended, when the result would not fit.
bool shell_append_word(char *buf, size_t size, size_t *len, std::string_view word);

// A command line in a fixed buffer of N bytes (N - 1 characters at most).
template <size_t N>
class ShellLine {
public:
    static constexpr size_t kMaxChars = N - 1;

    explicit ShellLine(std::string_view program) { raw(program); }

    ShellLine &raw(std::string_view text) {
        fits_ = fits_ && shell_append_raw(buf_, N, &len_, text);
        return *this;
    }
    ShellLine &word(std::string_view w) {
        fits_ = fits_ && shell_append_word(buf_, N, &len_, w);
        return *this;
    }

    // False once anything was refused: the line must not run.
    bool fits() const { return fits_; }
    const char *c_str() const { return buf_; }

private:
    char buf_[N] = {};
    size_t len_ = 0;
    bool fits_ = true;
};
