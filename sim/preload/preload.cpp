// Loaded into the console process only (LD_PRELOAD, which it then drops so the
// shell commands the console runs see the plain host). It stands in for what
// the host kernel cannot give: the phone's device nodes are files and FIFOs in
// the phone's folder, opened here in their place, and the system shell is
// recorded (and can be made to fail) on its way out.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "sim/common/phone.h"

namespace {

// A phone device node and the file in the phone's folder that stands for it.
struct Node {
    const char *dev;
    const char *file;
    int extra_flags;   // O_APPEND: the file records every byte written
};

constexpr Node kNodes[] = {
    {"/dev/watchdog", "dev/watchdog", O_APPEND},
};

const Node *node_for(const char *path) {
    if (!path) return nullptr;
    for (const Node &n : kNodes)
        if (std::strcmp(path, n.dev) == 0) return &n;
    return nullptr;
}

template <typename Fn>
Fn real(const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

// Opens the stand-in of `path` when it is a phone node; -2 when it is not one.
// An unplugged device (no stand-in file) fails as a missing node does.
int open_node(const char *path, int flags) {
    const Node *n = node_for(path);
    if (!n) return -2;
    using OpenFn = int (*)(const char *, int, ...);
    static OpenFn real_open = real<OpenFn>("open");
    std::string file = sim::phone_path(n->file);
    return real_open(file.c_str(), (flags & ~O_CREAT) | n->extra_flags | O_CLOEXEC);
}

bool has_mode(int flags) { return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE; }

__attribute__((constructor)) void preload_init() {
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
        static Fn next = real<Fn>(#name);                             \
        return next(path, flags, mode);                               \
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
        static Fn next = real<Fn>(#name);                             \
        return next(dirfd, path, flags, mode);                        \
    }

OPENAT_WRAPPER(openat)
OPENAT_WRAPPER(openat64)

int __open_2(const char *path, int flags) {
    int fd = open_node(path, flags);
    if (fd != -2) return fd;
    using Fn = int (*)(const char *, int);
    static Fn next = real<Fn>("__open_2");
    return next(path, flags);
}

int __open64_2(const char *path, int flags) {
    int fd = open_node(path, flags);
    if (fd != -2) return fd;
    using Fn = int (*)(const char *, int);
    static Fn next = real<Fn>("__open64_2");
    return next(path, flags);
}

// Every command line the console hands to the shell is recorded, one per line.
int system(const char *cmdline) {
    if (cmdline) {
        std::string line;
        for (const char *p = cmdline; *p; ++p) {
            if (*p == '\n')
                line += "\\n";
            else
                line += *p;
        }
        sim::append_line("log/calls", line);
        if (sim::fault("shell")) return -1;
    }
    using Fn = int (*)(const char *);
    static Fn next = real<Fn>("system");
    return next(cmdline);
}

}  // extern "C"
