"""A console as a station drives it: one command at a time, each reply split
into the command's output, its verdict and the event lines that came meanwhile."""
import codecs
import collections
import dataclasses
import os
import re
import subprocess
import time

from ftstation import conventions as cv
from ftstation import transport

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FTSIM = os.path.join(REPO, "ftsim")
TAIL_LINES = 20


class StationError(Exception):
    """Something the station cannot go on from; the message ends with the
    transcript's tail where there is one."""

    def __init__(self, what, tail=""):
        super().__init__(what + (f"\n--- the console's last output ---\n{tail}" if tail else ""))
        self.what, self.tail = what, tail


class ConsoleTimeout(StationError):
    pass


class ConsoleEnded(StationError):
    def __init__(self, what, tail, status):
        super().__init__(f"{what} (exit status {status})", tail)
        self.status = status


@dataclasses.dataclass
class Reply:
    command: str
    lines: list
    verdict: object          # "PASS", "FAIL" or None
    events: list
    duration: float
    refused: object = None   # the console's refusal line, when it ran nothing
    ended: bool = False      # the console ended after this command
    status: object = None    # its exit status then, where there is one

    @property
    def output(self):
        return "\n".join(self.lines)


@dataclasses.dataclass
class Identity:
    thumbprint: str
    fields: dict             # label -> value: MAC, Serial#, Product, Model, Hardware
    reply: Reply


@dataclasses.dataclass
class Readback:
    ok: bool
    values: dict             # name -> the value read back (None: nothing printed)
    replies: list


class Console:
    def __init__(self, link, timeout=10.0, start_timeout=60.0, events=(), wake=False):
        self.link, self.timeout = link, timeout
        self.phone = None            # the simulated phone's folder, when there is one
        self._ftsim = FTSIM
        self._event = cv.event_matcher(events)
        self._event_at_end = re.compile(r"(.*?)(%s)" % self._event.pattern)
        self._carry = ""
        self._decode = codecs.getincrementaldecoder("utf-8")(errors="replace")
        self._partial = ""           # text after the last line end, as read
        self._lines = collections.deque()
        self._pending = []           # events that came between commands
        self._breaks = cv.LineBreaks()
        self._seen = ""              # the last of the output, for error messages
        self._at_end = False
        self._stuck = False          # a command never came back: no quit will either
        self.status = None
        if wake:
            # A console already running shows its prompt again for an empty line.
            link.write(b"\n")
        self.banner = self._start(start_timeout)

    # --- ways to connect ---------------------------------------------------

    @classmethod
    def simulated(cls, phone, build="host", terminal=True, ftsim=FTSIM, **kw):
        """`./ftsim run` on a terminal (or, with terminal=False, on a pipe, where
        Ctrl+C becomes `./ftsim interrupt`)."""
        argv = [ftsim, "run", "--build", build, phone]
        if terminal:
            link = transport.Terminal(argv, env=dict(os.environ, TERM="dumb"))
        else:
            link = transport.Pipe(argv, interrupt=lambda: _run_ftsim(ftsim, "interrupt", phone))
        console = cls(link, **kw)
        console.phone, console._ftsim = phone, ftsim
        return console

    @classmethod
    def serial(cls, device, baud=115200, **kw):
        return cls(transport.Serial(device, baud), wake=True, **kw)

    @classmethod
    def spawn(cls, argv, terminal=True, **kw):
        """Any other transport: a program whose standard input and output reach `ft`."""
        return cls((transport.Terminal if terminal else transport.Pipe)(list(argv)), **kw)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    # --- working with it ---------------------------------------------------

    def run(self, command, timeout=None, passes=None, interrupt_after=None, ends_console=False):
        """Sends one command line and returns its reply. `passes`: a regular
        expression on the output that decides the verdict instead. With
        `interrupt_after`, Ctrl+C goes out that many seconds after the command
        if it is still running. With `ends_console`, the console is to end
        after the command instead of showing its prompt again."""
        problem = cv.line_problem(command)
        if problem:
            raise ValueError(f"{command!r}: {problem}")
        timeout = self.timeout if timeout is None else timeout
        self._take_events()
        if self._at_end:
            raise self._ended(f"the console has ended before {command!r}")
        start = time.monotonic()
        self.link.write(command.encode() + b"\n")
        kind, out, events = self._collect(command, start, timeout, interrupt_after, ends_console)
        self._breaks.reply(out)
        reply = Reply(command, out, _verdict(out, passes), events, time.monotonic() - start,
                      refused=cv.refusal(out))
        if kind == "end":
            self._at_end = reply.ended = True
            if not ends_console:
                raise self._ended(f"the console ended during {command!r}")
            reply.status = self.status = self.link.status(
                max(1.0, start + timeout - time.monotonic()))
        return reply

    def events(self):
        """The event lines that came since the last call, outside any command."""
        self._take_events()
        taken, self._pending = self._pending, []
        return taken

    def wait_event(self, pattern, timeout=None):
        """The first event line, between commands, that `pattern` finds; events
        before it stay queued."""
        regex = re.compile(pattern)
        timeout = self.timeout if timeout is None else timeout
        deadline = time.monotonic() + timeout
        while True:
            self._take_events()
            for i, event in enumerate(self._pending):
                if regex.search(event):
                    return self._pending.pop(i)
            if self._at_end:
                raise self._ended(f"the console ended while waiting for {pattern!r}")
            if not self._read(deadline):
                raise ConsoleTimeout(f"no event {pattern!r} within {timeout:g} s", self.tail())

    def interrupt(self):
        """Ctrl+C: the character on a terminal or serial line; `./ftsim interrupt`
        for a simulated phone on a pipe."""
        try:
            self.link.interrupt()
        except OSError as e:
            raise StationError(f"cannot send Ctrl+C: {e}") from None

    def sim(self, verb, *args):
        """`./ftsim VERB PHONE ARGS...` for this console's simulated phone."""
        if self.phone is None:
            raise StationError(f"not a simulated phone: cannot run ftsim {verb}")
        _run_ftsim(self._ftsim, verb, self.phone, *args)

    def program(self, values, timeout=None):
        """Writes each parameter, reads it back and compares."""
        replies, got = [], {}
        for name, value in values.items():
            wrote = self.run(f"program write {name} {cv.quote(value)}", timeout)
            read, got[name] = self.read_back(name, timeout)
            replies += [wrote, read]
            got[name] = got[name] if wrote.verdict == "PASS" else None
        ok = all(got[name] == value for name, value in values.items())
        return Readback(ok, got, replies)

    def read_back(self, name, timeout=None):
        """`program read NAME`: its reply and the value it shows (None: none)."""
        reply = self.run(f"program read {name}", timeout)
        return reply, next(iter(cv.param_lines(reply.lines).values()), None)

    def identity(self, timeout=60):
        """Runs `gencert`: the certificate's thumbprint and the identity block."""
        reply = self.run("gencert", timeout)
        identity = parse_identity(reply)
        if identity is None:
            raise StationError("gencert gave no thumbprint:\n" + reply.output)
        return identity

    def wait_end(self, timeout=None):
        """Waits for the console to end; returns its exit status (None where
        the transport has none)."""
        deadline = time.monotonic() + (self.timeout if timeout is None else timeout)
        while not self._at_end:
            if not self._read(deadline):
                raise ConsoleTimeout("the console did not end", self.tail())
        self.status = self.link.status(max(1.0, deadline - time.monotonic()))
        return self.status

    def close(self, timeout=None):
        """Quits the console, if it still runs, and lets go of the transport."""
        try:
            if not self._at_end and not self._stuck:
                self.link.write(b"quit\n")
                # A serial line goes on after the console: nothing to wait for.
                return self.wait_end(timeout) if self._has_process() else None
            return self.status
        except StationError:
            return None
        finally:
            self.link.close()

    def tail(self):
        return "\n".join(self._seen.rstrip("\n").split("\n")[-TAIL_LINES:])

    # --- reading -----------------------------------------------------------

    def _start(self, timeout):
        lines = []
        deadline = time.monotonic() + timeout
        while True:
            kind, line = self._next(deadline)
            if kind == "line":
                lines.append(line)
            elif kind == "prompt":
                return "\n".join(lines)
            elif kind == "timeout":
                raise ConsoleTimeout(f"no prompt within {timeout:g} s", self.tail())
            else:
                raise self._ended("the console ended before its first prompt")

    def _collect(self, command, start, timeout, interrupt_after, ends_console):
        """The reply's lines up to the next prompt (or the end): its output,
        the events among them, and how it ended ("prompt" or "end")."""
        out, events, held_blank, echoed, interrupted = [], [], False, False, False
        interrupt_at = start + interrupt_after if interrupt_after is not None else None
        while True:
            limit = start + timeout
            if interrupt_at is not None:
                limit = min(limit, interrupt_at)
            kind, line = self._next(limit, ends_console and not self._has_process())
            if kind == "timeout":
                if interrupt_at is not None and time.monotonic() < start + timeout:
                    self.interrupt()
                    interrupt_at, interrupted = None, True
                    continue
                self._stuck = True
                raise ConsoleTimeout(f"no reply to {command!r} within {timeout:g} s",
                                     self.tail())
            if kind == "end" or kind == "prompt" and echoed:
                break
            if kind == "prompt":
                continue             # the editor drew its line again before the echo
            if not echoed:
                # Before the echo, the console had not taken the line yet.
                echoed = not self._between_commands(line)
                continue
            if interrupted and line.startswith("^C"):
                line = line[2:]      # the terminal's echo of Ctrl+C
            if self._event.fullmatch(line):
                events.append(line)
                self._breaks.event(line)
                held_blank = False   # a line end before an event is the reader's
            elif line == "" and self._breaks.blank():
                continue
            else:
                if held_blank:
                    out.append("")
                held_blank = line == ""
                if line:
                    out.append(line)
        if held_blank:
            out.append("")
        return kind, out, events

    def _has_process(self):
        return not isinstance(self.link, transport.Serial)

    def _read(self, deadline):
        """Reads what has come, waiting until `deadline`; False when nothing came."""
        if self._at_end or not self.link.wait(deadline - time.monotonic()):
            return False
        data = self.link.read()
        if not data:
            self._at_end = True
            text = self._decode.decode(b"", final=True)
        else:
            text = self._decode.decode(data)
        self._seen = (self._seen + cv.clean(text))[-4096:]
        text = self._partial + text
        *complete, self._partial = text.split("\n")
        if self._at_end:
            complete += [self._partial] if self._partial else []
            self._partial = ""
        for line in complete:
            line, self._carry = self._carry + cv.clean(line), ""
            # An event printed while a line was half out (the editor's echo
            # before its line end): the event first, the line goes on after it.
            m = self._event_at_end.fullmatch(line)
            if m and m[1] and m[1] != cv.PROMPT:
                line, self._carry = m[2], m[1]
            self._lines.append(line)
        if self._at_end and self._carry:
            self._lines.append(self._carry)
        return True

    def _next(self, deadline, quiet_is_end=False):
        """The next token: ("line", text), ("prompt", None) for a prompt at the
        start of a line (taken off it), ("end", None) or ("timeout", None).
        With `quiet_is_end`, a timeout counts as the end (a serial line has no
        end of its own when the phone reboots)."""
        while True:
            if self._lines:
                line = self._lines[0]
                if line.startswith(cv.PROMPT):
                    self._lines[0] = line[len(cv.PROMPT):]
                    return "prompt", None
                return "line", self._lines.popleft()
            at = self._partial.find(cv.PROMPT)
            if at >= 0 and not cv.clean(self._partial[:at]):
                self._partial = self._partial[at + len(cv.PROMPT):]
                return "prompt", None
            if self._at_end:
                return "end", None
            if not self._read(deadline) and not self._at_end:
                if time.monotonic() >= deadline:
                    return ("end" if quiet_is_end else "timeout"), None

    def _take_events(self):
        """Reads what has come without waiting; sorts the lines between commands."""
        while self._read(time.monotonic()):
            pass
        while self._lines:
            line = self._lines.popleft()
            if line.startswith(cv.PROMPT):
                line = line[len(cv.PROMPT):]
            self._between_commands(line)

    def _between_commands(self, line):
        """Queues an event line, counts a blank one; False for any other line."""
        if self._event.fullmatch(line):
            self._pending.append(line)
            self._breaks.event(line)
        elif line:
            return False
        else:
            self._breaks.blank()
        return True

    def _ended(self, what):
        if self.status is None:
            self.status = self.link.status(5)
        return ConsoleEnded(what, self.tail(), self.status)


def _verdict(lines, passes):
    if cv.refusal(lines):
        return "FAIL"
    if passes is not None:
        return "PASS" if re.search(passes, "\n".join(lines), re.M) else "FAIL"
    return cv.verdict(lines)


def parse_identity(reply):
    """gencert's thumbprint and identity block, or None when it printed none."""
    for i, line in enumerate(reply.lines):
        if line.startswith("Thumbprint: "):
            return Identity(line[len("Thumbprint: "):], cv.param_lines(reply.lines[i + 1:]), reply)
    return None


def _run_ftsim(ftsim, verb, phone, *args):
    r = subprocess.run([ftsim, verb, phone, *args], capture_output=True, text=True, timeout=60)
    if r.returncode != 0:
        raise StationError(f"ftsim {verb} {' '.join(args)}: "
                           f"{(r.stderr or r.stdout).strip() or 'exit status %d' % r.returncode}")
