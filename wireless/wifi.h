// Wi-Fi: the two driver modules (mlan, then sd8xxx) that give the phone wlan0,
// and the commands behind "wifi start|stop|mac_get|scan|cap". No state is kept
// here: whether the driver is loaded is read from the kernel's module list.
#pragma once

// Exported from the executable under these names, for the phone's other tools.
extern "C" {
int is_wifi_driver_loaded();   // 1 when sd8xxx is listed, else 0
int wifi_load_driver();        // 0 when both modules were loaded, else -1
int wifi_unload_driver();      // 0 when both are gone and no longer listed, else -1
}

// 0 when the module was removed, else the last removal's result.
int unload_driver_module(const char *name);

int wifi_start();
int wifi_stop();
int wifi_mac_get();
int wifi_scan();
int wifi_cap();   // the capability query's own result
