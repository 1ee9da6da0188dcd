"""The on-board L2 switch, as the simulated libTolma keeps it: switch/state in
the phone, sorted KEY=VALUE lines (see sim/libtolma/switch.cpp).

Ports are keyed by switch id: port1 (PC), port2 (LAN), port1024 (CPU), each with
link_status, link_mode (configured), actual_mode (negotiated), partner (the best
link mode the partner offers, 0 for none), gigabit, test_mode, mdix, eee, pvid,
priority, mac, phy0..phy15 (PHY registers of ports 1 and 2) and cnt.* (counters).
Switch-wide: frozen (1: every setting is taken and nothing changes), green, ssc,
rgmii_tx, rgmii_rx, ethled, reg.XXXX (registers),
vlan.VID.*, acl.N (ACL rules), fdb.N (the address table).

Each run is a boot: the configuration returns to switch/defaults, while the
hardware and link-partner facts (gigabit, partner, mac, registers) stay.
"""
import errno
import fcntl
import os
import re
import sys

from ftsim.phone import Phone, write_atomically
from ftsim.registry import (DEVICES, FAULTS, HELP, RUN_HOOKS, SETTINGS, UsageError, nth_call,
                            phone_arg, register_verb)

PORTS = (1, 2, 1024)
# A few minutes of an office network since power-on.
COUNTER_VALUES = {"ifInOctets": 1843210, "ifInUcastPkts": 9120, "ifInMulticastPkts": 412,
                  "ifInBroadcastPkts": 236, "dot3StatsFCSErrors": 0, "ifOutOctets": 902114,
                  "ifOutUcastPkts": 7391, "ifOutMulticastPkts": 58, "ifOutBroadcastPkts": 12,
                  "etherStatsCollisions": 0}
# A Realtek gigabit PHY after reset, with a link up: BMCR, BMSR, PHY id, ability...
PHY_REGS = (0x1140, 0x796d, 0x001c, 0xc980, 0x0de1, 0xcde1, 0x000f, 0x2001,
            0x0000, 0x0200, 0x3c00, 0x0000, 0x0000, 0x0000, 0x0000, 0x3000)
CALLS = ("Net_fd_init", "L2Switch_EarlyInit", "L2Switch_IsSwitchPortSupport1G",
         "L2Switch_SetLinkStatus", "L2Switch_GetLinkStatus", "L2Switch_SetLinkMode",
         "L2Switch_GetLinkMode", "L2Switch_SetTestMode", "L2Switch_GetTestMode",
         "L2SW_EthernetLedTest", "L2Switch_portCntrs", "L2Switch_portResetCntrs",
         "L2Switch_ResetSettings", "L2Switch_GetMacAddr", "L2Switch_print_mac_table",
         "L2Switch_GetRegValue", "L2Switch_GetPhyRegValue", "L2Switch_SetAutoMDIXPort",
         "L2Switch_GetAutoMDIXPort", "L2Switch_GetPVID", "L2Switch_GetPortPriority",
         "L2Switch_VlanMbrCfg", "L2Switch_ShowAllRules", "L2Switch_DelAllRules",
         "L2Switch_GetGreenEthernetPort", "L2Switch_SetGreenEthernetPort", "L2Switch_GetEEEPort",
         "L2Switch_SetEEEPort", "L2Switch_rgmiiDelayExt_set", "L2Switch_GetSSC", "L2Switch_SetSSC")


def defaults():
    d = {"frozen": "0", "green": "0", "ssc": "0", "rgmii_tx": "1", "rgmii_rx": "0", "ethled": "enable",
         "reg.0000": "0x0000", "reg.1202": "0x88a8", "reg.1300": "0x6367", "reg.1301": "0x0020",
         "reg.091a": "0x0011",
         "vlan.1.members": "1,2,1024", "vlan.1.untagged": "1,2,1024", "vlan.1.fid": "0",
         "vlan.100.members": "2,1024", "vlan.100.untagged": "-", "vlan.100.fid": "1",
         "acl.0": "1,2|ethertype 0x88cc (LLDP)|trap to cpu",
         "acl.1": "1,2|dmac 01:80:c2:00:00:0e|trap to cpu",
         "fdb.0": "00:11:22:33:44:66 1024 0 static",
         "fdb.1": "00:1a:2b:3c:4d:5e 2 0 dynamic"}
    nth = {1: 0, 2: 1, 1024: 2}
    for port in PORTS:
        p = f"port{port}."
        d.update({p + "link_status": "1", p + "link_mode": "1", p + "partner": "6",
                  p + "gigabit": "1", p + "test_mode": "0", p + "mdix": "1", p + "eee": "0",
                  p + "pvid": "1", p + "priority": "0", p + "mac": f"00:11:22:33:44:{0x64 + nth[port]:02x}"})
        if port != 1024:
            d.update({f"{p}phy{i}": f"0x{v:04x}" for i, v in enumerate(PHY_REGS)})
        d.update({f"{p}cnt.{c}": str(n * (nth[port] + 1)) for c, n in COUNTER_VALUES.items()})
    return d


def negotiate(st, port):
    p = f"port{port}."
    num = lambda k: int(st.get(p + k, "0"), 0)
    status, mode, partner = num("link_status"), num("link_mode"), num("partner")
    best = 6 if num("gigabit") else 5
    if status not in (1, 3) or mode == 0:
        actual = 0
    elif mode == 1:
        actual = min(partner, best) if partner >= 2 else 7
    else:
        actual = mode if partner >= mode else 7
    st[p + "actual_mode"] = str(actual)


def is_fact(key):
    return (key.endswith((".gigabit", ".partner", ".mac")) or key.startswith("reg.") or ".phy" in key
            or key == "frozen")


def read_state(phone, name="state"):
    st = {}
    try:
        with open(phone.p("switch", name), encoding="utf-8", errors="replace") as f:
            for line in f:
                k, sep, v = line.rstrip("\n").partition("=")
                if sep:
                    st[k] = v
    except FileNotFoundError:
        pass
    return st


def write_state(phone, st, name="state"):
    write_atomically(phone.p("switch", name), "".join(f"{k}={st[k]}\n" for k in sorted(st)).encode())


def boot(phone):
    """The switch's configuration as at power-on; the facts stay as set."""
    old = read_state(phone)
    st = defaults()
    write_state(phone, st, "defaults")
    st.update({k: v for k, v in old.items() if is_fact(k)})
    for port in PORTS:
        negotiate(st, port)
    write_state(phone, st)


class Switch:
    name = "switch"

    def create(self, phone, options):
        os.makedirs(phone.p("switch"), exist_ok=True)
        boot(phone)

    def show(self, phone):
        return [f"{k}={v}" for k, v in sorted(read_state(phone).items())]


DEVICES["switch"] = Switch()

MAC = re.compile(r"[0-9a-fA-F]{2}(:[0-9a-fA-F]{2}){5}")
REG = re.compile(r"reg\.[0-9a-f]{4}")


def set_switch(phone, value, what):
    key = what[len("switch."):]
    with open(phone.p("switch", "lock"), "a") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        st = read_state(phone)
        if key not in st and not REG.fullmatch(key):
            raise UsageError(f"the switch has no {key!r} (see: ftsim show PHONE switch)")
        if key.endswith(".mac"):
            if not MAC.fullmatch(value):
                raise UsageError("a MAC address is six pairs of hexadecimal digits joined by ':'")
        elif key.startswith(("acl.", "fdb.")) or re.fullmatch(r"vlan\.\d+\.(members|untagged)", key):
            if "\n" in value:
                raise UsageError("a value is one line")
        else:
            try:
                n = int(value, 0)
            except ValueError:
                raise UsageError(f"switch.{key} is a number") from None
            if not -2**31 <= n < 2**32:
                raise UsageError(f"switch.{key} is a 32-bit number")
        st[key] = value
        # The link renegotiates: what the other end or the port can do changed.
        m = re.fullmatch(r"port(\d+)\.(partner|gigabit|link_mode|link_status)", key)
        if m:
            negotiate(st, int(m.group(1)))
        write_state(phone, st)


SETTINGS["switch."] = ("switch.KEY VALUE", set_switch)
HELP["setting", "switch."] = "one KEY of `ftsim show PHONE switch` (reg.XXXX may be new)"
HELP["device", "switch"] = "the L2 switch: ports by switch id, then switch-wide settings"


def fault_call(arg):
    arg, nth = nth_call(arg)
    call, _, name = arg.partition(":")
    if call not in CALLS:
        raise UsageError(f"no switch call {call!r} (one of: {', '.join(CALLS)})")
    if not name:
        return call + nth
    number = getattr(errno, name, None) if name.isupper() else None
    if not isinstance(number, int):
        raise UsageError(f"not an errno name: {name!r} (for example EBUSY)")
    return f"{call}:{number}{nth}"


fault_call.metavar = "CALL[:ERRNO][@N]"
FAULTS["switch"] = fault_call
FAULTS["tmp-readonly"] = None
FAULTS["specialfile-undeletable"] = None
HELP["fault", "switch"] = ("that switch call returns -1 with ERRNO (a name; EIO without);"
                           " with @N only its Nth call of the run")
HELP["fault", "tmp-readonly"] = "the phone's /tmp is read-only, from the next run on"
HELP["fault", "specialfile-undeletable"] = "removing /tmp/specialFTfile.txt fails with EBUSY"


def run_hook(phone, build):
    boot(phone)
    write_atomically(phone.p("log", "dmesg"), b"")
    if phone.fault("tmp-readonly"):
        return ["--ro-bind", phone.p("tmp"), "/tmp"]
    return []


RUN_HOOKS.append(run_hook)


@register_verb("dmesg", "the simulated kernel log of the last run")
def setup_dmesg(parser):
    phone_arg(parser)

    def run(args):
        try:
            with open(Phone(args.phone).require().p("log", "dmesg")) as f:
                sys.stdout.write(f.read())
        except FileNotFoundError:
            pass
    return run
