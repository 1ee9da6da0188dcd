"""What the simulated devices add to ftsim. Each device module (dev_*.py in this
package, loaded by the command line) registers here:

- DEVICES: name -> object with create(phone, options), and any of unplug(phone),
  plug(phone), show(phone) -> list of KEY=VALUE lines.
- FAULTS: fault name -> None (no argument) or a function that checks the argument
  and returns the word to record it under; a fault is the file faults/NAME[.ARG].
- COMMANDS: extra verbs, name -> (usage line, function(args) -> exit status).
- NEW_OPTIONS: options of `ftsim new`, "--name" -> (usage, default); the values
  reach every device's create() as options["name"].
- SETTINGS: `ftsim set PHONE WHAT VALUE`, WHAT -> (usage, function(phone, value)).
  A WHAT ending in '.' ("switch.") takes every WHAT.KEY of its family:
  function(phone, key, value).
"""

DEVICES = {}
FAULTS = {}
COMMANDS = {}
NEW_OPTIONS = {}
SETTINGS = {}
RUN_HOOKS = []


class UsageError(Exception):
    """A wrong form or value: printed as one line, exit status 2."""


class Usage(Exception):
    """A wrong form: the usage text is printed, exit status 2."""


def device(cls):
    """Class decorator: registers one instance under cls.name."""
    obj = cls()
    DEVICES[obj.name] = obj
    return cls
