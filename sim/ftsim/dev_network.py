"""The phone's Ethernet: eth0 and the station it is wired to (see runs.py).

A veth link takes no speed, duplex or auto-negotiation settings, so the PHY
behind eth0 lives in the phone's net/eth0 as KEY=VALUE lines, kept by the
phone's own ethtool (sim/rootfs/system/bin/ethtool):

- autoneg: on|off; speed: 10|100|1000|any and duplex: half|full|any, the forced
  mode with autoneg off, or what autoneg may advertise with it on;
- link: yes|no, a cable in the port; gigabit: yes|no, the PHY's 1000BASE-T;
- partner: the best mode the link partner offers (10half ... 1000full, or none).

Verbs: `show PHONE eth0`, `set PHONE eth0.KEY VALUE`, `station PHONE up|down` (and
the FTP server's `dir` and `user`, dev_ftp.py),
`interrupt PHONE`.
"""
import json
import os
import subprocess
import sys

from ftsim import dev_ftp, runs
from ftsim.phone import Phone, write_atomically
from ftsim.registry import (DEVICES, HELP, RUN_HOOKS, SETTINGS, Usage, UsageError, phone_arg,
                            register_verb)

PHY_DEFAULTS = {"autoneg": "on", "speed": "any", "duplex": "any", "link": "yes",
                "gigabit": "yes", "partner": "1000full"}
PHY_VALUES = {"autoneg": ("on", "off"), "speed": ("10", "100", "1000", "any"),
              "duplex": ("half", "full", "any"), "link": ("yes", "no"), "gigabit": ("yes", "no"),
              "partner": ("none", "10half", "10full", "100half", "100full", "1000full")}


def read_phy(phone):
    phy = dict(PHY_DEFAULTS)
    try:
        with open(phone.p("net", "eth0"), encoding="utf-8", errors="replace") as f:
            for line in f:
                k, _, v = line.strip().partition("=")
                if k in PHY_VALUES and v in PHY_VALUES[k]:
                    phy[k] = v
    except FileNotFoundError:
        pass
    return phy


def write_phy(phone, phy):
    text = "".join(f"{k}={phy[k]}\n" for k in sorted(phy))
    write_atomically(phone.p("net", "eth0"), text.encode())


def interface(phone):
    """(address, up) of the running phone's eth0, or None."""
    try:
        p = runs.phone_net_popen(phone, ["ip", "-j", "link", "show", "dev", runs.PHONE_IF],
                                 stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    except runs.NotRunning:
        return None
    out, _ = p.communicate()
    try:
        link = json.loads(out)[0]
    except (ValueError, IndexError):
        return None
    return link.get("address", ""), "UP" in link.get("flags", [])


class Eth0:
    name = "eth0"

    def create(self, phone, options):
        os.makedirs(phone.p("net"), exist_ok=True)
        write_phy(phone, PHY_DEFAULTS)

    def show(self, phone):
        lines = [f"{k}={v}" for k, v in sorted(read_phy(phone).items())]
        found = interface(phone)
        if found is None:
            return lines + ["present=no"]
        return lines + [f"address={found[0]}", "present=yes", f"up={'yes' if found[1] else 'no'}"]


DEVICES["eth0"] = Eth0()
HELP["device", "eth0"] = "the Ethernet PHY, then address=, present= and up= of the running eth0"


def boot(phone, build):
    """A run is a boot: the PHY auto-negotiates again; the cable and partner stay."""
    phy = read_phy(phone)
    phy.update({k: PHY_DEFAULTS[k] for k in ("autoneg", "speed", "duplex")})
    write_phy(phone, phy)


RUN_HOOKS.append(boot)


def set_phy(key):
    def setting(phone, value):
        if value not in PHY_VALUES[key]:
            raise UsageError(f"eth0.{key} is one of: {', '.join(PHY_VALUES[key])}")
        phy = read_phy(phone)
        phy[key] = value
        write_phy(phone, phy)
    return setting


for _key in ("link", "gigabit", "partner"):
    SETTINGS["eth0." + _key] = (f"eth0.{_key} {'|'.join(PHY_VALUES[_key])}", set_phy(_key))
HELP["setting", "eth0.link"] = "a cable in the phone's Ethernet port, or none"
HELP["setting", "eth0.gigabit"] = "whether the PHY has 1000BASE-T"
HELP["setting", "eth0.partner"] = "the best mode the link partner offers"


@register_verb("station", "makes the phone's station and keeps it between runs, or removes it; "
                          "the folder its FTP server serves, the server's login and faults")
def setup_station(parser):
    phone_arg(parser)
    parser.add_argument("state", choices=("up", "down", "dir", "user", "fault"),
                        metavar="up|down|dir|user|fault",
                        help="up: make and keep the station; down: remove it whole; dir: print "
                             "the station folder; user: set the FTP login; fault: the FTP server "
                             "stalls after accepting (stall), cuts a transfer halfway (drop), "
                             "or works (none)")
    parser.add_argument("name", nargs="?", metavar="NAME|FAULT",
                        help="user: the FTP user name; fault: stall, drop or none")
    parser.add_argument("password", nargs="?", metavar="PASSWORD", help="user only: its password")

    def run(args):
        given = [w for w in (args.name, args.password) if w is not None]
        if len(given) != {"user": 2, "fault": 1}.get(args.state, 0):
            raise Usage("user takes NAME and PASSWORD, fault one of stall, drop and none; "
                        "up, down and dir take nothing more")
        phone = Phone(args.phone).require()
        if args.state == "fault":
            if args.name not in dev_ftp.FAULTS:
                raise Usage(f"no station fault {args.name!r} (one of: stall, drop, none)")
            dev_ftp.set_fault(phone, args.name)
            return 0
        if args.state == "dir":
            print(dev_ftp.station_dir(phone))
            return 0
        if args.state == "user":
            dev_ftp.set_login(phone, args.name, args.password)
            return 0
        try:
            runs.station_up(phone) if args.state == "up" else runs.station_down(phone)
        except runs.Refused as e:
            print(f"ftsim: {e}", file=sys.stderr)
            return 1
        return 0
    return run


@register_verb("interrupt", "SIGINT to the phone's running console and the commands it runs, as Ctrl+C sends it")
def setup_interrupt(parser):
    phone_arg(parser)

    def run(args):
        try:
            runs.interrupt(Phone(args.phone).require())
        except runs.NotRunning as e:
            print(f"ftsim: {e}", file=sys.stderr)
            return 1
        return 0
    return run
