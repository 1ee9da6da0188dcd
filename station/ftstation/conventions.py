"""What the console's output means: its prompt, the event lines its reader
threads print at any time, its refusals and its verdicts."""
import re

PROMPT = "ft>"

# Lines printed by the reader threads, whenever an event comes, each with the
# reader that prints it: keypad, headset jack and its buttons, hookswitch and
# EHS, and the readers' own read errors.
EVENTS = (
    ("key", r"KeyCode\[[0-9a-f]{4}\] value\[-?\d+\]"),
    ("jack", r"jackKeyCode\[[A-D]\] value\[-?\d+\]"),
    ("jack", r"JACK = (none|no mic|mic|CTIA|OMTP)"),
    ("jack", r"Unknown jack event: keyCode\[[0-9a-f]{4}\] value\[-?\d+\]"),
    ("hook", r"HOOKSWITCH event: \[(ON|OFF) HOOK\]"),
    ("ehs", r"EHS event: \[(ON|OFF) HOOK\]"),
    ("key", r"readKeyEvent\(\): some error or short read - .*"),
    ("jack", r"readJackEvent\(\): some error or short read - .*"),
)
_READER_OF = tuple((reader, re.compile(pattern)) for reader, pattern in EVENTS)

# How the console refuses a line it does not run.
REFUSALS = ("Not a valid command", "Line too long (", "Too many words (", "Word too long (")

# The line limits the console enforces; a station checks them before sending.
MAX_LINE, MAX_WORDS, MAX_WORD = 255, 20, 99

# Terminal control sequences a line editor on a terminal may add.
_CONTROL = re.compile(r"\x1b\[[0-?]*[ -/]*[@-~]|\x1b[@-Z\\-_]|[\x00-\x08\x0b-\x1f\x7f]")


def clean(text):
    """Terminal output as plain lines: CR LF as LF, control sequences dropped."""
    return _CONTROL.sub("", text.replace("\r\n", "\n"))


def event_matcher(extra=()):
    return re.compile("(?:" + "|".join((*(p for _, p in EVENTS), *extra)) + ")")


def verdict(lines):
    """"FAIL" when a line begins with or contains FAIL, or contains "() ERROR:";
    else "PASS" when a line is, begins or ends with PASS; else None."""
    if any("FAIL" in l or "() ERROR:" in l for l in lines):
        return "FAIL"
    if any(l.startswith("PASS") or l.endswith("PASS") for l in lines):
        return "PASS"
    return None


def refusal(lines):
    """The console's refusal of the line, or None when it ran it."""
    return next((l for l in lines if l.startswith(REFUSALS)), None)


def line_problem(line):
    """Why the console would refuse the line whole, or None."""
    words = line.split(" ")
    words = [w for w in words if w]
    if not words:
        return "an empty line runs nothing"
    if "\n" in line or "\r" in line:
        return "a command is one line"
    if len(line) > MAX_LINE:
        return f"line too long ({MAX_LINE} characters at most)"
    if len(words) > MAX_WORDS:
        return f"too many words ({MAX_WORDS} at most)"
    if any(len(w) > MAX_WORD for w in words):
        return f"word too long ({MAX_WORD} characters at most)"
    return None


_PARAM = re.compile(r'^(.+?) = "(.*)"$')


def param_lines(lines):
    """LABEL = "VALUE" lines as {label: value}."""
    return {m[1]: m[2] for m in map(_PARAM.match, lines) if m}


def quote(value):
    """A value as `program write` takes it: words joined by single blanks are quoted."""
    return f'"{value}"' if " " in value else value


_SWITCH = re.compile(r"(Start|Stop) (keypad|jackdet|jackkeydet|hookswitch|ehs) test")


class LineBreaks:
    """The line ends the readers still owe. A reader prints one before its
    first event line once its reporting is on (keypad and jack: after each
    `key`, `jackdet` or `jackkeydet`; hookswitch and EHS: once a run), as a
    print of its own, so it can land between any two lines of a command."""

    def __init__(self):
        self.owed = dict.fromkeys(("key", "jack", "hook", "ehs"), False)
        self.jack = {"jackdet": False, "jackkeydet": False}
        self.printed = set()
        self.taken = 0               # blank lines taken as line ends still owed

    def reply(self, lines):
        for m in filter(None, map(_SWITCH.fullmatch, lines)):
            on, what = m[1] == "Start", m[2]
            if what == "keypad":
                self.owed["key"] = on
            elif what in self.jack:
                self.jack[what] = on
                self.owed["jack"] = any(self.jack.values())
            else:
                reader = "hook" if what == "hookswitch" else "ehs"
                self.owed[reader] = on and reader not in self.printed
        self.taken = min(self.taken, sum(self.owed.values()))

    def event(self, line):
        reader = next((r for r, pattern in _READER_OF if pattern.match(line)), None)
        if reader is None:
            return
        self.printed.add(reader)
        if self.owed[reader]:
            self.owed[reader] = False
            self.taken = max(0, self.taken - 1)

    def blank(self):
        """True when a blank line is a reader's line end."""
        if self.taken < sum(self.owed.values()):
            self.taken += 1
            return True
        return False
