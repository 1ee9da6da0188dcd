#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "display/indicators.h"
#include "tests/unit/fake_tolma_display.h"

namespace {

struct IndicatorCase {
    int (*handler)(const char *);
    const char *word;
    int result, max_result;   // what the platform's setters, and asking for the maximum, return
    std::string out;
    std::vector<std::string> calls;
};

TEST(Indicators, MessagesVerdictsAndPlatformCalls) {
    const std::string range = "Valid brightness values are: [0 - 255]\n";
    const std::string max = "Backlight_GetMaxBrightness()";
    auto raw = [](int n) { return "Backlight_SetRawBrightness(" + std::to_string(n) + ")"; };
    const IndicatorCase cases[] = {
        {backlightTest, "on", 5, 0, "FAIL\n", {"BacklightOnOff(1)"}},
        {backlightTest, "dimmest", 0, 0, "PASS\n", {raw(1)}},
        {backlightTest, "brightest", 0, 0, "PASS\n", {max, raw(255)}},
        {backlightTest, "brightest", 0, -1, "FAIL\n", {max}},
        {backlightTest, "Off", 0, 0, "backlight: unknown argument (Off)\nFAIL\n", {}},
        {rawBacklightTest, "0", 0, 0, range + "PASS\n", {max, raw(0)}},
        {rawBacklightTest, "255", 0, 0, range + "PASS\n", {max, raw(255)}},
        {rawBacklightTest, "x", 0, 0, range + "FAIL\n", {max}},
        {rawBacklightTest, "12abc", 0, 0, range + "PASS\n", {max, raw(12)}},
        {rawBacklightTest, "12", 3, 0, range + "FAIL\n", {max, raw(12)}},
        // Maximum unknown: no range line, any level of 0 or more is passed on.
        {rawBacklightTest, "4000", 0, -1, "PASS\n", {max, raw(4000)}},
        {rawBacklightTest, "-5", 0, -1, "FAIL\n", {max}},
        {ledTest, "on", 0, 0, "PASS\n", {"Led_SetSteadyStateAll(1)"}},
        {ledTest, "off", 0, 0, "PASS\n", {"Led_SetSteadyStateAll(0)"}},
        {ledTest, "flash", -3, 0, "FAIL\n", {"Led_SetFlashStateAll(500,500)"}},
        {ledTest, "ON", 0, 0, "Incorrect parameter\nFAIL\n", {}},
    };
    for (const IndicatorCase &c : cases) {
        SCOPED_TRACE(c.word);
        tolma_display = {{}, c.result, c.max_result};
        testing::internal::CaptureStdout();
        c.handler(c.word);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out);
        EXPECT_EQ(tolma_display.calls, c.calls);
    }
}

}  // namespace
