#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "display/digit_images.h"

namespace {

// The rendered digits: dark, anti-aliased ink on exact background, each centred
// left to right, all ten on one baseline centred top to bottom, all different.
TEST(DigitImages, CentredAntiAliasedAndDistinct) {
    int band_top = kDigitSide, band_bottom = -1;
    for (int d = 0; d < 10; ++d) {
        SCOPED_TRACE(d);
        const uint32_t *img = kDigitImages[d];
        int left = kDigitSide, right = -1, greys = 0, blacks = 0;
        for (int r = 0; r < kDigitSide; ++r) {
            for (int k = 0; k < kDigitSide; ++k) {
                uint32_t w = img[r * kDigitSide + k];
                ASSERT_EQ(w & 0xFF000000u, 0u);
                if (w == kDigitBackground) continue;
                left = std::min(left, k);
                right = std::max(right, k);
                band_top = std::min(band_top, r);
                band_bottom = std::max(band_bottom, r);
                blacks += w == 0;
                greys += w != 0;
            }
        }
        EXPECT_GT(blacks, 300);
        EXPECT_GT(greys, 20);
        EXPECT_GT(left, 0);
        EXPECT_LT(right, kDigitSide - 1);
        EXPECT_LE(std::abs((left + right) - (kDigitSide - 1)), 2) << left << ".." << right;
        for (int e = 0; e < d; ++e)
            EXPECT_NE(std::memcmp(img, kDigitImages[e], sizeof kDigitImages[0]), 0) << e;
    }
    EXPECT_GT(band_bottom - band_top, 60);
    EXPECT_LE(std::abs((band_top + band_bottom) - (kDigitSide - 1)), 2)
        << band_top << ".." << band_bottom;
}

}  // namespace
