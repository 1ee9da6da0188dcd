#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "display/drvfb.h"
#include "display/drvfb_context.h"
#include "tests/unit/fake_tolma_display.h"

namespace {

constexpr uint32_t kRed = 0xFFFF0000;
constexpr uint32_t kGreen = 0xFF00FF00;

using Points = std::set<std::pair<int, int>>;

// A screen of anonymous memory in place of the mapped device, opened the way
// open_framebuffer leaves it; close_framebuffer unmaps it as it would the device.
class Screen : public testing::Test {
protected:
    void attach(uint32_t w, uint32_t h) {
        FbContext &c = fb_context;
        c.xres = w;
        c.yres = h;
        c.size = w * h * 4;
        void *m = mmap(nullptr, c.size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(m, MAP_FAILED);
        c.base = static_cast<uint32_t *>(m);
        c.open_state = 1;
        ASSERT_EQ(setcolor(1, 0xFF0000), 0);
        ASSERT_EQ(setcolor(2, 0x00FF00), 0);
    }
    void SetUp() override { attach(10, 8); }
    void TearDown() override {
        close_framebuffer();
        fb_context.xres = fb_context.yres = fb_context.size = 0;
        std::memset(fb_context.palette, 0, sizeof fb_context.palette);
    }
    uint32_t at(int x, int y) const { return fb_context.base[x + fb_context.xres * y]; }
    // Every pixel holding `word`; the rest must be untouched.
    Points drawn(uint32_t word = kRed) const {
        Points p;
        for (uint32_t y = 0; y < fb_context.yres; ++y)
            for (uint32_t x = 0; x < fb_context.xres; ++x) {
                uint32_t v = at(static_cast<int>(x), static_cast<int>(y));
                if (v == word) p.insert({static_cast<int>(x), static_cast<int>(y)});
                else EXPECT_EQ(v, 0u) << x << "," << y;
            }
        return p;
    }
};

Points area(int x0, int y0, int x1, int y1) {
    Points p;
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x) p.insert({x, y});
    return p;
}

Points operator+(Points a, const Points &b) {
    a.insert(b.begin(), b.end());
    return a;
}

struct ShapeCase {
    const char *what;
    int (*draw)(int, int, int, int, unsigned);
    int x0, y0, x1, y1;
    Points expected;
};

// Screen of 10 x 8: columns 0-9, rows 0-7.
TEST_F(Screen, ShapesSetExactlyTheirVisiblePixels) {
    const ShapeCase cases[] = {
        {"point", line, 3, 3, 3, 3, {{3, 3}}},
        {"shallow", line, 0, 0, 4, 2, {{0, 0}, {1, 1}, {2, 1}, {3, 2}, {4, 2}}},
        {"shallow reversed", line, 4, 2, 0, 0, {{0, 0}, {1, 1}, {2, 1}, {3, 2}, {4, 2}}},
        {"steep", line, 0, 0, 2, 4, {{0, 0}, {1, 1}, {1, 2}, {2, 3}, {2, 4}}},
        {"steep reversed", line, 2, 4, 0, 0, {{0, 0}, {1, 1}, {1, 2}, {2, 3}, {2, 4}}},
        {"row across both edges", line, -3, 2, 12, 2, area(0, 2, 9, 2)},
        {"row leftwards", line, 7, 3, 2, 3, area(2, 3, 7, 3)},
        {"column across both edges", line, 4, -5, 4, 20, area(4, 0, 4, 7)},
        {"diagonal through the corner", line, -2, -2, 2, 2, {{0, 0}, {1, 1}, {2, 2}}},
        {"just right of the screen", line, 10, 0, 10, 7, {}},
        {"just below the screen", line, 0, 8, 9, 8, {}},
        {"far off", line, -50, -40, -1, -1, {}},
        {"frame", rect, 1, 1, 4, 3, area(1, 1, 4, 1) + area(1, 3, 4, 3) + area(1, 1, 1, 3) + area(4, 1, 4, 3)},
        {"frame over the corner", rect, -2, -2, 3, 3, area(0, 3, 3, 3) + area(3, 0, 3, 3)},
        {"frame outside", rect, 20, 20, 30, 30, {}},
        {"fill", fillrect, 0, 0, 3, 9, area(0, 0, 3, 7)},
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

TEST_F(Screen, ColourIndicesAndTheOpenState) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(pixel(1, 1, 256), -1);
    EXPECT_EQ(fillrect(0, 0, 9, 7, 256), -1);
    EXPECT_EQ(setcolor(256, 0xFFFFFF), -1);
    EXPECT_EQ(drawn(), Points{});

    // Entry 255 was never set: it draws the zero word over a red pixel.
    EXPECT_EQ(fillrect(0, 0, 9, 7, 1), 0);
    EXPECT_EQ(pixel(2, 3, 255), 0);
    EXPECT_EQ(at(2, 3), 0u);

    // Opening again fails and leaves the open framebuffer usable.
    EXPECT_EQ(open_framebuffer(), -1);
    EXPECT_EQ(pixel(2, 3, 2), 0);
    EXPECT_EQ(at(2, 3), kGreen);

    EXPECT_EQ(close_framebuffer(), 0);
    EXPECT_EQ(fb_context.base, nullptr);
    EXPECT_EQ(fb_context.open_state, 0);
    EXPECT_EQ(pixel(0, 0, 1), -1);
    EXPECT_EQ(line(0, 0, 1, 1, 1), -1);
    EXPECT_EQ(rect(0, 0, 1, 1, 1), -1);
    EXPECT_EQ(fillrect(0, 0, 1, 1, 1), -1);
    EXPECT_EQ(setcolor(1, 0x123456), -1);
    // The palette outlives the mapping.
    EXPECT_EQ(std::memcmp(fb_context.palette[1], "\x00\x00\xFF\xFF", 4), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

// A shape is drawn inside one hold of the lock: whoever holds the lock next
// sees whole pictures only, never one fill half over another.
TEST_F(Screen, ConcurrentFillsNeverInterleave) {
    TearDown();
    attach(64, 48);
    std::atomic<bool> stop{false};
    auto painter = [&stop](unsigned colour) {
        while (!stop.load()) fillrect(0, 0, 63, 47, colour);
    };
    std::thread red(painter, 1u), green(painter, 2u);
    int mixed = 0;
    for (int i = 0; i < 2000; ++i) {
        pthread_mutex_lock(&fb_context.lock);
        const uint32_t *p = fb_context.base;
        for (uint32_t k = 1; k < 64 * 48; ++k) mixed += p[k] != p[0];
        pthread_mutex_unlock(&fb_context.lock);
    }
    stop = true;
    red.join();
    green.join();
    EXPECT_EQ(mixed, 0);
}

struct TempFile {
    char path[32] = "/tmp/ft_cell_XXXXXX";
    explicit TempFile(const std::string &bytes) {
        int fd = mkstemp(path);
        EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        close(fd);
    }
    ~TempFile() { unlink(path); }
};

TEST(DeviceTree, CellsAreBigEndianAndFailuresAreLogged) {
    TempFile cell(std::string("\x00\x00\x03\x20", 4));
    uint32_t v = 0;
    testing::internal::CaptureStdout();
    EXPECT_EQ(get_resolution(cell.path, &v), 0);
    EXPECT_EQ(v, 800u);
    EXPECT_EQ(get_resolution("/nonexistent/hactive", &v), -1);
    EXPECT_EQ(get_resolution("/tmp", &v), -1);   // opens, but reading a folder fails
    uint32_t w = 7;
    EXPECT_EQ(get_display_size(&w, nullptr), -1);
    EXPECT_EQ(w, 7u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "libtolma (line 247 of get_resolution in files/src/drvFB): Failed to open "
              "/nonexistent/hactive"
              "libtolma (line 239 of get_resolution in files/src/drvFB): Failed to read /tmp");
}

// This host has no framebuffer: start-up reports each failed step once and
// still initialises the backlight; a failed open stays failed until closed.
TEST(DrawingLayer, MissingDeviceAtStartUpAndAfter) {
    tolma_display().reset();
    testing::internal::CaptureStdout();
    EXPECT_NE(init_display(), 0);
    EXPECT_EQ(open_framebuffer(), -1);
    EXPECT_EQ(open_framebuffer(), -1);   // still the failed open: not tried again
    EXPECT_EQ(close_framebuffer(), 0);
    EXPECT_EQ(open_framebuffer(), -1);
    close_framebuffer();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "libtolma (line 116 of init_framebuffer in files/src/drvFB): open failed, errno=2\n"
              "libtolma (line 179 of open_framebuffer in files/src/drvFB): open failed, errno=2\n"
              "libtolma (line 179 of open_framebuffer in files/src/drvFB): open failed, errno=2\n"
              "libtolma (line 179 of open_framebuffer in files/src/drvFB): open failed, errno=2\n");
    EXPECT_EQ(tolma_display().calls, std::vector<std::string>{"Backlight_Init()"});
    EXPECT_EQ(fb_context.open_state, 0);
    EXPECT_EQ(fb_context.fd, -1);
}

}  // namespace
