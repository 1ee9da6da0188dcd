"""Marker files the station leaves on the phone for the console to find.

- `marker PHONE factorytest on|off`: creates or removes /tmp/factorytest.txt,
  with which `ip 1` sets the Ethernet interface's address itself.
"""
import contextlib
import os

from ftsim.phone import Phone
from ftsim.registry import phone_arg, register_verb

MARKERS = {"factorytest": ("tmp", "factorytest.txt")}


@register_verb("marker", "creates or removes a marker file the station leaves on the phone")
def setup_marker(parser):
    phone_arg(parser)
    parser.add_argument("marker", choices=sorted(MARKERS), help="factorytest: /tmp/factorytest.txt")
    parser.add_argument("state", choices=("on", "off"), metavar="on|off",
                        help="on: create the file; off: remove it")

    def run(args):
        path = Phone(args.phone).require().p(*MARKERS[args.marker])
        if args.state == "on":
            open(path, "a").close()
        else:
            with contextlib.suppress(FileNotFoundError):
                os.remove(path)
    return run
