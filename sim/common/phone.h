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

// Replaces `rel` with `data` so that a reader sees the old or the new content,
// never a mix: temporary file, fsync, rename, fsync of the folder.
bool write_atomically(const std::string &rel, const char *data, size_t len);

// Reads at most `max` bytes of `rel`; false when it does not exist.
bool read_file(const std::string &rel, std::string &out, size_t max);

// Appends one line (a single write, so concurrent writers never interleave).
void append_line(const std::string &rel, const std::string &line);

}  // namespace sim
