"""ftstation serve STATION.toml [--port N] [--listen ADDR]: the operator page
and the station's JSON API, over the standard library's HTTP server. Every
request goes to the Station object; this layer checks who asks and renders."""
import argparse
import datetime
import functools
import hmac
import json
import os
import re
import secrets
import signal
import socket
import sys
import threading
import urllib.parse
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

from ftstation import report, stationfile
from ftstation.db import DatabaseError
from ftstation.station import HISTORY, Refused, Station

USAGE = "ftstation serve STATION.toml [--port N] [--listen ADDR] [--build host|asan|arm]"
PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "station.html")
MAX_BODY = 65536
KEEPALIVE = 15               # seconds between comments on a quiet event stream
API = re.compile(r"/api/fixtures/([^/]+)/(start|confirm|abort)")
FILES = re.compile(r"/files/([0-9A-Za-z-]+)/(record|junit)")


class Handler(BaseHTTPRequestHandler):
    server_version = "ftstation"
    protocol_version = "HTTP/1.0"

    def log_message(self, *args):
        pass                 # the station's output is its address line, nothing else

    # --- answers ---------------------------------------------------------------

    def reply(self, code, kind, body, headers=()):
        self.send_response(code)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Cache-Control", "no-store")
        for name, value in headers:
            self.send_header(name, value)
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def json(self, code, value):
        self.reply(code, "application/json", (json.dumps(value) + "\n").encode())

    def error(self, code, text):
        self.json(code, {"error": text})

    # --- who asks ----------------------------------------------------------------

    def allowed(self, query_token):
        """The Host must be the station's own (a page elsewhere cannot reach it
        through a name it controls), and the token must come with the request."""
        if self.headers.get("Host", "").lower() not in self.server.hosts:
            self.error(403, "foreign host")
            return False
        given = ""
        auth = self.headers.get("Authorization", "")
        if auth.startswith("Bearer "):
            given = auth[len("Bearer "):].strip()
        elif query_token:
            given = urllib.parse.parse_qs(self.query).get("token", [""])[0]
        if not hmac.compare_digest(given.encode(), self.server.token.encode()):
            self.error(403, "missing or wrong token")
            return False
        return True

    def parse(self):
        self.path_only, _, self.query = self.path.partition("?")

    # --- requests ----------------------------------------------------------------

    def do_GET(self):
        self.parse()
        path, station = self.path_only, self.server.station
        page_side = path in ("/", "/events", "/report") or FILES.fullmatch(path)
        if not self.allowed(query_token=page_side):
            return
        if path == "/":
            return self.reply(200, "text/html; charset=utf-8", operator_page())
        if path == "/events":
            return self.events()
        if path == "/report":
            return self.today()
        if path == "/api/status":
            return self.json(200, station.status())
        if path == "/api/runs":
            limit = urllib.parse.parse_qs(self.query).get("limit", [str(HISTORY)])[0]
            if not limit.isdigit() or not 1 <= int(limit) <= 1000:
                return self.error(400, "limit is a number from 1 to 1000")
            return self.json(200, station.runs(int(limit)))
        m = FILES.fullmatch(path)
        if m:
            found = station.file_of(m[1], m[2])
            if found is None:
                return self.error(404, f"no {m[2]} for run {m[1]}")
            with open(found, "rb") as f:
                kind = "application/json" if m[2] == "record" else "application/xml"
                return self.reply(200, kind, f.read())
        self.error(404, f"no such page {path}")

    def do_POST(self):
        self.parse()
        if not self.allowed(query_token=False):
            return
        m = API.fullmatch(self.path_only)
        if not m:
            return self.error(404, f"no such call {self.path_only}")
        name, verb = urllib.parse.unquote(m[1]), m[2]
        try:
            body = self.body()
            station = self.server.station
            if verb == "start":
                return self.json(202, station.start(name, body.get("serial")))
            if verb == "confirm":
                if not isinstance(body.get("ok"), bool):
                    raise Refused(400, 'confirm takes {"ok": true} or {"ok": false}')
                station.confirm(name, body["ok"])
                return self.json(200, {"fixture": name, "ok": body["ok"]})
            station.abort(name)
            return self.json(202, {"fixture": name})
        except Refused as e:
            return self.error(e.code, str(e))

    def body(self):
        try:
            length = int(self.headers.get("Content-Length") or 0)
        except ValueError:
            raise Refused(400, "bad Content-Length") from None
        if not 0 <= length <= MAX_BODY:
            raise Refused(400, f"a body of {MAX_BODY} bytes at most")
        raw = self.rfile.read(length) if length else b"{}"
        try:
            value = json.loads(raw or b"{}")
        except ValueError:
            raise Refused(400, "the body is not JSON") from None
        if not isinstance(value, dict):
            raise Refused(400, "the body is a JSON object")
        return value

    def today(self):
        """Today's yield report of this station, made now: the runs since local midnight."""
        station = self.server.station
        midnight = datetime.datetime.combine(datetime.date.today(), datetime.time()).astimezone()
        try:
            page, _ = report.render(os.path.join(station.config.records, "station.db"),
                                    since=midnight.isoformat(), station=station.config.id,
                                    title=f"{station.config.id}: today's yield report")
        except report.ReportError as e:
            return self.error(503, str(e))
        self.reply(200, "text/html; charset=utf-8", page.encode())

    def events(self):
        """Server-sent events: the whole state at once, then again after every
        change. The thread sleeps on the station's condition in between."""
        station = self.server.station
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Cache-Control", "no-store")
        self.end_headers()
        version, history = None, None
        try:
            while not station.stopping:
                now = station.wait(version, KEEPALIVE)
                if now == version:
                    self.wfile.write(b": quiet\n\n")
                    self.wfile.flush()
                    continue
                status = station.status()
                version = status["version"]
                if station.history_version != history:
                    history = station.history_version
                    status["runs"] = station.runs(HISTORY)
                self.wfile.write(b"data: " + json.dumps(status).encode() + b"\n\n")
                self.wfile.flush()
        except OSError:
            pass             # the page went away


@functools.cache
def operator_page():
    """station.html, read at its first request and kept."""
    with open(PAGE, "rb") as f:
        return f.read()


class Server(ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_address = True


def hosts(listen, port):
    names = {"127.0.0.1", "localhost", listen, socket.gethostname(), socket.getfqdn()}
    out = set()
    for name in names:
        name = name.lower()
        out.add(f"[{name}]:{port}" if ":" in name else f"{name}:{port}")
    return out


def parse(argv):
    p = argparse.ArgumentParser(prog="ftstation", usage=USAGE)
    p.add_argument("verb", choices=["serve"])
    p.add_argument("station")
    p.add_argument("--port", type=int, default=8081)
    p.add_argument("--listen", default="127.0.0.1")
    p.add_argument("--build", default="host")
    args = p.parse_args(argv)
    if not 0 <= args.port <= 65535:
        p.error("--port is 0 to 65535")
    return args


def main(argv):
    args = parse(argv)
    try:
        config = stationfile.load(args.station)
    except stationfile.StationFileError as e:
        print(f"ftstation: {e}", file=sys.stderr)
        return 2
    try:
        station = Station(config, build=args.build)
    except (Refused, DatabaseError, OSError) as e:
        print(f"ftstation: {e}", file=sys.stderr)
        return 1
    stop = threading.Event()
    for sig in (signal.SIGINT, signal.SIGTERM):
        signal.signal(sig, lambda *_: stop.set())
    try:
        family = socket.AF_INET6 if ":" in args.listen else socket.AF_INET
        Server.address_family = family
        server = Server((args.listen, args.port), Handler)
    except OSError as e:
        station.stop()
        print(f"ftstation: cannot listen on {args.listen}:{args.port}: {e.strerror}",
              file=sys.stderr)
        return 1
    port = server.server_address[1]
    server.station, server.token = station, secrets.token_urlsafe(24)
    server.hosts = hosts(args.listen, port)
    threading.Thread(target=server.serve_forever, name="http", daemon=True).start()
    print(f"http://127.0.0.1:{port}/?token={server.token}", flush=True)
    while not stop.wait(3600):
        pass
    station.stop()
    server.shutdown()
    server.server_close()
    return 0
