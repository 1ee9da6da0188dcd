#include <cstdio>
#include <string_view>

#include "peripherals/usb.h"
#include "platform/tolma.h"

namespace {

int verdict(bool pass, int result) {
    std::puts(pass ? "PASS" : "FAIL");
    return result;
}

int power(std::string_view action) {
    int rc;
    if (action == "off")
        rc = Usb_Port1_Off();
    else if (action == "on")
        rc = Usb_Port1_On();
    else
        return verdict(false, -1);
    if (rc == -2) std::puts("USB port is in device mode. Could not provide power on USB port.");
    return verdict(rc >= 0, rc);
}

int overcurrent() {
    int fault = 0;
    int rc = Usb_HadPowerFault(&fault);
    if (rc < 0) return verdict(false, rc);
    if (fault == 0) std::puts("No overcurrent detected");
    if (fault == 1) std::puts("Overcurrent detected");
    return verdict(true, rc);
}

// The limit actions say what they did, with no verdict line.
int limit(std::string_view action) {
    if (action == "low" || action == "high") {
        bool high = action == "high";
        int rc = Usb_SetCurrentLimit(high ? 1 : 0);
        if (rc == 0)
            std::puts(high ? "USB port power limit was set to 500 mA"
                           : "USB port power limit was set to 100 mA");
        else
            std::puts("Usb_SetCurrentLimit() error");
        return rc;
    }
    if (action == "get") {
        int rc = Usb_GetCurrentLimit();
        if (rc == -1) {
            std::puts("Usb_getCurrentLimit() error");
            return -1;
        }
        if (rc != 0 && rc != 1) {
            std::printf("Error unexpected value in Usb_getCurrentLimit(): %d\n", rc);
            return -1;
        }
        std::puts(rc == 1 ? "USB current limit is 500 mA" : "USB current limit is 100 mA");
        return 0;
    }
    std::puts("Unknown action");
    return -1;
}

}  // namespace

int usbTest(const char *what, const char *action) {
    std::string_view w = what;
    if (w == "power") return power(action);
    if (w == "overcurrent") return overcurrent();
    if (w == "limit") return limit(action);
    std::puts("Not a valid command.");
    return -1;
}
