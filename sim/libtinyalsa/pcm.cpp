// The playback stream of the simulated card. Like a driver, it takes one
// opener at a time and consumes frames at the stream's real rate: a write
// returns once the frames before the last whole buffer have been played. What
// it plays is kept as a WAV file, so a test can hear it back.
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <string>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include "platform/tinyalsa.h"
#include "sim/common/phone.h"
#include "sim/libtinyalsa/card.h"

struct pcm {
    pcm_config config;
    std::string node;          // "pcmC1D5p"
    std::string error;
    int node_fd = -1;          // holds the flock that makes a second open busy
    int wav_fd = -1;
    uint64_t frames = 0;       // written since the stream started
    bool started = false;
    struct timespec start {};  // when frame 0 was (or would have been) played
};

namespace {

constexpr unsigned kWavHeader = 44;
constexpr uint64_t kNsPerSec = 1000000000ull;

unsigned sample_bytes(pcm_format f) { return f == PCM_FORMAT_S32_LE ? 4 : 2; }
unsigned frame_bytes(const pcm *p) { return p->config.channels * sample_bytes(p->config.format); }

void put_le(unsigned char *p, uint32_t v, int n) {
    for (int i = 0; i < n; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

bool write_all(int fd, const void *data, size_t len, off_t at = -1) {
    const char *p = static_cast<const char *>(data);
    while (len) {
        ssize_t n = at < 0 ? ::write(fd, p, len) : ::pwrite(fd, p, len, at);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        len -= static_cast<size_t>(n);
        if (at >= 0) at += n;
    }
    return true;
}

void wav_header(unsigned char (&h)[kWavHeader], const pcm_config &c, uint32_t data_bytes) {
    unsigned bits = 8 * sample_bytes(c.format);
    std::memcpy(h, "RIFF", 4);
    put_le(h + 4, 36 + data_bytes, 4);
    std::memcpy(h + 8, "WAVEfmt ", 8);
    put_le(h + 16, 16, 4);
    put_le(h + 20, 1, 2);   // integer PCM
    put_le(h + 22, c.channels, 2);
    put_le(h + 24, c.rate, 4);
    put_le(h + 28, c.rate * c.channels * bits / 8, 4);
    put_le(h + 32, c.channels * bits / 8, 2);
    put_le(h + 34, bits, 2);
    std::memcpy(h + 36, "data", 4);
    put_le(h + 40, data_bytes, 4);
}

// The stream's format, for ftsim show; whether it plays is the node's lock.
void save_format(const pcm *p) {
    const pcm_config &c = p->config;
    std::string state = std::string("format=") +
                        (c.format == PCM_FORMAT_S32_LE ? "S32_LE" : "S16_LE") +
                        "\nchannels=" + std::to_string(c.channels) +
                        "\nrate=" + std::to_string(c.rate) +
                        "\nperiod_size=" + std::to_string(c.period_size) +
                        "\nperiod_count=" + std::to_string(c.period_count) + "\n";
    card::replace_file("run/" + p->node, state);
}

int fail(pcm *p, int err, const std::string &what) {
    p->error = what + ": " + std::strerror(err);
    errno = err;
    return -1;
}

// The codec's DAI takes 16- and 32-bit frames, mono or stereo, 8 to 48 kHz.
bool supported(const pcm_config &c) {
    return (c.format == PCM_FORMAT_S16_LE || c.format == PCM_FORMAT_S32_LE) &&
           (c.channels == 1 || c.channels == 2) && c.rate >= 8000 && c.rate <= 48000 &&
           c.period_size > 0 && c.period_count >= 2;
}

uint64_t ns(const timespec &t) { return static_cast<uint64_t>(t.tv_sec) * kNsPerSec + t.tv_nsec; }

timespec from_ns(uint64_t v) {
    timespec t;
    t.tv_sec = static_cast<time_t>(v / kNsPerSec);
    t.tv_nsec = static_cast<long>(v % kNsPerSec);
    return t;
}

uint64_t now_ns() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return ns(t);
}

void sleep_until(uint64_t when) {
    timespec t = from_ns(when);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &t, nullptr) == EINTR) {
    }
}

uint64_t frames_ns(uint64_t frames, unsigned rate) { return frames * kNsPerSec / rate; }

}  // namespace

extern "C" {

struct pcm *pcm_open(unsigned int card, unsigned int device, unsigned int flags,
                     struct pcm_config *config) {
    (void)flags;   // the card has playback streams only
    pcm *p = new (std::nothrow) pcm;
    if (!p) return nullptr;
    p->config = *config;
    p->node = card::pcm_node(card, device);
    std::string dev = "/dev/snd/" + p->node;

    p->node_fd = ::open(sim::phone_path("dev/snd/" + p->node).c_str(), O_RDWR | O_CLOEXEC);
    if (p->node_fd < 0) {
        fail(p, errno, "cannot open device '" + dev + "'");
        return p;
    }
    if (::flock(p->node_fd, LOCK_EX | LOCK_NB) != 0) {
        int err = errno == EWOULDBLOCK ? EBUSY : errno;
        ::close(p->node_fd);
        p->node_fd = -1;
        fail(p, err, "cannot open device '" + dev + "'");
        return p;
    }
    if (!supported(p->config)) {
        fail(p, EINVAL, "cannot set hw params");
        return p;
    }
    std::string wav = sim::phone_path("log/" + p->node + ".wav");
    p->wav_fd = ::open(wav.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    unsigned char h[kWavHeader];
    wav_header(h, p->config, 0);
    if (p->wav_fd < 0 || !write_all(p->wav_fd, h, sizeof h)) {
        fail(p, EIO, "cannot prepare channel");
        return p;
    }
    save_format(p);
    return p;
}

int pcm_close(struct pcm *p) {
    if (!p) return 0;
    if (p->wav_fd >= 0) ::close(p->wav_fd);
    bool held = p->node_fd >= 0;
    if (held) ::close(p->node_fd);   // lets the next opener in
    delete p;
    if (held) sim::note_change();    // the stream no longer plays
    return 0;
}

int pcm_is_ready(struct pcm *p) { return p->wav_fd >= 0; }

const char *pcm_get_error(struct pcm *p) { return p->error.c_str(); }

unsigned int pcm_get_buffer_size(struct pcm *p) {
    return p->config.period_size * p->config.period_count;
}

unsigned int pcm_frames_to_bytes(struct pcm *p, unsigned int frames) {
    return frames * frame_bytes(p);
}

int pcm_write(struct pcm *p, const void *data, unsigned int count) {
    if (!pcm_is_ready(p)) return fail(p, EBADFD, "cannot write stream data");
    uint64_t frames = count / frame_bytes(p);
    uint64_t buffer = pcm_get_buffer_size(p);
    unsigned rate = p->config.rate;

    uint64_t now = now_ns();
    if (!p->started) {
        p->started = true;
        p->start = from_ns(now);
    } else if (now > ns(p->start) + frames_ns(p->frames, rate)) {
        // Underrun: everything written has played. The stream restarts from here.
        p->start = from_ns(now - frames_ns(p->frames, rate));
    }

    if (card::fault("pcm-write")) {
        // A stalled DMA: the write waits for the frames' time, then gives up.
        sleep_until(now + frames_ns(frames, rate));
        p->start = from_ns(now_ns() - frames_ns(p->frames, rate));
        return fail(p, EIO, "cannot write stream data");
    }

    size_t bytes = frames * frame_bytes(p);
    if (!write_all(p->wav_fd, data, bytes)) return fail(p, EIO, "cannot write stream data");
    p->frames += frames;
    unsigned char size[4];
    uint32_t data_bytes = static_cast<uint32_t>(p->frames * frame_bytes(p));
    put_le(size, 36 + data_bytes, 4);
    write_all(p->wav_fd, size, 4, 4);
    put_le(size, data_bytes, 4);
    write_all(p->wav_fd, size, 4, 40);

    // Blocks while more than one buffer is waiting to be played.
    if (p->frames > buffer) sleep_until(ns(p->start) + frames_ns(p->frames - buffer, rate));
    return 0;
}

}  // extern "C"
