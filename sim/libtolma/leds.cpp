// The phone's LEDs, all driven together: display/leds holds "state=on|off|flash"
// and the flash timings "on_ms=N", "off_ms=N" (0 while steady).
#include <cstdio>

#include "platform/tolma.h"
#include "sim/common/phone.h"

namespace {

int store(const char *state, int on_ms, int off_ms) {
    if (sim::fault("leds")) return -1;
    char text[96];
    int n = std::snprintf(text, sizeof text, "state=%s\non_ms=%d\noff_ms=%d\n", state, on_ms, off_ms);
    if (n < 0 || static_cast<size_t>(n) >= sizeof text) return -1;
    return sim::write_atomically("display/leds", text, static_cast<size_t>(n)) ? 0 : -1;
}

}  // namespace

extern "C" {

int Led_SetSteadyStateAll(int on) {
    if (on != 0 && on != 1) return -1;
    return store(on ? "on" : "off", 0, 0);
}

int Led_SetFlashStateAll(int on_time, int off_time) {
    if (on_time <= 0 || off_time <= 0) return -1;
    return store("flash", on_time, off_time);
}

}  // extern "C"
