"""ftstation run PLAN.toml (--phone PHONE | --serial DEVICE | -- ARGV...) [options]"""
import argparse
import socket
import sys

from ftstation import db as stationdb
from ftstation import plan as plans
from ftstation import session
from ftstation.console import Console

USAGE = ("ftstation run PLAN.toml (--phone PHONE | --serial DEVICE | -- ARGV...) "
         "[--unit SERIAL] [--unit-index N] [--operator NAME] [--fixture NAME] [--station ID] "
         "[--records DIR] [--junit FILE] [--build host|asan|arm] [--baud N]")


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
    p.add_argument("--unit-index", type=int)
    p.add_argument("--operator")
    p.add_argument("--fixture")
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


def main(argv):
    args = parse(argv)
    today = stationdb.utc_now()[:10]
    try:
        session.check(args.plan, args.unit, args.unit_index, args.station, today)
    except (ValueError, plans.PlanError) as e:
        print(f"ftstation: {e}", file=sys.stderr)
        return 2
    session.STOPS.install()
    try:
        with stationdb.StationDB(args.records) as db:
            record = session.run_unit(
                db, args.plan, serial=args.unit, connect=lambda: connect(args),
                simulated=bool(args.phone), fixture=args.fixture, station=args.station,
                operator=args.operator, records=args.records, unit_index=args.unit_index,
                junit=args.junit)
    except (stationdb.DatabaseError, stationdb.MacError, plans.PlanError) as e:
        print(f"ftstation: {e}", file=sys.stderr)
        return 2 if isinstance(e, plans.PlanError) else 1   # the plan changed under the run
    except KeyboardInterrupt:
        print(f"ftstation: {session.STOPPED}", file=sys.stderr)
        return 130
    if record["error"]:
        print(f"ftstation: {record['error']}", file=sys.stderr)
    print(f"run: {record['id']}\nrecord: {record['record']}\nreport: {record['junit']}\n"
          f"result: {record['result']}")
    return 0 if record["result"] == "PASS" else 1
