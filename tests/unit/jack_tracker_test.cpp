#include <gtest/gtest.h>

#include <string>

#include "input/jack_tracker.h"
#include "tests/unit/fake_tolma_input.h"

namespace {

struct JackStep {
    bool detection, buttons;
    unsigned short type, code;
    int value;
    const char *out;
};

constexpr unsigned short SYN = EV_SYN, KEY = EV_KEY, SW = EV_SW;

// One plug's life through the reader, with the reporting switched as a station does.
TEST(JackTracker, PlugsButtonsAndReportingSwitches) {
    const JackStep steps[] = {
        // Detection on: a headset with a microphone, typed by the platform (OMTP).
        {true, false, SW, 2, 1, "\n"},
        {true, false, SW, 4, 1, ""},
        {true, false, SW, 7, 1, ""},
        {true, false, SYN, 0, 0, "JACK = OMTP\n"},
        {true, false, SYN, 0, 0, ""},                   // nothing changed since
        {true, false, SW, 7, 1, ""},                    // same insertion value: no change
        {true, false, SYN, 0, 0, ""},
        {true, false, KEY, 582, 1, ""},                 // buttons not reported
        {true, false, SW, 9, 1, "Unknown jack event: keyCode[0009] value[1]\n"},
        // A removal without its switch records is named from the old states,
        // which are reset after the line...
        {true, false, SW, 7, 0, ""},
        {true, false, SYN, 0, 0, "JACK = OMTP\n"},
        // ...so a bare insertion afterwards is "none", not a headset.
        {true, false, SW, 7, 1, ""},
        {true, false, SYN, 0, 0, "JACK = none\n"},
        {true, false, SW, 7, 0, ""},
        {true, false, SYN, 0, 0, "JACK = none\n"},
        // Buttons only: states tracked, plugs not shown.
        {false, true, SW, 2, 1, ""},
        {false, true, SW, 7, 1, ""},
        {false, true, SYN, 0, 0, ""},
        {false, true, KEY, 226, 1, "jackKeyCode[A] value[1]\n"},
        {false, true, KEY, 115, 0, "jackKeyCode[B] value[0]\n"},
        {false, true, KEY, 114, 2, "jackKeyCode[C] value[2]\n"},
        {false, true, KEY, 28, 1, "Unknown jack event: keyCode[001c] value[1]\n"},
        // Both off: dropped, not tracked; the stale plug state then hides a removal.
        {false, false, SW, 7, 0, ""},
        {false, false, SYN, 0, 0, ""},
        {false, false, SW, 9, 1, ""},
        {true, false, SW, 7, 1, ""},
        {true, false, SYN, 0, 0, ""},
        {true, false, SW, 7, 0, ""},
        {true, false, SYN, 0, 0, "JACK = no mic\n"},   // headphones seen while buttons only
        // Headphones only.
        {true, false, SW, 2, 5, ""},
        {true, false, SW, 7, 1, ""},
        {true, false, SYN, 0, 0, "JACK = no mic\n"},
    };
    fake_accessories().headset_result = 0;
    fake_accessories().headset_type = 4;
    JackReporting reporting;
    JackTracker tracker;
    int n = 0;
    for (const JackStep &s : steps) {
        reporting.detection = s.detection;
        reporting.buttons = s.buttons;
        InputEvent ev{};
        ev.type = s.type;
        ev.code = s.code;
        ev.value = s.value;
        testing::internal::CaptureStdout();
        tracker.handle(ev, reporting);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), s.out) << "step " << n;
        ++n;
    }
}

struct TypeCase {
    int result, type;
    const char *line;
};

// Whatever the platform answers, a headset with a microphone is named.
TEST(JackTracker, HeadsetTypeFromThePlatform) {
    const TypeCase cases[] = {
        {0, 3, "JACK = CTIA\n"}, {0, 4, "JACK = OMTP\n"}, {0, 2, "JACK = mic\n"},
        {0, 0, "JACK = mic\n"},  {0, 5, "JACK = mic\n"},  {-1, 4, "JACK = mic\n"},
    };
    for (const TypeCase &c : cases) {
        fake_accessories().headset_result = c.result;
        fake_accessories().headset_type = c.type;
        JackReporting reporting;
        reporting.detection = true;
        reporting.line_start = false;
        JackTracker tracker;
        testing::internal::CaptureStdout();
        for (unsigned short code : {4, 7}) tracker.handle({{}, SW, code, 1}, reporting);
        tracker.handle({{}, SYN, 0, 0}, reporting);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.line) << c.result << " " << c.type;
    }
}

}  // namespace
