"""Wi-Fi and Bluetooth: the driver modules, wlan0, the access-point scan, and
the phone's Bluetooth stack, as a station sees them."""
import os
import subprocess
import tomllib

import pytest

from conftest import BUILD, QUIT, REPO, golden, quit_terminal, startup, terminal, transcript

START_FAIL = "ft: Err starting WiFi service\nFAIL\nft : Err: failed to start WiFi service, retry.\n"
PARAMS = "reg_alpha2=00 sta_name=wlan uap_name=wlan wfd_name=wlan cal_data_cfg=none"
HEADER = "Name                 Address           Class    Type  RSSI\n"


def module_log(phone):
    with open(os.path.join(phone.path, "log", "modules")) as f:
        return f.read().splitlines()


def write(tmp_path, name, text):
    path = tmp_path / name
    path.write_text(text)
    return str(path)


def test_driver_calls_are_exported_by_name():
    build = os.environ.get("FTSIM_BUILD_DIR_" + BUILD.upper()) or os.path.join(REPO, "build", BUILD)
    syms = subprocess.run(["readelf", "--dyn-syms", "-W", os.path.join(build, "out", "bin", "ft")],
                          capture_output=True, text=True, check=True).stdout
    defined = {f[7] for f in (l.split() for l in syms.splitlines())
               if len(f) >= 8 and f[3:5] == ["FUNC", "GLOBAL"] and f[6] != "UND"}
    assert {"is_wifi_driver_loaded", "wifi_load_driver", "wifi_unload_driver"} <= defined


def test_wifi_session(phone, tmp_path):
    phone.store("wifiaddr", "00:1A:2B:3C:4D:5E")
    phone.wifi("aps", write(tmp_path, "aps", "Guest 36 -71\n"))
    out, rc = phone.run("wifi cap", "wifi start", "wifi start", "wifi mac_get", "wifi scan",
                        "wifi stop", "wifi stop")
    scan = golden("wifi_scan.txt")       # the access point as iwlist lists it
    running = "ft : WiFi service already running.\n"
    assert (out, rc) == (startup() + transcript(
        ("wifi cap", "PASS\n"),
        ("wifi start", "ft: WiFi started.\n"),
        ("wifi start", running),
        ("wifi mac_get", running + "ft : MAC Address\n00:1a:2b:3c:4d:5e\n"),
        ("wifi scan", running + "ft: Initiating wifi scan... \n" + scan + "ft: Done, check AP list above. \n"),
        ("wifi stop", "ft: WiFi stopped.\n"),
        ("wifi stop", "ft : WiFi service already stopped.\n"), eof=True), 0)
    assert module_log(phone) == ['init_module mlan "" -> 0', f'init_module sd8xxx "{PARAMS}" -> 0',
                                 "delete_module sd8xxx O_NONBLOCK|O_EXCL -> 0",
                                 "delete_module mlan O_NONBLOCK|O_EXCL -> 0"]
    assert phone.show("modules") == f"loaded=\nmlan.params=\nsd8xxx.params={PARAMS}\nwlan0=absent\nmbtchar0=absent\n"
    phone.set("cap-wifi", "0")
    out, _ = phone.run("wifi cap")
    assert out == startup() + transcript(("wifi cap", "FAIL\n"), eof=True)


def test_wifi_half_loaded_then_a_boot(phone):
    phone.fault("module-missing", "sd8xxx")
    out, _ = phone.run("wifi start")
    assert out == startup() + transcript(
        ("wifi start", "wifi_load_driver /system/lib/modules/sd8xxx.ko failed" + START_FAIL), eof=True)
    assert module_log(phone)[-1] == "delete_module mlan O_NONBLOCK|O_EXCL -> 0"
    assert phone.show("modules").startswith("loaded=\n")

    # Every run is a boot: nothing is left loaded.
    phone.fault("clear")
    out, _ = phone.run("wifi stop", "wifi start")
    assert out.endswith(transcript(("wifi stop", "ft : WiFi service already stopped.\n"),
                                   ("wifi start", "ft: WiFi started.\n")) + "ft>ft: WiFi stopped.\n")


# Devices 1 to 3 of devices(): their type as listed, and as the table prints it.
TYPES = {1: ("BLE", "BLE   "), 2: ("DUAL", "DUAL  "), 3: ("9", "Unknown ")}


def devices(n):
    """n devices: the first named, with class and type; the rest bare."""
    rows = ["00:11:22:33:44:55 Desk-Phone 5a020c BREDR -60"]
    rows += [f"AA:00:00:00:00:{i:02X} - 0 {TYPES.get(i, ('0',))[0]} -70" for i in range(1, n)]
    return "".join(r + "\n" for r in rows)


def test_bluetooth_session(phone, tmp_path):
    phone.store("btaddr", "00:a0:b1:c2:d3:e4")
    phone.bt("devices", write(tmp_path, "devices", devices(21)))
    phone.set("bt-discovery-ms", "1500")
    lines = ["bt on", "bt mac_get", "bt scan", "bt cap", "bt init", "bt off", "bt mac_get", "bt on",
             "bt on", "bt scan"]
    out, rc = phone.run(*lines)
    rows = ["Unknown              00:11:22:33:44:55 BREDR -60\n"]
    rows += [f"Unknown              AA:00:00:00:00:{i:02X} {TYPES.get(i, ('', ''))[1]}-70\n"
             for i in range(1, 20)]
    # The table is full: the 21st device, and the class and name that arrive
    # after it filled, are not printed.
    assert (out, rc) == (startup() + transcript(
        ("bt on", "BT not initialized!\nFAIL\n"),
        ("bt mac_get", "BT not initialized!\nFAIL\n"),
        ("bt scan", "FAIL: BT not initialized!\n"),
        ("bt cap", "PASS\n"),
        ("bt init", "BT interface initialized\n"),
        ("bt off", "BT already OFF\n"),
        ("bt mac_get", "00:A0:B1:C2:D3:E4\nPASS\n"),
        ("bt on", "BT state changed: ON\n"),
        ("bt on", "BT already ON\n"),
        ("bt scan", "BT discovery STARTED\n" + HEADER + "".join(rows) + "BT discovery STOPPED\n"))
        + "ft>BT state changed: OFF\n" + QUIT, 0)
    assert module_log(phone) == ['init_module mbt8xxx "" -> 0', "delete_module mbt8xxx O_NONBLOCK|O_EXCL -> 0"]
    assert "alarms=1\n" in phone.show("bt")
    with open(os.path.join(phone.path, "log", "tools")) as f:
        assert f.read() == "bd_addr_loader \n"


# (ftsim verbs that break the radios, the lines and their replies, what shut-down prints).
RADIO_FAULTS = [(c["setup"], [tuple(step) for step in c["steps"]], c["end"])
                for c in tomllib.loads(golden("radio_faults.toml"))["case"]]


@pytest.mark.parametrize("setup,steps,end", RADIO_FAULTS)
def test_radio_faults(phone, tmp_path, setup, steps, end):
    for verb, *args in setup:
        if verb == "bt":          # its devices file
            args[-1] = write(tmp_path, "devices", devices(1))
        getattr(phone, verb)(*args)
    out, _ = phone.run(*[line for line, _ in steps])
    assert out == startup() + transcript(*steps) + "ft>" + end
    if ["fault", "bt-hal-missing"] in setup:
        assert module_log(phone) == ['init_module mbt8xxx "" -> 0', "delete_module mbt8xxx O_NONBLOCK|O_EXCL -> 0"]


@pytest.mark.parametrize("cancel", ["", "BT: failed to cancel discovery or already finished\r\n"])
def test_ctrl_c_ends_a_scan_on_a_terminal(phone, tmp_path, cancel):
    if cancel:
        phone.fault("bt-call", "cancel_discovery")
    phone.bt("devices", write(tmp_path, "devices", devices(1)))
    phone.set("bt-discovery-ms", "30000")
    c = terminal(phone)
    c.sendline("bt init")
    c.expect_exact("ft>")
    c.sendline("bt scan")
    c.expect_exact("BT discovery STARTED\r\n")
    c.expect_exact("Desk-Phone")
    c.sendintr()
    c.expect_exact(cancel + "BT discovery STOPPED\r\nBT state changed: OFF\r\nft>")
    quit_terminal(c, QUIT)
