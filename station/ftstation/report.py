"""ftstation report DB [--since DATE] [--until DATE] [--plan NAME] [--station ID]
--out FILE.html [--json FILE]

The yield report: one HTML page that fetches nothing, its charts inline SVG
drawn by matplotlib, and the same figures as JSON."""
import argparse
import datetime
import html
import io
import json
import os
import re
import sqlite3
import sys
import tempfile
import urllib.parse

from ftstation import figures
from ftstation.records import write_atomically

USAGE = ("ftstation report DB [--since DATE] [--until DATE] [--plan NAME] [--station ID] "
         "--out FILE.html [--json FILE]")
JSON_KEYS = ("units", "runs", "first_pass_yield", "final_yield", "retest_rate", "test_time",
             "units_per_hour", "pareto", "measurements", "fixtures")
MEASUREMENT_KEYS = ("name", "unit", "n", "mean", "stdev", "min", "max", "low", "high", "cp",
                    "cpk", "out_of_limits")
TIMEOUT = 30.0
TOP = 12             # steps the Pareto names one by one

# Colours: one for what passes, one for what fails, one for what is neither.
GOOD, BAD, WARN, INK, MUTED, BAR = "#1a7f37", "#cf222e", "#bf8700", "#1f2328", "#656d76", "#4a6fa5"


class ReportError(Exception):
    pass


def utc_bound(text, end=False):
    """An ISO 8601 date or time as the database writes times (UTC). A bare date
    as the end of the period takes that whole day in."""
    try:
        if re.fullmatch(r"\d{4}-\d{2}-\d{2}", text):
            when = datetime.datetime.strptime(text, "%Y-%m-%d").replace(
                tzinfo=datetime.timezone.utc)
            if end:
                when += datetime.timedelta(days=1)
        else:
            when = datetime.datetime.fromisoformat(text)
            if when.tzinfo is None:
                when = when.replace(tzinfo=datetime.timezone.utc)
    except ValueError:
        raise ReportError(f"{text!r} is not an ISO 8601 date or time, such as 2026-11-24 "
                          "or 2026-11-24T06:00:00Z") from None
    return when.astimezone(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.%fZ")


def connect(path):
    """The station database, read only: a report never writes to it."""
    if not os.path.isfile(path):
        raise ReportError(f"{path}: no such database file")
    try:
        conn = sqlite3.connect(f"file:{urllib.parse.quote(os.path.abspath(path))}?mode=ro",
                               uri=True, timeout=TIMEOUT)
        conn.execute(f"PRAGMA busy_timeout = {int(TIMEOUT * 1000)}")
        if not conn.execute("SELECT 1 FROM sqlite_master WHERE name = 'run'").fetchone():
            conn.close()
            raise ReportError(f"{path}: not a station database (it has no runs table)")
    except sqlite3.Error as e:
        raise ReportError(f"{path}: cannot read the station database: {e}") from None
    return conn


def as_json(found):
    out = {k: found[k] for k in JSON_KEYS}
    out["measurements"] = [{k: m[k] for k in MEASUREMENT_KEYS} for m in found["measurements"]]
    return out


# ---- charts ----------------------------------------------------------------------

def _figure(width, height):
    import matplotlib
    from matplotlib.figure import Figure
    # Text stays text in the SVG (the page's font, numbers a browser can find),
    # and a "$" in a step's name is a dollar sign, not mathematics.
    matplotlib.rcParams.update({"svg.fonttype": "none", "text.parse_math": False})
    fig = Figure(figsize=(width, height), layout="constrained")
    return fig, fig.subplots()


def _svg(fig):
    buf = io.StringIO()
    fig.savefig(buf, format="svg", metadata={"Date": None})
    text = buf.getvalue()
    return text[text.index("<svg"):]


def _plain(ax):
    for side in ("top", "right"):
        ax.spines[side].set_visible(False)
    ax.tick_params(colors=MUTED)
    ax.grid(axis="x" if ax.get_xlabel() == "" else "y", color="#d8dee4", linewidth=0.6)
    ax.set_axisbelow(True)


def pareto_chart(pareto):
    top = pareto[:TOP][::-1]
    fig, ax = _figure(6.4, 0.42 * len(top) + 0.9)
    ax.barh([p["step"] for p in top], [p["failures"] for p in top], color=BAD)
    for i, p in enumerate(top):
        ax.annotate(str(p["failures"]), (p["failures"], i), xytext=(4, 0),
                    textcoords="offset points", va="center", fontsize=10, color=INK)
    ax.set_xlabel("failures")
    _plain(ax)
    return _svg(fig)


def fixture_chart(fixtures, overall):
    rows = fixtures[::-1]
    fig, ax = _figure(6.4, 0.42 * len(rows) + 1.0)
    labels = [f"{f['station'] or '–'} / {f['fixture'] or '–'}" for f in rows]
    colours = [BAD if f["yield"] < overall - 0.05 else BAR for f in rows]
    ax.barh(labels, [100 * f["yield"] for f in rows], color=colours)
    ax.axvline(100 * overall, color=INK, linestyle="--", linewidth=1)
    ax.set_ylim(-0.6, len(rows) + 0.2)
    ax.annotate(f"all fixtures {100 * overall:.1f} %", (100 * overall, len(rows) - 0.4),
                xytext=(-4, 0), textcoords="offset points", ha="right", va="bottom", fontsize=9,
                color=INK)
    for i, f in enumerate(rows):
        ax.annotate(f"{100 * f['yield']:.1f} %  ({f['runs']} runs)", (100 * f["yield"], i),
                    xytext=(4, 0), textcoords="offset points", va="center", fontsize=10)
    ax.set_xlim(0, 135)
    ax.set_xticks([0, 25, 50, 75, 100])
    ax.set_xlabel("runs that passed, %")
    _plain(ax)
    return _svg(fig)


def histogram_chart(m):
    lo, hi = m["view"]
    width = (hi - lo) / figures.BINS
    fig, ax = _figure(4.6, 2.5)
    edges = [lo + i * width for i in range(figures.BINS)]
    inside = [(m["low"] is None or e + width / 2 >= m["low"])
              and (m["high"] is None or e + width / 2 <= m["high"]) for e in edges]
    ax.bar(edges, m["bins"], width=width, align="edge",
           color=[BAR if ok else BAD for ok in inside], edgecolor="white", linewidth=0.4)
    top = max(m["bins"]) or 1
    for key, limit in (("low", m["low"]), ("high", m["high"])):
        if limit is None:
            continue
        if lo <= limit <= hi:
            ax.axvline(limit, color=BAD, linewidth=1.6)
            # The high label a line lower: two limits close together stay legible.
            ax.annotate(f"{key} {limit:g}", (limit, top),
                        xytext=(3, 0) if key == "low" else (-3, -12),
                        textcoords="offset points", ha="left" if key == "low" else "right",
                        va="top", fontsize=9, color=BAD)
        else:
            # Far from every value: named at the chart's edge, not drawn to scale.
            x, ha, arrow = (lo, "left", "\u2190 ") if limit < lo else (hi, "right", "")
            ax.annotate(f"{arrow}{key} {limit:g}" + (" \u2192" if limit > hi else ""),
                        (x, top), ha=ha, va="top", fontsize=9, color=BAD)
    ax.axvline(m["mean"], color=INK, linestyle=":", linewidth=1)
    ax.set_xlim(lo, hi)
    ax.set_xlabel(m["unit"] or "value")
    ax.set_ylabel("values")
    _plain(ax)
    return _svg(fig)


def hourly_chart(hourly):
    import matplotlib.dates as mdates
    counts = {}
    for h, n in hourly:
        try:
            counts[datetime.datetime.strptime(h, "%Y-%m-%dT%H")] = n
        except (TypeError, ValueError):
            pass                 # a start the database holds in another form: not charted
    if not counts:
        return ""
    hour = datetime.timedelta(hours=1)
    edges = [min(counts)]
    while edges[-1] <= max(counts):      # hours without a unit show as 0
        edges.append(edges[-1] + hour)
    fig, ax = _figure(6.4, 2.6)
    ax.stairs([counts.get(h, 0) for h in edges[:-1]], mdates.date2num(edges), fill=True,
              color=BAR)
    ax.xaxis_date()
    locator = mdates.AutoDateLocator(maxticks=8)
    ax.xaxis.set_major_locator(locator)
    ax.xaxis.set_major_formatter(mdates.ConciseDateFormatter(locator))
    ax.set_ylabel("units started")
    ax.set_title("units per hour", loc="left", fontsize=11, color=INK)
    _plain(ax)
    return _svg(fig)


def times_chart(times, median, p95):
    fig, ax = _figure(6.4, 2.6)
    ax.hist(times, bins=figures.BINS, color=BAR, edgecolor="white", linewidth=0.4)
    for value, label in ((median, "median"), (p95, "p95")):
        ax.axvline(value, color=INK, linestyle="--" if label == "p95" else ":", linewidth=1)
        ax.annotate(f"{label} {value:.1f} s", (value, 1), xycoords=("data", "axes fraction"),
                    xytext=(3, -2), textcoords="offset points", va="top", fontsize=9)
    ax.set_xlabel("test time per run, s")
    ax.set_title("test time of the runs that passed or failed", loc="left", fontsize=11, color=INK)
    ax.set_ylabel("runs")
    _plain(ax)
    return _svg(fig)


# ---- the page --------------------------------------------------------------------

STYLE = """
body { font: 15px/1.4 system-ui, sans-serif; color: #1f2328; margin: 24px 32px; max-width: 1400px; }
h1 { font-size: 26px; margin: 0 0 4px; } h2 { font-size: 19px; margin: 32px 0 8px;
  border-bottom: 2px solid #d8dee4; padding-bottom: 4px; }
.sub { color: #656d76; margin-bottom: 18px; }
.tiles { display: flex; flex-wrap: wrap; gap: 12px; }
.tile { border: 1px solid #d8dee4; border-radius: 8px; padding: 10px 16px; min-width: 118px; }
.tile .v { font-size: 30px; font-weight: 600; font-variant-numeric: tabular-nums; }
.tile .k { color: #656d76; font-size: 13px; }
.good { color: #1a7f37; } .bad { color: #cf222e; } .warn { color: #9a6700; }
.pair { display: flex; flex-wrap: wrap; gap: 24px; align-items: flex-start; }
.grid { display: grid; grid-template-columns: repeat(auto-fill, minmax(460px, 1fr)); gap: 16px; }
.card { border: 1px solid #d8dee4; border-radius: 8px; padding: 10px 12px; }
.card h3 { margin: 0 0 4px; font-size: 16px; }
table { border-collapse: collapse; font-variant-numeric: tabular-nums; }
th, td { padding: 3px 10px; text-align: right; border-bottom: 1px solid #eaeef2; }
th:first-child, td:first-child { text-align: left; }
th { color: #656d76; font-weight: 600; }
svg { max-width: 100%; height: auto; }
.empty { font-size: 20px; color: #656d76; padding: 24px 0; }
"""


def _pct(x):
    return "–" if x is None else f"{100 * x:.1f} %"


def _num(x, digits=3):
    return "–" if x is None else f"{x:.{digits}g}"


def _cpk_class(cpk):
    # The usual reading: 1.33 is capable, below 1.0 the process makes rejects.
    if cpk is None:
        return ""
    return "good" if cpk >= 1.33 else "warn" if cpk >= 1.0 else "bad"


def _tile(value, key, cls=""):
    return (f'<div class="tile"><div class="v {cls}" data-figure="{key}">{html.escape(value)}'
            f'</div><div class="k">{html.escape(key.replace("_", " "))}</div></div>')


def page(found, title):
    e = html.escape
    parts = [f"<!DOCTYPE html><html><head><meta charset='utf-8'><title>{e(title)}</title>"
             f"<style>{STYLE}</style></head><body><h1>{e(title)}</h1>"]
    first, last = (t and t[:16].replace("T", " ") for t in found["span"])
    parts.append(f'<div class="sub">Runs started {e(first or "–")} to {e(last or "–")} UTC. '
                 "Yields count units by serial; an aborted run is a run, never a first attempt."
                 "</div>")
    if not found["units"]:
        parts.append('<div class="empty" id="empty">No finished runs in this period: '
                     "0 units.</div></body></html>")
        return "".join(parts)
    fpy = found["first_pass_yield"]
    t = found["test_time"]
    parts.append('<h2>Summary</h2><div class="tiles">' + "".join([
        _tile(str(found["units"]), "units"), _tile(str(found["runs"]), "runs"),
        _tile(_pct(fpy), "first_pass_yield", "good" if fpy >= 0.95 else "bad" if fpy < 0.9
              else "warn"),
        _tile(_pct(found["final_yield"]), "final_yield"),
        _tile(_pct(found["retest_rate"]), "retest_rate"),
        _tile("–" if t["median"] is None else f"{t['median']:.1f} s", "median_test_time"),
        _tile("–" if t["p95"] is None else f"{t['p95']:.1f} s", "p95_test_time"),
        _tile(_num(found["units_per_hour"]), "units_per_hour")]) + "</div>")

    parts.append("<h2>Failures by step</h2>")
    if found["pareto"]:
        total = sum(p["failures"] for p in found["pareto"])
        rows, running = [], 0
        for p in found["pareto"][:TOP]:
            running += p["failures"]
            rows.append(f"<tr><td>{e(p['step'])}</td><td>{p['failures']}</td>"
                        f"<td>{_pct(p['failures'] / total)}</td>"
                        f"<td>{_pct(running / total)}</td></tr>")
        rest = found["pareto"][TOP:]
        if rest:
            rows.append(f"<tr><td>{len(rest)} other steps</td><td>{total - running}</td>"
                        f"<td>{_pct(1 - running / total)}</td><td>{_pct(1.0)}</td></tr>")
        parts.append(f'<div class="pair"><div>{pareto_chart(found["pareto"])}</div>'
                     '<table id="pareto"><tr><th>step</th><th>failures</th><th>share</th>'
                     f'<th>cumulative</th></tr>{"".join(rows)}</table></div>')
    else:
        parts.append("<p>No step failed.</p>")

    runs_passed = sum(f["yield"] * f["runs"] for f in found["fixtures"]) / found["runs"]
    parts.append("<h2>Yield per fixture and station</h2><div class='pair'>"
                 f"<div>{fixture_chart(found['fixtures'], runs_passed)}</div>"
                 "<table id='fixtures'><tr><th>station / fixture</th><th>runs</th>"
                 "<th>yield</th></tr>"
                 + "".join(f"<tr><td>{e(f['station'] or '–')} / {e(f['fixture'] or '–')}</td>"
                           f"<td>{f['runs']}</td><td>{_pct(f['yield'])}</td></tr>"
                           for f in found["fixtures"])
                 + "".join(f"<tr><th>{e(s['station'] or '–')} (station)</th><th>{s['runs']}</th>"
                           f"<th>{_pct(s['yield'])}</th></tr>" for s in found["stations"])
                 + "</table></div>")

    if found["measurements"]:
        parts.append("<h2>Measurements</h2><div class='grid'>")
        for m in found["measurements"]:
            unit = f" {m['unit']}" if m["unit"] else ""
            chart = histogram_chart(m) if m["n"] else "<p>No value was read.</p>"
            low, high = (_num(x, 4) for x in (m["low"], m["high"]))
            limits = (f"limits {low} to {high}" if m["low"] is not None and m["high"] is not None
                      else f"limit \u2264 {high}" if m["high"] is not None
                      else f"limit \u2265 {low}" if m["low"] is not None else "no limits")
            parts.append(
                f"<div class='card' data-measurement='{e(m['name'])}'><h3>{e(m['name'])}"
                f"<span class='sub'>{e(unit)}, {limits}</span></h3>{chart}<table>"
                "<tr><th>n</th><th>mean</th><th>stdev</th><th>min</th><th>max</th><th>Cp</th>"
                "<th>Cpk</th><th>outside</th></tr>"
                f"<tr><td>{m['n']}</td><td>{_num(m['mean'], 4)}</td><td>{_num(m['stdev'])}</td>"
                f"<td>{_num(m['min'], 4)}</td><td>{_num(m['max'], 4)}</td><td>{_num(m['cp'])}</td>"
                f"<td class='{_cpk_class(m['cpk'])}'>{_num(m['cpk'])}</td>"
                f"<td class='{'bad' if m['out_of_limits'] else ''}'>{m['out_of_limits']}</td>"
                "</tr></table></div>")
        parts.append("</div>")

    parts.append("<h2>Throughput and test time</h2><div class='pair'>")
    if found["hourly"]:
        parts.append(f"<div>{hourly_chart(found['hourly'])}</div>")
    if found["times"]:
        parts.append(f"<div>{times_chart(found['times'], t['median'], t['p95'])}</div>")
    parts.append("</div></body></html>")
    return "".join(parts)


def render(db, *, since=None, until=None, plan=None, station=None, title=None):
    """The page and the figures for the runs in the period. DB is a station.db,
    or a line database's postgresql:// URL."""
    if db.startswith(("postgresql:", "postgres:")):
        return _over_line(db, since=since, until=until, plan=plan, station=station, title=title)
    conn = connect(db)
    try:
        found = figures.gather(conn, utc_bound(since) if since else "",
                               utc_bound(until, end=True) if until else "\uffff", plan, station)
    except sqlite3.Error as e:
        raise ReportError(f"{db}: cannot read the station database: {e}") from None
    finally:
        conn.close()
    if title is None:
        what = ", ".join(x for x in (f"plan {plan}" if plan else "", f"station {station}"
                                     if station else "") if x)
        title = "Yield report" + (f": {what}" if what else "")
        if since or until:
            title += f", {since or '…'} to {until or '…'}"
    return page(found, title), found


def make(db, out, *, since=None, until=None, plan=None, station=None, json_path=None):
    """Writes the report (and its JSON) for the runs in the period; returns the figures."""
    text, found = render(db, since=since, until=until, plan=plan, station=station)
    write_atomically(out, text.encode())
    if json_path:
        write_atomically(json_path, (json.dumps(as_json(found), indent=2) + "\n").encode())
    return found


def _over_line(url, **figures_of):
    """The report over every station of a line: its rows of the period, read
    through a station database made for the report."""
    from ftstation import line, linereport
    since, until = figures_of["since"], figures_of["until"]
    with tempfile.TemporaryDirectory(prefix="ftreport-") as folder:
        try:
            path = linereport.snapshot(url, folder, utc_bound(since) if since else "",
                                       utc_bound(until, end=True) if until else "\uffff",
                                       figures_of["plan"], figures_of["station"])
        except line.LineError as e:
            raise ReportError(str(e)) from None
        return render(path, **figures_of)


def main(argv):
    p = argparse.ArgumentParser(prog="ftstation", usage=USAGE)
    p.add_argument("verb", choices=["report"])
    p.add_argument("db")
    p.add_argument("--since")
    p.add_argument("--until")
    p.add_argument("--plan")
    p.add_argument("--station")
    p.add_argument("--out", required=True)
    p.add_argument("--json")
    args = p.parse_args(argv)
    try:
        for bound in (args.since, args.until):
            if bound:
                utc_bound(bound)
    except ReportError as e:
        p.error(str(e))
    try:
        found = make(args.db, args.out, since=args.since, until=args.until, plan=args.plan,
                     station=args.station, json_path=args.json)
    except (ReportError, OSError) as e:
        print(f"ftstation: {e}", file=sys.stderr)
        return 1
    print(f"report: {args.out}\nunits: {found['units']}, runs: {found['runs']}")
    return 0
