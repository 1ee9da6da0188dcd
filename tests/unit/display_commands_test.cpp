#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "display/indicators.h"
#include "display/lcd.h"
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

struct RefusalCase {
    const char *what;
    int (*run)();
    const char *out;
};

// Refused arguments print their one message (lcd_digit none at all) and never
// reach the framebuffer, whose failures would print log lines here.
TEST(LcdPatterns, RefusedArgumentsLeaveTheFramebufferAlone) {
    const RefusalCase cases[] = {
        {"fill 0 is no colour", [] { return lcd_fill("0"); }, "FAIL Err invalid color=0\n"},
        {"fill x", [] { return lcd_fill("x"); }, "FAIL Err invalid color=0\n"},
        {"fill empty", [] { return lcd_fill(""); }, "FAIL Err invalid color=0\n"},
        {"fill 6", [] { return lcd_fill("6"); }, "FAIL Err invalid color=6\n"},
        {"fill -1", [] { return lcd_fill("-1"); }, "FAIL Err invalid color=-1\n"},
        {"invertgrid 0", [] { return lcd_invertgrid("0"); },
         "ft: Err color=0 is out of supported range.\n"},
        {"invertgrid x", [] { return lcd_invertgrid("x"); },
         "ft: Err color=0 is out of supported range.\n"},
        {"invertgrid 6", [] { return lcd_invertgrid("6"); },
         "ft: Err color=6 is out of supported range.\n"},
        {"digit 10", [] { return lcd_digit("W", "10"); }, ""},
        {"digit x", [] { return lcd_digit("W", "x"); }, ""},
        {"digit -1", [] { return lcd_digit("B", "-1"); }, ""},
        {"digit empty", [] { return lcd_digit("B", ""); }, ""},
        {"letter X", [] { return lcd_digit("X", "1"); }, ""},
        {"letter empty", [] { return lcd_digit("", "1"); }, ""},
    };
    for (const RefusalCase &c : cases) {
        SCOPED_TRACE(c.what);
        testing::internal::CaptureStdout();
        EXPECT_EQ(c.run(), -1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out);
    }
}

}  // namespace
