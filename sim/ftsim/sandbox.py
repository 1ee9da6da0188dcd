"""Runs the console inside the phone: private mount, PID and network namespaces
(bubblewrap), the phone's filesystems over the root, the host's read-only."""
import errno
import glob
import os
import shutil
import signal
import sys
import tempfile
import termios

from ftsim import runs
from ftsim.phone import FILESYSTEMS, REPO, check_kind
from ftsim.registry import ENV_HOOKS, RUN_HOOKS, UsageError

# host: the native build; asan: the same with AddressSanitizer and UBSan;
# arm: the phone's armhf build, run under qemu-user; fuzz: the fuzz target's build.
BUILDS = ("host", "asan", "arm", "fuzz")
PRELOAD = "/sim/run/libftsim_preload.so"
ARM_LIBC = "/usr/arm-linux-gnueabihf"


def build_dir(name):
    if name not in BUILDS:
        raise UsageError(f"unknown build {name!r} (one of: {', '.join(BUILDS)})")
    return os.environ.get("FTSIM_BUILD_DIR_" + name.upper()) or os.path.join(REPO, "build", name)


def install(phone, build):
    """Puts the console and the vendor libraries of `build` into the phone."""
    out = os.path.join(build_dir(build), "out")
    ft = os.path.join(out, "bin", "ft")
    if not os.path.isfile(ft):
        raise UsageError(f"no console built at {ft} (run: make)")
    _copy(ft, phone.p("system", "bin", "ft"))
    for lib in glob.glob(os.path.join(out, "lib", "*.so*")):
        name = os.path.basename(lib)
        dest = phone.p("run", name) if name.startswith("libftsim") else phone.p("system", "lib", name)
        _copy(lib, dest)


def _copy(src, dest):
    """Replaces the file `dest` (never a link) by a copy of `src`."""
    check_kind(dest, "file")
    fd, tmp = tempfile.mkstemp(dir=os.path.dirname(dest), prefix=os.path.basename(dest) + ".new.")
    os.close(fd)
    try:
        shutil.copyfile(src, tmp)
        shutil.copystat(src, tmp)
        os.replace(tmp, dest)
    except BaseException:
        os.remove(tmp)
        raise


# Where the phone's device stand-ins show under /dev, so that the shell commands
# the console runs see the phone's nodes too (the console itself reaches them
# through the preload library, which also answers their ioctls).
DEV_NODES = (("input", "/dev/input"), ("snd", "/dev/snd"), ("watchdog", "/dev/watchdog"),
             ("fb0", "/dev/graphics/fb0"))


def _dev_binds(phone):
    args = []
    for name, node in DEV_NODES:
        path = phone.p("dev", name)
        if os.path.lexists(path):
            kind = "folder" if name in ("input", "snd") else "file"
            args += ["--bind", check_kind(path, kind, missing_ok=False), node]
    return args


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


# make coverage: the coverage build's folder, bound writable into the sandbox at
# GCOV_MOUNT, so that the console's counters land beside its objects there.
GCOV_DIR = "FTSIM_GCOV_DIR"
GCOV_MOUNT = "/gcov"


def gcov_dir():
    d = os.environ.get(GCOV_DIR)
    return os.path.abspath(d) if d else None


def guest_env(build):
    """What the console's process gets besides the sandbox's own environment."""
    env = {"LD_LIBRARY_PATH": "/system/lib", "LD_PRELOAD": PRELOAD}
    if gcov_dir():
        # /gcov + the object's path less the build folder's own components.
        env["GCOV_PREFIX"] = GCOV_MOUNT
        env["GCOV_PREFIX_STRIP"] = str(len(gcov_dir().strip("/").split("/")))
    if build == "asan":
        with open(os.path.join(build_dir(build), "out", "asan-runtime")) as f:
            env["LD_PRELOAD"] = f.read().strip() + ":" + PRELOAD
        env["ASAN_OPTIONS"] = "abort_on_error=0:exitcode=86:detect_leaks=1"
        env["UBSAN_OPTIONS"] = "print_stacktrace=1:halt_on_error=1:exitcode=86"
    return env


def phone_env(phone, build):
    """guest_env, with what the phone's devices and faults add to it."""
    env = guest_env(build)
    for hook in ENV_HOOKS:
        hook(phone, build, env)
    return env


def guest(build, argv, env):
    """The command line that starts `argv` as the console's build runs it."""
    if build != "arm":
        return argv, env
    # qemu-user gets the guest's environment through -E, so the preload
    # reaches the armhf console and never qemu itself.
    cmd = ["qemu-arm", "-L", ARM_LIBC]
    for k, v in env.items():
        cmd += ["-E", f"{k}={v}"]
    return cmd + argv, {}


# ioctls nothing in the phone may make: pushing input into the terminal of
# whoever started ftsim (it would run in their shell once the sandbox ends),
# and driving a virtual console.
GUARDED_IOCTLS = (termios.TIOCSTI, termios.TIOCLINUX)


def terminal_guard():
    """A descriptor of the seccomp program that refuses GUARDED_IOCTLS (EPERM)
    and allows everything else. A new session would stop TIOCSTI too, but
    Ctrl+C on the terminal must still reach the console. The console under
    qemu-user makes the host's own system calls, so the host's architectures
    are the ones filtered."""
    import seccomp
    f = seccomp.SyscallFilter(defaction=seccomp.ALLOW)
    for arch in (seccomp.Arch.X86, seccomp.Arch.X32):
        f.add_arch(arch)
    for request in GUARDED_IOCTLS:
        # The kernel reads the request as 32 bits: higher bits must not hide one.
        f.add_rule(seccomp.ERRNO(errno.EPERM), "ioctl",
                   seccomp.Arg(1, seccomp.MASKED_EQ, 0xFFFFFFFF, request))
    fd = os.memfd_create("ftsim-seccomp", os.MFD_CLOEXEC)
    with os.fdopen(os.dup(fd), "wb") as out:
        f.export_bpf(out)
    os.lseek(fd, 0, os.SEEK_SET)
    return fd


def command(phone, argv, env, extra=(), guard=None):
    """bubblewrap's command line; `guard`: the descriptor of terminal_guard()."""
    args = ["bwrap", "--die-with-parent", "--unshare-pid", "--unshare-net",
            "--unshare-ipc", "--unshare-uts", "--hostname", "phone"]
    if guard is not None:
        args += ["--seccomp", str(guard)]
    args += _root_links()
    args += ["--proc", "/proc", "--dev", "/dev"] + _dev_binds(phone)
    for fs in FILESYSTEMS:
        args += ["--bind", phone.bindable(fs), "/" + fs]
    args += extra
    args += ["--bind", phone.path, "/sim"]
    if gcov_dir():
        args += ["--bind", gcov_dir(), GCOV_MOUNT]
    args += ["--clearenv",
             "--setenv", "PATH", "/system/bin:/usr/sbin:/usr/bin:/sbin:/bin",
             "--setenv", "HOME", "/data",
             "--setenv", "TERM", os.environ.get("TERM", "dumb")]
    for k, v in env.items():
        args += ["--setenv", k, v]
    return args + ["--chdir", "/", "--"] + argv


def _prepare(phone, build):
    phone.require()
    install(phone, build)
    extra = []
    for hook in RUN_HOOKS:
        extra += hook(phone, build) or []
    for f in ("console.pid", "rebooted"):
        try:
            os.remove(phone.p("run", f))
        except FileNotFoundError:
            pass
    if not shutil.which("bwrap"):
        raise UsageError("bubblewrap is not installed (run: make)")
    return extra


def _call(phone, argv, env, extra):
    # Ctrl+C on the terminal goes to the console; we only wait for it. bubblewrap
    # inherits the ignoring (Ctrl+C would take the sandbox down with it); the
    # console gets SIGINT's default action back (see CONSOLE).
    old = signal.signal(signal.SIGINT, signal.SIG_IGN)
    guard = terminal_guard()
    try:
        status = runs.launch(phone, command(phone, argv, env, extra, guard), pass_fds=(guard,))
    except runs.Refused as e:
        print(f"ftsim: {e}", file=sys.stderr)
        return 1
    finally:
        os.close(guard)
        signal.signal(signal.SIGINT, old)
    return status if status >= 0 else 128 - status


# The console, with SIGINT's default action whatever the sandbox ignores.
CONSOLE = ["/usr/bin/env", "--default-signal=INT", "/system/bin/ft"]


def run(phone, build="host"):
    extra = _prepare(phone, build)
    argv, env = guest(build, CONSOLE[2:], phone_env(phone, build))
    status = _call(phone, CONSOLE[:2] + argv, env, extra)
    if os.path.exists(phone.p("run", "rebooted")):
        return 0          # the phone rebooted: the console's run is over
    return status


def exec_in(phone, build, argv):
    """Runs another program in the phone's sandbox, without the preload. A
    launcher (valgrind, a fuzzer) finds the console's preload in FTSIM_PRELOAD."""
    extra = _prepare(phone, build)
    env = phone_env(phone, build)
    offered = {"FTSIM_PRELOAD": env["LD_PRELOAD"], "LD_LIBRARY_PATH": env["LD_LIBRARY_PATH"]}
    return _call(phone, argv, offered, extra)
