// The phone's Bluetooth stack, as the console sees it through the hardware
// module "bluetooth": the adapter and its address, and discoveries of the
// devices listed with `ftsim bt PHONE devices FILE`. Like the real stack it
// calls back on a thread of its own with realistic delays, refuses tables whose
// size field is not its own, ends a discovery on its wake alarm, and answers a
// second init with "done".
//
// Phone files: wireless/bt-devices (ADDRESS NAME CLASS TYPE RSSI per line),
// wireless/bt-discovery-ms, store/BLUETOOTHADD; the state for `ftsim show
// PHONE bt` goes to run/bt. Faults: bt-silent (no callback ever comes),
// bt-enable-error (enable fails), bt-call.NAME[@N] (that interface call fails,
// or only its Nth call of the run; "interface": no interface at all),
// bt-props.bad-status|no-address|unsolicited (the adapter's address comes with
// a failed status, without the address, or also unasked, right before the
// adapter turns on), bt-device-no-address (found devices come without their
// address), bt-late.MS (every callback comes MS milliseconds later).
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/bluetooth.h"
#include "sim/common/phone.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kStatusNotReady = 2;
constexpr int kStatusDone = 5;

constexpr int kEnableMs = 250;
constexpr int kDisableMs = 120;
constexpr int kPropertyMs = 40;
constexpr int kDiscoveryStartMs = 60;
constexpr int kCancelMs = 30;
constexpr int kDefaultDiscoveryMs = 3000;
constexpr uint8_t kDefaultAddress[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x02};

struct Device {
    uint8_t address[6];
    std::string name;
    uint32_t class_of_device;
    int32_t type;
    int8_t rssi;   // the stack hands the RSSI over as one signed byte
};

struct Event {
    Clock::time_point when;
    unsigned long seq;
    std::function<void()> run;
};

// The stack's thread may still run when the process ends (a console that
// never called cleanup, or called init twice). A phone's own stack dies with
// its process; this one is stopped as the process exits (stop_at_exit), and
// what the thread waits on is never destroyed, so exit() can never block on a
// condition variable still in use.
std::mutex &g_lock = *new std::mutex;
std::condition_variable &g_wake = *new std::condition_variable;
std::condition_variable &g_stopped = *new std::condition_variable;
std::thread *g_thread = nullptr;
bool g_running = false;
bool g_in_loop = false;
bool g_exit_hook = false;
std::vector<Event> &g_queue = *new std::vector<Event>;
unsigned long g_seq = 0;

BtCallbacks *g_callbacks = nullptr;
BtOsCallouts *g_callouts = nullptr;
bool g_adapter_on = false;
bool g_discovering = false;
unsigned g_discovery = 0;    // each discovery (and each cancel) gets a new number
unsigned g_alarms = 0;

void save_state() {
    char text[160];
    int n = std::snprintf(text, sizeof text,
                          "initialized=%s\nadapter=%s\ndiscovery=%s\nalarms=%u\n",
                          g_callbacks ? "yes" : "no", g_adapter_on ? "on" : "off",
                          g_discovering ? "running" : "stopped", g_alarms);
    sim::write_atomically("run/bt", text, static_cast<size_t>(n));
}

bool call_fails(const char *call) { return sim::call_fault(std::string("bt-call.") + call) != 0; }

// bt-late.MS: how much later every callback comes.
int late_ms() {
    std::string ms;
    return sim::fault_argument("bt-late.", ms) ? std::atoi(ms.c_str()) : 0;
}

// Queues `run` on the stack's thread after `ms`. Caller holds g_lock.
void post_locked(int ms, std::function<void()> run) {
    if (!g_running || sim::fault("bt-silent")) return;
    ms += late_ms();
    g_queue.push_back({Clock::now() + milliseconds(ms), g_seq++, std::move(run)});
    g_wake.notify_all();
}

void post(int ms, std::function<void()> run) {
    std::lock_guard<std::mutex> lock(g_lock);
    post_locked(ms, std::move(run));
}

void event_loop() {
    std::unique_lock<std::mutex> lock(g_lock);
    g_in_loop = true;
    while (g_running) {
        if (g_queue.empty()) {
            g_wake.wait(lock);
            continue;
        }
        auto next = g_queue.begin();
        for (auto it = g_queue.begin(); it != g_queue.end(); ++it)
            if (it->when < next->when || (it->when == next->when && it->seq < next->seq)) next = it;
        if (Clock::now() < next->when) {
            // A copy: wait_until reads its deadline again after waking, and a
            // post made meanwhile may have moved the queue.
            Clock::time_point when = next->when;
            g_wake.wait_until(lock, when);
            continue;
        }
        std::function<void()> run = std::move(next->run);
        g_queue.erase(next);
        lock.unlock();
        run();
        lock.lock();
    }
    g_in_loop = false;
    g_stopped.notify_all();
}

// At exit, before the console's own objects are destroyed: no callback may
// come into a console that is going away. A callback under way gets a second
// to return; the thread itself is never joined here.
void stop_at_exit() {
    std::unique_lock<std::mutex> lock(g_lock);
    if (!g_thread) return;
    g_running = false;
    g_wake.notify_all();
    if (std::this_thread::get_id() != g_thread->get_id())
        g_stopped.wait_for(lock, std::chrono::seconds(1), [] { return !g_in_loop; });
    g_thread->detach();
    delete g_thread;
    g_thread = nullptr;
}

bool parse_address(const std::string &text, uint8_t out[6]) {
    unsigned b[6];
    char tail;
    if (std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &b[0], &b[1], &b[2], &b[3], &b[4],
                    &b[5], &tail) != 6)
        return false;
    for (int i = 0; i < 6; ++i) out[i] = static_cast<uint8_t>(b[i]);
    return true;
}

std::vector<Device> listed_devices() {
    std::vector<Device> devices;
    std::string text;
    if (!sim::read_file("wireless/bt-devices", text, 1 << 16)) return devices;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(pos, end - pos);
        pos = end + 1;
        char address[32], name[256];
        unsigned long cod;
        int type, rssi;
        if (std::sscanf(line.c_str(), "%31s %255s %lx %d %d", address, name, &cod, &type, &rssi) != 5)
            continue;
        Device d{};
        if (!parse_address(address, d.address)) continue;
        d.name = std::strcmp(name, "-") == 0 ? "" : name;
        d.class_of_device = static_cast<uint32_t>(cod);
        d.type = type;
        d.rssi = static_cast<int8_t>(rssi);
        devices.push_back(d);
    }
    return devices;
}

int discovery_ms() {
    std::string text;
    if (!sim::read_file("wireless/bt-discovery-ms", text, 32) || text.empty()) return kDefaultDiscoveryMs;
    return std::atoi(text.c_str());
}

// ---- what the stack reports ---------------------------------------------------

void report_adapter(bool on) {
    {
        std::lock_guard<std::mutex> lock(g_lock);
        g_adapter_on = on;
        save_state();
    }
    if (g_callbacks && g_callbacks->adapter_state_changed)
        g_callbacks->adapter_state_changed(on ? kBtStateOn : kBtStateOff);
}

void report_discovery(bool started) {
    if (g_callbacks && g_callbacks->discovery_state_changed)
        g_callbacks->discovery_state_changed(started ? kBtDiscoveryStarted : kBtDiscoveryStopped);
}

void stop_discovery_now(unsigned which) {
    BtOsCallouts *callouts;
    {
        std::lock_guard<std::mutex> lock(g_lock);
        if (!g_discovering || which != g_discovery) return;
        g_discovering = false;
        ++g_discovery;
        callouts = g_callouts;
        save_state();
    }
    if (callouts && callouts->release_wake_lock) callouts->release_wake_lock("bt_discovery");
    report_discovery(false);
}

// One device-found event with the device's first `stage` groups of properties:
// 1 the address, type and RSSI (what an inquiry gives), 2 adds the class,
// 3 adds the name (resolved last, as on the air).
void report_device(const Device &d, int stage, unsigned which) {
    {
        std::lock_guard<std::mutex> lock(g_lock);
        if (!g_discovering || which != g_discovery) return;
    }
    BtProperty props[5];
    int n = 0;
    if (!sim::fault("bt-device-no-address")) props[n++] = {kBtPropAddress, 6, const_cast<uint8_t *>(d.address)};
    if (d.type) props[n++] = {kBtPropDeviceType, 4, const_cast<int32_t *>(&d.type)};
    if (d.rssi) props[n++] = {kBtPropRemoteRssi, 1, const_cast<int8_t *>(&d.rssi)};
    if (stage >= 2 && d.class_of_device)
        props[n++] = {kBtPropClassOfDevice, 4, const_cast<uint32_t *>(&d.class_of_device)};
    if (stage >= 3 && !d.name.empty())
        props[n++] = {kBtPropName, static_cast<int>(d.name.size()), const_cast<char *>(d.name.data())};
    if (g_callbacks && g_callbacks->device_found) g_callbacks->device_found(n, props);
}

// The wake alarm the stack asked the system for: the end of the discovery.
void wake_alarm_fired(void *) {
    std::lock_guard<std::mutex> lock(g_lock);
    ++g_alarms;
    save_state();
    unsigned which = g_discovery;
    post_locked(0, [which] { stop_discovery_now(which); });
}

void begin_discovery() {
    unsigned which;
    BtOsCallouts *callouts;
    {
        std::lock_guard<std::mutex> lock(g_lock);
        if (!g_adapter_on) return;
        callouts = g_callouts;
        g_discovering = true;
        which = ++g_discovery;
        save_state();
    }
    // The stack holds a wake lock while it discovers, as Android's does.
    if (callouts && callouts->acquire_wake_lock) callouts->acquire_wake_lock("bt_discovery");
    report_discovery(true);

    int length = discovery_ms();
    auto devices = std::make_shared<std::vector<Device>>(listed_devices());
    // Which events a device gets: stage 2 only with a class, stage 3 only with a name.
    std::vector<std::pair<size_t, int>> events;
    for (int stage = 1; stage <= 3; ++stage)
        for (size_t i = 0; i < devices->size(); ++i) {
            const Device &d = (*devices)[i];
            if ((stage == 2 && !d.class_of_device) || (stage == 3 && d.name.empty())) continue;
            events.push_back({i, stage});
        }
    {
        std::lock_guard<std::mutex> lock(g_lock);
        for (size_t k = 0; k < events.size(); ++k) {
            // Spread over the discovery, and over its first three seconds at most.
            int window = length < kDefaultDiscoveryMs ? length : kDefaultDiscoveryMs;
            int at = static_cast<int>(static_cast<long long>(window) * static_cast<long long>(k + 1) /
                                      static_cast<long long>(events.size() + 1));
            size_t index = events[k].first;
            int stage = events[k].second;
            post_locked(at, [devices, index, stage, which] {
                report_device((*devices)[index], stage, which);
            });
        }
    }
    if (callouts && callouts->set_wake_alarm) {
        if (!callouts->set_wake_alarm(static_cast<uint64_t>(length), true, wake_alarm_fired, nullptr))
            post(length, [which] { stop_discovery_now(which); });
    } else {
        post(length, [which] { stop_discovery_now(which); });
    }
}

// ---- the interface --------------------------------------------------------------

// The adapter's address as the stack reports it, with the bt-props faults.
void report_address() {
    uint8_t address[6];
    std::string stored;
    if (!sim::read_file("store/BLUETOOTHADD", stored, 64) || !parse_address(stored, address))
        std::memcpy(address, kDefaultAddress, sizeof address);
    static const char kName[] = "ft-phone";
    BtProperty prop = {kBtPropAddress, 6, address};
    if (sim::fault("bt-props.no-address")) prop = {kBtPropName, sizeof kName - 1, const_cast<char *>(kName)};
    int status = sim::fault("bt-props.bad-status") ? kBtFail : kBtSuccess;
    if (g_callbacks && g_callbacks->adapter_properties) g_callbacks->adapter_properties(status, 1, &prop);
}

int stack_init(BtCallbacks *callbacks) {
    if (call_fails("init")) return kBtFail;
    std::lock_guard<std::mutex> lock(g_lock);
    if (g_callbacks) return kStatusDone;
    if (!callbacks || callbacks->size != sizeof(BtCallbacks)) return kBtFail;
    g_callbacks = callbacks;
    g_running = true;
    g_queue.clear();
    g_thread = new std::thread(event_loop);
    if (!g_exit_hook) g_exit_hook = std::atexit(stop_at_exit) == 0;
    save_state();
    return kBtSuccess;
}

int stack_set_os_callouts(BtOsCallouts *callouts) {
    if (call_fails("set_os_callouts")) return kBtFail;
    std::lock_guard<std::mutex> lock(g_lock);
    if (!callouts || callouts->size != sizeof(BtOsCallouts)) return kBtFail;
    g_callouts = callouts;
    return kBtSuccess;
}

int stack_enable(bool) {
    if (!g_callbacks) return kStatusNotReady;
    if (sim::fault("bt-enable-error") || call_fails("enable")) return kBtFail;
    post(kEnableMs, [] {
        if (sim::fault("bt-props.unsolicited")) report_address();
        report_adapter(true);
    });
    return kBtSuccess;
}

int stack_disable() {
    if (!g_callbacks) return kStatusNotReady;
    if (call_fails("disable")) return kBtFail;
    post(kDisableMs, [] {
        unsigned which;
        {
            std::lock_guard<std::mutex> lock(g_lock);
            which = g_discovery;
        }
        stop_discovery_now(which);
        report_adapter(false);
    });
    return kBtSuccess;
}

void stack_cleanup() {
    std::thread *thread;
    {
        std::lock_guard<std::mutex> lock(g_lock);
        if (!g_thread) return;
        g_running = false;
        g_wake.notify_all();
        thread = g_thread;
        g_thread = nullptr;
    }
    thread->join();
    delete thread;
    std::lock_guard<std::mutex> lock(g_lock);
    g_queue.clear();
    g_callbacks = nullptr;
    g_callouts = nullptr;
    g_adapter_on = false;
    g_discovering = false;
    save_state();
}

int stack_get_adapter_property(int type) {
    if (!g_callbacks) return kStatusNotReady;
    // The address and name are answered also while the adapter is off.
    if (type != kBtPropAddress) return kStatusNotReady;
    if (call_fails("get_adapter_property")) return kBtFail;
    post(kPropertyMs, report_address);
    return kBtSuccess;
}

int stack_start_discovery() {
    {
        std::lock_guard<std::mutex> lock(g_lock);
        if (!g_callbacks || !g_adapter_on) return kStatusNotReady;
    }
    if (call_fails("start_discovery")) return kBtFail;
    post(kDiscoveryStartMs, begin_discovery);
    return kBtSuccess;
}

int stack_cancel_discovery() {
    std::lock_guard<std::mutex> lock(g_lock);
    if (!g_callbacks || !g_discovering) return kStatusNotReady;
    if (call_fails("cancel_discovery")) return kBtFail;
    unsigned which = g_discovery;
    post_locked(kCancelMs, [which] { stop_discovery_now(which); });
    return kBtSuccess;
}

const BtInterface kInterface = [] {
    BtInterface bt{};
    bt.size = sizeof(BtInterface);
    bt.init = stack_init;
    bt.enable = stack_enable;
    bt.disable = stack_disable;
    bt.cleanup = stack_cleanup;
    bt.get_adapter_property = stack_get_adapter_property;
    bt.start_discovery = stack_start_discovery;
    bt.cancel_discovery = stack_cancel_discovery;
    bt.set_os_callouts = stack_set_os_callouts;
    return bt;
}();

const BtInterface *get_bluetooth_interface() { return call_fails("interface") ? nullptr : &kInterface; }

int close_device(HwDevice *) { return 0; }

BluetoothDevice g_device;

int open_module(const HwModule *module, const char *id, HwDevice **device) {
    if (!id || std::strcmp(id, "bluetooth") != 0) return -22;
    g_device = {};
    g_device.common.tag = 0x48574454;   // "HWDT"
    g_device.common.module = const_cast<HwModule *>(module);
    g_device.common.close = close_device;
    g_device.get_bluetooth_interface = get_bluetooth_interface;
    *device = &g_device.common;
    return 0;
}

HwModuleMethods g_methods = {open_module};

}  // namespace

extern "C" {
// The record the loader looks for.
__attribute__((visibility("default"))) HwModule HMI = {
    0x48574d54,   // "HWMT"
    1, 0, "bluetooth", "Simulated Bluetooth stack", "ftsim", &g_methods, nullptr, {},
};
}  // extern "C"
