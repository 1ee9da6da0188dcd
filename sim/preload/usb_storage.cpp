// USB sticks. A stick is a folder, usb/sdX in the phone's folder, with no FAT
// file system behind it: the console's mount of "/dev/block/sdX1" as vfat
// becomes a bind of that folder onto the mount point (the sandbox runs the
// console as root in a mount namespace of its own, so the bind is a real one
// and every file call on the mount point just works). umount2 undoes it.
// Every call is logged in log/mounts; usb/mounts lists what is mounted now.
//
// Faults on files of a mounted stick: usb-io makes each fwrite fail with EIO;
// usb-corrupt makes one fread (the first of the run) come back changed. A stick
// pulled out while mounted fails every fread and fwrite with EIO, as a phone's
// vfat does once its device is gone; the unmount still works. usb-seek makes
// every fseek on a file of a mounted stick fail with EIO.
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sim/common/phone.h"
#include "sim/preload/nodes.h"

namespace {

constexpr int kMaxMounts = 16;

struct StickMount {
    char letter;
    unsigned long flags;
    std::string target;
};

// Only the console's main thread mounts; the count is read by any thread.
StickMount g_mounts[kMaxMounts];
std::atomic<int> g_count{0};
std::atomic<bool> g_corrupted{false};

// 'a' to 'z' for "/dev/block/sdX1", else 0.
char stick_letter(const char *source) {
    if (!source || std::strncmp(source, "/dev/block/sd", 13) != 0) return 0;
    char c = source[13];
    return c >= 'a' && c <= 'z' && source[14] == '1' && source[15] == '\0' ? c : 0;
}

void save_mounts() {
    std::string text;
    for (int i = 0; i < g_count.load(); ++i) {
        text += std::string("sd") + g_mounts[i].letter + "1 on " + g_mounts[i].target +
                " type vfat flags=" + std::to_string(g_mounts[i].flags) + "\n";
    }
    sim::write_atomically("usb/mounts", text.data(), text.size());
}

void log_call(const std::string &call, int rc, int err) {
    sim::append_line("log/mounts", call + (rc == 0 ? " = 0" : std::string(" = ") + strerrorname_np(err)));
}

int find_mount(const char *target) {
    for (int i = 0; i < g_count.load(); ++i)
        if (target && g_mounts[i].target == target) return i;
    return -1;
}

// The letter of the mounted stick `f` is open on a file of, or 0.
char stick_of(FILE *f) {
    if (!f) return 0;
    char link[64], path[PATH_MAX];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fileno(f));
    ssize_t n = readlink(link, path, sizeof path - 1);
    if (n <= 0) return 0;
    path[n] = '\0';
    for (int i = 0; i < g_count.load(); ++i) {
        const std::string &t = g_mounts[i].target;
        if (std::strncmp(path, t.c_str(), t.size()) == 0 && path[t.size()] == '/') return g_mounts[i].letter;
    }
    return 0;
}

// A stick pulled out while mounted: its folder went to unplugged/.
bool pulled(char letter) {
    struct stat st;
    return ::stat(sim::phone_path(std::string("usb/sd") + letter).c_str(), &st) != 0;
}

// True when fault `name` holds for `f`, a file of a mounted stick. Every
// fwrite, fread and fseek of the console asks: with no stick mounted that
// costs nothing, and the fault (one stat) is asked before the file's path.
bool stick_fault(FILE *f, const char *name) {
    return g_count.load() != 0 && sim::fault(name) && stick_of(f);
}

// True when `f` is a file of a stick pulled out while mounted. The mounted
// sticks are asked first (a stat each), the file's path only once one is gone.
bool on_pulled_stick(FILE *f) {
    bool any = false;
    for (int i = 0; i < g_count.load() && !any; ++i) any = pulled(g_mounts[i].letter);
    if (!any) return false;
    char letter = stick_of(f);
    return letter && pulled(letter);
}

// Keeps the console's errno as it was across our own look-ups.
struct SavedErrno {
    int value = errno;
    ~SavedErrno() { errno = value; }
};

// usb-corrupt: the first read from a stick in this run comes back changed.
size_t spoil_once(void *data, size_t size, size_t got, FILE *f) {
    if (!got || !size || g_corrupted.load()) return got;
    SavedErrno saved;
    if (stick_fault(f, "usb-corrupt") && !g_corrupted.exchange(true))
        static_cast<unsigned char *>(data)[0] ^= 0xFF;
    return got;
}

// fread on a pulled stick: EIO.
bool read_pulled(FILE *f) {
    SavedErrno saved;
    if (!on_pulled_stick(f)) return false;
    saved.value = EIO;
    return true;
}

}  // namespace

extern "C" {

int mount(const char *source, const char *target, const char *fstype, unsigned long flags,
          const void *data) {
    using Fn = int (*)(const char *, const char *, const char *, unsigned long, const void *);
    static Fn real = preload::next<Fn>("mount");
    char letter = stick_letter(source);
    if (!preload::console_active() || !letter) return real(source, target, fstype, flags, data);

    std::string call = std::string("mount ") + source + " " + (target ? target : "") + " " +
                       (fstype ? fstype : "") + " flags=" + std::to_string(flags) + " data=\"" +
                       (data ? static_cast<const char *>(data) : "") + "\"";
    std::string folder = sim::phone_path(std::string("usb/sd") + letter);
    struct stat st;
    int rc = 0, err = 0;
    if (::stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        rc = -1, err = ENODEV;   // no medium behind that letter
    } else if (!fstype || std::strcmp(fstype, "vfat") != 0) {
        rc = -1, err = EINVAL;   // the sticks hold FAT file systems only
    } else if (find_mount(target) >= 0 || g_count.load() == kMaxMounts) {
        rc = -1, err = EBUSY;
    } else if (real(folder.c_str(), target, nullptr, MS_BIND, nullptr) != 0) {
        rc = -1, err = errno;
    } else {
        g_mounts[g_count.load()] = {letter, flags, target};
        g_count.fetch_add(1);
        save_mounts();
    }
    log_call(call, rc, err);
    errno = err;
    return rc;
}

int umount2(const char *target, int flags) {
    using Fn = int (*)(const char *, int);
    static Fn real = preload::next<Fn>("umount2");
    int at = preload::console_active() ? find_mount(target) : -1;
    if (at < 0) return real(target, flags);
    int rc = real(target, flags);
    int err = errno;
    if (rc == 0) {
        for (int i = at; i + 1 < g_count.load(); ++i) g_mounts[i] = g_mounts[i + 1];
        g_count.fetch_sub(1);
        save_mounts();
    }
    log_call(std::string("umount2 ") + target + " flags=" + std::to_string(flags), rc, err);
    errno = err;
    return rc;
}

size_t fwrite(const void *data, size_t size, size_t n, FILE *f) {
    using Fn = size_t (*)(const void *, size_t, size_t, FILE *);
    static Fn real = preload::next<Fn>("fwrite");
    {
        SavedErrno saved;
        if (stick_fault(f, "usb-io") || on_pulled_stick(f)) {
            saved.value = EIO;
            return 0;
        }
    }
    return real(data, size, n, f);
}

int fseek(FILE *f, long offset, int whence) {
    using Fn = int (*)(FILE *, long, int);
    static Fn real = preload::next<Fn>("fseek");
    {
        SavedErrno saved;
        if (stick_fault(f, "usb-seek")) {
            saved.value = EIO;
            return -1;
        }
    }
    return real(f, offset, whence);
}

size_t fread(void *data, size_t size, size_t n, FILE *f) {
    using Fn = size_t (*)(void *, size_t, size_t, FILE *);
    static Fn real = preload::next<Fn>("fread");
    if (read_pulled(f)) return 0;
    return spoil_once(data, size, real(data, size, n, f), f);
}

// What fread becomes in a build with _FORTIFY_SOURCE.
size_t __fread_chk(void *data, size_t room, size_t size, size_t n, FILE *f) {
    using Fn = size_t (*)(void *, size_t, size_t, size_t, FILE *);
    static Fn real = preload::next<Fn>("__fread_chk");
    if (read_pulled(f)) return 0;
    return spoil_once(data, size, real(data, room, size, n, f), f);
}

}  // extern "C"
