// Stands in for libTolma's backlight and LED calls: records each call, answers
// with the results a test sets.
#include "tests/unit/fake_tolma_display.h"

#include "platform/tolma.h"

FakeTolmaDisplay &tolma_display() {
    static FakeTolmaDisplay fake;
    return fake;
}

namespace {

int record(std::string call) {
    tolma_display().calls.push_back(std::move(call));
    return tolma_display().result;
}

}  // namespace

extern "C" {

int Backlight_Init(void) { return record("Backlight_Init()"); }

int BacklightOnOff(int on) { return record("BacklightOnOff(" + std::to_string(on) + ")"); }

int Backlight_SetRawBrightness(int level) {
    return record("Backlight_SetRawBrightness(" + std::to_string(level) + ")");
}

int Backlight_GetMaxBrightness(int *max) {
    FakeTolmaDisplay &f = tolma_display();
    f.calls.push_back("Backlight_GetMaxBrightness()");
    if (f.max_result == 0) *max = f.max;
    return f.max_result;
}

int Led_SetSteadyStateAll(int on) {
    return record("Led_SetSteadyStateAll(" + std::to_string(on) + ")");
}

int Led_SetFlashStateAll(int on_time, int off_time) {
    return record("Led_SetFlashStateAll(" + std::to_string(on_time) + "," +
                  std::to_string(off_time) + ")");
}

}  // extern "C"
