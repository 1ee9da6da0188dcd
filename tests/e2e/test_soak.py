"""Long runs: no descriptor or memory creeps in over 100,000 commands, and
valgrind finds no definite leak."""
import os
import subprocess
import sys
import threading

import pytest

from conftest import BUILD, FTSIM, REPO

sys.path.insert(0, os.path.join(REPO, "sim"))
from ftsim import runs  # noqa: E402
from ftsim.phone import Phone as SimPhone  # noqa: E402

pytestmark = pytest.mark.skipif(BUILD != "host", reason="the soak runs on the native build")

# Commands of every kind the console has, refusals and unknown words included.
MIX = [
    "info", "program read phonesn", "program write hwver 7", 'program write pwbsn "a  b"',
    "program list all", "program commit", "program reset nvdata", "production 0",
    "audio", "l2", "l2portCntrs 7", "mfg bt x", "nosuch", "ft", "tolma foo",
    "lcd fill 2", "lcd crosshair", "lcd_digit W 7", "backlight on", "rawbacklight 40", "led flash",
    "key 1", "key 0", "jackdet 1", "jackdet 0", "hookswitch 2", "ehs 1", "ehs 0", "cradle 0",
    "section508 1", "section508 0", "loop 1 0 2", "loop 0 0 2", "warn a b c d 1 2 e",
    "program write phonesn " + "w" * 120, " ".join(["w"] * 22), "x" * 300,
]


def chunk(n):
    """The heap's footprint of an n-byte allocation."""
    return max(32, (n + 8 + 15) // 16 * 16)


def snapshot(pid):
    fds = sorted(os.readlink(f"/proc/{pid}/fd/{fd}") for fd in os.listdir(f"/proc/{pid}/fd"))
    with open(f"/proc/{pid}/status") as f:
        rss = next(int(l.split()[1]) * 1024 for l in f if l.startswith("VmRSS:"))
    return fds, rss


def test_100000_commands_keep_descriptors_and_memory(phone):
    lines = [MIX[i % len(MIX)] for i in range(100_000)]
    proc = subprocess.Popen([FTSIM, "run", "--build", BUILD, phone.path], stdin=subprocess.PIPE,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    sampled = threading.Event()

    def feed():
        # A marker after the first 1,000 and after the last; the reader samples at each.
        proc.stdin.write("".join(l + "\n" for l in lines[:1000]) + "program read txgain\n")
        proc.stdin.flush()
        sampled.wait(60)
        sampled.clear()
        proc.stdin.write("".join(l + "\n" for l in lines[1000:]))
        proc.stdin.write("program write txgain end\nprogram read txgain\n")
        proc.stdin.flush()
        sampled.wait(600)
        proc.stdin.write("quit\n")
        proc.stdin.close()

    writer = threading.Thread(target=feed)
    writer.start()
    samples = []
    for line in proc.stdout:
        if line.startswith("CONFIGDATA_HAND_TX_GAIN = "):
            samples.append(snapshot(runs.current(SimPhone(phone.path)).pid))
            sampled.set()
    writer.join()
    assert proc.wait(60) == 0
    assert len(samples) == 2
    (fds_early, rss_early), (fds_late, rss_late) = samples
    assert fds_late == fds_early
    # What the history keeps per line: the text (a malloc chunk), its entry and
    # time stamp (a chunk each) and a slot in the editor's growing list.
    history = sum(chunk(len(l) + 1) + chunk(24) + chunk(12) + 16 for l in lines[1000:])
    assert rss_late - rss_early <= history + 1024 * 1024, (rss_late - rss_early, history)


def test_valgrind_finds_no_definite_leak(phone):
    text = "".join(MIX[i % len(MIX)] + "\n" for i in range(500)) + "quit\n"
    r = subprocess.run([FTSIM, "exec", phone.path, "/bin/sh", "-c",
                        "LD_PRELOAD=$FTSIM_PRELOAD exec valgrind -q --leak-check=full "
                        "--errors-for-leak-kinds=definite --error-exitcode=99 /system/bin/ft"],
                       input=text, capture_output=True, text=True, timeout=600)
    assert r.returncode == 0, r.stderr[-3000:]
    assert "definitely lost" not in r.stderr
