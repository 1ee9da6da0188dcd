#!/bin/sh
# Device script of the Wi-Fi regulatory test: recorded only.
. /system/etc/tool-fault.sh; tool_faulted "${0##*/}" "$1" && exit 1
echo "wifi_reg_test.sh $*" >> /sim/log/tools
exit 0
