// Where the simulated libraries find the phone they belong to.
#pragma once

#include <cstddef>
#include <string>

namespace sim {

// The phone's state folder, as the sandbox shows it (FTSIM_DIR, else /sim).
const char *phone_dir();

// phone_dir() + "/" + rel.
std::string phone_path(const std::string &rel);

// True while `./ftsim fault PHONE NAME` holds (a file under faults/).
bool fault(const std::string &name);

// A fault that takes its argument in its name (faults/bt-late.250 for
// prefix "bt-late."): true while one holds, with the rest of its name in `arg`.
bool fault_argument(const std::string &prefix, std::string &arg);

// The errno a faulted library call fails with, or 0. `name` is the fault's
// name for that call ("switch.L2Switch_GetLinkMode"); the fault is the file
// faults/NAME[:ERRNO][@N] (ERRNO a number, EIO without it). With @N only the
// Nth call of that name since the process started fails: every call to
// call_fault counts, faulted or not.
int call_fault(const std::string &name);

// Replaces `rel` with `data` so that a reader sees the old or the new content,
// never a mix: temporary file, fsync, rename, fsync of the folder.
bool write_atomically(const std::string &rel, const char *data, size_t len);

// A new file beside `path` for it to be renamed over `path`, under a name no
// other process or thread uses (the PIDs of two sandboxes may be the same):
// its descriptor, and its name in `tmp`; -1 on failure.
int open_temp_beside(const std::string &path, std::string &tmp);

// Reads at most `max` bytes of `rel`; false when it does not exist.
bool read_file(const std::string &rel, std::string &out, size_t max);

// Calls `row(key, value)` for each "KEY=VALUE" line of `rel` (at most `max`
// bytes read); lines without '=' are skipped. False when `rel` does not exist.
template <typename Row>
bool read_key_values(const std::string &rel, size_t max, Row row) {
    std::string text;
    if (!read_file(rel, text, max)) return false;
    for (size_t pos = 0; pos < text.size();) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        size_t eq = text.find('=', pos);
        if (eq < end) row(text.substr(pos, eq - pos), text.substr(eq + 1, end - eq - 1));
        pos = end + 1;
    }
    return true;
}

// Appends one line (a single write, so concurrent writers never interleave).
void append_line(const std::string &rel, const std::string &line);

// Adds one to the phone's change counter, run/changes (a decimal number, under
// flock), which `ftsim view` watches. The two writers above call it after every
// write; anything else that changes what the phone shows calls it itself.
void note_change();

}  // namespace sim
