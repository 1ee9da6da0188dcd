"""Station files: a TOML file naming the station, its plan, where it records,
and its fixtures with the transport to each one's phone. Every problem is one
StationFileError naming the line it is on, as a plan's are."""
import dataclasses
import datetime
import os
import re
import subprocess

from ftstation import line
from ftstation import plan as plans
from ftstation import tomlfile
from ftstation.console import FTSIM
from ftstation.db import check_serial

LINE_KEYS = {"database": str, "lease": int}
STATION_KEYS = {"id": str, "plan": str, "records": str, "serial_pattern": str}
FIXTURE_KEYS = {"name": str, "simulated": bool, "serial": str, "baud": int, "spawn": list,
                "sim_setup": list, "ask_operator": bool}
TRANSPORTS = ("simulated", "serial", "spawn")
# ftsim verbs that make, run or serve a phone: nothing a fixture's setup does.
NOT_SETUP = {"new", "run", "exec", "view", "help", "station"}


class StationFileError(tomlfile.FileError):
    pass


@dataclasses.dataclass
class Fixture:
    name: str
    transport: str               # "simulated", "serial" or "spawn"
    serial: str = None           # the serial line's device
    baud: int = 115200
    spawn: list = None           # the program that reaches the console
    sim_setup: list = dataclasses.field(default_factory=list)   # each a list of words
    ask_operator: bool = False   # a simulated phone's actions wait for the card's Done


@dataclasses.dataclass
class StationFile:
    path: str
    id: str
    plan: str                    # absolute
    records: str                 # absolute
    serial_pattern: object       # a compiled regular expression, or None
    fixtures: list
    mac_block: tuple             # (first, last) as 48-bit numbers, or None
    line: object = None          # LineSettings, or None for a station on its own


@dataclasses.dataclass
class LineSettings:
    database: str                # the line database's URL, without a password
    lease: int = 64              # MAC addresses taken from the line at a time


class _Lines:
    """Finds where a key of valid TOML sits in the file's text."""

    def __init__(self, text):
        self.lines = text.splitlines()

    def _key_after(self, start, key):
        for i in range(start + 1, len(self.lines)):
            if re.match(r"\s*\[", self.lines[i]):
                break
            if re.match(r"\s*%s\s*=" % re.escape(key), self.lines[i]):
                return i + 1
        return None

    def _at(self, header, index, key):
        """The line of the index-th header that matches, or of its key."""
        found = [i for i, l in enumerate(self.lines) if re.match(header, l)]
        if index >= len(found):
            return 1
        return (key and self._key_after(found[index], key)) or found[index] + 1

    def table(self, name, key=None):
        return self._at(r"\s*\[\s*%s\s*\]" % name, 0, key)

    def fixture(self, index, key=None):
        return self._at(r"\s*\[\[\s*fixture\s*\]\]", index, key)


def ftsim_verbs(ftsim=FTSIM):
    """The verbs `ftsim help` lists."""
    r = subprocess.run([ftsim, "help"], capture_output=True, text=True, timeout=30)
    return {m[1] for m in re.finditer(r"(?m)^    ([a-z][a-z0-9-]*)(?:\s|$)", r.stdout)}


def load(path, verbs=None):
    """Reads and checks a station file; `verbs`: the ftsim verbs (asked of
    ./ftsim when not given)."""
    _, text, doc = tomlfile.read(path, StationFileError, "station file")
    where = _Lines(text)
    folder = os.path.dirname(os.path.abspath(path))

    def fail(line, problem):
        raise StationFileError(path, line, problem)

    def here(p):
        return os.path.normpath(os.path.join(folder, os.path.expanduser(p)))

    for key in doc:
        if key not in ("station", "fixture", "line"):
            fail(1, f"unknown key or table {key!r}")
    station = doc.get("station")
    if not isinstance(station, dict):
        fail(1, "the file has no [station] table")
    for key, value in station.items():
        tomlfile.check_type(STATION_KEYS, key, value,
                            lambda p, k=key: fail(where.table("station", k), p))
    station_id = station.get("id") or os.uname().nodename
    if "plan" not in station:
        fail(where.table("station"), "[station] has no plan")
    plan_path = here(station["plan"])
    if not os.path.isfile(plan_path):
        fail(where.table("station", "plan"), f"no plan {plan_path}")
    try:
        loaded = plans.load(plan_path, "SN0", 0, station_id,
                            datetime.date.today().isoformat())
    except plans.PlanError as e:
        fail(where.table("station", "plan"), f"the plan is refused: {e}")
    pattern = None
    if "serial_pattern" in station:
        try:
            pattern = re.compile(station["serial_pattern"])
        except re.error as e:
            fail(where.table("station", "serial_pattern"),
                 f"serial_pattern: bad regular expression: {e}")

    raw_fixtures = doc.get("fixture")
    if not isinstance(raw_fixtures, list) or not raw_fixtures:
        fail(1, "the station has no [[fixture]]")
    fixtures, names = [], set()
    for i, raw in enumerate(raw_fixtures):
        def bad(problem, key=None, i=i):
            fail(where.fixture(i, key), f"fixture {i + 1}: {problem}")
        fixture = _fixture(raw, bad, here)
        if fixture.name in names:
            bad(f"a second fixture named {fixture.name!r}", "name")
        names.add(fixture.name)
        if fixture.sim_setup:
            verbs = ftsim_verbs() if verbs is None else verbs
            for words in fixture.sim_setup:
                if words[0] not in verbs or words[0] in NOT_SETUP:
                    bad(f"sim_setup: {words[0]!r} is no ftsim verb a fixture can set up "
                        "(see ./ftsim help)", "sim_setup")
        fixtures.append(fixture)

    return StationFile(os.path.abspath(path), station_id, plan_path,
                       here(station.get("records", "records")), pattern, fixtures, loaded.block,
                       _line(doc.get("line"), lambda key, problem: fail(where.table("line", key),
                                                                        problem)))


def _line(raw, bad):
    """The [line] table: the line database's URL (never with a password) and the lease."""
    if raw is None:
        return None
    if not isinstance(raw, dict):
        bad(None, "line is a table: [line]")
    for key, value in raw.items():
        tomlfile.check_type(LINE_KEYS, key, value, lambda p, key=key: bad(key, p))
    if "database" not in raw:
        bad(None, "[line] has no database")
    try:
        line.check_url(raw["database"])
    except line.BadURL as e:
        bad("database", str(e))
    settings = LineSettings(raw["database"], raw.get("lease", 64))
    if not 1 <= settings.lease <= 65536:
        bad("lease", "lease is 1 to 65536 addresses")
    return settings


def _fixture(raw, bad, here):
    if not isinstance(raw, dict):
        bad("a fixture is a table")
    for key, value in raw.items():
        tomlfile.check_type(FIXTURE_KEYS, key, value, lambda p, key=key: bad(p, key))
    name = raw.get("name")
    if not name:
        bad("has no name")
    try:
        check_serial(name)
    except ValueError as e:
        bad(str(e).replace("serial", "name", 1).replace("name a unit", "name a fixture"), "name")
    given = [t for t in TRANSPORTS if raw.get(t)]
    if len(given) != 1:
        bad(f"{name}: give one transport: simulated = true, serial = DEVICE or spawn = [ARGV]"
            if not given else f"{name}: two transports ({' and '.join(given)})")
    fixture = Fixture(name, given[0], baud=raw.get("baud", 115200),
                      ask_operator=raw.get("ask_operator", False))
    if fixture.transport == "serial":
        fixture.serial = here(raw["serial"])
    elif fixture.transport == "spawn":
        if not all(isinstance(w, str) and w for w in raw["spawn"]):
            bad(f"{name}: spawn is a list of words", "spawn")
        fixture.spawn = list(raw["spawn"])
    for key in ("sim_setup", "ask_operator"):
        if key in raw and fixture.transport != "simulated":
            bad(f"{name}: {key} is for a simulated fixture", key)
    for entry in raw.get("sim_setup", []):
        words = entry.split() if isinstance(entry, str) else []
        if not words:
            bad(f"{name}: sim_setup holds ftsim verbs, such as \"unplug display\"", "sim_setup")
        fixture.sim_setup.append(words)
    if fixture.baud <= 0:
        bad(f"{name}: baud must be above 0", "baud")
    return fixture
