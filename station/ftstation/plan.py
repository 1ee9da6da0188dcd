"""Test plans: TOML files of steps, read with the standard library's tomllib.
Every problem is reported as one PlanError naming the line it is on."""
import dataclasses
import hashlib
import math
import re
import shlex

from ftstation import conventions as cv
from ftstation import measure as ms
from ftstation import tomlfile

PLACEHOLDERS = ("serial", "mac", "mac_plain", "date", "station")
VERDICTS = ("PASS", "FAIL", "none")
STEP_KEYS = {"name": str, "command": str, "verdict": str, "match": str, "output": str,
             "stored": str, "events": list, "timeout": (int, float), "stop_on_failure": bool,
             "needs_all_passed": bool, "interrupt_after": (int, float), "ends_console": bool,
             "action": dict, "measure": list}
MEASURE_KEYS = {"name": str, "regex": str, "from": str, "unit": str, "low": (int, float),
                "high": (int, float)}
ACTION_KEYS = {"prompt": str, "sim": (str, list)}
TABLES = {"plan": {"name": str, "description": str},
          "defaults": {"timeout": (int, float), "stop_on_failure": bool},
          "mac": {"first": str, "last": str}}
MAC = re.compile(r"[0-9A-Fa-f]{2}(:[0-9A-Fa-f]{2}){5}")
_PLACEHOLDER = re.compile(r"\{([A-Za-z_]\w*)\}")


class PlanError(tomlfile.FileError):
    pass


@dataclasses.dataclass
class Step:
    name: str
    command: str = None
    verdict: str = None       # the verdict the reply must have ("none": no verdict)
    match: str = None         # a regular expression the output must hold
    output: str = None        # the output, exactly
    stored: str = None        # the value `program read` must show after the write
    events: list = dataclasses.field(default_factory=list)
    timeout: float = 10.0
    stop_on_failure: bool = True
    needs_all_passed: bool = False
    interrupt_after: float = None
    ends_console: bool = False
    prompt: str = None        # the operator's action on a real phone
    sim: list = dataclasses.field(default_factory=list)   # ftsim verbs standing in for it
    measures: list = dataclasses.field(default_factory=list)   # measure.Measure

    @property
    def param(self):
        """The parameter a `program write NAME VALUE` command writes."""
        return self.command.split()[2]


@dataclasses.dataclass
class Plan:
    path: str
    name: str
    steps: list
    values: dict              # the placeholders' values
    block: tuple = None       # the MAC block (first, last) as numbers, or None
    sha256: str = None        # of the file's bytes, as read


class _Lines:
    """Finds where a key of valid TOML sits in the file's text."""

    def __init__(self, text):
        self.lines = text.splitlines()

    def _headers(self, regex):
        return [i for i, l in enumerate(self.lines) if re.match(regex, l)]

    def _key_in(self, start, key):
        parts = key.split(".")
        for i in range(start + 1, len(self.lines)):
            line = self.lines[i]
            if re.match(r"\s*\[\[", line) or (re.match(r"\s*\[", line)
                                                 and not re.match(r"\s*\[\s*step\s*\.", line)):
                break
            table, name = re.escape(parts[0]), re.escape(parts[-1])
            if re.match(r"\s*(%s\s*\.\s*)?%s\s*=" % (table, name), line):
                return i + 1
            if len(parts) > 1 and re.match(r"\s*%s\s*=\s*\{" % re.escape(parts[0]), line):
                return i + 1
        return None

    def step(self, index, key=None):
        headers = self._headers(r"\s*\[\[\s*step\s*\]\]")
        if index >= len(headers):
            return 1
        return (key and self._key_in(headers[index], key)) or headers[index] + 1

    def measure(self, index, k, key=None):
        """The line of the k-th [[step.measure]] of step `index`, or of its key."""
        headers = self._headers(r"\s*\[\[\s*step\s*\]\]") + [len(self.lines)]
        if index + 1 >= len(headers):
            return 1
        tables = [h for h in self._headers(r"\s*\[\[\s*step\s*\.\s*measure\s*\]\]")
                  if headers[index] < h < headers[index + 1]]
        if k >= len(tables):
            return self.step(index, "measure")
        return (key and self._key_in(tables[k], key)) or tables[k] + 1

    def table(self, table, key=None):
        headers = self._headers(r"\s*\[\s*%s\s*\]" % table)
        if not headers:
            return 1
        return (key and self._key_in(headers[0], key)) or headers[0] + 1


def mac_of(first, index):
    number = int(first.replace(":", ""), 16) + index
    return ":".join(f"{number:012X}"[i:i + 2] for i in range(0, 12, 2))


def load(path, unit=None, unit_index=0, station="", date=""):
    """Reads and checks the plan; fills the placeholders from the unit's serial,
    its place in the MAC block (None: no MAC), the station and the date."""
    raw, text, doc = tomlfile.read(path, PlanError, "plan")
    where = _Lines(text)

    def fail(line, problem):
        raise PlanError(path, line, problem)

    for key, value in doc.items():
        if key == "step":
            continue
        if key not in TABLES or not isinstance(value, dict):
            fail(where.table(key) if key in TABLES else 1, f"unknown key or table {key!r}")
        for k, v in value.items():
            tomlfile.check_type(TABLES[key], k, v, lambda p, k=k: fail(where.table(key, k), p))

    # "-mac" (no placeholder can have that name) says why {mac} may have no value.
    values = {"serial": unit, "station": station, "date": date, "mac": None, "mac_plain": None,
              "-mac": "the plan has no [mac] block"}
    mac, block = doc.get("mac"), None
    if mac is not None:
        for k in ("first", "last"):
            if not MAC.fullmatch(mac.get(k, "")):
                fail(where.table("mac", k),
                     f"[mac] {k} must be six hexadecimal pairs joined by colons")
        if int(mac["last"].replace(":", ""), 16) < int(mac["first"].replace(":", ""), 16):
            fail(where.table("mac", "last"), "[mac] last comes before first")
        block = (int(mac["first"].replace(":", ""), 16), int(mac["last"].replace(":", ""), 16))
        values["-mac"] = "give --unit or --unit-index"
    if mac is not None and unit_index is not None:
        if unit_index < 0:
            fail(where.table("mac", "first"), f"unit index {unit_index} is negative")
        values["mac"] = mac_of(mac["first"], unit_index)
        if int(values["mac"].replace(":", ""), 16) > int(mac["last"].replace(":", ""), 16):
            fail(where.table("mac", "last"), f"unit index {unit_index} gives MAC {values['mac']}, "
                                             f"past the block's last {mac['last'].upper()}")
        values["mac_plain"] = values["mac"].replace(":", "")

    defaults = doc.get("defaults", {})
    raw_steps = doc.get("step")
    if not isinstance(raw_steps, list) or not raw_steps:
        fail(1, "the plan has no [[step]]")
    steps, names, measure_names = [], set(), set()
    for i, raw_step in enumerate(raw_steps):
        def bad(problem, key=None, i=i):
            fail(where.step(i, key), f"step {i + 1}: {problem}")
        if not isinstance(raw_step, dict):
            bad("a step is a table")
        step = _step(raw_step, defaults, values, bad,
                     lambda k, problem, key=None, i=i: fail(where.measure(i, k, key),
                                                            f"step {i + 1}: {problem}"))
        for k, m in enumerate(step.measures):
            if m.name in measure_names:
                fail(where.measure(i, k, "name"), f"step {i + 1}: a second measurement "
                                                  f"named {m.name!r}")
            measure_names.add(m.name)
        if step.name in names:
            bad(f"a second step named {step.name!r}", "name")
        names.add(step.name)
        if steps and steps[-1].ends_console:
            bad("comes after a step that ends the console")
        steps.append(step)
    name = doc.get("plan", {}).get("name") or re.sub(r"\.toml$", "", path.rsplit("/", 1)[-1])
    values.pop("-mac")
    return Plan(path, name, steps, values, block, hashlib.sha256(raw).hexdigest())


def _fill(text, values, bad, key, regex=False):
    """The text with its placeholders filled in (escaped for a regular expression)."""
    def one(m):
        name = m[1]
        if name not in PLACEHOLDERS:
            bad(f"unknown placeholder {{{name}}} (known: "
                + ", ".join("{%s}" % p for p in PLACEHOLDERS) + ")", key)
        if values[name] is None:
            bad(f"{{{name}}} has no value: " + ("give --unit" if name == "serial" else
                                                 values["-mac"]), key)
        return re.escape(values[name]) if regex else values[name]
    return _PLACEHOLDER.sub(one, text)


def _step(raw, defaults, values, bad, bad_measure):
    for key, value in raw.items():
        tomlfile.check_type(STEP_KEYS, key, value, lambda p, key=key: bad(p, key))
    if not raw.get("name"):
        bad("has no name")
    step = Step(name=raw["name"],
                timeout=raw.get("timeout", defaults.get("timeout", 10.0)),
                stop_on_failure=raw.get("stop_on_failure", defaults.get("stop_on_failure", True)))
    for key in ("needs_all_passed", "ends_console", "interrupt_after", "verdict", "stored"):
        if key in raw:
            setattr(step, key, raw[key])
    if "command" in raw:
        step.command = _fill(raw["command"], values, bad, "command")
        problem = cv.line_problem(step.command)
        if problem:
            bad(f"command: {problem}", "command")
    if "output" in raw:
        step.output = _fill(raw["output"], values, bad, "output")
    if "stored" in raw:
        step.stored = _fill(raw["stored"], values, bad, "stored")
        words = (step.command or "").split()
        if len(words) < 4 or words[:2] not in (["program", "write"], ["program", "writecommit"]):
            bad("stored needs a command `program write NAME VALUE`", "stored")
    for key in ("match", "events"):
        if key not in raw:
            continue
        patterns = [raw[key]] if key == "match" else raw[key]
        filled = []
        for p in patterns:
            if not isinstance(p, str):
                bad(f"{key} holds regular expressions", key)
            p = _fill(p, values, bad, key, regex=True)
            try:
                re.compile(p)
            except re.error as e:
                bad(f"{key}: bad regular expression {p!r}: {e}", key)
            filled.append(p)
        setattr(step, key, filled[0] if key == "match" else filled)
    if step.verdict is not None and step.verdict not in VERDICTS:
        bad(f"verdict is one of {', '.join(VERDICTS)}", "verdict")
    if step.timeout <= 0:
        bad("timeout must be above 0", "timeout")
    if step.interrupt_after is not None and not 0 < step.interrupt_after < step.timeout:
        bad("interrupt_after must lie between 0 and the timeout", "interrupt_after")
    if "action" in raw:
        action = raw["action"]
        for key, value in action.items():
            tomlfile.check_type(ACTION_KEYS, key, value,
                                lambda p, key=key: bad(p, "action." + key), "action.")
        if not action.get("prompt"):
            bad("an action needs the operator's prompt", "action")
        step.prompt = _fill(action["prompt"], values, bad, "action.prompt")
        sim = action.get("sim", [])
        for line in [sim] if isinstance(sim, str) else sim:
            if not isinstance(line, str) or not shlex.split(line):
                bad("action.sim holds ftsim verbs, such as \"press KEY_5\"", "action.sim")
            step.sim.append(_fill(line, values, bad, "action.sim"))
    for k, table in enumerate(raw.get("measure", [])):
        step.measures.append(_measure(table, values,
                                      lambda p, key=None, k=k: bad_measure(k, p, key)))
    if step.command is None and step.prompt is None:
        bad("has neither a command nor an action")
    if step.command is None and (step.ends_console or step.interrupt_after or step.match
                                 or step.output is not None or step.verdict
                                 or any(m.source == "output" for m in step.measures)):
        bad("checks a reply but has no command")
    return step


def _measure(raw, values, bad):
    """One [[step.measure]] table."""
    if not isinstance(raw, dict):
        bad("a measurement is a table")
    for key, value in raw.items():
        tomlfile.check_type(MEASURE_KEYS, key, value, lambda p, key=key: bad(p, key), "measure.")
    name = raw.get("name", "")
    if not ms.NAME.fullmatch(name):
        bad(f"measurement name {name!r}: a lower-case letter, then letters, digits or _", "name")
    m = ms.Measure(name, source=raw.get("from", "output"), unit=raw.get("unit", ""),
                   low=raw.get("low"), high=raw.get("high"))
    if m.source not in ms.SOURCES:
        bad(f"measurement {name}: from is one of {', '.join(ms.SOURCES)}", "from")
    if (m.source == "duration") == ("regex" in raw):
        bad(f"measurement {name}: " + ("the duration takes no regex" if "regex" in raw
                                       else "needs a regex with one group"),
            "regex" if "regex" in raw else None)
    if "regex" in raw:
        pattern = _fill(raw["regex"], values, lambda p, key: bad(p, "regex"), "regex", regex=True)
        try:
            m.regex = re.compile(pattern, re.M)
        except re.error as e:
            bad(f"measurement {name}: bad regular expression {pattern!r}: {e}", "regex")
        if m.regex.groups != 1:
            bad(f"measurement {name}: the regex needs exactly one group, it has {m.regex.groups}",
                "regex")
    for key in ("low", "high"):
        if key in raw:
            if not math.isfinite(raw[key]):
                bad(f"measurement {name}: {key} must be a finite number", key)
            setattr(m, key, float(raw[key]))
    if m.low is not None and m.high is not None and m.low > m.high:
        bad(f"measurement {name}: low {ms.text(m.low)} is above high {ms.text(m.high)}", "low")
    return m
