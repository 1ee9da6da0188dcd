// Stands in for libTolma's backlight and LED calls: records each call, answers
// with the results a test sets.
#include "tests/unit/fake_tolma_display.h"

#include "platform/tolma.h"

FakeTolmaDisplay tolma_display;

namespace {

int record(const char *name, const std::string &args = "") {
    tolma_display.calls.push_back(name + ("(" + args + ")"));
    return tolma_display.result;
}

std::string str(int n) { return std::to_string(n); }

}  // namespace

extern "C" {

int Backlight_Init(void) { return record("Backlight_Init"); }
int BacklightOnOff(int on) { return record("BacklightOnOff", str(on)); }
int Backlight_SetRawBrightness(int n) { return record("Backlight_SetRawBrightness", str(n)); }

int Backlight_GetMaxBrightness(int *max) {
    record("Backlight_GetMaxBrightness");
    if (tolma_display.max_result == 0) *max = 255;
    return tolma_display.max_result;
}

int Led_SetSteadyStateAll(int on) { return record("Led_SetSteadyStateAll", str(on)); }
int Led_SetFlashStateAll(int on_ms, int off_ms) {
    return record("Led_SetFlashStateAll", str(on_ms) + "," + str(off_ms));
}

}  // extern "C"
