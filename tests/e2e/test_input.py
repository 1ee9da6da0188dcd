"""Keypad, headset jack, hookswitch, EHS and cradle: events injected into a
running console from another process, as a station's fixture presses a key."""
import os
import re
import select
import subprocess
import sys
import threading
import time

from conftest import FTSIM, QUIT, REPO, ftsim, golden, startup, transcript

sys.path.insert(0, os.path.join(REPO, "sim"))
from ftsim import dev_input, inject  # noqa: E402
from ftsim.phone import Phone as SimPhone  # noqa: E402

GUARD = 20   # seconds: only a hung console ever waits this long


class Console:
    """A console on a pipe, driven step by step. Every step appends what it
    must print to `expected`; quit() compares the whole output."""

    def __init__(self, phone, start=None):
        self.phone, self.out, self.expected = phone, b"", ""
        self.proc = subprocess.Popen([FTSIM, "run", phone.path], stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE, bufsize=0)
        self.expect((start or startup()) + "ft>")

    def expect(self, text):
        """Waits until as much output as expected has come."""
        self.expected += text
        deadline = time.monotonic() + GUARD
        while len(self.out) < len(self.expected.encode()) and time.monotonic() < deadline:
            if select.select([self.proc.stdout], [], [], 0.5)[0]:
                data = os.read(self.proc.stdout.fileno(), 65536)
                if not data:
                    break
                self.out += data

    def line(self, text, reply):
        self.proc.stdin.write(text.encode() + b"\n")
        self.expect(f"{text}\n{reply}ft>")

    def inject(self, *args, prints=""):
        """Runs `ftsim ARGS...`, then waits until the console has read every
        record, so that nothing late can go unseen."""
        assert ftsim(args[0], self.phone.path, *args[1:]).returncode == 0
        self.expect(prints)
        sim = SimPhone(self.phone.path)
        fifos = [dev_input.fifo(sim, n) for n in ("event0", "event1")]
        fifos += [sim.p("accessories", n) for n in ("hook.events", "ehs.events")]
        deadline = time.monotonic() + GUARD
        while any(inject.queued(f) for f in fifos) and time.monotonic() < deadline:
            time.sleep(0.005)

    def quit(self):
        out, _ = self.proc.communicate(b"quit\n", timeout=GUARD)
        assert (self.proc.returncode, (self.out + out).decode()) == (0, self.expected + "quit\n" + QUIT)


def test_keypad_events_only_while_reporting(phone):
    c = Console(phone)
    for word in ("01", "1x", "2", "-1", ""):
        c.line(f"key {word}".strip(), "Incorrect parameter\n")
    c.inject("press", "KEY_ENTER")                       # reporting off: dropped
    c.line("key 1", "Start keypad test\n")
    c.line("key 1", "Start keypad test\n")
    c.inject("press", "KEY_ENTER", prints="\nKeyCode[001c] value[1]\nKeyCode[001c] value[0]\n")
    c.inject("event", "keypad", "EV_MSC", "4", "9")      # not a key record: skipped
    c.inject("key", "0x2", "repeat", prints="KeyCode[0002] value[2]\n")
    c.line("key 0", "Stop keypad test\n")
    c.inject("press", "KEY_VOLUMEUP")
    c.line("key 1", "Start keypad test\n")
    c.inject("press", "0582", prints="\nKeyCode[0246] value[1]\nKeyCode[0246] value[0]\n")
    c.quit()


def test_jack_plugs_and_buttons(phone):
    c = Console(phone)
    c.line("jackdet 2", "Incorrect parameter\n")
    c.line("jackkeydet 1", "Start jackkeydet test\n")
    # Buttons only: the plug is tracked but not shown; the first record still breaks the line.
    c.inject("jack", "in", "nomic", prints="\n")
    for button, move, value in (("A", "down", 1), ("B", "up", 0), ("C", "down", 1), ("D", "up", 0)):
        c.inject("jackkey", button, move, prints=f"jackKeyCode[{button}] value[{value}]\n")
    c.inject("event", "jack", "EV_SW", "16", "3", prints="Unknown jack event: keyCode[0010] value[3]\n")
    c.inject("event", "jack", "EV_ABS", "16", "3")       # neither switch, key nor sync: skipped
    c.line("jackdet 1", "Start jackdet test\n")
    c.inject("jack", "in", "omtp", prints="\n")          # still plugged: no change to show
    c.inject("jack", "out", prints="JACK = none\n")
    for kind, name in (("omtp", "OMTP"), ("ctia", "CTIA"), ("mic", "mic"), ("nomic", "no mic"),
                       ("none", "none")):
        c.inject("jack", "in", kind, prints=f"JACK = {name}\n")
        c.inject("jack", "out", prints="JACK = none\n")
    c.line("jackkeydet 0", "Stop jackkeydet test\n")
    c.inject("jackkey", "A", "down", prints="\n")        # detection only: the button prints nothing
    c.line("jackdet 0", "Stop jackdet test\n")
    c.inject("jack", "in", "mic")                        # both off: not even tracked
    c.line("jackdet 1", "Start jackdet test\n")
    c.inject("jack", "out", prints="\n")                 # same as the stale state: no line
    c.inject("jack", "in", "nomic", prints="JACK = no mic\n")
    c.quit()


def test_hookswitch_and_ehs_events(phone):
    c = Console(phone)
    c.inject("hook", "off")                              # reporting off: dropped
    c.line("hookswitch 1", "Start hookswitch test\n")
    c.line("hookswitch 1", "Hookswitch test has already been started\n")
    c.inject("hook", "off", prints="\nHOOKSWITCH event: [OFF HOOK]\n")
    c.inject("hook", "off", prints="HOOKSWITCH event: [OFF HOOK]\n")
    c.line("hookswitch 0", "Stop hookswitch test\n")
    c.line("hookswitch 0", "Hookswitch test has already been stopped\n")
    c.inject("hook", "on")
    c.line("hookswitch 1", "Start hookswitch test\n")    # only the very first event breaks the line
    c.inject("hook", "off", prints="HOOKSWITCH event: [OFF HOOK]\n")
    c.line("ehs 1", "Start ehs test\n")
    c.inject("ehs", "off", prints="\nEHS event: [OFF HOOK]\n")
    c.inject("ehs", "on", prints="EHS event: [ON HOOK]\n")
    c.line("key 1", "Start keypad test\n")               # quit with every reader on and blocked
    c.line("jackdet 1", "Start jackdet test\n")
    c.quit()


def piped(phone, *steps, start=None):
    """Pipes the (line, reply) steps into a console of their own; compares the whole output."""
    out = phone.run(*(line for line, _ in steps))
    assert out == ((start or startup()) + transcript(*steps, eof=True), 0)


def test_hookswitch_state_and_cradle(phone):
    bad = "hookswitchTest(): fail - incorrect parameter [{}]\n"
    piped(phone, ("hookswitch 2", "HOOKSWITCH state: [ON HOOK]\nPASS\n"),
          *[(f"hookswitch {w}".strip(), bad.format(w)) for w in ("3", "10", "1x", "")],
          ("ehs 2", "ehsTest(): fail - incorrect parameter [2]\n"),
          ("cradle 0", "connected\nPASS\n"), ("cradle 1", "PASS\n"),
          *[(f"cradle {w}".strip(), f'Invalid <action>="{w}"\nFAIL\n') for w in ("3", "00", "")])
    assert phone.show("charger") == "charger=on\n"

    ftsim("hook", phone.path, "off")                     # no console: the state holds all the same
    phone.cradle("disconnected")
    piped(phone, ("hookswitch 2", "HOOKSWITCH state: [OFF HOOK]\nPASS\n"),
          ("cradle 1", "Cradle is disconnected\nFAIL\n"), ("cradle 0", "disconnected\nPASS\n"))
    phone.cradle("5")
    phone.fault("hook-state")
    piped(phone, ("hookswitch 2", "FAIL\n"), ("cradle 2", "Cradle state undefined\nFAIL\n"))
    phone.cradle("connected")
    phone.fault("charger")
    piped(phone, ("cradle 2", "FAIL\n"))
    phone.fault("cradle-state")
    piped(phone, ("cradle 0", "Failed to get the connection state of the BT handset cradle\nFAIL\n"))


def test_missing_devices_leave_the_console_running(phone):
    phone.unplug("keypad")
    assert ftsim("add-input", phone.path, "gpio-keys", "").stdout == "event3\n"  # no location
    phone.set("model", "corvine")
    phone.unplug("jack")
    ftsim("add-input", phone.path, "trs_headset", "ALSA")  # not the jack of this model
    no_location = "isKeypadDevice(): failed to obtain location of event device\nkeyTestInit"
    piped(phone, ("key 1", "keyTest(): fail - event device is not open\n"),
          ("jackdet 1", "jackTest(): fail - event device is not open\n"),
          ("jackkeydet 0", "jackTest(): fail - event device is not open\n"),
          start=startup(keypad=False, jack=False).replace("keyTestInit", no_location))

    phone.plug("jack")                                   # the corvine jack, by its own name
    c = Console(phone, start=startup(keypad=False).replace("keyTestInit", no_location))
    c.line("jackdet 1", "Start jackdet test\n")
    c.inject("jack", "in", "ctia", prints="\nJACK = CTIA\n")
    c.quit()


def test_a_flood_of_key_events_is_read_whole(phone):
    c = Console(phone)
    c.line("key 1", "Start keypad test\n")
    sim = SimPhone(phone.path)
    events = [(dev_input.EV_KEY, 1 + i % 250, i % 3) for i in range(10000)]
    # Written from a thread of its own: the console's output must be read meanwhile.
    threading.Thread(target=inject.write_groups, args=(dev_input.fifo(sim, "event0"), [
        dev_input.records(sim, e) for e in events], "the keypad", sim)).start()
    c.expect("\n" + "".join(f"KeyCode[{code:04x}] value[{value}]\n" for _, code, value in events))
    c.quit()


def test_event_lines_never_land_inside_a_console_line(phone):
    """Help prints each of its lines in two calls; key events keep arriving meanwhile."""
    c = Console(phone)
    c.line("key 1", "Start keypad test\n")
    c.inject("press", "KEY_1", prints="\nKeyCode[0002] value[1]\nKeyCode[0002] value[0]\n")
    sim = SimPhone(phone.path)

    def press_keys():
        for _ in range(300):
            try:
                inject.write_groups(dev_input.fifo(sim, "event0"), [dev_input.records(
                    sim, (dev_input.EV_KEY, 30, 1), (dev_input.EV_KEY, 30, 0))], "keypad", sim)
            except inject.NotDelivered:
                return
            time.sleep(0.0005)

    presser = threading.Thread(target=press_keys)
    presser.start()
    out, _ = c.proc.communicate(b"help\n" * 40 + b"quit\n", timeout=GUARD)
    presser.join()
    # An event line may follow a line end or the waiting prompt, nowhere else.
    text = (c.out + out).decode()
    rest = re.sub(r"(?:(?<=\n)|(?<=ft>))KeyCode\[001e\] value\[[01]\]\n", "", text)
    assert rest == (c.expected + ("help\n\n\n" + golden("help_general.txt") + "ft>") * 40
                    + "quit\n" + QUIT)


def test_a_vanished_device_costs_a_line_a_second(phone):
    phone.fault("hook-wait")
    c = Console(phone)
    started = time.monotonic()
    phone.unplug("keypad")
    time.sleep(3)
    out, _ = c.proc.communicate(b"quit\n", timeout=GUARD)
    seconds = time.monotonic() - started
    assert c.proc.returncode == 0
    lost = "readKeyEvent(): some error or short read - number of bytes = [-1], errno = [19]\n"
    out = out.decode()
    assert 2 <= out.count(lost) <= seconds + 1
    assert out.replace(lost, "") == "quit\n" + QUIT
    with open(os.path.join(phone.path, "log", "hook-wait")) as f:
        assert 2 <= len(f.readlines()) <= seconds + 2
    # A later run finds the keypad gone, and back once plugged in again.
    piped(phone, ("key 1", "keyTest(): fail - event device is not open\n"), start=startup(keypad=False))
    phone.plug("keypad")
    piped(phone, ("key 1", "Start keypad test\n"))
