"""The station's FTP server (see ftp_server.py and runs.py).

- Every phone has a station folder (`station/` in the phone's folder) from `new`
  on: the server serves it, so files can be put there before a run.
- The server (Debian's pyftpdlib) listens on the station's address, port 21, for
  as long as the station exists: for a run, or from `station up` to `station down`.
- The login is `station`/`station` until `station PHONE user NAME PASSWORD`
  changes it; a change holds from the next login on, also while a server runs.
- `station PHONE fault stall|drop|none`: the server accepts a connection and
  stays silent until its idle timeout, or cuts a transfer's data connection
  halfway (a download after half the file, an upload after half its first
  piece); from the next connection or transfer on.

The server starts in the background as the station is made, so a run does not
wait for it; the phone's ftpget and ftpput wait (a few seconds at most) for the
ready file that it writes once it listens. What ftsim knows of the server's
process lives beside the run's record under /run/ftsim, never in the phone
folder, which the phone can write.
"""
import contextlib
import json
import os
import select
import signal
import subprocess

from ftsim import runs
from ftsim.phone import write_atomically
from ftsim.registry import DEVICES

SERVER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "ftp_server.py")
PORT = "21"
LOGIN = ("run", "station-login")
FAULT = ("run", "station-fault")          # beside LOGIN: the server reads it there
FAULTS = ("stall", "drop", "none")
READY = ("run", "station-ftp.ready")       # /sim/run/station-ftp.ready in the phone
LOG = ("log", "station-ftp")

# Servers this process started: reaped here rather than left as zombies.
_children = {}


def station_dir(phone):
    return phone.p("station")


def set_login(phone, user, password):
    write_atomically(phone.p(*LOGIN), json.dumps({"user": user, "password": password}).encode())


def set_fault(phone, fault):
    write_atomically(phone.p(*FAULT), b"" if fault == "none" else fault.encode())


class StationFolder:
    name = "station"

    def create(self, phone, options):
        os.makedirs(station_dir(phone), exist_ok=True)


DEVICES[StationFolder.name] = StationFolder()


def _record_path(phone):
    return os.path.join(runs.RUN_DIR, runs.key(phone), "ftp-server.json")


def _remove_ready(phone):
    # By path alone: a station may be removed for a phone whose folder is gone.
    with contextlib.suppress(FileNotFoundError):
        os.remove(os.path.join(phone.path, *READY))


def start(phone):
    _remove_ready(phone)
    address = runs.STATION_ADDRESS.split("/")[0]
    # Never through a link the phone may have put in its place.
    try:
        log = os.open(phone.p(*LOG), os.O_WRONLY | os.O_CREAT | os.O_APPEND | os.O_NOFOLLOW
                      | os.O_CLOEXEC, 0o644)
    except OSError:
        log = os.open(os.devnull, os.O_WRONLY | os.O_CLOEXEC)
    try:
        # nsenter execs the server: the process started here is the server itself.
        proc = runs.station_popen(
            phone, ["/usr/bin/python3", "-B", SERVER, station_dir(phone), phone.p(*LOGIN),
                    address, PORT, phone.p(*READY),
                    os.path.join(runs.NETNS_DIR, runs.station_ns(phone))],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=log,
            start_new_session=True)
    finally:
        os.close(log)
    _children[phone.path] = proc
    # The run registry's folder is there: the station is made under its lock.
    rec = {"pid": proc.pid, "start": runs._start_time(proc.pid)}
    write_atomically(_record_path(phone), json.dumps(rec).encode())


def _in_station(pid, phone):
    """The process still is the one started there: same start time, station's namespace."""
    try:
        return os.stat(f"/proc/{pid}/ns/net").st_ino == \
            os.stat(os.path.join(runs.NETNS_DIR, runs.station_ns(phone))).st_ino
    except OSError:
        return False


def _stop_recorded(phone):
    try:
        with open(_record_path(phone)) as f:
            rec = json.load(f)
        pid = rec["pid"]
    except (OSError, ValueError, KeyError, TypeError):
        return
    if not isinstance(pid, int) or runs._start_time(pid) != rec.get("start"):
        return
    try:
        pidfd = os.pidfd_open(pid)
    except OSError:
        return
    try:
        # Checked after the descriptor is taken: a recycled PID cannot slip in.
        if runs._start_time(pid) != rec.get("start") or not _in_station(pid, phone):
            return
        signal.pidfd_send_signal(pidfd, signal.SIGTERM)
        if not select.select([pidfd], [], [], 2)[0]:
            signal.pidfd_send_signal(pidfd, signal.SIGKILL)
            select.select([pidfd], [], [], 2)
    finally:
        os.close(pidfd)


def stop(phone):
    proc = _children.pop(phone.path, None)
    if proc is not None:
        proc.terminate()
        try:
            proc.wait(2)
        except subprocess.TimeoutExpired:
            proc.kill()
            proc.wait()
    else:
        _stop_recorded(phone)
    with contextlib.suppress(FileNotFoundError):
        os.remove(_record_path(phone))
    _remove_ready(phone)


runs.STATION_HOOKS.append((start, stop))
