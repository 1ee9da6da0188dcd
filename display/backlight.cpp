// The backlight commands: power, the extreme levels, and a raw level.
#include <cstdio>
#include <string_view>

#include "display/indicators.h"
#include "platform/numbers.h"
#include "platform/tolma.h"

namespace {

constexpr int kDimmest = 1;   // level 0 would switch the light off

int verdict(int platform_result) {
    std::puts(platform_result == 0 ? "PASS" : "FAIL");
    return platform_result == 0 ? 0 : -1;
}

}  // namespace

int backlightTest(const char *word) {
    std::string_view w(word);
    if (w == "off") return verdict(BacklightOnOff(0));
    if (w == "on") return verdict(BacklightOnOff(1));
    if (w == "dimmest") return verdict(Backlight_SetRawBrightness(kDimmest));
    if (w == "brightest") {
        int max = -1;
        if (Backlight_GetMaxBrightness(&max) != 0) return verdict(-1);
        return verdict(Backlight_SetRawBrightness(max));
    }
    std::printf("backlight: unknown argument (%s)\n", word);
    return verdict(-1);
}

int rawBacklightTest(const char *word) {
    // The maximum is the platform's, asked every time; unknown, any level passes on.
    int max = -1;
    bool max_known = Backlight_GetMaxBrightness(&max) == 0;
    if (max_known) std::printf("Valid brightness values are: [0 - %d]\n", max);

    int level = parse_int(word);
    if ((level == 0 && word[0] != '0') || level < 0) return verdict(-1);
    if (max_known && level > max) return verdict(-1);
    return verdict(Backlight_SetRawBrightness(level));
}
