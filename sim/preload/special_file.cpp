// The switch dumps' marker file, /tmp/specialFTfile.txt: with
// `ftsim fault PHONE specialfile-undeletable` it cannot be removed (EBUSY), as
// when the switch driver still holds it.
#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "sim/common/phone.h"
#include "sim/preload/nodes.h"

namespace {

bool undeletable(const char *path) {
    return path && std::strcmp(path, "/tmp/specialFTfile.txt") == 0 &&
           sim::fault("specialfile-undeletable");
}

}  // namespace

extern "C" {

// remove() reaches unlink inside the C library, so both are wrapped.
int remove(const char *path) {
    if (undeletable(path)) {
        errno = EBUSY;
        return -1;
    }
    using Fn = int (*)(const char *);
    static Fn real = preload::next<Fn>("remove");
    return real(path);
}

int unlink(const char *path) {
    if (undeletable(path)) {
        errno = EBUSY;
        return -1;
    }
    using Fn = int (*)(const char *);
    static Fn real = preload::next<Fn>("unlink");
    return real(path);
}

int unlinkat(int dirfd, const char *path, int flags) {
    if (dirfd == AT_FDCWD && undeletable(path)) {
        errno = EBUSY;
        return -1;
    }
    using Fn = int (*)(int, const char *, int);
    static Fn real = preload::next<Fn>("unlinkat");
    return real(dirfd, path, flags);
}

}  // extern "C"
