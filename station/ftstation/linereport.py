"""The yield report over a line's database: the line's rows of the period are
copied into a station database of their own in a temporary folder, which the
report then reads as it reads any station's. Every station of the line is in
it, so the report's per-station and per-fixture figures break the line down."""
import os
import sqlite3

import psycopg

from ftstation import db as stationdb
from ftstation import line

FETCH = 5000                 # rows a server-side cursor hands over at a time

RUN = stationdb.RUN_COLUMNS
# The report reads a step only when it failed (the Pareto); the passing ones,
# nearly all of them, stay on the line.
STEP = ("run_id", "idx", "name", "verdict", "duration", "note")
MEASUREMENT = stationdb.MEASUREMENT_COLUMNS
PERIOD = ("started >= %(since)s AND started < %(until)s "
          "AND (%(plan)s::text IS NULL OR plan = %(plan)s) "
          "AND (%(station)s::text IS NULL OR station = %(station)s)")


def snapshot(url, folder, since="", until="\uffff", plan=None, station=None):
    """Copies the line's runs of the period, their failing steps and their
    measurements into FOLDER/station.db; returns its path. LineError when the
    line cannot be read."""
    stationdb.StationDB(folder).close()             # the station database's own schema
    path = os.path.join(folder, "station.db")
    args = {"since": since or "", "until": until or "\uffff", "plan": plan, "station": station}
    local = sqlite3.connect(path, isolation_level=None)
    try:
        with line.connect(url) as conn:
            line.check_schema(conn, url)
            local.execute("BEGIN")
            for table, columns, sql in (
                    ("run", RUN, f"SELECT {', '.join(RUN)} FROM run WHERE {PERIOD} "
                                 "ORDER BY started, id"),
                    ("step", STEP, f"SELECT {', '.join('s.' + c for c in STEP)} FROM step s "
                                   f"JOIN run ON run.id = s.run_id WHERE s.verdict = 'FAIL' "
                                   f"AND {PERIOD}"),
                    ("measurement", MEASUREMENT,
                     f"SELECT {', '.join('m.' + c for c in MEASUREMENT)} FROM measurement m "
                     f"JOIN run ON run.id = m.run_id WHERE {PERIOD}")):
                with conn.cursor(name=f"report_{table}") as cur:
                    cur.itersize = FETCH
                    cur.execute(sql, args)
                    local.executemany(f"INSERT INTO {table} ({', '.join(columns)}) VALUES "
                                      f"({', '.join('?' * len(columns))})", cur)
            local.execute("COMMIT")
    except psycopg.Error as e:
        raise line.LineError(line.explain(url, e)) from None
    finally:
        local.close()
    return path
