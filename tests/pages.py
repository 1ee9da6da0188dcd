"""What the page tests share: headless Chromium, and a poller for what a page
or a server comes to show."""
import contextlib
import time

import pytest


@contextlib.contextmanager
def chromium(height=1000, *extra):
    """A headless Chromium 1400 wide; the test is skipped, with the reason,
    where it cannot start."""
    try:
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for arg in ("--headless=new", "--no-sandbox", "--disable-gpu", f"--window-size=1400,{height}",
                    "--force-device-scale-factor=1", *extra):
            options.add_argument(arg)
        driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    except Exception as e:   # noqa: BLE001 -- whatever stops Chromium, the reason is printed
        pytest.skip(f"headless Chromium cannot start: {e}")
    try:
        yield driver
    finally:
        driver.quit()


def until(what, check, guard=60):
    deadline = time.monotonic() + guard
    while not check():
        assert time.monotonic() < deadline, f"never saw {what}"
        time.sleep(0.05)
