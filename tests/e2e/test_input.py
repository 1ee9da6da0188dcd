"""Keypad, headset jack, hookswitch, EHS and cradle: events injected into a
running console from another process, as a station's fixture presses a key."""
import os
import select
import subprocess
import sys
import threading
import time

from conftest import FTSIM, REPO, ftsim, startup, transcript

sys.path.insert(0, os.path.join(REPO, "sim"))
from ftsim import dev_input, inject  # noqa: E402
from ftsim.phone import Phone as SimPhone  # noqa: E402

GUARD = 20   # seconds: only a hung console ever waits this long


class Console:
    """A console on a pipe, driven step by step. Every step appends what it
    must print to `expected`; the whole output is compared at the end."""

    def __init__(self, phone, start=None):
        self.phone = phone
        self.proc = subprocess.Popen([FTSIM, "run", phone.path], stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE)
        self.out = b""
        self.expected = ""
        self.expect((start or startup()) + "ft>")

    def expect(self, text):
        """Waits until as much output as expected has come."""
        self.expected += text
        want = len(self.expected.encode())
        deadline = time.monotonic() + GUARD
        while len(self.out) < want and time.monotonic() < deadline:
            ready, _, _ = select.select([self.proc.stdout], [], [], 0.5)
            if ready:
                data = os.read(self.proc.stdout.fileno(), 65536)
                if not data:
                    break
                self.out += data

    def line(self, text, reply):
        self.proc.stdin.write(text.encode() + b"\n")
        self.proc.stdin.flush()
        self.expect(f"{text}\n{reply}ft>")

    def inject(self, *args, prints=""):
        """Runs `ftsim ARGS...`; with nothing to print, waits until the console
        has read every record, so that nothing late can go unseen."""
        assert ftsim(args[0], self.phone.path, *args[1:]).returncode == 0
        if prints:
            self.expect(prints)
        else:
            self.drain(args[0])

    def drain(self, verb):
        sim = SimPhone(self.phone.path)
        fifo = {"hook": sim.p("accessories", "hook.events"),
                "ehs": sim.p("accessories", "ehs.events")}.get(verb)
        fifos = [fifo] if fifo else [dev_input.fifo(sim, n) for n in ("event0", "event1")]
        deadline = time.monotonic() + GUARD
        while any(inject.queued(f) for f in fifos) and time.monotonic() < deadline:
            time.sleep(0.005)

    def quit(self):
        self.proc.stdin.write(b"quit\n")
        self.proc.stdin.close()
        self.expected += "quit\n"
        self.out += self.proc.stdout.read()
        assert self.proc.wait(timeout=GUARD) == 0
        assert self.out.decode() == self.expected


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
    c.inject("press", "582", prints="\nKeyCode[0246] value[1]\nKeyCode[0246] value[0]\n")
    c.quit()


def test_jack_plugs_and_buttons(phone):
    c = Console(phone)
    c.line("jackdet 2", "Incorrect parameter\n")
    c.line("jackkeydet 1", "Start jackkeydet test\n")
    # Buttons only: the plug is tracked but not shown; the first record still breaks the line.
    c.inject("jack", "in", "nomic", prints="\n")
    c.inject("jackkey", "D", "down", prints="jackKeyCode[D] value[1]\n")
    c.inject("jackkey", "D", "up", prints="jackKeyCode[D] value[0]\n")
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
    c.quit()


def test_hookswitch_state_and_cradle(phone):
    bad = "hookswitchTest(): fail - incorrect parameter [{}]\n"
    lines = [("hookswitch 2", "HOOKSWITCH state: [ON HOOK]\nPASS\n")]
    lines += [(f"hookswitch {w}".strip(), bad.format(w)) for w in ("3", "10", "1x", "")]
    lines += [("ehs 2", "ehsTest(): fail - incorrect parameter [2]\n"),
              ("cradle 0", "connected\nPASS\n"), ("cradle 1", "PASS\n")]
    lines += [(f"cradle {w}".strip(), f'Invalid <action>="{w}"\nFAIL\n') for w in ("3", "00", "")]
    out, rc = phone.run(*(line for line, _ in lines))
    assert (out, rc) == (startup() + transcript(*lines, eof=True), 0)
    assert phone.show("charger") == "charger=on\n"

    r = ftsim("hook", phone.path, "off")                 # no console: the state holds all the same
    assert (r.returncode, r.stderr) == (1, f"ftsim: no console is reading the hookswitch of "
                                           f"{phone.path} (start one with: ftsim run {phone.path})\n")
    phone.cradle("disconnected")
    lines = [("hookswitch 2", "HOOKSWITCH state: [OFF HOOK]\nPASS\n"),
             ("cradle 1", "Cradle is disconnected\nFAIL\n"), ("cradle 0", "disconnected\nPASS\n")]
    assert phone.run(*(line for line, _ in lines))[0] == startup() + transcript(*lines, eof=True)

    phone.cradle("5")
    phone.fault("hook-state")
    lines = [("hookswitch 2", "FAIL\n"), ("cradle 2", "Cradle state undefined\nFAIL\n")]
    assert phone.run(*(line for line, _ in lines))[0] == startup() + transcript(*lines, eof=True)

    phone.cradle("connected")
    phone.fault("charger")
    lines = [("cradle 2", "FAIL\n")]
    assert phone.run(*(line for line, _ in lines))[0] == startup() + transcript(*lines, eof=True)
    phone.fault("clear")
    phone.fault("cradle-state")
    lines = [("cradle 0", "Failed to get the connection state of the BT handset cradle\nFAIL\n")]
    assert phone.run(*(line for line, _ in lines))[0] == startup() + transcript(*lines, eof=True)
    assert phone.show("charger") == "charger=on\n"


def test_missing_devices_leave_the_console_running(phone):
    phone.unplug("keypad")
    assert ftsim("add-input", phone.path, "gpio-keys", "").stdout == "event3\n"  # no location
    phone.set("model", "corvine")
    phone.unplug("jack")
    ftsim("add-input", phone.path, "trs_headset", "ALSA")  # not the jack of this model
    lines = [("key 1", "keyTest(): fail - event device is not open\n"),
             ("jackdet 1", "jackTest(): fail - event device is not open\n"),
             ("jackkeydet 0", "jackTest(): fail - event device is not open\n")]
    out, rc = phone.run(*(line for line, _ in lines))
    no_location = "isKeypadDevice(): failed to obtain location of event device\nkeyTestInit"
    missing = startup(keypad=False, jack=False).replace("keyTestInit", no_location)
    assert (out, rc) == (missing + transcript(*lines, eof=True), 0)

    phone.plug("jack")                                   # the corvine jack, by its own name
    c = Console(phone, start=startup(keypad=False).replace("keyTestInit", no_location))
    c.line("jackdet 1", "Start jackdet test\n")
    c.inject("jack", "in", "ctia", prints="\nJACK = CTIA\n")
    c.quit()


def test_quit_with_every_reader_on_and_blocked(phone):
    c = Console(phone)
    for line, reply in (("key 1", "Start keypad test\n"), ("jackdet 1", "Start jackdet test\n"),
                        ("jackkeydet 1", "Start jackkeydet test\n"),
                        ("hookswitch 1", "Start hookswitch test\n"), ("ehs 1", "Start ehs test\n")):
        c.line(line, reply)
    c.quit()


def test_a_flood_of_key_events_is_read_whole(phone):
    c = Console(phone)
    c.line("key 1", "Start keypad test\n")
    sim = SimPhone(phone.path)
    events = [(dev_input.EV_KEY, 1 + i % 250, i % 3) for i in range(10000)]
    groups = [dev_input.records(sim, e) for e in events]
    # Written from a thread of its own: the console's output must be read meanwhile.
    writer = threading.Thread(target=inject.write_groups,
                              args=(dev_input.fifo(sim, "event0"), groups, "the keypad", sim))
    writer.start()
    c.expect("\n" + "".join(f"KeyCode[{code:04x}] value[{value}]\n" for _, code, value in events))
    writer.join()
    c.quit()


def test_injection_needs_a_running_console(phone):
    r = ftsim("press", phone.path, "KEY_1")
    assert (r.returncode, r.stderr) == (1, f"ftsim: no console is reading input device event0 "
                                           f"of {phone.path} (start one with: ftsim run {phone.path})\n")
