"""/dev/watchdog: a file under dev/ that keeps every byte the console writes."""
from ftsim.devices import FileNode
from ftsim.registry import HELP, device


@device
class Watchdog(FileNode):
    name = "watchdog"
    node = "watchdog"

    def show(self, phone):
        data = self.read(phone)
        return ["written=" + data.decode("latin-1"),
                "present=" + ("yes" if self.plugged(phone) else "no")]


HELP["device", "watchdog"] = "/dev/watchdog: written= the bytes written, present="
