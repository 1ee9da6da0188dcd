"""Marker files the station leaves on the phone for the console to find.

- `marker PHONE factorytest on|off`: creates or removes /tmp/factorytest.txt,
  with which `ip 1` sets the Ethernet interface's address itself.
"""
import os

from ftsim.phone import Phone
from ftsim.registry import COMMANDS, Usage

MARKERS = {"factorytest": ("tmp", "factorytest.txt")}


def cmd_marker(args):
    if len(args) != 3 or args[1] not in MARKERS or args[2] not in ("on", "off"):
        raise Usage()
    path = Phone(args[0]).require().p(*MARKERS[args[1]])
    if args[2] == "on":
        open(path, "a").close()
    else:
        try:
            os.remove(path)
        except FileNotFoundError:
            pass


COMMANDS["marker"] = ("ftsim marker PHONE factorytest on|off", cmd_marker)
