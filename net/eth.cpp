// eth, setport and ethled: the station forces port speeds, runs the gigabit PHY
// compliance test modes and checks the Ethernet LEDs.
#include "net/eth.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "net/switch_enums.h"
#include "platform/numbers.h"
#include "platform/shell.h"
#include "platform/tolma.h"

namespace {

// A number word of 0 must really say 0: "x" also reads as 0.
bool is_number_word(int value, const char *word) { return value != 0 || word[0] == '0'; }

bool is_test_mode(int mode) { return mode >= 1001 && mode <= 1004; }

// Console speed modes: the link mode to set and to read back.
struct SpeedMode {
    int console;
    int linkMode;
};
constexpr SpeedMode kSpeedModes[] = {
    {0, kLinkModeAuto},     {1000, kLinkMode1000Full}, {100, kLinkMode100Full},
    {101, kLinkMode100Half}, {10, kLinkMode10Full},     {11, kLinkMode10Half},
};

const SpeedMode *speed_mode(int mode) {
    for (const SpeedMode &m : kSpeedModes)
        if (m.console == mode) return &m;
    return nullptr;
}

// Step 8 of eth: what the mode sets on switch port `id`. Returns the call's
// result, or 1 after printing why nothing was set.
int apply_mode(int id, int mode, bool gigabit) {
    if (mode == 1) return L2Switch_SetLinkStatus(id, kLinkDown);
    if (mode == 0) return L2Switch_SetLinkMode(id, kLinkModeAuto);
    if (gigabit && mode == 1000) return L2Switch_SetLinkMode(id, kLinkMode1000Full);
    if (gigabit && is_test_mode(mode)) return L2Switch_SetTestMode(id, mode - 1000);
    if (mode == 102 || mode == 103) {
        std::puts("FAIL: in eth() NA!!!!");
        return 1;
    }
    const SpeedMode *speed = mode == 1000 ? nullptr : speed_mode(mode);
    if (!speed) {
        std::puts("FAIL: not match ..");
        return 1;
    }
    return L2Switch_SetLinkMode(id, speed->linkMode);
}

constexpr char kEthtoolStatus[] =
    "ethtool eth0 | grep -E 'Duplex|Speed|Link detected|Auto-negotiation'";

struct PortCommand {
    int mode;
    const char *command;
};
constexpr PortCommand kPortCommands[] = {
    {1, "ifconfig eth0 down"},
    {0, "ifconfig eth0 down;ethtool -s eth0 autoneg on;ifconfig eth0 up"},
    {1000, "ethtool -s eth0 speed 1000 duplex full autoneg on"},
    {100, "ethtool -s eth0 speed 100 duplex full autoneg off"},
    {101, "ethtool -s eth0 speed 100 duplex half autoneg off"},
    {10, "ethtool -s eth0 speed 10 duplex full autoneg off"},
    {11, "ethtool -s eth0 speed 10 duplex half autoneg off"},
};

}  // namespace

int eth(const char *portWord, const char *modeWord) {
    int port = parse_int(portWord);
    int mode = parse_int(modeWord);
    if (!is_number_word(port, portWord) || !is_number_word(mode, modeWord)) {
        std::puts("FAIL: eth() port not found...");
        return -1;
    }
    if (port != 0 && port != 1) {
        std::puts("FAIL: eth() port not exist!!");
        return -1;
    }
    const int id = port == 0 ? kSwitchPortPc : kSwitchPortLan;

    Net_fd_init();
    if (L2Switch_EarlyInit(1) < 0) {
        std::puts("FAIL: L2Switch_EarlyInit() ");
        return -1;
    }
    int gigabit = 0;
    if (L2Switch_IsSwitchPortSupport1G(id, &gigabit) < 0) {
        std::puts("FAIL: L2Switch_IsSwitchPortSupport1G()!!");
        return -1;
    }

    // Every speed mode brings the link up first, and it stays up whatever follows.
    const SpeedMode *speed = speed_mode(mode);
    if (speed) L2Switch_SetLinkStatus(id, kLinkUp);
    int rc = apply_mode(id, mode, gigabit != 0);
    if (rc > 0) return -1;
    if (rc < 0) {
        std::puts("FAIL: setLink...");
        return -1;
    }

    int configured = 0;
    if (L2Switch_GetLinkMode(id, &configured, nullptr) < 0) {
        std::puts("FAIL: in GetLinkMode()!!!!");
        return -1;
    }
    std::printf("\nGetLinkMode() port=%d link mode:(%s)\n", id, linkModeName(configured));
    int actual = 0;
    if (L2Switch_GetLinkMode(id, nullptr, &actual) < 0) {
        std::puts("FAIL: in GetLinkMode()-actualMode!!!!");
        return -1;
    }
    std::printf("\nGetLinkMode() port=%d actual linkmode:(%s)\n", id, linkModeName(actual));
    int status = 0;
    if (L2Switch_GetLinkStatus(id, &status) < 0) {
        std::printf("FAIL: in GetLinkStatus(rtk_port=%d, status=%d)!!!\n", id, status);
        return -1;
    }
    std::printf("\nGetLinkStatus() port=%d link status:(%s)\n", id, linkStatusName(status));
    int testMode = 0;
    if (L2Switch_GetTestMode(id, &testMode) < 0) {
        std::puts("FAIL: GetTestMode()!!!");
        return -1;
    }

    // The configured mode decides, not what the PHY negotiated; the link
    // status decides only for a disabled port.
    bool ok;
    if (mode == 1)
        ok = status == kLinkDown;
    else if (gigabit && is_test_mode(mode))
        ok = testMode == mode - 1000;
    else
        ok = speed && configured == speed->linkMode;
    if (!ok) {
        std::puts("FAIL: to set ft eth...");
        return -1;
    }
    std::puts("PASS");
    return 0;
}

int setport(const char *portWord, const char *modeWord) {
    int port = parse_int(portWord);
    int mode = parse_int(modeWord);
    if (!is_number_word(port, portWord) || !is_number_word(mode, modeWord)) {
        std::puts("FAIL : port not valid !!");
        return -1;
    }
    if (port != 1) {
        std::puts("FAIL : port not valid !!!");
        return -1;
    }
    const char *command = nullptr;
    for (const PortCommand &c : kPortCommands)
        if (c.mode == mode) command = c.command;
    if (!command) {
        std::puts("FAIL : mode not valid");
        return -1;
    }

    std::puts("\nEthernet status , Before:");
    shell_run(kEthtoolStatus);
    int rc = shell_run(command);
    if (rc < 0) {
        std::printf("FAIL: %s \n", std::strerror(errno));
        return -1;
    }
    std::puts("\nEthernet status , After:");
    shell_run(kEthtoolStatus);
    // What the tools answered is for the operator to read above.
    std::puts("PASS");
    return rc;
}

int ethled(const char *actionWord) {
    constexpr std::string_view kActions[] = {"off", "on", "enable"};
    int action = 0;
    for (int i = 0; i < 3; ++i)
        if (actionWord == kActions[i]) action = i + 1;
    if (action == 0) {
        std::puts("FAIL");
        return -1;
    }
    int rc = L2SW_EthernetLedTest(action);
    std::puts(rc >= 0 ? "PASS" : "FAIL");
    return rc;
}
