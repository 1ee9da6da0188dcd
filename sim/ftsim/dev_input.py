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
from ftsim.registry import (DEVICES, HELP, RUN_HOOKS, SETTINGS, Usage, UsageError, phone_arg,
                            register_verb)

EV_SYN, EV_KEY, EV_SW = 0, 1, 5
SYN_REPORT = 0
SW_HEADPHONE_INSERT, SW_MICROPHONE_INSERT, SW_JACK_PHYSICAL_INSERT = 2, 4, 7

JACK_NAMES = {"other": "trs_headset", "corvine": "quen tdm audio card 3.5 Headset Jack"}
DEFAULT_MODEL = "other"
# The headset's buttons A to D, as the jack's driver reports them.
JACK_BUTTONS = {"A": 226, "B": 115, "C": 114, "D": 582}
KEY_VALUES = {"up": 0, "down": 1, "repeat": 2}
# The desk phone's keypad, as its gpio-keys driver reports it: (label, key),
# in rows of three for the live view.
KEYPAD_KEYS = [
    ("1", "KEY_1"), ("2", "KEY_2"), ("3", "KEY_3"),
    ("4", "KEY_4"), ("5", "KEY_5"), ("6", "KEY_6"),
    ("7", "KEY_7"), ("8", "KEY_8"), ("9", "KEY_9"),
    ("*", "KEY_NUMERIC_STAR"), ("0", "KEY_0"), ("#", "KEY_NUMERIC_POUND"),
    ("Menu", "KEY_MENU"), ("Up", "KEY_UP"), ("Back", "KEY_BACK"),
    ("Left", "KEY_LEFT"), ("OK", "KEY_OK"), ("Right", "KEY_RIGHT"),
    ("Home", "KEY_HOME"), ("Down", "KEY_DOWN"), ("Phone", "KEY_PHONE"),
    ("Vol -", "KEY_VOLUMEDOWN"), ("Mute", "KEY_MICMUTE"), ("Vol +", "KEY_VOLUMEUP"),
]
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
HELP["device", "keypad"] = "the keypad's event device: node=, name=, phys=, present="
HELP["device", "jack"] = "the headset jack's event device: node=, name=, phys=, present="
HELP["device", "touchscreen"] = "the touch screen's event device: node=, name=, phys=, present="


# ---- commands ------------------------------------------------------------------

def _phone(word):
    return Phone(word).require()


def key_code(word):
    return number(word, 16, prefix=("KEY_", "BTN_"))


KEY_HELP = "a kernel key name (KEY_1, KEY_VOLUMEUP) or a number"


@register_verb("press", "presses and releases a key of the keypad")
def setup_press(parser):
    phone_arg(parser)
    parser.add_argument("key", metavar="KEY", help=KEY_HELP)

    @inject.delivering
    def run(args):
        phone, code = _phone(args.phone), key_code(args.key)
        deliver(phone, "event0", [[(EV_KEY, code, 1), (EV_SYN, SYN_REPORT, 0)],
                                  [(EV_KEY, code, 0), (EV_SYN, SYN_REPORT, 0)]])
    return run


@register_verb("key", "one key record of the keypad (value 1, 0 or 2)")
def setup_key(parser):
    phone_arg(parser)
    parser.add_argument("key", metavar="KEY", help=KEY_HELP)
    parser.add_argument("value", choices=KEY_VALUES, metavar="down|up|repeat",
                        help="pressed, released or held")

    @inject.delivering
    def run(args):
        phone, code = _phone(args.phone), key_code(args.key)
        deliver(phone, "event0", [[(EV_KEY, code, KEY_VALUES[args.value]),
                                   (EV_SYN, SYN_REPORT, 0)]])
    return run


HEADSETS = ("none", "nomic", *HEADSET_TYPES)


@register_verb("jack", "plugs into the headset jack, or pulls the plug out")
def setup_jack(parser):
    phone_arg(parser)
    parser.add_argument("where", choices=("in", "out"), metavar="in|out", help="in or out")
    parser.add_argument("headset", nargs="?", choices=HEADSETS, metavar="|".join(HEADSETS),
                        help="with in: nothing wired, headphones, or a headset whose type "
                             "reads as unknown (mic: the call fails), CTIA or OMTP")

    @inject.delivering
    def run(args):
        if args.where == "out" and args.headset is None:
            hp, mic, plug = 0, 0, 0
        elif args.where == "in" and args.headset is not None:
            hp, mic, plug = int(args.headset != "none"), int(args.headset in HEADSET_TYPES), 1
        else:
            raise Usage(f"the forms are: in {'|'.join(HEADSETS)}, and out")
        phone = _phone(args.phone)
        if args.headset in HEADSET_TYPES:
            write_atomically(phone.p("accessories", "headset-type"),
                             HEADSET_TYPES[args.headset].encode())
        write_atomically(phone.p("accessories", "jack"), (args.headset or "out").encode())
        phone.note_change()
        deliver(phone, "event1", [[(EV_SW, SW_HEADPHONE_INSERT, hp),
                                   (EV_SW, SW_MICROPHONE_INSERT, mic),
                                   (EV_SW, SW_JACK_PHYSICAL_INSERT, plug),
                                   (EV_SYN, SYN_REPORT, 0)]])
    return run


@register_verb("jackkey", "a button of the wired headset")
def setup_jackkey(parser):
    phone_arg(parser)
    parser.add_argument("button", choices=JACK_BUTTONS, metavar="A|B|C|D", help="the button")
    parser.add_argument("value", choices=("down", "up"), metavar="down|up",
                        help="pressed or released")

    @inject.delivering
    def run(args):
        phone = _phone(args.phone)
        deliver(phone, "event1", [[(EV_KEY, JACK_BUTTONS[args.button], KEY_VALUES[args.value]),
                                   (EV_SYN, SYN_REPORT, 0)]])
    return run


@register_verb("event", "one raw record into an event device")
def setup_event(parser):
    phone_arg(parser)
    parser.add_argument("device", metavar="DEVICE", help="keypad, jack, touchscreen or eventN")
    parser.add_argument("type", metavar="TYPE", help="a kernel name (EV_SW) or a number")
    parser.add_argument("code", metavar="CODE", help="a kernel name (SW_LID) or a number")
    parser.add_argument("value", metavar="VALUE", help="a 32-bit number")

    @inject.delivering
    def run(args):
        phone = _phone(args.phone)
        node = node_of(phone, args.device)
        ev_type = number(args.type, 16, prefix="EV_")
        code = number(args.code, 16,
                      prefix=("KEY_", "BTN_", "SW_", "SYN_", "ABS_", "REL_", "MSC_"))
        deliver(phone, node, [[(ev_type, code, number(args.value, 32, signed=True))]])
    return run


@register_verb("add-input", "another event device; prints its node eventN")
def setup_add_input(parser):
    phone_arg(parser)
    parser.add_argument("name", metavar="NAME", help="the device's name")
    parser.add_argument("phys", metavar="PHYS", help="its location (empty: none)")

    def run(args):
        phone = _phone(args.phone)
        for word in (args.name, args.phys):
            if "\n" in word:
                raise UsageError("a name or location holds no line end")
        taken = set(os.listdir(phone.p("input")))
        n = 0
        while f"event{n}" in taken:
            n += 1
        add_node(phone, f"event{n}", args.name, args.phys)
        print(f"event{n}")
    return run


def set_model(phone, model):
    if model not in JACK_NAMES:
        raise UsageError(f"model is one of: {', '.join(JACK_NAMES)}")
    write_atomically(phone.p("accessories", "model"), model.encode())
    node, _, phys = BUILT_IN["jack"]
    describe(phone, node, JACK_NAMES[model], phys)


SETTINGS["model"] = ("model corvine|other", set_model)
HELP["setting", "model"] = "what is_corvine_entry answers, and the jack device's name"
RUN_HOOKS.append(note_record_layout)
