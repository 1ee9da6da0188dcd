#include "audio/tone.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <pthread.h>
#include <thread>

#include "audio/mixer_paths.h"
#include "platform/numbers.h"
#include "platform/tinyalsa.h"
#include "platform/unique_fd.h"

namespace {

constexpr char kToneFile[] = "/system/media/audio/ui/dialtone.wav";
constexpr unsigned kCard = 1;
constexpr unsigned kToneDevice = 5;
constexpr unsigned kPeriodFrames = 160;
constexpr unsigned kPeriods = 4;

constexpr char kBadAction[] = "<action> must contain valid values (0 or 1)";
constexpr char kBadOutput[] = "<output> must contain valid values (0, 1, 2 or 3)";

// Console thread only: the device of the tone last started, -1 after a stop.
int g_tone_device = -1;
// Stops so far; each playback thread compares it with the count it started under.
std::atomic<unsigned> g_tone_stops{0};
// The count at the last start (console thread only).
unsigned g_stops_at_start = 0;
// Playback threads not yet ended: each holds the PCM until it does.
std::atomic<int> g_tone_threads{0};

// A stopped thread ends after the write in progress, a fraction of a second;
// a start waits that long for it to let go of the PCM, but no longer.
constexpr auto kStoppedThreadWait = std::chrono::seconds(2);
constexpr auto kStoppedThreadPoll = std::chrono::milliseconds(2);

struct PcmCloser {
    void operator()(pcm *p) const { pcm_close(p); }
};
using PcmHandle = std::unique_ptr<pcm, PcmCloser>;

struct ThreadAttr {
    pthread_attr_t attr;
    ThreadAttr() {
        pthread_attr_init(&attr);
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    }
    ~ThreadAttr() { pthread_attr_destroy(&attr); }
    ThreadAttr(const ThreadAttr &) = delete;
    ThreadAttr &operator=(const ThreadAttr &) = delete;
};

unsigned le16(const unsigned char *p) { return p[0] | p[1] << 8; }
uint32_t le32(const unsigned char *p) {
    return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24;
}

// Moves `n` bytes on; a chunk size may not fit a 32-bit long.
bool skip(std::FILE *f, uint32_t n) {
    constexpr uint32_t kStep = 1u << 30;
    while (n) {
        uint32_t step = n < kStep ? n : kStep;
        if (std::fseek(f, static_cast<long>(step), SEEK_CUR) != 0) return false;
        n -= step;
    }
    return true;
}

void *play_thread(void *arg) {
    ToneStop stop(g_tone_stops, static_cast<unsigned>(reinterpret_cast<uintptr_t>(arg)));
    {
        UniqueFile f(std::fopen(kToneFile, "rbe"));
        // A file without samples is as useless as a missing one.
        if (!f || play_sample(f.get(), stop) == kNoSamples)
            std::printf("play_thread : Unable to open file '%s'\n", kToneFile);
    }
    g_tone_threads.fetch_sub(1);
    return nullptr;
}

int stop_tone(int device) {
    g_tone_stops.fetch_add(1);
    mixer_ctl *ctl = find_control("audio_tone: ", output_switch_name(device));
    if (!ctl) return -1;
    set_output_switch(ctl, device, false);
    g_tone_device = -1;
    return 1;
}

void wait_for_stopped_threads() {
    // Only after a stop: a second start while a tone plays meets the busy PCM.
    if (g_tone_stops.load() == g_stops_at_start) return;
    auto deadline = std::chrono::steady_clock::now() + kStoppedThreadWait;
    while (g_tone_threads.load() > 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(kStoppedThreadPoll);
}

int start_tone(int device) {
    wait_for_stopped_threads();
    ThreadAttr attr;
    unsigned stops = g_tone_stops.load();
    g_stops_at_start = stops;
    g_tone_device = device;

    char dac[kControlNameSize];
    route_control_name(dac, device, kSourceDacR1);
    mixer_ctl *route = find_control("audio_tone: ", dac);
    if (!route) return -1;
    mixer_ctl_set_value(route, 0, 1);

    mixer_ctl *out = find_control("audio_tone: ", output_switch_name(device));
    if (!out) return -1;
    set_output_switch(out, device, true);

    g_tone_threads.fetch_add(1);
    pthread_t thread;
    void *arg = reinterpret_cast<void *>(static_cast<uintptr_t>(stops));
    if (pthread_create(&thread, &attr.attr, play_thread, arg) != 0) {
        g_tone_threads.fetch_sub(1);
        std::puts("audio_tone : Error creating thread");
        return -1;
    }
    return 1;
}

}  // namespace

bool find_wav_samples(std::FILE *f, WavFormat &fmt) {
    // "RIFF", the size, "WAVE": nothing we need.
    if (std::fseek(f, 12, SEEK_SET) != 0) return false;
    for (;;) {
        unsigned char header[8];
        if (std::fread(header, 1, sizeof header, f) != sizeof header) return false;
        uint32_t size = le32(header + 4);
        if (std::memcmp(header, "fmt ", 4) == 0) {
            unsigned char block[16];
            if (std::fread(block, 1, sizeof block, f) != sizeof block) return false;
            fmt.channels = le16(block + 2);
            fmt.rate = le32(block + 4);
            fmt.bits = le16(block + 14);
            if (size > sizeof block && !skip(f, size - sizeof block)) return false;
        } else if (std::memcmp(header, "data", 4) == 0) {
            return true;
        } else if (!skip(f, size)) {   // no pad byte after an odd size
            return false;
        }
    }
}

int play_sample(std::FILE *f, const ToneStop &stop) {
    WavFormat fmt;
    if (!find_wav_samples(f, fmt)) return kNoSamples;
    // The data chunk's size is not trusted: every pass plays to the end of the file.
    fpos_t samples;
    if (std::fgetpos(f, &samples) != 0) return kNoSamples;

    pcm_config config = {};
    config.channels = fmt.channels;
    config.rate = fmt.rate;
    config.period_size = kPeriodFrames;
    config.period_count = kPeriods;
    config.format = fmt.bits == 32 ? PCM_FORMAT_S32_LE : PCM_FORMAT_S16_LE;
    PcmHandle pcm(pcm_open(kCard, kToneDevice, PCM_OUT, &config));
    if (!pcm || !pcm_is_ready(pcm.get())) {
        std::printf("play_sample : Unable to open PCM device %u (%s)\n", kToneDevice,
                    pcm ? pcm_get_error(pcm.get()) : std::strerror(ENOMEM));
        return 0;
    }

    unsigned size = pcm_frames_to_bytes(pcm.get(), pcm_get_buffer_size(pcm.get()));
    std::unique_ptr<char[]> buf(size ? new (std::nothrow) char[size] : nullptr);
    if (!buf) {
        std::printf("play_sample : Unable to allocate %d bytes\n", static_cast<int>(size));
        return 0;
    }

    while (!stop.requested()) {
        bool played = false;
        for (;;) {
            size_t n = std::fread(buf.get(), 1, size, f);
            if (n == 0) break;
            played = true;
            if (pcm_write(pcm.get(), buf.get(), static_cast<unsigned>(n)) != 0) {
                std::puts("Error playing tone");
                break;
            }
            if (stop.requested()) break;
        }
        // Samples that are not there cannot be repeated: do not spin on them.
        if (!played || std::fsetpos(f, &samples) != 0) break;
    }
    return 0;
}

int audio_tone(const char *action, const char *device) {
    if (!action[0]) {
        std::puts(kBadAction);
        return -1;
    }
    int dev = g_tone_device;
    if (device[0]) {
        dev = parse_int(device);
    } else if (dev == -1) {
        std::puts(kBadOutput);
        return -1;
    }
    if (static_cast<unsigned>(dev) >= static_cast<unsigned>(kAudioDevices)) {
        std::puts(kBadOutput);
        return -1;
    }
    switch (parse_int(action)) {
    case 0:
        return stop_tone(dev);
    case 1:
        return start_tone(dev);
    default:
        std::puts(kBadAction);
        return -1;
    }
}
