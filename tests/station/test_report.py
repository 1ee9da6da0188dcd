"""The yield report: every figure against one computed here, in plain Python,
from the runs written straight into the database; and the page in headless
Chromium."""
import datetime
import json
import os
import random
import re
import statistics
import uuid

import pytest

from conftest import REPO, ftstation, write_runs
from pages import chromium

T0 = datetime.datetime(2026, 11, 2, 6, 0, tzinfo=datetime.timezone.utc)
STEPS = ["program MAC address", "gencert", "LCD red", "ping the station", "Wi-Fi scan"]
# Measurements of the rows written directly: (name, unit, low, high, step index)
MEASURES = [("ping_rtt_avg", "ms", None, 10.0, 4), ("wifi_station_signal", "dBm", -65.0, -20.0, 5),
            ("flat", "", 0.0, 2.0, 3), ("bare", "s", None, None, 1)]


def utc(minutes):
    return (T0 + datetime.timedelta(minutes=minutes)).strftime("%Y-%m-%dT%H:%M:%S.%fZ")


def edge_runs():
    """Station st9: retests, aborted runs, runs left out, and a Pareto tie
    (gencert and Wi-Fi scan fail twice each: gencert comes first in the plan)."""
    rows = [("U1", "A", "FAIL", ["Wi-Fi scan"], 0), ("U1", "B", "PASS", [], 5),
            ("U2", "A", "ABORTED", [], 1), ("U2", "A", "PASS", [], 3),
            ("U3", "C", "ABORTED", [], 2),
            ("U4", "B", "PASS", [], 4), ("U4", "B", "ABORTED", [], 6),
            ("U6", "C", "FAIL", ["gencert", "LCD red"], 9), ("U6", "C", "FAIL", ["gencert"], 11),
            ("U7", "A", "FAIL", ["Wi-Fi scan"], 12),
            ("U5", "A", "RUNNING", [], 7), (None, "A", "FAIL", ["gencert"], 8)]
    return [run(serial, "st9", fixture, result, failed, minutes, 20.0 + minutes / 7)
            for serial, fixture, result, failed, minutes in rows]


def scattered_runs(n=240):
    """Two stations, four fixtures, D the bad one; one unit in ten retested."""
    rnd, runs, serial = random.Random(25), [], 0
    for k in range(n):
        serial += rnd.random() > 0.1 or not serial
        fixture = rnd.choice("ABCD")
        failed = [rnd.choice(STEPS)] if rnd.random() < (0.35 if fixture == "D" else 0.05) else []
        result = "FAIL" if failed else "ABORTED" if rnd.random() < 0.02 else "PASS"
        runs.append(run(f"SN{serial:07d}", rnd.choice(["st1", "st2"]), fixture, result, failed,
                        60 + k * 0.75, rnd.gauss(23, 1.5), rnd))
    return runs


def run(serial, station, fixture, result, failed, minutes, seconds, rnd=None):
    rnd = rnd or random.Random(minutes)
    r = {"id": str(uuid.uuid4()), "serial": serial, "station": station, "fixture": fixture,
         "plan": "production", "result": result, "start": utc(minutes),
         "end": None if result == "RUNNING" else utc(minutes + seconds / 60),
         "steps": [{"name": name, "verdict": "FAIL" if name in failed else "PASS",
                    "measurements": []} for name in STEPS]}
    values = {"ping_rtt_avg": rnd.gauss(0.3, 0.1), "wifi_station_signal": round(rnd.gauss(-50, 6)),
              "flat": 1.0, "bare": rnd.uniform(1, 2)}
    for name, unit, low, high, idx in MEASURES:
        v = values[name]
        r["steps"][idx - 1]["measurements"].append({
            "name": name, "value": v, "unit": unit, "low": low, "high": high,
            "verdict": "PASS" if (low is None or v >= low) and (high is None or v <= high)
            else "FAIL"})
    return r


# ---- the figures, computed the plain way ------------------------------------------

def expected(runs, since="", until="~", station=None):
    runs = sorted((r for r in runs if r["result"] != "RUNNING" and r["serial"]
                   and since <= r["start"] < until and station in (None, r["station"])),
                  key=lambda r: r["start"])
    if not runs:
        return {"units": 0, "runs": 0, "first_pass_yield": None, "final_yield": None,
                "retest_rate": None, "test_time": {"median": None, "p95": None},
                "units_per_hour": None, "pareto": [], "measurements": [], "fixtures": []}
    units = {}
    for r in runs:
        units.setdefault(r["serial"], []).append(r)
    firsts = [next((r for r in rs if r["result"] != "ABORTED"), None) for rs in units.values()]
    parse = lambda t: datetime.datetime.fromisoformat(t)  # noqa: E731
    times = sorted((parse(r["end"]) - parse(r["start"])).total_seconds() for r in runs
                   if r["result"] in ("PASS", "FAIL"))
    hours = (parse(runs[-1]["start"]) - parse(runs[0]["start"])).total_seconds() / 3600
    failures, place = {}, {}        # a step's place: where it first failed in its plan
    values, limits = {}, {}
    for r in runs:
        for i, s in enumerate(r["steps"], 1):
            if s["verdict"] == "FAIL":
                failures[s["name"]] = failures.get(s["name"], 0) + 1
                place[s["name"]] = min(place.get(s["name"], i), i)
            for m in s.get("measurements", []):
                limits[m["name"]] = (m["unit"], m["low"], m["high"])   # the latest run's
                values.setdefault(m["name"], [])
                if m["value"] is not None:
                    values[m["name"]].append(m["value"])
    fixtures = {}
    for r in runs:
        fixtures.setdefault((r["station"], r["fixture"]), []).append(r["result"] == "PASS")
    return {
        "units": len(units), "runs": len(runs),
        "first_pass_yield": sum(bool(f) and f["result"] == "PASS" for f in firsts) / len(units),
        "final_yield": sum(rs[-1]["result"] == "PASS" for rs in units.values()) / len(units),
        "retest_rate": (len(runs) - len(units)) / len(units),
        "test_time": {"median": statistics.median(times),
                      "p95": statistics.quantiles(times, n=100, method="inclusive")[94]},
        "units_per_hour": len(units) / hours,
        "pareto": [{"step": s, "failures": n} for s, n in
                   sorted(failures.items(), key=lambda kv: (-kv[1], place[kv[0]], kv[0]))],
        "measurements": sorted((capability(name, values[name], *limits[name]) for name in values),
                               key=lambda m: m["name"]),
        "fixtures": [{"station": s, "fixture": f, "runs": len(p), "yield": sum(p) / len(p)}
                     for (s, f), p in sorted(fixtures.items())],
    }


def capability(name, values, unit, low, high):
    n = len(values)
    mean = statistics.mean(values) if n else None
    sd = statistics.stdev(values) if n >= 2 else None
    ok = sd and low is not None and high is not None
    cpk = ([(high - mean) / (3 * sd)] if sd and high is not None else []) + (
        [(mean - low) / (3 * sd)] if sd and low is not None else [])
    return {"name": name, "unit": unit, "n": n, "mean": mean, "stdev": sd,
            "min": min(values, default=None), "max": max(values, default=None), "low": low,
            "high": high, "cp": (high - low) / (6 * sd) if ok else None,
            "cpk": min(cpk) if cpk else None,
            "out_of_limits": sum((low is not None and v < low) or (high is not None and v > high)
                                 for v in values)}


@pytest.fixture(scope="module")
def station(tmp_path_factory):
    tmp = tmp_path_factory.mktemp("report")
    records = str(tmp / "records")
    runs = edge_runs() + scattered_runs()
    write_runs(records, runs)
    return os.path.join(records, "station.db"), runs, tmp


REPORTS = [
    # (arguments, what the expected figures are taken over)
    ((), {}),
    (("--station", "st9"), {"station": "st9"}),
    (("--since", utc(100)[:19], "--until", "2026-11-02T07:50:00+00:00"),
     {"since": utc(100), "until": utc(110)}),
    (("--since", "2030-01-01"), {"since": "2030"}),
]


@pytest.mark.parametrize("args, over", REPORTS)
def test_figures(station, args, over):
    db, runs, tmp = station
    out, js = tmp / "r.html", tmp / "r.json"
    r = ftstation("report", db, *args, "--out", out, "--json", js)
    assert r.returncode == 0, r.stderr
    with open(js) as f:
        got = json.load(f)
    want = expected(runs, **over)
    got["measurements"].sort(key=lambda m: m["name"])
    _approx(got, want)
    if not want["units"]:
        assert "0 units" in out.read_text()
    if over.get("station") == "st9":
        assert [p["step"] for p in got["pareto"]] == ["gencert", "Wi-Fi scan", "LCD red"]


def _approx(got, want):
    """Floats to a millisecond (the database keeps times to one); the rest exact."""
    def walk(a, b):
        if isinstance(b, dict):
            return isinstance(a, dict) and a.keys() == b.keys() and all(walk(a[k], b[k]) for k in b)
        if isinstance(b, list):
            return isinstance(a, list) and len(a) == len(b) and all(map(walk, a, b))
        if isinstance(b, float):
            return isinstance(a, (int, float)) and a == pytest.approx(b, rel=1e-9, abs=2e-3)
        return a == b
    assert walk(got, want), json.dumps({"got": got, "want": want}, indent=1)


def test_the_page_in_a_browser(station):
    db, runs, tmp = station
    out, js = tmp / "page.html", tmp / "page.json"
    assert ftstation("report", db, "--station", "st1", "--out", out,
                     "--json", js).returncode == 0
    html = out.read_text()
    # Fetches nothing: the only references are to the page's own SVG parts.
    assert not re.search(r"""(src|href)\s*=\s*["'](?!#)|url\((?!#)|@import""", html)
    with open(js) as f:
        figures = json.load(f)
    with chromium() as driver:
        driver.get(f"file://{out}")
        tile = lambda key: driver.find_element(  # noqa: E731
            "css selector", f"[data-figure={key}]").text
        assert tile("units") == str(figures["units"])
        assert tile("first_pass_yield") == f"{100 * figures['first_pass_yield']:.1f} %"
        assert tile("retest_rate") == f"{100 * figures['retest_rate']:.1f} %"
        charts = driver.find_elements("css selector", "svg")
        # Pareto, fixtures, one per measurement, units per hour, test time
        assert len(charts) == 4 + len(figures["measurements"])
        assert all(c.size["width"] > 200 and c.size["height"] > 100 for c in charts)
        cards = driver.find_elements("css selector", "[data-measurement]")
        assert [c.get_attribute("data-measurement") for c in cards] == [
            m["name"] for m in figures["measurements"]]
        first = figures["pareto"][0]
        assert driver.find_element("id", "pareto").text.splitlines()[1].startswith(
            f"{first['step']} {first['failures']} ")
        height = driver.execute_script("return document.documentElement.scrollHeight"
                                       " + window.outerHeight - window.innerHeight")
        driver.set_window_size(1400, height)
        os.makedirs(os.path.join(REPO, "docs"), exist_ok=True)
        driver.save_screenshot(os.path.join(REPO, "docs", "report.png"))
