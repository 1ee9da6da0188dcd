// Loaded into the console process only (LD_PRELOAD, which it then drops so the
// shell commands the console runs see the plain host). It stands in for what
// the host kernel cannot give: the phone's device nodes are files and FIFOs in
// the phone's folder, opened here in their place, and the system shell is
// recorded (and can be made to fail) on its way out.
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "sim/common/phone.h"
#include "sim/preload/nodes.h"

namespace preload {

namespace {

constexpr int kMaxFds = 4096;
// The node each descriptor was opened through, and the stand-in's inode: a
// descriptor number reused by a socket or a pipe is never taken for the node.
std::atomic<const DeviceNode *> g_fd_nodes[kMaxFds];
std::atomic<unsigned long long> g_fd_inodes[kMaxFds];

unsigned long long inode_of(int fd) {
    struct stat st;
    if (fstat(fd, &st) != 0) return 0;
    return (static_cast<unsigned long long>(st.st_dev) << 32) ^ st.st_ino;
}

// Never destroyed: a detached thread (tone playback) may still open and close
// devices while the process runs its exit handlers.
std::vector<const DeviceNode *> &registry() {
    static auto *nodes = new std::vector<const DeviceNode *>;
    return *nodes;
}

void track(int fd, const DeviceNode *node) {
    if (fd < 0 || fd >= kMaxFds) return;
    g_fd_inodes[fd].store(node ? inode_of(fd) : 0);
    g_fd_nodes[fd].store(node);
}

// A closed descriptor of a node that checks its reads keeps its node, marked
// closed: a read that was on its way in when another thread closed it still
// reaches the node's check, as a phone's read already blocked in the kernel
// does. Any later open of that number replaces the mark.
constexpr unsigned long long kClosed = ~0ULL;

void untrack(int fd) {
    if (fd < 0 || fd >= kMaxFds) return;
    const DeviceNode *node = g_fd_nodes[fd].load();
    if (node && node->read_check) {
        g_fd_inodes[fd].store(kClosed);
        return;
    }
    track(fd, nullptr);
}

// Mappings of nodes whose release is a change, by address: a program maps its
// framebuffer once or twice, never more than a handful of times at once.
constexpr int kMaxMaps = 16;
std::atomic<void *> g_maps[kMaxMaps];

void remember_map(void *addr) {
    for (auto &slot : g_maps) {
        void *empty = nullptr;
        if (slot.compare_exchange_strong(empty, addr)) return;
    }
}

bool forget_map(void *addr) {
    for (auto &slot : g_maps) {
        void *expected = addr;
        if (addr && slot.compare_exchange_strong(expected, nullptr)) return true;
    }
    return false;
}

bool release_is_change(const DeviceNode *node) { return node && node->release_is_change; }

// True when `fd` was opened through a node that checks its reads and has
// been closed since.
bool closed_node(int fd) {
    if (fd < 0 || fd >= kMaxFds || g_fd_inodes[fd].load() != kClosed) return false;
    struct stat st;
    return fstat(fd, &st) != 0 && errno == EBADF;
}

// A read of such a descriptor, closed on its way in (the input readers' stop
// closes the device, then signals the thread): on the phone that read has
// already blocked in the kernel, and the signal that follows the close
// interrupts it (EINTR). It waits that long here too, a second at most, before
// it fails as a read of a closed descriptor does.
ssize_t closed_while_reading() {
    struct timespec wait = {1, 0};
    if (ppoll(nullptr, 0, &wait, nullptr) < 0 && errno == EINTR) return -1;
    errno = EBADF;
    return -1;
}

}  // namespace

void add_nodes(const DeviceNode *nodes, size_t count) {
    for (size_t i = 0; i < count; ++i) registry().push_back(&nodes[i]);
}

const DeviceNode *node_of(int fd) {
    if (fd < 0 || fd >= kMaxFds) return nullptr;
    const DeviceNode *node = g_fd_nodes[fd].load();
    if (node && g_fd_inodes[fd].load() != inode_of(fd)) return nullptr;
    return node;
}

bool map_path(const char *path, std::string &stand_in, const DeviceNode **node) {
    if (!path || path[0] != '/') return false;
    for (const DeviceNode *n : registry()) {
        size_t len = std::strlen(n->path);
        bool folder = len && n->path[len - 1] == '/';
        std::string rest;
        if (!folder) {
            if (std::strcmp(path, n->path) != 0) continue;
        } else if (std::strncmp(path, n->path, len) == 0) {
            rest = path + len;
        } else if (std::strncmp(path, n->path, len - 1) == 0 && path[len - 1] == '\0') {
            rest = "";   // the folder itself
        } else {
            continue;
        }
        stand_in = sim::phone_path(n->file) + rest;
        if (node) *node = n;
        return true;
    }
    return false;
}

}  // namespace preload

namespace {

using preload::DeviceNode;
std::atomic<bool> g_active{false};

}  // namespace

bool preload::is_console_process() {
    const char *console = getenv("FTSIM_CONSOLE");
    return std::strcmp(program_invocation_short_name, console && *console ? console : "ft") == 0;
}

bool preload::console_active() { return g_active.load(std::memory_order_relaxed); }

namespace {

using preload::next;

// Only the console is emulated (g_active). Any other program started with the
// preload (a launcher such as valgrind or env) leaves it in place for the
// console and is itself left alone.

bool mapped(const char *path, std::string &stand_in, const DeviceNode **node = nullptr) {
    return g_active.load(std::memory_order_relaxed) && preload::map_path(path, stand_in, node);
}

bool has_mode(int flags) { return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE; }

// Opens the stand-in of a phone node; -2 when `path` is not one. An unplugged
// device (no stand-in) fails as a missing node does.
int open_node(const char *path, int flags) {
    std::string stand_in;
    const DeviceNode *node = nullptr;
    if (!mapped(path, stand_in, &node)) return -2;
    if (node->open_check && node->open_check(path) != 0) return -1;
    using OpenFn = int (*)(const char *, int, ...);
    static OpenFn real_open = next<OpenFn>("open");
    int fd = real_open(stand_in.c_str(), (flags & ~O_CREAT) | node->extra_flags);
    preload::track(fd, node);
    return fd;
}

__attribute__((constructor)) void preload_init() {
    if (!preload::is_console_process()) return;
    g_active = true;
    unsetenv("LD_PRELOAD");
    // The reboot stub ends the run the way a real reboot ends the console.
    std::string pid = std::to_string(getpid());
    sim::write_atomically("run/console.pid", pid.data(), pid.size());
}

}  // namespace

extern "C" {

#define OPEN_WRAPPER(name)                                            \
    int name(const char *path, int flags, ...) {                      \
        mode_t mode = 0;                                              \
        if (has_mode(flags)) {                                        \
            va_list ap;                                               \
            va_start(ap, flags);                                      \
            mode = va_arg(ap, mode_t);                                \
            va_end(ap);                                               \
        }                                                             \
        int fd = open_node(path, flags);                              \
        if (fd != -2) return fd;                                      \
        using Fn = int (*)(const char *, int, ...);                   \
        static Fn real = next<Fn>(#name);                             \
        fd = real(path, flags, mode);                                 \
        preload::track(fd, nullptr);                                  \
        return fd;                                                    \
    }

OPEN_WRAPPER(open)
OPEN_WRAPPER(open64)

#define OPENAT_WRAPPER(name)                                          \
    int name(int dirfd, const char *path, int flags, ...) {           \
        mode_t mode = 0;                                              \
        if (has_mode(flags)) {                                        \
            va_list ap;                                               \
            va_start(ap, flags);                                      \
            mode = va_arg(ap, mode_t);                                \
            va_end(ap);                                               \
        }                                                             \
        int fd = open_node(path, flags);                              \
        if (fd != -2) return fd;                                      \
        using Fn = int (*)(int, const char *, int, ...);              \
        static Fn real = next<Fn>(#name);                             \
        fd = real(dirfd, path, flags, mode);                          \
        preload::track(fd, nullptr);                                  \
        return fd;                                                    \
    }

OPENAT_WRAPPER(openat)
OPENAT_WRAPPER(openat64)

#define OPEN2_WRAPPER(name)                                           \
    int name(const char *path, int flags) {                           \
        int fd = open_node(path, flags);                              \
        if (fd != -2) return fd;                                      \
        using Fn = int (*)(const char *, int);                        \
        static Fn real = next<Fn>(#name);                             \
        fd = real(path, flags);                                       \
        preload::track(fd, nullptr);                                  \
        return fd;                                                    \
    }

OPEN2_WRAPPER(__open_2)
OPEN2_WRAPPER(__open64_2)

#define FOPEN_WRAPPER(name)                                           \
    FILE *name(const char *path, const char *mode) {                  \
        using Fn = FILE *(*)(const char *, const char *);             \
        static Fn real = next<Fn>(#name);                             \
        std::string stand_in;                                         \
        const DeviceNode *node = nullptr;                             \
        if (!mapped(path, stand_in, &node))                           \
            return preload::storage_open_allowed(path, mode)          \
                       ? real(path, mode) : nullptr;                  \
        if (node->open_check && node->open_check(path) != 0)          \
            return nullptr;                                           \
        FILE *f = real(stand_in.c_str(), mode);                       \
        if (f) preload::track(fileno(f), node);                       \
        return f;                                                     \
    }

FOPEN_WRAPPER(fopen)
FOPEN_WRAPPER(fopen64)

DIR *opendir(const char *path) {
    using Fn = DIR *(*)(const char *);
    static Fn real = next<Fn>("opendir");
    if (!preload::folder_open_allowed(path)) return nullptr;
    std::string stand_in;
    return real(mapped(path, stand_in) ? stand_in.c_str() : path);
}

#define STAT_WRAPPER(name, type)                                      \
    int name(const char *path, struct type *st) {                     \
        using Fn = int (*)(const char *, struct type *);              \
        static Fn real = next<Fn>(#name);                             \
        std::string stand_in;                                         \
        return real(mapped(path, stand_in) ? stand_in.c_str() : path, st); \
    }

STAT_WRAPPER(stat, stat)
STAT_WRAPPER(stat64, stat64)
STAT_WRAPPER(lstat, stat)
STAT_WRAPPER(lstat64, stat64)

int access(const char *path, int mode) {
    using Fn = int (*)(const char *, int);
    static Fn real = next<Fn>("access");
    std::string stand_in;
    return real(mapped(path, stand_in) ? stand_in.c_str() : path, mode);
}

int close(int fd) {
    using Fn = int (*)(int);
    static Fn real = next<Fn>("close");
    bool change = preload::release_is_change(preload::node_of(fd));
    preload::untrack(fd);
    int result = real(fd);
    if (change) sim::note_change();
    return result;
}

int fclose(FILE *f) {
    using Fn = int (*)(FILE *);
    static Fn real = next<Fn>("fclose");
    bool change = f && preload::release_is_change(preload::node_of(fileno(f)));
    if (f) preload::track(fileno(f), nullptr);
    int result = real(f);
    if (change) sim::note_change();
    return result;
}

int ioctl(int fd, unsigned long request, ...) {
    va_list ap;
    va_start(ap, request);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    const DeviceNode *node = preload::node_of(fd);
    if (node && node->ioctl) return node->ioctl(fd, request, arg);
    using Fn = int (*)(int, unsigned long, ...);
    static Fn real = next<Fn>("ioctl");
    return real(fd, request, arg);
}

// Mappings of a node's stand-in are real file mappings; the node may refuse one.
#define MMAP_WRAPPER(name, off_type)                                  \
    void *name(void *addr, size_t len, int prot, int flags, int fd, off_type off) { \
        const DeviceNode *node = preload::node_of(fd);                \
        if (node && node->mmap_check && node->mmap_check(fd) != 0)    \
            return MAP_FAILED;                                        \
        using Fn = void *(*)(void *, size_t, int, int, int, off_type); \
        static Fn real = next<Fn>(#name);                             \
        void *map = real(addr, len, prot, flags, fd, off);            \
        if (map != MAP_FAILED && preload::release_is_change(node))    \
            preload::remember_map(map);                               \
        return map;                                                   \
    }

MMAP_WRAPPER(mmap, off_t)
MMAP_WRAPPER(mmap64, off64_t)

// A node may fail reads of a descriptor the console holds (a device unplugged
// under it). What a read brought is dropped when the node fails it afterwards:
// it was the wake-up that unplugging sends. A read that fails because another
// thread closed the descriptor, before, during or after the checks, is one
// that was on its way in when the close came.
ssize_t read(int fd, void *buf, size_t count) {
    using Fn = ssize_t (*)(int, void *, size_t);
    static Fn real = next<Fn>("read");
    const DeviceNode *node = preload::node_of(fd);
    if (!node || !node->read_check)
        return preload::closed_node(fd) ? preload::closed_while_reading() : real(fd, buf, count);
    ssize_t n = node->read_check(fd) != 0 ? -1 : real(fd, buf, count);
    if (n >= 0) {
        int saved = errno;
        if (node->read_check(fd) != 0)
            n = -1;
        else
            errno = saved;
    }
    // (A read the stop signal interrupted in the kernel has had its wake-up.)
    if (n < 0 && errno != EINTR && preload::closed_node(fd)) return preload::closed_while_reading();
    return n;
}

int munmap(void *addr, size_t len) {
    using Fn = int (*)(void *, size_t);
    static Fn real = next<Fn>("munmap");
    int result = real(addr, len);
    if (result == 0 && preload::forget_map(addr)) sim::note_change();
    return result;
}

// A console built for coverage exports gcc's dump: its counters are written
// before a reboot, which kills it, and counted afresh after (the reboot may fail).
static void dump_coverage(const char *cmdline) {
    while (*cmdline == ' ') ++cmdline;
    if (std::strncmp(cmdline, "reboot", 6) != 0 || (cmdline[6] && cmdline[6] != ' ')) return;
    auto dump = reinterpret_cast<void (*)()>(dlsym(RTLD_DEFAULT, "__gcov_dump"));
    auto reset = reinterpret_cast<void (*)()>(dlsym(RTLD_DEFAULT, "__gcov_reset"));
    if (dump && reset) {
        dump();
        reset();
    }
}

// Every command line the console hands to the shell is recorded, one per line.
int system(const char *cmdline) {
    if (cmdline && g_active) {
        std::string line;
        for (const char *p = cmdline; *p; ++p) {
            if (*p == '\n')
                line += "\\n";
            else
                line += *p;
        }
        sim::append_line("log/calls", line);
        dump_coverage(cmdline);
        if (sim::fault("shell")) {
            errno = EAGAIN;    // as when fork() fails: no process to spare
            return -1;
        }
    }
    using Fn = int (*)(const char *);
    static Fn real = next<Fn>("system");
    int status = real(cmdline);
    // The phone's tool stubs record their calls in log/tools as they run.
    if (cmdline && g_active) sim::note_change();
    return status;
}

}  // extern "C"
