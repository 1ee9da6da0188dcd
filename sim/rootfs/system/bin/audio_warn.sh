#!/bin/sh
# Device script of the play-and-record test: recorded only, one <argument> each.
. /system/etc/tool-fault.sh; tool_faulted "${0##*/}" "$1" && exit 1
{ printf 'audio_warn.sh'; for a in "$@"; do printf ' <%s>' "$a"; done; echo; } >> /sim/log/tools
exit 0
