// The l2 commands: direct access to the on-board Realtek switch for the line.
// Console ports 0, 1, 2 are switch ports 1 (PC), 2 (LAN) and 1024 (CPU).
#include "net/l2switch.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unistd.h>

#include "net/switch_enums.h"
#include "platform/numbers.h"
#include "platform/tolma.h"

namespace {

constexpr char kSpecialFile[] = "/tmp/specialFTfile.txt";

int switch_port(const char *word) {
    switch (parse_int(word)) {
    case 0: return kSwitchPortPc;
    case 1: return kSwitchPortLan;
    default: return kSwitchPortCpu;
    }
}

// The error line of a failed library call; errno is read before anything prints.
int call_failed(const char *who, int rc) {
    int e = errno;
    std::printf("%s ERROR: ret=%d, errno=%d %s\n", who, rc, e, std::strerror(e));
    return -1;
}

int fail(const char *line) {
    std::puts(line);
    return -1;
}

int pass(const char *line = "PASS") {
    std::puts(line);
    return 0;
}

// The end of a handler whose call brings nothing back to show: the call's error
// line, or the pass line.
int verdict(const char *who, int rc, const char *line = "PASS") {
    return rc < 0 ? call_failed(who, rc) : pass(line);
}

// Register numbers are hexadecimal words, "0x" optional; the number ends at
// the first other character and stops growing at the register width.
unsigned parse_hex(const char *s) {
    while (*s == ' ' || *s == '\t') ++s;
    if (s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) s += 2;
    unsigned long long v = 0;
    for (;; ++s) {
        int d;
        if (*s >= '0' && *s <= '9') d = *s - '0';
        else if (*s >= 'a' && *s <= 'f') d = *s - 'a' + 10;
        else if (*s >= 'A' && *s <= 'F') d = *s - 'A' + 10;
        else break;
        if (v <= UINT_MAX) v = v * 16 + static_cast<unsigned>(d);
    }
    return v > UINT_MAX ? UINT_MAX : static_cast<unsigned>(v);
}

// What the three dumps print around the special file.
struct Guarded {
    const char *who;            // error line prefix, "name()"
    const char *cannotCreate;
    const char *cannotDelete;
    const char *success;
};

template <typename Dump>
int guarded_dump(const Guarded &g, Dump dump) {
    if (!createFile()) return fail(g.cannotCreate);
    int rc = dump();
    if (rc < 0) return call_failed(g.who, rc);     // the file stays, for the engineer to see
    if (!deleteFile()) {
        std::printf("\n%s\n", g.cannotDelete);
        return 0;
    }
    return pass(g.success);
}

constexpr Guarded kCountersDump = {"rltkFTportCntrs()",
                                   "rltkFTgetLinkStatus() FAILED, cannot create the file !!!!",
                                   "rltkFTgetLinkStatus() - cannot delete file ... ",
                                   "\nFTportCntrs(): PASS"};
constexpr Guarded kVlanDump = {"rltkFTgetVlanMbrCfg()",
                               "l2getVlanMbrCfg() FAILED, cannot create the file !!!!",
                               "l2getVlanMbrCfg() - cannot delete file ... ",
                               "\nl2getVlanMbrCfg PASS"};
constexpr Guarded kRulesDump = {"rltkFTshowAllRules()",
                                "l2getVlanMbrCfg() FAILED, cannot create the file !!!!",
                                "l2getVlanMbrCfg() - cannot delete file ... ", "PASS"};

}  // namespace

int createFile() {
    FILE *f = std::fopen(kSpecialFile, "w+");
    if (!f) {
        std::puts("\n createFile(): Failed to create the special file..... ");
        std::puts("createFile() ERROR!!! (command not run because the special file not created!!!");
        return 0;
    }
    std::fclose(f);
    // The switch driver looks for the file before it lets a dump through.
    sleep(1);
    return 1;
}

int deleteFile() {
    if (std::remove(kSpecialFile) == 0) return 1;
    int e = errno;
    std::puts("deleteFile(): Unable to delete the file- please delete the file "
              "/tmp/specialFTfile.txt !!!");
    // The error output goes after the line above, as the operator reads them.
    std::fflush(stdout);
    errno = e;
    std::perror("Error");
    std::puts("\ndeleteFile(): Must delete the file manually from /tmp/specialFTfile.txt !!!");
    return 0;
}

int rltkFTResetSettings() {
    Net_fd_init();
    if (L2Switch_ResetSettings() < 0)
        return fail("rltkFTResetSettings() FAIL: L2Switch_ResetSettings() ");
    return pass("\nReset configuration of L2 Switch to its defaults....l2resetSettings() PASS");
}

int rltkFTportCntrs(const char *port) {
    Net_fd_init();
    int id = switch_port(port);
    return guarded_dump(kCountersDump, [id] { return L2Switch_portCntrs(id); });
}

int rltkFTportResetCntrs(const char *port) {
    Net_fd_init();
    int id = std::string_view(port) == "all" ? kSwitchPortsAll : switch_port(port);
    return verdict("rltkFTportResetCntrs()", L2Switch_portResetCntrs(id),
                   "\nrltkFTportResetCntrs(): PASS");
}

int rltkFTGetMac(const char *port) {
    Net_fd_init();
    unsigned char mac[6] = {};
    // Port 1 here is the CPU port: the phone's own address.
    int id = parse_int(port) == 0 ? kSwitchPortPc : kSwitchPortCpu;
    if (L2Switch_GetMacAddr(id, mac) < 0) return fail("rltkFTGetMac() FAIL: L2Switch_GetMacAddr()");
    std::printf("\nMac Addr: %02x:%02x:%02x:%02x:%02x:%02x\n", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
    return pass();
}

int rltkFTPrintMacTable() {
    Net_fd_init();
    if (L2Switch_print_mac_table() < 0)
        return fail("rltkFTPrintMacTable() FAIL: L2Switch_print_mac_table()");
    return pass("PASS... Please check dmesg for output");
}

int rltkFTGetRegValue(const char *reg) {
    Net_fd_init();
    unsigned value = 0;
    if (L2Switch_GetRegValue(parse_hex(reg), &value) < 0)
        return fail("rltkFTGetRegValue() FAIL: L2Switch_GetRegValue()");
    std::printf("PASS... rltkFTGetRegValue: %x\n", value);
    return 0;
}

int rltkFTGetPhyRegValue(const char *port, const char *reg) {
    Net_fd_init();
    int r = parse_int(reg);
    unsigned value = 0;
    if (L2Switch_GetPhyRegValue(switch_port(port), r, &value) < 0)
        return fail("rltkFTGetPhyRegValue() FAIL: L2Switch_GetPhyRegValue()");
    std::printf("PASS... rltkFTGetPhyRegValue: phyReg[%d]= 0x%08x.\n", r, value);
    return 0;
}

int rltkFTEarlyInit(const char *mode) {
    Net_fd_init();
    int m = parse_int(mode);
    std::puts(m == 0 ? "\nrltkFTEarlyInit() call L2Switch_EarlyInit(MDIX disable) !!"
                     : "\nrltkFTEarlyInit() call L2Switch_EarlyInit(MDIX enable)");
    if (L2Switch_EarlyInit(m) < 0) return fail("rltkFTEarlyInit() FAIL: L2Switch_EarlyInit() ");
    return pass("rltkFTEarlyInit() PASS");
}

int rltkFTsetAutoMDIX(const char *port, const char *mode) {
    Net_fd_init();
    int m = parse_int(mode);
    std::printf("Setting autoMDIXPort port=%d to (%s)\n", parse_int(port), autoMdixName(m));
    return verdict("rltkFTsetAutoMDIX()", L2Switch_SetAutoMDIXPort(switch_port(port), m));
}

int rltkFTgetAutoMDIX(const char *port) {
    Net_fd_init();
    int mode = 0;
    int rc = L2Switch_GetAutoMDIXPort(switch_port(port), &mode);
    if (rc < 0) return call_failed("rltkFTgetAutoMDIX()", rc);
    std::printf("\nGot autoMDIXPort port=%d autoMDIXPort=(%s)\n", parse_int(port), autoMdixName(mode));
    return pass();
}

int rltkFTsetLinkStatus(const char *port, const char *status) {
    Net_fd_init();
    int s = parse_int(status);
    int id = switch_port(port);
    std::printf("Setting LinkStatus port=%d to (%d)%s\n", id, s, linkStatusName(s));
    return verdict("rltkFTsetLinkStatus()", L2Switch_SetLinkStatus(id, s));
}

int rltkFTgetLinkStatus(const char *port) {
    Net_fd_init();
    int status = 0;
    int rc = L2Switch_GetLinkStatus(switch_port(port), &status);
    if (rc < 0) return call_failed("rltkFTgetLinkStatus()", rc);
    std::printf("\nGetting linkStatus port=%d link status:(%s)\n", parse_int(port),
                linkStatusName(status));
    return pass();
}

int rltkFTsetLinkMode(const char *port, const char *mode) {
    Net_fd_init();
    int m = parse_int(mode);
    int id = switch_port(port);
    std::printf("Setting linkMode to port=%d to (%d)%s\n", id, m, linkModeName(m));
    return verdict("rltkFTsetLinkMode()", L2Switch_SetLinkMode(id, m));
}

int rltkFTgetLinkMode(const char *port) {
    Net_fd_init();
    int id = switch_port(port);
    int configured = 0;
    int actual = 0;
    int rc = L2Switch_GetLinkMode(id, &configured, nullptr);
    if (rc < 0) return call_failed("rltkFTgetLinkMode()", rc);
    rc = L2Switch_GetLinkMode(id, nullptr, &actual);
    if (rc < 0) return call_failed("rltkFTgetLinkMode() (actualMode)", rc);
    std::printf("\nGetting linkMode:  port=%d   linkMode:(%s)\n", parse_int(port),
                linkModeName(configured));
    std::printf("Getting actualMode:port=%d actualMode:(%s)\n", parse_int(port), linkModeName(actual));
    return pass();
}

int rltkFTgetPVID(const char *port) {
    Net_fd_init();
    unsigned short pvid = 0;
    int rc = L2Switch_GetPVID(&pvid, switch_port(port));
    if (rc < 0) return call_failed("rltkFTgetPVID()", rc);
    std::printf("\nGetPVID on port=%d vlanID:(%d)\n", parse_int(port), pvid);
    return pass();
}

int rltkFTgetPortPriority(const char *port) {
    Net_fd_init();
    unsigned short priority = 0;
    int rc = L2Switch_GetPortPriority(switch_port(port), &priority);
    if (rc < 0) return call_failed("rltkFTgetPortPriority()", rc);
    std::printf("\nPortPriority on port=%d priority:(%d)\n", parse_int(port), priority);
    return pass();
}

int rltkFTgetVlanMbrCfg(const char *index) {
    Net_fd_init();
    int i = std::string_view(index).substr(0, 3) == "all" ? 9999 : parse_int(index);
    return guarded_dump(kVlanDump, [i] { return L2Switch_VlanMbrCfg(i); });
}

int rltkFTshowAllRules() {
    return guarded_dump(kRulesDump, [] {
        Net_fd_init();
        return L2Switch_ShowAllRules();
    });
}

int rltkFTdelAllRules() {
    Net_fd_init();
    return verdict("rltkFTdelAllRules()", L2Switch_DelAllRules());
}

int rltkFTGetGreenEthernetPort() {
    Net_fd_init();
    std::puts("\nGetGreenEthernetPort(): proprietary Realtek feature, for 1000Mbit only .");
    int mode = 0;
    int rc = L2Switch_GetGreenEthernetPort(&mode);
    if (rc < 0) return call_failed("rltkFTGetGreenEthernetPort()", rc);
    std::printf("\nGreen Ethernet mode :%d \n", mode);
    if (mode == 0) return pass("\nGreen Ethernet mode L2SW_GREEN_ETHERNET_DISABLED \nPASS");
    if (mode == 1) return pass("\nGreen Ethernet mode L2SW_GREEN_ETHERNET_ENABLED \nPASS");
    return fail("\nGreen Ethernet mode :error !!! ");
}

int SetGreenEthernetPort(const char *mode) {
    std::puts("\nSetGreenEthernetPort(): proprietary Realtek feature, for 1000Mbit only .");
    Net_fd_init();
    int m = parse_int(mode);
    std::puts(m == 0 ? "Setting Set Green Ethernet to GREEN_ETHERNET_DISABLED."
                     : "Setting Set Green Ethernet to GREEN_ETHERNET_ENABLED.");
    return verdict("SetGreenEthernetPort()", L2Switch_SetGreenEthernetPort(m));
}

int rltkFTGetEEEPort(const char *port) {
    Net_fd_init();
    int mode = 0;
    int rc = L2Switch_GetEEEPort(switch_port(port), &mode);
    if (rc < 0) return call_failed("rltkFTGetEEEPort()", rc);
    std::printf("\nGet EEE on Port=%d eeeMode:(%s)\n", parse_int(port), eeeName(mode));
    return pass();
}

int rltkFTSetEEEPort(const char *port, const char *mode) {
    Net_fd_init();
    int m = parse_int(mode);
    std::printf("Setting EEE on port=%d to (%s)\n", parse_int(port), eeeName(m));
    return verdict("rltkFTSetEEEPort()", L2Switch_SetEEEPort(switch_port(port), m));
}

int rltkFTrgmiiDelayExt_set(const char *port, const char *tx, const char *rx) {
    Net_fd_init();
    int t = parse_int(tx);
    int r = parse_int(rx);
    std::printf("Setting rgmiiDelayExt on port=%d to (txDelay=%d) and (rxDelay=%d)\n",
                parse_int(port), t, r);
    return verdict("rltkFTrgmiiDelayExt_set()", L2Switch_rgmiiDelayExt_set(kSwitchPortCpu, t, r));
}

int rltkFTl2getSSC() {
    Net_fd_init();
    int status = 0;
    int rc = L2Switch_GetSSC(&status);
    if (rc < 0) return call_failed("rltkFTl2getSSC()", rc);
    std::printf("\nspread frequency (SSC) for Ethernet Switch : %s \n", sscName(status));
    return pass();
}

int rltkFTl2setSSC(const char *status) {
    Net_fd_init();
    int s = parse_int(status);
    std::printf("Setting SSC to (%s)\n", sscName(s));
    return verdict("rltkFTl2setSSC()", L2Switch_SetSSC(s));
}
