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
    if (reporting.line_start.exchange(false)) std::putchar('\n');

    switch (ev.code) {
    case kSync:
        endOfGroup(detection);
        return;
    case kHeadphoneSwitch:
        headphone_ = ev.value != 0 ? 1 : 0;
        return;
    case kMicrophoneSwitch:
        microphone_ = static_cast<uint8_t>(ev.value);
        return;
    case kInsertSwitch:
        if (ev.value != plug_) {
            plug_ = ev.value;
            plug_changed_ = true;
        }
        return;
    }
    for (const JackButton &b : kButtons) {
        if (ev.code != b.code) continue;
        if (reporting.buttons.load()) std::printf("jackKeyCode[%c] value[%d]\n", b.name, ev.value);
        return;
    }
    std::printf("Unknown jack event: keyCode[%04x] value[%d]\n", static_cast<unsigned>(ev.code),
                ev.value);
}

void JackTracker::endOfGroup(bool detection) {
    if (!plug_changed_) return;
    plug_changed_ = false;
    if (detection) {
        int index = headphone_;
        if (microphone_ != 0) {
            int type = kMic;
            index = Jack_GetHeadsetType(&type) == 0 && (type == kCtia || type == kOmtp) ? type : kMic;
        }
        std::printf("JACK = %s\n", kHeadsetTypes[index]);
    }
    if (plug_ == 0) {
        headphone_ = 0;
        microphone_ = 0;
    }
}
