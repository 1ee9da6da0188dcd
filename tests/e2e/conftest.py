"""Drives ./ftsim the way a station's script does."""
import os
import re
import subprocess
import sys
import time

import pexpect
import pytest

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
import pages  # noqa: E402

until = pages.until      # the tests' one poller

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FTSIM = os.path.join(REPO, "ftsim")
GOLDEN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "golden")

# Which build the phones run: host, asan or arm.
BUILD = os.environ.get("FTSIM_BUILD", "host")

# The one line that changes with every build.
BUILD_STAMP = re.compile(r"^Factory Test [A-Z][a-z]{2} [ 1-3]\d \d{4} \d\d:\d\d:\d\d$", re.M)


def ftsim(*args, input=None, timeout=30):
    return subprocess.run([FTSIM, *map(str, args)], input=input, capture_output=True,
                          text=True, timeout=timeout)


def golden(name):
    with open(os.path.join(GOLDEN, name)) as f:
        return f.read()


def startup(watchdog=True, keypad=True, jack=True, display="", mixer=True, camhal=None):
    """What the console prints before its first prompt, for the devices present.
    `display`: the drawing layer's log lines (none while the framebuffer works);
    `camhal`: why the camera's marker file could not be made (an errno text)."""
    text = "Opening watchdog file at /dev/watchdog ... "
    text += "Disabling watchdog timer.\n" if watchdog else "watchdog file could not be opened\n"
    if not keypad:
        text += "keyTestInit(): fail - keypad device can't be opened\n"
    if not jack:
        text += "jackTestInit(): fail - 3.5 headset event device can't be opened\n"
    text += display
    if not mixer:
        text += "initialize_audio : mixer_open failed\n"
    if camhal:
        text += ("cameraInit(): Failed to create file /tmp/camhal/ft_specialresolution.txt"
                 f" (errno = {camhal}).\n"
                 "              Camera will not use full resolutions.\n")
    return text + "\n"


def startup_calls(mixer=True):
    """The shell command lines start-up runs, as ./ftsim calls lists them."""
    return "echo 1 > /sys/class/audio_ports_ctl/wired_handset/amp_enable\n" if mixer else ""


# What shut-down prints when Wi-Fi never ran: stopping it finds nothing to stop.
QUIT = "ft : WiFi service already stopped.\n"


def transcript(*steps, eof=False):
    """The console's output for (line, output) steps read from a pipe: the editor
    echoes the prompt and each line. With eof, the input ends after the last step
    and the console shuts down as for quit."""
    text = "".join(f"ft>{line}\n{out}" for line, out in steps)
    return text + ("ft>" + QUIT if eof else "")


class Phone:
    def __init__(self, path):
        self.path = path

    def run(self, *lines, timeout=30):
        """Pipes the lines into the console; returns (output, exit status)."""
        text = "".join(line + "\n" for line in lines)
        r = ftsim("run", "--build", BUILD, self.path, input=text, timeout=timeout)
        assert "Sanitizer" not in r.stderr and "runtime error" not in r.stderr, r.stderr
        return BUILD_STAMP.sub("Factory Test <build>", r.stdout), r.returncode

    def values(self):
        r = ftsim("store", self.path)
        assert r.returncode == 0, r.stderr
        # Lines end at LF only: a value may hold any other control byte.
        return dict(line.split("=", 1) for line in r.stdout.split("\n")[:-1])

    def __getattr__(self, verb):
        """phone.fault("shell") runs ./ftsim fault PHONE shell, and so on."""
        def call(*args):
            r = ftsim(verb, self.path, *args)
            assert r.returncode == 0, r.stderr
            return r.stdout
        return call


@pytest.fixture
def phone(tmp_path):
    path = tmp_path / "phone"
    r = ftsim("new", path)
    assert r.returncode == 0, r.stderr
    return Phone(str(path))


def read_until(proc, marker, guard=30):
    """What a console on a pipe prints, up to and with `marker`."""
    seen, deadline = "", time.monotonic() + guard
    while marker not in seen:
        assert time.monotonic() < deadline, f"no {marker!r} in {seen!r}"
        chunk = os.read(proc.stdout.fileno(), 4096).decode()
        assert chunk, f"the console ended before {marker!r}: {seen!r}"
        seen += chunk
    return seen


def terminal(phone, timeout=10):
    """The console on a terminal, at its first prompt (its start-up in `before`)."""
    c = pexpect.spawn(FTSIM, ["run", "--build", BUILD, phone.path], encoding="utf-8",
                      timeout=timeout, dimensions=(40, 300))
    c.expect_exact("ft>")
    return c


def quit_terminal(c, prints=""):
    """Quits a console on a terminal: what it prints on its way out, and status 0."""
    c.sendline("quit")
    c.expect_exact(prints.replace("\n", "\r\n"))
    c.expect(pexpect.EOF)
    c.close()
    assert c.exitstatus == 0
