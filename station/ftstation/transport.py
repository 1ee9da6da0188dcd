"""Byte pipes to a console: a child on a pipe or on a terminal, or a serial line.
Each gives a descriptor to wait on, reads that say b"" once the far end is gone,
writes, Ctrl+C, and the exit status where there is a process to have one."""
import os
import select
import signal
import subprocess
import threading
import time

import pexpect

CTRL_C = b"\x03"


class Waitable:
    def wait(self, seconds):
        """True when there is something to read within `seconds`."""
        return bool(select.select([self.fileno()], [], [], max(0.0, seconds))[0])


class Pipe(Waitable):
    """A child whose standard input and output are pipes. Its standard error is
    kept apart, for the error messages of the launcher."""

    def __init__(self, argv, env=None, interrupt=None):
        self.proc = subprocess.Popen(argv, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, env=env, bufsize=0)
        self._interrupt = interrupt
        self.stderr = b""
        threading.Thread(target=self._drain_stderr, daemon=True).start()

    def _drain_stderr(self):
        for chunk in iter(lambda: self.proc.stderr.read(4096), b""):
            self.stderr += chunk

    def fileno(self):
        return self.proc.stdout.fileno()

    def read(self):
        return os.read(self.fileno(), 65536)

    def write(self, data):
        try:
            self.proc.stdin.write(data)
        except (BrokenPipeError, ValueError):
            pass          # the reader sees the end and says so

    def interrupt(self):
        if self._interrupt is None:
            raise OSError("a console on a pipe cannot be sent Ctrl+C")
        self._interrupt()

    def status(self, timeout):
        try:
            return self.proc.wait(timeout)
        except subprocess.TimeoutExpired:
            return None

    def close(self):
        for f in (self.proc.stdin, self.proc.stdout):
            try:
                f.close()
            except OSError:
                pass
        if self.status(2) is None:
            self.proc.kill()
            self.proc.wait()


class Terminal(Waitable):
    """A child on a terminal of its own, wide enough that no line is folded."""

    def __init__(self, argv, env=None):
        self.child = pexpect.spawn(argv[0], argv[1:], env=env, dimensions=(24, 1000))

    def fileno(self):
        return self.child.child_fd

    def read(self):
        try:
            return os.read(self.child.child_fd, 65536)
        except OSError:       # EIO: the child and every holder of the terminal are gone
            return b""

    def write(self, data):
        try:
            os.write(self.child.child_fd, data)
        except OSError:
            pass

    def interrupt(self):
        self.write(CTRL_C)

    def status(self, timeout):
        deadline = time.monotonic() + timeout
        while self.child.isalive():
            if time.monotonic() >= deadline:
                return None
            time.sleep(0.01)
        if self.child.signalstatus is not None:
            return 128 + self.child.signalstatus
        return self.child.exitstatus

    def close(self):
        if self.child.isalive():
            self.child.kill(signal.SIGHUP)
        self.child.close(force=True)


class Serial(Waitable):
    """A phone's serial console. A line has no exit status; the end of the line
    (the far end of a pty pair closing) reads as the console's end."""

    def __init__(self, device, baud=115200):
        import serial
        self.port = serial.Serial(device, baud, timeout=0)

    def fileno(self):
        return self.port.fileno()

    def read(self):
        try:
            return os.read(self.port.fileno(), 65536)
        except OSError:
            return b""

    def write(self, data):
        try:
            self.port.write(data)
        except Exception:     # pyserial wraps every OSError in its own class
            pass

    def interrupt(self):
        self.write(CTRL_C)

    def status(self, timeout):
        return None

    def close(self):
        self.port.close()
