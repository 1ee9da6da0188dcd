// The maker's platform hardware libraries. libTolma provides every call here
// except is_corvine_entry and Jack_GetHeadsetType, which libTolmaQuen provides.
// Results: 0 on success unless a call says otherwise.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// ---- Backlight and LEDs ----
int Backlight_Init(void);
int BacklightOnOff(int on);                    // 1 power on, 0 off; level unchanged
int Backlight_SetRawBrightness(int level);
int Backlight_GetMaxBrightness(int *max);
int Led_SetSteadyStateAll(int on);             // 1 all on, 0 all off
int Led_SetFlashStateAll(int on_time, int off_time);

// ---- Accessories ----
// Block until the hookswitch changes; the new state (0 on hook), or -1.
int CradleHookswitch_WaitForHookswitchEvent(void);
int CradleHookswitch_GetState(int *state);     // 0 on hook, non-zero off hook
int WiredHeadset_WaitForHookSwitchEvent(void);
int BTHandsetCradle_IsConnected(int *state);   // 0 disconnected, 1 connected
int BTHandsetCharger_SetState(int on);

// ---- Headset jack (libTolmaQuen) ----
int is_corvine_entry(void);                    // non-zero on the corvine model
int Jack_GetHeadsetType(int *type);            // 3 CTIA, 4 OMTP

// ---- USB host port ----
// On and Off: 0 or more on success, -2 while the port is in device mode,
// another negative value on failure.
int Usb_Port1_On(void);
int Usb_Port1_Off(void);
int Usb_HadPowerFault(int *fault);             // 0 or more with *fault 0 (none) or 1; negative on failure
int Usb_SetCurrentLimit(int limit);            // 0 for 100 mA, 1 for 500 mA
int Usb_GetCurrentLimit(void);                 // 0 (100 mA), 1 (500 mA), or -1

// ---- Capabilities ----
int Cap_WiFi(int *present);
int Cap_Bluetooth(int *present);

#ifdef __cplusplus
}
#endif
