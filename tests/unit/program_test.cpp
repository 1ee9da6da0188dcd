#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>

#include "tests/unit/console_line.h"
#include "tests/unit/fake_eeprom.h"
#include "tests/unit/fake_shell.h"

namespace {

bool ends_with(const std::string &s, const std::string &tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

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

TEST_F(Program, ReadAndListNeverPrintPastTheBuffer) {
    store().values[1] = std::string(32, 'M');   // fills the buffer, no NUL
    store().values[4] = "SN1";
    EXPECT_EQ(run("program read ethaddr"), "ETHERADD = \"" + std::string(32, 'M') + "\"\n");
    EXPECT_EQ(run("program read phonesn"), "SN_UNIT = \"SN1\"\n");
    EXPECT_EQ(run("program read nosuch"), "");
    EXPECT_EQ(run("program read SN_PWB"), "SN_PWB = \"<NOT Initialized>\"\n");
    store().fail_read = 4;
    EXPECT_EQ(run("program read phonesn"), "");

    EXPECT_EQ(run("program list"), "Invalid target!\n");
    EXPECT_EQ(run("program list foo"), "Invalid target!\n");
    std::string list = run("program list all");
    EXPECT_EQ(run("program list ict"), list);
    EXPECT_EQ(list.substr(0, 29), " 0: OPERATIONAL_MODE = \"0\"\n 1");
    EXPECT_NE(list.find("\n 1: ETHERADD = \"" + std::string(32, 'M') + "\"\n"), std::string::npos);
    EXPECT_NE(list.find("\n 4: SN_UNIT = \"FAIL\"\n 5: SN_PWB = \"\"\n"), std::string::npos);
    EXPECT_TRUE(ends_with(list, "\n32: CONFIGDATA_DES_SUPPORT = \"\"\n"));
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 33);
}

// The lines after it are compared whole end to end; the build stamp only here.
TEST_F(Program, InfoHeaderCarriesTheBuildDateAndTime) {
    std::regex header(R"(Factory Test [A-Z][a-z]{2} [ 1-3][0-9] [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}\n)");
    std::smatch m;
    std::string out = run("info");
    ASSERT_TRUE(std::regex_search(out, m, header));
    EXPECT_EQ(m.position(0), 0);
}

TEST_F(Program, ProductionMode) {
    struct Case {
        const char *mode;
        const char *line;
        const char *out;
    } cases[] = {
        {"0", "production", "Factory Mode\n"},
        {"0", "production 0", "Factory Mode\n"},
        {"0", "production 2", ""},
        {" +7x", "production", "Production Mode\n"},
        {"1", "production 1", "Production Mode is already enabled\n"},
        {"abc", "production", "Factory Mode\n"},
    };
    for (const Case &c : cases) {
        store().values[0] = c.mode;
        EXPECT_EQ(run(c.line), c.out) << c.line << " in mode " << c.mode;
    }
    EXPECT_EQ(store().mode_calls, 0);
    EXPECT_TRUE(shell_calls().empty());

    store().values[0] = "0";
    store().fail_mode = true;
    EXPECT_EQ(run("production 1"), "");
    EXPECT_TRUE(shell_calls().empty());

    store().fail_read = 0;   // unreadable counts as factory mode
    store().fail_mode = false;
    EXPECT_EQ(run("production 1"), "Production Mode Enabled\nRebooting...\n");
    EXPECT_EQ(shell_calls(), std::vector<std::string>{"reboot"});
}

}  // namespace
