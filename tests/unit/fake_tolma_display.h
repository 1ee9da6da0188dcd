#pragma once

#include <string>
#include <vector>

// The backlight and LED calls of the maker's library, recorded as "Name(args)".
struct FakeTolmaDisplay {
    std::vector<std::string> calls;
    int result = 0;         // what every setter returns
    int max = 255;          // the maximum brightness handed out
    int max_result = 0;     // what Backlight_GetMaxBrightness returns

    void reset() { *this = FakeTolmaDisplay{}; }
};

FakeTolmaDisplay &tolma_display();
