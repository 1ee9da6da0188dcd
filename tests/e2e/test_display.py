"""The LCD patterns as the panel shows them, the drawing layer's failures, the
backlight and the LEDs, through ./ftsim."""
import os
import re
import struct
import zlib

import pytest

from conftest import REPO, Phone, ftsim, startup, transcript

TIMING = "/proc/device-tree/soc/i2c@9844000/dvo_to_mipi@E/display-timings/timing/"
BLACK, RED, GREEN, BLUE, WHITE = (0, 0, 0), (255, 0, 0), (0, 255, 0), (0, 0, 255), (255, 255, 255)


def log(line, op, msg):
    return f"libtolma (line {line} of {op} in files/src/drvFB): {msg}"


def digit_images():
    """The ten images as the build generated them: 10 x 10000 words."""
    build = os.environ.get("FTSIM_BUILD_DIR", os.path.join(REPO, "build", "host"))
    with open(os.path.join(build, "display", "digit_images.cpp")) as f:
        words = [int(w, 16) for w in re.findall(r"0x([0-9A-F]{6}),", f.read())]
    assert len(words) == 10 * 100 * 100
    return [words[d * 10000:(d + 1) * 10000] for d in range(10)]


class Picture:
    """An expected screen, RGB."""

    def __init__(self, w, h, colour=BLACK):
        self.w, self.h, self.rgb = w, h, bytearray(bytes(colour) * (w * h))

    def box(self, x0, y0, x1, y1, colour):
        for y in range(y0, y1 + 1):
            row = y * self.w
            self.rgb[(row + x0) * 3:(row + x1 + 1) * 3] = bytes(colour) * (x1 - x0 + 1)
        return self

    def cross(self, colour, frame=False):
        w, h = self.w, self.h
        self.box(w // 2, 0, w // 2, h - 1, colour).box(0, h // 2, w - 1, h // 2, colour)
        for x0, y0, x1, y1 in ((0, 0, w - 1, 0), (0, h - 1, w - 1, h - 1), (0, 0, 0, h - 1),
                               (w - 1, 0, w - 1, h - 1)) if frame else ():
            self.box(x0, y0, x1, y1, colour)
        return self

    def rows(self, bands):
        for (top, bottom), colour in bands:
            self.box(0, top, self.w - 1, bottom, colour)
        return self

    def digit(self, image, ink, left, top):
        for i, word in enumerate(image):
            if word != 0xFFFFFF:
                self.box(left + i % 100, top + i // 100, left + i % 100, top + i // 100, ink)
        return self


def assert_screen(phone, tmp_path, expected):
    """Compares the panel, through ./ftsim screenshot (one IDAT, unfiltered rows)."""
    path = tmp_path / "shot.png"
    phone.screenshot(str(path))
    data = path.read_bytes()
    w, h = struct.unpack(">II", data[16:24])
    assert (w, h) == (expected.w, expected.h)
    raw = zlib.decompress(data[41:41 + struct.unpack(">I", data[33:37])[0]])
    rgb = b"".join(raw[y * (w * 3 + 1) + 1:(y + 1) * (w * 3 + 1)] for y in range(h))
    assert rgb == expected.rgb   # pytest names the first differing byte: pixel = index // 3


# Each pattern on an even and an odd panel, the odd one at a depth the layer only
# reports; the band rows of "lcd fl 3" and the digit's corner are worked out by hand.
PANELS = [
    (("--screen", "800x480"), [(0, 159), (160, 319), (320, 479)], (350, 190), ""),
    (("--screen", "321x241", "--bpp", "16"), [(0, 79), (80, 159), (160, 240)], (110, 70),
     log(131, "init_framebuffer", "unsupported bpp (16), should be (32)\n")),
]


@pytest.mark.parametrize("options,thirds,corner,at_start", PANELS, ids=["800x480", "321x241x16"])
def test_patterns_draw_exact_pixels(tmp_path, options, thirds, corner, at_start):
    w, h = map(int, options[1].split("x"))
    digits = digit_images()
    patterns = [
        ("lcd fill 3abc", Picture(w, h, BLUE)),
        ("lcd crosshair", Picture(w, h, WHITE).cross(BLACK)),
        ("lcd invertgrid 4", Picture(w, h, WHITE).cross(BLACK, frame=True)),
        ("lcd invertgrid 1", Picture(w, h, BLACK).cross(RED, frame=True)),
        ("lcd half_filled", Picture(w, h, WHITE).box(0, 0, w // 2, h - 1, BLACK)),
        ("lcd fl 3 1 2", Picture(w, h).rows(zip(thirds, (RED, GREEN, RED)))),
        ("lcd fl 3", Picture(w, h).rows(zip(thirds, (BLACK, WHITE, BLACK)))),
        ("lcd fl 2 1", Picture(w, h, WHITE).box(0, 0, w - 1, h // 2 - 1, BLACK)),
        (f"lcd fl {h} 5 2", Picture(w, h).rows(((y, y), (WHITE, GREEN)[y % 2]) for y in range(h))),
        ("lcd_digit b 7", Picture(w, h, WHITE).digit(digits[7], BLACK, *corner)),
        ("lcd_digit W 0", Picture(w, h, BLACK).digit(digits[0], WHITE, *corner)),
    ]
    path = str(tmp_path / "phone")
    assert ftsim("new", path, *options).returncode == 0
    phone = Phone(path)
    for command, expected in patterns:
        out, rc = phone.run(command)
        assert (out, rc) == (startup(display=at_start) + transcript((command, "PASS\n"), eof=True),
                             0), command
        assert_screen(phone, tmp_path, expected)


def test_refused_arguments_leave_the_picture(phone, tmp_path):
    steps = [
        ("lcd fill 1", "PASS\n"),
        ("lcd fill 6", "FAIL Err invalid color=6\n"),
        ("lcd fill", "FAIL Err invalid color=0\n"),
        ("lcd fill x", "FAIL Err invalid color=0\n"),
        ("lcd invertgrid x", "ft: Err color=0 is out of supported range.\n"),
        ("lcd fl 0", "ft lcd_fl: Error incorrect number of bars, num_of_bars=0.\n"),
        ("lcd fl", "ft lcd_fl: Error incorrect number of bars, num_of_bars=0.\n"),
        ("lcd fl 481", "ft lcd_fl: Error incorrect number of bars, num_of_bars=481.\n"),
        ("lcd fl 3 1 9", "ft lcd_fl: Error nColor1=1, nColor2=9 are out of supported range.\n"),
        ("lcd_digit W 10", ""), ("lcd_digit X 1", ""),
        ("lcd filler 1", "Not a valid command\n"), ("lcd", "Not a valid command\n")]
    out, _ = phone.run(*(line for line, _ in steps))
    assert out == startup() + transcript(*steps, eof=True)
    assert_screen(phone, tmp_path, Picture(800, 480, RED))


# What goes wrong -> what start-up logs, what "lcd fill 2" prints, what the panel shows.
OPEN_FAILED = log(179, "open_framebuffer", "open failed, errno=2\n")
MMAP_FAILED = log(187, "open_framebuffer", "mmap failed, errno=%d\n")
NO_PANEL = "".join(log(247, "get_resolution", f"Failed to open {TIMING}{s}active") for s in "hv")
FAILURES = [
    (("unplug", "display"), log(116, "init_framebuffer", "open failed, errno=2\n") + OPEN_FAILED,
     OPEN_FAILED + "FAIL\n", Picture(800, 480)),
    (("fault", "fb-vscreeninfo"),
     log(124, "init_framebuffer", "ioctl FBIOGET_VSCREENINFO failed, errno=22\n") + MMAP_FAILED % 22,
     MMAP_FAILED % 22 + "FAIL\n", Picture(800, 480)),
    (("fault", "fb-pan"), log(146, "init_framebuffer", "ioctl FBIOPAN_DISPLAY failed, errno=22\n"),
     "PASS\n", Picture(800, 480, GREEN)),
    (("fault", "fb-mmap"), MMAP_FAILED % 12, MMAP_FAILED % 12 + "FAIL\n", Picture(800, 480)),
    # The panel's size comes from the device tree; without it the driver's size is drawn.
    (("set", "panel", "640x400"), "", "PASS\n", Picture(800, 480).box(0, 0, 639, 399, GREEN)),
    (("unplug", "panel-timings"), "", NO_PANEL + "FAIL\n", Picture(800, 480, GREEN)),
]


@pytest.mark.parametrize("verb,at_start,fill,expected", FAILURES, ids=[f[0][-1] for f in FAILURES])
def test_framebuffer_and_panel_failures(phone, tmp_path, verb, at_start, fill, expected):
    getattr(phone, verb[0])(*verb[1:])
    out, _ = phone.run("lcd fill 2")
    assert out == startup(display=at_start) + transcript(("lcd fill 2", fill), eof=True)
    assert_screen(phone, tmp_path, expected)


def test_backlight_and_leds_reach_the_library(phone):
    valid = "Valid brightness values are: [0 - 255]\n"
    out, _ = phone.run("backlight off", "rawbacklight 7", "led flash", "rawbacklight 256")
    assert out == startup() + transcript(
        ("backlight off", "PASS\n"), ("rawbacklight 7", valid + "PASS\n"), ("led flash", "PASS\n"),
        ("rawbacklight 256", valid + "FAIL\n"), eof=True)
    phone.fault("backlight-max")
    phone.fault("leds")
    out, _ = phone.run("rawbacklight 200", "backlight brightest", "led on")
    assert out == startup() + transcript(
        ("rawbacklight 200", "PASS\n"), ("backlight brightest", "FAIL\n"), ("led on", "FAIL\n"),
        eof=True)
    assert phone.show("backlight") == "power=off\nlevel=200\nmax=255\n"
    assert phone.show("leds") == "state=flash\non_ms=500\noff_ms=500\n"
