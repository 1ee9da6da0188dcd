"""ftsim: the station engineer's simulated phone."""
import importlib
import os
import pkgutil
import sys

import ftsim
from ftsim import sandbox
from ftsim.phone import Phone, Tampered, create_file
from ftsim.registry import (COMMANDS, DEVICES, FAULTS, NEW_OPTIONS, SETTINGS, Usage,
                            UsageError)

# Every device module registers itself on import.
for _mod in sorted(m.name for m in pkgutil.iter_modules(ftsim.__path__)):
    if _mod.startswith("dev_"):
        importlib.import_module("ftsim." + _mod)


def usage():
    new_opts = "".join(f" [{u}]" for u, _ in NEW_OPTIONS.values())
    faults = " | ".join(k + (" ARG" if v else "") for k, v in FAULTS.items())
    lines = [f"usage: ftsim new PHONE [--force]{new_opts}",
             "       ftsim run [--build host|asan|arm] PHONE",
             "       ftsim exec [--build host|asan|arm] PHONE PROGRAM [ARGS...]",
             f"       ftsim fault PHONE {faults} | clear",
             "       ftsim unplug|plug|show PHONE DEVICE",
             "       ftsim calls PHONE"]
    lines += [f"       {u}" for u, _ in COMMANDS.values()]
    lines += [f"       ftsim set PHONE {u}" for u, _ in SETTINGS.values()]
    lines.append("devices: " + ", ".join(sorted(DEVICES)))
    return "\n".join(lines)


def cmd_new(args):
    force, options, rest = False, {k[2:]: d for k, (_, d) in NEW_OPTIONS.items()}, []
    it = iter(args)
    for a in it:
        if a == "--force":
            force = True
        elif a in NEW_OPTIONS:
            options[a[2:]] = next(it, None)
            if options[a[2:]] is None:
                raise Usage()
        elif a.startswith("--"):
            raise Usage()
        else:
            rest.append(a)
    if len(rest) != 1:
        raise Usage()
    Phone(rest[0]).create(options, force)


def _build_option(args):
    """`--build NAME` in front of the rest: (NAME or "host", the rest)."""
    if args[:1] != ["--build"]:
        return "host", args
    if len(args) < 2:
        raise Usage()
    return args[1], args[2:]


def cmd_run(args):
    build, args = _build_option(args)
    if len(args) != 1:
        raise Usage()
    return sandbox.run(Phone(args[0]), build)


def cmd_exec(args):
    build, args = _build_option(args)
    if len(args) < 2:
        raise Usage()
    return sandbox.exec_in(Phone(args[0]), build, args[1:])


def cmd_fault(args):
    if len(args) < 2:
        raise Usage()
    phone, name, rest = Phone(args[0]).require(), args[1], args[2:]
    if name == "clear" and not rest:
        for f in os.listdir(phone.p("faults")):
            os.remove(phone.p("faults", f))
        return
    if name not in FAULTS or len(rest) != (FAULTS[name] is not None):
        raise Usage()
    if rest:
        name += "." + FAULTS[name](rest[0])
    create_file(phone.p("faults", name)).close()


def _device_cmd(action):
    def cmd(args):
        if len(args) != 2:
            raise Usage()
        phone = Phone(args[0]).require()
        device = DEVICES.get(args[1])
        if device is None or not hasattr(device, action):
            raise UsageError(f"no device {args[1]!r} to {action} "
                             f"(one of: {', '.join(sorted(d for d in DEVICES if hasattr(DEVICES[d], action)))})")
        result = getattr(device, action)(phone)
        if result:
            print("\n".join(result))
    return cmd


def cmd_calls(args):
    if len(args) != 1:
        raise Usage()
    with open(Phone(args[0]).require().p("log", "calls")) as f:
        sys.stdout.write(f.read())


def cmd_set(args):
    if len(args) != 3 or args[1] not in SETTINGS:
        raise Usage()
    SETTINGS[args[1]][1](Phone(args[0]).require(), args[2])


BUILTIN = {
    "new": cmd_new,
    "run": cmd_run,
    "exec": cmd_exec,
    "fault": cmd_fault,
    "unplug": _device_cmd("unplug"),
    "plug": _device_cmd("plug"),
    "show": _device_cmd("show"),
    "calls": cmd_calls,
    "set": cmd_set,
}


def main(argv):
    verbs = dict(BUILTIN, **{k: f for k, (_, f) in COMMANDS.items()})
    if not argv or argv[0] not in verbs:
        print(usage(), file=sys.stderr)
        return 2
    try:
        return verbs[argv[0]](argv[1:]) or 0
    except Usage:
        print(usage(), file=sys.stderr)
        return 2
    except UsageError as e:
        print(f"ftsim: {e}", file=sys.stderr)
        return 2
    except Tampered as e:
        print(f"ftsim: {e}", file=sys.stderr)
        return 1
