#pragma once

#include <string>
#include <vector>

// The switch calls of the maker's library, recorded as "Name(args)", over a
// one-port model: what is set reads back, unless a test says otherwise.
struct FakeTolmaSwitch {
    std::vector<std::string> calls;
    int gigabit = 1;
    int configured = 1, actual = 1, status = 1, test_mode = 0;
    bool ignores_sets = false;   // the port keeps its read-back values
};

extern FakeTolmaSwitch tolma_switch;
