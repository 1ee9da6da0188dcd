"""The factory-data store, as the phone's libeeprom keeps it: one file per
parameter under store/, each replaced atomically."""
import os
import re

from ftsim.phone import REPO, Phone, write_atomically
from ftsim.registry import COMMANDS, DEVICES, FAULTS, Usage, UsageError

_PARAMS_INC = os.path.join(REPO, "sim", "libeeprom", "params.inc")
PARAMS = re.findall(r'^PARAM\("([^"]+)", "([^"]+)"\)', open(_PARAMS_INC).read(), re.M)
MAX_VALUE = 32


def storage_name(name):
    for storage, alias in PARAMS:
        if name in (storage, alias):
            return storage
    raise UsageError(f"unknown parameter {name!r}")


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
FAULTS["store-read"] = storage_name
FAULTS["store-write"] = storage_name
FAULTS["store-mode"] = None
FAULTS["shell"] = None


def cmd_store(args):
    if len(args) == 1:
        print("\n".join(DEVICES["store"].show(Phone(args[0]).require())))
    elif len(args) == 3:
        phone = Phone(args[0]).require()
        data = os.fsencode(args[2])
        if len(data) > MAX_VALUE:
            raise UsageError(f"a value holds {MAX_VALUE} characters at most")
        write_atomically(phone.p("store", storage_name(args[1])), data)
        phone.note_change()
    else:
        raise Usage()


COMMANDS["store"] = ("ftsim store PHONE [NAME VALUE]", cmd_store)
