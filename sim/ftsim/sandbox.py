"""Runs the console inside the phone: private mount, PID and network namespaces
(bubblewrap), the phone's filesystems over the root, the host's read-only."""
import glob
import os
import shutil
import signal
import subprocess

from ftsim.phone import REPO
from ftsim.registry import RUN_HOOKS, UsageError

BUILDS = ("host",)


def build_dir(name):
    if name not in BUILDS:
        raise UsageError(f"unknown build {name!r} (one of: {', '.join(BUILDS)})")
    env = os.environ.get("FTSIM_BUILD_DIR")
    if env and name == "host":
        return env
    return os.path.join(REPO, "build", name)


def install(phone, build):
    """Puts the console and the vendor libraries of `build` into the phone."""
    out = os.path.join(build_dir(build), "out")
    ft = os.path.join(out, "bin", "ft")
    if not os.path.isfile(ft):
        raise UsageError(f"no console built at {ft} (run: make)")
    _copy(ft, phone.p("system", "bin", "ft"))
    for lib in glob.glob(os.path.join(out, "lib", "*.so")):
        name = os.path.basename(lib)
        dest = phone.p("run", name) if name.startswith("libftsim") else phone.p("system", "lib", name)
        _copy(lib, dest)


def _copy(src, dest):
    tmp = dest + ".new"
    shutil.copy2(src, tmp)
    os.replace(tmp, dest)


def _root_links():
    """/bin, /lib... as the host has them: links into /usr, or folders to bind."""
    args = ["--ro-bind", "/usr", "/usr", "--ro-bind", "/etc", "/etc"]
    for d in ("bin", "sbin", "lib", "lib32", "lib64", "libx32"):
        host = "/" + d
        if os.path.islink(host):
            args += ["--symlink", os.readlink(host), host]
        elif os.path.isdir(host):
            args += ["--ro-bind", host, host]
    return args


def command(phone, argv):
    args = ["bwrap", "--die-with-parent", "--unshare-pid", "--unshare-net",
            "--unshare-ipc", "--unshare-uts", "--hostname", "phone"]
    args += _root_links()
    args += ["--proc", "/proc", "--dev", "/dev"]
    for fs in ("system", "reserved", "cache", "data", "tmp", "sys"):
        args += ["--bind", phone.p(fs), "/" + fs]
    args += ["--bind", phone.path, "/sim"]
    args += ["--clearenv",
             "--setenv", "PATH", "/system/bin:/usr/sbin:/usr/bin:/sbin:/bin",
             "--setenv", "HOME", "/data",
             "--setenv", "TERM", os.environ.get("TERM", "dumb"),
             "--setenv", "LD_LIBRARY_PATH", "/system/lib",
             "--setenv", "LD_PRELOAD", "/sim/run/libftsim_preload.so",
             "--chdir", "/", "--"]
    return args + argv


def run(phone, build="host"):
    phone.require()
    install(phone, build)
    for hook in RUN_HOOKS:
        hook(phone, build)
    for f in ("console.pid", "rebooted"):
        try:
            os.remove(phone.p("run", f))
        except FileNotFoundError:
            pass
    if not shutil.which("bwrap"):
        raise UsageError("bubblewrap is not installed (run: make)")
    # Ctrl+C on the terminal goes to the console; we only wait for it.
    old = signal.signal(signal.SIGINT, lambda *_: None)
    try:
        status = subprocess.call(command(phone, ["/system/bin/ft"]))
    finally:
        signal.signal(signal.SIGINT, old)
    if os.path.exists(phone.p("run", "rebooted")):
        return 0          # the phone rebooted: the console's run is over
    return status if status >= 0 else 128 - status
