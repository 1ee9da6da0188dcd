// The console's whole vocabulary. The dispatcher tests the words in this order;
// a row without a handler belongs to a test this console does not have yet.
#include <cstdio>
#include <cstring>

#include "audio/audio_loop.h"
#include "audio/audio_warn.h"
#include "audio/mixer_paths.h"
#include "audio/tone.h"
#include "display/indicators.h"
#include "display/lcd.h"
#include "factory/gencert.h"
#include "factory/program.h"
#include "input/cradle.h"
#include "input/hookswitch.h"
#include "input/jack.h"
#include "input/keypad.h"
#include "net/eth.h"
#include "net/ftp.h"
#include "net/ip_ping.h"
#include "net/l2switch.h"
#include "platform/numbers.h"
#include "shell/dispatch.h"
#include "shell/help.h"
#include "shell/quoted_value.h"
#include "wireless/bluetooth.h"
#include "wireless/wifi.h"
#include "wireless/wifi_mfg.h"

namespace {

// ---- sub-word families -------------------------------------------------------

constexpr Command kProgramSubs[] = {
    {"write", [](CommandLine &l) { return programWrite(l.word(2), take_quoted_value(l, 3)); }},
    {"writecommit",
     [](CommandLine &l) { return programWriteCommit(l.word(2), take_quoted_value(l, 3)); }},
    {"commit", [](CommandLine &) { return programCommit(); }},
    {"list", [](CommandLine &l) { return programList(l.word(2)); }},
    {"read", [](CommandLine &l) { return programRead(l.word(2)); }},
    {"reset", [](CommandLine &l) { return programReset(l.word(2)); }},
};

constexpr Command kLcdSubs[] = {
    {"fill", [](CommandLine &l) { return lcd_fill(l.word(2)); }},
    {"crosshair", [](CommandLine &) { return lcd_crosshair(); }},
    {"invertgrid", [](CommandLine &l) { return lcd_invertgrid(l.word(2)); }},
    {"half_filled", [](CommandLine &) { return lcd_half_filled(); }},
    {"fl", [](CommandLine &l) { return lcd_fl(l.word(2), l.word(3), l.word(4)); }},
};

constexpr Command kWifiSubs[] = {
    {"mac_get", [](CommandLine &) { return wifi_mac_get(); }},
    {"scan", [](CommandLine &) { return wifi_scan(); }},
    {"start", [](CommandLine &) { return wifi_start(); }},
    {"stop", [](CommandLine &) { return wifi_stop(); }},
    {"cap", [](CommandLine &) { return wifi_cap(); }},
};

// The console gives the verdict of these three; the handlers print only what happened.
int bt_verdict(int status) {
    if (status != 0) std::puts("FAIL");
    return status;
}

int bt_mac_get(CommandLine &l) {
    std::memset(l.value, 0, 20);
    int status = btGetMacAddr(l.value);
    if (status == 0)
        std::printf("%s\nPASS\n", l.value);
    else
        std::puts("FAIL");
    return status;
}

constexpr Command kBtSubs[] = {
    {"on", [](CommandLine &) { return bt_verdict(btEnable()); }},
    {"off", [](CommandLine &) { return bt_verdict(btDisable()); }},
    {"mac_get", bt_mac_get},
    {"scan", [](CommandLine &) { return btScan(); }},
    {"init", [](CommandLine &) { return btTestInit(); }},
    {"cap", [](CommandLine &) { return btCap(); }},
};

constexpr char kMfgOptions[] =
    "Not a valid command option. Please check ft help for mfg command options.";

constexpr Command kMfgWifiSubs[] = {
    {"start", [](CommandLine &) { return mfg_wifi_start(); }},
    {"stop", [](CommandLine &) { return mfg_wifi_stop(); }},
};

constexpr Command kMfgSubs[] = {
    {"wifi", nullptr, kMfgWifiSubs, kMfgOptions},
    // Bluetooth test mode needs nothing from the console.
    {"bt", [](CommandLine &) { return 0; }},
};

constexpr Command kTolmaSubs[] = {
    {"regulatory",
     [](CommandLine &l) {
         return tolma_regulatory(l.word(2), l.word(3), l.word(4), l.word(5));
     }},
};

// ---- L2 switch argument checks -------------------------------------------------

constexpr std::string_view k01[] = {"0", "1"};
constexpr std::string_view k012[] = {"0", "1", "2"};
constexpr std::string_view k012all[] = {"0", "1", "2", "all"};
constexpr std::string_view k2[] = {"2"};
constexpr std::string_view k1to4[] = {"1", "2", "3", "4"};
constexpr std::string_view k1to6[] = {"1", "2", "3", "4", "5", "6"};

bool is_vlan_index(const char *w) {
    if (!w[0]) return false;
    if (std::string_view(w) == "all") return true;
    return static_cast<unsigned>(parse_int(w)) < 4096u;
}

#define L2_REFUSE(cmd, what) "\n" cmd "() FAIL. " what " not valid ! "

constexpr ArgCheck kPortCntrs[] = {{1, k012, nullptr, L2_REFUSE("l2portCntrs", "port")}};
constexpr ArgCheck kPortResetCntrs[] = {
    {1, k012all, nullptr, L2_REFUSE("l2portResetCntrs", "port")}};
constexpr ArgCheck kGetMac[] = {{1, k01, nullptr, L2_REFUSE("l2getmac", "port")}};
constexpr ArgCheck kGetPhyReg[] = {{1, k01, nullptr, L2_REFUSE("l2getPhyRegValue", "port")}};
constexpr ArgCheck kInit[] = {{1, k01, nullptr, L2_REFUSE("l2Init", "port")}};
constexpr ArgCheck kSetAutoMdix[] = {{1, k01, nullptr, L2_REFUSE("l2setAutoMDIX", "port")},
                                     {2, k01, nullptr, L2_REFUSE("l2setAutoMDIX", "mode")}};
constexpr ArgCheck kGetAutoMdix[] = {{1, k01, nullptr, L2_REFUSE("l2getAutoMDIX", "port")}};
constexpr ArgCheck kSetLinkStatus[] = {
    {1, k012, nullptr, L2_REFUSE("l2setLinkStatus", "port")},
    {2, k1to4, nullptr, L2_REFUSE("l2setLinkStatus", "status")}};
constexpr ArgCheck kGetLinkStatus[] = {{1, k01, nullptr, L2_REFUSE("l2getLinkStatus", "port")}};
constexpr ArgCheck kSetLinkMode[] = {{1, k012, nullptr, L2_REFUSE("l2setLinkMode", "port")},
                                     {2, k1to6, nullptr, L2_REFUSE("l2setLinkMode", "status")}};
constexpr ArgCheck kGetLinkMode[] = {{1, k01, nullptr, L2_REFUSE("l2getLinkMode", "port")}};
// The PVID check reports with the counters' message.
constexpr ArgCheck kGetPvid[] = {{1, k012, nullptr, L2_REFUSE("l2portCntrs", "port")}};
constexpr ArgCheck kGetPortPriority[] = {
    {1, k012, nullptr, L2_REFUSE("l2GetPortPriority", "port")}};
constexpr ArgCheck kGetVlanMbrCfg[] = {
    {1, {}, is_vlan_index, L2_REFUSE("l2GetVlan_mbrCfg", "parameter")}};
constexpr ArgCheck kSetGreenEthernet[] = {
    {1, k01, nullptr, "\nl2SetGreenEthernetPort() FAIL. mode not valid !"}};
constexpr ArgCheck kGetEee[] = {{1, k01, nullptr, L2_REFUSE("l2GetEEEPort", "port")}};
constexpr ArgCheck kSetEee[] = {{1, k01, nullptr, L2_REFUSE("l2SetEEEPort", "port")},
                                {2, k01, nullptr, L2_REFUSE("l2SetEEEPort", "mode")}};
constexpr ArgCheck kRgmiiDelay[] = {
    {1, k2, nullptr, "\nl2rgmiiDelayExt_set() FAIL. port not valid (only cpu_port (2) ) ! "},
    {2, k01, nullptr, L2_REFUSE("l2rgmiiDelayExt_set", "txDelay")}};
constexpr ArgCheck kSetSsc[] = {{1, k01, nullptr, L2_REFUSE("l2setSSC", "SSC status")}};

#undef L2_REFUSE

int general_help(CommandLine &) {
    std::puts("\n");
    printHelp();
    return 0;
}

// ---- the table -------------------------------------------------------------------

constexpr Command kTable[] = {
    {"help", general_help},
    {"h", general_help},
    {"?", general_help},
    {"quit", nullptr, {}, nullptr, {}, true},
    {"q", nullptr, {}, nullptr, {}, true},
    {"info", [](CommandLine &) { return info(); }},
    {"program", nullptr, kProgramSubs, kNotValidCommand},
    {"production", [](CommandLine &l) { return production(l.word(1)); }},
    {"audio", [](CommandLine &) { printAudioHelp(); return 0; }},
    {"loop", [](CommandLine &l) { return audio_loop(l.word(1), l.word(2), l.word(3)); }},
    {"section508", [](CommandLine &l) { return audio_section508_gain(l.word(1)); }},
    {"tone", [](CommandLine &l) { return audio_tone(l.word(1), l.word(2)); }},
    {"warn",
     [](CommandLine &l) {
         return audio_warn(l.word(1), l.word(2), l.word(3), l.word(4), l.word(5), l.word(6),
                           l.word(7));
     }},
    {"lcd", nullptr, kLcdSubs, kNotValidCommand},
    {"lcd_digit", [](CommandLine &l) { return lcd_digit(l.word(1), l.word(2)); }},
    {"backlight", [](CommandLine &l) { return backlightTest(l.word(1)); }},
    {"rawbacklight", [](CommandLine &l) { return rawBacklightTest(l.word(1)); }},
    {"wifi", nullptr, kWifiSubs,
     "Not a valid command option. Please check ft help for wifi command options."},
    {"bt", nullptr, kBtSubs,
     "Not a valid command option. Please check ft help for BT command options."},
    {"mfg", nullptr, kMfgSubs, kMfgOptions},
    {"flash"},
    {"sdram"},
    {"setport", [](CommandLine &l) { return setport(l.word(1), l.word(2)); }},
    {"ethled", [](CommandLine &l) { return ethled(l.word(1)); }},
    {"eth", [](CommandLine &l) { return eth(l.word(1), l.word(2)); }},
    {"ip", [](CommandLine &l) { return ipTest(l.word(1), l.word(2)); }},
    {"key", [](CommandLine &l) { return keyTest(l.word(1)); }},
    {"jackdet", [](CommandLine &l) { return jackTest(l.word(1)); }},
    {"jackkeydet", [](CommandLine &l) { return jackKeyTest(l.word(1)); }},
    {"ping", [](CommandLine &l) { return pingTest(l.word(1)); }},
    {"led", [](CommandLine &l) { return ledTest(l.word(1)); }},
    {"send",
     [](CommandLine &l) {
         return ftpSend(l.word(1), l.word(2), l.word(3), l.word(4), l.word(5));
     }},
    {"get",
     [](CommandLine &l) {
         return ftpGet(l.word(1), l.word(2), l.word(3), l.word(4), l.word(5));
     }},
    // Only "tolma regulatory" is a command; anything else is no command at all.
    {"tolma", nullptr, kTolmaSubs, kNotValidCommand},
    {"usblist"},
    {"usbrw"},
    {"usb"},
    {"hookswitch", [](CommandLine &l) { return hookswitchTest(l.word(1)); }},
    {"ehs", [](CommandLine &l) { return ehsTest(l.word(1)); }},
    {"camera"},
    {"cradle", [](CommandLine &l) { return cradleTest(l.word(1)); }},
    {"gencert", [](CommandLine &) { return gen_self_signed_cert(); }},
    {"l2", [](CommandLine &) { printL2Help(); return 0; }},
    {"l2resetSettings", [](CommandLine &) { return rltkFTResetSettings(); }},
    {"l2portCntrs", [](CommandLine &l) { return rltkFTportCntrs(l.word(1)); }, {}, nullptr, kPortCntrs},
    {"l2portResetCntrs", [](CommandLine &l) { return rltkFTportResetCntrs(l.word(1)); }, {}, nullptr,
     kPortResetCntrs},
    {"l2getmac", [](CommandLine &l) { return rltkFTGetMac(l.word(1)); }, {}, nullptr, kGetMac},
    {"l2printMacTable", [](CommandLine &) { return rltkFTPrintMacTable(); }},
    {"l2getRegValue", [](CommandLine &l) { return rltkFTGetRegValue(l.word(1)); }},
    {"l2getPhyRegValue", [](CommandLine &l) { return rltkFTGetPhyRegValue(l.word(1), l.word(2)); },
     {}, nullptr, kGetPhyReg},
    {"l2Init", [](CommandLine &l) { return rltkFTEarlyInit(l.word(1)); }, {}, nullptr, kInit},
    {"l2setAutoMDIX", [](CommandLine &l) { return rltkFTsetAutoMDIX(l.word(1), l.word(2)); }, {},
     nullptr, kSetAutoMdix},
    {"l2getAutoMDIX", [](CommandLine &l) { return rltkFTgetAutoMDIX(l.word(1)); }, {}, nullptr,
     kGetAutoMdix},
    {"l2setLinkStatus", [](CommandLine &l) { return rltkFTsetLinkStatus(l.word(1), l.word(2)); },
     {}, nullptr, kSetLinkStatus},
    {"l2getLinkStatus", [](CommandLine &l) { return rltkFTgetLinkStatus(l.word(1)); }, {}, nullptr,
     kGetLinkStatus},
    {"l2setLinkMode", [](CommandLine &l) { return rltkFTsetLinkMode(l.word(1), l.word(2)); }, {},
     nullptr, kSetLinkMode},
    {"l2getLinkMode", [](CommandLine &l) { return rltkFTgetLinkMode(l.word(1)); }, {}, nullptr,
     kGetLinkMode},
    {"l2GetPVID", [](CommandLine &l) { return rltkFTgetPVID(l.word(1)); }, {}, nullptr, kGetPvid},
    {"l2GetPortPriority", [](CommandLine &l) { return rltkFTgetPortPriority(l.word(1)); }, {},
     nullptr, kGetPortPriority},
    {"l2GetVlan_mbrCfg", [](CommandLine &l) { return rltkFTgetVlanMbrCfg(l.word(1)); }, {}, nullptr,
     kGetVlanMbrCfg},
    {"l2ShowAllRules", [](CommandLine &) { return rltkFTshowAllRules(); }},
    {"l2DelAllRules", [](CommandLine &) { return rltkFTdelAllRules(); }},
    {"l2GetGreenEthernetPort", [](CommandLine &) { return rltkFTGetGreenEthernetPort(); }},
    {"l2SetGreenEthernetPort", [](CommandLine &l) { return SetGreenEthernetPort(l.word(1)); }, {},
     nullptr, kSetGreenEthernet},
    {"l2GetEEEPort", [](CommandLine &l) { return rltkFTGetEEEPort(l.word(1)); }, {}, nullptr, kGetEee},
    {"l2SetEEEPort", [](CommandLine &l) { return rltkFTSetEEEPort(l.word(1), l.word(2)); }, {},
     nullptr, kSetEee},
    {"l2rgmiiDelayExt_set",
     [](CommandLine &l) { return rltkFTrgmiiDelayExt_set(l.word(1), l.word(2), l.word(3)); }, {},
     nullptr, kRgmiiDelay},
    {"l2getSSC", [](CommandLine &) { return rltkFTl2getSSC(); }},
    {"l2setSSC", [](CommandLine &l) { return rltkFTl2setSSC(l.word(1)); }, {}, nullptr, kSetSsc},
};

}  // namespace

const Span<Command> kCommands = kTable;
