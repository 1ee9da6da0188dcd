#include "shell/dispatch.h"

#include <cstdio>

const char kNotValidCommand[] = "Not a valid command";

namespace {

bool accepts(const ArgCheck &check, const char *word) {
    if (check.test) return check.test(word);
    for (std::string_view ok : check.accepted)
        if (ok == word) return true;
    return false;
}

Dispatch dispatch_at(const Span<Command> &table, CommandLine &line, size_t slot,
                     const char *no_match) {
    const char *word = line.word(slot);
    for (const Command &row : table) {
        if (row.word != word) continue;
        if (row.quits) return Dispatch::kQuit;
        if (row.subs.size) return dispatch_at(row.subs, line, slot + 1, row.bad_sub);
        for (const ArgCheck &check : row.checks) {
            if (!accepts(check, line.word(check.word))) {
                std::puts(check.refusal);
                return Dispatch::kContinue;
            }
        }
        if (row.handler)
            row.handler(line);
        else
            std::puts(kNotValidCommand);
        return Dispatch::kContinue;
    }
    if (no_match) std::puts(no_match);
    return Dispatch::kContinue;
}

}  // namespace

Dispatch dispatch(const Span<Command> &table, CommandLine &line) {
    return dispatch_at(table, line, 0, kNotValidCommand);
}
