// The switch library's enumerations and the names the console prints for them.
// A value outside an enumeration prints as kEnumNotFound.
#pragma once

#include <cstddef>

constexpr const char kEnumNotFound[] = "ENUM NOT FOUND!";

// Link modes, as L2Switch_SetLinkMode takes and L2Switch_GetLinkMode gives them.
enum LinkMode : int {
    kLinkModeDisabled = 0,
    kLinkModeAuto = 1,
    kLinkMode10Half = 2,
    kLinkMode10Full = 3,
    kLinkMode100Half = 4,
    kLinkMode100Full = 5,
    kLinkMode1000Full = 6,
};

// Link states of L2Switch_SetLinkStatus and L2Switch_GetLinkStatus.
enum LinkStatus : int {
    kLinkUp = 1,
    kLinkDown = 2,
};

// Switch port ids of the console's ports.
constexpr int kSwitchPortPc = 1;
constexpr int kSwitchPortLan = 2;
constexpr int kSwitchPortCpu = 1024;
constexpr int kSwitchPortsAll = 1027;

namespace switch_names {

constexpr const char *kLinkModes[] = {
    "L2SW_LINK_MODE_DISABLED", "L2SW_LINK_MODE_AUTO",     "L2SW_LINK_MODE_10_HALF",
    "L2SW_LINK_MODE_10_FULL",  "L2SW_LINK_MODE_100_HALF", "L2SW_LINK_MODE_100_FULL",
    "L2SW_LINK_MODE_1000_FULL", "L2SW_LINK_MODE_INVALID",
};
constexpr const char *kLinkStates[] = {
    "L2SW_LINK_INVALID", "L2SW_LINK_UP", "L2SW_LINK_DOWN", "L2SW_LINK_ENABLE", "L2SW_LINK_DISABLED",
};
constexpr const char *kAutoMdix[] = {"L2SW_AUTO_MDIX_DISABLED", "L2SW_AUTO_MDIX_ENABLED"};
constexpr const char *kEee[] = {"L2SW_EEE_DISABLED", "L2SW_EEE_ENABLED"};
constexpr const char *kSsc[] = {"L2SW_SSC_DISABLED", "L2SW_SSC_ENABLED"};

template <size_t N>
constexpr const char *lookup(const char *const (&names)[N], int value) {
    return value >= 0 && static_cast<size_t>(value) < N ? names[value] : kEnumNotFound;
}

}  // namespace switch_names

constexpr const char *linkModeName(int v) { return switch_names::lookup(switch_names::kLinkModes, v); }
constexpr const char *linkStatusName(int v) { return switch_names::lookup(switch_names::kLinkStates, v); }
constexpr const char *autoMdixName(int v) { return switch_names::lookup(switch_names::kAutoMdix, v); }
constexpr const char *eeeName(int v) { return switch_names::lookup(switch_names::kEee, v); }
constexpr const char *sscName(int v) { return switch_names::lookup(switch_names::kSsc, v); }
