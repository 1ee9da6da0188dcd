"""The phone's network and ftsim's knowledge of its running consoles."""
import hashlib
import os
import re
import signal
import subprocess

import pytest

from conftest import BUILD, FTSIM, ftsim, read_until, until


def key(phone):
    return hashlib.sha256(os.path.abspath(phone.path).encode()).hexdigest()[:10]


def namespaces():
    return os.listdir("/run/netns") if os.path.isdir("/run/netns") else []


def host_links():
    return subprocess.run(["ip", "-o", "link"], capture_output=True, text=True).stdout


class Console:
    """A console kept running on a pipe until the test is done with it."""

    def __init__(self, phone):
        self.proc = subprocess.Popen([FTSIM, "run", "--build", BUILD, phone.path],
                                     stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, text=True)
        until("the console's eth0", lambda: self.proc.poll() is not None
              or "present=yes" in ftsim("show", phone.path, "eth0").stdout, 20)
        assert self.proc.poll() is None, "no console came up"

    def end(self):
        out, err = self.proc.communicate(timeout=20)
        return out, err, self.proc.returncode


@pytest.fixture
def console(phone):
    c = Console(phone)
    yield c
    if c.proc.poll() is None:
        c.proc.terminate()      # ftsim takes its sandbox and station down with it
        c.proc.wait()


def in_phone(phone, script):
    return ftsim("exec", "--build", BUILD, phone.path, "/bin/sh", "-c", script)


def test_running_console_has_eth0_and_leaves_nothing_behind(phone, console):
    shown = dict(line.split("=", 1) for line in ftsim("show", phone.path, "eth0").stdout.split())
    assert (shown["present"], shown["up"]) == ("yes", "yes")
    assert "ftsim-" + key(phone) in namespaces()
    # The phone's end never shows in the host's own namespace.
    assert key(phone) not in host_links()
    console.proc.stdin.write("quit\n")
    assert console.end()[2] == 0
    assert "ftsim-" + key(phone) not in namespaces()
    assert not os.path.exists(f"/run/ftsim/{key(phone)}/run.json")
    assert ftsim("show", phone.path, "eth0").stdout.endswith("present=no\n")


def test_interrupt_reaches_only_a_checked_console(phone, console, tmp_path):
    # The phone writes its own folder: a PID planted there must never be signalled.
    decoy = subprocess.Popen(["sleep", "30"])
    with open(os.path.join(phone.path, "run", "console.pid"), "w") as f:
        f.write(str(decoy.pid))
    # Ctrl+C reaches what runs under the console: ping ends early, with its
    # summary, and the prompt comes back. The test runner shares the console's
    # process group on this pipe (as the decoy does), and lives on.
    console.proc.stdin.write("ping 10.8.0.2\n")
    console.proc.stdin.flush()
    read_until(console.proc, "bytes of data.\n")
    assert ftsim("interrupt", phone.path).returncode == 0
    summary = read_until(console.proc, "ft>")
    assert re.search(r"^[123] packets transmitted", summary, re.M), summary
    # At the prompt SIGINT has its default action: the console ends.
    assert ftsim("interrupt", phone.path).returncode == 0
    out, _, status = console.end()
    assert (out, status) == ("", 130)
    assert decoy.poll() is None
    decoy.kill()
    r = ftsim("interrupt", phone.path)
    assert (r.returncode, r.stderr) == (1, f"ftsim: no console runs in {phone.path}\n")


@pytest.mark.parametrize("sig", [signal.SIGTERM, signal.SIGKILL])
def test_stopped_ftsim_leaves_no_station(phone, tmp_path, sig):
    name = "ftsim-" + key(phone)
    c = Console(phone)
    c.proc.send_signal(sig)
    c.proc.wait(timeout=20)
    if sig == signal.SIGKILL:
        assert name in namespaces()     # nothing could clean up: the next run does
        other = tmp_path / "other"
        assert ftsim("new", other).returncode == 0
        in_phone(type(phone)(str(other)), "true")
    assert name not in namespaces()
    assert not os.path.exists(f"/run/ftsim/{key(phone)}")


def test_station_kept_up_outlives_runs_until_down(phone):
    name = "ftsim-" + key(phone)
    phone.station("up")
    for _ in range(2):      # the phone's end is handed back after each run, and reaches only the station
        lines = in_phone(phone, "ifconfig eth0 | head -2; ping -c1 -W2 10.8.0.2 >/dev/null && echo station;"
                                " ip route | sort").stdout.splitlines()
        assert "inet 10.8.0.10  netmask 255.255.255.0  broadcast 10.8.0.255" in lines[1]
        assert lines[2:] == ["station", "10.8.0.0/24 dev eth0 proto kernel scope link src 10.8.0.10 "]
        assert name in namespaces()
    phone.station("down")
    assert name not in namespaces()
    phone.station("up")
    assert ftsim("new", phone.path, "--force").returncode == 0
    assert name not in namespaces()


def test_run_without_namespace_rights_says_so(phone):
    r = subprocess.run(["setpriv", "--bounding-set", "-sys_admin", "--", FTSIM, "run", phone.path],
                       input="", capture_output=True, text=True, timeout=30)
    assert (r.returncode, r.stdout, r.stderr.count("\n")) == (1, "", 1)
    assert "namespaces" in r.stderr


STATUS = "ethtool eth0 | grep -E 'Duplex|Speed|Link detected|Auto-negotiation'"


def status(speed, duplex, auto, link="yes"):
    return f"\tSpeed: {speed}\n\tDuplex: {duplex}\n\tAuto-negotiation: {auto}\n\tLink detected: {link}\n"


@pytest.mark.parametrize("settings, script, out, err, rc", [
    ([], f"ethtool -s eth0 speed 100 duplex half autoneg off; {STATUS}",
     status("100Mb/s", "Half", "off"), "", 0),
    ([], f"ifconfig eth0 down; {STATUS}", status("Unknown!", "Unknown! (255)", "on", "no"), "", 0),
    (["eth0.partner", "100full"], STATUS, status("100Mb/s", "Full", "on"), "", 0),
    # What the PHY refuses leaves its settings as they were.
    (["eth0.gigabit", "no"], f"ethtool -s eth0 speed 1000 duplex full autoneg on; {STATUS}",
     status("100Mb/s", "Full", "on"), "netlink error: Invalid argument\n", 0),
    ([], "ethtool -s eth0 speed 1000 duplex full autoneg off", "",
     "netlink error: Invalid argument\n", 75),
    ([], "ethtool eth1", "No data available\n",
     "netlink error: no device matches name (offset 24)\nnetlink error: No such device\n", 75),
])
def test_ethtool_stands_in_for_the_phy(phone, settings, script, out, err, rc):
    if settings:
        phone.set(*settings)
    r = in_phone(phone, script)
    assert (r.stdout, r.stderr, r.returncode) == (out, err, rc)
