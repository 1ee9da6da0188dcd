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

// ---- L2 switch ----
// Port arguments are switch port ids: 1 PC port, 2 LAN port, 1024 CPU port
// (1027: the three together). Calls return a negative value and set errno on
// failure; out-parameters are written only on success. Net_fd_init opens the
// library's descriptor for the switch calls that follow.
int Net_fd_init(void);
int L2Switch_EarlyInit(int mdix);              // 1 auto-MDIX on, 0 off
int L2Switch_IsSwitchPortSupport1G(int port, int *supported);
int L2Switch_SetLinkStatus(int port, int status);
int L2Switch_GetLinkStatus(int port, int *status);
int L2Switch_SetLinkMode(int port, int mode);
// Either pointer may be null; only the other is written.
int L2Switch_GetLinkMode(int port, int *configured, int *actual);
int L2Switch_SetTestMode(int port, int testMode);   // gigabit PHY test modes 1 to 4
int L2Switch_GetTestMode(int port, int *testMode);
int L2SW_EthernetLedTest(int action);          // 1 off, 2 on, 3 enable
int L2Switch_portCntrs(int port);              // dumps the port's counters
int L2Switch_portResetCntrs(int port);
int L2Switch_ResetSettings(void);
int L2Switch_GetMacAddr(int port, unsigned char mac[6]);
int L2Switch_print_mac_table(void);            // to the kernel log
int L2Switch_GetRegValue(unsigned int reg, unsigned int *value);
int L2Switch_GetPhyRegValue(int port, int reg, unsigned int *value);
int L2Switch_SetAutoMDIXPort(int port, int mode);
int L2Switch_GetAutoMDIXPort(int port, int *mode);
int L2Switch_GetPVID(unsigned short *pvid, int port);
int L2Switch_GetPortPriority(int port, unsigned short *priority);
int L2Switch_VlanMbrCfg(int index);            // dumps one VLAN, or all with 9999
int L2Switch_ShowAllRules(void);               // dumps the ACL rules
int L2Switch_DelAllRules(void);
int L2Switch_GetGreenEthernetPort(int *mode);  // switch-wide
int L2Switch_SetGreenEthernetPort(int mode);
int L2Switch_GetEEEPort(int port, int *mode);
int L2Switch_SetEEEPort(int port, int mode);
int L2Switch_rgmiiDelayExt_set(int port, int txDelay, int rxDelay);
int L2Switch_GetSSC(int *status);
int L2Switch_SetSSC(int status);

// ---- Capabilities ----
int Cap_WiFi(int *present);
int Cap_Bluetooth(int *present);

#ifdef __cplusplus
}
#endif
