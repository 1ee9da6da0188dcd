#!/bin/sh
# Device script that sets the system clock from the phone's RTC: recorded only,
# the host's clock is not the phone's to set. Called by its full path, so it
# answers a tool fault itself rather than through a wrapper on the PATH.
. /system/etc/tool-fault.sh; tool_faulted "${0##*/}" "$1" && exit 1
echo "setSystemDate.sh $*" >> /sim/log/tools
exit 0
