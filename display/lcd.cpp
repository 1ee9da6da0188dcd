// The LCD test patterns: full-screen colours, a cross, a framed cross, halves,
// bands and a large digit, drawn with the palette set at start-up.
#include "display/lcd.h"

#include <cctype>
#include <cstdint>
#include <cstdio>

#include "display/digit_images.h"
#include "display/drvfb.h"
#include "platform/numbers.h"
#include "platform/stdout_lock.h"

namespace {

constexpr unsigned kBlack = 4;
constexpr unsigned kWhite = 5;

bool is_colour(int c) { return c >= 1 && c <= 5; }

int verdict(int result) {
    std::puts(result ? "FAIL" : "PASS");
    return result;
}

// The common frame of a pattern: open, learn the size, draw, close, verdict.
// The size stays unsigned: halves and last rows are worked out on the panel's
// own numbers and only the results become coordinates.
// A panel size the device tree lacks is logged without a line end, and the
// verdict (or the next log line) ends that line: standard output is held for
// the whole pattern, so no event line lands inside it.
template <typename Draw>
int draw_pattern(Draw draw) {
    StdoutLock hold;
    uint32_t w = 0, h = 0;
    int result = open_framebuffer();
    result |= get_display_size(&w, &h);
    result |= draw(w, h);
    result |= close_framebuffer();
    return verdict(result);
}

}  // namespace

int lcd_fill(const char *word) {
    int colour = parse_int(word);
    if ((colour == 0 && word[0] != '0') || !is_colour(colour)) {
        std::printf("FAIL Err invalid color=%d\n", colour);
        return -1;
    }
    return draw_pattern([&](uint32_t w, uint32_t h) {
        return fillrect(0, 0, w - 1, h - 1, static_cast<unsigned>(colour));
    });
}

int lcd_crosshair() {
    return draw_pattern([](uint32_t w, uint32_t h) {
        int result = fillrect(0, 0, w - 1, h - 1, kWhite);
        result |= line(w / 2, 0, w / 2, h - 1, kBlack);
        result |= line(0, h / 2, w - 1, h / 2, kBlack);
        return result;
    });
}

int lcd_invertgrid(const char *word) {
    int colour = parse_int(word);
    if (!is_colour(colour)) {
        std::printf("ft: Err color=%d is out of supported range.\n", colour);
        return -1;
    }
    unsigned ink = static_cast<unsigned>(colour);
    unsigned background = ink == kBlack ? kWhite : kBlack;
    return draw_pattern([&](uint32_t w, uint32_t h) {
        int result = fillrect(0, 0, w - 1, h - 1, background);
        result |= line(w / 2, 0, w / 2, h - 1, ink);
        result |= line(0, h / 2, w - 1, h / 2, ink);
        result |= rect(0, 0, w - 1, h - 1, ink);
        return result;
    });
}

int lcd_half_filled() {
    // The middle column belongs to the black half.
    return draw_pattern([](uint32_t w, uint32_t h) {
        int result = fillrect(0, 0, w / 2, h - 1, kBlack);
        result |= fillrect(w / 2 + 1, 0, w - 1, h - 1, kWhite);
        return result;
    });
}

int lcd_fl(const char *bars_word, const char *word1, const char *word2) {
    // The bar count is checked against the panel, so the size comes first.
    // Held to the end, as in draw_pattern.
    StdoutLock hold;
    uint32_t w = 0, h = 0;
    int result = get_display_size(&w, &h);
    int bars = parse_int(bars_word);
    if (bars <= 0 || static_cast<uint32_t>(bars) > h) {
        std::printf("ft lcd_fl: Error incorrect number of bars, num_of_bars=%d.\n", bars);
        return -1;
    }
    int c1 = kBlack, c2 = kWhite;
    if (word1[0] && word2[0]) {
        c1 = parse_int(word1);
        c2 = parse_int(word2);
        if (!is_colour(c1) || !is_colour(c2)) {
            std::printf("ft lcd_fl: Error nColor1=%d, nColor2=%d are out of supported range.\n", c1,
                        c2);
            return -1;
        }
    }
    result |= open_framebuffer();
    uint32_t n = static_cast<uint32_t>(bars);
    int right = static_cast<int>(w - 1);
    // Band i covers rows H*i/n up to H*(i+1)/n - 1: all rows, heights within one.
    for (uint32_t i = 0; i < n; ++i) {
        uint32_t top = (h * i) / n;
        uint32_t bottom = (h * i + h) / n - 1;
        unsigned colour = static_cast<unsigned>(i % 2 == 0 ? c1 : c2);
        result |= fillrect(0, static_cast<int>(top), right, static_cast<int>(bottom), colour);
    }
    result |= close_framebuffer();
    return verdict(result);
}

int lcd_digit(const char *colour_word, const char *digit_word) {
    int digit = parse_int(digit_word);
    if ((digit == 0 && digit_word[0] != '0') || digit < 0 || digit > 9) return -1;
    int letter = std::toupper(static_cast<unsigned char>(colour_word[0]));
    if (letter != 'W' && letter != 'B') return -1;
    // "W": a white digit on black; "B": a black digit on white.
    unsigned background = letter == 'W' ? kBlack : kWhite;
    unsigned ink = letter == 'W' ? kWhite : kBlack;
    const uint32_t *image = kDigitImages[digit];

    return draw_pattern([&](uint32_t w, uint32_t h) {
        int result = fillrect(0, 0, w - 1, h - 1, background);
        // Unsigned bounds: on a panel under 100 pixels the start wraps past the
        // end and the image is left out.
        uint32_t left = w / 2 - 50, right = w / 2 + 50;
        uint32_t top = h / 2 - 50, bottom = h / 2 + 50;
        for (uint32_t y = top; y < bottom; ++y) {
            for (uint32_t x = left; x < right; ++x) {
                uint32_t word = image[(y - top) * kDigitSide + (x - left)];
                // Single pixels do not count towards the verdict.
                pixel(static_cast<int>(x), static_cast<int>(y),
                      word == kDigitBackground ? background : ink);
            }
        }
        return result;
    });
}
