"""The factory-data store, as the phone's libeeprom keeps it: one file per
parameter under store/, each replaced atomically."""
import os
import re

from ftsim.phone import REPO, Phone, write_atomically
from ftsim.registry import DEVICES, HELP, Usage, UsageError, add_fault, phone_arg, register_verb

_PARAMS_INC = os.path.join(REPO, "sim", "libeeprom", "params.inc")
PARAMS = re.findall(r'^PARAM\("([^"]+)", "([^"]+)"\)', open(_PARAMS_INC).read(), re.M)
MAX_VALUE = 32


def storage_name(name):
    for storage, alias in PARAMS:
        if name in (storage, alias):
            return storage
    raise UsageError(f"unknown parameter {name!r}")


storage_name.metavar = "NAME"


class Store:
    name = "store"

    def create(self, phone, options):
        write_atomically(phone.p("store", "OPERATIONAL_MODE"), b"0")

    def show(self, phone):
        lines = []
        for storage, _ in PARAMS:
            try:
                with open(phone.p("store", storage), "rb") as f:
                    value = f.read(MAX_VALUE)
            except FileNotFoundError:
                value = b""
            lines.append(f"{storage}={value.decode('utf-8', 'backslashreplace')}")
        return lines


DEVICES["store"] = Store()
HELP["device", "store"] = "the factory-data store, NAME=VALUE per parameter"
add_fault("store-read", "reading that parameter fails", storage_name)
add_fault("store-write", "writing that parameter fails", storage_name)
add_fault("store-mode", "leaving factory mode fails")
add_fault("shell", "no shell can be started (system returns -1 with errno EAGAIN, as a failed fork)")


@register_verb("store", "the factory-data store, or sets one of its parameters")
def setup_store(parser):
    phone_arg(parser)
    parser.add_argument("name", metavar="NAME", nargs="?", help="a storage name or alias")
    parser.add_argument("value", metavar="VALUE", nargs="?",
                        help=f"its new value, up to {MAX_VALUE} characters")

    def run(args):
        if args.name is None:
            print("\n".join(DEVICES["store"].show(Phone(args.phone).require())))
            return
        if args.value is None:
            raise Usage("a NAME takes a VALUE")
        phone = Phone(args.phone).require()
        data = os.fsencode(args.value)
        if len(data) > MAX_VALUE:
            raise UsageError(f"a value holds {MAX_VALUE} characters at most")
        write_atomically(phone.p("store", storage_name(args.name)), data)
        phone.note_change()
    return run
