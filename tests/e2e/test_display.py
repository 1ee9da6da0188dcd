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


NO_PANEL = (log(247, "get_resolution", f"Failed to open {TIMING}hactive") +
            log(247, "get_resolution", f"Failed to open {TIMING}vactive"))


def new_phone(tmp_path, *options):
    path = str(tmp_path / "phone")
    r = ftsim("new", path, *options)
    assert r.returncode == 0, r.stderr
    return Phone(path)


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
        self.w, self.h = w, h
        self.rgb = bytearray(bytes(colour) * (w * h))

    def box(self, x0, y0, x1, y1, colour):
        for y in range(y0, y1 + 1):
            self.rgb[(y * self.w + x0) * 3:(y * self.w + x1 + 1) * 3] = bytes(colour) * (x1 - x0 + 1)
        return self

    def frame(self, colour):
        return (self.box(0, 0, self.w - 1, 0, colour).box(0, self.h - 1, self.w - 1, self.h - 1, colour)
                .box(0, 0, 0, self.h - 1, colour).box(self.w - 1, 0, self.w - 1, self.h - 1, colour))

    def cross(self, colour):
        return (self.box(self.w // 2, 0, self.w // 2, self.h - 1, colour)
                .box(0, self.h // 2, self.w - 1, self.h // 2, colour))

    def rows(self, bands):
        for (top, bottom), colour in bands:
            self.box(0, top, self.w - 1, bottom, colour)
        return self

    def digit(self, image, ink, left, top):
        for r in range(100):
            for k in range(100):
                if image[r * 100 + k] != 0xFFFFFF:
                    self.box(left + k, top + r, left + k, top + r, ink)
        return self


def screen(phone, tmp_path):
    """The panel through ./ftsim screenshot, decoded."""
    path = str(tmp_path / "shot.png")
    phone.screenshot(path)
    with open(path, "rb") as f:
        data = f.read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    pos, idat, header = 8, b"", None
    while pos < len(data):
        n, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + n]
        assert struct.unpack(">I", data[pos + 8 + n:pos + 12 + n])[0] == zlib.crc32(kind + body)
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat += body
        pos += 12 + n
    w, h, depth, colour_type = header[:4]
    assert (depth, colour_type) == (8, 2)
    raw = zlib.decompress(idat)
    rows = [raw[y * (w * 3 + 1):(y + 1) * (w * 3 + 1)] for y in range(h)]
    assert all(row[0] == 0 for row in rows)
    return w, h, b"".join(row[1:] for row in rows)


def assert_screen(phone, tmp_path, expected):
    w, h, rgb = screen(phone, tmp_path)
    assert (w, h) == (expected.w, expected.h)
    if rgb != bytes(expected.rgb):
        i = next(i for i in range(0, len(rgb), 3) if rgb[i:i + 3] != expected.rgb[i:i + 3])
        pytest.fail(f"pixel ({i // 3 % w}, {i // 3 // w}) is {tuple(rgb[i:i + 3])}, "
                    f"expected {tuple(expected.rgb[i:i + 3])}")


# Each pattern on an even and an odd panel; the band rows are worked out by hand.
SIZES = {
    "800x480": {"thirds": [(0, 159), (160, 319), (320, 479)], "digit": (350, 190)},
    "321x241": {"thirds": [(0, 79), (80, 159), (160, 240)], "digit": (110, 70)},
}


@pytest.mark.parametrize("size", SIZES)
def test_patterns_draw_exact_pixels(tmp_path, size):
    w, h = map(int, size.split("x"))
    thirds, (dx, dy) = SIZES[size]["thirds"], SIZES[size]["digit"]
    digits = digit_images()
    patterns = [
        ("lcd fill 3abc", Picture(w, h, BLUE)),
        ("lcd crosshair", Picture(w, h, WHITE).cross(BLACK)),
        ("lcd invertgrid 4", Picture(w, h, WHITE).cross(BLACK).frame(BLACK)),
        ("lcd invertgrid 1", Picture(w, h, BLACK).cross(RED).frame(RED)),
        ("lcd half_filled", Picture(w, h, WHITE).box(0, 0, w // 2, h - 1, BLACK)),
        ("lcd fl 3 1 2", Picture(w, h).rows(zip(thirds, (RED, GREEN, RED)))),
        ("lcd fl 3", Picture(w, h).rows(zip(thirds, (BLACK, WHITE, BLACK)))),
        ("lcd fl 2 1", Picture(w, h, WHITE).box(0, 0, w - 1, h // 2 - 1, BLACK)),
        (f"lcd fl {h} 5 2", Picture(w, h).rows(((y, y), WHITE if y % 2 == 0 else GREEN)
                                               for y in range(h))),
        ("lcd_digit b 7", Picture(w, h, WHITE).digit(digits[7], BLACK, dx, dy)),
        ("lcd_digit W 0", Picture(w, h, BLACK).digit(digits[0], WHITE, dx, dy)),
    ]
    phone = new_phone(tmp_path, "--screen", size)
    for command, expected in patterns:
        out, rc = phone.run(command)
        assert (out, rc) == (startup() + transcript((command, "PASS\n"), eof=True), 0), command
        assert_screen(phone, tmp_path, expected)


def test_refused_arguments_leave_the_picture(phone, tmp_path):
    lines = ["lcd fill 1", "lcd fill 6", "lcd fill", "lcd fill x", "lcd invertgrid x",
             "lcd fl 0", "lcd fl", "lcd fl 481", "lcd fl 3 1 9", "lcd_digit W 10",
             "lcd_digit X 1", "lcd filler 1", "lcd"]
    out, _ = phone.run(*lines)
    assert out == startup() + transcript(
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
        ("lcd filler 1", "Not a valid command\n"), ("lcd", "Not a valid command\n"), eof=True)
    assert_screen(phone, tmp_path, Picture(800, 480, RED))


def test_missing_framebuffer_fails_each_pattern_until_it_returns(phone, tmp_path):
    phone.unplug("display")
    out, _ = phone.run("lcd fill 1", "lcd crosshair")
    open_failed = log(179, "open_framebuffer", "open failed, errno=2\n")
    assert out == startup(display=log(116, "init_framebuffer", "open failed, errno=2\n") +
                          open_failed) + transcript(
        ("lcd fill 1", open_failed + "FAIL\n"), ("lcd crosshair", open_failed + "FAIL\n"), eof=True)
    assert phone.show("display") == "xres=800\nyres=480\nbpp=32\npresent=no\n"
    phone.plug("display")
    out, _ = phone.run("lcd fill 2")
    assert out == startup() + transcript(("lcd fill 2", "PASS\n"), eof=True)
    assert_screen(phone, tmp_path, Picture(800, 480, GREEN))


# fault -> what start-up logs, what "lcd fill 2" prints, whether it draws.
FB_FAULTS = [
    ("fb-vscreeninfo",
     log(124, "init_framebuffer", "ioctl FBIOGET_VSCREENINFO failed, errno=22\n") +
     log(187, "open_framebuffer", "mmap failed, errno=22\n"),
     log(187, "open_framebuffer", "mmap failed, errno=22\n") + "FAIL\n", False),
    ("fb-pan", log(146, "init_framebuffer", "ioctl FBIOPAN_DISPLAY failed, errno=22\n"),
     "PASS\n", True),
    ("fb-mmap", log(187, "open_framebuffer", "mmap failed, errno=12\n"),
     log(187, "open_framebuffer", "mmap failed, errno=12\n") + "FAIL\n", False),
]


@pytest.mark.parametrize("fault,at_start,fill,draws", FB_FAULTS, ids=[f[0] for f in FB_FAULTS])
def test_framebuffer_step_failures(phone, tmp_path, fault, at_start, fill, draws):
    phone.fault(fault)
    out, _ = phone.run("lcd fill 2")
    assert out == startup(display=at_start) + transcript(("lcd fill 2", fill), eof=True)
    assert_screen(phone, tmp_path, Picture(800, 480, GREEN if draws else BLACK))


def test_other_depth_is_reported_and_drawn_in_words(tmp_path):
    phone = new_phone(tmp_path, "--screen", "200x120", "--bpp", "16")
    out, _ = phone.run("lcd half_filled")
    assert out == startup(display=log(131, "init_framebuffer", "unsupported bpp (16), should be (32)\n")) + \
        transcript(("lcd half_filled", "PASS\n"), eof=True)
    assert_screen(phone, tmp_path, Picture(200, 120, WHITE).box(0, 0, 100, 119, BLACK))


def test_panel_size_comes_from_the_device_tree(phone, tmp_path):
    phone.set("panel", "640x400")
    out, _ = phone.run("lcd fill 1")
    assert out == startup() + transcript(("lcd fill 1", "PASS\n"), eof=True)
    assert_screen(phone, tmp_path, Picture(800, 480).box(0, 0, 639, 399, RED))
    # Without the timings the driver's size is drawn, and the verdict says so.
    phone.unplug("panel-timings")
    out, _ = phone.run("lcd fill 3")
    assert out == startup() + transcript(("lcd fill 3", NO_PANEL + "FAIL\n"), eof=True)
    assert_screen(phone, tmp_path, Picture(800, 480, BLUE))
    assert phone.show("panel-timings") == "hactive=\nvactive=\npresent=no\n"


def test_backlight_and_led_state_and_faults(phone):
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
    phone.fault("backlight")
    out, _ = phone.run("backlight on")
    assert out == startup() + transcript(("backlight on", "FAIL\n"), eof=True)
    assert phone.show("backlight") == "power=off\nlevel=200\nmax=255\n"
    assert phone.show("leds") == "state=flash\non_ms=500\noff_ms=500\n"
