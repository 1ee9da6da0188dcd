#include "factory/program.h"

#include <cstdio>
#include <cstring>
#include <string_view>
#include <unistd.h>

#include "factory/params.h"
#include "platform/eeprom.h"
#include "platform/numbers.h"
#include "platform/shell.h"

namespace {

struct InfoLine {
    const char *name;
    const char *label;
};

constexpr InfoLine kInfoLines[] = {
    {"MODEL_NUM", "Model"},
    {"ID_LCD_GLASS", "LCD"},
    {"HW_VER", "HW Version"},
    {"GEN_VER", "Gen Version"},
    {"ETHERADD", "MAC"},
    {"OPERATIONAL_MODE", "Operational Mode"},
    {"CONFIGDATA_DES_SUPPORT", "ConfigData Des Support"},
};

constexpr int kModeBufferSize = 28;

bool is_list_target(std::string_view t) { return t == "ict" || t == "all"; }

}  // namespace

int info() {
    std::printf("Factory Test %s %s\n", __DATE__, __TIME__);
    for (const InfoLine &line : kInfoLines)
        if (printFactoryParam(line.name, line.label) < 0) return -1;
    return 0;
}

int programWrite(const char *name, const char *value) {
    if (!value || !value[0]) {
        std::puts("FAIL");
        return -1;
    }
    int index = eeprom_nameToIndex(name);
    if (index < 0) {
        std::puts("FAIL");
        return -1;
    }
    if (eeprom_write(index, value) < 0) {
        std::puts("FAIL");
        return 1;
    }
    std::puts("PASS");
    return 0;
}

// The store has no commit of its own: writecommit stores the value as write does,
// so a station that uses it does not lose what it programmed.
int programWriteCommit(const char *name, const char *value) { return programWrite(name, value); }

int programCommit() {
    std::puts("PASS");
    return 0;
}

int programList(const char *target) {
    if (!is_list_target(target)) {
        std::puts("Invalid target!");
        return -1;
    }
    for (int i = 0; i < kFactoryParamCount; ++i) {
        char value[kFactoryValueSize];
        if (eeprom_read(i, value, sizeof value) < 0) {
            std::printf("%2d: %s = \"%s\"\n", i, factoryParamTable[i].name, "FAIL");
            continue;
        }
        int len = static_cast<int>(strnlen(value, sizeof value));
        std::printf("%2d: %s = \"%.*s\"\n", i, factoryParamTable[i].name, len, value);
    }
    return 0;
}

int programRead(const char *name) { return printFactoryParam(name, nullptr); }

int programReset(const char *target) {
    if (std::string_view(target) == "nvdata") {
        std::puts("Not supporting reset of nvdata");
        return 0;
    }
    std::puts("Invalid target!");
    return -1;
}

int production(const char *action) {
    char value[kModeBufferSize];
    int rc = eeprom_read(0, value, sizeof value);
    int mode = rc == 0 ? parse_int_n(value, strnlen(value, sizeof value)) : 0;

    switch (parse_int(action)) {
    case 0:
        std::printf("%s Mode\n", mode ? "Production" : "Factory");
        return rc;
    case 1:
        break;
    default:
        return rc;
    }

    if (mode) {
        std::puts("Production Mode is already enabled");
        return rc;
    }
    int set = eeprom_set_rw_mode(0);
    if (set < 0) return set;
    std::puts("Production Mode Enabled");
    std::puts("Rebooting...");
    std::fflush(stdout);
    sleep(1);
    shell_run("reboot");
    return 0;
}
