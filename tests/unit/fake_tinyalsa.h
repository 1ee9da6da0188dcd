// Sound card 1 for the unit tests: every value set logged,
// the PCM's writes collected.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "platform/tinyalsa.h"

struct FakeCard {
    std::set<std::string> missing;          // controls the card lacks
    std::string last_set;                   // "NAME[i]=v"

    // The stream.
    const char *pcm_error = nullptr;        // set: the open is not ready, with this text
    pcm_config config = {};
    int pcm_opens = 0, pcm_closes = 0, writes = 0;
    std::string played;
    std::function<void()> after_write;
};

inline FakeCard g_card;
