"""The unit's record (JSON) and the run's JUnit report, each written whole or
not at all: a new file beside the old name, synced, then renamed over it."""
import json
import os
import tempfile
import xml.etree.ElementTree as ET


def write_atomically(path, data):
    folder = os.path.dirname(os.path.abspath(path))
    os.makedirs(folder, exist_ok=True)
    fd, tmp = tempfile.mkstemp(dir=folder, prefix="." + os.path.basename(path), suffix=".tmp")
    try:
        with os.fdopen(fd, "wb") as f:
            f.write(data)
            f.flush()
            os.fsync(f.fileno())
        os.replace(tmp, path)
    except BaseException:
        os.unlink(tmp)
        raise
    dir_fd = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)
    try:
        os.fsync(dir_fd)
    finally:
        os.close(dir_fd)


# What ties a report to its run, its unit, its plan and the software that ran it.
TRACE = ("id", "serial", "mac", "thumbprint", "station", "fixture", "operator", "plan_sha256",
         "software", "result")


def write_record(path, record):
    write_atomically(path, (json.dumps(record, indent=2) + "\n").encode())


def write_junit(path, record):
    steps = record["steps"]
    suite = ET.Element("testsuite", {
        "name": record["plan"], "tests": str(len(steps)),
        "failures": str(sum(s["verdict"] == "FAIL" for s in steps)),
        "skipped": str(sum(s["verdict"] == "SKIP" for s in steps)),
        "errors": "0", "time": f"{sum(s['duration'] for s in steps):.3f}",
        "timestamp": record["start"], "hostname": record["station"]})
    props = ET.SubElement(suite, "properties")
    for key in TRACE:
        ET.SubElement(props, "property", name=key, value=str(record.get(key) or ""))
    for n, s in enumerate(steps, 1):
        case = ET.SubElement(suite, "testcase", classname=f"{record['plan']}.{record['serial']}",
                             name=f"{n:02d} {s['name']}", time=f"{s['duration']:.3f}")
        if s.get("measurements"):
            measured = ET.SubElement(case, "properties")
            for m in s["measurements"]:
                # The value under the measurement's own name; its unit, limits
                # and verdict under NAME.unit, NAME.low, NAME.high, NAME.verdict.
                ET.SubElement(measured, "property", name=m["name"],
                              value="" if m["value"] is None else repr(m["value"]))
                for key in ("unit", "low", "high", "verdict"):
                    if m[key] not in (None, ""):
                        ET.SubElement(measured, "property", name=f"{m['name']}.{key}",
                                      value=str(m[key]))
        if s["verdict"] == "FAIL":
            failure = ET.SubElement(case, "failure", message=s["note"] or "failed")
            failure.text = s["output"]
        elif s["verdict"] == "SKIP":
            ET.SubElement(case, "skipped", message=s["note"] or "not run")
        if s["output"]:
            ET.SubElement(case, "system-out").text = s["output"]
    root = ET.Element("testsuites")
    root.append(suite)
    ET.indent(root)
    write_atomically(path, ET.tostring(root, encoding="utf-8", xml_declaration=True) + b"\n")
