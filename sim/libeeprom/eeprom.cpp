// The simulated factory-data store: one file per parameter under store/ in the
// phone's folder, each replaced atomically, so a killed console never tears it.
#include "platform/eeprom.h"

#include <cstring>
#include <string>
#include <string_view>

#include "sim/common/phone.h"

namespace {

struct Param {
    const char *name;
    const char *alias;
};

constexpr Param kParams[] = {
#define PARAM(name, alias) {name, alias},
#include "sim/libeeprom/params.inc"
#undef PARAM
};
constexpr int kCount = sizeof kParams / sizeof kParams[0];
constexpr size_t kMaxValue = 32;   // what a slot of the medium holds
constexpr size_t kMaxWrite = 31;   // leaves room for the NUL

std::string slot(int index) { return std::string("store/") + kParams[index].name; }

bool valid(int index) { return index >= 0 && index < kCount; }

}  // namespace

extern "C" int eeprom_nameToIndex(const char *name) {
    if (!name) return -1;
    for (int i = 0; i < kCount; ++i)
        if (std::string_view(name) == kParams[i].name || std::string_view(name) == kParams[i].alias)
            return i;
    return -1;
}

extern "C" int eeprom_read(int index, char *buf, int size) {
    if (!valid(index) || !buf || size <= 0) return -1;
    if (sim::fault(std::string("store-read.") + kParams[index].name)) return -1;
    std::string value;
    sim::read_file(slot(index), value, kMaxValue);   // no file: never programmed
    size_t room = static_cast<size_t>(size);
    // Value and NUL when they fit; otherwise as many bytes as the buffer holds.
    if (value.size() + 1 <= room) {
        std::memcpy(buf, value.data(), value.size());
        buf[value.size()] = '\0';
    } else {
        std::memcpy(buf, value.data(), room);
    }
    return 0;
}

extern "C" int eeprom_write(int index, const char *value) {
    if (!valid(index) || !value) return -1;
    if (sim::fault(std::string("store-write.") + kParams[index].name)) return -1;
    size_t len = std::strlen(value);
    if (len > kMaxWrite) return -1;
    return sim::write_atomically(slot(index), value, len) ? 0 : -1;
}

extern "C" int eeprom_set_rw_mode(int mode) {
    if (sim::fault("store-mode")) return -1;
    if (mode != 0) return 0;
    // Leaving factory mode is what the operational mode records.
    return sim::write_atomically(slot(0), "1", 1) ? 0 : -1;
}
