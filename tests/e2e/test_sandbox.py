"""What the phone's sandbox keeps from the host: its terminal, and every host
file that a link planted in the phone folder would reach."""
import fcntl
import os
import pty
import subprocess
import termios
import tty

import pytest

from conftest import BUILD, FTSIM, ftsim

# Tries to type "id" into its terminal's input; prints the errno it got (0: it typed).
PUSH_INPUT = """
import fcntl, sys, termios
try:
    for c in b"id\\n":
        fcntl.ioctl(0, termios.TIOCSTI, bytes([c]))
    print(0)
except OSError as e:
    print(e.errno)
"""


def test_the_phone_cannot_type_into_the_terminal_that_started_it(phone):
    master, slave = pty.openpty()
    tty.setraw(slave)

    def own_terminal():
        os.setsid()
        fcntl.ioctl(slave, termios.TIOCSCTTY, 0)

    r = subprocess.run([FTSIM, "exec", "--build", BUILD, phone.path, "/usr/bin/python3", "-c",
                        PUSH_INPUT], stdin=slave, capture_output=True, text=True, timeout=30,
                       preexec_fn=own_terminal)
    assert (r.returncode, r.stdout) == (0, "1\n"), r.stderr        # EPERM
    os.set_blocking(slave, False)
    try:
        typed = os.read(slave, 100)
    except BlockingIOError:
        typed = b""
    os.close(slave)
    os.close(master)
    assert typed == b""


def link(target, at):
    """Puts a link to `target` where the phone had `at`."""
    if os.path.isdir(at):
        os.rename(at, at + ".old")
    elif os.path.lexists(at):
        os.remove(at)
    os.symlink(target, at)
    return at


# (what the phone planted: path in the phone, host file or folder it points to,
#  the ftsim call that would write or bind through it)
PLANTED = [
    ("the console's file", "system/bin/ft", "file", ["run", "--build", BUILD, "PHONE"]),
    ("a fault", "faults/shell", "file", ["fault", "PHONE", "shell"]),
    ("a filesystem", "data", "folder", ["run", "--build", BUILD, "PHONE"]),
    ("a device node", "dev/watchdog", "file", ["run", "--build", BUILD, "PHONE"]),
    ("an event device", "dev/input/event0", "fifo", ["press", "PHONE", "KEY_1"]),
    ("the store", "store", "folder", ["store", "PHONE", "phonesn", "X"]),
    ("a device's state", "accessories/cradle", "file", ["cradle", "PHONE", "connected"]),
]


@pytest.mark.parametrize("planted, kind, call", [p[1:] for p in PLANTED],
                         ids=[p[0] for p in PLANTED])
def test_links_planted_in_the_phone_are_refused(phone, tmp_path, planted, kind, call):
    host = tmp_path / "host"
    if kind == "folder":
        host.mkdir()
    else:
        host.write_text("host\n")
    at = link(str(host), os.path.join(phone.path, planted))
    r = ftsim(*[phone.path if word == "PHONE" else word for word in call], input="")
    assert (r.returncode, r.stdout) == (1, ""), r.stderr
    assert r.stderr == f"ftsim: {at}: the phone was tampered with (not a {kind} of its own)\n"
    assert (os.listdir(host) == [] if kind == "folder" else host.read_text() == "host\n")


def test_links_elsewhere_in_the_phone_are_never_written_through(phone, tmp_path):
    host = tmp_path / "host"
    host.write_text("host\n")
    link(str(host), os.path.join(phone.path, "system/bin/ft.new"))
    link(str(host), os.path.join(phone.path, "store/SN_UNIT.tmp.1"))
    ftsim("store", phone.path, "phonesn", "X")
    r = ftsim("run", "--build", BUILD, phone.path, input="program read phonesn\n")
    assert r.returncode == 0 and 'SN_UNIT = "X"' in r.stdout, r.stderr
    assert host.read_text() == "host\n"


def test_output_into_a_pipe_closed_early_ends_quietly(phone):
    r = subprocess.run(f"{FTSIM} store {phone.path} | head -0; echo ${{PIPESTATUS[0]}}",
                       shell=True, executable="/bin/bash", capture_output=True, text=True)
    assert (r.stdout, r.stderr) == ("141\n", "")
