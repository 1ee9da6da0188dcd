#include "input/jack_tracker.h"

#include <cstdio>

#include "platform/tolma.h"

namespace {

// Switch and button codes as the jack's driver sends them.
constexpr unsigned kSync = 0;
constexpr unsigned kHeadphoneSwitch = 2;
constexpr unsigned kMicrophoneSwitch = 4;
constexpr unsigned kInsertSwitch = 7;

struct JackButton {
    unsigned code;
    char name;
};
constexpr JackButton kButtons[] = {{226, 'A'}, {115, 'B'}, {114, 'C'}, {582, 'D'}};

constexpr const char *kHeadsetTypes[] = {"none", "no mic", "mic", "CTIA", "OMTP"};
constexpr int kMic = 2, kCtia = 3, kOmtp = 4;

}  // namespace

void JackTracker::handle(const InputEvent &ev, JackReporting &reporting) {
    bool detection = reporting.detection.load();
    if (!detection && !reporting.buttons.load()) return;
    // The fresh-line line end goes out with the record's own line, in one call;
    // alone when the record prints nothing.
    const char *fresh = reporting.line_start.exchange(false) ? "\n" : "";
    if (!print(ev, reporting, detection, fresh) && fresh[0]) std::putchar('\n');
}

bool JackTracker::print(const InputEvent &ev, JackReporting &reporting, bool detection,
                        const char *fresh) {
    switch (ev.code) {
    case kSync:
        return endOfGroup(detection, fresh);
    case kHeadphoneSwitch:
        headphone_ = ev.value != 0 ? 1 : 0;
        return false;
    case kMicrophoneSwitch:
        microphone_ = static_cast<uint8_t>(ev.value);
        return false;
    case kInsertSwitch:
        if (ev.value != plug_) {
            plug_ = ev.value;
            plug_changed_ = true;
        }
        return false;
    }
    for (const JackButton &b : kButtons) {
        if (ev.code != b.code) continue;
        if (!reporting.buttons.load()) return false;
        std::printf("%sjackKeyCode[%c] value[%d]\n", fresh, b.name, ev.value);
        return true;
    }
    std::printf("%sUnknown jack event: keyCode[%04x] value[%d]\n", fresh,
                static_cast<unsigned>(ev.code), ev.value);
    return true;
}

bool JackTracker::endOfGroup(bool detection, const char *fresh) {
    if (!plug_changed_) return false;
    plug_changed_ = false;
    bool printed = false;
    if (detection) {
        int index = headphone_;
        if (microphone_ != 0) {
            int type = kMic;
            index = Jack_GetHeadsetType(&type) == 0 && (type == kCtia || type == kOmtp) ? type : kMic;
        }
        std::printf("%sJACK = %s\n", fresh, kHeadsetTypes[index]);
        printed = true;
    }
    if (plug_ == 0) {
        headphone_ = 0;
        microphone_ = 0;
    }
    return printed;
}
