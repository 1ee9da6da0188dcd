"""ftsim: the station engineer's simulated phone."""
import os
import sys

from ftsim import devices, sandbox, store
from ftsim.phone import Phone, UsageError

USAGE = """usage: ftsim new PHONE [--force]
       ftsim run [--build host] PHONE
       ftsim store PHONE [NAME VALUE]
       ftsim fault PHONE store-read NAME | store-write NAME | store-mode | shell | clear
       ftsim unplug|plug PHONE DEVICE
       ftsim show PHONE DEVICE
       ftsim calls PHONE
devices: """ + ", ".join(devices.DEVICES)


class Usage(Exception):
    pass


def cmd_new(args):
    force = "--force" in args
    rest = [a for a in args if a != "--force"]
    if len(rest) != 1:
        raise Usage()
    Phone(rest[0]).create(force)


def cmd_run(args):
    build = "host"
    if args[:1] == ["--build"]:
        if len(args) < 2:
            raise Usage()
        build, args = args[1], args[2:]
    if len(args) != 1:
        raise Usage()
    return sandbox.run(Phone(args[0]), build)


def cmd_store(args):
    if len(args) == 1:
        print("\n".join(store.listing(Phone(args[0]).require())))
    elif len(args) == 3:
        store.set_value(Phone(args[0]).require(), args[1], args[2])
    else:
        raise Usage()


# Fault name -> whether it takes a parameter name.
FAULTS = {"store-read": True, "store-write": True, "store-mode": False, "shell": False}


def cmd_fault(args):
    if len(args) < 2:
        raise Usage()
    phone, name, rest = Phone(args[0]).require(), args[1], args[2:]
    if name == "clear" and not rest:
        for f in os.listdir(phone.p("faults")):
            os.remove(phone.p("faults", f))
        return
    if name not in FAULTS or len(rest) != int(FAULTS[name]):
        raise Usage()
    if rest:
        name += "." + store.storage_name(rest[0])
    open(phone.p("faults", name), "w").close()


def _device_cmd(action):
    def cmd(args):
        if len(args) != 2:
            raise Usage()
        phone, device = Phone(args[0]).require(), devices.get(args[1])
        result = getattr(device, action)(phone)
        if result:
            print("\n".join(result))
    return cmd


def cmd_calls(args):
    if len(args) != 1:
        raise Usage()
    with open(Phone(args[0]).require().p("log", "calls")) as f:
        sys.stdout.write(f.read())


COMMANDS = {
    "new": cmd_new,
    "run": cmd_run,
    "store": cmd_store,
    "fault": cmd_fault,
    "unplug": _device_cmd("unplug"),
    "plug": _device_cmd("plug"),
    "show": _device_cmd("show"),
    "calls": cmd_calls,
}


def main(argv):
    if not argv or argv[0] not in COMMANDS:
        print(USAGE, file=sys.stderr)
        return 2
    try:
        return COMMANDS[argv[0]](argv[1:]) or 0
    except Usage:
        print(USAGE, file=sys.stderr)
        return 2
    except UsageError as e:
        print(f"ftsim: {e}", file=sys.stderr)
        return 2
