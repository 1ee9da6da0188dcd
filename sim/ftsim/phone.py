"""A simulated phone: a folder that holds its filesystems, devices and state."""
import fcntl
import os
import shutil

from ftsim.registry import DEVICES, UsageError

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
ROOTFS = os.path.join(REPO, "sim", "rootfs")

# The phone's own filesystems, bound over the sandbox's root.
FILESYSTEMS = ("system", "reserved", "cache", "data", "tmp", "sys")
# Simulator state, seen under /sim inside the sandbox with the rest of the folder.
STATE_DIRS = ("store", "faults", "log", "run", "dev", "unplugged")


class Phone:
    def __init__(self, path):
        self.path = os.path.abspath(path)

    def p(self, *rel):
        return os.path.join(self.path, *rel)

    def exists(self):
        return os.path.isfile(self.p("run", "phone"))

    def require(self):
        if not self.exists():
            raise UsageError(f"{self.path}: not a phone (make one with: ftsim new PHONE)")
        return self

    def create(self, options, force=False):
        if os.path.lexists(self.path):
            if not force:
                raise UsageError(f"{self.path} exists (use --force to replace it)")
            from ftsim import runs
            runs.forget(self)       # the old phone's station goes with it
            shutil.rmtree(self.path)
        for d in FILESYSTEMS + STATE_DIRS:
            os.makedirs(self.p(d))
        shutil.copytree(ROOTFS, self.path, dirs_exist_ok=True)
        for d in ("system/lib", "system/etc"):
            os.makedirs(self.p(d), exist_ok=True)
        open(self.p("log", "calls"), "w").close()
        for dev in DEVICES.values():
            dev.create(self, options)
        open(self.p("run", "phone"), "w").close()

    def fault(self, name):
        return os.path.exists(self.p("faults", name))

    def note_change(self):
        """Adds one to the change counter (run/changes, a decimal number under
        flock) that `ftsim view` watches; the simulated libraries keep the same one."""
        fd = os.open(self.p("run", "changes"), os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o644)
        try:
            fcntl.flock(fd, fcntl.LOCK_EX)
            count = self.changes(fd)
            os.pwrite(fd, f"{count + 1}\n".encode(), 0)
        finally:
            os.close(fd)

    def changes(self, fd=None):
        """The change counter: 0 before the first change."""
        try:
            if fd is None:
                with open(self.p("run", "changes"), "rb") as f:
                    text = f.read(24)
            else:
                text = os.pread(fd, 24, 0)
            return int(text.split()[0]) if text.split() else 0
        except (FileNotFoundError, ValueError):
            return 0


def write_atomically(path, data):
    tmp = f"{path}.tmp.{os.getpid()}"
    with open(tmp, "wb") as f:
        f.write(data)
        f.flush()
        os.fsync(f.fileno())
    os.replace(tmp, path)
