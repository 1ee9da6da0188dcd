"""Input event devices. /dev/input/eventN is a FIFO under dev/input/ that the
console (through the preload library) holds open for reading and writing; a
device's identification strings are in input/eventN ("name=" and "phys=" lines).
Records are written in the layout of the console build that last ran (noted in
run/input-record by `ftsim run`): a 16-byte record for a 32-bit build, 24 for 64."""
import os
import re
import struct
import time

from ftsim import inject
from ftsim.phone import Phone, open_fifo, write_atomically
from ftsim.registry import COMMANDS, DEVICES, RUN_HOOKS, SETTINGS, Usage, UsageError

EV_SYN, EV_KEY, EV_SW = 0, 1, 5
SYN_REPORT = 0
SW_HEADPHONE_INSERT, SW_MICROPHONE_INSERT, SW_JACK_PHYSICAL_INSERT = 2, 4, 7

JACK_NAMES = {"other": "trs_headset", "corvine": "quen tdm audio card 3.5 Headset Jack"}
DEFAULT_MODEL = "other"
# The headset's buttons A to D, as the jack's driver reports them.
JACK_BUTTONS = {"A": 226, "B": 115, "C": 114, "D": 582}
KEY_VALUES = {"up": 0, "down": 1, "repeat": 2}
# What Jack_GetHeadsetType answers for each headset: 3 CTIA, 4 OMTP, "fail".
HEADSET_TYPES = {"mic": "fail", "ctia": "3", "omtp": "4"}

# The phone's own devices and their nodes.
BUILT_IN = {
    "keypad": ("event0", "gpio-keys", "gpio-keys/input0"),
    "jack": ("event1", JACK_NAMES[DEFAULT_MODEL], "ALSA"),
    "touchscreen": ("event2", "atmel_mxt_ts", "i2c-1-004a/input0"),
}

_CODES_HEADER = "/usr/include/linux/input-event-codes.h"
_codes = None


def codes():
    """Kernel names of event types and codes (KEY_1, SW_LID, EV_KEY...) -> number."""
    global _codes
    if _codes is None:
        _codes = {}
        try:
            with open(_CODES_HEADER) as f:
                text = f.read()
        except OSError:
            text = ""
        for name, value in re.findall(r"^#define\s+([A-Z][A-Z0-9_]*)\s+(\w+)", text, re.M):
            if value in _codes:
                _codes[name] = _codes[value]
            elif re.fullmatch(r"0x[0-9a-fA-F]+|\d+", value):
                _codes[name] = int(value, 0)
    return _codes


def number(word, bits, signed=False, prefix=None):
    """A kernel name (when `prefix` matches it) or a decimal or 0x number."""
    if prefix and word.startswith(prefix) and word in codes():
        return codes()[word]
    try:
        # Decimal first, so that a leading 0 is not taken for an octal prefix.
        n = int(word, 10) if word.lstrip("+-").isdigit() else int(word, 0)
    except ValueError:
        raise UsageError(f"{word!r} is neither a known name nor a number") from None
    low, high = (-(1 << (bits - 1)), (1 << (bits - 1)) - 1) if signed else (0, (1 << bits) - 1)
    if not low <= n <= high:
        raise UsageError(f"{word} is out of range ({low} to {high})")
    return n


# ---- records -----------------------------------------------------------------

def record_format(phone):
    """struct format of one record for the console that runs in `phone`."""
    try:
        with open(phone.p("run", "input-record")) as f:
            return f.read().strip()
    except FileNotFoundError:
        return "@llHHi"


def note_record_layout(phone, build):
    """At `ftsim run`: the record of the console about to run, from its ELF header."""
    with open(phone.p("system", "bin", "ft"), "rb") as f:
        ident = f.read(6)
    order = ">" if ident[5:6] == b"\x02" else "<"
    fmt = order + ("qqHHi" if ident[4:5] == b"\x02" else "iiHHi")
    write_atomically(phone.p("run", "input-record"), fmt.encode())


def records(phone, *events):
    """Packs (type, code, value) events, all stamped with the present time."""
    fmt = record_format(phone)
    now = time.time()
    sec, usec = int(now), int((now % 1) * 1e6)
    return b"".join(struct.pack(fmt, sec, usec, t, c, v) for t, c, v in events)


def fifo(phone, node):
    return phone.p("dev", "input", node)


def deliver(phone, node, groups):
    """Writes groups of (type, code, value) events into a device's queue."""
    inject.write_groups(fifo(phone, node), [records(phone, *g) for g in groups],
                        f"input device {node} of {phone.path}", phone)


def node_of(phone, device):
    """The node of a device word: keypad, jack, touchscreen or eventN."""
    if device in BUILT_IN:
        return BUILT_IN[device][0]
    if re.fullmatch(r"event\d+", device) and os.path.exists(description(phone, device)):
        return device
    raise UsageError(f"no input device {device!r} (keypad, jack, touchscreen or eventN)")


# ---- devices -------------------------------------------------------------------

def description(phone, node):
    return phone.p("input", node)


def describe(phone, node, name, phys):
    write_atomically(description(phone, node), f"name={name}\nphys={phys}\n".encode())


def read_description(phone, node):
    try:
        with open(description(phone, node)) as f:
            return dict(line.split("=", 1) for line in f.read().splitlines() if "=" in line)
    except FileNotFoundError:
        return {}


def add_node(phone, node, name, phys):
    for d in (phone.p("dev", "input"), phone.p("unplugged", "input"), phone.p("input")):
        os.makedirs(d, exist_ok=True)
    describe(phone, node, name, phys)
    os.mkfifo(fifo(phone, node))


class InputDevice:
    """One of the phone's own event devices; unplugging moves its FIFO aside."""

    def __init__(self, name):
        self.name = name
        self.node, self.dev_name, self.phys = BUILT_IN[name]

    def create(self, phone, options):
        add_node(phone, self.node, self.dev_name, self.phys)

    def unplug(self, phone):
        """A console holding the device finds it gone: its reads fail with
        ENODEV from then on (a blocked one is woken by a byte it drops)."""
        if not os.path.exists(fifo(phone, self.node)):
            return
        aside = phone.p("unplugged", "input", self.node)
        os.replace(fifo(phone, self.node), aside)
        try:
            fd = open_fifo(aside, os.O_WRONLY | os.O_NONBLOCK)
        except OSError:
            return          # nobody holds it
        try:
            os.write(fd, b"\0")
        except OSError:
            pass
        finally:
            os.close(fd)

    def plug(self, phone):
        """A new device: a console that held the old one keeps failing its reads."""
        aside = phone.p("unplugged", "input", self.node)
        if os.path.exists(aside):
            os.remove(aside)
            os.mkfifo(fifo(phone, self.node))

    def show(self, phone):
        d = read_description(phone, self.node)
        return [f"node={self.node}", f"name={d.get('name', '')}", f"phys={d.get('phys', '')}",
                "present=" + ("yes" if os.path.exists(fifo(phone, self.node)) else "no")]


for _name in BUILT_IN:
    DEVICES[_name] = InputDevice(_name)


# ---- commands ------------------------------------------------------------------

def _phone(word):
    return Phone(word).require()


def key_code(word):
    return number(word, 16, prefix=("KEY_", "BTN_"))


@inject.delivering
def cmd_press(args):
    if len(args) != 2:
        raise Usage()
    phone, code = _phone(args[0]), key_code(args[1])
    deliver(phone, "event0", [[(EV_KEY, code, 1), (EV_SYN, SYN_REPORT, 0)],
                              [(EV_KEY, code, 0), (EV_SYN, SYN_REPORT, 0)]])


@inject.delivering
def cmd_key(args):
    if len(args) != 3 or args[2] not in KEY_VALUES:
        raise Usage()
    phone, code = _phone(args[0]), key_code(args[1])
    deliver(phone, "event0", [[(EV_KEY, code, KEY_VALUES[args[2]]), (EV_SYN, SYN_REPORT, 0)]])


@inject.delivering
def cmd_jack(args):
    if args[1:] == ["out"]:
        hp, mic, plug = 0, 0, 0
    elif len(args) == 3 and args[1] == "in" and args[2] in ("none", "nomic", *HEADSET_TYPES):
        hp, mic, plug = int(args[2] != "none"), int(args[2] in HEADSET_TYPES), 1
    else:
        raise Usage()
    phone = _phone(args[0])
    if len(args) == 3 and args[2] in HEADSET_TYPES:
        write_atomically(phone.p("accessories", "headset-type"), HEADSET_TYPES[args[2]].encode())
    deliver(phone, "event1", [[(EV_SW, SW_HEADPHONE_INSERT, hp), (EV_SW, SW_MICROPHONE_INSERT, mic),
                               (EV_SW, SW_JACK_PHYSICAL_INSERT, plug), (EV_SYN, SYN_REPORT, 0)]])


@inject.delivering
def cmd_jackkey(args):
    if len(args) != 3 or args[1] not in JACK_BUTTONS or args[2] not in ("down", "up"):
        raise Usage()
    phone = _phone(args[0])
    deliver(phone, "event1", [[(EV_KEY, JACK_BUTTONS[args[1]], KEY_VALUES[args[2]]),
                               (EV_SYN, SYN_REPORT, 0)]])


@inject.delivering
def cmd_event(args):
    if len(args) != 5:
        raise Usage()
    phone = _phone(args[0])
    node = node_of(phone, args[1])
    ev_type = number(args[2], 16, prefix="EV_")
    code = number(args[3], 16, prefix=("KEY_", "BTN_", "SW_", "SYN_", "ABS_", "REL_", "MSC_"))
    deliver(phone, node, [[(ev_type, code, number(args[4], 32, signed=True))]])


def cmd_add_input(args):
    if len(args) != 3:
        raise Usage()
    phone = _phone(args[0])
    for word in args[1:]:
        if "\n" in word:
            raise UsageError("a name or location holds no line end")
    taken = set(os.listdir(phone.p("input")))
    n = 0
    while f"event{n}" in taken:
        n += 1
    add_node(phone, f"event{n}", args[1], args[2])
    print(f"event{n}")


def set_model(phone, model):
    if model not in JACK_NAMES:
        raise UsageError(f"model is one of: {', '.join(JACK_NAMES)}")
    write_atomically(phone.p("accessories", "model"), model.encode())
    node, _, phys = BUILT_IN["jack"]
    describe(phone, node, JACK_NAMES[model], phys)


COMMANDS["press"] = ("ftsim press PHONE KEY", cmd_press)
COMMANDS["key"] = ("ftsim key PHONE KEY down|up|repeat", cmd_key)
COMMANDS["jack"] = ("ftsim jack PHONE in none|nomic|mic|ctia|omtp | out", cmd_jack)
COMMANDS["jackkey"] = ("ftsim jackkey PHONE A|B|C|D down|up", cmd_jackkey)
COMMANDS["event"] = ("ftsim event PHONE DEVICE TYPE CODE VALUE", cmd_event)
COMMANDS["add-input"] = ("ftsim add-input PHONE NAME PHYS", cmd_add_input)
SETTINGS["model"] = ("model corvine|other", set_model)
RUN_HOOKS.append(note_record_layout)
