#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "net/eth.h"
#include "tests/unit/fake_tolma_switch.h"

namespace {

struct EthCase {
    const char *port, *mode;
    FakeTolmaSwitch sw;
    std::vector<std::string> calls;   // after the library's set-up calls
    std::string out;
};

std::string readback(int port, const char *mode, const char *actual, const char *status) {
    auto p = std::to_string(port);
    return "\nGetLinkMode() port=" + p + " link mode:(L2SW_LINK_MODE_" + mode + ")\n\nGetLinkMode() port=" +
           p + " actual linkmode:(L2SW_LINK_MODE_" + actual + ")\n\nGetLinkStatus() port=" + p +
           " link status:(L2SW_LINK_" + status + ")\n";
}

TEST(Eth, CallsInOrderAndVerdictFromTheReadBack) {
    const std::vector<std::string> reads2 = {"L2Switch_GetLinkMode(2,1,0)", "L2Switch_GetLinkMode(2,0,1)",
                                             "L2Switch_GetLinkStatus(2)", "L2Switch_GetTestMode(2)"};
    auto then = [&](std::vector<std::string> v, size_t reads = 4) {
        v.insert(v.end(), reads2.begin(), reads2.begin() + static_cast<long>(reads));
        return v;
    };
    FakeTolmaSwitch frozen;
    frozen.ignores_sets = true;
    FakeTolmaSwitch slow;
    slow.gigabit = 0;
    const EthCase cases[] = {
        {"1", "100", {}, then({"L2Switch_SetLinkStatus(2,1)", "L2Switch_SetLinkMode(2,5)"}),
         readback(2, "100_FULL", "AUTO", "UP") + "PASS\n"},
        {"0", "11", {}, {"L2Switch_SetLinkStatus(1,1)", "L2Switch_SetLinkMode(1,2)",
                         "L2Switch_GetLinkMode(1,1,0)", "L2Switch_GetLinkMode(1,0,1)",
                         "L2Switch_GetLinkStatus(1)", "L2Switch_GetTestMode(1)"},
         readback(1, "10_HALF", "AUTO", "UP") + "PASS\n"},
        // Mode 1 is judged by the link status alone, and sets no link mode.
        {"1", "1", {}, then({"L2Switch_SetLinkStatus(2,2)"}), readback(2, "AUTO", "AUTO", "DOWN") + "PASS\n"},
        {"1", "1", frozen, then({"L2Switch_SetLinkStatus(2,2)"}),
         readback(2, "AUTO", "AUTO", "UP") + "FAIL: to set ft eth...\n"},
        // Test modes: the test mode decides, whatever the link mode reads.
        {"1", "1003", {}, then({"L2Switch_SetTestMode(2,3)"}), readback(2, "AUTO", "AUTO", "UP") + "PASS\n"},
        // Not gigabit: 1000 leaves the link up and fails; test modes set nothing.
        {"1", "1000", slow, {"L2Switch_SetLinkStatus(2,1)"}, "FAIL: not match ..\n"},
        {"1", "1002", slow, {}, "FAIL: not match ..\n"},
        {"1", "102", {}, {}, "FAIL: in eth() NA!!!!\n"},
    };
    for (const EthCase &c : cases) {
        SCOPED_TRACE(std::string(c.port) + " " + c.mode);
        tolma_switch = c.sw;
        std::vector<std::string> calls = {"Net_fd_init()", "L2Switch_EarlyInit(1)",
                                          "L2Switch_IsSwitchPortSupport1G(" + std::string(c.port[0] == '0' ? "1" : "2") + ")"};
        calls.insert(calls.end(), c.calls.begin(), c.calls.end());
        testing::internal::CaptureStdout();
        eth(c.port, c.mode);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out);
        EXPECT_EQ(tolma_switch.calls, calls);
    }
}

TEST(Eth, RefusedWordsTouchNoSwitch) {
    const char *const cases[][3] = {
        {"2", "100", "FAIL: eth() port not exist!!\n"},
        {"x", "100", "FAIL: eth() port not found...\n"},
        {"0", "x", "FAIL: eth() port not found...\n"},
    };
    for (const auto &c : cases) {
        tolma_switch = {};
        testing::internal::CaptureStdout();
        EXPECT_EQ(eth(c[0], c[1]), -1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c[2]);
        EXPECT_TRUE(tolma_switch.calls.empty());
    }
}

}  // namespace
