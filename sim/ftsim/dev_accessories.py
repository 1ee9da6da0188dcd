"""The maker library's accessories, kept under accessories/: the cradle
hookswitch and the wired headset's hookswitch (EHS), each with a FIFO that
carries one byte per event ('0' on hook, '1' off hook) to the library's wait
call; the Bluetooth handset's cradle and charger; the phone's model and what
the jack's headset-type call answers."""
import os

from ftsim import inject
from ftsim.phone import Phone, write_atomically
from ftsim.registry import COMMANDS, DEVICES, FAULTS, Usage, UsageError

HOOK_STATES = {"on": b"0", "off": b"1"}
CRADLE_STATES = {"disconnected": 0, "connected": 1}


def path(phone, name):
    return phone.p("accessories", name)


class Accessories:
    name = "accessories"

    def create(self, phone, options):
        os.makedirs(phone.p("accessories"), exist_ok=True)
        for name, value in (("model", b"other"), ("hook", b"0"), ("ehs", b"0"),
                            ("cradle", b"1"), ("charger", b"off")):
            write_atomically(path(phone, name), value)
        for fifo in ("hook.events", "ehs.events"):
            os.mkfifo(path(phone, fifo))

    def show(self, phone):
        lines = []
        for name in ("model", "hook", "ehs", "cradle", "charger", "headset-type"):
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
FAULTS["hook-state"] = None
FAULTS["cradle-state"] = None
FAULTS["charger"] = None
# The wait calls fail (-1) at once; each failed call is a line in log/hook-wait or log/ehs-wait.
FAULTS["hook-wait"] = None
FAULTS["ehs-wait"] = None


def _hook_command(which, what):
    @inject.delivering
    def cmd(args):
        if len(args) != 2 or args[1] not in HOOK_STATES:
            raise Usage()
        phone = Phone(args[0]).require()
        # The state holds whether or not a console takes the event.
        write_atomically(path(phone, which), HOOK_STATES[args[1]])
        inject.write_groups(path(phone, which + ".events"), [HOOK_STATES[args[1]]],
                            f"the {what} of {phone.path}", phone)
    return cmd


def cmd_cradle(args):
    if len(args) != 2:
        raise Usage()
    phone = Phone(args[0]).require()
    state = CRADLE_STATES.get(args[1])
    if state is None:
        try:
            state = int(args[1])
        except ValueError:
            state = None
        if state is None or not -2**31 <= state < 2**31:
            raise UsageError("the cradle is connected, disconnected or a 32-bit number")
    write_atomically(path(phone, "cradle"), str(state).encode())


COMMANDS["hook"] = ("ftsim hook PHONE on|off", _hook_command("hook", "hookswitch"))
COMMANDS["ehs"] = ("ftsim ehs PHONE on|off", _hook_command("ehs", "headset hookswitch"))
COMMANDS["cradle"] = ("ftsim cradle PHONE connected|disconnected|STATE", cmd_cradle)
