#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "audio/mixer_paths.h"
#include "tests/unit/fake_shell.h"
#include "tests/unit/fake_tinyalsa.h"

namespace {

using Sets = std::vector<std::string>;

// Each routine stops at the first missing control and undoes nothing.
TEST(MixerPaths, AMissingControlStopsTheRoutineWhereItIs) {
    struct Case {
        const char *missing;
        bool no_card;
        std::function<void()> call;
        const char *out;
        const char *last_set;       // "" for none
        size_t shell;
    } cases[] = {
        {"", true, [] { initialize_audio(); }, "initialize_audio : mixer_open failed\n", "", 0},
        {"", true, [] { EXPECT_EQ(audio_section508_gain("1"), -1); },
         "audio_section508_gain: Failed to get mixer control for PCM Playback Volume\n", "", 0},
        {"", true, [] { start_audio_loop(0, 0); },
         "start_audio_loop : Failed to get mixer control for Right PGA Mixer Line1R Switch\n", "",
         0},
        {"Mono Playback Switch", false, [] { initialize_audio(); },
         "initialize_audio: Failed to get mixer control for Mono Playback Switch\n",
         "Line Playback Switch[1]=0", 0},
        {"Left HP Mixer DACL1 Switch", false, [] { start_audio_loop(1, 3); },
         "start_audio_loop : Failed to get mixer control for Left HP Mixer DACL1 Switch\n",
         "Left HP Mixer PGAL Bypass Switch[0]=0", 0},
        {"Left HP Mixer PGAR Bypass Switch", false, [] { stop_audio_loop(1, 3); },
         "stop_audio_loop : Failed to get mixer control for Left HP Mixer PGAR Bypass Switch\n",
         "Right HP Mixer PGAR Bypass Switch[0]=0", 0},
        {"PCM Playback Volume", false, [] { EXPECT_EQ(audio_section508_gain("x"), -1); },
         "audio_section508_gain: Failed to get mixer control for PCM Playback Volume\n", "", 0},
    };
    for (const Case &c : cases) {
        FakeCard &card = FakeCard::get();
        card.reset();
        card.open_fails = c.no_card;
        initialize_audio();   // the mixer handle, as start-up leaves it
        card.missing = {c.missing};
        card.sets.clear();
        shell_calls().clear();

        testing::internal::CaptureStdout();
        c.call();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out) << c.missing;
        EXPECT_EQ(card.sets.empty() ? "" : card.sets.back(), c.last_set) << c.missing;
        EXPECT_EQ(shell_calls().size(), c.shell) << c.missing;
    }
}

TEST(MixerPaths, LoopRouteSetsAndClearsInTheCodecsOrder) {
    FakeCard &card = FakeCard::get();
    card.reset();
    initialize_audio();
    card.sets.clear();
    start_audio_loop(2, 0);
    stop_audio_loop(2, 0);
    EXPECT_EQ(card.sets, (Sets{
        "Right PGA Mixer Line1R Switch[0]=0", "Right PGA Mixer Line2R Switch[0]=0",
        "Right PGA Mixer Line1L Switch[0]=1", "Right PGA Mixer Mic3L Switch[0]=0",
        "Right PGA Mixer Mic3R Switch[0]=0",
        "PGA Capture Switch[0]=0", "PGA Capture Switch[1]=1",
        "Right Line Mixer Line2L Bypass Switch[0]=0", "Right Line Mixer PGAL Bypass Switch[0]=0",
        "Right Line Mixer DACL1 Switch[0]=0", "Right Line Mixer Line2R Bypass Switch[0]=0",
        "Right Line Mixer DACR1 Switch[0]=0", "Right Line Mixer PGAR Bypass Switch[0]=1",
        "Line Playback Switch[0]=0", "Line Playback Switch[1]=1",
        // stop
        "PGA Capture Switch[0]=0", "PGA Capture Switch[1]=0",
        "Right PGA Mixer Line1L Switch[0]=0", "Right Line Mixer PGAR Bypass Switch[0]=0",
        "Line Playback Switch[0]=0", "Line Playback Switch[1]=0"}));

    // The output switch patterns, on then off.
    const Sets patterns[] = {
        {"Mono Playback Switch[0]=1", "Mono Playback Switch[0]=0"},
        {"Line Playback Switch[0]=1", "Line Playback Switch[1]=0", "Line Playback Switch[0]=0",
         "Line Playback Switch[1]=0"},
        {"HP Playback Switch[0]=1", "HP Playback Switch[1]=1", "HP Playback Switch[0]=0",
         "HP Playback Switch[1]=0"},
    };
    for (int output = 1; output < kAudioDevices; ++output) {
        card.sets.clear();
        start_audio_loop(0, output);
        Sets tail(card.sets.end() - patterns[output - 1].size() / 2, card.sets.end());
        stop_audio_loop(0, output);
        tail.insert(tail.end(), card.sets.end() - patterns[output - 1].size() / 2, card.sets.end());
        EXPECT_EQ(tail, patterns[output - 1]) << output;
    }
}

}  // namespace
