#include "input/cradle.h"

#include <cstdio>

#include "platform/tolma.h"

namespace {

constexpr const char *kCradleStates[] = {"disconnected", "connected"};

int verdict(bool pass) {
    std::puts(pass ? "PASS" : "FAIL");
    return 0;
}

}  // namespace

// Action 0 shows the connection, 1 turns the charger on, 2 turns it off.
int cradleTest(const char *action) {
    if (!(action[0] >= '0' && action[0] <= '2' && action[1] == '\0')) {
        std::printf("Invalid <action>=\"%s\"\n", action);
        return verdict(false);
    }
    int state = -1;
    if (BTHandsetCradle_IsConnected(&state) != 0) {
        std::puts("Failed to get the connection state of the BT handset cradle");
        return verdict(false);
    }
    if (state != 0 && state != 1) {
        std::puts("Cradle state undefined");
        return verdict(false);
    }
    if (action[0] == '0') {
        std::puts(kCradleStates[state]);
        return verdict(true);
    }
    if (state != 1) {
        std::printf("Cradle is %s\n", kCradleStates[0]);
        return verdict(false);
    }
    return verdict(BTHandsetCharger_SetState(action[0] == '1' ? 1 : 0) == 0);
}
