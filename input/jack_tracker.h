// What the headset jack's reader makes of the records it reads: the plug's
// switch states, and the lines the station sees for plugs and buttons.
#pragma once

#include <atomic>
#include <cstdint>

#include "input/event_devices.h"

// Set by the console's commands, read by the reader.
struct JackReporting {
    std::atomic<bool> detection{false};    // jackdet: plugs in and out
    std::atomic<bool> buttons{false};      // jackkeydet: headset buttons A to D
    std::atomic<bool> line_start{true};    // a line end goes before the next handled record
};

// Owned by the reader thread alone.
class JackTracker {
public:
    void handle(const InputEvent &ev, JackReporting &reporting);

private:
    // Each prints at most one line, `fresh` in front of it; true when it did.
    bool print(const InputEvent &ev, JackReporting &reporting, bool detection, const char *fresh);
    bool endOfGroup(bool detection, const char *fresh);

    int plug_ = -1;               // physical-insertion switch; -1 until it first reports
    bool plug_changed_ = false;   // since the last synchronisation record
    int headphone_ = 0;
    uint8_t microphone_ = 0;      // a byte: only the value's low 8 bits count
};
