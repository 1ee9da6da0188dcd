// The LCD drawing layer. One context, one mutex: every public operation takes
// the lock exactly once, and shapes are drawn inside that one hold, so no other
// drawing lands in the middle of a rectangle.
#include "display/drvfb.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/fb.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "display/drvfb_context.h"
#include "platform/stdout_lock.h"
#include "platform/tolma.h"
#include "platform/unique_fd.h"

FbContext fb_context;

namespace {

constexpr char kSource[] = "files/src/drvFB";
constexpr char kDevice[] = "/dev/graphics/fb0";
constexpr char kPanelWidth[] =
    "/proc/device-tree/soc/i2c@9844000/dvo_to_mipi@E/display-timings/timing/hactive";
constexpr char kPanelHeight[] =
    "/proc/device-tree/soc/i2c@9844000/dvo_to_mipi@E/display-timings/timing/vactive";
constexpr uint32_t kBitsPerPixel = 32;

// The palette the LCD tests draw with; index 0 is black too.
constexpr uint32_t kTestColours[] = {0x000000, 0xFF0000, 0x00FF00, 0x0000FF, 0x000000, 0xFFFFFF};

// Every diagnostic of this layer: the message site's line, the operation, the unit.
__attribute__((format(printf, 3, 4))) void fb_log(int site, const char *op, const char *fmt, ...) {
    StdoutLock hold;
    std::printf("libtolma (line %d of %s in %s): ", site, op, kSource);
    va_list ap;
    va_start(ap, fmt);
    std::vprintf(fmt, ap);
    va_end(ap);
}

// Holds the context lock for one public operation. A failed lock or unlock is
// only reported; the operation carries on.
class Hold {
public:
    Hold(const char *op, int lock_site, int unlock_site) : op_(op), unlock_site_(unlock_site) {
        int rc = pthread_mutex_lock(&fb_context.lock);
        if (rc != 0) fb_log(lock_site, op_, "Call to pthread_mutex_lock failed, rc=%d\n", rc);
    }
    ~Hold() {
        int rc = pthread_mutex_unlock(&fb_context.lock);
        if (rc != 0) fb_log(unlock_site_, op_, "Call to pthread_mutex_unlock failed, rc=%d\n", rc);
    }
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;

private:
    const char *op_;
    int unlock_site_;
};

uint32_t palette_word(unsigned color) {
    uint32_t word;
    std::memcpy(&word, fb_context.palette[color], sizeof word);
    return word;
}

// Clipping happens here only, pixel by pixel.
void plot(int64_t x, int64_t y, uint32_t word) {
    const FbContext &c = fb_context;
    if (x < 0 || y < 0 || x >= c.xres || y >= c.yres) return;
    c.base[static_cast<size_t>(x) + static_cast<size_t>(c.xres) * static_cast<size_t>(y)] = word;
}

void pixel_unlocked(int x, int y, unsigned color) { plot(x, y, palette_word(color)); }

// Stores `word` n times from p, 32 bytes a step: at -O2 the compiler leaves a
// plain word loop unvectorised, and full-screen fills would crawl.
void fill_words(uint32_t *p, size_t n, uint32_t word) {
    using Quad = uint32_t __attribute__((vector_size(16)));
    const Quad q = {word, word, word, word};
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        std::memcpy(p + i, &q, sizeof q);
        std::memcpy(p + i + 4, &q, sizeof q);
    }
    for (; i < n; ++i) p[i] = word;
}

// A horizontal run sets the same pixels as the stepping below, clipped once:
// full-screen fills run at memory speed.
void row_unlocked(int64_t xa, int64_t xb, int64_t y, uint32_t word) {
    const FbContext &c = fb_context;
    if (y < 0 || y >= c.yres) return;
    int64_t lo = std::max<int64_t>(std::min(xa, xb), 0);
    int64_t hi = std::min<int64_t>(std::max(xa, xb), int64_t{c.xres} - 1);
    if (lo > hi) return;
    fill_words(c.base + static_cast<size_t>(c.xres) * static_cast<size_t>(y) + lo,
               static_cast<size_t>(hi - lo + 1), word);
}

// Integer Bresenham, both end points included. The decision value starts one
// lower for lines going up, so a line and its reverse set the same pixels.
void line_unlocked(int x0, int y0, int x1, int y1, unsigned color) {
    uint32_t word = palette_word(color);
    if (y0 == y1) {
        row_unlocked(x0, x1, y0, word);
        return;
    }
    int64_t dx = int64_t{x1} - x0, dy = int64_t{y1} - y0;
    int64_t adx = dx < 0 ? -dx : dx, ady = dy < 0 ? -dy : dy;
    int64_t sx = dx >= 0 ? 1 : -1, sy = dy < 0 ? -1 : 1;
    int64_t major = adx, minor = ady, step_x = sx, step_y = 0;
    if (adx < ady) {
        major = ady;
        minor = adx;
        step_x = 0;
        step_y = sy;
    }
    int64_t e = 2 * minor - major - (dy < 0 ? 1 : 0);
    int64_t x = x0, y = y0;
    for (int64_t n = 0; n <= major; ++n) {
        plot(x, y, word);
        if (e < 0) {
            e += 2 * minor;
            x += step_x;
            y += step_y;
        } else {
            e += 2 * (minor - major);
            x += sx;
            y += sy;
        }
    }
}

// Every pixel we draw lies inside the mapping: a geometry whose 32-bit words
// overflow the size field, or outrun the memory the driver has, is refused. A
// driver that keeps its fixed information to itself is taken at its word.
bool fits_driver_memory(int fd, const fb_var_screeninfo &info) {
    uint64_t bytes = uint64_t{info.xres} * info.yres * 4;
    if (bytes > UINT32_MAX) return false;
    fb_fix_screeninfo fixed{};
    if (ioctl(fd, FBIOGET_FSCREENINFO, &fixed) != 0) return true;
    return bytes <= fixed.smem_len;
}

}  // namespace

int init_framebuffer() {
    static constexpr char op[] = "init_framebuffer";
    FbContext &c = fb_context;
    Hold hold(op, 100, 155);
    if (c.open_state != 1) {
        c.fd = TEMP_FAILURE_RETRY(open(kDevice, O_RDWR | O_CLOEXEC));
        if (c.fd < 0) {
            fb_log(116, op, "open failed, errno=%d\n", errno);
            return -1;
        }
    }
    int result = 0;
    fb_var_screeninfo info{};
    if (ioctl(c.fd, FBIOGET_VSCREENINFO, &info) != 0) {
        fb_log(124, op, "ioctl FBIOGET_VSCREENINFO failed, errno=%d\n", errno);
        result = -1;
    } else {
        if (info.bits_per_pixel != kBitsPerPixel)
            fb_log(131, op, "unsupported bpp (%u), should be (%u)\n", info.bits_per_pixel,
                   kBitsPerPixel);
        if (!fits_driver_memory(c.fd, info)) {
            // Left at size 0: every later open fails as after a failed start-up.
            result = -1;
        } else {
            c.xres = info.xres;
            c.yres = info.yres;
            c.size = info.xres * info.yres * 4;
            c.bpp = info.bits_per_pixel;
            info.xoffset = 0;
            info.yoffset = 0;
            if (ioctl(c.fd, FBIOPAN_DISPLAY, &info) == -1) {
                fb_log(146, op, "ioctl FBIOPAN_DISPLAY failed, errno=%d\n", errno);
                result = -1;
            }
        }
    }
    close(c.fd);
    c.fd = -1;
    return result;
}

int open_framebuffer() {
    static constexpr char op[] = "open_framebuffer";
    FbContext &c = fb_context;
    Hold hold(op, 163, 196);
    if (c.open_state != 0) return -1;
    c.open_state = -1;
    c.fd = TEMP_FAILURE_RETRY(open(kDevice, O_RDWR | O_CLOEXEC));
    if (c.fd < 0) {
        fb_log(179, op, "open failed, errno=%d\n", errno);
        return -1;
    }
    void *map = mmap(nullptr, c.size, PROT_READ | PROT_WRITE, MAP_SHARED, c.fd, 0);
    if (map == MAP_FAILED) {
        fb_log(187, op, "mmap failed, errno=%d\n", errno);
        return -1;
    }
    c.base = static_cast<uint32_t *>(map);
    c.open_state = 1;
    return 0;
}

int close_framebuffer() {
    FbContext &c = fb_context;
    Hold hold("close_framebuffer", 204, 221);
    if (c.base) munmap(c.base, c.size);
    c.base = nullptr;
    if (c.fd != -1) close(c.fd);
    c.fd = -1;
    c.open_state = 0;
    return 0;
}

int get_resolution(const char *path, uint32_t *out) {
    static constexpr char op[] = "get_resolution";
    if (!path || !out) return -1;
    UniqueFd fd(TEMP_FAILURE_RETRY(open(path, O_RDONLY | O_CLOEXEC)));
    if (!fd) {
        fb_log(247, op, "Failed to open %s", path);
        return -1;
    }
    // A cell is 4 bytes: a shorter property is no size at all.
    if (TEMP_FAILURE_RETRY(read(fd.get(), out, sizeof *out)) != static_cast<ssize_t>(sizeof *out)) {
        fb_log(239, op, "Failed to read %s", path);
        return -1;
    }
    *out = ntohl(*out);   // device-tree cells are big-endian
    return 0;
}

int get_display_size(uint32_t *width, uint32_t *height) {
    if (!width || !height) return -1;
    if (get_resolution(kPanelWidth, width) != 0) *width = fb_context.xres;
    if (get_resolution(kPanelHeight, height) != 0) {
        *height = fb_context.yres;
        return -1;
    }
    return 0;
}

int setcolor(unsigned index, uint32_t rgb) {
    if (index > 255) return -1;
    FbContext &c = fb_context;
    Hold hold("setcolor", 293, 310);
    if (c.open_state != 1) return -1;
    uint8_t *entry = c.palette[index];
    entry[0] = rgb & 0xFF;
    entry[1] = (rgb >> 8) & 0xFF;
    entry[2] = (rgb >> 16) & 0xFF;
    entry[3] = 0xFF;
    return 0;
}

int pixel(int x, int y, unsigned color) {
    if (color > 255) return -1;
    Hold hold("pixel", 326, 340);
    if (fb_context.open_state != 1) return -1;
    pixel_unlocked(x, y, color);
    return 0;
}

int line(int x0, int y0, int x1, int y1, unsigned color) {
    if (color > 255) return -1;
    Hold hold("line", 356, 370);
    if (fb_context.open_state != 1) return -1;
    line_unlocked(x0, y0, x1, y1, color);
    return 0;
}

int rect(int x0, int y0, int x1, int y1, unsigned color) {
    if (color > 255) return -1;
    Hold hold("rect", 386, 403);
    if (fb_context.open_state != 1) return -1;
    line_unlocked(x0, y0, x1, y0, color);
    line_unlocked(x1, y0, x1, y1, color);
    line_unlocked(x1, y1, x0, y1, color);
    line_unlocked(x0, y1, x0, y0, color);
    return 0;
}

int fillrect(int x0, int y0, int x1, int y1, unsigned color) {
    if (color > 255) return -1;
    Hold hold("fillrect", 420, 445);
    if (fb_context.open_state != 1) return -1;
    if (y1 < y0) std::swap(y0, y1);
    // Rows off the screen draw nothing; skipping them keeps huge corners cheap.
    int top = std::max(y0, 0);
    int64_t bottom = std::min<int64_t>(y1, int64_t{fb_context.yres} - 1);
    for (int64_t y = top; y <= bottom; ++y)
        line_unlocked(x0, static_cast<int>(y), x1, static_cast<int>(y), color);
    return 0;
}

int init_display() {
    int result = init_framebuffer();
    result |= open_framebuffer();
    for (unsigned i = 0; i < sizeof kTestColours / sizeof kTestColours[0]; ++i)
        result |= setcolor(i, kTestColours[i]);
    result |= close_framebuffer();
    result |= Backlight_Init();
    return result;
}
