#include "tests/unit/fake_fb_driver.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fb.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

FakeFbDriver fake_fb;

namespace {

int g_fake_fd = -1;

template <typename Fn>
Fn next(const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

int answer(unsigned long request, void *arg) {
    switch (request) {
    case FBIOGET_VSCREENINFO: {
        fb_var_screeninfo v{};
        v.xres = fake_fb.xres;
        v.yres = fake_fb.yres;
        v.bits_per_pixel = 32;
        std::memcpy(arg, &v, sizeof v);
        return 0;
    }
    case FBIOGET_FSCREENINFO: {
        if (!fake_fb.answers_fixed) break;
        fb_fix_screeninfo f{};
        f.smem_len = fake_fb.smem_len;
        std::memcpy(arg, &f, sizeof f);
        return 0;
    }
    case FBIOPAN_DISPLAY:
        return 0;
    }
    errno = ENOTTY;
    return -1;
}

}  // namespace

extern "C" int open(const char *path, int flags, ...) {
    mode_t mode = 0;
    if (flags & (O_CREAT | O_TMPFILE)) {
        va_list ap;
        va_start(ap, flags);
        mode = va_arg(ap, mode_t);
        va_end(ap);
    }
    using Fn = int (*)(const char *, int, ...);
    static Fn real = next<Fn>("open");
    if (fake_fb.present && std::strcmp(path, "/dev/graphics/fb0") == 0) {
        g_fake_fd = real("/dev/null", flags);
        return g_fake_fd;
    }
    return real(path, flags, mode);
}

extern "C" int ioctl(int fd, unsigned long request, ...) {
    va_list ap;
    va_start(ap, request);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    if (fake_fb.present && fd == g_fake_fd) return answer(request, arg);
    using Fn = int (*)(int, unsigned long, ...);
    static Fn real = next<Fn>("ioctl");
    return real(fd, request, arg);
}
