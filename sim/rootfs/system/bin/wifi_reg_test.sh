#!/bin/sh
# Device script of the Wi-Fi regulatory test: recorded only.
[ -e "/sim/faults/tool.${0##*/}" ] && exit 1
echo "wifi_reg_test.sh $*" >> /sim/log/tools
exit 0
