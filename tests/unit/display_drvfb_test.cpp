#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <set>
#include <string>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "display/drvfb.h"
#include "display/drvfb_context.h"
#include "tests/unit/fake_fb_driver.h"
#include "tests/unit/fake_tolma_display.h"

namespace {

using Points = std::set<std::pair<int, int>>;

// A screen of anonymous memory in place of the mapped device, opened the way
// open_framebuffer leaves it; close_framebuffer unmaps it as it would the device.
class Screen : public testing::Test {
protected:
    void SetUp() override { attach(10, 8); }
    void TearDown() override { close_framebuffer(); }
    void attach(uint32_t w, uint32_t h) {
        FbContext &c = fb_context;
        c.xres = w;
        c.yres = h;
        c.size = w * h * 4;
        void *m = mmap(nullptr, c.size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(m, MAP_FAILED);
        c.base = static_cast<uint32_t *>(m);
        c.open_state = 1;
        ASSERT_EQ(setcolor(1, 0xFF0000) | setcolor(2, 0x00FF00), 0);
    }
    // Every pixel holding red; the rest must be untouched.
    static Points drawn() {
        Points p;
        for (int y = 0; y < static_cast<int>(fb_context.yres); ++y)
            for (int x = 0; x < static_cast<int>(fb_context.xres); ++x) {
                uint32_t v = fb_context.base[x + fb_context.xres * y];
                if (v == 0xFFFF0000) p.insert({x, y});
                else EXPECT_EQ(v, 0u) << x << "," << y;
            }
        return p;
    }
};

Points area(int x0, int y0, int x1, int y1, Points p = {}) {
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x) p.insert({x, y});
    return p;
}

struct ShapeCase {
    const char *what;
    int (*draw)(int, int, int, int, unsigned);
    int x0, y0, x1, y1;
    Points expected;
};

// Screen of 10 x 8: columns 0-9, rows 0-7.
TEST_F(Screen, ShapesSetExactlyTheirVisiblePixels) {
    const Points shallow = {{0, 0}, {1, 1}, {2, 1}, {3, 2}, {4, 2}};
    const Points steep = {{0, 0}, {1, 1}, {1, 2}, {2, 3}, {2, 4}};
    const ShapeCase cases[] = {
        {"shallow", line, 0, 0, 4, 2, shallow},
        {"shallow reversed", line, 4, 2, 0, 0, shallow},
        {"steep", line, 0, 0, 2, 4, steep},
        {"steep reversed", line, 2, 4, 0, 0, steep},
        {"row across both edges", line, -3, 2, 12, 2, area(0, 2, 9, 2)},
        {"column across both edges", line, 4, -5, 4, 20, area(4, 0, 4, 7)},
        {"diagonal through the corner", line, -2, -2, 2, 2, {{0, 0}, {1, 1}, {2, 2}}},
        {"just right of the screen", line, 10, 0, 10, 7, {}},
        {"just below the screen", line, 0, 8, 9, 8, {}},
        {"frame", rect, 1, 1, 4, 3, area(1, 1, 4, 1, area(1, 3, 4, 3, {{1, 2}, {4, 2}}))},
        {"frame over the corner", rect, -2, -2, 3, 3, area(0, 3, 3, 3, area(3, 0, 3, 3))},
        {"fill upside down", fillrect, 0, 9, 3, 0, area(0, 0, 3, 7)},
        {"fill leftwards", fillrect, 5, 1, 2, 2, area(2, 1, 5, 2)},
        {"fill everything and more", fillrect, -100, -100, 100, 100, area(0, 0, 9, 7)},
        {"fill outside", fillrect, -9, 2, -1, 5, {}},
    };
    for (const ShapeCase &c : cases) {
        SCOPED_TRACE(c.what);
        std::memset(fb_context.base, 0, fb_context.size);
        EXPECT_EQ(c.draw(c.x0, c.y0, c.x1, c.y1, 1), 0);
        EXPECT_EQ(drawn(), c.expected);
    }
}

// Bad colours and a second open are refused silently; after close nothing draws.
TEST_F(Screen, ColourIndicesAndTheOpenState) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(pixel(1, 1, 256), -1);
    EXPECT_EQ(setcolor(256, 0xFFFFFF), -1);
    EXPECT_EQ(open_framebuffer(), -1);
    EXPECT_EQ(pixel(2, 3, 1), 0);   // the open framebuffer is still usable
    EXPECT_EQ(drawn(), (Points{{2, 3}}));
    EXPECT_EQ(close_framebuffer(), 0);
    for (int r : {pixel(0, 0, 1), line(0, 0, 1, 1, 1), rect(0, 0, 1, 1, 1), fillrect(0, 0, 1, 1, 1),
                  setcolor(1, 0x123456)})
        EXPECT_EQ(r, -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

// A shape is drawn inside one hold of the lock: whoever holds the lock next
// sees whole pictures only, never one fill half over another.
TEST_F(Screen, ConcurrentFillsNeverInterleave) {
    TearDown();
    attach(64, 48);
    std::atomic<bool> stop{false};
    auto painter = [&stop](unsigned colour) { while (!stop) fillrect(0, 0, 63, 47, colour); };
    std::thread red(painter, 1u), green(painter, 2u);
    int mixed = 0;
    for (int i = 0; i < 2000; ++i) {
        pthread_mutex_lock(&fb_context.lock);
        for (uint32_t k = 1; k < 64 * 48; ++k) mixed += fb_context.base[k] != fb_context.base[0];
        pthread_mutex_unlock(&fb_context.lock);
    }
    stop = true;
    red.join();
    green.join();
    EXPECT_EQ(mixed, 0);
}

// This host has no framebuffer: start-up reports each failed step once and
// still initialises the backlight; a failed open stays failed until closed.
TEST(DrawingLayer, FailuresAreLoggedOnce) {
    auto log = [](const std::string &site, const std::string &text) {
        return "libtolma (line " + site + " in files/src/drvFB): " + text;
    };
    const std::string open_failed = log("179 of open_framebuffer", "open failed, errno=2\n");
    tolma_display = {};
    uint32_t v = 0;
    testing::internal::CaptureStdout();
    EXPECT_NE(init_display(), 0);
    EXPECT_EQ(open_framebuffer(), -1);
    EXPECT_EQ(open_framebuffer(), -1);   // still the failed open: not tried again
    close_framebuffer();
    EXPECT_EQ(open_framebuffer(), -1);
    close_framebuffer();
    EXPECT_EQ(get_resolution("/tmp", &v), -1);   // a folder opens but does not read
    char cell[] = "/tmp/ft-cell-XXXXXX";        // a cell cut short: 2 bytes of 4
    int fd = mkstemp(cell);
    ASSERT_EQ(write(fd, "\x03\x20", 2), 2);
    close(fd);
    EXPECT_EQ(get_resolution(cell, &v), -1);
    unlink(cell);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              log("116 of init_framebuffer", "open failed, errno=2\n") + open_failed + open_failed +
                  open_failed + log("239 of get_resolution", "Failed to read /tmp") +
                  log("239 of get_resolution", "Failed to read " + std::string(cell)));
    EXPECT_EQ(tolma_display.calls, std::vector<std::string>{"Backlight_Init()"});
}

}  // namespace

// The layer maps xres x yres words: a geometry that overflows the 32-bit size,
// or outruns the driver's memory, must never be drawn into. It is refused
// silently and every later open fails, as after a failed start-up.
TEST(DrawingLayer, GeometryBeyondTheDriversMemoryIsRefused) {
    struct Case {
        const char *what;
        uint32_t xres, yres;
        bool answers_fixed;
        uint32_t smem_len;
        uint32_t size;   // what the layer keeps
    } cases[] = {
        {"fits", 800, 480, true, 800 * 480 * 4, 800 * 480 * 4},
        {"overflows 32 bits", 65537, 16384, true, UINT32_MAX, 0},
        {"one byte beyond the memory", 800, 480, true, 800 * 480 * 4 - 1, 0},
        {"driver without fixed information", 800, 480, false, 0, 800 * 480 * 4},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        fb_context.xres = fb_context.yres = fb_context.size = 0;
        fake_fb = {true, c.xres, c.yres, c.answers_fixed, c.smem_len};
        testing::internal::CaptureStdout();
        init_framebuffer();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(fb_context.size, c.size);
        if (c.size == 0) {
            EXPECT_EQ(fb_context.xres | fb_context.yres, 0u);
            testing::internal::CaptureStdout();
            EXPECT_EQ(open_framebuffer(), -1);
            close_framebuffer();
            EXPECT_EQ(testing::internal::GetCapturedStdout(),
                      "libtolma (line 187 of open_framebuffer in files/src/drvFB): mmap failed, "
                      "errno=22\n");
        }
    }
    fake_fb = {};
}
