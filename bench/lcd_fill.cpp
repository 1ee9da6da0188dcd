// How fast a full-screen fill is, next to a plain memset of the same mapping.
//
// Runs against a simulated phone's framebuffer (the preload library maps
// /dev/graphics/fb0 to the phone's file), so the mapping is a real shared file
// mapping as on the phone. Prints microseconds per fill, best of several rounds.
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "bench/timing.h"
#include "display/drvfb.h"
#include "display/drvfb_context.h"
#include "display/lcd.h"

namespace {

constexpr int kRounds = 7;
constexpr int kFills = 200;

// Microseconds per call of fn(i), best of kRounds rounds of kFills calls.
template <typename Fn>
double best_us(Fn fn) {
    return best_of<std::micro>(kRounds, [&] {
        for (int i = 0; i < kFills; ++i) fn(i);
    }) / kFills;
}

}  // namespace

int main() {
    if (init_display() != 0) {
        std::fprintf(stderr, "lcd_fill: no simulated display (run through bench/lcd_fill.sh)\n");
        return 1;
    }
    uint32_t w = 0, h = 0;
    get_display_size(&w, &h);
    const int right = static_cast<int>(w) - 1, bottom = static_cast<int>(h) - 1;

    // The drawing alone, on one open mapping.
    open_framebuffer();
    uint32_t *base = fb_context.base;
    size_t size = fb_context.size;
    double fill = best_us([&](int i) { fillrect(0, 0, right, bottom, 1 + i % 5); });
    double plain = best_us([&](int i) { std::memset(base, i & 1 ? 0xFF : 0x00, size); });
    close_framebuffer();

    // The whole command: open, map, size lookup, fill, unmap, close, verdict.
    double command;
    {
        Quiet quiet;
        command = best_us([](int i) { lcd_fill(i & 1 ? "1" : "2"); });
    }
    // memset with the same per-command mapping work around it.
    double plain_mapped = best_us([&](int i) {
        int fd = open("/dev/graphics/fb0", O_RDWR | O_CLOEXEC);
        void *m = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        std::memset(m, i & 1 ? 0xFF : 0x00, size);
        munmap(m, size);
        close(fd);
    });

    std::printf("lcd fill on %ux%u (%zu bytes), best of %d rounds of %d fills:\n", w, h, size,
                kRounds, kFills);
    std::printf("  fillrect, full screen        %8.1f us   memset of the mapping   %8.1f us   "
                "ratio %.2f\n", fill, plain, fill / plain);
    std::printf("  lcd fill command (map+fill)  %8.1f us   map+memset+unmap        %8.1f us   "
                "ratio %.2f\n", command, plain_mapped, command / plain_mapped);
    return 0;
}
