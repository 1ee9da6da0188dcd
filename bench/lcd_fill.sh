#!/bin/sh
# Full-screen lcd fill on an 800x480 simulated panel against memset of the same
# mapping, inside a simulated phone. Usage: bench/lcd_fill.sh [BUILD_DIR]
set -eu
repo=$(dirname "$(readlink -f "$0")")/..
build=$(readlink -f "${1:-$repo/build/host}")
phone="$build/bench/phone"
"$repo/ftsim" new "$phone" --force --screen 800x480 >/dev/null
cp "$build/bench/bench_lcd_fill" "$phone/run/"
FTSIM_BUILD_DIR_HOST="$build" "$repo/ftsim" exec "$phone" /bin/sh -c \
    'FTSIM_CONSOLE=bench_lcd_fill LD_PRELOAD=$FTSIM_PRELOAD exec /sim/run/bench_lcd_fill'
