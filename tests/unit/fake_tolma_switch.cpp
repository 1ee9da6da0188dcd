// Stands in for libTolma's switch calls: records each one, answers from a
// one-port model that a test can freeze.
#include "tests/unit/fake_tolma_switch.h"

#include <cerrno>

#include "platform/tolma.h"

FakeTolmaSwitch tolma_switch;

namespace {

int record(const char *name, std::initializer_list<int> args = {}) {
    std::string line = std::string(name) + "(";
    for (int a : args) line += (line.back() == '(' ? "" : ",") + std::to_string(a);
    tolma_switch.calls.push_back(line + ")");
    return 0;
}

int unmodeled(const char *name, std::initializer_list<int> args = {}) {
    record(name, args);
    errno = EIO;
    return -1;
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

// The diagnostics are tested end to end against the simulated switch; here
// they are recorded and fail with EIO.
int L2Switch_portCntrs(int p) { return unmodeled("L2Switch_portCntrs", {p}); }
int L2Switch_portResetCntrs(int p) { return unmodeled("L2Switch_portResetCntrs", {p}); }
int L2Switch_ResetSettings(void) { return unmodeled("L2Switch_ResetSettings"); }
int L2Switch_GetMacAddr(int p, unsigned char *) { return unmodeled("L2Switch_GetMacAddr", {p}); }
int L2Switch_print_mac_table(void) { return unmodeled("L2Switch_print_mac_table"); }
int L2Switch_GetRegValue(unsigned r, unsigned *) {
    return unmodeled("L2Switch_GetRegValue", {static_cast<int>(r)});
}
int L2Switch_GetPhyRegValue(int p, int r, unsigned *) { return unmodeled("L2Switch_GetPhyRegValue", {p, r}); }
int L2Switch_SetAutoMDIXPort(int p, int m) { return unmodeled("L2Switch_SetAutoMDIXPort", {p, m}); }
int L2Switch_GetAutoMDIXPort(int p, int *) { return unmodeled("L2Switch_GetAutoMDIXPort", {p}); }
int L2Switch_GetPVID(unsigned short *, int p) { return unmodeled("L2Switch_GetPVID", {p}); }
int L2Switch_GetPortPriority(int p, unsigned short *) { return unmodeled("L2Switch_GetPortPriority", {p}); }
int L2Switch_VlanMbrCfg(int i) { return unmodeled("L2Switch_VlanMbrCfg", {i}); }
int L2Switch_ShowAllRules(void) { return unmodeled("L2Switch_ShowAllRules"); }
int L2Switch_DelAllRules(void) { return unmodeled("L2Switch_DelAllRules"); }
int L2Switch_GetGreenEthernetPort(int *) { return unmodeled("L2Switch_GetGreenEthernetPort"); }
int L2Switch_SetGreenEthernetPort(int m) { return unmodeled("L2Switch_SetGreenEthernetPort", {m}); }
int L2Switch_GetEEEPort(int p, int *) { return unmodeled("L2Switch_GetEEEPort", {p}); }
int L2Switch_SetEEEPort(int p, int m) { return unmodeled("L2Switch_SetEEEPort", {p, m}); }
int L2Switch_rgmiiDelayExt_set(int p, int tx, int rx) {
    return unmodeled("L2Switch_rgmiiDelayExt_set", {p, tx, rx});
}
int L2Switch_GetSSC(int *) { return unmodeled("L2Switch_GetSSC"); }
int L2Switch_SetSSC(int s) { return unmodeled("L2Switch_SetSSC", {s}); }

}  // extern "C"
