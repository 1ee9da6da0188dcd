#include "tests/unit/fake_tolma_input.h"

#include <unistd.h>

#include "platform/tolma.h"

int fake_headset_type = 4;

extern "C" {

// No reader thread runs in the unit tests; a wait that came anyway never ends.
int CradleHookswitch_WaitForHookswitchEvent(void) { for (;;) pause(); }
int WiredHeadset_WaitForHookSwitchEvent(void) { for (;;) pause(); }

// The hookswitch and cradle commands are tested end to end only.
int CradleHookswitch_GetState(int *) { return -1; }
int BTHandsetCradle_IsConnected(int *) { return -1; }
int BTHandsetCharger_SetState(int) { return -1; }
int is_corvine_entry(void) { return 0; }

int Jack_GetHeadsetType(int *type) {
    *type = fake_headset_type;
    return 0;
}

}  // extern "C"
