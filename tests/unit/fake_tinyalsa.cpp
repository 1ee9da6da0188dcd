#include "tests/unit/fake_tinyalsa.h"

#include <map>

struct mixer {};
struct mixer_ctl {
    std::string name;
};
struct pcm {};

namespace {

mixer g_mixer;
std::map<std::string, mixer_ctl> g_ctls;
pcm g_pcm;

}  // namespace

extern "C" {

mixer *mixer_open(unsigned int card) { return card == 1 ? &g_mixer : nullptr; }

mixer_ctl *mixer_get_ctl_by_name(mixer *, const char *name) {
    return g_card.missing.count(name) ? nullptr : &(g_ctls[name] = mixer_ctl{name});
}

// The codec's routing switches and its mono output are its only one-value controls.
unsigned int mixer_ctl_get_num_values(mixer_ctl *ctl) {
    const std::string &n = ctl->name;
    return n.find("Mixer") == std::string::npos && n != "Mono Playback Switch" ? 2 : 1;
}

int mixer_ctl_set_value(mixer_ctl *ctl, unsigned int id, int value) {
    g_card.last_set = ctl->name + "[" + std::to_string(id) + "]=" + std::to_string(value);
    return id < mixer_ctl_get_num_values(ctl) ? 0 : -22;
}

pcm *pcm_open(unsigned int, unsigned int, unsigned int, pcm_config *config) {
    g_card.config = *config;
    ++g_card.pcm_opens;
    return &g_pcm;
}

int pcm_close(pcm *) {
    ++g_card.pcm_closes;
    return 0;
}

int pcm_is_ready(pcm *) { return g_card.pcm_error == nullptr; }

const char *pcm_get_error(pcm *) { return g_card.pcm_error; }

unsigned int pcm_get_buffer_size(pcm *) {
    return g_card.config.period_size * g_card.config.period_count;
}

unsigned int pcm_frames_to_bytes(pcm *, unsigned int frames) {
    return frames * g_card.config.channels * (g_card.config.format == PCM_FORMAT_S32_LE ? 4 : 2);
}

int pcm_write(pcm *, const void *data, unsigned int count) {
    ++g_card.writes;
    g_card.played.append(static_cast<const char *>(data), count);
    if (g_card.after_write) g_card.after_write();
    return 0;
}

}  // extern "C"
