// The Wi-Fi regulatory test script behind "mfg wifi start|stop".
#pragma once

int mfg_wifi_start();
int mfg_wifi_stop();
