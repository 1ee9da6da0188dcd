"""The line's database: the PostgreSQL server every station of a line shares.

It keeps the line's units and their MACs, every station's runs with their steps
and measurements, the MAC blocks with the next index no station has leased, and
one row per lease. Stations reach it through psycopg 3 with a connect timeout
and a statement timeout on every connection; every problem reaching it is one
LineError line that says which it was (no answer, unknown host, password...)."""
import re
import threading
import time
import urllib.parse

import psycopg
import psycopg.conninfo

from ftstation import migrations
from ftstation.db import mac_text

CONNECT_TIMEOUT = 3          # seconds a connect may take
STATEMENT_TIMEOUT = 60_000   # milliseconds any statement may take
QUICK_TIMEOUT = 10_000       # ... while a unit waits to start
LOCK_KEY = 0x66746C696E65    # the advisory lock that keeps two line-inits apart

# The line's schema, oldest first; line-init brings a database up to the last.
MIGRATIONS = [
    (1, [
        "CREATE TABLE schema_version (version integer NOT NULL)",
        # One row per MAC block; `next` is the first index no station has leased
        # (past the block's size once it is used up). Overlapping blocks would
        # give one address twice: the exclusion constraint refuses them.
        """CREATE TABLE mac_block (
               id serial PRIMARY KEY,
               first bigint NOT NULL,
               last bigint NOT NULL,
               next bigint NOT NULL DEFAULT 0,
               created timestamptz NOT NULL DEFAULT now(),
               CHECK (first <= last AND first >= 0 AND last < 281474976710656),
               UNIQUE (first, last),
               EXCLUDE USING gist (int8range(first, last, '[]') WITH &&))""",
        """CREATE TABLE mac_lease (
               id bigserial PRIMARY KEY,
               block integer NOT NULL REFERENCES mac_block (id),
               station text NOT NULL,
               first_index bigint NOT NULL,
               last_index bigint NOT NULL,
               taken timestamptz NOT NULL DEFAULT now())""",
        """CREATE TABLE unit (
               serial text PRIMARY KEY,
               mac text NOT NULL UNIQUE,
               mac_index bigint NOT NULL,
               first_seen text NOT NULL,
               station text)""",
        """CREATE TABLE run (
               id text PRIMARY KEY,
               station text NOT NULL,
               serial text, fixture text, operator text,
               plan text, plan_sha256 text, software text,
               started text NOT NULL, ended text,
               result text NOT NULL CHECK (result IN ('PASS', 'FAIL', 'ABORTED')),
               error text, mac text, record text, junit text,
               uploaded timestamptz NOT NULL DEFAULT now())""",
        "CREATE INDEX run_started ON run (started)",
        "CREATE INDEX run_serial ON run (serial, started)",
        "CREATE INDEX run_station ON run (station, fixture)",
        """CREATE TABLE step (
               run_id text NOT NULL REFERENCES run (id),
               idx integer NOT NULL,
               name text, command text, verdict text, duration double precision,
               output text, note text,
               PRIMARY KEY (run_id, idx))""",
        """CREATE TABLE measurement (
               run_id text NOT NULL REFERENCES run (id),
               step_idx integer NOT NULL,
               name text NOT NULL,
               value double precision, unit text,
               low double precision, high double precision,
               verdict text,
               PRIMARY KEY (run_id, step_idx, name))""",
        "CREATE INDEX measurement_name ON measurement (name)",
        """CREATE FUNCTION mac_text(bigint) RETURNS text IMMUTABLE LANGUAGE sql AS
               $$ SELECT regexp_replace(upper(lpad(to_hex($1), 12, '0')), '(..)(?!$)', '\\1:', 'g') $$""",
        # Every leased address no unit of the line holds. A station hands out a
        # lease's addresses in order and never goes back, so those of a lease
        # that is not its station's newest for the block stay unused for good.
        """CREATE VIEW mac_unused AS
               SELECT l.id AS lease, l.station, mac_text(b.first + i) AS mac, i AS mac_index,
                      l.id = (SELECT max(n.id) FROM mac_lease n
                              WHERE n.station = l.station AND n.block = l.block) AS current
               FROM mac_lease l
               JOIN mac_block b ON b.id = l.block
               CROSS JOIN LATERAL generate_series(l.first_index, l.last_index) AS i
               WHERE NOT EXISTS (SELECT 1 FROM unit u WHERE u.mac = mac_text(b.first + i))""",
    ]),
]
LATEST = MIGRATIONS[-1][0]


class LineError(Exception):
    """The line's database cannot be used right now; one line that says why."""


class BadURL(LineError):
    """The URL itself is wrong (a bad station file, not a passing fault)."""


def check_url(url):
    """The URL as given, when it can name a line database; BadURL otherwise.
    A password never belongs in it: it comes from PGPASSWORD or ~/.pgpass."""
    if not isinstance(url, str) or not url.strip():
        raise BadURL("the line database's URL is empty")
    try:
        parts = urllib.parse.urlsplit(url)
        parts.port                               # noqa: B018 -- raises on a bad port
    except ValueError as e:
        raise BadURL(f"the line database's URL does not parse: {e}") from None
    if parts.scheme not in ("postgresql", "postgres"):
        raise BadURL(f"the line database's URL must begin with postgresql://, not {url!r}")
    query = urllib.parse.parse_qs(parts.query)
    if parts.password is not None or "password" in query:
        raise BadURL("the line database's URL holds a password: give it in PGPASSWORD "
                     "or ~/.pgpass, never in the station file")
    try:
        psycopg.conninfo.conninfo_to_dict(url)
    except psycopg.Error as e:
        raise BadURL(f"the line database's URL does not parse: {_first_line(e)}") from None
    return url


def describe(url):
    """Where the URL points, for messages: 'HOST:PORT/DB' or 'SOCKET/DB'."""
    try:
        info = psycopg.conninfo.conninfo_to_dict(url)
    except psycopg.Error:
        return url
    host = info.get("host") or "the local socket"
    port = f":{info['port']}" if info.get("port") else ""
    return f"{host}{port}/{info.get('dbname') or info.get('user') or ''}".rstrip("/")


def connect(url, autocommit=False, statement_timeout=STATEMENT_TIMEOUT):
    """A connection to the line, with the connect and statement timeouts;
    LineError (one line) when there is none."""
    check_url(url)
    try:
        return psycopg.connect(url, connect_timeout=CONNECT_TIMEOUT, autocommit=autocommit,
                               application_name="ftstation",
                               options=f"-c statement_timeout={statement_timeout}")
    except psycopg.Error as e:
        raise LineError(explain(url, e)) from None


def explain(url, error):
    """One line for a failed connect or statement, naming the kind of fault."""
    where = f"the line database {describe(url)}"
    text = _first_line(error)
    info = psycopg.conninfo.conninfo_to_dict(url) if url else {}
    user = info.get("user") or "(the login's own name)"
    if m := re.search(r'could not translate host name "([^"]+)"', text):
        return f"{where}: unknown host {m[1]}"
    if "Name or service not known" in text or "No address associated" in text:
        return f"{where}: unknown host {info.get('host')}"
    if "password authentication failed" in text:
        return f"{where}: wrong password for user {user} (PGPASSWORD or ~/.pgpass)"
    if "no password supplied" in text:
        return f"{where}: user {user} needs a password: set PGPASSWORD or ~/.pgpass"
    if "timeout expired" in text:
        return f"{where}: no answer within {CONNECT_TIMEOUT} s (host unreachable?)"
    if "Connection refused" in text or "No such file or directory" in text:
        return f"{where}: cannot be reached (connection refused: is the server running?)"
    if "statement timeout" in text:
        return f"{where}: a statement took too long ({text})"
    if isinstance(error, (psycopg.OperationalError, psycopg.InterfaceError)) and (
            "closed" in text or "terminat" in text or "server" in text):
        return f"{where}: the connection was lost ({text})"
    return f"{where}: {text}"


def _first_line(error):
    lines = [l.strip() for l in str(error).splitlines() if l.strip()]
    text = lines[0] if lines else type(error).__name__
    # libpq prefixes its messages with the address it tried.
    return re.sub(r'^(connection to server (at|on) .*? failed: |connection is bad: )', "", text)


def schema_version(conn):
    row = conn.execute("SELECT to_regclass('schema_version') IS NOT NULL").fetchone()
    if not row[0]:
        return 0
    return conn.execute("SELECT max(version) FROM schema_version").fetchone()[0] or 0


def init(url):
    """Creates the line's tables, or brings older ones up to date, in one
    transaction; returns (version before, version now). Safe to run again."""
    with connect(url) as conn:
        try:
            with conn.transaction():
                conn.execute("SELECT pg_advisory_xact_lock(%s)", (LOCK_KEY,))
                before = schema_version(conn)
                migrations.upgrade(conn.execute, before, MIGRATIONS, lambda latest: LineError(
                    f"the line database {describe(url)} is at schema version "
                    f"{before}, newer than this station software knows ({latest})"), "%s")
        except psycopg.Error as e:
            raise LineError(explain(url, e)) from None
    return before, LATEST


def check_schema(conn, url):
    """Refuses a line database that line-init has not brought up to date."""
    version = schema_version(conn)
    if version != LATEST:
        raise LineError(f"the line database {describe(url)} is at schema version {version}, "
                        f"this station needs {LATEST}: run ./ftstation line-init")


def take_lease(conn, station, first, last, count, after=-1):
    """Leases `count` addresses of the block first..last (48-bit numbers) to the
    station, in one transaction: the block is added when the line does not know
    it, and its next free index moves on in one statement, so two stations never
    hold one address. `after`: the highest index the station gave out before it
    held any lease, which no lease may include. Returns (lease id, first index,
    last index); LineError when the block is used up or overlaps another."""
    size = last - first + 1
    with conn.transaction():
        conn.execute("INSERT INTO mac_block (first, last) VALUES (%s, %s) ON CONFLICT DO NOTHING",
                     (first, last))
        if after >= 0:
            conn.execute("UPDATE mac_block SET next = greatest(next, %s) "
                         "WHERE first = %s AND last = %s", (after + 1, first, last))
        row = conn.execute("UPDATE mac_block SET next = next + %s "
                           "WHERE first = %s AND last = %s AND next < %s "
                           "RETURNING id, next - %s", (count, first, last, size, count)).fetchone()
        if row is None:
            block = conn.execute("SELECT first, last FROM mac_block WHERE first = %s AND last = %s",
                                 (first, last)).fetchone()
            if block:
                raise LineError(f"the MAC block {mac_text(first)} to {mac_text(last)} is used up "
                                "on the line")
            other = conn.execute("SELECT first, last FROM mac_block WHERE "
                                 "int8range(first, last, '[]') && int8range(%s, %s, '[]') LIMIT 1",
                                 (first, last)).fetchone()
            span = f"{mac_text(other[0])} to {mac_text(other[1])}" if other else "another block"
            raise LineError(f"the MAC block {mac_text(first)} to {mac_text(last)} overlaps the "
                            f"line's block {span}: refused")
        block, start = row
        end = min(start + count, size) - 1
        lease = conn.execute("INSERT INTO mac_lease (block, station, first_index, last_index) "
                             "VALUES (%s, %s, %s, %s) RETURNING id",
                             (block, station, start, end)).fetchone()[0]
    return lease, start, end


def unit_of(conn, serial):
    """(mac, mac_index) the line holds for the serial, or None."""
    conn.execute("SELECT 1")      # a broken connection fails here, not in the answer
    row = conn.execute("SELECT mac, mac_index FROM unit WHERE serial = %s", (serial,)).fetchone()
    conn.commit()
    return tuple(row) if row else None


def claim(conn, serial, mac, index, first_seen, station):
    """Writes a new unit's MAC to the line; returns None, or the conflict as
    (kind, holder) when the line holds the serial with another MAC ("serial")
    or the MAC for another serial ("mac")."""
    with conn.transaction():
        conn.execute("INSERT INTO unit (serial, mac, mac_index, first_seen, station) "
                     "VALUES (%s, %s, %s, %s, %s) ON CONFLICT DO NOTHING",
                     (serial, mac, index, first_seen, station))
        rows = conn.execute("SELECT serial, mac FROM unit WHERE serial = %s OR mac = %s",
                            (serial, mac)).fetchall()
    return conflict_of(serial, mac, rows)


def conflict_of(serial, mac, rows):
    for held_serial, held_mac in rows:
        if held_serial == serial and held_mac != mac:
            return "serial", held_mac
        if held_mac == mac and held_serial != serial:
            return "mac", held_serial
    return None


class Link:
    """One station's connection to its line, shared by its fixtures' threads,
    one call at a time. After a fault the line counts as out of reach for
    `quiet` seconds, so units starting meanwhile do not each wait for a connect;
    `up()` (the uploader got through) ends that at once."""

    def __init__(self, url, quiet=30.0):
        self.url, self.quiet = check_url(url), quiet
        self._conn, self._down_until, self.last_error = None, 0.0, None
        self._lock = threading.Lock()

    def call(self, fn, *args):
        """fn(connection, *args) on the line; LineError when it cannot be reached
        (and for refusals fn raises itself)."""
        with self._lock:
            if time.monotonic() < self._down_until:
                raise LineError(self.last_error)
            try:
                if self._conn is None or self._conn.closed:
                    conn = connect(self.url, statement_timeout=QUICK_TIMEOUT)
                    try:
                        check_schema(conn, self.url)
                        conn.commit()
                    except BaseException:
                        conn.close()
                        raise
                    self._conn = conn
                return fn(self._conn, *args)
            except psycopg.Error as e:
                self._fault(explain(self.url, e))
            except LineError as e:
                if self._conn is None or self._conn.closed or self._conn.broken:
                    self._fault(str(e))
                raise

    def _fault(self, text):
        self.last_error = text
        self._down_until = time.monotonic() + self.quiet
        self.close()
        raise LineError(text)

    def up(self):
        self._down_until = 0.0

    def close(self):
        conn, self._conn = self._conn, None
        if conn is not None:
            try:
                conn.close()
            except psycopg.Error:
                pass
