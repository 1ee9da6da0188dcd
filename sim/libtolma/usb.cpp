// The USB host port as the maker library keeps it: usb/port holds
// "power=on|off", "device_mode=N", "power_fault=N" and "limit=N" (N as set by
// ftsim, any number). A device mode other than 0 refuses power switching.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/tolma.h"
#include "sim/common/phone.h"

namespace {

constexpr char kPort[] = "usb/port";

struct Port {
    std::string power = "on";
    int device_mode = 0, power_fault = 0, limit = 1;
};

bool load(Port &p) {
    return sim::read_key_values(kPort, 4096, [&](const std::string &k, const std::string &v) {
        int n = std::atoi(v.c_str());
        if (k == "power") p.power = v;
        if (k == "device_mode") p.device_mode = n;
        if (k == "power_fault") p.power_fault = n;
        if (k == "limit") p.limit = n;
    });
}

bool save(const Port &p) {
    char text[160];
    int n = std::snprintf(text, sizeof text, "power=%s\ndevice_mode=%d\npower_fault=%d\nlimit=%d\n",
                          p.power.c_str(), p.device_mode, p.power_fault, p.limit);
    if (n < 0 || static_cast<size_t>(n) >= sizeof text) return false;
    return sim::write_atomically(kPort, text, static_cast<size_t>(n));
}

int switch_power(const char *state) {
    Port p;
    if (sim::fault("usb") || !load(p)) return -1;
    if (p.device_mode != 0) return -2;
    p.power = state;
    return save(p) ? 0 : -1;
}

}  // namespace

extern "C" {

int Usb_Port1_On(void) { return switch_power("on"); }
int Usb_Port1_Off(void) { return switch_power("off"); }

int Usb_HadPowerFault(int *fault) {
    Port p;
    if (!fault || sim::fault("usb") || !load(p)) return -1;
    *fault = p.power_fault;
    return 0;
}

int Usb_SetCurrentLimit(int limit) {
    Port p;
    if (limit < 0 || limit > 1 || sim::fault("usb") || !load(p)) return -1;
    p.limit = limit;
    return save(p) ? 0 : -1;
}

int Usb_GetCurrentLimit(void) {
    Port p;
    if (sim::fault("usb") || !load(p)) return -1;
    return p.limit;
}

}  // extern "C"
