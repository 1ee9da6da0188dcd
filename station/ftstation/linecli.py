"""ftstation line-init URL, and ftstation upload (STATION.toml | --records DIR --line URL)."""
import argparse
import socket
import sys

from ftstation import db as stationdb
from ftstation import line
from ftstation.uploader import BATCH, Uploader

USAGE = ("ftstation line-init URL\n"
         "       ftstation upload STATION.toml\n"
         "       ftstation upload --records DIR --line URL [--station ID]")


def main(argv):
    p = argparse.ArgumentParser(prog="ftstation", usage=USAGE)
    p.add_argument("verb", choices=["line-init", "upload"])
    p.add_argument("target", nargs="?")
    p.add_argument("--records")
    p.add_argument("--line")
    p.add_argument("--station", default=socket.gethostname())
    p.add_argument("--batch", type=int, default=BATCH)
    args = p.parse_args(argv)
    try:
        if args.verb == "line-init":
            if not args.target:
                p.error("line-init needs the line database's URL")
            return init(args.target)
        return upload(args, p)
    except line.BadURL as e:
        print(f"ftstation: {e}", file=sys.stderr)
        return 2
    except (line.LineError, stationdb.DatabaseError) as e:
        print(f"ftstation: {e}", file=sys.stderr)
        return 1


def init(url):
    before, now = line.init(url)
    where = line.describe(url)
    print(f"line database {where}: schema version {now}" +
          (" (already up to date)" if before == now else f" (was {before})"))
    return 0


def station_line(path):
    """(records, url, station id, MAC block) of a station file with a [line] table."""
    from ftstation import stationfile
    try:
        config = stationfile.load(path)
    except stationfile.StationFileError as e:
        raise line.BadURL(str(e)) from None
    if not config.line:
        raise line.BadURL(f"{path}: the station file names no [line] database")
    return config.records, config.line.database, config.id, config.mac_block


def upload(args, p):
    if args.target:
        records, url, station, block = station_line(args.target)
    elif args.records and args.line:
        records, url, station, block = args.records, line.check_url(args.line), args.station, None
    else:
        p.error("give STATION.toml, or --records DIR and --line URL")
    stationdb.StationDB(records).close()          # made and brought up to date
    uploader = Uploader(records, url, station, block, batch=max(1, args.batch))
    failed = False
    try:
        uploader.drain()
    except line.LineError as e:
        print(f"ftstation: {e}", file=sys.stderr)
        failed = True
    finally:
        status = uploader.status()
        uploader.stop()
    print(f"{uploader.went} runs uploaded, {status['queued']} left")
    if failed:
        return 1
    for c in status["conflicts"]:
        print(f"conflict: {c['text']} (found {c['found']})")
    return 0
