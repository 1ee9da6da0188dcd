#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "display/digit_images.h"

namespace {

// The rendered digits: dark, anti-aliased ink on exact background, each centred
// left to right, all ten on one baseline centred top to bottom, all different.
TEST(DigitImages, CentredAntiAliasedAndDistinct) {
    int top = kDigitSide, bottom = -1;
    for (int d = 0; d < 10; ++d) {
        SCOPED_TRACE(d);
        int left = kDigitSide, right = -1, greys = 0, blacks = 0;
        for (int i = 0; i < kDigitSide * kDigitSide; ++i) {
            uint32_t w = kDigitImages[d][i];
            if (w == kDigitBackground) continue;
            left = std::min(left, i % kDigitSide);
            right = std::max(right, i % kDigitSide);
            top = std::min(top, i / kDigitSide);
            bottom = std::max(bottom, i / kDigitSide);
            (w == 0 ? blacks : greys)++;
        }
        EXPECT_TRUE(blacks > 300 && greys > 20) << blacks << " black, " << greys << " grey";
        EXPECT_TRUE(left > 0 && right < kDigitSide - 1) << left << ".." << right;
        EXPECT_LE(std::abs(left + right - (kDigitSide - 1)), 2) << left << ".." << right;
        for (int e = 0; e < d; ++e)
            EXPECT_NE(std::memcmp(kDigitImages[d], kDigitImages[e], sizeof kDigitImages[d]), 0);
    }
    EXPECT_GT(bottom - top, 60);
    EXPECT_LE(std::abs(top + bottom - (kDigitSide - 1)), 2) << top << ".." << bottom;
}

}  // namespace
