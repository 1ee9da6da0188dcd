"""ftstation run PLAN.toml (--phone PHONE | --serial DEVICE | -- ARGV...) [options]"""
import argparse
import datetime
import os
import re
import socket
import sys

from ftstation import plan as plans
from ftstation import records, runner
from ftstation.console import Console, StationError

USAGE = ("ftstation run PLAN.toml (--phone PHONE | --serial DEVICE | -- ARGV...) "
         "[--unit SERIAL] [--unit-index N] [--station ID] [--records DIR] [--junit FILE] "
         "[--build host|asan|arm] [--baud N]")


def parse(argv):
    spawn = []
    if "--" in argv:
        argv, spawn = argv[:argv.index("--")], argv[argv.index("--") + 1:]
    p = argparse.ArgumentParser(prog="ftstation", usage=USAGE)
    p.add_argument("verb", choices=["run"])
    p.add_argument("plan")
    p.add_argument("--phone")
    p.add_argument("--serial")
    p.add_argument("--build", default="host")
    p.add_argument("--baud", type=int, default=115200)
    p.add_argument("--unit")
    p.add_argument("--unit-index", type=int, default=0)
    p.add_argument("--station", default=socket.gethostname())
    p.add_argument("--records", default="records")
    p.add_argument("--junit")
    args = p.parse_args(argv)
    args.spawn = spawn
    if sum(map(bool, (args.phone, args.serial, spawn))) != 1:
        p.error("give one of --phone PHONE, --serial DEVICE or -- ARGV...")
    return args


def connect(args):
    if args.phone:
        return Console.simulated(args.phone, build=args.build), f"simulated phone {args.phone}"
    if args.serial:
        return Console.serial(args.serial, args.baud), f"serial line {args.serial}"
    return Console.spawn(args.spawn), "command " + " ".join(args.spawn)


def utc(now):
    return now.strftime("%Y-%m-%dT%H:%M:%SZ")


def main(argv):
    args = parse(argv)
    started = datetime.datetime.now(datetime.timezone.utc)
    try:
        plan = plans.load(args.plan, args.unit, args.unit_index, args.station,
                          started.strftime("%Y-%m-%d"))
    except plans.PlanError as e:
        print(f"ftstation: {e}", file=sys.stderr)
        return 2
    # The serial names the record's file: nothing in it may leave the folder.
    unit = re.sub(r"[^A-Za-z0-9._-]", "_", args.unit or "unit").lstrip(".") or "unit"
    base = os.path.join(args.records, f"{unit}-{started.strftime('%Y%m%dT%H%M%SZ')}")
    junit = args.junit or base + ".xml"
    record = {"plan": plan.name, "plan_file": args.plan, "serial": args.unit,
              "mac": plan.values["mac"], "thumbprint": None, "station": args.station,
              "console": None, "start": utc(started), "end": None, "result": "FAIL",
              "error": None, "steps": []}
    outcomes, identity, console = [], {"thumbprint": None}, None
    try:
        console, record["console"] = connect(args)
        runner.run(console, plan, bool(args.phone), outcomes, identity)
    except StationError as e:
        record["error"] = str(e)
        print(f"ftstation: {e}", file=sys.stderr)
    except KeyboardInterrupt:
        record["error"] = "stopped at the station (Ctrl+C)"
        print(f"ftstation: {record['error']}", file=sys.stderr)
    finally:
        if console is not None:
            console.close()
        record["thumbprint"] = identity["thumbprint"]
        record["steps"] = [o.as_record() for o in outcomes]
        record["end"] = utc(datetime.datetime.now(datetime.timezone.utc))
        passed = len(outcomes) == len(plan.steps) and all(o.verdict == "PASS" for o in outcomes)
        record["result"] = "PASS" if passed and not record["error"] else "FAIL"
        records.write_record(base + ".json", record)
        records.write_junit(junit, record)
    print(f"record: {base}.json\nreport: {junit}\nresult: {record['result']}")
    return 0 if record["result"] == "PASS" else 1
