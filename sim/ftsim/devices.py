"""The phone's devices: what `new` makes, `unplug`/`plug` take away and give
back, and `show` prints."""
import os

from ftsim.phone import UsageError


class FileDevice:
    """A device node stood for by one file under dev/ of the phone's folder."""

    def __init__(self, name, node):
        self.name = name
        self.node = node

    def create(self, phone):
        open(phone.p("dev", self.node), "wb").close()

    def _where(self, phone):
        for d in ("dev", "unplugged"):
            if os.path.exists(phone.p(d, self.node)):
                return phone.p(d, self.node)
        return None

    def unplug(self, phone):
        if os.path.exists(phone.p("dev", self.node)):
            os.replace(phone.p("dev", self.node), phone.p("unplugged", self.node))

    def plug(self, phone):
        if os.path.exists(phone.p("unplugged", self.node)):
            os.replace(phone.p("unplugged", self.node), phone.p("dev", self.node))
        elif not os.path.exists(phone.p("dev", self.node)):
            self.create(phone)


class Watchdog(FileDevice):
    def __init__(self):
        super().__init__("watchdog", "watchdog")

    def show(self, phone):
        where = self._where(phone)
        data = open(where, "rb").read() if where else b""
        plugged = os.path.exists(phone.p("dev", self.node))
        return ["written=" + data.decode("latin-1"), f"present={'yes' if plugged else 'no'}"]


DEVICES = {d.name: d for d in (Watchdog(),)}


def get(name):
    if name not in DEVICES:
        raise UsageError(f"unknown device {name!r} (one of: {', '.join(DEVICES)})")
    return DEVICES[name]


def create_all(phone):
    for d in DEVICES.values():
        d.create(phone)
