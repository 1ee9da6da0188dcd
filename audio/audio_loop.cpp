#include "audio/audio_loop.h"

#include <cstdio>

#include "audio/mixer_paths.h"
#include "platform/numbers.h"

namespace {

// The one loop route that can exist; input and output outlive a stop.
struct LoopState {
    bool running = false;
    int input = -1;
    int output = -1;
};
LoopState g_loop;

constexpr char kBothNeeded[] = "<input> and <output> must both be specified to start the test";
constexpr char kBadDevices[] = "<input> and <output> must contain valid values (0, 1, 2 or 3)";

bool is_device(int n) { return static_cast<unsigned>(n) < static_cast<unsigned>(kAudioDevices); }

}  // namespace

int audio_loop(const char *action, const char *input, const char *output) {
    switch (parse_int(action)) {
    case 1: {
        // A new start always removes the old route, even when its words are bad.
        if (g_loop.running) {
            stop_audio_loop(g_loop.input, g_loop.output);
            g_loop.running = false;
        }
        if (!input[0] && !output[0]) {
            std::puts(kBothNeeded);
            return -1;
        }
        int in = parse_int(input);
        int out = parse_int(output);
        if (!input[0] || !output[0] || !is_device(in) || !is_device(out)) {
            std::puts(kBadDevices);
            return -1;
        }
        // The route counts as set even when a control was missing part-way.
        start_audio_loop(in, out);
        g_loop = {true, in, out};
        return 0;
    }
    case 0:
        if (!g_loop.running) {
            std::puts("Audio Loop not started!");
            return -1;
        }
        stop_audio_loop(g_loop.input, g_loop.output);
        g_loop.running = false;
        return 0;
    default:
        std::puts("Invalid command - Invalid Action");
        return -1;
    }
}
