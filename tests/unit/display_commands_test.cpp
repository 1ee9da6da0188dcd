#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "display/indicators.h"
#include "tests/unit/fake_tolma_display.h"

namespace {

using Calls = std::vector<std::string>;

struct IndicatorCase {
    int (*handler)(const char *);
    const char *word;
    int result;       // what the platform's setters return
    int max_result;   // what asking for the maximum returns
    std::string out;
    Calls calls;
    int returned;
};

constexpr char kRange[] = "Valid brightness values are: [0 - 255]\n";

TEST(Indicators, MessagesVerdictsAndPlatformCalls) {
    const std::string range = kRange;
    const IndicatorCase cases[] = {
        {backlightTest, "off", 0, 0, "PASS\n", {"BacklightOnOff(0)"}, 0},
        {backlightTest, "on", 0, 0, "PASS\n", {"BacklightOnOff(1)"}, 0},
        {backlightTest, "on", 5, 0, "FAIL\n", {"BacklightOnOff(1)"}, -1},
        {backlightTest, "dimmest", 0, 0, "PASS\n", {"Backlight_SetRawBrightness(1)"}, 0},
        {backlightTest, "brightest", 0, 0, "PASS\n",
         {"Backlight_GetMaxBrightness()", "Backlight_SetRawBrightness(255)"}, 0},
        {backlightTest, "brightest", 0, -1, "FAIL\n", {"Backlight_GetMaxBrightness()"}, -1},
        {backlightTest, "Off", 0, 0, "backlight: unknown argument (Off)\nFAIL\n", {}, -1},
        {backlightTest, "", 0, 0, "backlight: unknown argument ()\nFAIL\n", {}, -1},
        {rawBacklightTest, "0", 0, 0, (range + "PASS\n"),
         {"Backlight_GetMaxBrightness()", "Backlight_SetRawBrightness(0)"}, 0},
        {rawBacklightTest, "255", 0, 0, (range + "PASS\n"),
         {"Backlight_GetMaxBrightness()", "Backlight_SetRawBrightness(255)"}, 0},
        {rawBacklightTest, "256", 0, 0, (range + "FAIL\n"),
         {"Backlight_GetMaxBrightness()"}, -1},
        {rawBacklightTest, "x", 0, 0, (range + "FAIL\n"),
         {"Backlight_GetMaxBrightness()"}, -1},
        {rawBacklightTest, "", 0, 0, (range + "FAIL\n"),
         {"Backlight_GetMaxBrightness()"}, -1},
        {rawBacklightTest, "-1", 0, 0, (range + "FAIL\n"),
         {"Backlight_GetMaxBrightness()"}, -1},
        {rawBacklightTest, "12abc", 0, 0, (range + "PASS\n"),
         {"Backlight_GetMaxBrightness()", "Backlight_SetRawBrightness(12)"}, 0},
        {rawBacklightTest, "12", 3, 0, (range + "FAIL\n"),
         {"Backlight_GetMaxBrightness()", "Backlight_SetRawBrightness(12)"}, -1},
        // Maximum unknown: no range line, any level of 0 or more is passed on.
        {rawBacklightTest, "4000", 0, -1, "PASS\n",
         {"Backlight_GetMaxBrightness()", "Backlight_SetRawBrightness(4000)"}, 0},
        {rawBacklightTest, "-5", 0, -1, "FAIL\n", {"Backlight_GetMaxBrightness()"}, -1},
        {ledTest, "on", 0, 0, "PASS\n", {"Led_SetSteadyStateAll(1)"}, 0},
        {ledTest, "off", 0, 0, "PASS\n", {"Led_SetSteadyStateAll(0)"}, 0},
        {ledTest, "flash", 0, 0, "PASS\n", {"Led_SetFlashStateAll(500,500)"}, 0},
        {ledTest, "flash", -3, 0, "FAIL\n", {"Led_SetFlashStateAll(500,500)"}, -3},
        {ledTest, "", 0, 0, "Incorrect parameter\nFAIL\n", {}, -1},
        {ledTest, "ON", 0, 0, "Incorrect parameter\nFAIL\n", {}, -1},
    };
    for (const IndicatorCase &c : cases) {
        SCOPED_TRACE(c.word);
        FakeTolmaDisplay &fake = tolma_display();
        fake.reset();
        fake.result = c.result;
        fake.max_result = c.max_result;
        testing::internal::CaptureStdout();
        int returned = c.handler(c.word);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out);
        EXPECT_EQ(fake.calls, c.calls);
        EXPECT_EQ(returned, c.returned);
    }
}

}  // namespace
