"""What the simulated devices add to ftsim. Each device module (dev_*.py in this
package, loaded by the command line) registers here:

- DEVICES: name -> object with create(phone, options), and any of unplug(phone),
  plug(phone), show(phone) -> list of KEY=VALUE lines.
- FAULTS: fault name -> None (no argument) or a function that checks the argument
  and returns the word to record it under; a fault is the file faults/NAME[.ARG].
  The function's optional `metavar` attribute names the argument in help (ARG).
- SETTINGS: `ftsim set PHONE WHAT VALUE`, WHAT -> (usage, function(phone, value)).
  A WHAT ending in '.' ("switch.") takes every WHAT that starts with it and is
  longer; its function is called as function(phone, value, what). `ftsim set`
  counts the change for the live view (Phone.note_change) itself.
- NEW_OPTIONS: options of `ftsim new`, "--name" -> (usage, default); the values
  reach every device's create() as options["name"].
- RUN_HOOKS: functions(phone, build) -> extra bubblewrap arguments, called as
  `ftsim run` and `ftsim exec` start.
- ENV_HOOKS: function(phone, build, env) that may change the console's environment.
- HELP: (kind, name) -> one line for the help texts, kind "device", "fault",
  "setting" (its registered name), "option" ("--name") or "verb" (a COMMANDS
  verb); optional.
- Verbs: register_verb(name, help, setup). setup(parser) adds the verb's
  arguments to its argparse parser and returns function(args) -> exit status
  (None: 0). raise Usage("what was wrong") prints the verb's usage and that line,
  exit 2; raise UsageError("...") prints "ftsim: ..." alone, exit 2.

    @register_verb("files", "what is left in a phone folder")
    def files(parser):
        phone_arg(parser)
        parser.add_argument("dir", metavar="DIR", help="a folder of the phone")
        return lambda args: list_folder(Phone(args.phone).require(), args.dir)

    add_fault("usb-io", "every USB transfer fails")

The older COMMANDS[name] = (usage line, function(list of words) -> exit status)
still works: such a verb takes the rest of the command line as it is.
"""

DEVICES = {}
FAULTS = {}
SETTINGS = {}
NEW_OPTIONS = {}
RUN_HOOKS = []
ENV_HOOKS = []
HELP = {}
VERBS = {}
COMMANDS = {}


class UsageError(Exception):
    """A wrong value: printed as one line "ftsim: ...", exit status 2."""


class Usage(Exception):
    """A wrong form: the verb's usage and the message are printed, exit status 2."""


def device(cls):
    """Class decorator: registers one instance under cls.name."""
    obj = cls()
    DEVICES[obj.name] = obj
    return cls


def add_fault(name, help, check=None):
    """Registers the fault `name` with its help line; check as FAULTS describes."""
    FAULTS[name] = check
    HELP["fault", name] = help


def register_verb(name, help, setup=None):
    """Adds the verb `name` with its one-line help; a decorator when setup is left out."""
    if setup is None:
        return lambda fn: register_verb(name, help, fn)
    VERBS[name] = (help, setup)
    return setup


def nth_call(arg):
    """A fault argument WHAT@N (only the Nth call of the run fails) split into
    ("WHAT", "@N"); ("WHAT", "") without @N."""
    what, at, n = arg.partition("@")
    if at and not (n.isdigit() and int(n) > 0):
        raise UsageError(f"@N counts calls from 1: {arg!r}")
    return what, at + str(int(n)) if at else ""


def phone_arg(parser):
    """The PHONE argument that most verbs take first: args.phone."""
    parser.add_argument("phone", metavar="PHONE", help="the phone's folder")


def setting(what):
    """The registered name that WHAT sets (itself, or the longest prefix that
    takes it), or None."""
    if what in SETTINGS and not what.endswith("."):
        return what
    prefixes = [k for k in SETTINGS if k.endswith(".") and what.startswith(k) and what != k]
    return max(prefixes, key=len, default=None)
