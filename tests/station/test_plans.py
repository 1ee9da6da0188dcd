"""The plan runner: exit statuses, the unit's record and the JUnit report, and
the reference production flow on simulated phones."""
import glob
import json
import os
import subprocess
import tomllib
import xml.etree.ElementTree as ET

import pytest

from conftest import FTSIM, FTSTATION, REPO, ftstation, new_phone, plan_text

PRODUCTION = os.path.join(REPO, "station", "plans", "production.toml")


def write_plan(tmp_path, text):
    path = tmp_path / "plan.toml"
    path.write_text(text)
    return str(path)


def run_plan(tmp_path, text, *target, unit="SN1"):
    plan = write_plan(tmp_path, text)
    r = ftstation("run", plan, "--unit", unit, "--records", tmp_path / "rec",
                  "--junit", tmp_path / "junit.xml", *target)
    [record] = glob.glob(str(tmp_path / "rec" / f"{unit}-*.json")) or [None]
    with open(record) as f:
        record = json.load(f)
    junit = ET.parse(tmp_path / "junit.xml").getroot()
    return r, record, junit


STEP = '[[step]]\nname = "{}"\ncommand = "{}"\n'
MEASURE = "[[step.measure]]\nname = '{}'\nregex = '{}'\n"

# (plan, extra arguments, the one line)
BAD_PLANS = [(c["plan"], c["extra"], c["line"])
             for c in tomllib.loads(plan_text("bad_plans.toml"))["case"]]


@pytest.mark.parametrize("text, extra, line", BAD_PLANS)
def test_a_bad_plan_is_one_line_and_status_2(tmp_path, text, extra, line):
    plan = write_plan(tmp_path, text)
    r = ftstation("run", plan, "--unit", "SN1", *extra, "--", "/bin/false")
    assert (r.returncode, r.stdout, r.stderr.count("\n")) == (2, "", 1)
    assert r.stderr.startswith(f"ftstation: {plan}{line}"), r.stderr


FAILING = (STEP.format("write", "program write nosuch 1")
           + STEP.format("read back", "program read phonesn")
           + "output = 'SN_UNIT = \"<NOT Initialized>\"'\n")


def test_a_failing_step_stops_the_run(tmp_path, phone):
    r, record, junit = run_plan(tmp_path, FAILING, "--phone", phone)
    assert r.returncode == 1
    assert [(s["name"], s["verdict"]) for s in record["steps"]] == [("write", "FAIL"),
                                                                   ("read back", "SKIP")]
    assert record["steps"][0]["output"] == "FAIL" and record["result"] == "FAIL"
    [failure] = junit.iter("failure")
    assert (failure.get("message"), failure.text) == ("verdict FAIL, wanted PASS", "FAIL")
    assert len(list(junit.iter("skipped"))) == 1
    assert r.stdout.splitlines()[0].startswith("[1/2] write ")


def test_a_timeout_names_the_step_and_keeps_the_tail(tmp_path):
    stand_in = "printf 'ft>'; read l; echo 'ping 10.0.0.1'; echo 'still pinging'; sleep 60"
    text = STEP.format("ping", "ping 10.0.0.1") + "timeout = 0.5\n" + STEP.format("next", "info")
    r, record, junit = run_plan(tmp_path, text, "--", "/bin/sh", "-c", stand_in)
    assert r.returncode == 1
    first = record["steps"][0]
    assert first["note"] == "no reply to 'ping 10.0.0.1' within 0.5 s"
    assert first["output"].endswith("--- the console's last output ---\nft>ping 10.0.0.1\n"
                                    "ping 10.0.0.1\nstill pinging")
    assert record["steps"][1]["verdict"] == "SKIP"
    assert first["duration"] < 5


def test_the_production_flow(tmp_path):
    """A fresh phone goes to production mode; with its display unplugged the
    LCD steps fail, the rest still run, and the phone stays in factory mode."""
    runs = {}
    for name, unplug in (("fresh", ()), ("nodisplay", ("display",))):
        phone = new_phone(str(tmp_path / name), *unplug)
        index = ("--unit-index", "5") if name == "fresh" else ()   # the other's from the database
        runs[name] = (phone, subprocess.Popen(
            [FTSTATION, "run", PRODUCTION, "--phone", phone, "--unit", f"SN-{name}", *index,
             "--station", "line-3", "--records", str(tmp_path / "rec")],
            stdout=subprocess.PIPE, text=True))
    results = {}
    for name, (_, p) in runs.items():
        out = p.communicate(timeout=120)[0]
        [path] = glob.glob(str(tmp_path / "rec" / f"SN-{name}-*.json"))
        with open(path) as f:
            results[name] = (out, p.returncode, json.load(f))

    out, status, fresh = results["fresh"]
    assert status == 0, out
    assert out.endswith("result: PASS\n") and f"record: {tmp_path}/rec/SN-fresh-" in out
    assert (fresh["serial"], fresh["mac"], fresh["station"]) == ("SN-fresh", "00:1B:4F:10:00:05",
                                                                 "line-3")
    assert len(fresh["thumbprint"]) == 95 and fresh["start"] <= fresh["end"]
    assert {s["verdict"] for s in fresh["steps"]} == {"PASS"}
    store = subprocess.run([FTSIM, "store", runs["fresh"][0]], capture_output=True,
                           text=True).stdout
    assert "OPERATIONAL_MODE=1\nETHERADD=00:1B:4F:10:00:05\n" in store

    out, status, record = results["nodisplay"]
    verdicts = {s["name"]: s["verdict"] for s in record["steps"]}
    assert status == 1, out
    assert {n for n, v in verdicts.items() if v != "PASS"} == {
        n for n in verdicts if n.startswith("LCD ")} | {"production mode"}
    assert verdicts["production mode"] == "SKIP"


# A console that answers every line with a round trip, a key event and PASS.
PINGER = ("printf 'ft>'; while read l; do echo \"$l\"; "
          "echo 'rtt min/avg/max/mdev = 0.1/73.1/90.2/0.5 ms'; echo 'KeyCode[0002] value[1]'; "
          "echo PASS; printf 'ft>'; done")
RTT = "= [0-9.]+/([0-9.]+)/"
LIMITS = [
    # (measure table, value, verdict, the step's note)
    (MEASURE.format("rtt", RTT) + 'unit = "ms"\nhigh = 50.0\n', 73.1, "FAIL",
     "rtt = 73.1 ms, above 50.0"),
    (MEASURE.format("rtt", RTT) + "low = 80\nhigh = 90\n", 73.1, "FAIL", "rtt = 73.1, below 80.0"),
    (MEASURE.format("rtt", RTT) + "low = 73.1\nhigh = 73.1\n", 73.1, "PASS", ""),
    (MEASURE.format("loss", "loss = ([0-9]+)"), None, "FAIL",
     "loss missing: the output does not hold /loss = ([0-9]+)/"),
    (MEASURE.format("word", "rtt (\\S+)"), None, "FAIL", "word = 'min/avg/max/mdev', not a number"),
    (MEASURE.format("key", r"KeyCode\[([0-9]+)\]") + 'from = "events"\nlow = 2\n', 2.0, "PASS", ""),
    (MEASURE.format("key", r"KeyCode\[([0-9]+)\]") + "high = 1\n", None, "FAIL",
     "key missing: the output does not hold /KeyCode\\[([0-9]+)\\]/"),
]


def test_measurements_fail_their_step_and_are_kept(tmp_path):
    """One step per row, then a step that is skipped and so measures nothing."""
    text = ""
    for i, (table, *_) in enumerate(LIMITS):
        text += STEP.format(f"s{i}", f"ping {i}") + "stop_on_failure = false\n" + table
        text = text.replace("name = 'rtt'", f"name = 'rtt{i}'", 1).replace(
            "name = 'key'", f"name = 'key{i}'", 1)
    text += (STEP.format("last", "info") + "needs_all_passed = true\n"
             + MEASURE.format("t", "x") + 'from = "duration"\n').replace("regex = 'x'\n", "")
    r, record, junit = run_plan(tmp_path, text, "--", "/bin/sh", "-c", PINGER)
    assert r.returncode == 1, r.stderr
    cases = list(junit.iter("testcase"))
    for i, (_, value, verdict, note) in enumerate(LIMITS):
        step = record["steps"][i]
        note = note.replace("rtt ", f"rtt{i} ").replace("key ", f"key{i} ")
        [m] = step["measurements"]
        assert (m["value"], m["verdict"], step["verdict"], step["note"]) == (value, verdict,
                                                                             verdict, note)
        props = {p.get("name"): p.get("value") for p in cases[i].iter("property")}
        assert props[m["name"]] == ("" if value is None else repr(value))
        assert props[m["name"] + ".verdict"] == verdict
    assert record["steps"][0]["measurements"][0] == {
        "name": "rtt0", "value": 73.1, "unit": "ms", "low": None, "high": 50.0, "verdict": "FAIL"}
    assert (record["steps"][-1]["verdict"], record["steps"][-1]["measurements"]) == ("SKIP", [])
