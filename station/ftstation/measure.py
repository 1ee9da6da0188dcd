"""Measurements: a number read from a step (its output, its event lines or its
own duration), kept with its unit and limits whatever the step's outcome, and a
verdict of its own. One outside its limits fails the step."""
import dataclasses
import math
import re

SOURCES = ("output", "events", "duration")
NAME = re.compile(r"[a-z][a-z0-9_]*")
NUMBER = re.compile(r"\s*[-+]?(\d+(\.\d*)?|\.\d+)([eE][-+]?\d+)?\s*")


@dataclasses.dataclass
class Measure:
    name: str
    regex: re.Pattern = None     # one group; None for the duration
    source: str = "output"
    unit: str = ""
    low: float = None
    high: float = None


def text(value):
    """A number as the note and the page show it."""
    return repr(float(value))


def evaluate(measure, output, events, duration):
    """The measurement's record, and the note that fails the step ("" if it passes)."""
    record = {"name": measure.name, "value": None, "unit": measure.unit, "low": measure.low,
              "high": measure.high, "verdict": "FAIL"}
    if measure.source == "duration":
        raw = str(round(duration, 3))
    else:
        m = measure.regex.search(output if measure.source == "output" else "\n".join(events))
        if m is None or m.group(1) is None:
            where = "output does" if measure.source == "output" else "event lines do"
            return record, f"{measure.name} missing: the {where} not hold /{measure.regex.pattern}/"
        raw = m.group(1)
    if not NUMBER.fullmatch(raw) or not math.isfinite(float(raw)):
        return record, f"{measure.name} = {raw.strip()[:40]!r}, not a number"
    value = float(raw)
    record["value"] = value
    shown = f"{measure.name} = {text(value)}" + (f" {measure.unit}" if measure.unit else "")
    if measure.low is not None and value < measure.low:
        return record, f"{shown}, below {text(measure.low)}"
    if measure.high is not None and value > measure.high:
        return record, f"{shown}, above {text(measure.high)}"
    record["verdict"] = "PASS"
    return record, ""
