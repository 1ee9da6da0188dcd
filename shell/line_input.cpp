#include "shell/line_input.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <readline/history.h>
#include <readline/readline.h>
#include <termios.h>
#include <unistd.h>

#include "platform/stdout_lock.h"

bool PipedLines::next(std::string &line) {
    line.clear();
    for (;;) {
        int c = std::getc(in_);
        if (c == EOF) {
            if (std::ferror(in_) && errno == EINTR) {
                std::clearerr(in_);
                continue;
            }
            return !line.empty();
        }
        bool lf_owned = lf_after_cr_;
        lf_after_cr_ = false;
        if (c == '\n') {
            if (lf_owned) continue;   // CR LF: one line end
            return true;
        }
        if (c == '\r') {
            // Ends the line at once: waiting to see whether a LF follows
            // would hold a station that ends its lines with CR alone.
            lf_after_cr_ = true;
            return true;
        }
        if (line.size() < kMaxKept) line.push_back(static_cast<char>(c));
    }
}

namespace {

// While a line is read, FS is a key like any other: the terminal would turn it
// into SIGQUIT (Ctrl+\) before the editor saw it. Readline puts the terminal's
// own settings back after each line, so Ctrl+\ works again while a command runs.
void prep_terminal(int meta) {
    rl_prep_terminal(meta);
    int fd = fileno(rl_instream ? rl_instream : stdin);
    termios t;
    if (tcgetattr(fd, &t) != 0) return;
    t.c_cc[VQUIT] = _POSIX_VDISABLE;
    tcsetattr(fd, TCSADRAIN, &t);
}

}  // namespace

void set_up_line_editor() {
    // A tab is part of a word, never a completion request.
    rl_bind_key('\t', rl_insert);
    // FS, GS, RS and US come from scanners inside serials: text, not keys.
    for (int c = 0x1c; c <= 0x1f; ++c) rl_bind_key(c, rl_insert);
    rl_prep_term_function = prep_terminal;
    // Stations read the screen as plain text: no paste brackets.
    rl_variable_bind("enable-bracketed-paste", "off");
}

char *read_station_line(const char *prompt) {
    // The station's end is a terminal or a pipe for the whole session.
    static const bool terminal = isatty(STDIN_FILENO);
    if (terminal) {
        char *line = readline(prompt);
        if (line && line[0]) add_history(line);
        return line;
    }

    static PipedLines lines(stdin);
    std::fputs(prompt, stdout);
    std::fflush(stdout);
    std::string line;
    if (!lines.next(line)) return nullptr;
    {
        // The echo, as a station's script sees it on the phone.
        StdoutLock hold;
        std::fwrite(line.data(), 1, line.size(), stdout);
        std::putchar('\n');
    }
    // A NUL byte ends the command line there: nothing past it is run.
    return strdup(line.c_str());
}
