"""Delivery into a running console: the FIFOs that stand for event devices and
for the maker library's accessory events are read by the console alone, so a
write needs a console that holds the FIFO open."""
import errno
import os
import select
import sys

from ftsim.phone import open_fifo

PIPE_BUF = 4096
# A console that holds the FIFO open but never reads it is as good as gone.
STALL_SECONDS = 10


class NotDelivered(Exception):
    """No console takes the records: printed as one line, exit status 1."""


def delivering(fn):
    """Wraps a command: a NotDelivered ends it with its message and status 1."""
    def cmd(args):
        try:
            return fn(args)
        except NotDelivered as e:
            print(f"ftsim: {e}", file=sys.stderr)
            return 1
    return cmd


def write_groups(path, groups, what, phone):
    """Writes each group of bytes whole (a group is never split between two
    writes while it fits in PIPE_BUF); returns once all are in the FIFO."""
    try:
        fd = open_fifo(path, os.O_WRONLY | os.O_NONBLOCK)
    except FileNotFoundError:
        raise NotDelivered(f"{what} is not plugged in") from None
    except OSError as e:
        if e.errno == errno.ENXIO:
            raise NotDelivered(f"no console is reading {what} "
                               f"(start one with: ftsim run {phone.path})") from None
        raise
    try:
        chunk = b""
        for g in groups:
            if chunk and len(chunk) + len(g) > PIPE_BUF:
                _write_all(fd, chunk, what)
                chunk = b""
            chunk += g
        if chunk:
            _write_all(fd, chunk, what)
    finally:
        os.close(fd)


def _write_all(fd, data, what):
    view = memoryview(data)
    while view:
        try:
            n = os.write(fd, view)
            view = view[n:]
        except BlockingIOError:
            _, ready, _ = select.select([], [fd], [], STALL_SECONDS)
            if not ready:
                raise NotDelivered(f"the console stopped reading {what}") from None
        except BrokenPipeError:
            raise NotDelivered(f"the console closed {what}") from None


def queued(path):
    """Bytes written to the FIFO and not yet read (0 when nobody holds it)."""
    import fcntl
    import struct
    import termios
    try:
        fd = open_fifo(path, os.O_WRONLY | os.O_NONBLOCK)
    except OSError:
        return 0
    try:
        return struct.unpack("i", fcntl.ioctl(fd, termios.FIONREAD, b"\0" * 4))[0]
    finally:
        os.close(fd)
