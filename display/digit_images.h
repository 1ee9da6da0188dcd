// The ten digit images of lcd_digit, generated at build time from a bold sans
// font: 100 x 100 words 0x00RRGGBB per digit, rows top to bottom, dark on
// exactly 0x00FFFFFF.
#pragma once

#include <cstdint>

constexpr int kDigitSide = 100;
constexpr uint32_t kDigitBackground = 0x00FFFFFF;

extern const uint32_t kDigitImages[10][kDigitSide * kDigitSide];
