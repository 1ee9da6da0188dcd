// An in-memory factory-data store for the unit tests.
#pragma once

#include <string>
#include <vector>

struct FakeEeprom {
    std::vector<std::string> values = std::vector<std::string>(33);
    int fail_read = -1;       // this index fails to read
    int fail_write = -1;      // this index refuses writes
    int mode_calls = 0;
    int writes = 0;

    static FakeEeprom &get();
    void reset() { *this = FakeEeprom(); }
};
