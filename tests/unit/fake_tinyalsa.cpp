#include "tests/unit/fake_tinyalsa.h"

#include <map>

struct mixer {};
struct mixer_ctl {
    std::string name;
};
struct pcm {};

namespace {

// Stereo controls of the codec; every other control has one value.
bool is_stereo(const std::string &name) {
    static const std::set<std::string> kStereo = {
        "PCM Playback Volume",  "Line Playback Switch",   "HP Playback Switch",
        "PGA Capture Switch",   "PGA Capture Volume",     "Line Line2 Bypass Volume",
        "Line PGA Bypass Volume", "Line DAC Playback Volume", "Mono Line2 Bypass Volume",
        "Mono PGA Bypass Volume", "Mono DAC Playback Volume", "HP Line2 Bypass Volume",
        "HP PGA Bypass Volume", "HP DAC Playback Volume"};
    return kStereo.count(name) > 0;
}

mixer g_mixer;
std::map<std::string, mixer_ctl> g_ctls;
pcm g_pcm;

}  // namespace

FakeCard &FakeCard::get() {
    static FakeCard card;
    return card;
}

extern "C" {

mixer *mixer_open(unsigned int card) {
    return card == 1 && !FakeCard::get().open_fails ? &g_mixer : nullptr;
}

mixer_ctl *mixer_get_ctl_by_name(mixer *, const char *name) {
    if (FakeCard::get().missing.count(name)) return nullptr;
    mixer_ctl &ctl = g_ctls[name];
    ctl.name = name;
    return &ctl;
}

unsigned int mixer_ctl_get_num_values(mixer_ctl *ctl) { return is_stereo(ctl->name) ? 2 : 1; }

int mixer_ctl_set_value(mixer_ctl *ctl, unsigned int id, int value) {
    FakeCard &card = FakeCard::get();
    card.sets.push_back(ctl->name + "[" + std::to_string(id) + "]=" + std::to_string(value));
    return id < mixer_ctl_get_num_values(ctl) ? 0 : -22;
}

pcm *pcm_open(unsigned int, unsigned int, unsigned int, pcm_config *config) {
    FakeCard &card = FakeCard::get();
    card.config = *config;
    ++card.pcm_opens;
    return &g_pcm;
}

int pcm_close(pcm *) {
    ++FakeCard::get().pcm_closes;
    return 0;
}

int pcm_is_ready(pcm *) { return FakeCard::get().pcm_error == nullptr; }

const char *pcm_get_error(pcm *) { return FakeCard::get().pcm_error; }

unsigned int pcm_get_buffer_size(pcm *) {
    const pcm_config &c = FakeCard::get().config;
    return c.period_size * c.period_count;
}

unsigned int pcm_frames_to_bytes(pcm *, unsigned int frames) {
    const pcm_config &c = FakeCard::get().config;
    return frames * c.channels * (c.format == PCM_FORMAT_S32_LE ? 4 : 2);
}

int pcm_write(pcm *, const void *data, unsigned int count) {
    FakeCard &card = FakeCard::get();
    card.writes.push_back(count);
    if (!card.write_fails) card.played.append(static_cast<const char *>(data), count);
    if (card.after_write) card.after_write();
    return card.write_fails ? -1 : 0;
}

}  // extern "C"
