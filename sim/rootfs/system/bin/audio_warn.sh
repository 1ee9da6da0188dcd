#!/bin/sh
# Device script of the play-and-record test: recorded only, one <argument> each.
[ -e "/sim/faults/tool.${0##*/}" ] && exit 1
{ printf 'audio_warn.sh'; for a in "$@"; do printf ' <%s>' "$a"; done; echo; } >> /sim/log/tools
exit 0
