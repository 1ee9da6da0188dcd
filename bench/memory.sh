#!/bin/sh
# The flash and RAM tests against plain loops, inside a simulated phone.
# Usage: bench/memory.sh [BUILD_DIR]
set -eu
repo=$(dirname "$(readlink -f "$0")")/..
build=$(readlink -f "${1:-$repo/build/host}")
phone="$build/bench/memory-phone"
"$repo/ftsim" new "$phone" --force >/dev/null
cp "$build/bench/bench_memory" "$phone/run/"
FTSIM_BUILD_DIR_HOST="$build" "$repo/ftsim" exec "$phone" /bin/sh -c \
    'FTSIM_CONSOLE=bench_memory LD_PRELOAD=$FTSIM_PRELOAD exec /sim/run/bench_memory'

# The console's own peak: `sdram 1` in a running console, its VmHWM read before it quits.
FTSIM_BUILD_DIR_HOST="$build" /usr/bin/python3 - "$repo/ftsim" "$phone" <<'PY'
import os, subprocess, sys

ftsim, phone = sys.argv[1:]
p = subprocess.Popen([ftsim, "run", phone], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
p.stdin.write(b"sdram 1\n")
p.stdin.flush()
seen = b""
while not seen.endswith(b"PASS\n"):
    seen += p.stdout.read(1)
kib = None
procs = {}   # pid -> (parent, name): only the console under this run counts
for pid in filter(str.isdigit, os.listdir("/proc")):
    try:
        with open(f"/proc/{pid}/stat") as f:
            procs[int(pid)] = (int(f.read().rsplit(")", 1)[1].split()[1]), None)
        with open(f"/proc/{pid}/comm") as f:
            procs[int(pid)] = (procs[int(pid)][0], f.read().strip())
    except (OSError, IndexError):
        pass
for pid, (_, name) in procs.items():
    up = pid
    while up in procs and up != p.pid:
        up = procs[up][0]
    if up == p.pid and name == "ft":
        with open(f"/proc/{pid}/status") as f:
            kib = next(int(l.split()[1]) for l in f if l.startswith("VmHWM:"))
p.stdin.close()
p.wait()
print(f"  the console's peak resident size after sdram 1: {kib} KiB")
PY
