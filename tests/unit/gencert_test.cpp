#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "factory/device_key.h"
#include "tests/unit/fake_eeprom.h"

namespace {

// Source lines move with every edit; the rest of a report is fixed text.
std::string without_lines(const std::string &out) {
    return std::regex_replace(out, std::regex(R"(\(\):\d+ )"), "():N ");
}

const char kNotProgrammed[] =
    "*ERROR* files/src/fact_device_key:get_mac_address():N MAC is not programmed\n"
    "*ERROR* files/src/fact_device_key:get_mac_address():N Please program MAC before "
    "generating certificate\n";

TEST(DeviceKey, MacTakesOnlySixHexPairsAndNeverOverrunsTheBuffer) {
    struct Case {
        const char *stored;   // null: the store fails to read
        int size;
        const char *text;     // null: refused with `out`
        const char *out;
    } cases[] = {
        {"00:11:22:AA:bb:CC", 13, "001122AAbbCC", ""},
        {"00:11:22:33:44:55", 12, nullptr,
         "*ERROR* files/src/fact_device_key:get_mac_address():N Buffer size too small\n"},
        {nullptr, 13, nullptr,
         "*ERROR* files/src/fact_device_key:get_mac_address():N Unable to read MAC from "
         "factory data\n"},
        {"00:11:22:33:44:5", 13, nullptr, kNotProgrammed},
        {"00:11:22:33:44:555", 13, nullptr, kNotProgrammed},        // no NUL in 18 bytes
        {"00:11:22:3$(x):55", 13, nullptr, kNotProgrammed},
        {"00:11:22:33:44:5G", 13, nullptr, kNotProgrammed},
        {"00-11-22-33-44-55", 13, nullptr, kNotProgrammed},
    };
    for (const Case &c : cases) {
        FakeEeprom::get().reset();
        FakeEeprom::get().values[1] = c.stored ? c.stored : "00:11:22:33:44:55";
        if (!c.stored) FakeEeprom::get().fail_read = 1;
        char buf[24];
        std::memset(buf, '#', sizeof buf);
        testing::internal::CaptureStdout();
        EXPECT_EQ(get_mac_address(buf, c.size), c.text ? 0 : -1) << c.stored;
        EXPECT_EQ(without_lines(testing::internal::GetCapturedStdout()), c.out) << c.stored;
        if (c.text) {
            EXPECT_STREQ(buf, c.text);
        }
        for (size_t i = c.size > 12 ? c.size : 0; i < sizeof buf; ++i)
            ASSERT_EQ(buf[i], '#') << c.stored << " wrote past its buffer at " << i;
    }
}

}  // namespace
