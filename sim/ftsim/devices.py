"""Shared shapes of simulated devices."""
import os

from ftsim.phone import create_file


class FileNode:
    """A device node stood for by one file (or FIFO, or folder) under dev/.
    Unplugging moves it to unplugged/, so its record survives; plugging moves it back."""
    name = None
    node = None

    def create(self, phone, options):
        create_file(phone.p("dev", self.node)).close()

    def plugged(self, phone):
        return os.path.lexists(phone.p("dev", self.node))

    def read(self, phone):
        for d in ("dev", "unplugged"):
            try:
                with open(phone.p(d, self.node), "rb") as f:
                    return f.read()
            except FileNotFoundError:
                pass
        return b""

    def unplug(self, phone):
        if self.plugged(phone):
            os.replace(phone.p("dev", self.node), phone.p("unplugged", self.node))

    def plug(self, phone):
        if os.path.lexists(phone.p("unplugged", self.node)):
            os.replace(phone.p("unplugged", self.node), phone.p("dev", self.node))
        elif not self.plugged(phone):
            self.create(phone, {})
