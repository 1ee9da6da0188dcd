"""MAC leases in station.db: the addresses a station holds from its line's
database, and the line's bookkeeping kept beside them (what it has, conflicts).

A station takes `lease` addresses of its plan's block at a time from the line,
records the lease in station.db, and gives its addresses out one by one, in
order, never going back: an address a lease skips stays unused for good. Once a
folder holds a lease for a block, every new unit's MAC comes from its leases,
with or without the line in reach (linemacs.py reaches the line)."""
import sqlite3

from ftstation import db as stationdb


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


def record_conflict(conn, serial, mac, conflict):
    """Keeps a conflict the line reported; kept until someone settles it by hand."""
    kind, holder = conflict
    conn.execute("INSERT OR IGNORE INTO line_conflict (serial, mac, kind, holder, found) "
                 "VALUES (?, ?, ?, ?, ?)", (serial, mac, kind, holder, stationdb.utc_now()))


def open_local(records):
    """A connection of our own to RECORDS/station.db (the StationDB has made
    and migrated it), for the line's bookkeeping."""
    conn = sqlite3.connect(f"{records}/station.db", timeout=stationdb.TIMEOUT,
                           isolation_level=None, check_same_thread=False)
    conn.execute(f"PRAGMA busy_timeout = {int(stationdb.TIMEOUT * 1000)}")
    return conn


def conflicts(conn):
    rows = conn.execute("SELECT serial, mac, kind, holder, found FROM line_conflict "
                        "ORDER BY found").fetchall()
    return [{"serial": s, "mac": m, "kind": k, "holder": h, "found": f,
             "text": (f"{s} holds {h} in the line, not {m}" if k == "serial"
                      else f"{m} of {s} is held by {h} in the line")}
            for s, m, k, h, f in rows]
