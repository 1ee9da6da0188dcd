// /dev/input: each eventN is a FIFO under dev/input/ that ftsim writes records
// into, described by input/eventN ("name=..." and "phys=..." lines), from which
// the identification queries are answered as the kernel's evdev answers them.
#include <cerrno>
#include <cstdio>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <linux/input.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sim/common/phone.h"
#include "sim/preload/nodes.h"

namespace {

// The node's file name (eventN), from the stand-in the descriptor has open.
std::string node_name(int fd) {
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    char target[PATH_MAX];
    ssize_t n = readlink(link, target, sizeof target - 1);
    if (n <= 0) return "";
    target[n] = '\0';
    const char *slash = std::strrchr(target, '/');
    return slash ? slash + 1 : target;
}

// One "key=value" line of the device's description; empty when absent.
std::string describe(const std::string &node, const char *key) {
    std::string text;
    if (node.empty() || !sim::read_file("input/" + node, text, 4096)) return "";
    std::string prefix = std::string(key) + "=";
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        if (text.compare(at, prefix.size(), prefix) == 0)
            return text.substr(at + prefix.size(), end - at - prefix.size());
        at = end + 1;
    }
    return "";
}

// As evdev's string queries: up to `len` bytes of the string and its NUL, the
// count copied as the result; ENOENT for a device without that string.
int copy_id(const std::string &id, void *arg, unsigned len) {
    if (id.empty()) {
        errno = ENOENT;
        return -1;
    }
    unsigned n = static_cast<unsigned>(id.size()) + 1;
    if (n > len) n = len;
    std::memcpy(arg, id.c_str(), n);
    return static_cast<int>(n);
}

int input_ioctl(int fd, unsigned long request, void *arg) {
    if (_IOC_TYPE(request) == 'E' && _IOC_DIR(request) == _IOC_READ) {
        unsigned len = _IOC_SIZE(request);
        if (_IOC_NR(request) == _IOC_NR(EVIOCGNAME(0)))
            return copy_id(describe(node_name(fd), "name"), arg, len);
        if (_IOC_NR(request) == _IOC_NR(EVIOCGPHYS(0)))
            return copy_id(describe(node_name(fd), "phys"), arg, len);
    }
    errno = ENOTTY;
    return -1;
}

// A device unplugged while the console holds it is gone for good, as with
// evdev: its FIFO is no longer the one under dev/input/ (unplugged, or
// plugged in again as a new one), and every read fails with ENODEV.
int input_read_check(int fd) {
    struct stat held, now;
    std::string node = node_name(fd);
    if (fstat(fd, &held) == 0 && !node.empty() &&
        stat(sim::phone_path("dev/input/" + node).c_str(), &now) == 0 &&
        held.st_dev == now.st_dev && held.st_ino == now.st_ino)
        return 0;
    errno = ENODEV;
    return -1;
}

// Read and write: the open never waits for a writer, and an injector that
// closes its end is never taken for an end of file.
constexpr preload::DeviceNode kInput[] = {
    {"/dev/input/", "dev/input/", O_RDWR, input_ioctl, nullptr, nullptr, false, input_read_check},
};

__attribute__((constructor)) void register_input() { preload::add_nodes(kInput); }

}  // namespace
