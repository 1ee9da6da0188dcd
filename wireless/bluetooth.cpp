#include "wireless/bluetooth.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

#include "platform/bluetooth.h"
#include "platform/shell.h"
#include "platform/stdout_lock.h"
#include "platform/tolma.h"
#include "platform/unique_fd.h"
#include "wireless/modules.h"
#include "wireless/pause.h"

namespace {

constexpr char kModuleName[] = "mbt8xxx";
constexpr char kModulePath[] = "/system/lib/modules/mbt8xxx.ko";
constexpr char kCharDevice[] = "/dev/mbtchar0";
constexpr char kAddressLoader[] = "/system/bin/bd_addr_loader";

constexpr int kAddressPending = 4;
constexpr int kAddressDone = 0;
constexpr int kAddressFailed = 1;

struct BtDeviceRecord {
    char name[249];
    uint8_t address[6];
    uint32_t class_of_device;
    int32_t type;
    int32_t rssi;
    uint8_t seen;
};

// Flags the stack's threads and the SIGINT handler write, the console thread polls.
std::atomic<bool> g_adapter_on{false};
std::atomic<bool> g_discovering{false};
std::atomic<bool> g_scan_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");
std::atomic<char *> g_address_target{nullptr};
std::atomic<int> g_address_state{kAddressDone};

// Console thread only.
bool g_initialized = false;
HwDevice *g_device = nullptr;
const BtInterface *g_bt = nullptr;
int g_last_status = 0;

// The devices of the running discovery. The stack's device-found callback adds
// to it; the scan empties it, also while a discovery it failed to cancel goes on.
std::mutex g_table_lock;
BtDeviceRecord *g_table[kBtMaxDevices];
uint8_t g_count = 0;

// The stack's wake alarm: one timer, created on the first request.
std::mutex g_alarm_lock;
timer_t g_alarm_timer;
bool g_alarm_created = false;
BtAlarmCallback g_alarm_callback = nullptr;
void *g_alarm_data = nullptr;

// Polls every 10 ms, for 5 s at most, until `done` holds.
template <typename Done>
bool wait_for_stack(Done done) {
    for (int poll = 0; poll < kBtStackWaitPolls; ++poll) {
        if (done()) return true;
        wireless_sleep_us(kBtPollUs);
    }
    return done();
}

// ---- callbacks, on the stack's threads ---------------------------------------

// The first usable address among `properties`, or null.
const BtProperty *find_address(int count, const BtProperty *properties) {
    for (int i = 0; properties && i < count; ++i) {
        const BtProperty &p = properties[i];
        if (p.type == kBtPropAddress && p.val && p.len >= 6) return &p;
    }
    return nullptr;
}

void adapter_state_changed_callback(int state) {
    // The line comes before the flag: the console prints nothing more until it sees the flag.
    std::printf("BT state changed: %s\n", state == kBtStateOn ? "ON" : "OFF");
    g_adapter_on = state == kBtStateOn;
}

void adapter_properties_callback(int status, int count, BtProperty *properties) {
    char *target = g_address_target.load();
    if (!target) {
        std::puts("BT adapter_properties_callback: bt_addr_buf == NULL!");
        g_address_state = kAddressFailed;
        return;
    }
    const BtProperty *address = status == kBtSuccess ? find_address(count, properties) : nullptr;
    if (!address) {
        g_address_state = kAddressFailed;
        return;
    }
    const uint8_t *bytes = static_cast<const uint8_t *>(address->val);
    for (int i = 0; i < 6; ++i)
        std::snprintf(target + 3 * i, 4, "%02X%c", bytes[i], i < 5 ? ':' : '\0');
    g_address_state = kAddressDone;
}

void discovery_state_changed_callback(int state) {
    std::printf("BT discovery %s\n", state == kBtDiscoveryStarted ? "STARTED" : "STOPPED");
    g_discovering = state == kBtDiscoveryStarted;
}

const char *type_name(int32_t type) {
    switch (type) {
    case 1: return "BREDR";
    case 2: return "BLE";
    case 3: return "DUAL";
    default: return "Unknown";
    }
}

// One row, under one stdout hold: no other thread's line lands inside it.
void print_row(const BtDeviceRecord &d, bool header) {
    StdoutLock hold;
    if (header) std::printf("%-20s %-17s %-8s %-5s %s\n", "Name", "Address", "Class", "Type", "RSSI");
    std::printf("%-20s ", d.name[0] ? d.name : "Unknown");
    for (int i = 0; i < 6; ++i) std::printf(i < 5 ? "%.2X:" : "%.2X ", d.address[i]);
    if (d.class_of_device) std::printf("0x%.6X ", d.class_of_device);
    if (d.type) std::printf("%-5s ", type_name(d.type));
    if (d.rssi) std::printf("%d", d.rssi);
    std::putchar('\n');
}

// A property's number as 32 bits. The stack gives the RSSI as one signed byte
// and the others as four; reading four bytes of a one-byte value would read
// past it.
int32_t value32(const BtProperty &p) {
    if (!p.val || p.len <= 0) return 0;
    if (p.len == 1) return *static_cast<const int8_t *>(p.val);
    if (p.len < 4) {
        int16_t v;
        std::memcpy(&v, p.val, sizeof v);
        return v;
    }
    int32_t v;
    std::memcpy(&v, p.val, sizeof v);
    return v;
}

void device_found_callback(int count, BtProperty *properties) {
    std::lock_guard<std::mutex> lock(g_table_lock);
    if (g_count >= kBtMaxDevices) return;
    const BtProperty *address = find_address(count, properties);
    if (!address) return;
    BtDeviceRecord *d = nullptr;
    for (uint8_t i = 0; i < g_count; ++i) {
        if (std::memcmp(g_table[i]->address, address->val, 6) == 0) {
            d = g_table[i];
            break;
        }
    }
    if (d && d->seen >= count) return;   // nothing this event can add
    if (!d) {
        d = static_cast<BtDeviceRecord *>(std::calloc(1, sizeof(BtDeviceRecord)));
        if (!d) return;
        g_table[g_count++] = d;
        std::memcpy(d->address, address->val, 6);
        d->seen = 1;
    }
    for (int i = 0; i < count; ++i) {
        const BtProperty &p = properties[i];
        switch (p.type) {
        case kBtPropName:
            if (!d->name[0] && p.val && p.len > 0) {
                size_t n = static_cast<size_t>(p.len) < sizeof d->name - 1
                               ? static_cast<size_t>(p.len) : sizeof d->name - 1;
                std::memcpy(d->name, p.val, n);
                d->name[n] = '\0';
                ++d->seen;
            }
            break;
        case kBtPropClassOfDevice:
            if (!d->class_of_device) {
                d->class_of_device = static_cast<uint32_t>(value32(p));
                ++d->seen;
            }
            break;
        case kBtPropDeviceType:
            if (!d->type) {
                d->type = value32(p);
                ++d->seen;
            }
            break;
        case kBtPropRemoteRssi:
            if (!d->rssi) {
                d->rssi = value32(p);
                ++d->seen;
            }
            break;
        default:
            break;
        }
    }
    print_row(*d, g_count == 1);
}

// ---- callouts ------------------------------------------------------------------

void alarm_expired(union sigval) {
    BtAlarmCallback callback;
    void *data;
    {
        std::lock_guard<std::mutex> lock(g_alarm_lock);
        callback = g_alarm_callback;
        data = g_alarm_data;
    }
    if (callback) callback(data);
}

bool set_wake_alarm_callout(uint64_t delay_ms, bool, BtAlarmCallback callback, void *data) {
    std::lock_guard<std::mutex> lock(g_alarm_lock);
    if (!g_alarm_created) {
        struct sigevent event {};
        event.sigev_notify = SIGEV_THREAD;
        event.sigev_notify_function = alarm_expired;
        if (timer_create(CLOCK_MONOTONIC, &event, &g_alarm_timer) != 0) return false;
        g_alarm_created = true;
        // The stack keeps one alarm handler: later requests only move the expiry.
        g_alarm_callback = callback;
        g_alarm_data = data;
    }
    struct itimerspec when {};
    when.it_value.tv_sec = static_cast<time_t>(delay_ms / 1000);
    when.it_value.tv_nsec = static_cast<long>((delay_ms % 1000) * 1000000);
    // A zero expiry would disarm the timer; the stack wants it now.
    if (delay_ms == 0) when.it_value.tv_nsec = 1;
    timer_settime(g_alarm_timer, 0, &when, nullptr);
    return true;
}

int wake_lock_callout(const char *) { return 0; }

BtCallbacks g_callbacks = {
    sizeof(BtCallbacks),
    adapter_state_changed_callback,
    adapter_properties_callback,
    nullptr,
    device_found_callback,
    discovery_state_changed_callback,
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
};

BtOsCallouts g_callouts = {
    sizeof(BtOsCallouts),
    set_wake_alarm_callout,
    wake_lock_callout,
    wake_lock_callout,
};

// ---- the module ----------------------------------------------------------------

int insmod() {
    switch (load_module(kModulePath, "")) {
    case ModuleLoad::kLoaded: return ::access(kCharDevice, F_OK);
    case ModuleLoad::kNoImage: std::puts("insmod(): failed to load file"); return -1;
    case ModuleLoad::kRefused: return -1;
    }
    return -1;
}

void clear_table() {
    std::lock_guard<std::mutex> lock(g_table_lock);
    for (uint8_t i = 0; i < g_count; ++i) std::free(g_table[i]);
    for (BtDeviceRecord *&slot : g_table) slot = nullptr;
    g_count = 0;
}

void scan_sigint_handler(int signal) {
    if (signal == SIGINT && g_discovering.load()) g_scan_interrupted = true;
}

void default_sigint() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigfillset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

}  // namespace

int is_module_loaded() {
    UniqueFd list(::open("/proc/modules", O_RDONLY | O_CLOEXEC));
    if (!list) return -1;
    char text[1025] = {};
    ssize_t n = ::read(list.get(), text, 1024);
    if (n == 1024) std::puts("is_module_loaded: buffer is not enough");
    return std::strstr(text, kModuleName) ? 1 : 0;
}

int unload_bt_module() { return remove_module(kModuleName); }

int btTestInit() {
    int result;
    switch (is_module_loaded()) {
    case 0: result = insmod(); break;
    case 1: result = ::access(kCharDevice, F_OK); break;
    default: result = -1; break;
    }
    // The address loader runs whatever became of the module.
    shell_run(kAddressLoader);
    if (result != 0) {
        std::puts("ERROR: failed to load BT driver!");
        return -1;
    }
    const HwModule *module = nullptr;
    HwDevice *device = nullptr;
    if (hw_get_module("bluetooth", &module) != 0 || !module || !module->methods ||
        !module->methods->open || module->methods->open(module, "bluetooth", &device) != 0 ||
        !device) {
        std::puts("ERROR: failed to load BT HAL library!");
        if (is_module_loaded() == 1) unload_bt_module();
        return -1;
    }
    g_device = device;
    g_bt = reinterpret_cast<BluetoothDevice *>(device)->get_bluetooth_interface();
    if (!g_bt) {
        std::puts("btTestInit: bt_if is NULL");
        g_last_status = 1;
    } else {
        g_last_status = g_bt->init(&g_callbacks);
        if (g_last_status == kBtSuccess) {
            std::puts("BT interface initialized");
            g_last_status = g_bt->set_os_callouts(&g_callouts);
        }
    }
    clear_table();
    g_initialized = g_last_status == kBtSuccess;
    return g_initialized ? 0 : -1;
}

int btEnable() {
    if (!g_initialized) {
        std::puts("BT not initialized!");
        return -1;
    }
    if (g_adapter_on) {
        std::puts("BT already ON");
        return 0;
    }
    g_last_status = g_bt->enable(false);
    if (g_last_status != kBtSuccess) return -1;
    return wait_for_stack([] { return g_adapter_on.load(); }) ? 0 : -1;
}

int btDisable() {
    if (!g_initialized) {
        std::puts("BT not initialized!");
        return -1;
    }
    if (!g_adapter_on) {
        std::puts("BT already OFF");
        return 0;
    }
    g_last_status = g_bt->disable();
    if (g_last_status != kBtSuccess) return -1;
    return wait_for_stack([] { return !g_adapter_on.load(); }) ? 0 : -1;
}

int btGetMacAddr(char *buffer) {
    if (!buffer) {
        std::puts("BT btGetMacAddr: pbuf == NULL!");
        return -1;
    }
    if (!g_initialized) {
        std::puts("BT not initialized!");
        return -1;
    }
    g_address_state = kAddressPending;
    g_address_target = buffer;
    g_last_status = g_bt->get_adapter_property(kBtPropAddress);
    int result = -1;
    if (g_last_status == kBtSuccess &&
        wait_for_stack([] { return g_address_state.load() != kAddressPending; }))
        result = g_address_state.load() == kAddressDone ? 0 : -1;
    g_address_target = nullptr;
    return result;
}

int btScan() {
    if (!g_initialized) {
        std::puts("FAIL: BT not initialized!");
        return -1;
    }
    bool switched_on = false;
    if (!g_adapter_on) {
        if (btEnable() != 0) return -1;
        switched_on = true;
    }
    int result = -1;
    g_last_status = g_bt->start_discovery();
    if (g_last_status == kBtSuccess) {
        g_scan_interrupted = false;
        struct sigaction action {};
        action.sa_handler = scan_sigint_handler;
        sigfillset(&action.sa_mask);
        // One Ctrl+C ends the scan; a second one ends the console as usual.
        action.sa_flags = SA_RESETHAND;
        sigaction(SIGINT, &action, nullptr);

        bool ok = wait_for_stack([] { return g_discovering.load(); });
        // The stack's discovery ends it; an endless one is cut off.
        bool cut_off = false;
        for (int s = 0; ok && g_discovering && !g_scan_interrupted; ++s) {
            if (s == kBtDiscoveryLimitSeconds) {
                cut_off = true;
                break;
            }
            wireless_sleep_us(1000000);
        }
        if ((g_scan_interrupted || cut_off) && g_discovering) {
            g_last_status = g_bt->cancel_discovery();
            if (g_last_status == kBtSuccess)
                ok = ok && wait_for_stack([] { return !g_discovering.load(); });
            else
                std::puts("BT: failed to cancel discovery or already finished");
        }
        if (!g_scan_interrupted) default_sigint();
        clear_table();
        result = ok ? 0 : -1;
    }
    if (switched_on) btDisable();
    return result;
}

int btCap() {
    int present = -1;
    int rc = Cap_Bluetooth(&present);
    std::puts(rc == 0 && present == 1 ? "PASS" : "FAIL");
    return rc;
}

int btTestDestroy() {
    if (!g_initialized) return -1;
    if (g_adapter_on) btDisable();
    if (g_bt) {
        g_bt->cleanup();
        g_bt = nullptr;
    }
    {
        // The stack is gone: nothing may call into it any more.
        std::lock_guard<std::mutex> lock(g_alarm_lock);
        if (g_alarm_created) {
            timer_delete(g_alarm_timer);
            g_alarm_created = false;
            g_alarm_callback = nullptr;
        }
    }
    if (is_module_loaded() == 1) unload_bt_module();
    g_initialized = false;
    return 0;
}
