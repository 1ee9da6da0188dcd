"""ip, ping, get, send and tolma regulatory through the phone's own tools, against
the station's real FTP server."""
import os
import re

import pytest

from conftest import BUILD, QUIT, ftsim, startup, startup_calls, transcript

LABEL_DIR = "/reserved/regulatoryLabels"

# Addresses the console must refuse before anything runs: inet_pton's dotted quad only.
BAD = ["", "station", "10.1.1", "192.168.1.300", "1.2.3.4.5", "10.0.0.01", "0x7f.0.0.1",
       "10.0.0.1/24", "::1", "10.0.0.1;reboot"]


def tools(phone):
    try:
        with open(os.path.join(phone.path, "log", "tools")) as f:
            return f.read()
    except FileNotFoundError:
        return ""


def test_bad_addresses_run_nothing(phone):
    steps = []
    for a in BAD:
        steps += [(f"ip 1 {a}", "FAIL\n"),
                  (f"ping {a}", "Invalid IP address\n"),
                  (f"get u p l r {a}", f'invalid server ip "{a}"\nFAIL\n'),
                  (f"send u p l r {a}", "Invalid remote IPAddr Server!!\n"),
                  (f"tolma regulatory u p r {a}", f'invalid server ip "{a}"\nFAIL\n')]
    out, _ = phone.run(*[line for line, _ in steps])
    assert out == startup() + transcript(*steps, eof=True)
    assert phone.calls() == startup_calls()
    assert tools(phone) == ""


@pytest.mark.parametrize("marker, address, record", [
    ("on", "10.8.0.33", ""),
    ("off", "10.8.0.10", "am <broadcast> <-a> <com.tolma.endpoint.intent.action.ftcommand>"
                         " <-e> <ip> <10.8.0.33>\n"),
])
def test_ip_sets_eth0_itself_only_with_the_marker(phone, marker, address, record):
    phone.marker("factorytest", marker)
    out, _ = phone.run("ip 1 10.8.0.33", "ip 0")
    head = startup() + transcript(("ip 1 10.8.0.33", "PASS\n"), ("ip 0", ""))
    assert out.startswith(head) and out.endswith("\nPASS\nft>" + QUIT)
    assert f" inet {address} " in out[len(head):]
    assert tools(phone) == record


PING = r"PING {a} \({a}\) 56\(84\) bytes of data\.\n\n--- {a} ping statistics ---\n"
PINGS = [
    # A loaded host may drop an echo even on a veth pair: one answer is enough.
    ("10.8.0.2", PING + r"4 packets transmitted, [1-4] received, \d+% packet loss, time \d+ms\n"
                        r"rtt min/avg/max/mdev = [\d.]+/[\d.]+/[\d.]+/[\d.]+ ms\n"),
    # Inside the station's network, held by nobody.
    ("10.8.0.99", PING + r"4 packets transmitted, 0 received, (\+\d+ errors, )?100% packet loss,"
                         r" time \d+ms\n(pipe \d+\n)?"),
]


def test_ping_shows_only_the_summary(phone):
    out, _ = phone.run(*[f"ping {a}" for a, _ in PINGS])
    expect = "".join(re.escape(f"ft>ping {a}\n") + summary.format(a=re.escape(a))
                     for a, summary in PINGS)
    assert re.fullmatch(re.escape(startup()) + expect + re.escape("ft>" + QUIT), out), out


def station_file(phone, name, data):
    path = os.path.join(phone.station("dir").strip(), name)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)
    return path


def read(path):
    with open(path, "rb") as f:
        return f.read()


def failed(line):
    return f'command "{line}" failed, check the input\nFAIL\n'


def test_files_cross_byte_for_byte(phone):
    data = bytes(range(256)) * 400 + b"\r\n\x00end"
    station = os.path.dirname(station_file(phone, "fw.bin", data))
    phone.station("user", "line7", "s3cret")       # the default login no longer holds
    steps = [("get line7 s3cret /data/fw.bin fw.bin 10.8.0.2", "PASS\n"),
             ("send line7 s3cret /data/fw.bin up.bin 10.8.0.2", ""),
             ("get station station /data/x fw.bin 10.8.0.2",
              failed("ftpget -u station -p station 10.8.0.2 /data/x fw.bin")),
             ("get line7 s3cret /data/x missing.bin 10.8.0.2",
              failed("ftpget -u line7 -p s3cret 10.8.0.2 /data/x missing.bin")),
             # The run's fourth ftpget fails on its own.
             ("get line7 s3cret /data/x fw.bin 10.8.0.2", failed("ftpget -u line7 -p s3cret 10.8.0.2 /data/x fw.bin"))]
    phone.fault("tool", "ftpget@4")
    out, _ = phone.run(*[line for line, _ in steps])
    assert out == startup() + transcript(*steps, eof=True)
    assert read(os.path.join(phone.path, "data", "fw.bin")) == data
    assert read(os.path.join(station, "up.bin")) == data
    assert not os.path.exists(os.path.join(phone.path, "data", "x"))


def test_regulatory_label_replaces_the_last_one(phone):
    line = "tolma regulatory station station labels/x.png 10.8.0.2"
    label = os.path.join(phone.path, "reserved", "regulatoryLabels", "regulatory_info.png")
    for data in (b"\x89PNG first", b"\x89PNG second"):
        station_file(phone, "labels/x.png", data)
        out, _ = phone.run(line)
        assert out == startup() + transcript((line, "PASS\n"), eof=True)
        assert read(label) == data
    assert phone.files("/reserved") == "0700 regulatoryLabels/\n"
    # The server went with the run's station.
    assert not [p for p in os.listdir("/proc") if p.isdigit() and server_of(p, phone)]


@pytest.mark.parametrize("fault", ["drop", "stall"])
def test_regulatory_label_from_a_failing_server(phone, fault):
    line = "tolma regulatory station station x.png 10.8.0.2"
    data = b"\x89PNG" + bytes(range(256)) * 64
    station_file(phone, "x.png", data)
    phone.station("fault", fault)
    out, _ = phone.run(line)
    assert out == startup() + transcript(
        (line, failed("ftpget -u station -p station 10.8.0.2 "
                      "/reserved/regulatoryLabels/regulatory_info.png x.png")), eof=True)
    # What a cut-off download leaves behind: the first half of the label.
    label = os.path.join(phone.path, "reserved", "regulatoryLabels", "regulatory_info.png")
    assert (read(label) if os.path.exists(label) else None) == \
        (data[:len(data) // 2] if fault == "drop" else None)
    if fault == "drop":
        # An upload cut off the same way: send shows only ftpput's own words
        # (on standard error), and the station keeps at most half of it.
        line = "send station station /reserved/regulatoryLabels/regulatory_info.png back.png 10.8.0.2"
        out, _ = phone.run(line)
        assert out == startup() + transcript((line, ""), eof=True)
        back = os.path.join(phone.station("dir").strip(), "back.png")
        assert len(read(back)) <= len(data) // 4


def server_of(pid, phone):
    try:
        with open(f"/proc/{pid}/cmdline", "rb") as f:
            args = f.read().split(b"\0")
    except OSError:
        return False
    return any(a.endswith(b"ftp_server.py") for a in args) and \
        os.path.join(phone.path, "station").encode() in args


def test_regulatory_label_needs_a_writable_reserved_partition(phone):
    phone.fault("reserved-readonly")
    out, _ = phone.run("tolma regulatory station station label.png 10.8.0.2")
    assert out == startup() + transcript(
        ("tolma regulatory station station label.png 10.8.0.2",
         f'tolma_regulatory: failed to create target directory "{LABEL_DIR}"\nFAIL\n'), eof=True)
    assert phone.calls() == startup_calls()


def test_station_serves_nothing_outside_its_folder(phone):
    # The phone can write its folder: a link there, or the folder swapped for a link
    # while the server runs, must not lead the server (root) to the host's files.
    os.symlink("/etc/hostname", os.path.join(phone.station("dir").strip(), "host"))
    r = ftsim("exec", "--build", BUILD, phone.path, "/bin/sh", "-c",
              "ftpget -u station -p station 10.8.0.2 /data/h host;"
              "rm -r /sim/station && ln -s /etc /sim/station &&"
              " ftpget -u station -p station 10.8.0.2 /data/p passwd")
    assert r.returncode == 1
    assert os.listdir(os.path.join(phone.path, "data")) == []
