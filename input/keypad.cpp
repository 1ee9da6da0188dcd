#include "input/keypad.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "input/event_devices.h"

namespace {

static_assert(std::atomic<bool>::is_always_lock_free, "the stop handler writes a flag");
static_assert(std::atomic<int>::is_always_lock_free, "the descriptor is shared with the reader");

constexpr int kStopSignal = SIGUSR1;

struct KeypadReader {
    std::atomic<int> fd{-1};
    pthread_t thread{};
    std::atomic<bool> stop{false};
    std::atomic<bool> reporting{false};
    std::atomic<bool> line_start{true};
};

KeypadReader g_key;

constexpr const char *kKeypadLocations[] = {"gpio-keys/input0", "gpio-matrix-keypad/input0"};

bool isKeypadDevice(int fd) {
    char location[kEventIdSize];
    if (!queryEventId(fd, EVIOCGPHYS(kEventIdSize - 1), location)) {
        std::puts("isKeypadDevice(): failed to obtain location of event device");
        return false;
    }
    for (const char *accepted : kKeypadLocations)
        if (std::strcmp(location, accepted) == 0) return true;
    return false;
}

int openKeypadDevice() { return openEventDevice("openKeypadDevice", isKeypadDevice); }

void keyStopHandler(int) { g_key.stop.store(true); }

bool isKeyRecord(uint16_t type) { return type == EV_KEY; }

EventRead readKeyEvent(InputEvent &ev) {
    return readEventRecord("readKeyEvent", g_key.fd, g_key.stop, kStopSignal, isKeyRecord, ev);
}

void *keyTrackThread(void *) {
    if (g_key.fd.load() < 0) {
        std::puts("keyTrackThread(): fail - event device is not open");
        return readerExit(-1);
    }
    if (!installStopHandler(kStopSignal, keyStopHandler)) {
        std::puts("keyTrackThread(): fail - can't set signal handler");
        return readerExit(-1);
    }
    while (!g_key.stop.load()) {
        InputEvent ev;
        if (readKeyEvent(ev) != EventRead::kRecord) continue;
        if (!g_key.reporting.load()) continue;
        // The fresh-line line end and the event line go out in one call: a
        // console line printed meanwhile never splits them.
        const char *fresh = g_key.line_start.exchange(false) ? "\n" : "";
        std::printf("%sKeyCode[%04x] value[%d]\n", fresh, static_cast<unsigned>(ev.code), ev.value);
    }
    return readerExit(0);
}

}  // namespace

int keyTestInit() {
    g_key.fd.store(openKeypadDevice());
    if (g_key.fd.load() == -1) {
        std::puts("keyTestInit(): fail - keypad device can't be opened");
        return -1;
    }
    if (startEventReader(g_key.thread, keyTrackThread, kStopSignal) != 0) {
        close(g_key.fd.exchange(-1));
        std::puts("keyTestInit(): fail - thread can't be created");
        return -1;
    }
    return 0;
}

int keyTestDestroy() { return stopEventReader(g_key.fd, g_key.thread, kStopSignal, "keyTestDestroy"); }

int keyTest(const char *mode) {
    if (!mode) {
        std::puts("keyTest(): fail - NULL pointer");
        return -1;
    }
    if (g_key.fd.load() < 0) {
        std::puts("keyTest(): fail - event device is not open");
        return -1;
    }
    int on = readModeWord(mode);
    if (on < 0) {
        std::puts("Incorrect parameter");
        return -1;
    }
    g_key.reporting.store(on == 1);
    g_key.line_start.store(true);
    std::printf("%s keypad test\n", on ? "Start" : "Stop");
    return 0;
}
