"""The yield report's figures over a station database: yields, retests, the
failure Pareto, each measurement's spread and capability, throughput and test
times. The database adds them up; Python keeps only what a figure needs (the
test times for their quantiles, a histogram's bins).

Which runs count: finished ones (RUNNING is left out) of a unit (a run without
a serial is an engineer's, not production's), started within [since, until).
An ABORTED run counts as a run, never as a unit's first attempt."""
import json
import math
import statistics

BINS = 24            # histogram bars of a measurement and of the test time
FAR = 2.0            # a limit further than this many data spans away is named, not drawn

# The counted runs, and their measurements, are set apart once in temporary
# tables; every figure is then one pass over them. Test time is taken over PASS
# and FAIL runs: an aborted run's end is when somebody stopped it (or the next
# start-up found it), not when testing ended.
SETUP = [
    "PRAGMA temp_store = MEMORY",
    "DROP TABLE IF EXISTS temp.counted",
    "DROP TABLE IF EXISTS temp.measured",
    """CREATE TEMP TABLE counted AS
       SELECT rowid AS rid, id, serial, fixture, station, result, started, ended FROM run
       WHERE result != 'RUNNING' AND serial IS NOT NULL AND started >= :since
         AND started < :until AND (:plan IS NULL OR plan = :plan)
         AND (:station IS NULL OR station = :station)""",
]
MEASURED = """
CREATE TEMP TABLE measured AS
SELECT m.name, m.value, m.unit, m.low, m.high, m.step_idx, r.started || r.id AS latest
FROM counted r CROSS JOIN measurement m ON m.run_id = r.id
"""

UNITS = """
WITH tries AS (
  SELECT serial,
    FIRST_VALUE(result) OVER (PARTITION BY serial ORDER BY result = 'ABORTED', started, rid
                              ROWS BETWEEN UNBOUNDED PRECEDING AND UNBOUNDED FOLLOWING) AS first,
    FIRST_VALUE(result) OVER (PARTITION BY serial ORDER BY started DESC, rid DESC
                              ROWS BETWEEN UNBOUNDED PRECEDING AND UNBOUNDED FOLLOWING) AS last
  FROM counted)
SELECT COUNT(*), SUM(first = 'PASS'), SUM(last = 'PASS')
FROM (SELECT serial, MIN(first) AS first, MIN(last) AS last FROM tries GROUP BY serial)
"""

TOTALS = """
SELECT COUNT(*), MIN(started), MAX(started),
       (julianday(MAX(started)) - julianday(MIN(started))) * 24.0 FROM counted
"""

TIMES = """
SELECT t FROM (SELECT ROUND((julianday(ended) - julianday(started)) * 86400.0, 3) AS t
               FROM counted WHERE result IN ('PASS', 'FAIL'))
WHERE t IS NOT NULL ORDER BY t
"""

PARETO = """
SELECT s.name, COUNT(*) AS failures, MIN(s.idx) AS place
FROM counted r JOIN step s ON s.run_id = r.id AND s.verdict = 'FAIL'
GROUP BY s.name ORDER BY failures DESC, place, s.name
"""

FIXTURES = """
SELECT station, fixture, COUNT(*), SUM(result = 'PASS') FROM counted
GROUP BY station, fixture ORDER BY station, fixture
"""

# A unit counts in the hour of its first run in the period.
HOURLY = """
SELECT substr(first, 1, 13), COUNT(*)
FROM (SELECT MIN(started) AS first FROM counted GROUP BY serial)
GROUP BY 1 ORDER BY 1
"""

# Sums taken about a value near each measurement's own (its smallest), so that
# the sample variance keeps its digits whatever the values' size.
MEASURES = """
WITH shift AS (SELECT name, MIN(value) AS k FROM measured GROUP BY name)
SELECT m.name, COUNT(m.value), SUM(m.value - shift.k),
       SUM((m.value - shift.k) * (m.value - shift.k)), MIN(m.value), MAX(m.value),
       SUM(m.value < m.low OR m.value > m.high), MIN(m.step_idx), shift.k,
       SUM(m.value != ROUND(m.value))
FROM measured m JOIN shift ON shift.name = m.name
GROUP BY m.name ORDER BY MIN(m.step_idx), m.name
"""

# The limits and unit of the latest run that measured each name.
LIMITS = "SELECT name, unit, low, high, MAX(latest) FROM measured GROUP BY name"

HISTOGRAM = """
WITH span(name, lo, width) AS MATERIALIZED (
  SELECT value ->> 0, value ->> 1, value ->> 2 FROM json_each(:spans))
SELECT m.name, MIN(CAST((m.value - span.lo) / span.width AS INTEGER), :bins - 1), COUNT(*)
FROM measured m CROSS JOIN span ON span.name = m.name
WHERE m.value IS NOT NULL GROUP BY 1, 2
"""


def _ratio(a, b):
    return a / b if b else None


def gather(conn, since="", until="\uffff", plan=None, station=None):
    """Every figure of the report, as a dict: the JSON's keys and, for the
    charts, "stations", "hourly", "times", "span" (first and last start) and
    each measurement's "bins"."""
    args = {"since": since or "", "until": until or "\uffff", "plan": plan, "station": station}
    q = lambda sql, **more: conn.execute(sql, {**args, **more}).fetchall()  # noqa: E731
    has_measurements = bool(q("SELECT 1 FROM sqlite_master WHERE name = 'measurement'"))
    for sql in SETUP:
        conn.execute(sql, args if ":" in sql else ())
    [(units, first_pass, final)] = q(UNITS)
    [(runs, first, last, hours)] = q(TOTALS)
    times = [t for (t,) in q(TIMES)]
    out = {
        "units": units, "runs": runs,
        "first_pass_yield": _ratio(first_pass or 0, units),
        "final_yield": _ratio(final or 0, units),
        "retest_rate": _ratio(runs - units, units),
        "test_time": {"median": statistics.median(times) if times else None,
                      "p95": _p95(times)},
        "units_per_hour": _ratio(units, hours) if hours else None,
        "pareto": [{"step": name, "failures": n} for name, n, _ in q(PARETO)],
        "measurements": [],
        "fixtures": [{"station": s, "fixture": f, "runs": n, "yield": p / n}
                     for s, f, n, p in q(FIXTURES)],
        "stations": [], "hourly": q(HOURLY), "times": times, "span": (first, last),
    }
    per_station = {}
    for f in out["fixtures"]:
        n, p = per_station.get(f["station"], (0, 0))
        per_station[f["station"]] = (n + f["runs"], p + f["yield"] * f["runs"])
    out["stations"] = [{"station": s, "runs": n, "yield": p / n}
                       for s, (n, p) in per_station.items()]
    if has_measurements and runs:
        conn.execute(MEASURED)
        out["measurements"] = _measurements(q)
    return out


def _p95(times):
    if len(times) < 2:
        return times[0] if times else None
    return statistics.quantiles(times, n=100, method="inclusive")[94]


def _measurements(q):
    limits = {name: (unit, low, high) for name, unit, low, high, _ in q(LIMITS)}
    found = []
    for name, n, s1, s2, lo, hi, outside, _, k, fractions in q(MEASURES):
        unit, low, high = limits[name]
        mean = k + s1 / n if n else None
        spread = s2 - s1 * s1 / n if n else 0.0
        # What is left of a constant's sums after rounding is no spread.
        stdev = (spread / (n - 1)) ** 0.5 if n >= 2 and spread > 1e-12 * s2 else \
            0.0 if n >= 2 else None
        cp = cpk = None
        if stdev:
            if low is not None and high is not None:
                cp = (high - low) / (6 * stdev)
            sides = [(high - mean) / (3 * stdev)] if high is not None else []
            sides += [(mean - low) / (3 * stdev)] if low is not None else []
            cpk = min(sides) if sides else None
        found.append({"name": name, "unit": unit, "n": n, "mean": mean, "stdev": stdev,
                      "min": lo, "max": hi, "low": low, "high": high, "cp": cp, "cpk": cpk,
                      "out_of_limits": outside or 0, "whole": not fractions})
    spans = []
    for m in found:
        if m["n"]:
            lo, hi = _view(m, m["whole"])
            m["view"] = (lo, hi)
            spans.append([m["name"], lo, (hi - lo) / BINS])
    bins = {}
    for name, b, count in q(HISTOGRAM, spans=json.dumps(spans), bins=BINS):
        bins.setdefault(name, [0] * BINS)[max(0, b)] += count
    for m in found:
        m["bins"] = bins.get(m["name"], [0] * BINS)
    return found


def _view(m, whole):
    """The value range a histogram spans: the data, and each limit that lies
    near enough to be drawn without squeezing the data into one bar. Whole
    numbers (dBm, say) get bars a whole number wide, centred on them."""
    lo, hi = m["min"], m["max"]
    width = hi - lo or max(abs(hi) * 0.1, 1e-9)
    far = width * FAR
    for limit in (m["low"], m["high"]):
        if limit is not None and lo - far <= limit <= hi + far:
            lo, hi = min(lo, limit), max(hi, limit)
    if whole:
        step = max(1, math.ceil((hi - lo + 1) / BINS))
        lo = math.floor(lo) - 0.5 - (BINS * step - (hi - lo + 1)) // 2
        return lo, lo + BINS * step
    pad = (hi - lo) * 0.05 or width * 0.5
    return lo - pad, hi + pad
