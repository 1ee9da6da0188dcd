#include "shell/watchdog.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "platform/unique_fd.h"

int disableWatchdog() {
    std::fputs("Opening watchdog file at /dev/watchdog ... ", stdout);
    UniqueFd fd(open("/dev/watchdog", O_WRONLY | O_CLOEXEC));
    if (!fd) {
        std::puts("watchdog file could not be opened");
        return -1;
    }
    std::puts("Disabling watchdog timer.");
    // 'V' is the magic close: the driver stops the watchdog when we close it.
    ssize_t n;
    do {
        n = write(fd.get(), "V", 1);
    } while (n < 0 && errno == EINTR);
    return 0;
}
