// Capability queries: what `ftsim set PHONE cap-wifi|cap-bt 0|1` says (fitted by
// default); the faults cap-wifi-error and cap-bt-error make the call fail (-1).
#include <string>

#include "platform/tolma.h"
#include "sim/common/phone.h"

namespace {

int capability(const char *setting, int *present) {
    if (!present || sim::fault(std::string(setting) + "-error")) return -1;
    std::string value;
    *present = sim::read_file(std::string("wireless/") + setting, value, 8) && !value.empty() &&
                       value[0] == '0'
                   ? 0
                   : 1;
    return 0;
}

}  // namespace

extern "C" int Cap_WiFi(int *present) { return capability("cap-wifi", present); }
extern "C" int Cap_Bluetooth(int *present) { return capability("cap-bt", present); }
