"""MAC leases: the addresses a station holds from its line's database.

A station takes `lease` addresses of its plan's block at a time from the line,
records the lease in station.db, and gives its addresses out one by one, in
order, never going back: an address a lease skips stays unused for good. Once a
folder holds a lease for a block, every new unit's MAC comes from its leases,
with or without the line in reach. LineMacs puts the line in front of the
station database: a serial the line knows takes the line's MAC, a new serial's
MAC goes to the line as its run starts, and a used-up lease is renewed."""
import sqlite3
import threading

from ftstation import db as stationdb
from ftstation import line

PASS_OVER = 64               # addresses held elsewhere that one new unit may pass over


# --- in station.db, inside the caller's transaction ---------------------------

def held(conn, first, last):
    """Whether the folder holds any lease of this block."""
    return conn.execute("SELECT 1 FROM lease WHERE block_first = ? AND block_last = ? LIMIT 1",
                        (first, last)).fetchone() is not None


def within(conn, first, last, index):
    return conn.execute("SELECT 1 FROM lease WHERE block_first = ? AND block_last = ? AND "
                        "? BETWEEN first_index AND last_index LIMIT 1",
                        (first, last, index)).fetchone() is not None


def give(conn, serial, first, last, now):
    """The next address of the oldest lease with one left, given to the serial.
    An address some unit of the folder already holds (given before the folder
    joined its line) is passed over."""
    while True:
        row = conn.execute(
            "UPDATE lease SET next_index = next_index + 1 WHERE id = ("
            "  SELECT id FROM lease WHERE block_first = ? AND block_last = ? "
            "  AND next_index <= last_index ORDER BY id LIMIT 1) "
            "RETURNING next_index - 1", (first, last)).fetchone()
        if row is None:
            raise stationdb.LeaseUsedUp(
                f"the MAC leases of this station are used up: no MAC for {serial} until the "
                "line's database is reached for a new lease")
        mac = stationdb.mac_text(first + row[0])
        if conn.execute("SELECT 1 FROM unit WHERE mac = ?", (mac,)).fetchone() is None:
            conn.execute("INSERT INTO unit (serial, mac, mac_index, first_seen) VALUES (?, ?, ?, ?)",
                         (serial, mac, row[0], now))
            return mac, row[0]


def remaining(conn, first, last):
    return conn.execute("SELECT COALESCE(SUM(last_index - next_index + 1), 0) FROM lease "
                        "WHERE block_first = ? AND block_last = ? AND next_index <= last_index",
                        (first, last)).fetchone()[0]


def open_local(records):
    """A connection of our own to RECORDS/station.db (the StationDB has made
    and migrated it), for the line's bookkeeping."""
    conn = sqlite3.connect(f"{records}/station.db", timeout=stationdb.TIMEOUT,
                           isolation_level=None, check_same_thread=False)
    conn.execute(f"PRAGMA busy_timeout = {int(stationdb.TIMEOUT * 1000)}")
    return conn


def write(conn, statements):
    """Several statements in one transaction."""
    conn.execute("BEGIN IMMEDIATE")
    try:
        for sql, args in statements:
            conn.execute(sql, args)
        conn.execute("COMMIT")
    except BaseException:
        conn.execute("ROLLBACK")
        raise


def record_conflict(conn, serial, mac, conflict):
    """Keeps a conflict the line reported; kept until someone settles it by hand."""
    kind, holder = conflict
    return ("INSERT OR IGNORE INTO line_conflict (serial, mac, kind, holder, found) "
            "VALUES (?, ?, ?, ?, ?)", (serial, mac, kind, holder, stationdb.utc_now()))


def conflicts(conn):
    rows = conn.execute("SELECT serial, mac, kind, holder, found FROM line_conflict "
                        "ORDER BY found").fetchall()
    return [{"serial": s, "mac": m, "kind": k, "holder": h, "found": f,
             "text": (f"{s} holds {h} in the line, not {m}" if k == "serial"
                      else f"{m} of {s} is held by {h} in the line")}
            for s, m, k, h, f in rows]


# --- the line in front of the station database ---------------------------------

class LineMacs:
    """The station database (any object with StationDB's methods), with MACs that
    come from the line. Everything else passes through to it. Calls to the line
    happen outside the database's lock, so a slow line holds up no other fixture."""

    def __init__(self, db, records, link, station, lease):
        self._db, self.link, self.station, self.lease = db, link, station, lease
        self._local = open_local(records)
        self._local_lock = threading.Lock()
        self._leasing = threading.Lock()

    def __getattr__(self, name):
        return getattr(self._db, name)

    def close_line(self):
        with self._local_lock:
            self._local.close()

    def _read(self, sql, args=()):
        with self._local_lock:
            return self._local.execute(sql, args).fetchall()

    def mac_for(self, serial, first, last, index=None, from_line=False):
        if self._read("SELECT 1 FROM unit WHERE serial = ?", (serial,)) or from_line:
            return self._db.mac_for(serial, first, last, index, from_line)
        if index is None:
            try:
                known = self.link.call(line.unit_of, serial)
            except line.LineError:
                known = None           # out of reach: the upload finds any conflict later
            if known:
                number = stationdb.mac_number(known[0])
                if not first <= number <= last:
                    raise stationdb.MacError(f"{serial} holds MAC {known[0]} in the line, outside "
                                             f"this plan's block {stationdb.mac_text(first)} to "
                                             f"{stationdb.mac_text(last)}")
                mac, index = self._db.mac_for(serial, first, last, number - first, True)
                self._mark(serial, mac, None)
                return mac, index
        passed = 0
        while True:
            mac, given = self._give(serial, first, last, index)
            try:
                conflict = self.link.call(line.claim, serial, mac, given, stationdb.utc_now(),
                                          self.station)
            except line.LineError:
                return mac, given      # registered at the next upload
            if conflict and conflict[0] == "mac" and index is None and passed < PASS_OVER:
                # The line holds this address for a unit another station gave it
                # before it joined: pass it over, as a used one.
                with self._local_lock:
                    write(self._local, [("DELETE FROM unit WHERE serial = ? AND mac = ?",
                                         (serial, mac))])
                passed += 1
                continue
            self._mark(serial, mac, conflict)
            return mac, given

    def _give(self, serial, first, last, index):
        """The folder's next address for a new serial, renewing the lease as needed."""
        for attempt in range(2):
            if attempt or not self._read("SELECT 1 FROM lease WHERE block_first = ? AND "
                                         "block_last = ? LIMIT 1", (first, last)):
                self.renew(first, last, serial)
            try:
                return self._db.mac_for(serial, first, last, index)
            except stationdb.LeaseUsedUp:
                if attempt:
                    raise

    def renew(self, first, last, serial="a new unit"):
        """Takes a new lease from the line and records it; MacError when the line
        refuses or cannot be reached."""
        with self._leasing:
            with self._local_lock:
                left = remaining(self._local, first, last)
                fresh = not held(self._local, first, last)
                before = self._local.execute(
                    "SELECT MAX(mac_index) FROM unit WHERE mac BETWEEN ? AND ?",
                    (stationdb.mac_text(first), stationdb.mac_text(last))).fetchone()[0]
            if left:
                return                 # another fixture renewed it meanwhile
            try:
                lease, start, end = self.link.call(line.take_lease, self.station, first, last,
                                                   self.lease, before if fresh and before is not None
                                                   else -1)
            except line.LineError as e:
                what = "no MAC lease yet" if fresh else "the station's MAC leases are used up"
                raise stationdb.MacError(f"{what}, and the line cannot give one: {e}; "
                                         f"no MAC for {serial}") from None
            with self._local_lock:
                write(self._local, [("INSERT INTO lease (line_lease, block_first, block_last, "
                                     "first_index, last_index, next_index, taken) "
                                     "VALUES (?, ?, ?, ?, ?, ?, ?)",
                                     (lease, first, last, start, end, start,
                                      stationdb.utc_now()))])

    def _mark(self, serial, mac, conflict):
        """The unit is on the line (or in conflict with it): no need to register it."""
        statements = [("UPDATE unit SET on_line = ? WHERE serial = ?",
                       ("conflict" if conflict else "yes", serial))]
        if conflict:
            statements.append(record_conflict(self._local, serial, mac, conflict))
        with self._local_lock:
            write(self._local, statements)
