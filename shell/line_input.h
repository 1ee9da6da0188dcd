// Where the station's command lines come from. On a terminal (a serial console
// is one) GNU Readline edits them; on a pipe every byte up to the line end is
// text, so a control byte inside a scanned serial never acts as an editing key.
#pragma once

#include <cstdio>
#include <string>

// The lines of a pipe, byte for byte. A line ends at LF, at CR LF (the CR is
// dropped) or at a lone CR. Every other byte, controls and 0x80 to 0xFF
// included, is part of the line; only the end of the input ends the input.
class PipedLines {
public:
    explicit PipedLines(FILE *in) : in_(in) {}

    // The next line without its line end; false at the end of the input (a last
    // line without a line end is still a line). A line longer than kMaxKept keeps
    // its first kMaxKept bytes: far over any limit, so it is refused all the same.
    bool next(std::string &line);

    static constexpr size_t kMaxKept = 64 * 1024;

private:
    FILE *in_;
    bool lf_after_cr_ = false;   // the last line ended at a CR: a LF right after it is its own
};

// Binds the editor's keys for a station: a tab and the separators FS, GS, RS
// and US (barcode scanners put them into serials) are text. Call once.
void set_up_line_editor();

// Shows `prompt` and reads one line: Readline on a terminal (with history); on a pipe the line
// as it came, echoed after the prompt byte for byte. A malloc'd string the
// caller frees, or null at the end of the input.
char *read_station_line(const char *prompt);
