"""The station library: replies split into output, verdict and events, over a
scripted stand-in and over real consoles on a pipe and a terminal."""
import os
import sys
import threading
import time

import pytest

from conftest import REPO, ftsim
from ftstation import Console, ConsoleTimeout, verdict

sys.path.insert(0, os.path.join(REPO, "sim"))
from ftsim import dev_input, inject  # noqa: E402
from ftsim.phone import Phone as SimPhone  # noqa: E402


class Script:
    """A console stand-in: each line written releases the next scripted reply,
    a list of chunks as they would be read (b"" is the end of the output)."""

    def __init__(self, *replies):
        self.ready, self.replies, self.sent = [b"start-up\n\nft>"], list(replies), []

    def wait(self, seconds):
        if not self.ready:
            time.sleep(max(0.0, min(seconds, 0.05)))
        return bool(self.ready)

    def read(self):
        return self.ready.pop(0)

    def write(self, data):
        self.sent.append(data)
        if self.replies:
            reply = self.replies.pop(0)
            self.ready += [c.encode() for c in ([reply] if isinstance(reply, str) else reply)]

    def status(self, timeout):
        return 0

    def close(self):
        pass


REPLIES = [
    # (line, what the console prints after it, output lines, events, events between commands)
    ("info", 'info\nFactory Test X\nMAC = "1"\nft>', ["Factory Test X", 'MAC = "1"'], [], []),
    # A reader's first event breaks the line first; neither belongs to the output.
    ("gencert", 'gencert\nThumbprint: AB\n\nKeyCode[0006] value[1]\nMAC = "1"\nft>',
     ["Thumbprint: AB", 'MAC = "1"'], ["KeyCode[0006] value[1]"], []),
    # Before the echo, the console had not taken the line: the event is between commands.
    ("cradle 0", "\nHOOKSWITCH event: [OFF HOOK]\ncradle 0\nconnected\nPASS\nft>",
     ["connected", "PASS"], [], ["HOOKSWITCH event: [OFF HOOK]"]),
    # After the next prompt, on the prompt's own line.
    ("key 1", "key 1\nStart keypad test\nft>KeyCode[0006] value[1]\n", ["Start keypad test"], [],
     ["KeyCode[0006] value[1]"]),
    # A terminal: CR LF, control sequences, the prompt drawn again, lines split across reads.
    ("info", ["\rft>inf", 'o\r\n\x1b[KMAC = "1"\r', "\nJACK = C", "TIA\r\nft>"], ['MAC = "1"'],
     ["JACK = CTIA"], []),
    # An event printed while a line was half out: the line goes on after it.
    ("gencert", "gencert\nThumbprint: EHS event: [ON HOOK]\nAB\nft>", ["Thumbprint: AB"],
     ["EHS event: [ON HOOK]"], []),
    # Blank lines of the command's own stay in its output.
    ("help", "help\n\n\nGeneral help\nft>", ["", "", "General help"], [], []),
]


@pytest.mark.parametrize("line, printed, lines, events, between", REPLIES)
def test_reply_split_into_output_and_events(line, printed, lines, events, between):
    console = Console(Script(printed), timeout=2)
    assert console.banner == "start-up\n"
    reply = console.run(line)
    assert (reply.lines, reply.events, console.events()) == (lines, events, between)


@pytest.mark.parametrize("lines, expected", [
    (["HOOKSWITCH state: [OFF HOOK]", "PASS"], "PASS"),
    (["Thumbprint: AB", "PASSWORD set"], "PASS"),
    (["Valid brightness values are: [0 - 255]", "FAIL"], "FAIL"),
    (["rltkFTgetPVID() ERROR: ret=1, errno=5 Input/output error", "PASS"], "FAIL"),
    (["Start keypad test"], None),
])
def test_verdicts(lines, expected):
    assert verdict(lines) == expected


def test_refusals_fail_and_limits_are_checked_before_sending():
    script = Script("foo\nNot a valid command\nft>")
    console = Console(script, timeout=2)
    reply = console.run("foo")
    assert (reply.verdict, reply.refused) == ("FAIL", "Not a valid command")
    for line in ("x" * 256, " ".join(["w"] * 21), "program read " + "x" * 100, "   "):
        with pytest.raises(ValueError):
            console.run(line)
    assert script.sent == [b"foo\n"]


def test_an_event_that_never_comes_times_out():
    with pytest.raises(ConsoleTimeout, match="no event 'JACK' within 0.2 s"):
        Console(Script()).wait_event("JACK", 0.2)


# A serial line is the station server's test: a phone on the far end of a pty pair.
@pytest.mark.parametrize("terminal", [False, True], ids=["pipe", "terminal"])
def test_session_over_each_transport(terminal, phone):
    with Console.simulated(phone, terminal=terminal) as c:
        assert c.banner == ("Opening watchdog file at /dev/watchdog ... "
                            "Disabling watchdog timer.\n")
        values = {"ethaddr": "00:11:22:33:44:55", "phonesn": "SN 7"}
        wrote = c.program(values)
        assert (wrote.ok, wrote.values) == (True, values)
        assert c.run("key 1").lines == ["Start keypad test"]
        ftsim("press", phone, "KEY_5")
        assert c.wait_event(r"value\[0\]") == "KeyCode[0006] value[0]"
        assert c.events() == ["KeyCode[0006] value[1]"]
        identity = c.identity()
        assert identity.fields["Serial#"] == "SN 7" and len(identity.thumbprint) == 95
        end = c.run("production 1", ends_console=True)
        assert (end.lines, end.ended, end.status) == (
            ["Production Mode Enabled", "Rebooting..."], True, 0)


def test_events_during_commands_never_reach_their_output(phone):
    sim = SimPhone(phone)
    codes = [2 + i % 10 for i in range(300)]

    def press_all():
        for n in codes:
            inject.write_groups(dev_input.fifo(sim, "event0"), [dev_input.records(
                sim, (dev_input.EV_KEY, n, 1), (dev_input.EV_SYN, 0, 0))], "the keypad", sim)
            time.sleep(0.002)

    with Console.simulated(phone, terminal=False) as c:
        c.run("key 1")
        flood = threading.Thread(target=press_all)
        flood.start()
        replies = []
        while flood.is_alive():
            replies.append(c.run("program list all"))
        assert all(len(r.lines) == 33 and "KeyCode" not in r.output for r in replies)
        seen = [e for r in replies for e in r.events]
        deadline = time.monotonic() + 10
        while len(seen) < len(codes) and time.monotonic() < deadline:
            seen += c.events()
            time.sleep(0.02)
        assert sorted(seen) == sorted(f"KeyCode[{n:04x}] value[1]" for n in codes)
        assert any(r.events for r in replies)


def test_ctrl_c_reaches_a_simulated_console_on_a_pipe(phone):
    # At the prompt nothing catches SIGINT: the console ends as the signal ends it.
    # (On a terminal, the production flow's Bluetooth discovery is ended by Ctrl+C.)
    c = Console.simulated(phone, terminal=False)
    c.interrupt()
    assert c.wait_end(20) == 130
