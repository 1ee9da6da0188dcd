// libTolma's USB port calls: the usb command is tested end to end against the
// simulated library; here they only have to exist, and they fail.
#include "platform/tolma.h"

extern "C" {

int Usb_Port1_On(void) { return -1; }
int Usb_Port1_Off(void) { return -1; }
int Usb_HadPowerFault(int *) { return -1; }
int Usb_SetCurrentLimit(int) { return -1; }
int Usb_GetCurrentLimit(void) { return -1; }

}  // extern "C"
