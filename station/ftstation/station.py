"""The station: its fixtures, each running one unit at a time on a thread of its
own, the station's database, and one condition that every change of state is
announced on. The HTTP layer only calls these methods and renders what they
return."""
import datetime
import fcntl
import os
import signal
import sqlite3
import subprocess
import threading
import time

from ftstation import db as stationdb
from ftstation import line
from ftstation import session
from ftstation.console import FTSIM, Console, StationError
from ftstation.linemacs import LineMacs
from ftstation.uploader import Uploader

HISTORY = 50
OPERATOR_WAIT = 30 * 60      # seconds a prompt waits for Done or Failed
STOP_WAIT = 20               # seconds a stopping station waits for its runs to end
BUSY = ("running", "waiting")


class Refused(Exception):
    """A request the station turns down; `code` is the HTTP status it maps to."""

    def __init__(self, code, text):
        super().__init__(text)
        self.code = code


class Abort(threading.Event):
    """Set when a run is to stop; `reason` becomes the run's error."""
    reason = None

    def stop(self, reason):
        if not self.is_set():
            self.reason = reason
            self.set()


class _Null:
    def write(self, text):
        return len(text)

    def flush(self):
        pass


class Slot:
    """One fixture: its settings and what it is doing now."""

    def __init__(self, fixture):
        self.fixture = fixture
        self.reset()

    def reset(self):
        self.state, self.serial, self.mac, self.run = "idle", None, None, None
        self.step = self.steps = self.done = 0
        self.step_name = self.result = self.error = self.prompt = None
        self.failures = []
        self.sim = []                 # the ftsim verbs of the running step's action
        self.measurements = []        # of the steps done, as the runner records them
        self.answer = None            # the operator's Done (True) or Failed (False)
        self.abort = self.thread = self.console = None

    def as_dict(self):
        return {"name": self.fixture.name, "state": self.state, "serial": self.serial,
                "mac": self.mac, "step": self.step, "steps": self.steps,
                "step_name": self.step_name, "result": self.result, "run": self.run,
                "done": self.done, "prompt": self.prompt, "error": self.error,
                "failures": [{"name": n, "note": note} for n, note in self.failures],
                "measurements": list(self.measurements),
                "transport": self.fixture.transport}


class Station:
    def __init__(self, config, build="host", ftsim=FTSIM):
        self.config, self.build, self.ftsim = config, build, ftsim
        os.makedirs(config.records, exist_ok=True)
        self._serving = _hold(os.path.join(config.records, "serve.lock"), config.records)
        self.lock = threading.RLock()
        self.changed = threading.Condition(self.lock)
        self.version = 0
        self.stopping = False
        self._starting = {}           # fixture -> serial, while its start finds the MAC
        self._db_lock = threading.Lock()      # the page's own reading connection
        self.db = stationdb.StationDB(config.records)   # safe to share between threads
        self.uploader = self.link = None
        if config.line:
            # MACs from the line's leases, and every finished run uploaded to it.
            self.link = line.Link(config.line.database)
            self.db = LineMacs(self.db, config.records, self.link, config.id,
                               config.line.lease)
            self.uploader = Uploader(config.records, config.line.database, config.id,
                                     config.mac_block, self.link, on_change=self._line_changed)
            self.uploader.start()
        self._read = sqlite3.connect(os.path.join(config.records, "station.db"), timeout=10,
                                     check_same_thread=False)
        self.slots = {f.name: Slot(f) for f in config.fixtures}
        self.today = {"units": 0, "first_pass_yield": None}
        self.history_version = 0      # counts the changes of the run history
        self._refresh()

    # --- what the page and the API read ------------------------------------

    def status(self):
        found = self.uploader.status() if self.uploader else None
        with self.lock:
            status = {"station": self.config.id,
                      "fixtures": [s.as_dict() for s in self.slots.values()],
                      "today": dict(self.today), "version": self.version}
        if found is not None:
            status["line"] = found
        return status

    def runs(self, limit=HISTORY):
        rows = self.db.runs(limit)
        out = []
        for r in rows:
            out.append({"id": r["id"], "fixture": r["fixture"], "serial": r["serial"],
                        "mac": r["mac"], "result": r["result"], "started": r["started"],
                        "ended": r["ended"], "duration": r["duration"],
                        "error": r.get("error"),
                        "record": f"/files/{r['id']}/record" if r.get("record") else None,
                        "junit": f"/files/{r['id']}/junit" if r.get("junit") else None})
        return out

    def file_of(self, run_id, kind):
        """The record's or the JUnit report's path, when it lies in the records folder."""
        row = self._query("SELECT record, junit FROM run WHERE id = ?", (run_id,))
        if not row:
            return None
        path = row[0][0 if kind == "record" else 1]
        if not path:
            return None
        path = os.path.realpath(os.path.join(self.config.records, path))
        inside = os.path.realpath(self.config.records) + os.sep
        return path if path.startswith(inside) and os.path.isfile(path) else None

    def wait(self, version, timeout):
        """Blocks until the state is newer than `version` (or the timeout);
        returns the version now."""
        with self.changed:
            self.changed.wait_for(lambda: self.version != version or self.stopping, timeout)
            return self.version

    # --- what the operator and the line controller do ----------------------

    def start(self, name, serial):
        """Starts a unit's run on a fixture; returns what the answer shows."""
        slot = self._slot(name)
        try:
            serial = stationdb.check_serial(serial if isinstance(serial, str) else "")
        except ValueError as e:
            raise Refused(400, str(e)) from None
        pattern = self.config.serial_pattern
        if pattern is not None and not pattern.fullmatch(serial):
            raise Refused(400, f"serial {serial!r} does not match {pattern.pattern}")
        with self.lock:
            if self.stopping:
                raise Refused(409, "the station is stopping")
            under_way = {s.fixture.name: s.serial for s in self.slots.values() if s.state in BUSY}
            under_way.update(self._starting)
            if name in under_way:
                raise Refused(409, f"fixture {name} is busy with {under_way[name]}")
            for other, held in under_way.items():
                if held == serial:
                    raise Refused(409, f"{serial} is under way on fixture {other}")
            self._starting[name] = serial
        try:
            # The MAC is found without the station's lock: with a line it may
            # wait for the line's database, and the page's calls must not.
            mac = None
            if self.config.mac_block:
                try:
                    mac, _ = self.db.mac_for(serial, *self.config.mac_block)
                except stationdb.MacError as e:
                    raise Refused(409, str(e)) from None
                except stationdb.DatabaseError as e:
                    raise Refused(503, str(e)) from None
            fresh = not self._query("SELECT 1 FROM run WHERE serial = ? LIMIT 1", (serial,))
            with self.lock:
                if self.stopping:
                    raise Refused(409, "the station is stopping")
                slot.reset()
                slot.state, slot.serial, slot.mac = "running", serial, mac
                slot.abort = Abort()
                slot.thread = threading.Thread(target=self._run, args=(slot, serial, fresh),
                                               name=f"fixture-{name}", daemon=True)
                slot.thread.start()
                self._announce()
                return {"fixture": name, "serial": serial, "mac": mac, "state": slot.state}
        finally:
            with self.lock:
                del self._starting[name]
                self.changed.notify_all()     # a stopping station waits for the starts

    def confirm(self, name, ok):
        slot = self._slot(name)
        with self.lock:
            if slot.state != "waiting":
                raise Refused(409, f"fixture {name} waits for nothing")
            slot.answer = bool(ok)
            self._announce()

    def abort(self, name, reason="aborted by the operator"):
        slot = self._slot(name)
        with self.lock:
            if slot.state not in BUSY:
                raise Refused(409, f"fixture {name} runs nothing")
            self._abort(slot, reason)

    def stop(self):
        """Ends every run under way as ABORTED ("station stopped"), then lets go
        of the database and the records folder."""
        deadline = time.monotonic() + STOP_WAIT
        with self.lock:
            self.stopping = True
            busy = [s for s in self.slots.values() if s.state in BUSY]
            for slot in busy:
                self._abort(slot, "station stopped")
            self._announce()          # the event streams end
            # A start still finding its MAC is refused once it has it; the
            # database stays open for it until then.
            self.changed.wait_for(lambda: not self._starting, STOP_WAIT)
        for slot in busy:
            slot.thread.join(max(0.1, deadline - time.monotonic()))
        if self.uploader:
            self.uploader.stop()
            self.link.close()
            self.db.close_line()
        with self._db_lock:
            self._read.close()
        self.db.close()
        os.close(self._serving)

    # --- a fixture's thread --------------------------------------------------

    def _run(self, slot, serial, fresh):
        fixture, undo, record = slot.fixture, [], None
        simulated = fixture.transport == "simulated"
        phone = os.path.join(self.config.records, "phones", serial) if simulated else None

        def connect():
            try:
                console, what = self._open(fixture, phone, fresh, undo)
            except StationError:
                raise
            except Exception as e:  # noqa: BLE001 -- pexpect's, pyserial's, the system's
                raise StationError(f"cannot reach the console: {e}") from None
            with self.lock:
                slot.console = console
                if slot.abort.is_set():
                    _cut(console)
            return console, what

        try:
            record = session.run_unit(
                self.db, self.config.plan, serial=serial, connect=connect,
                simulated=simulated and not fixture.ask_operator, fixture=fixture.name,
                station=self.config.id, records=self.config.records, progress=_Null(),
                on_event=lambda kind, **data: self._on_event(slot, kind, data),
                confirm=lambda prompt: self._ask(slot, prompt, phone),
                abort=slot.abort)
        except Exception as e:  # noqa: BLE001 -- a refusal, or a run the session ended itself
            record = {"result": "ABORTED" if slot.abort.is_set() else "FAIL",
                      "error": slot.abort.reason or (str(e) or type(e).__name__).splitlines()[0]}
        finally:
            for words in reversed(undo):
                try:
                    self._ftsim(words[0], phone, *words[1:])
                except StationError:
                    pass      # the next run's setup says what is wrong with the phone
        self._finished(slot, record)

    def _open(self, fixture, phone, fresh, undo):
        """The fixture's console; a simulated phone is made at the serial's
        first run and set up as the fixture says (`undo`: how to take it back)."""
        if fixture.transport == "serial":
            return (Console.serial(fixture.serial, fixture.baud),
                    f"serial line {fixture.serial}")
        if fixture.transport == "spawn":
            return Console.spawn(fixture.spawn), "command " + " ".join(fixture.spawn)
        if fresh or not os.path.isdir(phone):
            os.makedirs(os.path.dirname(phone), exist_ok=True)
            self._ftsim("new", phone, "--force")
        for verb, *args in fixture.sim_setup:
            self._ftsim(verb, phone, *args)
            if verb == "unplug":
                undo.append(["plug", *args])
            elif verb == "fault" and ["fault", "clear"] not in undo:
                undo.insert(0, ["fault", "clear"])
        return (Console.simulated(phone, build=self.build, ftsim=self.ftsim),
                f"simulated phone {phone}")

    def _on_event(self, slot, kind, data):
        with self.lock:
            if kind == "start":
                slot.run, slot.mac, slot.steps = data["id"], data["mac"], data["n"]
                self._refresh()           # the run is in the history from its start
            elif kind == "step":
                slot.step, slot.steps = data["i"], data.get("n", slot.steps)
                slot.step_name, slot.sim = data.get("name"), data.get("sim", [])
            elif kind == "step_done":
                outcome = data["step"]
                slot.step, slot.done = data["i"], data["i"]
                if outcome.get("verdict") == "FAIL":
                    slot.failures.append((outcome.get("name"), outcome.get("note") or ""))
                slot.measurements += outcome.get("measurements") or []
            elif kind == "end":
                return
            self._announce()

    def _ask(self, slot, prompt, phone):
        """An operator's action, on the fixture's card: True for Done. On a
        simulated phone, Done then carries the action out with its ftsim verbs."""
        with self.lock:
            slot.state, slot.prompt, slot.answer = "waiting", prompt, None
            self._announce()
            self.changed.wait_for(lambda: slot.answer is not None or slot.abort.is_set(),
                                  OPERATOR_WAIT)
            ok = bool(slot.answer) and not slot.abort.is_set()
            slot.state, slot.prompt, slot.answer = "running", None, None
            self._announce()
        if ok and phone:
            for words in slot.sim:
                verb, *args = words.split()
                self._ftsim(verb, phone, *args)
        return ok

    def _finished(self, slot, record):
        with self.lock:
            slot.state, slot.prompt, slot.console = "finished", None, None
            slot.result = record.get("result") or "FAIL"
            slot.error = record.get("error")
            slot.run = record.get("id", slot.run)
            if record.get("steps"):
                slot.failures = [(s["name"], s.get("note") or "") for s in record["steps"]
                                 if s.get("verdict") == "FAIL"]
                slot.measurements = [m for s in record["steps"] for m in s.get("measurements", ())]
            self._refresh()
            self._announce()
        if self.uploader:
            self.uploader.poke()

    def _line_changed(self):
        """The uploader's queue or its error changed: the header shows it."""
        with self.lock:
            self._announce()

    # --- helpers ----------------------------------------------------------------

    def _slot(self, name):
        slot = self.slots.get(name)
        if slot is None:
            raise Refused(404, f"no fixture {name!r}")
        return slot

    def _abort(self, slot, reason):
        slot.abort.stop(reason)
        if slot.console is not None:
            _cut(slot.console)
        self._announce()

    def _announce(self):
        """Called with the lock held: wakes everyone who waits for a change."""
        self.version += 1
        self.changed.notify_all()

    def _ftsim(self, verb, phone, *args):
        r = subprocess.run([self.ftsim, verb, phone, *args], capture_output=True, text=True,
                           timeout=60)
        if r.returncode != 0:
            raise StationError(f"ftsim {verb} {' '.join(args)}: "
                               f"{(r.stderr or r.stdout).strip() or r.returncode}")

    def _query(self, sql, args=()):
        with self._db_lock:
            return self._read.execute(sql, args).fetchall()

    def _refresh(self):
        """Today's figures: the units tested, and of the serials whose first run
        started today, the share whose first run passed."""
        midnight = datetime.datetime.combine(datetime.date.today(), datetime.time())
        since = midnight.astimezone(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%S")
        units = self._query("SELECT COUNT(DISTINCT serial) FROM run WHERE started >= ?",
                            (since,))[0][0]
        firsts = self._query(
            "SELECT r.result FROM run r WHERE r.started >= ? AND r.result != 'RUNNING' AND "
            "r.started = (SELECT MIN(started) FROM run WHERE serial = r.serial)", (since,))
        passed = sum(r[0] == "PASS" for r in firsts)
        self.history_version += 1
        self.today = {"units": units,
                      "first_pass_yield": round(passed / len(firsts), 4) if firsts else None}


def _hold(path, records):
    """The records folder's lock, held while this station serves it."""
    fd = os.open(path, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o644)
    try:
        fcntl.flock(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except OSError:
        os.close(fd)
        raise Refused(409, f"{records} is served by another ftstation serve") from None
    return fd


def _cut(console):
    """Cuts a running step short: the console's process goes (a serial line has
    none; its step ends at its own timeout)."""
    link = console.link
    try:
        if hasattr(link, "child"):
            link.child.kill(signal.SIGHUP)
        elif hasattr(link, "proc"):
            link.proc.kill()
    except OSError:
        pass

