#include <gtest/gtest.h>

#include <functional>

#include "audio/mixer_paths.h"
#include "tests/unit/fake_shell.h"
#include "tests/unit/fake_tinyalsa.h"

namespace {

// Each routine stops at the first missing control, undoes nothing and runs no
// shell command.
TEST(MixerPaths, AMissingControlStopsTheRoutineWhereItIs) {
    struct Case {
        const char *missing;
        std::function<void()> call;
        const char *out;
        const char *last_set;       // "" for none
    } cases[] = {
        {"Mono Playback Switch", [] { initialize_audio(); },
         "initialize_audio: Failed to get mixer control for Mono Playback Switch\n",
         "Line Playback Switch[1]=0"},
        {"Left HP Mixer DACL1 Switch", [] { start_audio_loop(1, 3); },
         "start_audio_loop : Failed to get mixer control for Left HP Mixer DACL1 Switch\n",
         "Left HP Mixer PGAL Bypass Switch[0]=0"},
        {"Left HP Mixer PGAR Bypass Switch", [] { stop_audio_loop(1, 3); },
         "stop_audio_loop : Failed to get mixer control for Left HP Mixer PGAR Bypass Switch\n",
         "Right HP Mixer PGAR Bypass Switch[0]=0"},
    };
    for (const Case &c : cases) {
        g_card = FakeCard();
        initialize_audio();   // the mixer handle, as start-up leaves it
        g_card.missing = {c.missing};
        g_card.last_set.clear();
        shell_calls().clear();

        testing::internal::CaptureStdout();
        c.call();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out) << c.missing;
        EXPECT_EQ(g_card.last_set, c.last_set) << c.missing;
        EXPECT_TRUE(shell_calls().empty()) << c.missing;
    }
}

}  // namespace
