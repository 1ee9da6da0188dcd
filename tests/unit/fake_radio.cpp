#include "tests/unit/fake_radio.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include "platform/hardware.h"
#include "platform/kernel_modules.h"
#include "platform/load_file.h"
#include "platform/tolma.h"
#include "tests/unit/fake_fb_driver.h"
#include "wireless/pause.h"

FakeRadio &FakeRadio::get() {
    static FakeRadio radio;
    return radio;
}

void FakeRadio::reset() { *this = FakeRadio{}; }

void FakeRadio::post(unsigned ms, std::function<void()> event) {
    events.push_back({now_us + ms * 1000ull, std::move(event)});
}

namespace {

FakeRadio &radio() { return FakeRadio::get(); }

void fake_sleep(unsigned long us) {
    FakeRadio &r = radio();
    r.now_us += us;
    if (r.now_us >= r.interrupt_at) {
        r.interrupt_at = ~0ull;
        std::raise(SIGINT);
    }
    // Due events, earliest first; an event may post more.
    for (;;) {
        auto due = std::min_element(r.events.begin(), r.events.end(),
                                    [](auto &a, auto &b) { return a.first < b.first; });
        if (due == r.events.end() || due->first > r.now_us) return;
        auto event = std::move(due->second);
        r.events.erase(due);
        event();
    }
}

// /proc/modules as the fake kernel lists it, in a file of its own.
const char *modules_file() {
    static char path[] = "/tmp/ft_unit_modules_XXXXXX";
    static int fd = mkstemp(path);
    std::string text;
    for (const std::string &m : radio().listed) text += m + " 16384 0 - Live 0xbf000000\n";
    if (fd >= 0 && ftruncate(fd, 0) == 0) pwrite(fd, text.data(), text.size(), 0);
    return path;
}

// The one open of the unit tests: the other fakes' nodes go through it too.
const char *redirect(const char *path) {
    return path && std::strcmp(path, "/proc/modules") == 0 ? modules_file() : fake_device_path(path);
}

template <typename Fn>
Fn real(const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

// ---- the stack -------------------------------------------------------------------

void report_state(int state) { radio().callbacks->adapter_state_changed(state); }
void report_discovery(int state) { radio().callbacks->discovery_state_changed(state); }

int stack_init(BtCallbacks *cb) {
    if (cb->size != sizeof(BtCallbacks)) return kBtFail;
    radio().callbacks = cb;
    return kBtSuccess;
}
int stack_set_os_callouts(BtOsCallouts *c) {
    return c->size == sizeof(BtOsCallouts) ? kBtSuccess : kBtFail;
}
int stack_enable(bool) {
    radio().post(250, [] { report_state(kBtStateOn); });
    return kBtSuccess;
}
int stack_disable() {
    radio().post(100, [] { report_state(kBtStateOff); });
    return kBtSuccess;
}
void stack_cleanup() {}
int stack_start_discovery() {
    radio().post(50, [] {
        report_discovery(kBtDiscoveryStarted);
        for (auto &event : radio().discovery) {
            radio().post(event.first, [&event] {
                radio().callbacks->device_found(static_cast<int>(event.second.size()),
                                                event.second.data());
            });
        }
        if (radio().ends_discovery) radio().post(3000, [] { report_discovery(kBtDiscoveryStopped); });
    });
    return kBtSuccess;
}
int stack_cancel_discovery() {
    ++radio().cancels;
    radio().post(20, [] { report_discovery(kBtDiscoveryStopped); });
    return kBtSuccess;
}

const BtInterface *interface() {
    static BtInterface bt = [] {
        BtInterface b{};
        b.size = sizeof b;
        b.init = stack_init;
        b.enable = stack_enable;
        b.disable = stack_disable;
        b.cleanup = stack_cleanup;
        b.start_discovery = stack_start_discovery;
        b.cancel_discovery = stack_cancel_discovery;
        b.set_os_callouts = stack_set_os_callouts;
        return b;
    }();
    return &bt;
}

int open_device(const HwModule *, const char *, HwDevice **device) {
    static BluetoothDevice dev = [] {
        BluetoothDevice d{};
        d.get_bluetooth_interface = interface;
        return d;
    }();
    *device = &dev.common;
    return 0;
}

FILE *redirected_fopen(const char *name, const char *path, const char *mode) {
    return real<FILE *(*)(const char *, const char *)>(name)(redirect(path), mode);
}

int redirected_open(const char *name, const char *path, int flags, va_list ap) {
    mode_t mode = (flags & O_CREAT) ? va_arg(ap, mode_t) : 0;
    return real<int (*)(const char *, int, ...)>(name)(redirect(path), flags, mode);
}

std::string module_of(const char *path) {
    std::string name = std::strrchr(path, '/') + 1;
    return name.substr(0, name.size() - 3);
}

}  // namespace

void use_fake_clock() { wireless_sleep_us = fake_sleep; }

extern "C" {

void *load_file(const char *path, unsigned *size) {
    if (radio().missing.count(module_of(path))) return nullptr;
    *size = static_cast<unsigned>(std::strlen(path));
    return strdup(path);
}

int init_module(const void *image, unsigned long, const char *params) {
    std::string name = module_of(static_cast<const char *>(image));
    radio().calls.push_back("init_module " + name + " " + params);
    if (std::count(radio().listed.begin(), radio().listed.end(), name)) return errno = EEXIST, -1;
    radio().listed.push_back(name);
    return 0;
}

int delete_module(const char *name, unsigned int flags) {
    radio().calls.push_back(std::string("delete_module ") + name +
                            (flags == (O_NONBLOCK | O_EXCL) ? "" : " bad flags"));
    auto &l = radio().listed;
    auto it = std::find(l.begin(), l.end(), name);
    if (it == l.end()) return errno = ENOENT, -1;
    if (radio().busy.count(name)) return errno = EAGAIN, -1;
    if (!radio().stuck.count(name)) l.erase(it);
    return 0;
}

int hw_get_module(const char *id, const HwModule **module) {
    static HwModuleMethods methods = {open_device};
    static HwModule hmi = {0, 1, 0, "bluetooth", "fake", "tests", &methods, nullptr, {}};
    if (std::strcmp(id, "bluetooth") != 0) return -ENOENT;
    *module = &hmi;
    return 0;
}

int Cap_WiFi(int *present) { return *present = 1, 0; }
int Cap_Bluetooth(int *present) { return *present = 0, 0; }

FILE *fopen(const char *path, const char *mode) { return redirected_fopen("fopen", path, mode); }
int open(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    int fd = redirected_open("open", path, flags, ap);
    va_end(ap);
    return fd;
}
// With 64-bit file offsets (the armhf build) fopen and open already are the
// *64 symbols: defined once.
#ifndef __USE_FILE_OFFSET64
FILE *fopen64(const char *path, const char *mode) { return redirected_fopen("fopen64", path, mode); }
int open64(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    int fd = redirected_open("open64", path, flags, ap);
    va_end(ap);
    return fd;
}
#endif
int access(const char *path, int mode) {
    if (std::strcmp(path, "/dev/mbtchar0") == 0) return 0;
    return real<int (*)(const char *, int)>("access")(path, mode);
}

}  // extern "C"
