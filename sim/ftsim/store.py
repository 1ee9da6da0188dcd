"""The simulated factory-data store, as the phone's libeeprom keeps it."""
import os
import re

from ftsim.phone import REPO, UsageError, write_atomically

_PARAMS_INC = os.path.join(REPO, "sim", "libeeprom", "params.inc")
PARAMS = re.findall(r'^PARAM\("([^"]+)", "([^"]+)"\)', open(_PARAMS_INC).read(), re.M)
MAX_VALUE = 32


def storage_name(name):
    for storage, alias in PARAMS:
        if name in (storage, alias):
            return storage
    raise UsageError(f"unknown parameter {name!r}")


def create(phone):
    write_atomically(phone.p("store", "OPERATIONAL_MODE"), b"0")


def listing(phone):
    lines = []
    for storage, _ in PARAMS:
        try:
            with open(phone.p("store", storage), "rb") as f:
                value = f.read(MAX_VALUE)
        except FileNotFoundError:
            value = b""
        lines.append(f"{storage}={value.decode('utf-8', 'backslashreplace')}")
    return lines


def set_value(phone, name, value):
    data = os.fsencode(value)
    if len(data) > MAX_VALUE:
        raise UsageError(f"a value holds {MAX_VALUE} characters at most")
    write_atomically(phone.p("store", storage_name(name)), data)
