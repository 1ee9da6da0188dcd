"""Running consoles and the phone's network, as the host knows them.

The phone folder is the phone's to write, so nothing here ever trusts a process
id found there. What ftsim knows of a running console it learns from bubblewrap
(--info-fd) as the run starts, and keeps under /run/ftsim/KEY/ (root's, outside
every phone), KEY being a hash of the phone folder's absolute path:

- run.json: the ftsim process that runs the console (PID and start time), then
  the sandbox's first process (PID and start time) and the inodes of its PID
  and network namespaces;
- station: present while `ftsim station PHONE up` keeps the station;
- lock: taken around every change of the two.
The folder goes when nothing runs and no station is kept. A station whose ftsim
was killed outright (SIGKILL) is removed by the next run of any phone (sweep());
SIGTERM and SIGHUP let ftsim clean up itself.

The phone's network: the console runs in a network namespace of its own, whose
eth0 (10.8.0.10/24) is one end of a veth pair. The other end (10.8.0.2/24) lives
in the station's namespace, /run/netns/ftsim-KEY. Nothing joins either to the
host's own network. While no console runs, the phone's end waits in the station
namespace under the name ftp-KEY, so the station's address (and any server bound
to it) stays. A station made by a run goes with the run; `ftsim station PHONE
up` keeps it until `ftsim station PHONE down` or `ftsim new PHONE --force`.

API for the simulated devices:

- current(phone) -> None, or a Run with .pid (host PID of the console process,
  checked alive and inside that run's sandbox) and .netns (a path for nsenter
  or setns: /proc/PID/ns/net).
- in_phone_net(phone, argv, **popen_kwargs) -> exit status of argv run on the
  host inside the running phone's network namespace (NotRunning when no console
  runs); in_station(phone, argv, **popen_kwargs) the same in the station's
  namespace (NoStation when there is none). phone_net_popen and station_popen
  take the same arguments and return the subprocess.Popen.
- STATION_HOOKS: (up(phone), down(phone)) pairs; up is called after the station
  namespace and its end of the pair are made, down before the namespace goes.
- interrupt(phone): SIGINT to the running console and the commands it runs
  (its process group inside the sandbox), as Ctrl+C on its terminal sends it;
  NotRunning when no console runs.
"""
import contextlib
import ctypes
import fcntl
import hashlib
import json
import os
import signal
import subprocess
import sys

from ftsim.phone import Phone

RUN_DIR = "/run/ftsim"
NETNS_DIR = "/run/netns"
PHONE_ADDRESS = "10.8.0.10/24"
STATION_ADDRESS = "10.8.0.2/24"
PHONE_IF = "eth0"
CLONE_NEWNET = 0x40000000
PR_SET_PDEATHSIG = 1

STATION_HOOKS = []


class NotRunning(Exception):
    """No console runs in the phone."""


class NoStation(Exception):
    """The phone has no station namespace."""


class Refused(Exception):
    """The run cannot have a network here: printed as one line, exit status 1."""


class Run:
    def __init__(self, pid):
        self.pid = pid
        self.netns = f"/proc/{pid}/ns/net"


# ---- names -------------------------------------------------------------------

def key(phone):
    return hashlib.sha256(os.path.abspath(phone.path).encode()).hexdigest()[:10]


def station_ns(phone):
    return "ftsim-" + key(phone)


def station_if(phone):
    return "fts-" + key(phone)      # 14 characters: interface names hold 15


def parked_if(phone):
    return "ftp-" + key(phone)


def _mac(phone, last):
    h = key(phone)
    return f"02:{h[0:2]}:{h[2:4]}:{h[4:6]}:{h[6:8]}:{last:02x}"


def _dir(phone):
    return _key_dir(key(phone))


def _key_dir(k):
    path = os.path.join(RUN_DIR, k)
    os.makedirs(RUN_DIR, mode=0o700, exist_ok=True)
    os.makedirs(path, mode=0o700, exist_ok=True)
    return path


def _lock_fd(k, blocking=True):
    """The registry folder's lock, or None (blocking=False, someone holds it). A
    folder removed while we waited is made again and locked afresh."""
    while True:
        path = os.path.join(_key_dir(k), "lock")
        fd = os.open(path, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o600)
        try:
            fcntl.flock(fd, fcntl.LOCK_EX | (0 if blocking else fcntl.LOCK_NB))
        except BlockingIOError:
            os.close(fd)
            return None
        try:
            if os.stat(path).st_ino == os.fstat(fd).st_ino:
                return fd
        except FileNotFoundError:
            pass
        os.close(fd)


@contextlib.contextmanager
def _locked(phone):
    fd = _lock_fd(key(phone))
    try:
        yield
    finally:
        os.close(fd)


def _tidy(k):
    """Removes the registry folder of a phone that has nothing running or kept;
    called with its lock held."""
    d = os.path.join(RUN_DIR, k)
    if os.path.exists(os.path.join(d, "station")) or os.path.exists(os.path.join(d, "run.json")):
        return
    with contextlib.suppress(OSError):
        for name in os.listdir(d):
            os.remove(os.path.join(d, name))
        os.rmdir(d)


# ---- processes ---------------------------------------------------------------

def _start_time(pid):
    """When a live process started (None for one that is gone, or a zombie)."""
    try:
        with open(f"/proc/{pid}/stat") as f:
            stat = f.read()
    except OSError:
        return None
    # The name in parentheses may hold blanks: count fields after its end.
    fields = stat[stat.rindex(")") + 2:].split()
    return None if fields[0] in ("Z", "X") else int(fields[19])


def _ns_inode(pid, ns):
    try:
        return os.stat(f"/proc/{pid}/ns/{ns}").st_ino
    except OSError:
        return None


def _record(phone):
    rec = _read_run(key(phone))
    if rec is None or rec.get("phone") != os.path.abspath(phone.path):
        return None
    sandbox = rec.get("sandbox")
    if (not isinstance(sandbox, int) or _start_time(sandbox) != rec.get("start")
            or _ns_inode(sandbox, "pid") != rec.get("pid_ns")
            or _ns_inode(sandbox, "net") != rec.get("net_ns")):
        return None
    return rec


def _inner_pid(pid):
    """Host process `pid`'s PID in its own PID namespace (a string), or None
    for a process that is gone."""
    try:
        with open(f"/proc/{pid}/status") as f:
            return next(line for line in f if line.startswith("NSpid:")).split()[-1]
    except (OSError, StopIteration):
        return None


def _console_of(rec):
    """The sandbox's PID 2: the program bubblewrap started, the console."""
    sandbox = rec["sandbox"]
    try:
        with open(f"/proc/{sandbox}/task/{sandbox}/children") as f:
            children = [int(c) for c in f.read().split()]
    except OSError:
        return None
    for pid in children:
        if _inner_pid(pid) == "2" and _ns_inode(pid, "pid") == rec["pid_ns"] \
                and _ns_inode(pid, "net") == rec["net_ns"]:
            return pid
    return None


def _launcher_alive(rec):
    pid = rec.get("launcher")
    return isinstance(pid, int) and _start_time(pid) == rec.get("launcher_start")


def _read_run(k):
    try:
        with open(os.path.join(RUN_DIR, k, "run.json")) as f:
            return json.load(f)
    except (OSError, ValueError):
        return None


def sweep():
    """Removes the stations of runs whose ftsim was killed outright (SIGKILL
    leaves it no chance to clean up): a station that is neither kept nor used
    by a live ftsim."""
    prefix = "ftsim-"
    try:
        names = [n for n in os.listdir(NETNS_DIR) if n.startswith(prefix)]
    except FileNotFoundError:
        return
    for name in names:
        k = name[len(prefix):]
        if not os.path.isdir(os.path.join(RUN_DIR, k)):
            continue        # not made by this ftsim's registry
        fd = _lock_fd(k, blocking=False)
        if fd is None:
            continue        # busy: someone is at it now
        try:
            rec = _read_run(k)
            kept = os.path.exists(os.path.join(RUN_DIR, k, "station"))
            if kept or rec is None or not rec.get("phone") or _launcher_alive(rec):
                continue
            _remove_station(Phone(rec["phone"]))
            with contextlib.suppress(FileNotFoundError):
                os.remove(os.path.join(RUN_DIR, k, "run.json"))
            _tidy(k)
        finally:
            os.close(fd)


def current(phone):
    rec = _record(phone)
    if rec is None:
        return None
    pid = _console_of(rec)
    return Run(pid) if pid else None


@contextlib.contextmanager
def _phone_net_fd(phone):
    """A descriptor of the running phone's network namespace, taken and then
    checked, so a recycled PID can never lead into another namespace."""
    run = current(phone)
    if run is None:
        raise NotRunning(f"no console runs in {phone.path}")
    fd = os.open(run.netns, os.O_RDONLY | os.O_CLOEXEC)
    try:
        again = current(phone)
        if again is None or again.pid != run.pid or os.fstat(fd).st_ino != _ns_inode(run.pid, "net"):
            raise NotRunning(f"no console runs in {phone.path}")
        yield fd
    finally:
        os.close(fd)


def _sandbox_group(rec, pgid):
    """Host PIDs of the sandbox's processes in process group `pgid`, bubblewrap's
    own init (the namespace's PID 1) left out."""
    pids = []
    for name in os.listdir("/proc"):
        if not name.isdigit() or _ns_inode(name, "pid") != rec["pid_ns"]:
            continue
        inner = _inner_pid(name)
        try:
            if inner not in (None, "1") and os.getpgid(int(name)) == pgid:
                pids.append(int(name))
        except OSError:
            continue     # gone meanwhile
    return pids


def interrupt(phone):
    """SIGINT to the console and to every process of its group inside the
    sandbox (the shell commands it runs), as Ctrl+C on its terminal reaches the
    whole foreground job. On a pipe the console shares its process group with
    whoever started ./ftsim run: nothing outside the sandbox is signalled."""
    rec = _record(phone)
    pid = _console_of(rec) if rec else None
    if pid is None:
        raise NotRunning(f"no console runs in {phone.path}")
    pgid = os.getpgid(pid)
    for target in sorted(_sandbox_group(rec, pgid), key=lambda p: p != pid):
        try:
            pidfd = os.pidfd_open(target)
        except ProcessLookupError:
            continue
        try:
            # Checked again through the descriptor's process: a PID reused
            # meanwhile is another process, and is left alone.
            if _ns_inode(target, "pid") == rec["pid_ns"] and os.getpgid(target) == pgid:
                signal.pidfd_send_signal(pidfd, signal.SIGINT)
        except ProcessLookupError:
            pass
        finally:
            os.close(pidfd)


# ---- entering namespaces -----------------------------------------------------

def _in_netns_fd(fd, argv, kwargs):
    kwargs = dict(kwargs)
    kwargs["pass_fds"] = tuple(kwargs.get("pass_fds", ())) + (fd,)
    return ["nsenter", f"--net=/proc/self/fd/{fd}", "--"] + list(argv), kwargs


def phone_net_popen(phone, argv, **kwargs):
    with _phone_net_fd(phone) as fd:
        args, kwargs = _in_netns_fd(fd, argv, kwargs)
        return subprocess.Popen(args, **kwargs)


def in_phone_net(phone, argv, **kwargs):
    return phone_net_popen(phone, argv, **kwargs).wait()


def _station_path(phone):
    return os.path.join(NETNS_DIR, station_ns(phone))


def station_exists(phone):
    return os.path.exists(_station_path(phone))


def station_popen(phone, argv, **kwargs):
    if not station_exists(phone):
        raise NoStation(f"{phone.path} has no station")
    return subprocess.Popen(["nsenter", f"--net={_station_path(phone)}", "--"] + list(argv),
                            **kwargs)


def in_station(phone, argv, **kwargs):
    return station_popen(phone, argv, **kwargs).wait()


# ---- the station ---------------------------------------------------------------

def _ip(*args, stdin=None):
    r = subprocess.run(["ip", *args], input=stdin, capture_output=True, text=True)
    if r.returncode != 0:
        raise Refused(f"ip {' '.join(args)}: {r.stderr.strip()}")


def _has_link(ns, name):
    return subprocess.run(["ip", "-n", ns, "link", "show", "dev", name],
                          capture_output=True).returncode == 0


def _make_pair(phone):
    """The station's end, addressed and up, and the phone's end parked beside it."""
    ns, st, parked = station_ns(phone), station_if(phone), parked_if(phone)
    _ip("-n", ns, "-batch", "-", stdin="".join((
        "link set dev lo up\n",
        f"link add {st} address {_mac(phone, 2)} type veth "
        f"peer name {parked} address {_mac(phone, 10)}\n",
        f"addr add {STATION_ADDRESS} brd + dev {st}\n",
        f"link set dev {st} up\n")))


def _ensure_station(phone):
    """Makes the station when there is none; True when this call made it."""
    ns = station_ns(phone)
    if station_exists(phone):
        if not _has_link(ns, station_if(phone)):
            _make_pair(phone)       # a run that was killed took the pair with it
        return False
    _ip("netns", "add", ns)
    try:
        _make_pair(phone)
        for up, _ in STATION_HOOKS:
            up(phone)
    except BaseException:
        _remove_station(phone)
        raise
    return True


def _remove_station(phone):
    if not station_exists(phone):
        return
    for _, down in reversed(STATION_HOOKS):
        try:
            down(phone)
        except Exception as e:      # the namespace goes all the same
            print(f"ftsim: station: {e}", file=sys.stderr)
    subprocess.run(["ip", "netns", "del", station_ns(phone)], capture_output=True)


def _kept_flag(phone):
    return os.path.join(_dir(phone), "station")


def station_up(phone):
    _check_rights()
    with _locked(phone):
        _ensure_station(phone)
        open(_kept_flag(phone), "w").close()


def station_down(phone):
    with _locked(phone):
        with contextlib.suppress(FileNotFoundError):
            os.remove(_kept_flag(phone))
        _remove_station(phone)
        _tidy(key(phone))


def forget(phone):
    """The phone folder goes: its station goes with it."""
    if os.path.isdir(os.path.join(RUN_DIR, key(phone))) or station_exists(phone):
        station_down(phone)


# ---- a run -------------------------------------------------------------------

def _check_rights():
    """A child process tries what the run needs: a network namespace."""
    pid = os.fork()
    if pid == 0:
        libc = ctypes.CDLL(None, use_errno=True)
        os._exit(0 if libc.unshare(CLONE_NEWNET) == 0 else 1)
    _, status = os.waitpid(pid, 0)
    if os.waitstatus_to_exitcode(status) != 0:
        raise Refused("the phone needs network namespaces, and this user may not make them "
                      "(run ftsim as root)")


def _read_info(fd):
    data = b""
    while True:
        chunk = os.read(fd, 4096)
        if not chunk:
            return None
        data += chunk
        try:
            return json.loads(data)
        except ValueError:
            continue


def _plug(phone, sandbox):
    """Moves the parked end into the sandbox's namespace as its eth0, addressed and up."""
    _ip("-n", station_ns(phone), "link", "set", "dev", parked_if(phone), "netns", str(sandbox))
    r = subprocess.run(["nsenter", f"--net=/proc/{sandbox}/ns/net", "--", "ip", "-batch", "-"],
                       input=f"link set dev {parked_if(phone)} name {PHONE_IF}\n"
                             f"addr add {PHONE_ADDRESS} brd + dev {PHONE_IF}\n"
                             f"link set dev {PHONE_IF} up\n",
                       capture_output=True, text=True)
    if r.returncode != 0:
        raise Refused(f"the phone's {PHONE_IF}: {r.stderr.strip()}")


def _unplug(phone, netfd):
    """Parks the phone's end in the station again (its addresses go with the move)."""
    args, kw = _in_netns_fd(netfd, ["ip", "-batch", "-"], {})
    subprocess.run(args, input=f"link set dev {PHONE_IF} down\n"
                               f"link set dev {PHONE_IF} name {parked_if(phone)}\n"
                               f"link set dev {parked_if(phone)} netns {station_ns(phone)}\n",
                   capture_output=True, text=True, **kw)


def _die_with_ftsim():
    """In bubblewrap's process before it starts: killed when ftsim goes, however
    ftsim goes, so no sandbox outlives its run (bubblewrap's own child follows it)."""
    ctypes.CDLL(None, use_errno=True).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


class _Stopped(BaseException):
    """ftsim was asked to end (SIGTERM, SIGHUP) while a run was on."""


def _stop(signum, frame):
    raise _Stopped(signum)


def _write_run(phone, rec):
    tmp = os.path.join(_dir(phone), f"run.json.{os.getpid()}")
    with open(tmp, "w") as f:
        json.dump(rec, f)
    os.replace(tmp, os.path.join(_dir(phone), "run.json"))


def launch(phone, args, pass_fds=()):
    """Runs the bubblewrap command line `args` (its first word "bwrap") with the
    phone's network, and returns bubblewrap's exit status. `pass_fds`: further
    descriptors that its command line names."""
    _check_rights()
    sweep()
    old = {sig: signal.signal(sig, _stop) for sig in (signal.SIGTERM, signal.SIGHUP)}
    proc = netfd = None
    owner = False
    try:
        rec = {"phone": os.path.abspath(phone.path), "launcher": os.getpid(),
               "launcher_start": _start_time(os.getpid())}
        with _locked(phone):
            # A second console in the same phone runs without a network.
            running = _read_run(key(phone))
            owner = running is None or not _launcher_alive(running)
            if owner:
                _write_run(phone, rec)
                _ensure_station(phone)
        info_r, info_w = os.pipe()
        block_r, block_w = os.pipe()
        try:
            proc = subprocess.Popen([args[0], "--info-fd", str(info_w), "--block-fd", str(block_r)]
                                    + list(args[1:]), pass_fds=(info_w, block_r) + tuple(pass_fds),
                                    preexec_fn=_die_with_ftsim)
        finally:
            os.close(info_w)
            os.close(block_r)
        try:
            info = _read_info(info_r)
            if info is not None and owner:
                sandbox = info["child-pid"]
                netfd = os.open(f"/proc/{sandbox}/ns/net", os.O_RDONLY | os.O_CLOEXEC)
                rec.update({"sandbox": sandbox, "start": _start_time(sandbox),
                            "pid_ns": info["pid-namespace"], "net_ns": info["net-namespace"]})
                _write_run(phone, rec)
                _plug(phone, sandbox)
            with contextlib.suppress(BrokenPipeError):
                os.write(block_w, b"go")    # bubblewrap may have ended already: it says why
        finally:
            os.close(block_w)
            os.close(info_r)
        return proc.wait()
    except _Stopped as e:
        return 128 + e.args[0]
    finally:
        # A second signal must not cut the clean-up short.
        for sig in old:
            signal.signal(sig, signal.SIG_IGN)
        if proc is not None and proc.poll() is None:
            proc.kill()
            proc.wait()
        if owner:
            with _locked(phone):
                with contextlib.suppress(FileNotFoundError):
                    os.remove(os.path.join(_dir(phone), "run.json"))
                kept = os.path.exists(_kept_flag(phone))
                if netfd is not None and kept and station_exists(phone):
                    _unplug(phone, netfd)
                if not kept:
                    _remove_station(phone)
                _tidy(key(phone))
        if netfd is not None:
            os.close(netfd)
        for sig, handler in old.items():
            signal.signal(sig, handler)
