"""The station's upload queue to its line's database (a transactional outbox).

Every finished run is committed to station.db first; a run whose `uploaded` is
empty is queued. The uploader copies a batch of queued runs, with their steps
and measurements, and the units the line does not have yet, in one transaction
of the line's database keyed by the runs' ids (ON CONFLICT DO NOTHING), and marks
them uploaded in station.db only after the line committed. A crash anywhere
leaves a batch that is sent again, and stored once. A unit the line holds with
another MAC, or a MAC the line holds for another serial, is a conflict: kept in
station.db and shown until someone settles it."""
import os
import threading
import time

import psycopg
import psycopg.sql

from ftstation import db as stationdb
from ftstation import leases, line

BATCH = 500                  # runs per transaction
IDLE = 30.0                  # seconds between looks at an empty queue, unless poked
BACKOFF_MAX = 60.0           # the longest wait after a failed upload

RUN = ("id", "station", "serial", "fixture", "operator", "plan", "plan_sha256", "software",
       "started", "ended", "result", "error", "mac", "record", "junit")
STEP = ("run_id", "idx", "name", "command", "verdict", "duration", "output", "note")
MEASUREMENT = stationdb.MEASUREMENT_COLUMNS
UNIT = ("serial", "mac", "mac_index", "first_seen")
TYPES = {"idx": "integer", "step_idx": "integer", "mac_index": "bigint",
         "duration": "double precision", "value": "double precision",
         "low": "double precision", "high": "double precision"}
QUEUED = "uploaded IS NULL AND result != 'RUNNING'"


class Uploader:
    """Drains RECORDS/station.db's queue into the line at `url`, by hand
    (`drain`) or on a thread of its own (`start`, `poke` when a run ends, `stop`).
    `block`: the plan's MAC block (first, last), whose addresses given out before
    the station joined its line are registered at the first upload."""

    def __init__(self, records, url, station, block=None, link=None, batch=BATCH,
                 on_change=None):
        self.url, self.station, self.block, self.link = line.check_url(url), station, block, link
        self.batch, self.on_change = batch, on_change
        self._local = leases.open_local(records)          # the uploading thread's
        self._path = os.path.join(records, "station.db")
        self._lock = threading.Lock()
        self._reader = leases.open_local(records)         # what the station shows
        self._reading = threading.Lock()
        self._shown = {"queued": None, "last_error": None, "conflicts": []}
        self.last_error, self.went = None, 0
        self._stop, self._wake, self._thread = threading.Event(), threading.Event(), None

    # --- what the station shows ---------------------------------------------------

    def status(self):
        """What the header and /api/status show; the last answer once stopped."""
        with self._reading:
            if self._reader is not None:
                self._shown = {"queued": self._reader.execute(
                                   f"SELECT COUNT(*) FROM run WHERE {QUEUED}").fetchone()[0],
                               "last_error": self.last_error,
                               "conflicts": leases.conflicts(self._reader)}
            return dict(self._shown)

    # --- uploading ------------------------------------------------------------------

    def drain(self):
        """Uploads batch after batch until the queue is empty; returns the number
        of runs that went. LineError when the line cannot take them."""
        self.went = 0
        conn = line.connect(self.url)
        try:
            line.check_schema(conn, self.url)
            conn.commit()
            self._join(conn)
            while not self._stop.is_set():
                n = self._batch(conn)
                if n is None:
                    break
                self.went += n
        except psycopg.Error as e:
            raise line.LineError(line.explain(self.url, e)) from None
        finally:
            conn.close()
        self.last_error = None
        if self.link is not None:
            self.link.up()
        return self.went

    def _join(self, conn):
        """At the first upload: the addresses of the plan's block this folder gave
        out before it held a lease are taken off the line's free ones (once the
        block is known: `upload --records` without a station file does not say)."""
        if not self.block:
            return
        with self._lock:
            if self._local.execute("SELECT 1 FROM line_state WHERE key = 'joined'").fetchone():
                return
            first, last = self.block
            before = self._local.execute(
                "SELECT MAX(mac_index) FROM unit WHERE mac BETWEEN ? AND ? AND NOT EXISTS "
                "(SELECT 1 FROM lease WHERE block_first = ? AND block_last = ? AND "
                "unit.mac_index BETWEEN first_index AND last_index)",
                (stationdb.mac_text(first), stationdb.mac_text(last), first, last)).fetchone()[0]
        if before is not None:
            with conn.transaction():
                conn.execute("INSERT INTO mac_block (first, last) VALUES (%s, %s) "
                             "ON CONFLICT DO NOTHING", self.block)
                conn.execute("UPDATE mac_block SET next = greatest(next, %s) "
                             "WHERE first = %s AND last = %s", (before + 1, *self.block))
        with self._lock, stationdb.transaction(self._local, self._path) as local:
            local.execute("INSERT OR REPLACE INTO line_state (key, value) VALUES ('joined', ?)",
                          (stationdb.utc_now(),))

    def _batch(self, conn):
        """One transaction on the line; None when nothing was left to send. Steps
        and measurements stream from station.db into COPY, never all in memory."""
        with self._lock:
            runs = self._local.execute(
                f"SELECT {', '.join(RUN)} FROM run WHERE {QUEUED} ORDER BY started LIMIT ?",
                (self.batch,)).fetchall()
            units = self._local.execute(f"SELECT {', '.join(UNIT)} FROM unit "
                                        "WHERE on_line IS NULL LIMIT ?", (self.batch,)).fetchall()
            if not runs and not units:
                return None
            ids = [r[0] for r in runs]
            marks = ", ".join("?" * len(ids))
            runs = [(r[0], r[1] or self.station, *r[2:]) for r in runs]
            with conn.transaction():
                _copy(conn, "unit", UNIT, units, f", {_quote(conn, self.station)}", "station")
                held = conn.execute("SELECT u.serial, u.mac, l.serial, l.mac FROM up_unit u "
                                    "JOIN unit l ON l.serial = u.serial OR l.mac = u.mac").fetchall()
                _copy(conn, "run", RUN, runs)
                _copy(conn, "step", STEP, self._local.execute(
                    f"SELECT {', '.join(STEP)} FROM step WHERE run_id IN ({marks})", ids))
                _copy(conn, "measurement", MEASUREMENT, self._local.execute(
                    f"SELECT {', '.join(MEASUREMENT)} FROM measurement "
                    f"WHERE run_id IN ({marks})", ids))
        found = {}
        for serial, mac, held_serial, held_mac in held:
            conflict = line.conflict_of(serial, mac, [(held_serial, held_mac)])
            if conflict:
                found.setdefault(serial, []).append((mac, conflict))
        with self._lock, stationdb.transaction(self._local, self._path) as local:
            local.execute(f"UPDATE run SET uploaded = ? WHERE id IN ({marks})",
                          [stationdb.utc_now(), *ids])
            for serial, *_ in units:
                local.execute("UPDATE unit SET on_line = ? WHERE serial = ?",
                              ("conflict" if serial in found else "yes", serial))
            for serial, conflicts in found.items():
                for mac, conflict in conflicts:
                    leases.record_conflict(local, serial, mac, conflict)
        return len(runs)

    # --- the background thread ------------------------------------------------------

    def start(self):
        self._thread = threading.Thread(target=self._loop, name="line-uploader", daemon=True)
        self._thread.start()

    def poke(self):
        """A run ended: upload it soon (unless the line is in its backoff)."""
        self._wake.set()

    def stop(self, timeout=10.0):
        self._stop.set()
        self._wake.set()
        if self._thread is not None:
            self._thread.join(timeout)
        with self._lock:
            self._local.close()
        with self._reading:
            self._reader.close()
            self._reader = None

    def _loop(self):
        delay = 0.0
        while not self._stop.is_set():
            try:
                self.drain()
                delay, wait = 0.0, IDLE
            except line.LineError as e:
                self.last_error = str(e)
                delay = wait = min(BACKOFF_MAX, max(1.0, delay * 2))
            except Exception as e:  # noqa: BLE001 -- the thread must outlive any one fault
                self.last_error = f"upload to the line database: {e}".splitlines()[0]
                delay = wait = min(BACKOFF_MAX, max(1.0, delay * 2))
            if self.on_change:
                self.on_change()
            deadline = time.monotonic() + wait
            while not self._stop.is_set() and time.monotonic() < deadline:
                if self._wake.wait(deadline - time.monotonic()):
                    self._wake.clear()
                    if not delay:
                        break          # healthy: go at once; in backoff: wait it out


def _quote(conn, text):
    return psycopg.sql.Literal(text).as_string(conn)


def _copy(conn, table, columns, rows, extra="", extra_column=None):
    """Rows into the line's table through a temporary table and COPY, then
    INSERT ... ON CONFLICT DO NOTHING: what the line has already stays as it is."""
    temp = f"up_{table}"
    conn.execute(f"CREATE TEMP TABLE {temp} ("
                 + ", ".join(f"{c} {TYPES.get(c, 'text')}" for c in columns) + ") ON COMMIT DROP")
    with conn.cursor().copy(f"COPY {temp} ({', '.join(columns)}) FROM STDIN") as copy:
        for row in rows:
            copy.write_row(row)
    names = ", ".join(columns)
    target = names + (f", {extra_column}" if extra_column else "")
    conn.execute(f"INSERT INTO {table} ({target}) SELECT {names}{extra} FROM {temp} "
                 "ON CONFLICT DO NOTHING")
