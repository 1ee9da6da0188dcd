// The Android Bluetooth stack's interface (API level 23), as far as the console
// uses it. Each table begins with a size field holding the sizeof of the table
// as its builder declared it; the stack refuses a table whose size differs from
// its own. Members are in the stack's order: a slot the console never calls is
// still declared, so that every later slot sits where the stack puts it.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "platform/hardware.h"

#ifdef __cplusplus
extern "C" {
#endif

// Status of a stack call; anything but kBtSuccess is a failure.
enum { kBtSuccess = 0, kBtFail = 1 };

// Adapter and discovery states as the callbacks report them.
enum { kBtStateOff = 0, kBtStateOn = 1 };
enum { kBtDiscoveryStopped = 0, kBtDiscoveryStarted = 1 };

// Property types.
enum {
    kBtPropName = 1,
    kBtPropAddress = 2,
    kBtPropClassOfDevice = 4,
    kBtPropDeviceType = 5,
    kBtPropRemoteRssi = 11,
};

struct BtAddress {
    uint8_t bytes[6];
};

struct BtProperty {
    int type;
    int len;
    void *val;
};

// What the stack calls back, on its own threads.
struct BtCallbacks {
    size_t size;
    void (*adapter_state_changed)(int state);
    void (*adapter_properties)(int status, int count, struct BtProperty *properties);
    void (*remote_device_properties)(int status, struct BtAddress *address, int count,
                                     struct BtProperty *properties);
    void (*device_found)(int count, struct BtProperty *properties);
    void (*discovery_state_changed)(int state);
    void (*pin_request)(void);
    void (*ssp_request)(void);
    void (*bond_state_changed)(void);
    void (*acl_state_changed)(void);
    void (*thread_event)(void);
    void (*dut_mode_received)(void);
    void (*le_test_mode)(void);
    void (*energy_info)(void);
};

typedef void (*BtAlarmCallback)(void *data);

// What the stack asks of the system: timed wake-ups and wake locks.
struct BtOsCallouts {
    size_t size;
    bool (*set_wake_alarm)(uint64_t delay_ms, bool should_wake, BtAlarmCallback callback,
                           void *data);
    int (*acquire_wake_lock)(const char *name);
    int (*release_wake_lock)(const char *name);
};

typedef void (*BtUnusedCall)(void);

struct BtInterface {
    size_t size;
    int (*init)(struct BtCallbacks *callbacks);
    int (*enable)(bool guest_mode);
    int (*disable)(void);
    void (*cleanup)(void);
    BtUnusedCall get_adapter_properties;
    int (*get_adapter_property)(int type);
    BtUnusedCall set_adapter_property;
    BtUnusedCall get_remote_device_properties;
    BtUnusedCall get_remote_device_property;
    BtUnusedCall set_remote_device_property;
    BtUnusedCall get_remote_service_record;
    BtUnusedCall get_remote_services;
    int (*start_discovery)(void);
    int (*cancel_discovery)(void);
    BtUnusedCall create_bond;
    BtUnusedCall remove_bond;
    BtUnusedCall cancel_bond;
    BtUnusedCall get_connection_state;
    BtUnusedCall pin_reply;
    BtUnusedCall ssp_reply;
    BtUnusedCall get_profile_interface;
    BtUnusedCall dut_mode_configure;
    BtUnusedCall dut_mode_send;
    BtUnusedCall le_test_mode;
    BtUnusedCall config_hci_snoop_log;
    int (*set_os_callouts)(struct BtOsCallouts *callouts);
    BtUnusedCall read_energy_info;
    BtUnusedCall dump;
    BtUnusedCall config_clear;
};

// The device that the "bluetooth" module opens.
struct BluetoothDevice {
    struct HwDevice common;
    const struct BtInterface *(*get_bluetooth_interface)(void);
};

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
// The phone's 32-bit stack takes exactly these sizes.
static_assert(sizeof(void *) != 4 || sizeof(BtCallbacks) == 56, "callback table size");
static_assert(sizeof(void *) != 4 || sizeof(BtOsCallouts) == 16, "callout table size");
#endif
