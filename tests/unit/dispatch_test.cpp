#include <gtest/gtest.h>

#include <string>

#include "shell/dispatch.h"
#include "tests/unit/fake_eeprom.h"
#include "tests/unit/fake_shell.h"

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
        {"info\t", kNot},
        {"program", kNot},
        {"program foo", kNot},
        {"program commit", "PASS\n"},
        {"lcd", kNot},
        {"lcd foo", kNot},
        {"lcd fill x", "FAIL Err invalid color=0\n"},
        {"wifi", "Not a valid command option. Please check ft help for wifi command options.\n"},
        {"wifi cap", "PASS\n"},
        {"bt foo", "Not a valid command option. Please check ft help for BT command options.\n"},
        {"mfg", "Not a valid command option. Please check ft help for mfg command options.\n"},
        {"mfg wifi", "Not a valid command option. Please check ft help for mfg command options.\n"},
        {"mfg wifi go", "Not a valid command option. Please check ft help for mfg command options.\n"},
        {"mfg foo", "Not a valid command option. Please check ft help for mfg command options.\n"},
        {"mfg bt", ""},
        {"mfg bt start now", ""},
        {"mfg wifi start", ""},
        {"tolma", kNot},
        {"tolma foo", kNot},
        {"tolma regulatory", kNot},
        {"l2foo", kNot},
        {"quitnow", kNot},
    };
    for (const DispatchCase &c : cases) {
        LineRun r = run_line(c.line);
        EXPECT_EQ(r.out, c.out) << c.line;
        EXPECT_EQ(r.result, Dispatch::kContinue) << c.line;
    }
}

TEST(Dispatch, MfgWifiRunsTheScript) {
    shell_calls().clear();
    run_line("mfg wifi start");
    run_line("mfg wifi stop");
    run_line("mfg wifi restart");
    run_line("mfg bt start");
    std::vector<std::string> expect = {"/system/bin/wifi_reg_test.sh start",
                                       "/system/bin/wifi_reg_test.sh stop"};
    EXPECT_EQ(shell_calls(), expect);
}

// Words the switch commands refuse before any handler runs; what passes the
// checks reaches a handler this console does not have yet.
TEST(Dispatch, SwitchArgumentChecks) {
    const DispatchCase cases[] = {
        {"l2portCntrs 3", "\nl2portCntrs() FAIL. port not valid ! \n"},
        {"l2portCntrs", "\nl2portCntrs() FAIL. port not valid ! \n"},
        {"l2portCntrs 01", "\nl2portCntrs() FAIL. port not valid ! \n"},
        {"l2portCntrs 2", kNot},
        {"l2portResetCntrs 3", "\nl2portResetCntrs() FAIL. port not valid ! \n"},
        {"l2portResetCntrs all", kNot},
        {"l2getmac 2", "\nl2getmac() FAIL. port not valid ! \n"},
        {"l2getRegValue", kNot},
        {"l2getPhyRegValue 2 5", "\nl2getPhyRegValue() FAIL. port not valid ! \n"},
        {"l2getPhyRegValue 1 x", kNot},
        {"l2Init 2", "\nl2Init() FAIL. port not valid ! \n"},
        {"l2setAutoMDIX 2 1", "\nl2setAutoMDIX() FAIL. port not valid ! \n"},
        {"l2setAutoMDIX 1 2", "\nl2setAutoMDIX() FAIL. mode not valid ! \n"},
        {"l2setAutoMDIX 3 3", "\nl2setAutoMDIX() FAIL. port not valid ! \n"},
        {"l2getAutoMDIX 2", "\nl2getAutoMDIX() FAIL. port not valid ! \n"},
        {"l2setLinkStatus 1x 1", "\nl2setLinkStatus() FAIL. port not valid ! \n"},
        {"l2setLinkStatus 2 5", "\nl2setLinkStatus() FAIL. status not valid ! \n"},
        {"l2setLinkStatus 2 4", kNot},
        {"l2getLinkStatus 2", "\nl2getLinkStatus() FAIL. port not valid ! \n"},
        {"l2setLinkMode 3 1", "\nl2setLinkMode() FAIL. port not valid ! \n"},
        {"l2setLinkMode 2 7", "\nl2setLinkMode() FAIL. status not valid ! \n"},
        {"l2setLinkMode 2 6", kNot},
        {"l2getLinkMode 2", "\nl2getLinkMode() FAIL. port not valid ! \n"},
        {"l2GetPVID 5", "\nl2portCntrs() FAIL. port not valid ! \n"},
        {"l2GetPortPriority 3", "\nl2GetPortPriority() FAIL. port not valid ! \n"},
        {"l2GetVlan_mbrCfg", "\nl2GetVlan_mbrCfg() FAIL. parameter not valid ! \n"},
        {"l2GetVlan_mbrCfg -1", "\nl2GetVlan_mbrCfg() FAIL. parameter not valid ! \n"},
        {"l2GetVlan_mbrCfg 4096", "\nl2GetVlan_mbrCfg() FAIL. parameter not valid ! \n"},
        {"l2GetVlan_mbrCfg alls", kNot},         // no digits: reads as 0
        {"l2GetVlan_mbrCfg 4095", kNot},
        {"l2GetVlan_mbrCfg all", kNot},
        {"l2SetGreenEthernetPort 2", "\nl2SetGreenEthernetPort() FAIL. mode not valid !\n"},
        {"l2GetEEEPort 2", "\nl2GetEEEPort() FAIL. port not valid ! \n"},
        {"l2SetEEEPort 0 2", "\nl2SetEEEPort() FAIL. mode not valid ! \n"},
        {"l2rgmiiDelayExt_set 1 0 0",
         "\nl2rgmiiDelayExt_set() FAIL. port not valid (only cpu_port (2) ) ! \n"},
        {"l2rgmiiDelayExt_set 2 2 0", "\nl2rgmiiDelayExt_set() FAIL. txDelay not valid ! \n"},
        {"l2rgmiiDelayExt_set 2 1 9", kNot},
        {"l2setSSC 2", "\nl2setSSC() FAIL. SSC status not valid ! \n"},
        {"l2getSSC", kNot},
    };
    for (const DispatchCase &c : cases) EXPECT_EQ(run_line(c.line).out, c.out) << c.line;
}

}  // namespace
