// The switch dumps' marker file, /tmp/specialFTfile.txt: with
// `ftsim fault PHONE specialfile-undeletable` it cannot be removed (EBUSY), as
// when the switch driver still holds it. With cache-undeletable no file under
// /cache can be removed (EBUSY).
#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "sim/common/phone.h"
#include "sim/preload/nodes.h"

namespace {

bool undeletable(const char *path) {
    return (path && std::strcmp(path, "/tmp/specialFTfile.txt") == 0 &&
            sim::fault("specialfile-undeletable")) || preload::cache_undeletable(path);
}

// EBUSY for the held file, else the C library's own call.
template <typename Fn, typename... Args>
int unless_held(bool held, Fn real, Args... args) {
    if (held) {
        errno = EBUSY;
        return -1;
    }
    return real(args...);
}

}  // namespace

extern "C" {

// remove() reaches unlink inside the C library, so both are wrapped.
int remove(const char *path) {
    static auto real = preload::next<int (*)(const char *)>("remove");
    return unless_held(undeletable(path), real, path);
}

int unlink(const char *path) {
    static auto real = preload::next<int (*)(const char *)>("unlink");
    return unless_held(undeletable(path), real, path);
}

int unlinkat(int dirfd, const char *path, int flags) {
    static auto real = preload::next<int (*)(int, const char *, int)>("unlinkat");
    return unless_held(dirfd == AT_FDCWD && undeletable(path), real, dirfd, path, flags);
}

}  // extern "C"
