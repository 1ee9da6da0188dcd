// Stands in for libTolma's switch calls: records each one, answers from a
// one-port model that a test can fault or freeze.
#include "tests/unit/fake_tolma_switch.h"

#include <cerrno>

#include "platform/tolma.h"

FakeTolmaSwitch tolma_switch;

namespace {

int record(const char *name, std::initializer_list<int> args = {}) {
    std::string line = std::string(name) + "(";
    for (int a : args) line += (line.back() == '(' ? "" : ",") + std::to_string(a);
    tolma_switch.calls.push_back(line + ")");
    if (tolma_switch.failing == name) {
        errno = EIO;
        return -1;
    }
    return 0;
}

int set(const char *name, int port, int value, int &field) {
    int rc = record(name, {port, value});
    if (rc == 0 && !tolma_switch.ignores_sets) field = value;
    return rc;
}

template <typename T>
int get(const char *name, int port, T *out, int value) {
    int rc = record(name, {port});
    if (rc == 0 && out) *out = static_cast<T>(value);
    return rc;
}

}  // namespace

extern "C" {

int Net_fd_init(void) { return record("Net_fd_init"); }
int L2Switch_EarlyInit(int mdix) { return record("L2Switch_EarlyInit", {mdix}); }
int L2Switch_IsSwitchPortSupport1G(int port, int *g) {
    return get("L2Switch_IsSwitchPortSupport1G", port, g, tolma_switch.gigabit);
}
int L2Switch_SetLinkStatus(int port, int s) { return set("L2Switch_SetLinkStatus", port, s, tolma_switch.status); }
int L2Switch_GetLinkStatus(int port, int *s) { return get("L2Switch_GetLinkStatus", port, s, tolma_switch.status); }
int L2Switch_SetLinkMode(int port, int m) { return set("L2Switch_SetLinkMode", port, m, tolma_switch.configured); }
int L2Switch_GetLinkMode(int port, int *configured, int *actual) {
    int rc = record("L2Switch_GetLinkMode", {port, configured != nullptr, actual != nullptr});
    if (rc == 0 && configured) *configured = tolma_switch.configured;
    if (rc == 0 && actual) *actual = tolma_switch.actual;
    return rc;
}
int L2Switch_SetTestMode(int port, int t) { return set("L2Switch_SetTestMode", port, t, tolma_switch.test_mode); }
int L2Switch_GetTestMode(int port, int *t) { return get("L2Switch_GetTestMode", port, t, tolma_switch.test_mode); }
int L2SW_EthernetLedTest(int action) { return record("L2SW_EthernetLedTest", {action}); }

// The diagnostics are tested end to end against the simulated switch.
int L2Switch_portCntrs(int) { return -1; }
int L2Switch_portResetCntrs(int) { return -1; }
int L2Switch_ResetSettings(void) { return -1; }
int L2Switch_GetMacAddr(int, unsigned char *) { return -1; }
int L2Switch_print_mac_table(void) { return -1; }
int L2Switch_GetRegValue(unsigned, unsigned *) { return -1; }
int L2Switch_GetPhyRegValue(int, int, unsigned *) { return -1; }
int L2Switch_SetAutoMDIXPort(int, int) { return -1; }
int L2Switch_GetAutoMDIXPort(int, int *) { return -1; }
int L2Switch_GetPVID(unsigned short *, int) { return -1; }
int L2Switch_GetPortPriority(int, unsigned short *) { return -1; }
int L2Switch_VlanMbrCfg(int) { return -1; }
int L2Switch_ShowAllRules(void) { return -1; }
int L2Switch_DelAllRules(void) { return -1; }
int L2Switch_GetGreenEthernetPort(int *) { return -1; }
int L2Switch_SetGreenEthernetPort(int) { return -1; }
int L2Switch_GetEEEPort(int, int *) { return -1; }
int L2Switch_SetEEEPort(int, int) { return -1; }
int L2Switch_rgmiiDelayExt_set(int, int, int) { return -1; }
int L2Switch_GetSSC(int *) { return -1; }
int L2Switch_SetSSC(int) { return -1; }

}  // extern "C"
