#include "factory/params.h"

#include <cstdio>
#include <cstring>

#include "platform/eeprom.h"

const FactoryParam factoryParamTable[kFactoryParamCount + 1] = {
    {"OPERATIONAL_MODE", "opermode"},
    {"ETHERADD", "ethaddr"},
    {"BLUETOOTHADD", "btaddr"},
    {"WIFIADD", "wifiaddr"},
    {"SN_UNIT", "phonesn"},
    {"SN_PWB", "pwbsn"},
    {"CC_UNIT", "phonecc"},
    {"CC_PWB", "pwbcc"},
    {"MODEL_NUM", "modelnum"},
    {"GEN_VER", "genver"},
    {"HW_VER", "hwver"},
    {"ID_LCD_GLASS", "lcdglass"},
    {"ID_LCD_CONTROLLER", "lcdcontroller"},
    {"ID_TOUCH_CONTROLLER", "touchcontroller"},
    {"RF_COMBO_MODULE", "rfcombo"},
    {"CAMERA_MODULE", "camodule"},
    {"NM_HF_M1", "handsfreemic1"},
    {"NM_HAND_M", "handsetmic"},
    {"NM_HEAD_M", "headsetmic"},
    {"NM_CORDLESS_M", "cordlessmic"},
    {"NM_35_M", "3.5mmmic"},
    {"NM_HF_S", "handsfreespeaker"},
    {"NM_HAND_S", "handsetspeaker"},
    {"NM_HEAD_S", "headsetspeaker"},
    {"NM_CORDLESS_S", "cordlessspeaker"},
    {"NM_35_S", "3.5mmspeaker"},
    {"CONFIGDATA_HAND_RX_GAIN", "rxgain"},
    {"CONFIGDATA_HAND_TX_GAIN", "txgain"},
    {"SEC_MODE", "secmod"},
    {"ADB_ROOT", "adbroot"},
    {"SERIAL_ENABLED", "serialEnabled"},
    {"AUTH_ENABLED", "authEnabled"},
    {"CONFIGDATA_DES_SUPPORT", "configdatadessupport"},
    {nullptr, nullptr},
};

int printFactoryParam(const char *name, const char *label) {
    int index = eeprom_nameToIndex(name);
    // Anything outside the table is as unknown as -1: it has no row to print.
    if (index < 0 || index >= kFactoryParamCount) return -1;

    char value[kFactoryValueSize];
    if (eeprom_read(index, value, sizeof value) != 0) return -1;

    // A value that fills the buffer comes back without its NUL: print the buffer, no more.
    int len = static_cast<int>(strnlen(value, sizeof value));
    if (len == 0)
        std::printf("%s = \"%s\"\n", label ? label : factoryParamTable[index].name,
                    "<NOT Initialized>");
    else
        std::printf("%s = \"%.*s\"\n", label ? label : factoryParamTable[index].name, len,
                    value);
    return 0;
}
