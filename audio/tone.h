// tone <action> <device>: the dial tone on one speaker, played by a detached
// thread until the next stop.
#pragma once

#include <atomic>
#include <cstdio>

// 1 when a tone was started or stopped, -1 otherwise. Prints nothing on success.
int audio_tone(const char *action, const char *device);

// ---- the playback thread's parts ----

// One playback thread's stop flag. Every stop counts once on `stops`; a thread
// started while the count stood at `seen` owns every stop after that, so a
// thread released by a stop never plays on under a later start.
class ToneStop {
public:
    ToneStop(const std::atomic<unsigned> &stops, unsigned seen) : stops_(stops), seen_(seen) {}
    bool requested() const { return stops_.load() != seen_; }

private:
    const std::atomic<unsigned> &stops_;
    unsigned seen_;
};

// The format block of a WAV file's "fmt " chunk, the fields playback uses.
struct WavFormat {
    unsigned channels = 0;
    unsigned rate = 0;
    unsigned bits = 0;
};

// Walks the chunks of the WAV file `f` (at its start) up to the "data" chunk
// and leaves `f` at the first sample byte. False when the file ends first.
bool find_wav_samples(std::FILE *f, WavFormat &fmt);

constexpr int kNoSamples = -1;

// Plays the samples of `f` to PCM 5 of card 1, from the first sample to the end
// of the file, pass after pass, until `stop` is requested. Prints its own
// failures; kNoSamples (nothing printed) when the file has no "data" chunk.
int play_sample(std::FILE *f, const ToneStop &stop);
