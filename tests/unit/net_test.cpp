#include <gtest/gtest.h>

#include <string>

#include "shell/dispatch.h"
#include "tests/unit/fake_shell.h"

namespace {

struct NetCase {
    std::string line;
    int status;          // what the shell returns
    const char *out;
    std::string call;    // the one command line run, or empty: nothing runs
};

constexpr char kTooLong[] = "Command too long (255 characters at most)\nFAIL\n";

// The FTP lines hold 25 characters of their own with a server of eight: four
// words of 230 characters in all make a line of exactly 255.
const std::string u99(99, 'u'), p99(99, 'p'), l31(31, 'l');

TEST(Net, ShellStatusAndLineLength) {
    const NetCase cases[] = {
        {"ip 0x", 0, "PASS\n", "ifconfig eth0"},
        {"ip 0", 256, "PASS\n", "ifconfig eth0"},     // the tool's own status is not ours
        {"ip 0", -1, "FAIL\n", "ifconfig eth0"},      // no shell
        {"ip", 0, "FAIL\n", ""},
        {"ip -0", 0, "FAIL\n", ""},
        {"ip 2", 0, "FAIL\n", ""},
        // A line of 255 characters runs; one more is refused whole, never cut.
        {"get " + u99 + " " + p99 + " " + l31 + " r 10.0.0.2", 0, "PASS\n",
         "ftpget -u " + u99 + " -p " + p99 + " 10.0.0.2 " + l31 + " r"},
        {"get " + u99 + " " + p99 + " " + l31 + "l r 10.0.0.2", 0, kTooLong, ""},
        {"send " + u99 + " " + p99 + " " + l31 + "l r 10.0.0.2", 0, kTooLong, ""},
    };
    static CommandLine line;
    for (const NetCase &c : cases) {
        shell_calls().clear();
        shell_status() = c.status;
        split_line(c.line.c_str(), line.words);
        testing::internal::CaptureStdout();
        dispatch(line);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out) << c.line;
        std::vector<std::string> calls;
        if (!c.call.empty()) calls = {c.call};
        EXPECT_EQ(shell_calls(), calls) << c.line;
    }
    shell_status() = 0;
}

}  // namespace
