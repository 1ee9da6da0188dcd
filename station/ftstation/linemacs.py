"""MACs from the line: LineMacs puts the line's database in front of the
station database. A serial the line knows takes the line's MAC, a new serial's
MAC goes to the line as its run starts, and a used-up lease is renewed."""
import os
import threading

from ftstation import db as stationdb
from ftstation import line
from ftstation.leases import held, open_local, record_conflict, remaining

PASS_OVER = 64               # addresses held elsewhere that one new unit may pass over


class LineMacs:
    """The station database (any object with StationDB's methods), with MACs that
    come from the line. Everything else passes through to it. Calls to the line
    happen outside the database's lock, so a slow line holds up no other fixture."""

    def __init__(self, db, records, link, station, lease):
        self._db, self.link, self.station, self.lease = db, link, station, lease
        self._local, self._path = open_local(records), os.path.join(records, "station.db")
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
                with self._local_lock, stationdb.transaction(self._local, self._path) as conn:
                    conn.execute("DELETE FROM unit WHERE serial = ? AND mac = ?", (serial, mac))
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
            with self._local_lock, stationdb.transaction(self._local, self._path) as conn:
                conn.execute("INSERT INTO lease (line_lease, block_first, block_last, first_index, "
                             "last_index, next_index, taken) VALUES (?, ?, ?, ?, ?, ?, ?)",
                             (lease, first, last, start, end, start, stationdb.utc_now()))

    def _mark(self, serial, mac, conflict):
        """The unit is on the line (or in conflict with it): no need to register it."""
        with self._local_lock, stationdb.transaction(self._local, self._path) as conn:
            conn.execute("UPDATE unit SET on_line = ? WHERE serial = ?",
                         ("conflict" if conflict else "yes", serial))
            if conflict:
                record_conflict(conn, serial, mac, conflict)
