// /dev/graphics/fb0 and the panel timings of the device tree.
//
// The framebuffer is the phone's dev/fb0, xres * yres * 4 bytes whatever depth
// the driver reports, so the console's mapping is a real one. The driver's
// geometry lives in display/fb ("xres=", "yres=", "bpp=" lines), re-read at each
// ioctl. Each close or unmap of the framebuffer counts a change of the phone,
// for `ftsim view` to redraw the panel. The panel timings cannot be bound into
// procfs: their opens go to the phone's device-tree/ copy, which holds 4-byte
// big-endian cells.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <linux/fb.h>
#include <string>
#include <sys/stat.h>

#include "sim/common/phone.h"
#include "sim/preload/nodes.h"

namespace {

struct Geometry {
    unsigned xres = 0, yres = 0, bpp = 0;
};

bool load_geometry(Geometry &g) {
    sim::read_key_values("display/fb", 4096, [&](const std::string &key, const std::string &text) {
        unsigned value = static_cast<unsigned>(std::strtoul(text.c_str(), nullptr, 10));
        if (key == "xres") g.xres = value;
        if (key == "yres") g.yres = value;
        if (key == "bpp") g.bpp = value;
    });
    return g.xres && g.yres && g.bpp;
}

int fail(int err) {
    errno = err;
    return -1;
}

int fb_ioctl(int fd, unsigned long request, void *arg) {
    Geometry g;
    switch (request) {
    case FBIOGET_VSCREENINFO: {
        if (!arg) return fail(EFAULT);
        if (sim::fault("fb-vscreeninfo") || !load_geometry(g)) return fail(EINVAL);
        fb_var_screeninfo info{};
        info.xres = info.xres_virtual = g.xres;
        info.yres = info.yres_virtual = g.yres;
        info.bits_per_pixel = g.bpp;
        std::memcpy(arg, &info, sizeof info);
        return 0;
    }
    case FBIOGET_FSCREENINFO: {
        if (!arg) return fail(EFAULT);
        if (!load_geometry(g)) return fail(EINVAL);
        // The driver's memory is the framebuffer file, whatever the geometry says.
        struct stat st;
        if (fstat(fd, &st) != 0) return fail(EINVAL);
        fb_fix_screeninfo fixed{};
        std::memcpy(fixed.id, "ftsim", 6);
        fixed.smem_len = static_cast<uint32_t>(std::min<off_t>(st.st_size, UINT32_MAX));
        fixed.type = FB_TYPE_PACKED_PIXELS;
        fixed.visual = FB_VISUAL_TRUECOLOR;
        fixed.line_length = g.xres * 4;
        std::memcpy(arg, &fixed, sizeof fixed);
        return 0;
    }
    case FBIOPAN_DISPLAY: {
        if (!arg) return fail(EFAULT);
        if (sim::fault("fb-pan") || !load_geometry(g)) return fail(EINVAL);
        fb_var_screeninfo info;
        std::memcpy(&info, arg, sizeof info);
        // Only the visible screen exists: any other offset is out of range.
        if (info.xoffset != 0 || info.yoffset != 0) return fail(EINVAL);
        return 0;
    }
    default:
        return fail(ENOTTY);
    }
}

int fb_mmap_check(int) { return sim::fault("fb-mmap") ? fail(ENOMEM) : 0; }

constexpr preload::DeviceNode kDisplay[] = {
    {"/dev/graphics/fb0", "dev/fb0", 0, fb_ioctl, fb_mmap_check, nullptr, true},
    {"/proc/device-tree/soc/i2c@9844000/dvo_to_mipi@E/display-timings/timing/",
     "device-tree/soc/i2c@9844000/dvo_to_mipi@E/display-timings/timing/", 0, nullptr},
};

__attribute__((constructor)) void register_display() { preload::add_nodes(kDisplay); }

}  // namespace
