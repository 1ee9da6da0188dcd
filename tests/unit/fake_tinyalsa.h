// Sound card 1 for the unit tests: every value set logged,
// the PCM's writes collected.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "platform/tinyalsa.h"

struct FakeCard {
    bool open_fails = false;
    std::set<std::string> missing;          // controls the card lacks
    std::vector<std::string> sets;          // "NAME[i]=v", in call order

    // The stream.
    const char *pcm_error = nullptr;        // set: the open is not ready, with this text
    bool write_fails = false;
    pcm_config config = {};
    int pcm_opens = 0, pcm_closes = 0;
    std::vector<size_t> writes;             // byte count of each write
    std::string played;
    std::function<void()> after_write;

    static FakeCard &get();
    void reset() { *this = FakeCard(); }
};
