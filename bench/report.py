#!/usr/bin/python3
"""The yield report over 100,000 runs of the production plan (its steps, its
measurements; one unit in ten retested, 2 stations of 4 fixtures), rows written
straight into a temporary station database. Goal: the report within 10 s and
500 MB. Baseline from the same run: the least any report reads, one Python
pass that fetches every counted run and every measured value."""
import datetime
import os
import random
import resource
import sqlite3
import subprocess
import sys
import tempfile
import time
import uuid

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPO, "station"))
from ftstation import db as stationdb  # noqa: E402
from ftstation import plan as plans  # noqa: E402

PLAN = os.path.join(REPO, "station", "plans", "production.toml")
RUNS = 100_000
GOAL_S, GOAL_MB = 10.0, 500
# Typical values of the production plan's measurements on a line: (mean, stdev).
TYPICAL = {"sdram_test_time": (0.4, 0.05), "ping_rtt_avg": (0.3, 0.1),
           "ftp_upload_time": (0.1, 0.03), "ftp_download_time": (0.02, 0.01),
           "wifi_station_signal": (-48, 5), "bt_reference_rssi": (-55, 5)}


def fill(path):
    plan = plans.load(PLAN, "SN0000001", 0, "bench", "2026-01-01")
    rnd = random.Random(7)
    start = datetime.datetime(2026, 11, 2, tzinfo=datetime.timezone.utc)
    stamp = lambda t: t.strftime("%Y-%m-%dT%H:%M:%S.%fZ")  # noqa: E731
    conn = sqlite3.connect(path, isolation_level=None)
    conn.execute("BEGIN")
    serial = 0
    for k in range(RUNS):
        serial += rnd.random() > 0.1 or not serial
        run_id, t = str(uuid.uuid4()), start + datetime.timedelta(seconds=3.1 * k)
        failed = rnd.randrange(len(plan.steps)) if rnd.random() < 0.06 else None
        result = "FAIL" if failed is not None else "ABORTED" if rnd.random() < 0.02 else "PASS"
        station, fixture = rnd.choice(["line1-st3", "line1-st4"]), rnd.choice("ABCD")
        conn.execute("INSERT INTO run (id, serial, fixture, station, plan, started, ended, result) "
                     "VALUES (?, ?, ?, ?, 'production', ?, ?, ?)",
                     (run_id, f"SN{serial:07d}", fixture, station, stamp(t),
                      stamp(t + datetime.timedelta(seconds=rnd.gauss(23, 1.5))), result))
        steps, measured = [], []
        for i, step in enumerate(plan.steps, 1):
            verdict = "FAIL" if i - 1 == failed else "PASS"
            steps.append((run_id, i, step.name, step.command, verdict, 0.2, "PASS", ""))
            for m in step.measures:
                mean, sd = TYPICAL[m.name]
                v = rnd.gauss(mean, sd)
                ok = (m.low is None or v >= m.low) and (m.high is None or v <= m.high)
                measured.append((run_id, i, m.name, v, m.unit, m.low, m.high,
                                 "PASS" if ok else "FAIL"))
        conn.executemany("INSERT INTO step VALUES (?, ?, ?, ?, ?, ?, ?, ?)", steps)
        conn.executemany("INSERT INTO measurement VALUES (?, ?, ?, ?, ?, ?, ?, ?)", measured)
    conn.execute("COMMIT")
    conn.close()


def baseline(path):
    started = time.perf_counter()
    conn = sqlite3.connect(path)
    runs = conn.execute("SELECT serial, result, started, ended FROM run "
                        "WHERE result != 'RUNNING'").fetchall()
    values = conn.execute("SELECT name, value FROM measurement").fetchall()
    conn.close()
    assert runs and values
    return time.perf_counter() - started


def main():
    with tempfile.TemporaryDirectory() as tmp:
        records = os.path.join(tmp, "records")
        stationdb.StationDB(records).close()
        db = os.path.join(records, "station.db")
        made = time.perf_counter()
        fill(db)
        made = time.perf_counter() - made
        base = min(baseline(db) for _ in range(2))
        started = time.perf_counter()
        r = subprocess.run([os.path.join(REPO, "ftstation"), "report", db, "--out",
                            os.path.join(tmp, "report.html"), "--json",
                            os.path.join(tmp, "report.json")], capture_output=True, text=True,
                           timeout=120)
        took = time.perf_counter() - started
        peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss / 1024
        if r.returncode:
            print(r.stderr, file=sys.stderr)
            return 1
        size = os.path.getsize(db) / 2**20
    print(f"report: {RUNS:,} runs ({size:,.0f} MiB database, filled in {made:.0f} s): "
          f"{took:.2f} s, peak {peak:.0f} MiB resident; baseline, every run and value fetched "
          f"once in Python: {base:.2f} s; ratio {took / base:.2f} "
          f"(goal: <= {GOAL_S:.0f} s, <= {GOAL_MB} MB)")
    return 0 if took <= GOAL_S and peak <= GOAL_MB else 1


if __name__ == "__main__":
    sys.exit(main())
