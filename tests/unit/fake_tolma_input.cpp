#include "tests/unit/fake_tolma_input.h"

#include <unistd.h>

#include "platform/tolma.h"

FakeAccessories &fake_accessories() {
    static FakeAccessories fake;
    return fake;
}

extern "C" {

// No reader thread runs in the unit tests; a wait that came anyway never ends.
int CradleHookswitch_WaitForHookswitchEvent(void) {
    for (;;) pause();
}

int WiredHeadset_WaitForHookSwitchEvent(void) {
    for (;;) pause();
}

int CradleHookswitch_GetState(int *state) {
    if (fake_accessories().hook_result == 0) *state = fake_accessories().hook_state;
    return fake_accessories().hook_result;
}

int BTHandsetCradle_IsConnected(int *state) {
    if (fake_accessories().cradle_result == 0) *state = fake_accessories().cradle_state;
    return fake_accessories().cradle_result;
}

int BTHandsetCharger_SetState(int on) {
    fake_accessories().charger_calls.push_back(on);
    return fake_accessories().charger_result;
}

int is_corvine_entry(void) { return fake_accessories().corvine; }

int Jack_GetHeadsetType(int *type) {
    if (fake_accessories().headset_result == 0) *type = fake_accessories().headset_type;
    return fake_accessories().headset_result;
}

}  // extern "C"
