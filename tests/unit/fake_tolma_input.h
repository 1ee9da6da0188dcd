// Fake of the maker library's accessory and jack calls: answers set by the test.
#pragma once

#include <vector>

struct FakeAccessories {
    int hook_result = 0;
    int hook_state = 0;
    int cradle_result = 0;
    int cradle_state = 1;
    int charger_result = 0;
    std::vector<int> charger_calls;
    int headset_result = 0;
    int headset_type = 4;
    int corvine = 0;
};

FakeAccessories &fake_accessories();
