#include "input/jack.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "input/event_devices.h"
#include "input/jack_tracker.h"
#include "platform/tolma.h"

namespace {

constexpr int kStopSignal = SIGUSR2;

struct JackReader {
    std::atomic<int> fd{-1};
    pthread_t thread{};
    std::atomic<bool> stop{false};
    JackReporting reporting;
    JackTracker tracker;   // the reader thread's own
};

JackReader g_jack;

bool isJackInputDevice(int fd) {
    char name[kEventIdSize];
    if (!queryEventId(fd, EVIOCGNAME(kEventIdSize - 1), name)) {
        std::puts("isJackInputDevice(): failed to obtain name of event device");
        return false;
    }
    const char *accepted =
        is_corvine_entry() ? "quen tdm audio card 3.5 Headset Jack" : "trs_headset";
    return std::strcmp(name, accepted) == 0;
}

int openInputDevice() { return openEventDevice("openInputDevice", isJackInputDevice); }

void jackStopHandler(int) { g_jack.stop.store(true); }

bool isJackRecord(uint16_t type) { return type == EV_SW || type == EV_SYN || type == EV_KEY; }

EventRead readJackEvent(InputEvent &ev) {
    return readEventRecord("readJackEvent", g_jack.fd, g_jack.stop, kStopSignal, isJackRecord, ev);
}

void *jackTrackThread(void *) {
    if (g_jack.fd.load() < 0) {
        std::puts("jackTrackThread(): fail - event device is not open");
        return readerExit(-1);
    }
    if (!installStopHandler(kStopSignal, jackStopHandler)) {
        std::puts("jackTrackThread(): fail - can't set signal handler");
        return readerExit(-1);
    }
    while (!g_jack.stop.load()) {
        InputEvent ev;
        if (readJackEvent(ev) == EventRead::kRecord) g_jack.tracker.handle(ev, g_jack.reporting);
    }
    return readerExit(0);
}

// jackdet and jackkeydet differ only in the flag they set and their word.
int setJackReporting(const char *mode, std::atomic<bool> &flag, const char *test) {
    if (!mode) {
        std::puts("jackTest(): fail - NULL pointer");
        return -1;
    }
    if (g_jack.fd.load() < 0) {
        std::puts("jackTest(): fail - event device is not open");
        return -1;
    }
    int on = readModeWord(mode);
    if (on < 0) {
        std::puts("Incorrect parameter");
        return -1;
    }
    flag.store(on == 1);
    g_jack.reporting.line_start.store(true);
    std::printf("%s %s test\n", on ? "Start" : "Stop", test);
    return 0;
}

}  // namespace

int jackTestInit() {
    g_jack.fd.store(openInputDevice());
    if (g_jack.fd.load() == -1) {
        std::puts("jackTestInit(): fail - 3.5 headset event device can't be opened");
        return -1;
    }
    if (startEventReader(g_jack.thread, jackTrackThread, kStopSignal) != 0) {
        close(g_jack.fd.exchange(-1));
        std::puts("jackTestInit(): fail - thread can't be created");
        return -1;
    }
    return 0;
}

int jackTestDestroy() {
    return stopEventReader(g_jack.fd, g_jack.thread, kStopSignal, "jackTestDestroy");
}

int jackTest(const char *mode) {
    return setJackReporting(mode, g_jack.reporting.detection, "jackdet");
}

int jackKeyTest(const char *mode) {
    return setJackReporting(mode, g_jack.reporting.buttons, "jackkeydet");
}
