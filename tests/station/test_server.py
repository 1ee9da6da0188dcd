"""`ftstation serve`: fixtures side by side behind the operator page (headless
Chromium) and the JSON API; a phone on a serial line; a server killed mid-run;
and what the station refuses."""
import glob
import http.client
import json
import os
import signal
import subprocess
import tomllib

import pytest

from conftest import FTSIM, FTSTATION, REPO, plan_text
from pages import chromium, until

SHOTS = os.path.join(REPO, "build", "station-test")
GUARD = 60           # seconds: only a broken station waits this long


class Served:
    """A `serve` of a station file, and requests to it."""

    def __init__(self, station, *args):
        self.proc = subprocess.Popen([FTSTATION, "serve", str(station), "--port", "0", *args],
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.url = self.proc.stdout.readline().strip()
        assert self.url.startswith("http://127.0.0.1:"), self.proc.stderr.read()
        self.port = int(self.url.split(":")[2].split("/")[0])
        self.token = self.url.split("token=")[1]

    def call(self, method, path, body=None, token=True, host=None):
        conn = http.client.HTTPConnection("127.0.0.1", self.port, timeout=GUARD)
        headers = {"Host": host or f"127.0.0.1:{self.port}"}
        if token:
            headers["Authorization"] = f"Bearer {self.token if token is True else token}"
        conn.request(method, path, body=json.dumps(body) if body is not None else None,
                     headers=headers)
        r = conn.getresponse()
        answer = r.read()
        conn.close()
        return r.status, json.loads(answer) if answer.startswith((b"{", b"[")) else answer

    def fixture(self, name):
        return next(f for f in self.call("GET", "/api/status")[1]["fixtures"]
                    if f["name"] == name)

    def until(self, name, state):
        until(f"{name} {state}", lambda: self.fixture(name)["state"] == state)
        return self.fixture(name)

    def stop(self, sig=signal.SIGTERM):
        if self.proc.poll() is None:
            self.proc.send_signal(sig)
        return self.proc.wait(GUARD)


def station_file(tmp_path, fixtures, extra=""):
    (tmp_path / "plan.toml").write_text(plan_text("short.toml"))
    path = tmp_path / "station.toml"
    path.write_text(f'[station]\nid = "line1-st3"\nplan = "plan.toml"\nrecords = "rec"\n{extra}'
                    + "".join(f'\n[[fixture]]\nname = "{name}"\n{body}\n'
                              for name, body in fixtures))
    return path


@pytest.fixture
def serve():
    started = []

    def start(station, *args):
        started.append(Served(station, *args))
        return started[-1]
    yield start
    for s in started:
        s.stop()


@pytest.fixture(scope="module")
def browser():
    with chromium(1050, "--disable-background-networking") as driver:
        yield driver


def test_three_fixtures_on_the_page(tmp_path, serve, browser):
    station = station_file(tmp_path, [("A", "simulated = true"),
                                      ("B", "simulated = true\nask_operator = true"),
                                      ("C", 'simulated = true\nsim_setup = ["unplug display"]')],
                           "serial_pattern = '^SN-[A-Z0-9]+$'\n")
    s = serve(station)
    browser.get(s.url)
    # The page draws its cards from the station's first answer.
    until("the cards", lambda: len(browser.find_elements("css selector", "[id^=card-]")) == 3)
    card = {n: browser.find_element("id", f"card-{n}") for n in "ABC"}
    by = lambda n, sel: card[n].find_element("css selector", sel)  # noqa: E731

    def scan(name, serial):
        field = by(name, ".serial")
        field.clear()
        field.send_keys(serial + "\n")          # as a barcode scanner types a label

    def shows(name, state, result=""):
        until(f"{name} {state} {result}", lambda: (card[name].get_attribute("data-state"),
                                                   card[name].get_attribute("data-result"))
              == (state, result))

    scan("B", "SN-B1")
    shows("B", "waiting")
    assert by("B", ".prompt").text == "Is the whole screen red?"
    scan("A", "SN-A1")
    scan("C", "SN-C1")
    shows("A", "finished", "PASS")
    shows("C", "finished", "FAIL")
    assert by("C", ".why").text.splitlines() == ["LCD red: verdict FAIL, wanted PASS",
                                                 "LCD crosshair: verdict FAIL, wanted PASS"]

    for serial, why in (("SN-B1", "SN-B1 is under way on fixture B"),
                        ("sn-b1", "does not match ^SN-[A-Z0-9]+$")):
        scan("A", serial)
        until(why, lambda: why in by("A", ".refusal").text)
        assert card["A"].get_attribute("data-result") == "PASS"

    by("B", ".done").click()
    until("the second prompt", lambda: by("B", ".prompt").text == "Press 5")
    os.makedirs(SHOTS, exist_ok=True)
    browser.save_screenshot(os.path.join(SHOTS, "station-waiting.png"))
    by("B", ".done").click()
    shows("B", "finished", "PASS")

    macs = {n: s.fixture(n)["mac"] for n in "ABC"}
    assert len(set(macs.values())) == 3, macs
    scan("A", "SN-C1")                  # the unit that failed on the broken fixture
    until("the retest", lambda: by("A", ".unit").text.startswith("SN-C1"))
    shows("A", "finished", "PASS")
    assert s.fixture("A")["mac"] == macs["C"]
    assert not by("A", ".refusal").text

    until("the history", lambda: len(browser.find_elements("css selector", "#history tr")) == 4)
    assert browser.find_element("id", "units").text == "3"
    assert browser.find_element("id", "fpy").text == "66.7 %"
    browser.save_screenshot(os.path.join(SHOTS, "station.png"))
    status, runs = s.call("GET", "/api/runs?limit=2")
    assert (status, [(r["fixture"], r["serial"], r["result"]) for r in runs]) == (
        200, [("A", "SN-C1", "PASS"), ("C", "SN-C1", "FAIL")])
    status, record = s.call("GET", runs[0]["record"] + "?token=" + s.token, token=False)
    assert (status, record["serial"], record["mac"]) == (200, "SN-C1", macs["C"])
    # The broken fixture's setup was undone: the unit's display is back.
    shown = subprocess.run([FTSIM, "show", tmp_path / "rec" / "phones" / "SN-C1", "display"],
                           capture_output=True, text=True).stdout
    assert "present=yes" in shown


def test_a_phone_on_a_serial_line(tmp_path, serve):
    """The operator's prompt goes to the card; the console is the far end of a pty pair."""
    phone, line = str(tmp_path / "phone"), str(tmp_path / "ttyS0")
    subprocess.run([FTSIM, "new", phone], check=True, capture_output=True)
    relay = subprocess.Popen(["socat", f"pty,raw,echo=0,link={line}",
                              f"EXEC:{FTSIM} run {phone},pty,setsid,ctty,stderr"])
    try:
        until("the line", lambda: os.path.exists(line), 10)
        s = serve(station_file(tmp_path, [("S", f'serial = "{line}"')]))
        assert s.call("POST", "/api/fixtures/S/start", {"serial": "SN1"})[0] == 202
        waiting = s.until("S", "waiting")
        assert (waiting["prompt"], waiting["step_name"]) == ("Is the whole screen red?", "LCD red")
        assert s.call("POST", "/api/fixtures/S/confirm", {"ok": True})[0] == 200
        s.until("S", "waiting")         # key 5: the operator presses it on the phone
        subprocess.run([FTSIM, "press", phone, "KEY_5"], check=True)
        assert s.call("POST", "/api/fixtures/S/confirm", {"ok": True})[0] == 200
        done = s.until("S", "finished")
        assert (done["result"], done["failures"]) == ("PASS", []), done
    finally:
        relay.terminate()
        relay.wait(GUARD)


def test_refusals_and_a_killed_server(tmp_path, serve):
    station = station_file(tmp_path, [("A", "simulated = true\nask_operator = true"),
                                      ("B", "simulated = true")])
    s = serve(station)
    api = "/api/fixtures/A/"
    for method, path, body, kw, code, error in [
        ("GET", "/api/status", None, {"token": False}, 403, "missing or wrong token"),
        ("GET", "/api/status", None, {"token": "x" * 32}, 403, "missing or wrong token"),
        ("GET", "/api/status?token=" + s.token, None, {"token": False}, 403,
         "missing or wrong token"),
        ("GET", "/api/status", None, {"host": f"evil.example:{s.port}"}, 403, "foreign host"),
        ("POST", "/api/fixtures/Z/start", {"serial": "SN1"}, {}, 404, "no fixture 'Z'"),
        ("POST", api + "start", {"serial": ".x"}, {}, 400, None),
        ("POST", api + "confirm", {"ok": True}, {}, 409, "fixture A waits for nothing"),
        ("POST", api + "abort", None, {}, 409, "fixture A runs nothing"),
        ("GET", "/api/runs?limit=0", None, {}, 400, "limit is a number from 1 to 1000"),
    ]:
        status, answer = s.call(method, path, body, **kw)
        assert status == code and (error is None or answer == {"error": error}), (path, answer)
    assert s.call("GET", "/api/runs")[1] == []        # a refused start wrote nothing

    second = subprocess.run([FTSTATION, "serve", station, "--port", "0"], capture_output=True,
                            text=True, timeout=GUARD)
    assert (second.returncode, second.stdout, second.stderr) == (
        1, "", f"ftstation: {tmp_path}/rec is served by another ftstation serve\n")

    # Aborted by the operator while a prompt waits; then killed mid-run.
    assert s.call("POST", api + "start", {"serial": "SN1"})[0] == 202
    s.until("A", "waiting")
    assert s.call("POST", api + "abort")[0] == 202
    aborted = s.until("A", "finished")
    assert (aborted["result"], aborted["error"]) == ("ABORTED", "aborted by the operator")
    assert s.call("POST", api + "start", {"serial": "SN2"})[0] == 202
    killed = s.until("A", "waiting")
    s.stop(signal.SIGKILL)

    s = serve(station)
    [run] = [r for r in s.call("GET", "/api/runs")[1] if r["id"] == killed["run"]]
    assert (run["result"], run["error"]) == ("ABORTED", "station stopped")
    assert s.call("POST", "/api/fixtures/B/start", {"serial": "SN3"})[0] == 202
    assert s.until("B", "finished")["mac"] not in (killed["mac"], aborted["mac"])
    assert s.call("POST", "/api/fixtures/B/start", {"serial": "SN2"})[0] == 202
    assert s.until("B", "finished")["mac"] == killed["mac"]

    # Stopped while a run waits: the run ends as the station stops.
    assert s.call("POST", api + "start", {"serial": "SN4"})[0] == 202
    run = s.until("A", "waiting")["run"]
    assert s.stop() == 0
    s = serve(station)
    [run] = [r for r in s.call("GET", "/api/runs")[1] if r["id"] == run]
    assert (run["result"], run["error"]) == ("ABORTED", "station stopped")


# (station file, the line after FILE)
BAD_STATIONS = [(c["station"], c["line"])
                for c in tomllib.loads(plan_text("bad_stations.toml"))["case"]]


def test_the_shipped_station_files_load():
    from ftstation import stationfile
    for path in glob.glob(os.path.join(REPO, "station", "stations", "*.toml")):
        assert stationfile.load(path).fixtures, path


@pytest.mark.parametrize("text, line", BAD_STATIONS)
def test_a_bad_station_file_is_one_line_and_status_2(tmp_path, text, line):
    (tmp_path / "plan.toml").write_text(plan_text("short.toml"))
    path = tmp_path / "station.toml"
    path.write_text(text)
    r = subprocess.run([FTSTATION, "serve", path, "--port", "0"], capture_output=True,
                       text=True, timeout=GUARD)
    assert (r.returncode, r.stdout, r.stderr.count("\n")) == (2, "", 1)
    assert r.stderr.startswith(f"ftstation: {path}{line}"), r.stderr


def test_a_hung_console_holds_only_its_own_fixture(tmp_path, serve):
    hung = json.dumps(["/bin/sh", "-c", "printf 'ft>'; read l; sleep 600"])
    s = serve(station_file(tmp_path, [("H", f"spawn = {hung}"), ("B", "simulated = true")]))
    assert s.call("POST", "/api/fixtures/H/start", {"serial": "SN1"})[0] == 202
    until("the hung step", lambda: s.fixture("H")["step_name"] == "program MAC address")
    assert s.call("POST", "/api/fixtures/B/start", {"serial": "SN2"})[0] == 202
    assert s.until("B", "finished")["result"] == "PASS"
    assert s.fixture("H")["state"] == "running"
    assert s.call("POST", "/api/fixtures/H/abort")[0] == 202
    aborted = s.until("H", "finished")
    assert (aborted["result"], aborted["error"]) == ("ABORTED", "aborted by the operator")




def test_measurements_on_the_card_and_todays_report(tmp_path, serve):
    path = station_file(tmp_path, [("A", "simulated = true")])
    (tmp_path / "plan.toml").write_text(plan_text("measured.toml"))
    s = serve(path)
    assert s.call("POST", "/api/fixtures/A/start", {"serial": "SN0000001"})[0] == 202
    card = s.until("A", "finished")
    assert [(m["name"], m["verdict"], m["value"] is None) for m in card["measurements"]] == [
        ("info_time", "PASS", False), ("never_printed", "FAIL", True)]
    assert card["failures"] == [{"name": "info", "note": "never_printed missing: the output "
                                                         "does not hold /no such line ([0-9]+)/"}]
    status, page = s.call("GET", f"/report?token={s.token}", token=False)
    assert status == 200 and b"line1-st3: today&#x27;s yield report" in page
    assert b'data-figure="units">1<' in page and b"<svg" in page
    assert s.call("GET", "/report", token=False)[0] == 403
