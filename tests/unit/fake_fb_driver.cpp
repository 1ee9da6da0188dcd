#include "tests/unit/fake_fb_driver.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>
#include <linux/fb.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

FakeFbDriver fake_fb;

namespace {

// The node opened as /dev/null: no real /dev/null answers a framebuffer ioctl.
bool is_fake_node(int fd) {
    struct stat st;
    return fstat(fd, &st) == 0 && S_ISCHR(st.st_mode) && st.st_rdev == makedev(1, 3);
}

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

const char *fake_device_path(const char *path) {
    if (fake_fb.present && path && std::strcmp(path, "/dev/graphics/fb0") == 0) return "/dev/null";
    return path;
}

extern "C" int ioctl(int fd, unsigned long request, ...) {
    va_list ap;
    va_start(ap, request);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    if (fake_fb.present && is_fake_node(fd)) return answer(request, arg);
    using Fn = int (*)(int, unsigned long, ...);
    static Fn real = next<Fn>("ioctl");
    return real(fd, request, arg);
}
