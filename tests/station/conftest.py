"""The station kit against simulated phones and scripted stand-ins."""
import os
import sqlite3
import subprocess
import sys

import pytest

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FTSIM = os.path.join(REPO, "ftsim")
FTSTATION = os.path.join(REPO, "ftstation")
sys.path[:0] = [os.path.join(REPO, "station"), os.path.dirname(os.path.dirname(os.path.abspath(__file__)))]


def plan_text(name):
    """A plan kept in plans/ beside the tests."""
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "plans", name)) as f:
        return f.read()


def ftstation(*args, env=None, timeout=60):
    return subprocess.run([FTSTATION, *map(str, args)], capture_output=True, text=True,
                          timeout=timeout, env={**os.environ, **(env or {})})


def ftsim(*args):
    subprocess.run([FTSIM, *map(str, args)], check=True, capture_output=True)


def new_phone(path, *unplug):
    ftsim("new", path)
    for device in unplug:
        ftsim("unplug", path, device)
    return str(path)


@pytest.fixture
def phone(tmp_path):
    return new_phone(str(tmp_path / "phone"))


def write_runs(records, runs):
    """Finished runs written straight into RECORDS/station.db, as a station
    keeps them: each a dict of the run's columns, its steps and their
    measurements, and with a "mac" its unit too."""
    from ftstation import db as stationdb
    stationdb.StationDB(records).close()         # the schema, as a station makes it
    with sqlite3.connect(os.path.join(records, "station.db")) as conn:
        for r in runs:
            if r.get("mac"):
                conn.execute("INSERT INTO unit (serial, mac, mac_index, first_seen) "
                             "VALUES (?, ?, ?, ?)", (r["serial"], r["mac"], r["mac_index"], r["start"]))
            conn.execute("INSERT INTO run (id, serial, fixture, station, plan, started, ended, "
                         "result, mac) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
                         (r["id"], r["serial"], r["fixture"], r["station"], r.get("plan"),
                          r["start"], r["end"], r["result"], r.get("mac")))
            for i, s in enumerate(r["steps"], 1):
                conn.execute("INSERT INTO step (run_id, idx, name, verdict, duration, output) "
                             "VALUES (?, ?, ?, ?, 0.5, 'PASS')", (r["id"], i, s["name"], s["verdict"]))
                conn.executemany("INSERT INTO measurement VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
                                 [(r["id"], i, m["name"], m["value"], m["unit"], m.get("low"),
                                   m.get("high"), m["verdict"]) for m in s["measurements"]])
