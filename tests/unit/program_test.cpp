#include <gtest/gtest.h>

#include <string>

#include "tests/unit/console_line.h"
#include "tests/unit/fake_eeprom.h"
#include "tests/unit/fake_shell.h"

namespace {

class Program : public testing::Test {
protected:
    void SetUp() override {
        store().reset();
        store().values[0] = "0";
        shell_calls().clear();
    }
    FakeEeprom &store() { return FakeEeprom::get(); }
};

TEST_F(Program, WriteChecksBeforeTouchingTheStore) {
    struct Case {
        const char *line;
        const char *out;
        bool written;
    } cases[] = {
        {"program write phonesn", "FAIL\n", false},
        {"program write phonesn \"\"", "FAIL\n", false},
        {"program write nosuch 1", "FAIL\n", false},
        {"program write phonesn \"a  b\" c", "PASS\n", true},
        {"program writecommit pwbsn x", "PASS\n", true},
    };
    for (const Case &c : cases) {
        int before = store().writes;
        EXPECT_EQ(run(c.line), c.out) << c.line;
        EXPECT_EQ(store().writes - before, c.written ? 1 : 0) << c.line;
    }
    EXPECT_EQ(store().values[4], "a b");
    EXPECT_EQ(store().values[5], "x");

    store().fail_write = 4;
    EXPECT_EQ(run("program write SN_UNIT y"), "FAIL\n");
    EXPECT_EQ(store().values[4], "a b");
}

// Full buffers, the whole list and a failed read in it are compared end to end.
TEST_F(Program, ReadAndListRefusals) {
    store().fail_read = 4;
    EXPECT_EQ(run("program read phonesn"), "");
    EXPECT_EQ(run("program list"), "Invalid target!\n");
    EXPECT_EQ(run("program list foo"), "Invalid target!\n");
}

TEST_F(Program, ProductionMode) {
    struct Case {
        const char *mode;
        const char *line;
        const char *out;
    } cases[] = {
        {"0", "production 0", "Factory Mode\n"},
        {"0", "production 2", ""},
        {" +7x", "production", "Production Mode\n"},
        {"abc", "production", "Factory Mode\n"},
    };
    for (const Case &c : cases) {
        store().values[0] = c.mode;
        EXPECT_EQ(run(c.line), c.out) << c.line << " in mode " << c.mode;
    }
    EXPECT_EQ(store().mode_calls, 0);
    EXPECT_TRUE(shell_calls().empty());

    store().values[0] = "0";
    store().fail_read = 0;   // unreadable counts as factory mode
    EXPECT_EQ(run("production 1"), "Production Mode Enabled\nRebooting...\n");
    EXPECT_EQ(shell_calls(), std::vector<std::string>{"reboot"});
}

}  // namespace
