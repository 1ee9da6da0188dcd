"""The LCD, its panel timings, the backlight and the LEDs.

- display: dev/fb0 holds the pixels, xres * yres * 4 bytes whatever depth the
  driver reports; display/fb holds the driver's geometry ("xres=", "yres=", "bpp=").
- panel-timings: the device tree's hactive and vactive cells (4 bytes, big-endian)
  under device-tree/, where the console's opens of /proc/device-tree/... land.
- backlight, leds: display/backlight and display/leds, as the simulated maker
  library keeps them.
"""
import os
import re
import struct
import zlib

from ftsim.devices import FileNode
from ftsim.phone import Phone, create_file, write_atomically
from ftsim.registry import (DEVICES, HELP, NEW_OPTIONS, SETTINGS, UsageError, add_fault,
                            phone_arg, register_verb)

TIMING = os.path.join("device-tree", "soc", "i2c@9844000", "dvo_to_mipi@E",
                      "display-timings", "timing")
MAX_SIDE = 4096


def parse_size(text):
    m = re.fullmatch(r"(\d+)x(\d+)", text or "")
    if not m or not all(0 < int(v) <= MAX_SIDE for v in m.groups()):
        raise UsageError(f"a size is WxH, each 1 to {MAX_SIDE} (not {text!r})")
    return int(m.group(1)), int(m.group(2))


def parse_bpp(text):
    if not re.fullmatch(r"\d+", text or "") or not 0 < int(text) <= 64:
        raise UsageError(f"a depth is 1 to 64 bits per pixel (not {text!r})")
    return int(text)


def read_keys(path):
    """KEY=VALUE lines of a state file, in order."""
    try:
        with open(path) as f:
            return [line.rstrip("\n") for line in f if "=" in line]
    except FileNotFoundError:
        return []


def geometry(phone):
    keys = dict(line.split("=", 1) for line in read_keys(phone.p("display", "fb")))
    return int(keys.get("xres", 0)), int(keys.get("yres", 0)), int(keys.get("bpp", 0))


def write_timings(folder, width, height):
    os.makedirs(folder, exist_ok=True)
    write_atomically(os.path.join(folder, "hactive"), struct.pack(">I", width))
    write_atomically(os.path.join(folder, "vactive"), struct.pack(">I", height))


class Display(FileNode):
    name = "display"
    node = "fb0"

    def create(self, phone, options):
        width, height = parse_size(options.get("screen"))
        bpp = parse_bpp(options.get("bpp"))
        os.makedirs(phone.p("display"), exist_ok=True)
        write_atomically(phone.p("display", "fb"),
                         f"xres={width}\nyres={height}\nbpp={bpp}\n".encode())
        with create_file(phone.p("dev", self.node)) as f:
            f.truncate(width * height * 4)

    def plug(self, phone):
        if os.path.lexists(phone.p("unplugged", self.node)):
            os.replace(phone.p("unplugged", self.node), phone.p("dev", self.node))

    def show(self, phone):
        xres, yres, bpp = geometry(phone)
        return [f"xres={xres}", f"yres={yres}", f"bpp={bpp}",
                "present=" + ("yes" if self.plugged(phone) else "no")]


class PanelTimings:
    name = "panel-timings"

    def create(self, phone, options):
        write_timings(phone.p(TIMING), *parse_size(options.get("screen")))

    def unplug(self, phone):
        if os.path.isdir(phone.p(TIMING)):
            os.replace(phone.p(TIMING), phone.p("unplugged", self.name))

    def plug(self, phone):
        if os.path.isdir(phone.p("unplugged", self.name)):
            os.replace(phone.p("unplugged", self.name), phone.p(TIMING))

    def show(self, phone):
        lines = []
        for key in ("hactive", "vactive"):
            try:
                with open(phone.p(TIMING, key), "rb") as f:
                    data = f.read(4)
                lines.append(f"{key}={struct.unpack('>I', data)[0] if len(data) == 4 else ''}")
            except FileNotFoundError:
                lines.append(f"{key}=")
        return lines + ["present=" + ("yes" if os.path.isdir(phone.p(TIMING)) else "no")]


class StateFile:
    """A device whose whole state is one KEY=VALUE file under display/."""
    name = None
    initial = None

    def create(self, phone, options):
        os.makedirs(phone.p("display"), exist_ok=True)
        write_atomically(phone.p("display", self.name), self.initial.encode())

    def show(self, phone):
        return read_keys(phone.p("display", self.name))


class Backlight(StateFile):
    name = "backlight"
    initial = "power=on\nlevel=128\nmax=255\n"


class Leds(StateFile):
    name = "leds"
    initial = "state=off\non_ms=0\noff_ms=0\n"


for _dev in (Display(), PanelTimings(), Backlight(), Leds()):
    DEVICES[_dev.name] = _dev

NEW_OPTIONS["--screen"] = ("--screen WxH", "800x480")
NEW_OPTIONS["--bpp"] = ("--bpp N", "32")
HELP["option", "--screen"] = "the panel's size, for the framebuffer driver and the device tree"
HELP["option", "--bpp"] = "the depth the driver reports (the file holds 4 bytes a pixel)"
HELP["device", "display"] = "the framebuffer /dev/graphics/fb0: xres=, yres=, bpp=, present="
HELP["device", "panel-timings"] = "the device tree's panel size: hactive=, vactive=, present="
HELP["device", "backlight"] = "power=on|off, level=, max="
HELP["device", "leds"] = "state=on|off|flash, on_ms=, off_ms="

add_fault("fb-vscreeninfo", "reading the screen's geometry fails (EINVAL)")
add_fault("fb-pan", "panning the framebuffer fails (EINVAL)")
add_fault("fb-mmap", "mapping the framebuffer fails (ENOMEM)")
add_fault("backlight", "every backlight call fails")
add_fault("backlight-max", "the maximum brightness is unknown")
add_fault("leds", "the LED calls fail")


def set_panel(phone, value):
    """Changes the device tree's panel size only; the driver keeps its geometry."""
    folder = phone.p(TIMING)
    if not os.path.isdir(folder) and os.path.isdir(phone.p("unplugged", "panel-timings")):
        folder = phone.p("unplugged", "panel-timings")
    write_timings(folder, *parse_size(value))


SETTINGS["panel"] = ("panel WxH", set_panel)
HELP["setting", "panel"] = "the device tree's panel size only; the driver keeps its own"


def png(width, height, rgb, level=6):
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data)))
    stride = width * 3
    raw = b"".join(b"\0" + rgb[y * stride:(y + 1) * stride] for y in range(height))
    return (b"\x89PNG\r\n\x1a\n" +
            chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(raw, level)) + chunk(b"IEND", b""))


def panel(phone):
    """(width, height, RGB bytes) of the framebuffer: each word 0x??RRGGBB as
    that red, green and blue."""
    xres, yres, _ = geometry(phone)
    if not xres or not yres:
        raise UsageError(f"{phone.path}: the phone has no display geometry")
    words = DEVICES["display"].read(phone)[:xres * yres * 4].ljust(xres * yres * 4, b"\0")
    rgb = bytearray(xres * yres * 3)
    rgb[0::3] = words[2::4]   # little-endian words: blue, green, red, unused
    rgb[1::3] = words[1::4]
    rgb[2::3] = words[0::4]
    return xres, yres, bytes(rgb)


@register_verb("screenshot", "what the panel shows, as an 8-bit RGB PNG")
def setup_screenshot(parser):
    """Each word 0x??RRGGBB of the framebuffer as that red, green and blue."""
    phone_arg(parser)
    parser.add_argument("file", metavar="FILE.png", help="the picture to write")

    def run(args):
        xres, yres, rgb = panel(Phone(args.phone).require())
        write_atomically(args.file, png(xres, yres, rgb))
    return run
