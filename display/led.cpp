// The LED command: every LED of the phone on, off or flashing.
#include <cstdio>
#include <string_view>

#include "display/indicators.h"
#include "platform/tolma.h"

namespace {

// The platform's flash timings; the console always asks for the same pattern.
constexpr int kFlashOn = 500;
constexpr int kFlashOff = 500;

}  // namespace

int ledTest(const char *word) {
    std::string_view w(word);
    int result;
    if (w == "on") {
        result = Led_SetSteadyStateAll(1);
    } else if (w == "off") {
        result = Led_SetSteadyStateAll(0);
    } else if (w == "flash") {
        result = Led_SetFlashStateAll(kFlashOn, kFlashOff);
    } else {
        std::puts("Incorrect parameter");
        std::puts("FAIL");
        return -1;
    }
    std::puts(result == 0 ? "PASS" : "FAIL");
    return result;
}
