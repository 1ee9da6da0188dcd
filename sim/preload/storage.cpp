// Faults of the phone's flash partitions and folders, on the console's own
// opens: cache-unreadable refuses a read open of a file under /cache (EIO);
// cache-changed changes the first byte of such a file as it is opened for
// reading, as a worn flash page does; scsi-hosts-unreadable refuses opening
// /sys/class/scsi_host (EACCES). On the USB test's mount point /data/usb_test:
// usb-opendir refuses opening the folder (EIO), usb-create refuses making a file
// in it (EROFS, as a stick whose write-protect switch is on). cache-undeletable
// is special_file.cpp's; usb-seek is usb_storage.cpp's.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "sim/common/phone.h"
#include "sim/preload/nodes.h"

namespace {

constexpr char kCache[] = "/cache/";
constexpr char kUsbMountPoint[] = "/data/usb_test";

// `path` (relative to the working folder or not) names a file in the mount point.
bool in_usb_mount_point(const char *path) {
    std::string full = path;
    if (path[0] != '/') {
        char cwd[4096];
        if (!::getcwd(cwd, sizeof cwd)) return false;
        full = std::string(cwd) + "/" + path;
    }
    return full.compare(0, sizeof kUsbMountPoint, std::string(kUsbMountPoint) + "/") == 0;
}

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
    if (!console_active() || !path || !mode) return true;
    int saved = errno;
    // The path first: every fopen for writing of the console comes here.
    if (mode[0] == 'w' && in_usb_mount_point(path) && sim::fault("usb-create")) {
        errno = EROFS;
        return false;
    }
    errno = saved;
    if (!under_cache(path) || mode[0] != 'r') return true;
    if (sim::fault("cache-unreadable")) {
        errno = EIO;
        return false;
    }
    if (sim::fault("cache-changed")) change_first_byte(path);
    errno = saved;
    return true;
}

bool preload::folder_open_allowed(const char *path) {
    if (!console_active() || !path) return true;
    int saved = errno;
    if (std::strcmp(path, "/sys/class/scsi_host") == 0 && sim::fault("scsi-hosts-unreadable")) {
        errno = EACCES;
        return false;
    }
    if (std::strcmp(path, kUsbMountPoint) == 0 && sim::fault("usb-opendir")) {
        errno = EIO;
        return false;
    }
    errno = saved;
    return true;
}

bool preload::cache_undeletable(const char *path) {
    return console_active() && under_cache(path) && sim::fault("cache-undeletable");
}
