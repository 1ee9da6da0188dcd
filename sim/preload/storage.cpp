// Faults of the phone's flash partitions and folders, on the console's own
// opens: cache-unreadable refuses a read open of a file under /cache (EIO);
// cache-changed changes the first byte of such a file as it is opened for
// reading, as a worn flash page does; scsi-hosts-unreadable refuses opening
// /sys/class/scsi_host (EACCES). cache-undeletable is special_file.cpp's.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "sim/common/phone.h"
#include "sim/preload/nodes.h"

namespace {

constexpr char kCache[] = "/cache/";

bool under_cache(const char *path) { return path && std::strncmp(path, kCache, sizeof kCache - 1) == 0; }

void change_first_byte(const char *path) {
    using OpenFn = int (*)(const char *, int, ...);
    static OpenFn real_open = preload::next<OpenFn>("open");
    int fd = real_open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) return;
    unsigned char b;
    if (::pread(fd, &b, 1, 0) == 1) {
        b ^= 0xFF;
        if (::pwrite(fd, &b, 1, 0) != 1) {
            // the file stays as it was
        }
    }
    ::close(fd);
}

}  // namespace

bool preload::storage_open_allowed(const char *path, const char *mode) {
    if (!console_active() || !under_cache(path) || !mode || mode[0] != 'r') return true;
    int saved = errno;
    if (sim::fault("cache-unreadable")) {
        errno = EIO;
        return false;
    }
    if (sim::fault("cache-changed")) change_first_byte(path);
    errno = saved;
    return true;
}

bool preload::folder_open_allowed(const char *path) {
    if (!console_active() || !path || std::strcmp(path, "/sys/class/scsi_host") != 0) return true;
    int saved = errno;
    if (sim::fault("scsi-hosts-unreadable")) {
        errno = EACCES;
        return false;
    }
    errno = saved;
    return true;
}

bool preload::cache_undeletable(const char *path) {
    return console_active() && under_cache(path) && sim::fault("cache-undeletable");
}
