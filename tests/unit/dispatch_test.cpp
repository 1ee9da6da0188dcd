#include <gtest/gtest.h>

#include <string>

#include "shell/dispatch.h"
#include "tests/unit/fake_eeprom.h"
#include "tests/unit/fake_tolma_switch.h"

namespace {

struct LineRun {
    std::string out;
    Dispatch result;
};

LineRun run_line(const char *text) {
    static CommandLine line;
    split_line(text, line.words);
    testing::internal::CaptureStdout();
    Dispatch d = dispatch(line);
    return {testing::internal::GetCapturedStdout(), d};
}

struct DispatchCase {
    const char *line;
    const char *out;
};

constexpr char kNot[] = "Not a valid command\n";

TEST(Dispatch, WordsSubWordsAndTheirMessages) {
    const DispatchCase cases[] = {
        {"Help", kNot},
        {"INFO", kNot},
        {"program", kNot},
        {"program foo", kNot},
        {"wifi", "Not a valid command option. Please check ft help for wifi command options.\n"},
        {"mfg", "Not a valid command option. Please check ft help for mfg command options.\n"},
        {"tolma", kNot},
        {"tolma foo", kNot},
        {"l2foo", kNot},
        {"quitnow", kNot},
    };
    for (const DispatchCase &c : cases) {
        LineRun r = run_line(c.line);
        EXPECT_EQ(r.out, c.out) << c.line;
        EXPECT_EQ(r.result, Dispatch::kContinue) << c.line;
    }
}

// Words the switch commands refuse before any handler runs, and the switch
// call that a word passing the checks reaches (switch port ids, not console ports).
TEST(Dispatch, SwitchArgumentChecks) {
    struct Case {
        const char *line, *out, *call;
    };
    const std::string eio = " ERROR: ret=-1, errno=5 Input/output error\n";
    const std::string reset = "rltkFTportResetCntrs()" + eio;
    const std::string rgmii =
        "Setting rgmiiDelayExt on port=2 to (txDelay=1) and (rxDelay=9)\nrltkFTrgmiiDelayExt_set()" + eio;
    const Case cases[] = {
        {"l2portCntrs 3", "\nl2portCntrs() FAIL. port not valid ! \n", nullptr},
        {"l2portCntrs", "\nl2portCntrs() FAIL. port not valid ! \n", nullptr},
        {"l2portCntrs 01", "\nl2portCntrs() FAIL. port not valid ! \n", nullptr},
        {"l2portResetCntrs 3", "\nl2portResetCntrs() FAIL. port not valid ! \n", nullptr},
        {"l2portResetCntrs all", reset.c_str(), "L2Switch_portResetCntrs(1027)"},
        {"l2getmac 2", "\nl2getmac() FAIL. port not valid ! \n", nullptr},
        {"l2getmac 1", "rltkFTGetMac() FAIL: L2Switch_GetMacAddr()\n", "L2Switch_GetMacAddr(1024)"},
        {"l2getRegValue", "rltkFTGetRegValue() FAIL: L2Switch_GetRegValue()\n", "L2Switch_GetRegValue(0)"},
        {"l2getRegValue 0x091A", "rltkFTGetRegValue() FAIL: L2Switch_GetRegValue()\n",
         "L2Switch_GetRegValue(2330)"},
        {"l2getRegValue 91az", "rltkFTGetRegValue() FAIL: L2Switch_GetRegValue()\n",
         "L2Switch_GetRegValue(2330)"},
        {"l2getPhyRegValue 2 5", "\nl2getPhyRegValue() FAIL. port not valid ! \n", nullptr},
        {"l2getPhyRegValue 1 x", "rltkFTGetPhyRegValue() FAIL: L2Switch_GetPhyRegValue()\n",
         "L2Switch_GetPhyRegValue(2,0)"},
        {"l2Init 2", "\nl2Init() FAIL. port not valid ! \n", nullptr},
        {"l2setAutoMDIX 2 1", "\nl2setAutoMDIX() FAIL. port not valid ! \n", nullptr},
        {"l2setAutoMDIX 1 2", "\nl2setAutoMDIX() FAIL. mode not valid ! \n", nullptr},
        {"l2getAutoMDIX 2", "\nl2getAutoMDIX() FAIL. port not valid ! \n", nullptr},
        {"l2setLinkStatus 1x 1", "\nl2setLinkStatus() FAIL. port not valid ! \n", nullptr},
        {"l2setLinkStatus 2 5", "\nl2setLinkStatus() FAIL. status not valid ! \n", nullptr},
        {"l2setLinkStatus 2 4", "Setting LinkStatus port=1024 to (4)L2SW_LINK_DISABLED\nPASS\n",
         "L2Switch_SetLinkStatus(1024,4)"},
        {"l2getLinkStatus 2", "\nl2getLinkStatus() FAIL. port not valid ! \n", nullptr},
        {"l2setLinkMode 3 1", "\nl2setLinkMode() FAIL. port not valid ! \n", nullptr},
        {"l2setLinkMode 2 7", "\nl2setLinkMode() FAIL. status not valid ! \n", nullptr},
        {"l2getLinkMode 2", "\nl2getLinkMode() FAIL. port not valid ! \n", nullptr},
        {"l2GetPVID 5", "\nl2portCntrs() FAIL. port not valid ! \n", nullptr},
        {"l2GetPortPriority 3", "\nl2GetPortPriority() FAIL. port not valid ! \n", nullptr},
        {"l2GetVlan_mbrCfg", "\nl2GetVlan_mbrCfg() FAIL. parameter not valid ! \n", nullptr},
        {"l2GetVlan_mbrCfg -1", "\nl2GetVlan_mbrCfg() FAIL. parameter not valid ! \n", nullptr},
        {"l2GetVlan_mbrCfg 4096", "\nl2GetVlan_mbrCfg() FAIL. parameter not valid ! \n", nullptr},
        {"l2SetGreenEthernetPort 2", "\nl2SetGreenEthernetPort() FAIL. mode not valid !\n", nullptr},
        {"l2GetEEEPort 2", "\nl2GetEEEPort() FAIL. port not valid ! \n", nullptr},
        {"l2SetEEEPort 0 2", "\nl2SetEEEPort() FAIL. mode not valid ! \n", nullptr},
        {"l2rgmiiDelayExt_set 1 0 0",
         "\nl2rgmiiDelayExt_set() FAIL. port not valid (only cpu_port (2) ) ! \n", nullptr},
        {"l2rgmiiDelayExt_set 2 2 0", "\nl2rgmiiDelayExt_set() FAIL. txDelay not valid ! \n", nullptr},
        {"l2rgmiiDelayExt_set 2 1 9", rgmii.c_str(), "L2Switch_rgmiiDelayExt_set(1024,1,9)"},
        {"l2setSSC 2", "\nl2setSSC() FAIL. SSC status not valid ! \n", nullptr},
    };
    for (const Case &c : cases) {
        tolma_switch = {};
        EXPECT_EQ(run_line(c.line).out, c.out) << c.line;
        std::vector<std::string> calls;
        if (c.call) calls = {"Net_fd_init()", c.call};
        EXPECT_EQ(tolma_switch.calls, calls) << c.line;
    }
}

}  // namespace
