#include "input/hookswitch.h"

#include <atomic>
#include <cstdio>
#include <pthread.h>

#include "input/event_devices.h"
#include "platform/tolma.h"

namespace {

// The two readers differ only in their wait call and their words.
struct HookReader {
    int (*wait)();
    const char *event_line;   // "<NAME> event: [" ... "]"
    const char *test;         // the command, for its start and stop lines
    const char *title;        // ... and for "already been"
    const char *who;          // the handler's name in its failures

    pthread_t thread{};
    bool has_thread = false;
    std::atomic<bool> stop{false};
    std::atomic<bool> reporting{false};
    std::atomic<bool> line_start{true};   // only before the very first event line
};

HookReader g_hookswitch{CradleHookswitch_WaitForHookswitchEvent, "HOOKSWITCH", "hookswitch",
                        "Hookswitch", "hookswitchTest"};
HookReader g_ehs{WiredHeadset_WaitForHookSwitchEvent, "EHS", "ehs", "Ehs", "ehsTest"};

const char *hookStateName(int state) { return state == 0 ? "ON HOOK" : "OFF HOOK"; }

void *trackHook(HookReader &r) {
    while (!r.stop.load()) {
        int state = r.wait();
        if (state == -1) {
            // Not signalled at quit: the pause only has to end with the process.
            pauseReader(0, r.stop);
            continue;
        }
        if (!r.reporting.load()) continue;
        const char *fresh = r.line_start.exchange(false) ? "\n" : "";
        std::printf("%s%s event: [%s]\n", fresh, r.event_line, hookStateName(state));
    }
    return readerExit(0);
}

void *hookswitchTrackThread(void *) { return trackHook(g_hookswitch); }
void *ehsTrackThread(void *) { return trackHook(g_ehs); }

int startHookReader(HookReader &r, void *(*entry)(void *), const char *init_name) {
    r.stop.store(false);
    int err = pthread_create(&r.thread, nullptr, entry, nullptr);
    if (err != 0) {
        std::printf("%s(): fail - thread can't be created, error=%d\n", init_name, err);
        r.has_thread = false;
        return -1;
    }
    r.has_thread = true;
    return 0;
}

// The thread is neither signalled nor joined: it leaves its loop when its
// current wait returns, or ends with the process.
void stopHookReader(HookReader &r) {
    r.reporting.store(false);
    r.stop.store(true);
    r.has_thread = false;
}

// Words 0 and 1 switch the reporting; -1 when the word is neither.
int switchHookReporting(HookReader &r, const char *mode) {
    int on = readModeWord(mode);
    if (on < 0) return -1;
    if (r.reporting.load() != (on == 1)) {
        std::printf("%s %s test\n", on ? "Start" : "Stop", r.test);
        r.reporting.store(on == 1);
    } else {
        std::printf("%s test has already been %s\n", r.title, on ? "started" : "stopped");
    }
    return 0;
}

int badHookWord(HookReader &r, const char *mode) {
    std::printf("%s(): fail - incorrect parameter [%s]\n", r.who, mode);
    return -1;
}

}  // namespace

int hookswitchTestInit() {
    return startHookReader(g_hookswitch, hookswitchTrackThread, "hookswitchTestInit");
}

int ehsTestInit() { return startHookReader(g_ehs, ehsTrackThread, "ehsTestInit"); }

void hookswitchTestDestroy() { stopHookReader(g_hookswitch); }

void ehsTestDestroy() { stopHookReader(g_ehs); }

int hookswitchTest(const char *mode) {
    if (!mode) {
        std::puts("hookswitchTest(): fail - NULL pointer");
        return -1;
    }
    if (switchHookReporting(g_hookswitch, mode) == 0) return 0;
    if (mode[0] != '2' || mode[1] != '\0') return badHookWord(g_hookswitch, mode);
    int state = 2;
    int ret = CradleHookswitch_GetState(&state);
    if (ret != 0) {
        std::puts("FAIL");
        return ret;
    }
    std::printf("HOOKSWITCH state: [%s]\nPASS\n", hookStateName(state));
    return 0;
}

int ehsTest(const char *mode) {
    if (!mode) {
        std::puts("ehsTest(): fail - NULL pointer");
        return -1;
    }
    if (switchHookReporting(g_ehs, mode) == 0) return 0;
    return badHookWord(g_ehs, mode);
}
