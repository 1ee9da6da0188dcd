// The LCD backlight: power, level and the maximum level, kept in the phone's
// display/backlight as "power=on|off", "level=N", "max=N" lines and re-read at
// every call, so ftsim sees and changes the same state.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/tolma.h"
#include "sim/common/phone.h"

namespace {

constexpr char kState[] = "display/backlight";

struct Backlight {
    bool power = true;
    int level = 0;
    int max = 0;
};

bool load(Backlight &b) {
    bool have_max = false;
    sim::read_key_values(kState, 4096, [&](const std::string &key, const std::string &value) {
        if (key == "power") b.power = value == "on";
        if (key == "level") b.level = std::atoi(value.c_str());
        if (key == "max") {
            b.max = std::atoi(value.c_str());
            have_max = true;
        }
    });
    return have_max;
}

int store(const Backlight &b) {
    char text[96];
    int n = std::snprintf(text, sizeof text, "power=%s\nlevel=%d\nmax=%d\n", b.power ? "on" : "off",
                          b.level, b.max);
    if (n < 0 || static_cast<size_t>(n) >= sizeof text) return -1;
    return sim::write_atomically(kState, text, static_cast<size_t>(n)) ? 0 : -1;
}

}  // namespace

extern "C" {

int Backlight_Init(void) {
    Backlight b;
    if (sim::fault("backlight") || !load(b)) return -1;
    return 0;
}

int BacklightOnOff(int on) {
    Backlight b;
    if (sim::fault("backlight") || !load(b) || (on != 0 && on != 1)) return -1;
    b.power = on == 1;
    return store(b);
}

int Backlight_SetRawBrightness(int level) {
    Backlight b;
    if (sim::fault("backlight") || !load(b) || level < 0 || level > b.max) return -1;
    b.level = level;
    return store(b);
}

int Backlight_GetMaxBrightness(int *max) {
    Backlight b;
    if (!max || sim::fault("backlight") || sim::fault("backlight-max") || !load(b)) return -1;
    *max = b.max;
    return 0;
}

}  // extern "C"
