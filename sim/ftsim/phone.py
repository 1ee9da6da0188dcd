"""A simulated phone: a folder that holds its filesystems, devices and state."""
import contextlib
import errno
import fcntl
import os
import shutil
import stat
import tempfile

from ftsim.registry import DEVICES, UsageError

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
ROOTFS = os.path.join(REPO, "sim", "rootfs")

# The phone's own filesystems, bound over the sandbox's root.
FILESYSTEMS = ("system", "reserved", "cache", "data", "tmp", "sys")
# Simulator state, seen under /sim inside the sandbox with the rest of the folder.
STATE_DIRS = ("store", "faults", "log", "run", "dev", "unplugged")


class Tampered(Exception):
    """A path ftsim writes or binds is a link, or not of its kind: the phone
    (whose folder the sandbox writes) planted it. One line, exit status 1."""

    def __init__(self, path, kind):
        super().__init__(f"{path}: the phone was tampered with (not a {kind} of its own)")


KINDS = {"file": stat.S_ISREG, "folder": stat.S_ISDIR, "fifo": stat.S_ISFIFO}


def check_kind(path, kind, missing_ok=True):
    """`path` itself (never followed) is a `kind`, or absent when missing_ok."""
    try:
        mode = os.lstat(path).st_mode
    except FileNotFoundError:
        if missing_ok:
            return path
        raise Tampered(path, kind) from None
    if not KINDS[kind](mode):
        raise Tampered(path, kind)
    return path


class Phone:
    """The phone's folder is the sandbox's to write: it may plant links in it.
    Every path built with p() has real folders on its way (no link, so it stays
    inside the phone); what ftsim writes or binds is checked for its own kind
    (check_kind, write_atomically, create_file). Links the phone keeps
    elsewhere (its own tools may be links) are its business: ftsim never
    writes through one."""

    def __init__(self, path):
        self.path = os.path.abspath(path)

    def p(self, *rel):
        path = self.path
        for part in os.path.join(*rel).split(os.sep)[:-1] if rel else ():
            if part in ("", ".", ".."):
                raise Tampered(os.path.join(self.path, *rel), "path")
            path = os.path.join(path, part)
            check_kind(path, "folder")
        return os.path.join(self.path, *rel)

    def bindable(self, *rel, kind="folder"):
        """p(*rel) for a bind into the sandbox: it must be there, a `kind`, no link."""
        return check_kind(self.p(*rel), kind, missing_ok=False)

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
        path = check_kind(self.p("run", "changes"), "file")
        fd = os.open(path, os.O_RDWR | os.O_CREAT | os.O_NOFOLLOW | os.O_CLOEXEC, 0o644)
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


def write_atomically(path, data, mode=0o644):
    """Replaces the file `path` (never a link) whole: a temporary file of a name
    no other process uses, fsync, rename."""
    check_kind(path, "file")
    fd, tmp = tempfile.mkstemp(dir=os.path.dirname(path), prefix=os.path.basename(path) + ".tmp.")
    try:
        with os.fdopen(fd, "wb") as f:
            f.write(data)
            f.flush()
            os.fchmod(f.fileno(), mode)
            os.fsync(f.fileno())
        os.replace(tmp, path)
    except BaseException:
        with contextlib.suppress(FileNotFoundError):
            os.remove(tmp)
        raise


def create_file(path, mode=0o644):
    """Opens the file `path` for writing (made when absent), never through a link."""
    check_kind(path, "file")
    fd = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_NOFOLLOW | os.O_CLOEXEC, mode)
    return os.fdopen(fd, "wb")


def open_fifo(path, flags):
    """A descriptor of the FIFO `path`, opened without following a link; -1 for
    a path that is something else, which the phone planted there."""
    try:
        fd = os.open(path, flags | os.O_NOFOLLOW | os.O_CLOEXEC)
    except OSError as e:
        if e.errno == errno.ELOOP:
            raise Tampered(path, "fifo") from None
        raise
    if not stat.S_ISFIFO(os.fstat(fd).st_mode):
        os.close(fd)
        raise Tampered(path, "fifo")
    return fd
