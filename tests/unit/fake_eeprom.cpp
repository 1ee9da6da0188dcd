#include "tests/unit/fake_eeprom.h"

#include <cstring>

#include "factory/params.h"
#include "platform/eeprom.h"

FakeEeprom &FakeEeprom::get() {
    static FakeEeprom store;
    return store;
}

extern "C" int eeprom_nameToIndex(const char *name) {
    for (int i = 0; i < kFactoryParamCount; ++i)
        if (!std::strcmp(name, factoryParamTable[i].name) ||
            !std::strcmp(name, factoryParamTable[i].alias))
            return i;
    return -1;
}

extern "C" int eeprom_read(int index, char *buf, int size) {
    FakeEeprom &s = FakeEeprom::get();
    if (index < 0 || index >= 33 || index == s.fail_read) return -1;
    const std::string &v = s.values[index];
    // Like a raw copy: the NUL only when it fits.
    size_t n = v.size() + 1 <= static_cast<size_t>(size) ? v.size() + 1 : size;
    std::memcpy(buf, v.c_str(), n);
    return 0;
}

extern "C" int eeprom_write(int index, const char *value) {
    FakeEeprom &s = FakeEeprom::get();
    ++s.writes;
    if (index == s.fail_write) return -1;
    s.values[index] = value;
    return 0;
}

extern "C" int eeprom_set_rw_mode(int mode) {
    FakeEeprom &s = FakeEeprom::get();
    ++s.mode_calls;
    if (mode == 0) s.values[0] = "1";
    return 0;
}
