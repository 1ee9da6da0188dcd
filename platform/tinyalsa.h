// tinyalsa, the system's small ALSA library: the mixer and PCM calls the audio
// tests use, nothing more. Handles are opaque and owned by the library.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

struct mixer;
struct mixer_ctl;
struct pcm;

// ---- Mixer ----

// Opens the control interface of sound card `card`; null on failure.
struct mixer *mixer_open(unsigned int card);
// The control called `name`; null when the card has none. The mixer owns it.
struct mixer_ctl *mixer_get_ctl_by_name(struct mixer *mixer, const char *name);
// How many values the control carries (2 for a stereo control).
unsigned int mixer_ctl_get_num_values(struct mixer_ctl *ctl);
// Sets value number `id`; 0, or a negative errno.
int mixer_ctl_set_value(struct mixer_ctl *ctl, unsigned int id, int value);

// ---- PCM ----

#define PCM_OUT 0x00000000

enum pcm_format {
    PCM_FORMAT_S16_LE = 0,
    PCM_FORMAT_S32_LE = 1,
};

struct pcm_config {
    unsigned int channels;
    unsigned int rate;
    unsigned int period_size;     // frames
    unsigned int period_count;
    enum pcm_format format;
    // 0 takes the library's default: start and stop at the whole buffer,
    // silence threshold and size 0.
    unsigned int start_threshold;
    unsigned int stop_threshold;
    unsigned int silence_threshold;
    unsigned int silence_size;
    // Frames free before an mmap write goes ahead; 0 for the default.
    int avail_min;
};

#ifdef __cplusplus
// The system library reads the whole record: a field short would leave it
// reading past the caller's zeroed configuration.
static_assert(sizeof(struct pcm_config) == 10 * sizeof(unsigned int), "pcm_config layout");
#endif

// Opens PCM `device` of `card`. Always check pcm_is_ready(): a failed open may
// still return a handle that carries the error text; pcm_close() frees either.
struct pcm *pcm_open(unsigned int card, unsigned int device, unsigned int flags,
                     struct pcm_config *config);
int pcm_close(struct pcm *pcm);
// Non-zero when the open succeeded.
int pcm_is_ready(struct pcm *pcm);
// The text of the last error on this handle.
const char *pcm_get_error(struct pcm *pcm);
// The stream's whole buffer, in frames.
unsigned int pcm_get_buffer_size(struct pcm *pcm);
unsigned int pcm_frames_to_bytes(struct pcm *pcm, unsigned int frames);
// Writes `count` bytes of interleaved frames, blocking while the buffer is full.
// 0 on success.
int pcm_write(struct pcm *pcm, const void *data, unsigned int count);

#ifdef __cplusplus
}
#endif
