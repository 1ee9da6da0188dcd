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

class Identity : public testing::Test {
protected:
    void SetUp() override {
        store().reset();
        store().values[0] = "0";
    }
    FakeEeprom &store() { return FakeEeprom::get(); }
};

TEST_F(Identity, MacTakesOnlySixHexPairsAndNeverOverrunsTheBuffer) {
    struct Case {
        const char *stored;
        int size;
        const char *text;   // null: refused with `out`
        const char *out;
    } cases[] = {
        {"00:11:22:AA:bb:CC", 13, "001122AAbbCC", ""},
        {"00:11:22:33:44:55", 12, nullptr,
         "*ERROR* files/src/fact_device_key:get_mac_address():N Buffer size too small\n"},
        {"", 13, nullptr, kNotProgrammed},
        {"00:11:22:33:44:5", 13, nullptr, kNotProgrammed},
        {"00:11:22:33:44:555", 13, nullptr, kNotProgrammed},        // no NUL in 18 bytes
        {"00:11:22:33:44:55:66", 13, nullptr, kNotProgrammed},
        {"001122:33:44:55:66", 13, nullptr, kNotProgrammed},
        {"0011223344556677:", 13, nullptr, kNotProgrammed},         // 17, too few colons
        {"00:11:22:33:44:5;", 13, nullptr, kNotProgrammed},
        {"00:11:22:3$(x):55", 13, nullptr, kNotProgrammed},
        {"00:11:22:33:44:5G", 13, nullptr, kNotProgrammed},
        {"00-11-22-33-44-55", 13, nullptr, kNotProgrammed},
    };
    for (const Case &c : cases) {
        store().values[1] = c.stored;
        char buf[24];
        std::memset(buf, '#', sizeof buf);
        testing::internal::CaptureStdout();
        int rc = get_mac_address(buf, c.size);
        EXPECT_EQ(without_lines(testing::internal::GetCapturedStdout()), c.out) << c.stored;
        EXPECT_EQ(rc, c.text ? 0 : -1) << c.stored;
        if (c.text) {
            EXPECT_STREQ(buf, c.text);
        }
        for (size_t i = c.size > 12 ? c.size : 0; i < sizeof buf; ++i)
            ASSERT_EQ(buf[i], '#') << c.stored << " wrote past its buffer at " << i;
    }

    store().fail_read = 1;
    char buf[13];
    testing::internal::CaptureStdout();
    EXPECT_EQ(get_mac_address(buf, sizeof buf), -1);
    EXPECT_EQ(without_lines(testing::internal::GetCapturedStdout()),
              "*ERROR* files/src/fact_device_key:get_mac_address():N Unable to read MAC from "
              "factory data\n");
}

TEST_F(Identity, Base64LikeTheEvpEncoder) {
    struct Case {
        int n;
        const char *text;   // of the bytes 0, 1, 2, ...
    } cases[] = {
        {1, "AA==\n"},
        {32, "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=\n"},
        {48, "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4v\n"},
        {49, "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4v\nMA==\n"},
    };
    unsigned char bytes[64];
    for (int i = 0; i < 64; ++i) bytes[i] = static_cast<unsigned char>(i);
    for (const Case &c : cases) {
        SecretText text = do_base64_encode(bytes, c.n);
        ASSERT_TRUE(text) << c.n;
        EXPECT_STREQ(text.get(), c.text) << c.n;
    }
}

}  // namespace
