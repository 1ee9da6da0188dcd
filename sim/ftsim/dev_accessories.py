"""The maker library's accessories, kept under accessories/: the cradle
hookswitch and the wired headset's hookswitch (EHS), each with a FIFO that
carries one byte per event ('0' on hook, '1' off hook) to the library's wait
call; the Bluetooth handset's cradle and charger; the phone's model, what
the jack's headset-type call answers and what `ftsim jack` last plugged in
("out" while the jack is empty)."""
import os

from ftsim import inject
from ftsim.phone import Phone, write_atomically
from ftsim.registry import DEVICES, HELP, UsageError, add_fault, phone_arg, register_verb

HOOK_STATES = {"on": b"0", "off": b"1"}
CRADLE_STATES = {"disconnected": 0, "connected": 1}


def path(phone, name):
    return phone.p("accessories", name)


class Accessories:
    name = "accessories"

    def create(self, phone, options):
        os.makedirs(phone.p("accessories"), exist_ok=True)
        for name, value in (("model", b"other"), ("hook", b"0"), ("ehs", b"0"),
                            ("cradle", b"1"), ("charger", b"off"), ("jack", b"out")):
            write_atomically(path(phone, name), value)
        for fifo in ("hook.events", "ehs.events"):
            os.mkfifo(path(phone, fifo))

    def show(self, phone):
        lines = []
        for name in ("model", "hook", "ehs", "cradle", "charger", "headset-type", "jack"):
            try:
                with open(path(phone, name)) as f:
                    lines.append(f"{name}={f.read()}")
            except FileNotFoundError:
                lines.append(f"{name}=")
        return lines


class Charger:
    name = "charger"

    def create(self, phone, options):
        pass

    def show(self, phone):
        with open(path(phone, "charger")) as f:
            return [f"charger={f.read()}"]


DEVICES["accessories"] = Accessories()
DEVICES["charger"] = Charger()
HELP["device", "accessories"] = "every accessory's state"
HELP["device", "charger"] = "the Bluetooth handset's charger: charger=on|off"
add_fault("hook-state", "reading the hookswitch state fails")
add_fault("cradle-state", "reading the cradle's connection fails")
add_fault("charger", "switching the handset's charger fails")
add_fault("hook-wait", "the hookswitch's wait call fails (-1) at once; "
                       "each failed call is a line in log/hook-wait")
add_fault("ehs-wait", "the EHS's wait call fails (-1) at once; "
                      "each failed call is a line in log/ehs-wait")


def _hook_verb(which, what):
    def setup(parser):
        phone_arg(parser)
        parser.add_argument("state", choices=HOOK_STATES, metavar="on|off",
                            help="on: the handset rests on it; off: lifted")

        @inject.delivering
        def run(args):
            phone = Phone(args.phone).require()
            # The state holds whether or not a console takes the event.
            write_atomically(path(phone, which), HOOK_STATES[args.state])
            phone.note_change()
            inject.write_groups(path(phone, which + ".events"), [HOOK_STATES[args.state]],
                                f"the {what} of {phone.path}", phone)
        return run
    return setup


register_verb("hook", "puts the handset on or off the cradle's hookswitch: one event",
              _hook_verb("hook", "hookswitch"))
register_verb("ehs", "puts the wired headset's hookswitch (EHS) on or off: one event",
              _hook_verb("ehs", "headset hookswitch"))


@register_verb("cradle", "what BTHandsetCradle_IsConnected reports")
def setup_cradle(parser):
    phone_arg(parser)
    parser.add_argument("state", metavar="STATE",
                        help="connected, disconnected or a 32-bit number (an undefined state)")

    def run(args):
        phone = Phone(args.phone).require()
        state = CRADLE_STATES.get(args.state)
        if state is None:
            try:
                state = int(args.state)
            except ValueError:
                state = None
            if state is None or not -2**31 <= state < 2**31:
                raise UsageError("the cradle is connected, disconnected or a 32-bit number")
        write_atomically(path(phone, "cradle"), str(state).encode())
        phone.note_change()
    return run
