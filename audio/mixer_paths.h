// The codec's mixer: the one open handle of the process, the control names
// every audio command uses, and the routes built from them.
//
// Device numbers, for inputs and outputs alike: 0 Handset, 1 Wired Headset,
// 2 Speakerphone (its microphone for inputs), 3 3.5mm Headset. Callers check
// the numbers before they call in here.
#pragma once

#include <cstddef>

struct mixer_ctl;

constexpr int kAudioDevices = 4;

// Opens the mixer of card 1 for the life of the process, sets the start-up
// levels, turns every output off and enables the wired-handset amplifier.
void initialize_audio();

// Routes microphone `input` to speaker `output` through the right capture
// amplifier's bypass, and undoes it.
void start_audio_loop(int input, int output);
void stop_audio_loop(int input, int output);

// section508 <action>: '1' sets the accessibility gain, '0' clears it.
// 0 when the gain was set, -1 otherwise.
int audio_section508_gain(const char *action);

// ---- shared with the tone command ----

// The route control of an output mixer's source: "Right Line " + "Mixer DACR1 Switch".
constexpr size_t kControlNameSize = 64;
constexpr int kSourceDacR1 = 4;
void route_control_name(char (&name)[kControlNameSize], int prefix, int suffix);

// The output switch control of `output`.
const char *output_switch_name(int output);

// The control `name`, or null after printing "<who>Failed to get mixer control
// for <name>" (who carries its own separator, e.g. "audio_tone: ").
mixer_ctl *find_control(const char *who, const char *name);

// Sets an output's switch control on or off in the codec's order.
void set_output_switch(mixer_ctl *ctl, int output, bool on);
