"""One unit through one plan: its MAC from the station's database, the run in the
database from its start and each step as it ends, then the unit's record and its
JUnit report. Used by `ftstation run` and by the station's fixtures alike."""
import contextlib
import functools
import os
import signal
import subprocess
import sys
import threading

from ftstation import db as stationdb
from ftstation import plan as plans
from ftstation import records as files
from ftstation import runner
from ftstation.console import StationError

STOPPED = "stopped at the station"
REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


@functools.cache
def software():
    """The station software's version, as the repository describes it."""
    try:
        r = subprocess.run(["git", "-C", REPO, "describe", "--always", "--dirty"],
                           capture_output=True, text=True, timeout=10)
    except (OSError, subprocess.SubprocessError):
        return "unknown"
    return (r.returncode == 0 and r.stdout.strip()) or "unknown"


class Stops:
    """Ctrl+C and SIGTERM at a station: the first one raises KeyboardInterrupt in
    the main thread, later ones are let go while the run ends. While a row of the
    run is being written the signal waits for the write to finish, so a run is
    never left half-started or half-ended."""

    def __init__(self):
        self.held, self.pending, self.fired = 0, False, False

    def install(self):
        for signum in (signal.SIGINT, signal.SIGTERM):
            signal.signal(signum, self._signal)

    def _signal(self, signum, frame):
        if self.fired:
            return
        if self.held:
            self.pending = True
            return
        self.fired = True
        raise KeyboardInterrupt

    @contextlib.contextmanager
    def holding(self, deliver=True):
        """Holds a signal back for the block; then raises it, with `deliver`."""
        if threading.current_thread() is not threading.main_thread():
            yield                        # signals only ever interrupt the main thread
            return
        self.held += 1
        try:
            yield
        finally:
            self.held -= 1
        if deliver and not self.held and self.pending and not self.fired:
            self.pending, self.fired = False, True
            raise KeyboardInterrupt


STOPS = Stops()


def check(plan_path, serial, unit_index, station, date):
    """What can be refused without the database: the serial (ValueError) and the
    plan (PlanError). Returns the trimmed serial and the plan, loaded with the
    given index, or a stand-in index when the database is to give the MAC."""
    if serial is not None:
        serial = stationdb.check_serial(serial)
    index = unit_index if unit_index is not None or serial is None else 0
    return serial, plans.load(plan_path, serial, index, station, date)


def run_unit(db, plan_path, *, serial, connect, simulated, fixture=None, station, operator=None,
             records, unit_index=None, junit=None, progress=sys.stdout,
             on_event=None, confirm=None, abort=None):
    """Runs the plan on the unit `connect()` reaches and returns its record (with
    the files' paths under "record" and "junit"). Refusals (ValueError for the
    serial, PlanError, MacError) come before the run is in the database and
    before anything is sent to the phone. `on_event(kind, **data)`, from the
    running thread: "start" (id, mac, n), "step" (i, n, name, sim: the ftsim
    verbs of its action) before each step, "step_done" (i, n, step: the step's
    record) and "end" (record). `abort` (.is_set(), .reason) is looked at
    between steps: the run then ends ABORTED with the reason."""
    emit = on_event or (lambda kind, **data: None)
    started = stationdb.utc_now()
    serial, plan = check(plan_path, serial, unit_index, station, started[:10])
    if serial and plan.block:
        _, index = db.mac_for(serial, *plan.block, unit_index)
        if unit_index is None:
            plan = plans.load(plan_path, serial, index, station, started[:10])
    record = {"id": None, "plan": plan.name, "plan_file": plan_path, "plan_sha256": plan.sha256,
              "serial": serial, "mac": plan.values["mac"], "thumbprint": None,
              "station": station, "fixture": fixture, "operator": operator,
              "software": software(), "console": None, "start": started, "end": None,
              "result": "RUNNING", "error": None, "steps": []}
    outcomes, identity, console, run_id = [], {"thumbprint": None}, None, None

    def after(i, n, out):
        step = out.as_record()
        with STOPS.holding():
            db.add_step(run_id, i, step)
        emit("step_done", i=i, n=n, step=step)

    try:
        with STOPS.holding():
            run_id = db.start_run(serial=serial, fixture=fixture, station=station,
                                  operator=operator, plan=plan.name, plan_sha256=plan.sha256,
                                  software=record["software"], mac=record["mac"], started=started)
        record["id"] = run_id
        emit("start", id=run_id, mac=record["mac"], n=len(plan.steps))
        console, record["console"] = connect()
        runner.run(console, plan, simulated, outcomes, identity, progress,
                   before=lambda i, n, step: emit("step", i=i, n=n, name=step.name,
                                                  sim=step.sim),
                   after=after, ask=confirm, abort=abort)
    except StationError as e:
        record["error"] = str(e)
    except KeyboardInterrupt:
        if run_id is None:
            raise                        # stopped before the run began: nothing to end
        record["result"], record["error"] = "ABORTED", STOPPED
    except Exception as e:
        record["error"] = f"station software error: {e!r}"
        raise
    finally:
        if run_id is not None:
            with STOPS.holding(deliver=False):     # the run is over: let it end whole
                _end(db, record, plan, outcomes, identity, console, abort, junit, records)
    emit("end", record=record)
    return record


def _end(db, record, plan, outcomes, identity, console, abort, junit, folder):
    """Closes the console, writes the record and the report, and ends the run."""
    if record["result"] == "RUNNING" and abort is not None and abort.is_set():
        record["result"], record["error"] = "ABORTED", abort.reason
    if console is not None:
        # A stopped run may have cut a command short: no long wait for the quit.
        console.close(timeout=2.0 if record["result"] == "ABORTED" else None)
    if record["result"] == "RUNNING":
        passed = (len(outcomes) == len(plan.steps)
                  and all(o.verdict == "PASS" for o in outcomes))
        record["result"] = "PASS" if passed and not record["error"] else "FAIL"
    record["thumbprint"] = identity["thumbprint"]
    record["steps"] = [o.as_record() for o in outcomes]
    record["end"] = stationdb.utc_now()
    stamp = record["start"][:19].replace("-", "").replace(":", "")
    base = os.path.join(folder, f"{record['serial'] or 'unit'}-{stamp}Z-{record['id'][:8]}")
    paths = {"record": base + ".json", "junit": junit or base + ".xml"}
    try:
        files.write_record(paths["record"], record)
        files.write_junit(paths["junit"], record)
    except OSError as e:             # the database still has the run whole
        record["error"] = record["error"] or f"cannot write the unit's record: {e}"
        paths = {"record": None, "junit": None}
    db.end_run(record["id"], record["result"], record["error"], ended=record["end"], **paths)
    record.update(paths)
