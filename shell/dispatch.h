// The command table and the dispatcher that walks it.
#pragma once

#include <cstddef>
#include <string_view>

#include "shell/words.h"

template <typename T>
struct Span {
    const T *data = nullptr;
    size_t size = 0;

    constexpr Span() = default;
    template <size_t N>
    constexpr Span(const T (&a)[N]) : data(a), size(N) {}
    constexpr const T *begin() const { return data; }
    constexpr const T *end() const { return data + size; }
};

// A handler gets the whole line and takes the word slots its command needs.
using Handler = int (*)(CommandLine &);

// One argument word the dispatcher checks before the call: the word must be one
// of `accepted` (or pass `test`), else `refusal` is printed and nothing runs.
struct ArgCheck {
    size_t word;
    Span<std::string_view> accepted = {};
    bool (*test)(const char *word) = nullptr;
    const char *refusal = nullptr;
};

struct Command {
    std::string_view word;
    Handler handler = nullptr;        // null: this console has no such test yet
    Span<Command> subs = {};            // sub-words, tested at the next word slot
    const char *bad_sub = nullptr;    // printed when no sub-word matches
    Span<ArgCheck> checks = {};
    bool quits = false;
};

enum class Dispatch { kContinue, kQuit };

// The console's vocabulary, in the order the words are tested.
extern const Span<Command> kCommands;

extern const char kNotValidCommand[];

Dispatch dispatch(const Span<Command> &table, CommandLine &line);
inline Dispatch dispatch(CommandLine &line) { return dispatch(kCommands, line); }
