#!/bin/sh
# Full-screen lcd fill on an 800x480 simulated panel against memset of the same
# mapping. Usage: bench/lcd_fill.sh [BUILD_DIR]
set -eu
build=${1:-build/host}
repo=$(dirname "$(readlink -f "$0")")/..
phone="$build/bench/phone"
"$repo/ftsim" new "$phone" --force --screen 800x480 >/dev/null
FTSIM_DIR=$(readlink -f "$phone") LD_PRELOAD=$(readlink -f "$build/out/lib/libftsim_preload.so") \
    "$build/bench/bench_lcd_fill"
