"""`ftsim view`: the live page in headless Chromium, next to a console that a
pipe drives, and the server's refusals. Its CPU while idle is bench/view_idle.py's."""
import http.client
import json
import os
import signal
import subprocess
import sys

import pytest

TESTS = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path[:0] = [os.path.join(TESTS, "e2e"), TESTS]
from pages import chromium, until  # noqa: E402
from conftest import FTSIM, REPO, Phone, ftsim  # noqa: E402
from test_input import Console, SimPhone  # noqa: E402

SHOTS = os.path.join(REPO, "build", "view")
GUARD = 20           # seconds: only a broken page waits this long


@pytest.fixture
def phone(tmp_path):
    path = str(tmp_path / "phone")
    assert ftsim("new", path, "--screen", "64x48").returncode == 0
    return Phone(path)


@pytest.fixture
def view(phone):
    proc = subprocess.Popen([FTSIM, "view", phone.path, "--port", "0"], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True)
    url = proc.stdout.readline().strip()
    assert url.startswith("http://127.0.0.1:"), proc.stderr.read()
    yield proc, url
    proc.send_signal(signal.SIGINT)        # as Ctrl+C ends it
    assert proc.wait(GUARD) == 0


@pytest.fixture(scope="module")
def browser():
    with chromium() as driver:
        yield driver


# The colours of the panel image as the page holds it, or null while it loads.
PANEL_COLOURS = """
const img = document.getElementById("panel");
if (!img.complete || !img.naturalWidth) return null;
const canvas = Object.assign(document.createElement("canvas"),
                             { width: img.naturalWidth, height: img.naturalHeight });
const g = canvas.getContext("2d");
g.drawImage(img, 0, 0);
const d = g.getImageData(0, 0, canvas.width, canvas.height).data, seen = new Set();
for (let i = 0; i < d.length; i += 4) seen.add(`${d[i]},${d[i + 1]},${d[i + 2]}`);
return [...seen].map((c) => c.split(",").map(Number));
"""


def panel_is(driver, colour, name):
    def check():
        driver.find_element("id", "panel").screenshot(os.path.join(SHOTS, name + ".png"))
        seen = driver.execute_script(PANEL_COLOURS)
        return seen and all(max(abs(p - c) for p, c in zip(px, colour)) <= 2 for px in seen)
    until(f"a {colour} panel", check)


def test_page_follows_the_console(phone, view, browser):
    os.makedirs(SHOTS, exist_ok=True)
    browser.get(view[1])
    text = lambda i: browser.find_element("id", i).text  # noqa: E731
    until("no console", lambda: text("console") == "no console")

    c = Console(phone)
    until("the console", lambda: text("console").startswith("console running"))
    c.line("rawbacklight 255", "Valid brightness values are: [0 - 255]\nPASS\n")
    until("the backlight's level", lambda: "level 255 of 255" in text("backlight"))
    panel_is(browser, (0, 0, 0), "blank")               # so the fill must redraw it itself
    c.line("lcd fill 1", "PASS\n")
    panel_is(browser, (255, 0, 0), "red")
    c.line("backlight off", "PASS\n")
    panel_is(browser, (0, 0, 0), "backlight-off")
    c.line("backlight on", "PASS\n")
    c.line("rawbacklight 100", "Valid brightness values are: [0 - 255]\nPASS\n")
    panel_is(browser, (100, 0, 0), "dimmed")            # 255 * 100 / 255

    c.line("key 1", "Start keypad test\n")
    browser.find_element("css selector", "button[data-key=KEY_5]").click()
    c.expect("\nKeyCode[0006] value[1]\nKeyCode[0006] value[0]\n")
    c.line("jackdet 1", "Start jackdet test\n")
    from selenium.webdriver.support.ui import Select
    Select(browser.find_element("id", "jack")).select_by_visible_text("CTIA")
    c.expect("\nJACK = CTIA\n")
    until("the jack's plug", lambda: "CTIA" in text("state").upper())
    c.quit()
    until("the console's end", lambda: text("console") == "no console")


def request(url, method, path, host=None, token=None, body=b""):
    port = int(url.rsplit(":", 1)[1].strip("/"))
    conn = http.client.HTTPConnection("127.0.0.1", port, timeout=GUARD)
    headers = {"Host": host or f"127.0.0.1:{port}", "Content-Type": "application/json"}
    if token:
        headers["X-View-Token"] = token
    conn.request(method, path, body=body, headers=headers)
    r = conn.getresponse()
    return r.status, r.read()


def test_foreign_hosts_and_missing_tokens_are_refused(phone, view):
    url = view[1]
    _, page = request(url, "GET", "/")
    token = json.loads(page.split(b"const CONFIG = ", 1)[1].split(b";\n", 1)[0])["token"]
    hook = json.dumps(["hook", "off"]).encode()
    for method, path, host, tok, status in [
        ("GET", "/", "evil.example:80", None, 403),
        ("GET", "/state", "attacker.test", None, 403),
        ("POST", "/action", None, None, 403),
        ("POST", "/action", None, "not-the-token", 403),
        ("POST", "/action", "rebound.example", token, 403),
        ("POST", "/action", f"localhost{url.rsplit(':', 1)[1].strip('/')}", token, 403),
    ]:
        assert request(url, method, path, host, tok, hook if method == "POST" else b"")[0] == status
    assert phone.show("accessories").splitlines()[1] == "hook=0"
    # The same request with the token and the page's own host goes through.
    port = url.rsplit(":", 1)[1].strip("/")
    status, answer = request(url, "POST", "/action", f"localhost:{port}", token, hook)
    assert (status, phone.show("accessories").splitlines()[1]) == (409, "hook=1"), answer
    assert b"no console is reading" in answer
    assert request(url, "POST", "/action", None, token, b'["run","x"]')[0] == 400


def test_verbs_that_change_the_phone_count_a_change(phone):
    """Without a console: the state changes, and so must the page."""
    for verb in (["store", "ethaddr", "00:11:22:33:44:55"], ["fault", "leds"], ["fault", "clear"],
                 ["unplug", "keypad"], ["plug", "keypad"], ["cradle", "disconnected"],
                 ["hook", "off"], ["ehs", "off"], ["jack", "in", "omtp"], ["set", "model", "corvine"],
                 ["set", "panel", "32x24"]):
        before = SimPhone(phone.path).changes()
        ftsim(verb[0], phone.path, *verb[1:])
        assert SimPhone(phone.path).changes() == before + 1, verb
    before = SimPhone(phone.path).changes()
    ftsim("show", phone.path, "accessories")
    assert SimPhone(phone.path).changes() == before      # looking changes nothing
