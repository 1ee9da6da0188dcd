#include "platform/shell.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "platform/unique_fd.h"

namespace {

// Points descriptor 0 at /dev/null while it lives: the station's input belongs
// to the console's loop alone, and a phone script that reads its standard input
// must not swallow the station's next lines.
class NullStdin {
public:
    NullStdin() {
        UniqueFd null_fd(open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!null_fd) return;
        saved_.reset(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
        if (saved_ && dup2(null_fd.get(), STDIN_FILENO) < 0) saved_.reset();
    }
    ~NullStdin() {
        if (saved_) dup2(saved_.get(), STDIN_FILENO);
    }

private:
    UniqueFd saved_;
};

}  // namespace

extern "C" int shell_run(const char *cmdline) {
    // Whatever the command prints must come after what we printed before it.
    std::fflush(stdout);
    int rc;
    {
        NullStdin no_input;
        rc = std::system(cmdline);
    }
    std::fflush(stdout);
    return rc;
}
