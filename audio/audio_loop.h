// loop <action> <input> <output>: one microphone heard on one speaker.
#pragma once

// 0 when a loop was started or stopped, -1 otherwise. Prints nothing on success.
int audio_loop(const char *action, const char *input, const char *output);
