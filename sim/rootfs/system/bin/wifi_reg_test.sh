#!/bin/sh
# Device script of the Wi-Fi regulatory test: recorded only.
echo "wifi_reg_test.sh $*" >> /sim/log/tools
exit 0
