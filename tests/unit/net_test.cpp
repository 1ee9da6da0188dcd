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

void run_cases(const NetCase *begin, const NetCase *end) {
    static CommandLine line;
    for (const NetCase *c = begin; c != end; ++c) {
        shell_calls().clear();
        shell_status() = c->status;
        split_line(c->line.c_str(), line.words);
        testing::internal::CaptureStdout();
        dispatch(line);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c->out) << c->line;
        if (c->call.empty())
            EXPECT_TRUE(shell_calls().empty()) << c->line;
        else
            EXPECT_EQ(shell_calls(), std::vector<std::string>{c->call}) << c->line;
    }
    shell_status() = 0;
}

TEST(Net, IpAndPing) {
    const NetCase cases[] = {
        {"ip 0", 0, "PASS\n", "ifconfig eth0"},
        {"ip 0x", 0, "PASS\n", "ifconfig eth0"},
        {"ip 0", 256, "PASS\n", "ifconfig eth0"},     // the tool's own status is not ours
        {"ip 0", -1, "FAIL\n", "ifconfig eth0"},      // no shell
        {"ip", 0, "FAIL\n", ""},
        {"ip x", 0, "FAIL\n", ""},
        {"ip -0", 0, "FAIL\n", ""},
        {"ip 2", 0, "FAIL\n", ""},
        {"ping 10.0.0.1", 256, "", "ping -q -c 4 10.0.0.1"},
    };
    run_cases(std::begin(cases), std::end(cases));
}

TEST(Net, FtpStatusAndLength) {
    const NetCase cases[] = {
        // No shell: the transfer failed all the same.
        {"get u p l r 10.0.0.2", -1,
         "command \"ftpget -u u -p p 10.0.0.2 l r\" failed, check the input\nFAIL\n",
         "ftpget -u u -p p 10.0.0.2 l r"},
        {"send u p l r 10.0.0.2", 256, "", "ftpput -u u -p p 10.0.0.2 r l"},  // not judged
        // A line of 255 characters runs; one more is refused whole, never cut.
        {"get " + u99 + " " + p99 + " " + l31 + " r 10.0.0.2", 0, "PASS\n",
         "ftpget -u " + u99 + " -p " + p99 + " 10.0.0.2 " + l31 + " r"},
        {"get " + u99 + " " + p99 + " " + l31 + "l r 10.0.0.2", 0, kTooLong, ""},
        {"send " + u99 + " " + p99 + " " + l31 + "l r 10.0.0.2", 0, kTooLong, ""},
    };
    run_cases(std::begin(cases), std::end(cases));
}

}  // namespace
