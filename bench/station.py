#!/usr/bin/python3
"""The reference production flow's wall time through ./ftstation, against a
baseline from the same run: a bare pexpect script that sends the same lines,
runs the same ftsim verbs for the operator's actions and waits only for each
prompt. Aim: at most 1.10 times the baseline."""
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPO, "station"))
from ftstation import plan as plans  # noqa: E402

FTSIM = os.path.join(REPO, "ftsim")
PLAN = os.path.join(REPO, "station", "plans", "production.toml")
RUNS = 3
AIM = 1.10

BASELINE = r"""
import json, shlex, subprocess, sys
import pexpect
ftsim, phone, steps = sys.argv[1], sys.argv[2], json.loads(sys.argv[3])
c = pexpect.spawn(ftsim, ["run", phone], timeout=30, dimensions=(24, 1000))
c.delaybeforesend = None
c.expect_exact("ft>")
for command, sim, ends, interrupt_after in steps:
    if command:
        c.sendline(command)
        if interrupt_after:
            try:
                c.expect_exact("ft>", timeout=interrupt_after)
            except pexpect.TIMEOUT:
                c.sendintr()
                c.expect_exact("ft>")
        else:
            c.expect(pexpect.EOF if ends else "ft>")
    for verb in sim:
        verb, *args = shlex.split(verb)
        subprocess.run([ftsim, verb, phone, *args], check=True)
"""


def timed(argv):
    start = time.perf_counter()
    subprocess.run(argv, check=True, stdout=subprocess.DEVNULL)
    return time.perf_counter() - start


def main():
    plan = plans.load(PLAN, "SN0000001", 0, "bench", "2026-01-01")
    steps = json.dumps([(s.command, s.sim, s.ends_console, s.interrupt_after) for s in plan.steps])
    station, baseline = [], []
    with tempfile.TemporaryDirectory() as tmp:
        phone = os.path.join(tmp, "phone")
        for _ in range(RUNS):
            subprocess.run([FTSIM, "new", phone, "--force"], check=True)
            baseline.append(timed([sys.executable, "-c", BASELINE, FTSIM, phone, steps]))
            subprocess.run([FTSIM, "new", phone, "--force"], check=True)
            station.append(timed([os.path.join(REPO, "ftstation"), "run", PLAN, "--phone", phone,
                                  "--unit", "SN0000001", "--records", os.path.join(tmp, "rec")]))
    ours, base = statistics.median(station), statistics.median(baseline)
    print(f"station: production flow ({len(plan.steps)} steps), median of {RUNS}: {ours:.2f} s, "
          f"baseline bare pexpect: {base:.2f} s, ratio {ours / base:.2f} (aim: <= {AIM:.2f})")
    return 0


if __name__ == "__main__":
    sys.exit(main())
