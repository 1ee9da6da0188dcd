#!/usr/bin/python3
"""`ftsim view`'s CPU over an idle window with the page open in headless
Chromium and nothing changing, against the same window with no page open.

    bench/view_idle.py [--idle 10]"""
import argparse
import os
import signal
import subprocess
import sys
import tempfile
import time

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FTSIM = os.path.join(REPO, "ftsim")
GOAL = 0.01          # of the window: the page open must cost next to nothing


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def idle_cpu(pid, seconds):
    before = cpu_seconds(pid)
    time.sleep(seconds)
    return cpu_seconds(pid) - before


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--idle", type=float, default=10.0)
    args = p.parse_args()
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    with tempfile.TemporaryDirectory() as tmp:
        phone = os.path.join(tmp, "phone")
        subprocess.run([FTSIM, "new", phone, "--screen", "64x48"], check=True, capture_output=True)
        view = subprocess.Popen([FTSIM, "view", phone, "--port", "0"], stdout=subprocess.PIPE,
                                text=True)
        url = view.stdout.readline().strip()
        try:
            alone = idle_cpu(view.pid, args.idle)
            options = webdriver.ChromeOptions()
            options.binary_location = "/usr/bin/chromium"
            for arg in ("--headless=new", "--no-sandbox", "--disable-gpu"):
                options.add_argument(arg)
            driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
            try:
                driver.get(url)
                deadline = time.monotonic() + 20
                while not driver.find_element("id", "panel").get_attribute("src"):
                    if time.monotonic() > deadline:
                        sys.exit("view_idle: the page never showed the panel")
                    time.sleep(0.05)
                time.sleep(1)
                watched = idle_cpu(view.pid, args.idle)
            finally:
                driver.quit()
        finally:
            view.send_signal(signal.SIGINT)
            view.wait(20)
    print(f"view_idle: ftsim view's CPU with one page open and nothing changing: {watched:.2f} s"
          f" in {args.idle:g} s ({100 * watched / args.idle:.2f} %); no page open: {alone:.2f} s"
          f" (goal: under {100 * GOAL:g} % of the window)")
    return 0 if watched < GOAL * args.idle else 1


if __name__ == "__main__":
    sys.exit(main())
