"""The station's database: MACs handed out once, runs kept from their start and
ended by whoever opens the folder after a station died, and schema upgrades."""
import json
import os
import signal
import sqlite3
import subprocess
import time

import pytest

from conftest import FTSTATION, ftstation
from ftstation import db as stationdb

FIRST = 0x001B4F100000
BLOCK = '[mac]\nfirst = "00:1B:4F:10:00:00"\nlast = "00:1B:4F:10:00:%02X"\n'
STEP = '[[step]]\nname = "%s"\ncommand = "%s"\n'


def plan(tmp_path, last=0xFF, steps=(("mac", "program write ethaddr {mac}"),)):
    path = tmp_path / "plan.toml"
    path.write_text((BLOCK % last if last is not None else "")
                    + "".join(STEP % s for s in steps))
    return str(path)


def stand_in(tmp_path, then="read l"):
    """A console that keeps its first line in SENT and passes it, then `then`."""
    return ["--", "/bin/sh", "-c", f"printf 'ft>'; read l; echo \"$l\" > {tmp_path}/SENT; "
            f"echo PASS; printf 'ft>'; {then}"]


def rows(records, sql, *args):
    with sqlite3.connect(os.path.join(records, "station.db"), timeout=10) as conn:
        return conn.execute(sql, args).fetchall()


def test_two_stations_on_one_folder_never_share_a_mac(tmp_path):
    path, records = plan(tmp_path), tmp_path / "rec"
    for k in range(20):
        procs = [subprocess.Popen([FTSTATION, "run", path, "--unit", f"{side}{k}", "--records",
                                   records, *stand_in(tmp_path / side)], stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True) for side in "AB"]
        for p in procs:
            out = p.communicate(timeout=60)[0]
            assert p.returncode == 0, out
    macs = rows(records, "SELECT serial, mac FROM run")
    assert len(macs) == 40 and len({m for _, m in macs}) == 40
    assert sorted(m for _, m in macs) == [stationdb.mac_text(FIRST + i) for i in range(40)]


MAC_ROWS = [
    # (--unit, extra arguments, exit status, the MAC sent or the one line on stderr)
    ("A", (), 0, "00:1B:4F:10:00:00"),
    ("B", ("--unit-index", "2"), 0, "00:1B:4F:10:00:02"),
    (" C ", (), 0, "00:1B:4F:10:00:01"),             # the lowest address nobody holds
    ("A", (), 0, "00:1B:4F:10:00:00"),               # a retest keeps its MAC
    ("A", ("--unit-index", "0"), 0, "00:1B:4F:10:00:00"),
    ("A", ("--unit-index", "3"), 1, "A holds MAC 00:1B:4F:10:00:00 (index 0), not index 3"),
    ("D", ("--unit-index", "2"), 1, "MAC 00:1B:4F:10:00:02 (index 2) is held by B"),
    ("D", (), 0, "00:1B:4F:10:00:03"),
    ("E", (), 1, "the MAC block 00:1B:4F:10:00:00 to 00:1B:4F:10:00:03 is used up: "
                 "no address left for E"),
    (None, (), 2, "step 1: {mac} has no value: give --unit or --unit-index"),
    (None, ("--unit-index", "1"), 0, "00:1B:4F:10:00:01"),   # no serial: nothing held
    ("a b", (), 2,
     "serial 'a b' holds ' ': only letters, digits, '.', '_' and '-' may name a unit"),
    (".A", (), 2, "serial '.A' begins with '.'"),
    ("A" * 33, (), 2, f"serial '{'A' * 33}' is longer than 32 characters"),
    ("  ", (), 2, "the serial is empty"),
]


def test_macs_from_the_database_and_refusals_before_any_command(tmp_path):
    path, records = plan(tmp_path, last=3), tmp_path / "rec"
    for serial, extra, status, expected in MAC_ROWS:
        sent = tmp_path / "SENT"
        if sent.exists():
            sent.unlink()
        unit = ("--unit", serial) if serial is not None else ()
        r = ftstation("run", path, *unit, *extra, "--records", records, *stand_in(tmp_path))
        assert r.returncode == status, (serial, extra, r.stderr)
        if status:
            assert r.stderr.count("\n") == 1 and r.stderr.endswith(expected + "\n"), r.stderr
            assert not sent.exists() and r.stdout == ""
        else:
            assert sent.read_text() == f"program write ethaddr {expected}\n"
    held = rows(records, "SELECT serial, mac, mac_index FROM unit ORDER BY mac_index")
    assert held == [("A", "00:1B:4F:10:00:00", 0), ("C", "00:1B:4F:10:00:01", 1),
                    ("B", "00:1B:4F:10:00:02", 2), ("D", "00:1B:4F:10:00:03", 3)]
    assert len(rows(records, "SELECT id FROM run")) == 7


def test_a_station_stopped_mid_plan(tmp_path):
    """SIGTERM: the station ends the run itself (a killed station's run is ended
    by the next one to open the folder: the server's tests kill one)."""
    path = plan(tmp_path, steps=(("mac", "program write ethaddr {mac}"), ("hangs", "info")))
    records, mark = str(tmp_path / "rec"), tmp_path / "second-line"
    p = subprocess.Popen([FTSTATION, "run", path, "--unit", "K1", "--operator", "ann",
                          "--records", records,
                          *stand_in(tmp_path, f"read l; touch {mark}; exec sleep 30")],
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    deadline = time.monotonic() + 20
    while not mark.exists() and time.monotonic() < deadline:
        time.sleep(0.05)
    assert mark.exists(), "the second step never reached the console"
    # Another process opening the folder leaves the live run alone.
    with stationdb.StationDB(records) as db:
        assert db.sweep() == [] and db.runs()[0]["result"] == "RUNNING"
    p.send_signal(signal.SIGTERM)
    out, err = p.communicate(timeout=20)
    [(run_id,)] = rows(records, "SELECT id FROM run")
    assert (p.returncode, err) == (1, "ftstation: stopped at the station\n")
    with open(out.split("record: ")[1].split("\n")[0]) as f:
        assert (json.load(f)["result"], out.endswith("result: ABORTED\n")) == ("ABORTED", True)
    with stationdb.StationDB(records) as db:
        [run] = db.runs()
        assert (run["id"], run["result"], run["error"], run["operator"]) == (
            run_id, "ABORTED", "stopped at the station", "ann")
        assert [(s["name"], s["verdict"]) for s in db.steps(run_id)] == [("mac", "PASS")]
        # The serial keeps its MAC, which no other serial gets.
        assert db.mac_for("K1", FIRST, FIRST + 9) == (run["mac"], 0)
        assert db.mac_for("K2", FIRST, FIRST + 9) == ("00:1B:4F:10:00:01", 1)
    assert os.listdir(os.path.join(records, "locks")) == ["open"]


def _run(db, serial):
    run_id = db.start_run(serial=serial, fixture="F1", station="s", operator="ann", plan="p",
                          plan_sha256="00", software="v1", mac=None)
    db.add_step(run_id, 1, {"name": "a", "command": "info", "verdict": "PASS", "duration": 0.5,
                            "output": "PASS", "note": ""})
    db.end_run(run_id, "PASS")
    return run_id


def test_an_older_database_is_brought_up_to_date_whole_or_not_at_all(tmp_path, monkeypatch):
    records = str(tmp_path / "rec")
    with stationdb.StationDB(records) as db:
        run_id = _run(db, "OLD1")
        version = db.schema_version()
    # A later upgrade whose second statement fails leaves none of it behind.
    later = [(version + 1, ["ALTER TABLE run ADD COLUMN bay TEXT", "NOT SQL"])]
    monkeypatch.setattr(stationdb, "MIGRATIONS", stationdb.MIGRATIONS + later)
    with pytest.raises(stationdb.DatabaseError, match='near "NOT": syntax error') as e:
        stationdb.StationDB(records)
    assert "\n" not in str(e.value)
    monkeypatch.undo()
    with stationdb.StationDB(records) as db:
        [run] = db.runs()
        assert (run["id"], run["serial"], run["result"], len(db.steps(run_id))) == (
            run_id, "OLD1", "PASS", 1)
        assert db.schema_version() == version
        assert not [c for c in rows(records, "PRAGMA table_info(run)") if c[1] == "bay"]
        _run(db, "NEW1")


@pytest.mark.parametrize("spoil, line", [
    ("UPDATE schema_version SET version = 99",
     "at schema version 99, newer than this station software knows"),
    (None, "cannot use the station database: file is not a database"),
])
def test_a_database_the_station_cannot_use_is_refused(tmp_path, spoil, line):
    records = str(tmp_path / "rec")
    stationdb.StationDB(records).close()
    if spoil:
        with sqlite3.connect(os.path.join(records, "station.db")) as conn:
            conn.execute(spoil)
    else:
        with open(os.path.join(records, "station.db"), "wb") as f:
            f.write(b"not sqlite" * 1000)
    r = ftstation("run", plan(tmp_path), "--unit", "A", "--records", records, *stand_in(tmp_path))
    assert (r.returncode, r.stderr.count("\n"), r.stdout) == (1, 1, ""), r.stderr
    assert line in r.stderr
    assert not (tmp_path / "SENT").exists()
