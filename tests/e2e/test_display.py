"""The LCD patterns as the panel shows them, the drawing layer's failures, the
backlight and the LEDs, through ./ftsim."""
import os
import re
import struct
import zlib

import pytest

from conftest import BUILD, REPO, Phone, ftsim, startup, transcript

TIMING = "/proc/device-tree/soc/i2c@9844000/dvo_to_mipi@E/display-timings/timing/"
BLACK, RED, GREEN, BLUE, WHITE = (0, 0, 0), (255, 0, 0), (0, 255, 0), (0, 0, 255), (255, 255, 255)


def log(line, op, msg):
    return f"libtolma (line {line} of {op} in files/src/drvFB): {msg}"


def picture(w, h, background, boxes=()):
    """An expected screen, RGB: the background, then each (x0, y0, x1, y1, colour) box."""
    rgb = bytearray(bytes(background) * (w * h))
    for x0, y0, x1, y1, colour in boxes:
        for y in range(y0, y1 + 1):
            rgb[(y * w + x0) * 3:(y * w + x1 + 1) * 3] = bytes(colour) * (x1 - x0 + 1)
    return rgb


def assert_screen(phone, tmp_path, expected):
    """Compares the panel, through ./ftsim screenshot (one IDAT, unfiltered rows)."""
    path = tmp_path / "shot.png"
    phone.screenshot(str(path))
    data = path.read_bytes()
    w, h = struct.unpack(">II", data[16:24])
    raw = zlib.decompress(data[41:41 + struct.unpack(">I", data[33:37])[0]])
    rgb = b"".join(raw[y * (w * 3 + 1) + 1:(y + 1) * (w * 3 + 1)] for y in range(h))
    assert rgb == expected   # pytest names the first differing byte: pixel = index // 3


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
    build = os.environ.get(f"FTSIM_BUILD_DIR_{BUILD.upper()}", os.path.join(REPO, "build", BUILD))
    with open(os.path.join(build, "display", "digit_images.cpp")) as f:   # as the build made them
        words = [int(v, 16) for v in re.findall(r"0x([0-9A-F]{6}),", f.read())]

    def cross(c, frame=False):
        edges = [(0, 0, w - 1, 0, c), (0, h - 1, w - 1, h - 1, c), (0, 0, 0, h - 1, c),
                 (w - 1, 0, w - 1, h - 1, c)]
        return [(w // 2, 0, w // 2, h - 1, c), (0, h // 2, w - 1, h // 2, c)] + edges * frame

    def bands(rows, colours):
        return [(0, top, w - 1, bottom, c) for (top, bottom), c in zip(rows, colours)]

    def digit(d, ink):   # image d: 100 x 100 words, ink wherever the word is not white
        x0, y0 = corner
        return [(x0 + i % 100, y0 + i // 100, x0 + i % 100, y0 + i // 100, ink)
                for i, word in enumerate(words[d * 10000:(d + 1) * 10000]) if word != 0xFFFFFF]

    patterns = [
        ("lcd fill 3abc", picture(w, h, BLUE)),
        ("lcd crosshair", picture(w, h, WHITE, cross(BLACK))),
        ("lcd invertgrid 4", picture(w, h, WHITE, cross(BLACK, frame=True))),
        ("lcd invertgrid 1", picture(w, h, BLACK, cross(RED, frame=True))),
        ("lcd half_filled", picture(w, h, WHITE, [(0, 0, w // 2, h - 1, BLACK)])),
        ("lcd fl 3 1 2", picture(w, h, BLACK, bands(thirds, (RED, GREEN, RED)))),
        ("lcd fl 3", picture(w, h, BLACK, bands(thirds, (BLACK, WHITE, BLACK)))),
        ("lcd fl 2 1", picture(w, h, WHITE, [(0, 0, w - 1, h // 2 - 1, BLACK)])),
        (f"lcd fl {h} 5 2",
         picture(w, h, BLACK, bands([(y, y) for y in range(h)], (WHITE, GREEN) * h))),
        ("lcd_digit b 7", picture(w, h, WHITE, digit(7, BLACK))),
        ("lcd_digit W 0", picture(w, h, BLACK, digit(0, WHITE))),
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
    assert_screen(phone, tmp_path, picture(800, 480, RED))


# What goes wrong -> what start-up logs, what "lcd fill 2" prints, what it draws on black.
OPEN_FAILED = log(179, "open_framebuffer", "open failed, errno=2\n")
MMAP_FAILED = log(187, "open_framebuffer", "mmap failed, errno=%d\n")
NO_PANEL = "".join(log(247, "get_resolution", f"Failed to open {TIMING}{s}active") for s in "hv")
FULL = [(0, 0, 799, 479, GREEN)]
FAILURES = [
    (("unplug", "display"), log(116, "init_framebuffer", "open failed, errno=2\n") + OPEN_FAILED,
     OPEN_FAILED + "FAIL\n", []),
    (("fault", "fb-vscreeninfo"),
     log(124, "init_framebuffer", "ioctl FBIOGET_VSCREENINFO failed, errno=22\n") +
     MMAP_FAILED % 22, MMAP_FAILED % 22 + "FAIL\n", []),
    (("fault", "fb-pan"), log(146, "init_framebuffer", "ioctl FBIOPAN_DISPLAY failed, errno=22\n"),
     "PASS\n", FULL),
    (("fault", "fb-mmap"), MMAP_FAILED % 12, MMAP_FAILED % 12 + "FAIL\n", []),
    # The panel's size comes from the device tree; without it the driver's size is drawn.
    (("set", "panel", "640x400"), "", "PASS\n", [(0, 0, 639, 399, GREEN)]),
    (("unplug", "panel-timings"), "", NO_PANEL + "FAIL\n", FULL),
]


@pytest.mark.parametrize("verb,at_start,fill,drawn", FAILURES, ids=[f[0][-1] for f in FAILURES])
def test_framebuffer_and_panel_failures(phone, tmp_path, verb, at_start, fill, drawn):
    getattr(phone, verb[0])(*verb[1:])
    out, _ = phone.run("lcd fill 2")
    assert out == startup(display=at_start) + transcript(("lcd fill 2", fill), eof=True)
    assert_screen(phone, tmp_path, picture(800, 480, BLACK, drawn))


def test_backlight_and_leds_reach_the_library(phone):
    valid = "Valid brightness values are: [0 - 255]\n"
    out, _ = phone.run("backlight off", "rawbacklight 7", "led flash", "rawbacklight 256")
    assert out == startup() + transcript(
        ("backlight off", "PASS\n"), ("rawbacklight 7", valid + "PASS\n"), ("led flash", "PASS\n"),
        ("rawbacklight 256", valid + "FAIL\n"), eof=True)
    assert phone.show("backlight") == "power=off\nlevel=7\nmax=255\n"
    assert phone.show("leds") == "state=flash\non_ms=500\noff_ms=500\n"
