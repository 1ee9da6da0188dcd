#include "audio/mixer_paths.h"

#include <cstdio>
#include <iterator>

#include "platform/shell.h"
#include "platform/tinyalsa.h"

namespace {

constexpr unsigned kCard = 1;

constexpr const char *kLevels[] = {
    "PCM Playback Volume",
    "Left Line Mixer Line2R Bypass Volume",
    "Left Line Mixer PGAR Bypass Volume",
    "Left Line Mixer DACR1 Playback Volume",
    "Right Line Mixer Line2L Bypass Volume",
    "Right Line Mixer PGAL Bypass Volume",
    "Right Line Mixer DACL1 Playback Volume",
    "Left HP Mixer Line2R Bypass Volume",
    "Left HP Mixer PGAR Bypass Volume",
    "Left HP Mixer DACR1 Playback Volume",
    "Right HP Mixer Line2L Bypass Volume",
    "Right HP Mixer PGAL Bypass Volume",
    "Right HP Mixer DACL1 Playback Volume",
    "Line Line2 Bypass Volume",
    "Line PGA Bypass Volume",
    "Line DAC Playback Volume",
    "Mono Line2 Bypass Volume",
    "Mono PGA Bypass Volume",
    "Mono DAC Playback Volume",
    "HP Line2 Bypass Volume",
    "HP PGA Bypass Volume",
    "HP DAC Playback Volume",
    "PGA Capture Volume",
};
constexpr int kPlaybackLevel = 100;      // "PCM Playback Volume" at start-up and section508 0
constexpr int kAccessibleLevel = 127;    // section508 1
constexpr int kBypassLevel = 118;        // every other level

// Handset and Speakerphone share the two channels of the line output.
constexpr const char *kOutputSwitches[kAudioDevices] = {
    "Line Playback Switch", "Mono Playback Switch", "Line Playback Switch", "HP Playback Switch"};
constexpr int kMonoOutput = 1;           // one value only
constexpr int kHeadsetOutput = 3;        // two output mixers

// Inputs of the right capture amplifier; the last one belongs to no input number.
constexpr const char *kInputSwitches[] = {
    "Right PGA Mixer Line1R Switch", "Right PGA Mixer Line2R Switch",
    "Right PGA Mixer Line1L Switch", "Right PGA Mixer Mic3L Switch",
    "Right PGA Mixer Mic3R Switch"};
constexpr const char kCaptureSwitch[] = "PGA Capture Switch";

// Output mixers, by output number; the last is the headset's second mixer.
constexpr const char *kRoutePrefixes[] = {"Right Line ", "Mono ", "Left Line ", "Right HP ",
                                          "Left HP "};
constexpr int kLeftHpPrefix = 4;
// Sources of an output mixer.
constexpr const char *kRouteSuffixes[] = {
    "Mixer Line2L Bypass Switch", "Mixer PGAL Bypass Switch", "Mixer DACL1 Switch",
    "Mixer Line2R Bypass Switch", "Mixer DACR1 Switch",       "Mixer PGAR Bypass Switch"};
constexpr int kSourcePgaRBypass = 5;

constexpr const char kAmpEnable[] = "echo 1 > /sys/class/audio_ports_ctl/wired_handset/amp_enable";
constexpr const char kAmpGainOn[] = "echo 1 > /sys/class/audio_ports_ctl/wired_handset/amp_gain";
constexpr const char kAmpGainOff[] = "echo 0 > /sys/class/audio_ports_ctl/wired_handset/amp_gain";

// Opened once at start-up and never closed; null when the card is missing.
mixer *g_mixer = nullptr;

void set_all_values(mixer_ctl *ctl, int value) {
    unsigned n = mixer_ctl_get_num_values(ctl);
    for (unsigned i = 0; i < n; ++i) mixer_ctl_set_value(ctl, i, value);
}

// Leaves only the right capture amplifier's bypass on in the output mixer `prefix`.
bool route_pga_bypass_only(int prefix) {
    for (int s = 0; s < static_cast<int>(std::size(kRouteSuffixes)); ++s) {
        char name[kControlNameSize];
        route_control_name(name, prefix, s);
        mixer_ctl *ctl = find_control("start_audio_loop : ", name);
        if (!ctl) return false;
        mixer_ctl_set_value(ctl, 0, s == kSourcePgaRBypass ? 1 : 0);
    }
    return true;
}

bool clear_pga_bypass(int prefix) {
    char name[kControlNameSize];
    route_control_name(name, prefix, kSourcePgaRBypass);
    mixer_ctl *ctl = find_control("stop_audio_loop : ", name);
    if (!ctl) return false;
    mixer_ctl_set_value(ctl, 0, 0);
    return true;
}

}  // namespace

void route_control_name(char (&name)[kControlNameSize], int prefix, int suffix) {
    // The longest composed name has 35 characters: it always fits.
    std::snprintf(name, sizeof name, "%s%s", kRoutePrefixes[prefix], kRouteSuffixes[suffix]);
}

const char *output_switch_name(int output) { return kOutputSwitches[output]; }

mixer_ctl *find_control(const char *who, const char *name) {
    mixer_ctl *ctl = g_mixer ? mixer_get_ctl_by_name(g_mixer, name) : nullptr;
    if (!ctl) std::printf("%sFailed to get mixer control for %s\n", who, name);
    return ctl;
}

void set_output_switch(mixer_ctl *ctl, int output, bool on) {
    if (!on) {
        mixer_ctl_set_value(ctl, 0, 0);
        if (output != kMonoOutput) mixer_ctl_set_value(ctl, 1, 0);
        return;
    }
    switch (output) {
    case 0:   // handset: the right channel of the line output
        mixer_ctl_set_value(ctl, 0, 0);
        mixer_ctl_set_value(ctl, 1, 1);
        break;
    case 1:
        mixer_ctl_set_value(ctl, 0, 1);
        break;
    case 2:   // speakerphone: the left channel of the line output
        mixer_ctl_set_value(ctl, 0, 1);
        mixer_ctl_set_value(ctl, 1, 0);
        break;
    default:
        mixer_ctl_set_value(ctl, 0, 1);
        mixer_ctl_set_value(ctl, 1, 1);
        break;
    }
}

void initialize_audio() {
    g_mixer = mixer_open(kCard);
    if (!g_mixer) {
        std::puts("initialize_audio : mixer_open failed");
        return;
    }
    for (size_t i = 0; i < std::size(kLevels); ++i) {
        mixer_ctl *ctl = find_control("initialize_audio: ", kLevels[i]);
        if (!ctl) return;
        set_all_values(ctl, i == 0 ? kPlaybackLevel : kBypassLevel);
    }
    for (int output = 0; output < kAudioDevices; ++output) {
        mixer_ctl *ctl = find_control("initialize_audio: ", kOutputSwitches[output]);
        if (!ctl) return;
        set_output_switch(ctl, output, false);
    }
    shell_run(kAmpEnable);
}

void start_audio_loop(int input, int output) {
    for (int i = 0; i < static_cast<int>(std::size(kInputSwitches)); ++i) {
        mixer_ctl *ctl = find_control("start_audio_loop : ", kInputSwitches[i]);
        if (!ctl) return;
        mixer_ctl_set_value(ctl, 0, i == input ? 1 : 0);
    }
    mixer_ctl *capture = find_control("start_audio_loop : ", kCaptureSwitch);
    if (!capture) return;
    mixer_ctl_set_value(capture, 0, 0);   // left capture channel off
    mixer_ctl_set_value(capture, 1, 1);   // right on

    if (!route_pga_bypass_only(output)) return;
    if (output == kHeadsetOutput && !route_pga_bypass_only(kLeftHpPrefix)) return;

    mixer_ctl *out = find_control("start_audio_loop : ", kOutputSwitches[output]);
    if (!out) return;
    set_output_switch(out, output, true);
}

void stop_audio_loop(int input, int output) {
    mixer_ctl *capture = find_control("stop_audio_loop : ", kCaptureSwitch);
    if (!capture) return;
    mixer_ctl_set_value(capture, 0, 0);
    mixer_ctl_set_value(capture, 1, 0);

    mixer_ctl *in = find_control("stop_audio_loop : ", kInputSwitches[input]);
    if (!in) return;
    mixer_ctl_set_value(in, 0, 0);

    if (!clear_pga_bypass(output)) return;
    if (output == kHeadsetOutput && !clear_pga_bypass(kLeftHpPrefix)) return;

    mixer_ctl *out = find_control("stop_audio_loop : ", kOutputSwitches[output]);
    if (!out) return;
    set_output_switch(out, output, false);
}

int audio_section508_gain(const char *action) {
    // The control is looked up before the action is looked at.
    mixer_ctl *ctl = find_control("audio_section508_gain: ", kLevels[0]);
    if (!ctl) return -1;
    switch (action[0]) {
    case '1':
        shell_run(kAmpGainOn);
        set_all_values(ctl, kAccessibleLevel);
        return 0;
    case '0':
        shell_run(kAmpGainOff);
        set_all_values(ctl, kPlaybackLevel);
        return 0;
    default:
        std::puts("FAIL\nft : Err Invalid action");
        return -1;
    }
}
