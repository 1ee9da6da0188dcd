// Bluetooth through the phone's Android stack: the chip's module (mbt8xxx),
// the address loader, the stack's hardware module, and the commands behind
// "bt init|on|off|mac_get|scan|cap". The stack answers on its own threads;
// the console thread starts an operation and polls the flags its callbacks set.
#pragma once

#include <cstddef>

int btTestInit();
int btEnable();
int btDisable();
// Writes the adapter's address (17 characters) into `buffer`, which holds 19 bytes at least.
int btGetMacAddr(char *buffer);
int btScan();
int btCap();
// Switches the adapter off, releases the stack, unloads the module; -1 when
// Bluetooth was never brought up.
int btTestDestroy();

// 1 when mbt8xxx is listed, 0 when not, -1 when the list cannot be read.
int is_module_loaded();
int unload_bt_module();

// How long the console waits for the stack. Unit tests shorten the clock
// through wireless_sleep_us instead of changing these.
constexpr unsigned long kBtPollUs = 10000;           // 10 ms
constexpr int kBtStackWaitPolls = 500;               // 5 s
constexpr int kBtDiscoveryLimitSeconds = 60;
constexpr size_t kBtMaxDevices = 20;
