#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "input/jack_tracker.h"
#include "tests/unit/fake_tolma_input.h"

namespace {

constexpr unsigned short SYN = EV_SYN, SW = EV_SW;

struct Record {
    unsigned short type, code;
    int value;
};

struct Group {
    bool detection, buttons;
    int headset_type;   // as the platform answers for a headset with a microphone
    std::vector<Record> records;
    const char *out;
};

// One reader's records, group by group, with the reporting switched as a station does.
TEST(JackTracker, PlugStatesAcrossReportingSwitches) {
    const Group groups[] = {
        // A removal without its switch records is named from the old states, which are reset after
        // the line...
        {true, false, 4, {{SW, 2, 1}, {SW, 4, 1}, {SW, 7, 1}, {SYN, 0, 0}, {SW, 7, 0}, {SYN, 0, 0}},
         "\nJACK = OMTP\nJACK = OMTP\n"},
        // ...so a bare insertion afterwards is "none", not a headset.
        {true, false, 4, {{SW, 7, 1}, {SYN, 0, 0}, {SW, 7, 0}, {SYN, 0, 0}}, "JACK = none\nJACK = none\n"},
        // Buttons only: the plug is tracked, not shown, and named at a removal seen with detection on.
        {false, true, 4, {{SW, 2, 1}, {SW, 7, 1}, {SYN, 0, 0}}, ""},
        {true, false, 4, {{SW, 7, 0}, {SYN, 0, 0}}, "JACK = no mic\n"},
        // The headphone switch may report any non-zero value.
        {true, false, 4, {{SW, 2, 5}, {SW, 7, 1}, {SYN, 0, 0}}, "JACK = no mic\n"},
        // Headset types other than CTIA and OMTP are named "mic".
        {true, false, 0, {{SW, 7, 0}, {SYN, 0, 0}, {SW, 4, 1}, {SW, 7, 1}, {SYN, 0, 0}},
         "JACK = no mic\nJACK = mic\n"},
        {true, false, 5, {{SW, 7, 0}, {SYN, 0, 0}}, "JACK = mic\n"},
        // The microphone state is a byte: a value of 256 is no microphone.
        {true, false, 4, {{SW, 4, 256}, {SW, 7, 1}, {SYN, 0, 0}}, "JACK = none\n"},
    };
    JackReporting reporting;
    JackTracker tracker;
    for (const Group &g : groups) {
        reporting.detection = g.detection;
        reporting.buttons = g.buttons;
        fake_headset_type = g.headset_type;
        testing::internal::CaptureStdout();
        for (const Record &r : g.records) tracker.handle({{}, r.type, r.code, r.value}, reporting);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), g.out) << "group " << &g - groups;
    }
}

}  // namespace
