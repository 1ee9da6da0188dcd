#!/usr/bin/python3
"""10,000 queued runs of the production plan (its steps, with outputs, and a
measurement per measured step) drain from a station.db into a line database on a
local PostgreSQL of our own, through the station's uploader. Aim: within 60 s,
with the uploader's memory flat (resident size after the first batches against
the last). Baseline from the same run: the same rows copied straight into empty
tables with no keys, in one transaction."""
import os
import sqlite3
import sys
import tempfile
import time

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPO, "station"))
sys.path.insert(0, os.path.join(REPO, "tests", "station"))
from ftstation import db as stationdb  # noqa: E402
from ftstation import line, uploader  # noqa: E402
from ftstation import plan as plans  # noqa: E402
from pgcluster import Cluster  # noqa: E402

RUNS = 10_000
AIM = 60.0
PLAN = os.path.join(REPO, "station", "plans", "production.toml")


def rss_kib():
    with open("/proc/self/status") as f:
        return next(int(l.split()[1]) for l in f if l.startswith("VmRSS:"))


def fill(records, steps):
    """The queue: RUNS finished runs written straight into station.db."""
    stationdb.StationDB(records).close()
    conn = sqlite3.connect(os.path.join(records, "station.db"), isolation_level=None)
    conn.execute("BEGIN")
    first = 0x001B4F100000
    for k in range(RUNS):
        run_id = f"{k:08d}-bench-4000-8000-000000000000"
        serial, mac = f"SN{k:07d}", stationdb.mac_text(first + k)
        started = f"2026-11-{1 + k // 5000:02d}T{k // 360 % 24:02d}:{k // 6 % 60:02d}:" \
                  f"{k % 6 * 10:02d}.000000Z"
        conn.execute("INSERT INTO unit (serial, mac, mac_index, first_seen) VALUES (?, ?, ?, ?)",
                     (serial, mac, k, started))
        conn.execute("INSERT INTO run (id, serial, fixture, station, operator, plan, plan_sha256, "
                     "software, started, ended, result, mac, record, junit) VALUES "
                     "(?, ?, 'A', 'line1-st3', 'ann', 'production', 'ab12', 'v1', ?, ?, 'PASS', ?, "
                     "?, ?)", (run_id, serial, started, started, mac, f"{serial}.json",
                               f"{serial}.xml"))
        conn.executemany("INSERT INTO step (run_id, idx, name, command, verdict, duration, output, "
                         "note) VALUES (?, ?, ?, ?, 'PASS', 0.25, ?, NULL)",
                         [(run_id, i, name, command, output)
                          for i, (name, command, output) in enumerate(steps, 1)])
        conn.executemany("INSERT INTO measurement (run_id, step_idx, name, value, unit, low, "
                         "high, verdict) VALUES (?, ?, ?, ?, 'ms', 0, 50, 'PASS')",
                         [(run_id, i, f"m{i}", 10 + k % 17) for i in range(1, 6)])
    conn.execute("COMMIT")
    conn.close()


def baseline(cluster, records):
    """The same rows, copied into key-less tables: what the line's disk and COPY
    cost without the uploader's checks."""
    url = cluster.createdb("baseline")
    conn = sqlite3.connect(os.path.join(records, "station.db"))
    start = time.perf_counter()
    with line.connect(url) as pg:
        for table, columns in (("run", uploader.RUN), ("step", uploader.STEP),
                               ("measurement", uploader.MEASUREMENT), ("unit", uploader.UNIT)):
            pg.execute(f"CREATE TABLE {table} (" + ", ".join(
                f"{c} {uploader.TYPES.get(c, 'text')}" for c in columns) + ")")
            with pg.cursor().copy(f"COPY {table} FROM STDIN") as copy:
                for row in conn.execute(f"SELECT {', '.join(columns)} FROM {table}"):
                    copy.write_row(row)
        pg.commit()
    conn.close()
    return time.perf_counter() - start


def main():
    plan = plans.load(PLAN, "SN0000001", 0, "bench", "2026-01-01")
    steps = [(s.name, s.command, f"ft>{s.command}\n" + "PASS reply line of a typical length\n" * 3)
             for s in plan.steps]
    cluster = Cluster(fsync=True)
    try:
        with tempfile.TemporaryDirectory() as records:
            fill(records, steps)
            url = cluster.createdb("line")
            line.init(url)
            up = uploader.Uploader(records, url, "line1-st3")
            samples, batch = [], up._batch

            def measured(conn):
                n = batch(conn)
                samples.append(rss_kib())
                return n
            up._batch = measured
            start = time.perf_counter()
            went = up.drain()
            took = time.perf_counter() - start
            up.stop()
            base = baseline(cluster, records)
        rows = line.connect(url).execute("SELECT (SELECT count(*) FROM run), "
                                         "(SELECT count(*) FROM step), "
                                         "(SELECT count(*) FROM measurement)").fetchone()
    finally:
        cluster.close()
    early, late = max(samples[1:4]), max(samples[-3:])
    print(f"line upload: {went} runs ({rows[0]} runs, {rows[1]} steps, {rows[2]} measurements "
          f"in the line) in {took:.1f} s, {went / took:.0f} runs/s, {len(samples) - 1} batches "
          f"of {uploader.BATCH}")
    print(f"uploader resident memory: {early} KiB after the first batches, {late} KiB after "
          f"the last ({late - early:+d} KiB)")
    print(f"baseline, the same rows copied into key-less tables: {base:.1f} s "
          f"(ratio {took / base:.2f})")
    ok = went == RUNS and took <= AIM and late - early < 8 * 1024
    print("aim (all runs within 60 s, memory flat within 8 MiB):", "met" if ok else "MISSED")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
