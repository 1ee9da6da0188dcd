// Cradle hookswitch, wired-headset hookswitch (EHS), the Bluetooth handset's
// cradle and its charger. States are files under accessories/; hookswitch and
// EHS events come through FIFOs there, one byte ('0' on hook, '1' off hook) per
// event, written by `ftsim hook` and `ftsim ehs`.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "platform/tolma.h"
#include "sim/common/phone.h"

namespace {

// Opened for reading and writing and kept for the process's life: the open
// never waits for a writer, an injector that closes is never an end of file,
// and events sent between two waits queue up.
int event_fifo(std::atomic<int> &fd, const char *rel) {
    int f = fd.load();
    if (f >= 0) return f;
    f = ::open(sim::phone_path(rel).c_str(), O_RDWR | O_CLOEXEC);
    if (f < 0) return -1;
    int expected = -1;
    if (!fd.compare_exchange_strong(expected, f)) {
        ::close(f);
        return expected;
    }
    return f;
}

// Blocks until the next event; a phone without the FIFO never has one. While
// `fault` holds, each call fails at once and is counted in log/<fault>.
int wait_event(std::atomic<int> &fd, const char *rel, const char *fault) {
    for (;;) {
        if (sim::fault(fault)) {
            sim::append_line(std::string("log/") + fault, "-1");
            return -1;
        }
        int f = event_fifo(fd, rel);
        char state;
        if (f >= 0) {
            ssize_t n = ::read(f, &state, 1);
            if (n == 1) return state == '0' ? 0 : 1;
            if (n < 0 && errno == EINTR) continue;
        }
        ::sleep(1);
    }
}

bool read_int(const std::string &rel, int &value) {
    std::string text;
    if (!sim::read_file(rel, text, 32) || text.empty()) return false;
    char *end = nullptr;
    long v = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str()) return false;
    value = static_cast<int>(v);
    return true;
}

std::atomic<int> g_hook_events{-1};
std::atomic<int> g_ehs_events{-1};

}  // namespace

extern "C" {

int CradleHookswitch_WaitForHookswitchEvent(void) {
    return wait_event(g_hook_events, "accessories/hook.events", "hook-wait");
}

int WiredHeadset_WaitForHookSwitchEvent(void) {
    return wait_event(g_ehs_events, "accessories/ehs.events", "ehs-wait");
}

int CradleHookswitch_GetState(int *state) {
    if (sim::fault("hook-state")) return -1;
    int v;
    if (!read_int("accessories/hook", v)) return -1;
    *state = v;
    return 0;
}

int BTHandsetCradle_IsConnected(int *state) {
    if (sim::fault("cradle-state")) return -1;
    int v;
    if (!read_int("accessories/cradle", v)) return -1;
    *state = v;
    return 0;
}

int BTHandsetCharger_SetState(int on) {
    if (sim::fault("charger")) return -1;
    const char *text = on ? "on" : "off";
    return sim::write_atomically("accessories/charger", text, on ? 2 : 3) ? 0 : -1;
}

}  // extern "C"
