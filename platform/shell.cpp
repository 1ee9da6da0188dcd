#include "platform/shell.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Points descriptor 0 at /dev/null while it lives: the station's input belongs
// to the console's loop alone, and a phone script that reads its standard input
// must not swallow the station's next lines.
class NullStdin {
public:
    NullStdin() {
        int null_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (null_fd < 0) return;
        saved_ = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
        if (saved_ >= 0 && dup2(null_fd, STDIN_FILENO) < 0) {
            close(saved_);
            saved_ = -1;
        }
        close(null_fd);
    }
    ~NullStdin() {
        if (saved_ < 0) return;
        dup2(saved_, STDIN_FILENO);
        close(saved_);
    }
    NullStdin(const NullStdin &) = delete;
    NullStdin &operator=(const NullStdin &) = delete;

private:
    int saved_ = -1;
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
