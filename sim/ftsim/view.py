"""`ftsim view PHONE [--port N]`: the phone as a live web page on 127.0.0.1.

The page (view.html, served with a token of this run) shows the panel as the
backlight lights it, the LEDs, the handset's accessories, audio, the tool log,
the store and what is unplugged or faulted. It learns of changes through
server-sent events: a watcher reads the phone's change counter (run/changes),
which the simulated libraries, the preload library and the ftsim verbs bump.
Its buttons post actions that run the ftsim verbs themselves."""
import contextlib
import hmac
import io
import json
import os
import re
import secrets
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from urllib.parse import urlsplit

from ftsim import dev_display, dev_input, runs
from ftsim.phone import Phone
from ftsim.registry import DEVICES, UsageError, phone_arg, register_verb

PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "view.html")
DEFAULT_PORT = 8080
# The counter is read 25 times a second, for a redraw within 100 ms. Whether a
# console runs is asked at every change (a starting console writes its state at
# once) and every second (one that ends writes nothing).
WATCH_SECONDS = 0.04
CONSOLE_ROUNDS = 25
KEEPALIVE_SECONDS = 15
TAIL_LINES = 20
# The verbs the page may run; each checks its own words as on the command line.
ACTIONS = ("key", "jack", "jackkey", "hook", "ehs", "cradle")
MAX_BODY = 1024


def console_pid(phone):
    """The running console's host process id, or None."""
    run = runs.current(phone)
    return run.pid if run else None


def keys(lines):
    return dict(line.split("=", 1) for line in lines if "=" in line)


def tail(path, n=TAIL_LINES):
    try:
        with open(path, "rb") as f:
            f.seek(max(0, os.fstat(f.fileno()).st_size - 64 * 1024))
            return f.read().decode("utf-8", "backslashreplace").splitlines()[-n:]
    except FileNotFoundError:
        return []


# The devices whose state the page shows, besides those that can be unplugged.
SHOWN = ("backlight", "leds", "accessories", "pcm", "mixer")


def state(phone):
    """Everything the page shows but the panel, from the devices' own show()."""
    show = {name: keys(dev.show(phone)) for name, dev in DEVICES.items()
            if hasattr(dev, "show") and (name in SHOWN or hasattr(dev, "unplug"))}
    mixer = show.get("mixer", {})
    xres, yres, _ = dev_display.geometry(phone)
    pid = console_pid(phone)
    return {
        "console": pid is not None, "pid": pid, "width": xres, "height": yres,
        "backlight": show.get("backlight", {}), "leds": show.get("leds", {}),
        "accessories": show.get("accessories", {}), "pcm": show.get("pcm", {}),
        "paths": [n for n, v in mixer.items() if n.endswith("Switch") and re.search(r"[1-9]", v)],
        "tools": tail(phone.p("log", "tools")), "calls": tail(phone.p("log", "calls")),
        "store": [line.split("=", 1) for line in DEVICES["store"].show(phone)],
        "absent": sorted(n for n, s in show.items() if s.get("present") == "no"),
        "faults": sorted(os.listdir(phone.p("faults"))),
    }


def lit_panel(phone):
    """The panel as the backlight lights it: each channel value * level / max,
    rounded down; black with the power off or the level at 0."""
    width, height, rgb = dev_display.panel(phone)
    b = keys(DEVICES["backlight"].show(phone))
    try:
        power, level, top = b.get("power") == "on", int(b.get("level", 0)), int(b.get("max", 0))
    except ValueError:
        power, level, top = False, 0, 0
    if not power or level <= 0 or top <= 0:
        table = bytes(256)
    else:
        table = bytes(min(255, v * level // top) for v in range(256))
    return dev_display.png(width, height, rgb.translate(table), level=1)


class Watcher(threading.Thread):
    """Counts generations: one more each time the change counter or the
    running console changes. Readers wait on `changed`."""

    def __init__(self, phone):
        super().__init__(daemon=True)
        self.phone, self.generation = phone, 0
        self.changed = threading.Condition()

    def run(self):
        seen, rounds = (None, None), 0
        while True:
            count = self.phone.changes()
            console = seen[1]
            if count != seen[0] or rounds % CONSOLE_ROUNDS == 0:
                console = console_pid(self.phone)
            if (count, console) != seen:
                seen = (count, console)
                with self.changed:
                    self.generation += 1
                    self.changed.notify_all()
            rounds += 1
            time.sleep(WATCH_SECONDS)

    def wait(self, generation, timeout):
        with self.changed:
            self.changed.wait_for(lambda: self.generation != generation, timeout)
            return self.generation


class Handler(BaseHTTPRequestHandler):
    server_version = "ftsim-view"
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def allowed(self):
        # The token only helps if no other page can read it: a foreign Host
        # (another site, or a DNS name rebound to 127.0.0.1) gets nothing.
        if self.headers.get("Host") in self.server.hosts:
            return True
        self.reply(403, "text/plain", b"forbidden\n")
        return False

    def reply(self, status, kind, body):
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Cache-Control", "no-store")
        self.send_header("X-Frame-Options", "DENY")
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        if not self.allowed():
            return
        phone, path = self.server.phone, urlsplit(self.path).path
        if path == "/":
            self.reply(200, "text/html; charset=utf-8", self.server.page)
        elif path == "/state":
            body = dict(state(phone), generation=self.server.watcher.generation)
            self.reply(200, "application/json", json.dumps(body).encode())
        elif path == "/panel.png":
            try:
                self.reply(200, "image/png", lit_panel(phone))
            except UsageError as e:
                self.reply(404, "text/plain", f"{e}\n".encode())
        elif path == "/pcm.wav":
            try:
                with open(phone.p("log", "pcmC1D5p.wav"), "rb") as f:
                    self.reply(200, "audio/wav", f.read())
            except FileNotFoundError:
                self.reply(404, "text/plain", b"nothing played yet\n")
        elif path == "/events":
            self.events()
        else:
            self.reply(404, "text/plain", b"not found\n")

    def events(self):
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Cache-Control", "no-store")
        self.end_headers()
        self.close_connection = True
        watcher, generation = self.server.watcher, None
        try:
            while True:
                now = watcher.wait(generation, KEEPALIVE_SECONDS)
                self.wfile.write(f"data: {now}\n\n".encode() if now != generation else b": idle\n\n")
                self.wfile.flush()
                generation = now
        except OSError:
            pass   # the page went away

    def do_POST(self):
        self.close_connection = True   # a refused body is never read: nothing may follow it
        if not self.allowed():
            return
        if urlsplit(self.path).path != "/action":
            return self.reply(404, "text/plain", b"not found\n")
        token = self.headers.get("X-View-Token", "")
        if not hmac.compare_digest(token.encode(), self.server.token.encode()):
            return self.reply(403, "text/plain", b"forbidden\n")
        try:
            length = int(self.headers.get("Content-Length", ""))
            if not 0 <= length <= MAX_BODY:
                raise ValueError
            words = json.loads(self.rfile.read(length))
            if (not isinstance(words, list) or not 1 <= len(words) <= 3 or words[0] not in ACTIONS
                    or not all(isinstance(w, str) and 0 < len(w) <= 32 and w[0] != "-"
                               for w in words)):
                raise ValueError
        except ValueError:
            return self.reply(400, "text/plain", b"an action is a JSON list: verb, words\n")
        status, message = self.server.act(words[0], words[1:])
        self.reply(200 if status == 0 else 409, "application/json",
                   json.dumps({"status": status, "message": message}).encode())


class ViewServer(ThreadingHTTPServer):
    daemon_threads = True

    def __init__(self, phone, port):
        super().__init__(("127.0.0.1", port), Handler)
        self.phone, self.token = phone, secrets.token_urlsafe(24)
        bound = self.server_address[1]
        self.hosts = {f"127.0.0.1:{bound}", f"localhost:{bound}"}
        self.url = f"http://127.0.0.1:{bound}/"
        self.watcher = Watcher(phone)
        self.lock = threading.Lock()
        config = {"token": self.token, "phone": phone.path,
                  "keys": dev_input.KEYPAD_KEYS, "buttons": list(dev_input.JACK_BUTTONS)}
        with open(PAGE, encoding="utf-8") as f:
            page = f.read()
        # Inside a <script> element: no "</" may end it early.
        self.page = page.replace("{{CONFIG}}", json.dumps(config).replace("</", "<\\/")).encode()

    def act(self, verb, words):
        """Runs `ftsim VERB PHONE WORDS...` in this process, through the command
        line's own parser: (exit status, what it printed). One at a time, so
        each sees its own messages."""
        from ftsim import cli
        with self.lock, contextlib.redirect_stderr(io.StringIO()) as err, \
                contextlib.redirect_stdout(io.StringIO()) as out:
            status = cli.main([verb, self.phone.path, *words])
        return status, (err.getvalue() + out.getvalue()).strip()


def port_number(word):
    if not re.fullmatch(r"\d{1,5}", word) or int(word) > 65535:
        raise UsageError(f"a port is 0 to 65535 (not {word!r})")
    return int(word)


@register_verb("view", "the phone as a live web page on 127.0.0.1, until Ctrl+C")
def setup_view(parser):
    phone_arg(parser)
    parser.add_argument("--port", default=str(DEFAULT_PORT), metavar="N",
                        help=f"the port (default {DEFAULT_PORT}; 0: any free one)")

    def run(args):
        port = port_number(args.port)
        phone = Phone(args.phone).require()
        try:
            server = ViewServer(phone, port)
        except OSError as e:
            raise UsageError(f"cannot listen on 127.0.0.1:{port}: {e.strerror}") from None
        server.watcher.start()
        print(server.url, flush=True)
        try:
            server.serve_forever(poll_interval=3600)
        except KeyboardInterrupt:
            pass
        finally:
            server.server_close()
    return run
