"""ftsim: the station engineer's simulated phone."""
import argparse
import importlib
import os
import pkgutil
import sys

import ftsim
from ftsim import sandbox
from ftsim.phone import Phone, Tampered, create_file
from ftsim.registry import (COMMANDS, DEVICES, FAULTS, HELP, NEW_OPTIONS, SETTINGS, VERBS,
                            Usage, UsageError, phone_arg, setting)

# Every device module registers itself on import.
for _mod in sorted(m.name for m in pkgutil.iter_modules(ftsim.__path__)):
    if _mod.startswith("dev_"):
        importlib.import_module("ftsim." + _mod)
importlib.import_module("ftsim.view")


class _Formatter(argparse.RawDescriptionHelpFormatter):
    """One line a verb or an argument, whatever the terminal's width."""

    def __init__(self, prog):
        super().__init__(prog, max_help_position=32, width=100)
        # The verbs' column: argparse leaves their indentation out of its width.
        self._action_max_length = 20


class Parser(argparse.ArgumentParser):
    """Options spelled out in full; the lists in the descriptions kept as written."""

    def __init__(self, *args, **kw):
        kw.setdefault("allow_abbrev", False)
        kw.setdefault("formatter_class", _Formatter)
        super().__init__(*args, **kw)

    def _parse_optional(self, arg_string):
        # Only the verb's own options are options: any other word that starts
        # with '-' ("-x" as a stored value, "-0x10") is a value.
        found = super()._parse_optional(arg_string)
        tuples = found if isinstance(found, list) else [found] if found else []
        return found if any(t[0] is not None for t in tuples) else None


def _text(text):
    """Registry text inside argparse's %-formatted help."""
    return text.replace("%", "%%")


def _listing(title, rows):
    """`title:` and one indented NAME  HELP line per row."""
    rows = list(rows)
    width = min(max((len(name) for name, _ in rows), default=0), 24)
    return "\n".join([f"{title}:"] + [f"  {name:<{width}}  {text}".rstrip() for name, text in rows])


def _names(names):
    return ", ".join(names)


def _build_arg(parser):
    parser.add_argument("--build", default="host", metavar="BUILD",
                        help=f"the build the phone runs: {_names(sandbox.BUILDS)} (default host)")


# ---- the verbs of every phone ------------------------------------------------------

def setup_new(parser):
    phone_arg(parser)
    parser.add_argument("--force", action="store_true", help="replace an existing PHONE")
    for opt, (use, default) in NEW_OPTIONS.items():
        parser.add_argument(opt, dest="option_" + opt[2:], default=default,
                            metavar=use.split()[-1] if " " in use else "VALUE",
                            help=_text(HELP.get(("option", opt), "") + f" (default {default})"))

    def run(args):
        options = {opt[2:]: getattr(args, "option_" + opt[2:]) for opt in NEW_OPTIONS}
        Phone(args.phone).create(options, args.force)
    return run


def setup_run(parser):
    _build_arg(parser)
    phone_arg(parser)
    return lambda args: sandbox.run(Phone(args.phone), args.build)


def setup_exec(parser):
    _build_arg(parser)
    phone_arg(parser)
    # One list for the program and its words, so that a "--" among them stays.
    parser.add_argument("command", nargs=argparse.REMAINDER, metavar="PROGRAM [ARGS...]",
                        help="the program to run and its arguments, as they are").required = False
    parser.usage = "%(prog)s [-h] [--build BUILD] PHONE PROGRAM [ARGS...]"

    def run(args):
        if not args.command:
            raise Usage("the following arguments are required: PROGRAM")
        return sandbox.exec_in(Phone(args.phone), args.build, args.command)
    return run


def _fault_form(name):
    check = FAULTS[name]
    return name if check is None else f"{name} {getattr(check, 'metavar', 'ARG')}"


def setup_fault(parser):
    phone_arg(parser)
    parser.add_argument("name", metavar="FAULT", help="one of the faults below, or clear")
    parser.add_argument("arg", metavar="ARG", nargs="?", help="the fault's argument, if it takes one")
    parser.epilog = _listing("faults", [("clear", "every fault off")] + [
        (_fault_form(f), HELP.get(("fault", f), "")) for f in FAULTS])

    def run(args):
        phone = Phone(args.phone).require()
        if args.name != "clear" and args.name not in FAULTS:
            raise Usage(f"no fault {args.name!r} (one of: clear, {_names(FAULTS)})")
        check = FAULTS.get(args.name)
        if check is None and args.arg is not None:
            raise Usage(f"{args.name} takes no argument")
        if check is not None and args.arg is None:
            raise Usage(f"{args.name} takes a {getattr(check, 'metavar', 'ARG')}")
        if args.name == "clear":
            for f in os.listdir(phone.p("faults")):
                os.remove(phone.p("faults", f))
        else:
            name = args.name if check is None else f"{args.name}.{check(args.arg)}"
            create_file(phone.p("faults", name)).close()
        phone.note_change()
    return run


def _device_verb(action, what):
    def setup(parser):
        names = sorted(d for d in DEVICES if hasattr(DEVICES[d], action))
        phone_arg(parser)
        parser.add_argument("device", metavar="DEVICE", help=f"the device {what}")
        parser.epilog = _listing("devices", ((d, HELP.get(("device", d), "")) for d in names))

        def run(args):
            phone = Phone(args.phone).require()
            if args.device not in names:
                raise Usage(f"no device {args.device!r} to {action} (one of: {_names(names)})")
            result = getattr(DEVICES[args.device], action)(phone)
            if action != "show":
                phone.note_change()
            if result:
                print("\n".join(result))
        return run
    return setup


def setup_set(parser):
    phone_arg(parser)
    parser.add_argument("what", metavar="WHAT", help="one of the settings below")
    parser.add_argument("value", metavar="VALUE", help="its new value")
    parser.epilog = _listing("settings", ((use, HELP.get(("setting", k), ""))
                                          for k, (use, _) in SETTINGS.items()))

    def run(args):
        key = setting(args.what)
        if key is None:
            raise Usage(f"no setting {args.what!r} (one of: "
                        f"{_names(use.split()[0] for use, _ in SETTINGS.values())})")
        fn = SETTINGS[key][1]
        phone = Phone(args.phone).require()
        status = fn(phone, args.value) if key == args.what else fn(phone, args.value, args.what)
        phone.note_change()
        return status
    return run


def setup_calls(parser):
    phone_arg(parser)

    def run(args):
        with open(Phone(args.phone).require().p("log", "calls")) as f:
            sys.stdout.write(f.read())
    return run


BUILTIN = [
    ("new", "a fresh phone, every device present", setup_new),
    ("run", "the console in that phone, on your terminal or pipe", setup_run),
    ("exec", "another program in the phone's sandbox", setup_exec),
    ("fault", "makes a call of the phone fail until cleared", setup_fault),
    ("unplug", "takes a device away", _device_verb("unplug", "to take away")),
    ("plug", "gives a device back", _device_verb("plug", "to give back")),
    ("show", "a device's state as KEY=VALUE lines", _device_verb("show", "to show")),
    ("set", "changes a setting of the phone", setup_set),
    ("calls", "every command line the console handed to the shell", setup_calls),
]


# ---- the command line ------------------------------------------------------------

def build(only=None):
    """The parser and each verb's own parser by name: every verb's, or only
    that of the verb `only` (the others' arguments are then left out)."""
    top = Parser(prog="ftsim", description="The simulated phone: make one, run the console "
                 "in it, poke its hardware.\nftsim help VERB (or ftsim VERB --help) tells more.")
    sub = top.add_subparsers(dest="verb", metavar="VERB", required=True)
    parsers = {}

    def add(name, text, **kw):
        kw.setdefault("description", _text(text[:1].upper() + text[1:]) + ".")
        parsers[name] = sub.add_parser(name, help=_text(text), **kw)
        return parsers[name]

    for name, text, setup in BUILTIN + [(n, h, s) for n, (h, s) in VERBS.items()]:
        if only in (None, name):
            p = add(name, text)
            p.set_defaults(run=setup(p))
    for name, (use, fn) in COMMANDS.items():
        if only in (None, name) and name not in parsers:
            text = HELP.get(("verb", name), use.removeprefix("ftsim "))
            p = add(name, text, usage=_text(use), description=_text(text))
            p.add_argument("words", nargs=argparse.REMAINDER, metavar="ARGS")
            p.set_defaults(run=lambda args, fn=fn: fn(args.words))

    def show_help(args):
        if args.topic is None:
            top.print_help()
        elif args.topic in parsers:
            parsers[args.topic].print_help()
        else:
            raise Usage(f"no verb {args.topic!r} (one of: {_names(parsers)})")
    p = add("help", "the verbs, or what one verb does")
    p.add_argument("topic", metavar="VERB", nargs="?", help="the verb to describe")
    p.set_defaults(run=show_help)
    return top, parsers


def main(argv):
    verbs = {name for name, _, _ in BUILTIN} | set(VERBS) | set(COMMANDS)
    top, parsers = build(argv[0] if argv and argv[0] in verbs else None)
    if not argv:
        top.print_help(sys.stderr)
        return 2
    try:
        args, extra = top.parse_known_args(argv)
        try:
            if extra:
                raise Usage(f"unrecognized arguments: {' '.join(extra)}")
            return args.run(args) or 0
        except Usage as e:
            parsers[args.verb].error(str(e) or "wrong form")
    except UsageError as e:
        print(f"ftsim: {e}", file=sys.stderr)
        return 2
    except Tampered as e:
        print(f"ftsim: {e}", file=sys.stderr)
        return 1
    except SystemExit as e:
        return e.code if isinstance(e.code, int) else 2
