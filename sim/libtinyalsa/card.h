// Sound card 1 of the simulated phone, kept in the phone's folder:
//   dev/snd/controlC1      every control, one "NAME=VALUE[,VALUE...]" line each
//   dev/snd/pcmC1D5p       the playback node (held with flock while open)
//   run/pcmC1D5p           the format of the stream last opened, for ftsim show
//   log/pcmC1D5p.wav       the frames written since the stream was opened
// Unplugging the card moves dev/snd away. Everything is re-read at every call.
#pragma once

#include <string>

namespace card {

std::string control_file(unsigned card);
std::string pcm_node(unsigned card, unsigned device);   // e.g. "pcmC1D5p"

// True while `./ftsim fault PHONE NAME` holds. The playback thread may still be
// writing while the console exits, so this avoids the calls the preload library
// wraps (their tables are torn down at exit).
bool fault(const std::string &name);

// Replaces `rel` for readers in one step (no fsync: a mixer is not worth it),
// then counts a change of the phone.
bool replace_file(const std::string &rel, const std::string &data);

}  // namespace card
