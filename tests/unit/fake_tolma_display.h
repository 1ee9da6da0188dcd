#pragma once

#include <string>
#include <vector>

// The backlight and LED calls of the maker's library, recorded as "Name(args)".
struct FakeTolmaDisplay {
    std::vector<std::string> calls;
    int result = 0;       // what every setter returns
    int max_result = 0;   // what Backlight_GetMaxBrightness returns; 0 hands out 255
};

extern FakeTolmaDisplay tolma_display;
