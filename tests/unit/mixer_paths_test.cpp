#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "audio/mixer_paths.h"
#include "tests/unit/fake_shell.h"
#include "tests/unit/fake_tinyalsa.h"

namespace {

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

}  // namespace
