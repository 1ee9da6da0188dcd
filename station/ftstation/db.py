"""The station's database, RECORDS/station.db: the units and the MACs they hold,
every run from its first step on, and the steps as they end.

A run is RUNNING from the moment it starts; the process carrying it out holds an
flock on RECORDS/locks/RUN_ID until it ends. Whoever opens the folder next marks a
RUNNING run whose lock nobody holds as ABORTED, so a station that was killed
leaves no run behind that reads as still under way. One StationDB may be shared
by threads: each call holds the object's lock."""
import contextlib
import datetime
import errno
import fcntl
import os
import re
import sqlite3
import threading
import time
import uuid

from ftstation import leases, migrations

RESULTS = ("RUNNING", "PASS", "FAIL", "ABORTED")
TIMEOUT = 30.0                 # seconds any wait for the database or the folder may take

# Each step brings a file from the version before it to its own, all in one
# transaction with the version's update: a file is at one version or the next.
MIGRATIONS = [
    (1, [
        "CREATE TABLE schema_version (version INTEGER NOT NULL)",
        """CREATE TABLE unit (
               serial TEXT PRIMARY KEY,
               mac TEXT NOT NULL UNIQUE,
               mac_index INTEGER NOT NULL,
               first_seen TEXT NOT NULL)""",
        """CREATE TABLE run (
               id TEXT PRIMARY KEY,
               serial TEXT, fixture TEXT, station TEXT, operator TEXT,
               plan TEXT, plan_sha256 TEXT, software TEXT,
               started TEXT NOT NULL, ended TEXT,
               result TEXT NOT NULL CHECK (result IN ('RUNNING', 'PASS', 'FAIL', 'ABORTED')),
               error TEXT, mac TEXT, record TEXT, junit TEXT)""",
        "CREATE INDEX run_started ON run (started)",
        "CREATE INDEX run_serial ON run (serial, started)",
        "CREATE INDEX run_result ON run (result)",
        """CREATE TABLE step (
               run_id TEXT NOT NULL REFERENCES run (id),
               idx INTEGER NOT NULL,
               name TEXT, command TEXT, verdict TEXT, duration REAL, output TEXT, note TEXT,
               PRIMARY KEY (run_id, idx))""",
    ]),
    # Measurements, kept together by run (the yield report reads a run's all at
    # once), and the failing steps alone: a few among many.
    (2, [
        """CREATE TABLE measurement (
               run_id TEXT NOT NULL REFERENCES run (id),
               step_idx INTEGER NOT NULL,
               name TEXT NOT NULL,
               value REAL, unit TEXT, low REAL, high REAL,
               verdict TEXT NOT NULL CHECK (verdict IN ('PASS', 'FAIL')),
               PRIMARY KEY (run_id, step_idx, name)) WITHOUT ROWID""",
        "CREATE INDEX step_failed ON step (run_id) WHERE verdict = 'FAIL'",
    ]),
    # The line database: the MAC leases this folder holds from its line, which
    # runs and units the line has, and the conflicts the line reported.
    (3, [
        """CREATE TABLE lease (
               id INTEGER PRIMARY KEY,
               line_lease INTEGER,
               block_first INTEGER NOT NULL,
               block_last INTEGER NOT NULL,
               first_index INTEGER NOT NULL,
               last_index INTEGER NOT NULL,
               next_index INTEGER NOT NULL,
               taken TEXT NOT NULL)""",
        "ALTER TABLE run ADD COLUMN uploaded TEXT",
        "CREATE INDEX run_queue ON run (started) WHERE uploaded IS NULL",
        "ALTER TABLE unit ADD COLUMN on_line TEXT",
        "CREATE INDEX unit_unregistered ON unit (serial) WHERE on_line IS NULL",
        """CREATE TABLE line_conflict (
               serial TEXT NOT NULL,
               mac TEXT NOT NULL,
               kind TEXT NOT NULL CHECK (kind IN ('serial', 'mac')),
               holder TEXT NOT NULL,
               found TEXT NOT NULL,
               PRIMARY KEY (serial, mac, kind))""",
        "CREATE TABLE line_state (key TEXT PRIMARY KEY, value TEXT)",
    ]),
]

RUN_COLUMNS = ("id", "serial", "fixture", "station", "operator", "plan", "plan_sha256", "software",
               "started", "ended", "result", "error", "mac", "record", "junit")
MEASUREMENT_COLUMNS = ("run_id", "step_idx", "name", "value", "unit", "low", "high", "verdict")


class DatabaseError(Exception):
    """The folder's database cannot be used (newer schema, unreadable file); one line."""


class MacError(Exception):
    """No MAC can be given to this serial (block used up, address held by another); one line."""


class LeaseUsedUp(MacError):
    """The folder takes its MACs from line leases, and those it holds are used up."""


def check_serial(text):
    """The serial, trimmed; ValueError with a one-line reason when it cannot name a unit."""
    serial = (text or "").strip()
    if not serial:
        raise ValueError("the serial is empty")
    if len(serial) > 32:
        raise ValueError(f"serial {serial!r} is longer than 32 characters")
    bad = re.sub(r"[A-Za-z0-9._-]", "", serial)
    if bad:
        raise ValueError(f"serial {serial!r} holds {bad[0]!r}: only letters, digits, "
                         "'.', '_' and '-' may name a unit")
    if serial.startswith("."):
        raise ValueError(f"serial {serial!r} begins with '.'")
    return serial


def utc_now():
    """Now, as the database keeps times: UTC, ISO 8601, microseconds, sortable as text."""
    return datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.%fZ")


def mac_text(number):
    return ":".join(f"{number:012X}"[i:i + 2] for i in range(0, 12, 2))


def mac_number(text):
    return int(text.replace(":", ""), 16)


def _seconds(started, ended):
    if not ended:
        return None
    parse = lambda t: datetime.datetime.strptime(t, "%Y-%m-%dT%H:%M:%S.%fZ")  # noqa: E731
    try:
        return round((parse(ended) - parse(started)).total_seconds(), 3)
    except ValueError:
        return None


@contextlib.contextmanager
def transaction(conn, path):
    """A write transaction on `conn`, a connection to the station database at
    `path` (BEGIN IMMEDIATE: a read inside it may decide the write), committed
    whole or rolled back; an SQLite error is one DatabaseError."""
    try:
        conn.execute("BEGIN IMMEDIATE")
        yield conn
        conn.execute("COMMIT")
    except BaseException as e:
        if conn.in_transaction:          # some errors roll back by themselves
            conn.execute("ROLLBACK")
        if isinstance(e, sqlite3.Error):
            raise DatabaseError(f"{path}: {e}") from e
        raise


class _Flock:
    """An exclusive flock on one file, taken within a deadline (or not at all when
    `wait` is 0). The open file keeps it: closing the descriptor lets it go."""

    def __init__(self, path, wait):
        self.path = path
        self.fd = os.open(path, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o644)
        deadline = time.monotonic() + wait
        while True:
            try:
                fcntl.flock(self.fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
                return
            except OSError as e:
                if e.errno not in (errno.EWOULDBLOCK, errno.EAGAIN) or time.monotonic() >= deadline:
                    os.close(self.fd)
                    raise
            time.sleep(0.02)

    def release(self, remove=False):
        if self.fd is None:
            return
        if remove:
            try:
                os.unlink(self.path)     # still held: nobody else can be mid-check on it
            except FileNotFoundError:
                pass
        os.close(self.fd)
        self.fd = None


class StationDB:
    def __init__(self, records_dir):
        self.records = str(records_dir)
        self.path = os.path.join(self.records, "station.db")
        self.locks = os.path.join(self.records, "locks")
        self._lock = threading.RLock()
        self._held = {}                  # run id -> its _Flock, while the run is under way
        try:
            os.makedirs(self.locks, exist_ok=True)
        except OSError as e:
            raise DatabaseError(f"{self.records}: cannot make the records folder: "
                                f"{e.strerror}") from None
        # Opening is one process at a time: the journal mode and the migrations
        # are then never raced by a second station starting on the same folder.
        try:
            opening = _Flock(os.path.join(self.locks, "open"), TIMEOUT)
        except OSError as e:
            raise DatabaseError(f"{self.records}: the folder stays locked by another "
                                f"station process ({e.strerror})") from None
        try:
            self.conn = sqlite3.connect(self.path, timeout=TIMEOUT, isolation_level=None,
                                        check_same_thread=False)
            try:
                self.conn.execute(f"PRAGMA busy_timeout = {int(TIMEOUT * 1000)}")
                self.conn.execute("PRAGMA journal_mode = WAL")
                self.conn.execute("PRAGMA foreign_keys = ON")
                self._migrate()
            except sqlite3.Error as e:
                self.conn.close()
                raise DatabaseError(f"{self.path}: cannot use the station database: {e}") from None
            except DatabaseError:
                self.conn.close()
                raise
        except sqlite3.Error as e:
            raise DatabaseError(f"{self.path}: cannot open the station database: {e}") from None
        finally:
            opening.release()
        self.sweep()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def close(self):
        """Lets go of the database; runs still under way stay RUNNING for the next
        opener's sweep to end."""
        with self._lock:
            for held in self._held.values():
                held.release()
            self._held.clear()
            self.conn.close()

    def _migrate(self):
        with self.transaction() as conn:
            version = self.schema_version()
            migrations.upgrade(conn.execute, version, MIGRATIONS, lambda latest: DatabaseError(
                f"{self.path}: the database is at schema version {version}, "
                f"newer than this station software knows ({latest})"), "?")

    def schema_version(self):
        """The file's schema version: 0 for a file without tables yet."""
        if not self.conn.execute("SELECT 1 FROM sqlite_master WHERE type = 'table' "
                                 "AND name = 'schema_version'").fetchone():
            return 0
        return self.conn.execute("SELECT MAX(version) FROM schema_version").fetchone()[0] or 0

    @contextlib.contextmanager
    def transaction(self):
        """A write transaction on the object's connection, under its lock."""
        with self._lock, transaction(self.conn, self.path) as conn:
            yield conn

    def _write(self, sql, args=()):
        """One statement in its own transaction; the rows it returns."""
        with self.transaction() as conn:
            return conn.execute(sql, args).fetchall()

    def sweep(self):
        """Ends as ABORTED ("station stopped") every RUNNING run whose lock nobody
        holds; a run some live process carries out keeps its lock and is left be."""
        swept = []
        with self._lock:
            running = [r for (r,) in self.conn.execute(
                "SELECT id FROM run WHERE result = 'RUNNING'") if r not in self._held]
        for run_id in running:
            path = os.path.join(self.locks, run_id)
            try:
                lock = _Flock(path, 0)
            except OSError:
                continue                 # its process is alive
            try:
                if self._write("UPDATE run SET result = 'ABORTED', error = 'station stopped', "
                               "ended = ? WHERE id = ? AND result = 'RUNNING' RETURNING id",
                               (utc_now(), run_id)):
                    swept.append(run_id)
            finally:
                lock.release(remove=True)
        return swept

    def mac_for(self, serial, first, last, index=None, from_line=False):
        """The MAC this serial holds, or the one it is given now, with its index in
        the block first..last (48-bit numbers): `index` when given, else the lowest
        address of the block no unit holds. Read and write in one transaction, so
        two stations on one folder never give out one address twice. A folder
        that holds line leases gives only their addresses; `from_line`: the index
        is the one the line holds for this serial."""
        with self.transaction():
            return self._give_mac(serial, first, last, index, from_line)

    def _give_mac(self, serial, first, last, index, from_line=False):
        held = self.conn.execute("SELECT mac FROM unit WHERE serial = ?", (serial,)).fetchone()
        if held:
            number = mac_number(held[0])
            if not first <= number <= last:
                raise MacError(f"{serial} holds MAC {held[0]}, outside the plan's block "
                               f"{mac_text(first)} to {mac_text(last)}")
            if index is not None and index != number - first:
                raise MacError(f"{serial} holds MAC {held[0]} (index {number - first}), "
                               f"not index {index}")
            return held[0], number - first
        now = utc_now()
        if leases.held(self.conn, first, last):
            if index is None:
                return leases.give(self.conn, serial, first, last, now)
            if not from_line and not leases.within(self.conn, first, last, index):
                raise MacError(f"this folder takes its MACs from its line's leases, and "
                               f"index {index} lies in none of them")
        if index is not None:
            if not 0 <= index <= last - first:
                raise MacError(f"index {index} lies outside the plan's block "
                               f"{mac_text(first)} to {mac_text(last)}")
            mac = mac_text(first + index)
            other = self.conn.execute("SELECT serial FROM unit WHERE mac = ?", (mac,)).fetchone()
            if other:
                raise MacError(f"MAC {mac} (index {index}) is held by {other[0]}")
            self.conn.execute("INSERT INTO unit (serial, mac, mac_index, first_seen) "
                              "VALUES (?, ?, ?, ?)", (serial, mac, index, now))
            return mac, index
        # The lowest free address is the block's first, or one past an address held.
        lo, hi = mac_text(first), mac_text(last)
        taken = {mac_number(m) for (m,) in self.conn.execute(
            "SELECT mac FROM unit WHERE mac BETWEEN ? AND ?", (lo, hi))}
        free = min((n for n in {first} | {t + 1 for t in taken} if n <= last and n not in taken),
                   default=None)
        if free is None:
            raise MacError(f"the MAC block {lo} to {hi} is used up: no address left for {serial}")
        mac = mac_text(free)
        self.conn.execute("INSERT INTO unit (serial, mac, mac_index, first_seen) "
                          "VALUES (?, ?, ?, ?)", (serial, mac, free - first, now))
        return mac, free - first

    def start_run(self, *, serial, fixture, station, operator, plan, plan_sha256, software, mac,
                  started=None):
        """Inserts the run as RUNNING and holds its lock until end_run."""
        run_id = str(uuid.uuid4())
        # The lock first: a sweep that sees the row then always finds it held.
        lock = _Flock(os.path.join(self.locks, run_id), 0)
        try:
            self._write("INSERT INTO run (id, serial, fixture, station, operator, plan, "
                        "plan_sha256, software, started, result, mac) "
                        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, 'RUNNING', ?)",
                        (run_id, serial, fixture, station, operator, plan, plan_sha256,
                         software, started or utc_now(), mac))
        except BaseException:
            lock.release(remove=True)
            raise
        with self._lock:
            self._held[run_id] = lock
        return run_id

    def add_step(self, run_id, idx, step):
        """One step's row, in its own transaction, as the step ends."""
        with self.transaction() as conn:
            conn.execute("INSERT INTO step (run_id, idx, name, command, verdict, duration, "
                         "output, note) VALUES (?, ?, ?, ?, ?, ?, ?, ?) "
                         "ON CONFLICT (run_id, idx) DO UPDATE "
                         "SET name = excluded.name, command = excluded.command, "
                         "verdict = excluded.verdict, duration = excluded.duration, "
                         "output = excluded.output, note = excluded.note",
                         (run_id, idx, step.get("name"), step.get("command"), step.get("verdict"),
                          step.get("duration"), step.get("output"), step.get("note")))
            conn.execute("DELETE FROM measurement WHERE run_id = ? AND step_idx = ?", (run_id, idx))
            conn.executemany("INSERT INTO measurement (run_id, step_idx, name, value, unit, low, "
                             "high, verdict) VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
                             [(run_id, idx, m["name"], m["value"], m["unit"], m["low"], m["high"],
                               m["verdict"]) for m in step.get("measurements") or ()])

    def end_run(self, run_id, result, error=None, record=None, junit=None, ended=None):
        if result not in RESULTS[1:]:
            raise ValueError(f"a run ends PASS, FAIL or ABORTED, not {result!r}")
        self._write("UPDATE run SET ended = ?, result = ?, error = ?, record = ?, junit = ? "
                    "WHERE id = ?", (ended or utc_now(), result, error, record, junit, run_id))
        with self._lock:
            lock = self._held.pop(run_id, None)
        if lock:
            lock.release(remove=True)

    def runs(self, limit=50):
        """The newest runs first, each a dict of the run's columns and its duration."""
        with self._lock:
            rows = self.conn.execute(f"SELECT {', '.join(RUN_COLUMNS)} FROM run "
                                     "ORDER BY started DESC, rowid DESC LIMIT ?",
                                     (limit,)).fetchall()
        runs = [dict(zip(RUN_COLUMNS, row)) for row in rows]
        for r in runs:
            r["duration"] = _seconds(r["started"], r["ended"])
        return runs

    def steps(self, run_id):
        with self._lock:
            cur = self.conn.execute("SELECT idx, name, command, verdict, duration, output, note "
                                    "FROM step WHERE run_id = ? ORDER BY idx", (run_id,))
            names = [d[0] for d in cur.description]
            return [dict(zip(names, row)) for row in cur.fetchall()]
