"""The console over a pipe: start-up, the loop's rules, help pages, end of input."""
import os
import subprocess

import pytest

from conftest import BUILD, FTSIM, QUIT, golden, read_until, startup, startup_calls, transcript

NOT_VALID = "Not a valid command\n"


def test_lines_words_and_prefixes(phone):
    out, rc = phone.run("", "   ", "ft", "ft ft program commit", "info\t", "QUIT",
                        "program commit ft", "quit now", "info")
    assert rc == 0
    # The echo shows each byte as it came, the tab included.
    assert out == startup() + transcript(
        ("", ""), ("   ", ""), ("ft", ""), ("ft ft program commit", "PASS\n"),
        ("info\t", NOT_VALID), ("QUIT", NOT_VALID), ("program commit ft", "PASS\n"),
        ("quit now", QUIT))


def test_long_lines_are_refused_whole(phone):
    word99 = "w" * 99
    lines = ["program write phonesn " + "x" * 240,           # 262 characters
             "program write phonesn " + " ".join("v" * 18),  # 21 words
             "program write phonesn " + "v" * 100,
             "program write phonesn " + word99]
    out, rc = phone.run(*lines)
    assert rc == 0
    assert out == startup() + transcript(
        (lines[0], "Line too long (255 characters at most)\n"),
        (lines[1], "Too many words (20 at most)\n"),
        (lines[2], "Word too long (99 characters at most)\n"),
        (lines[3], "FAIL\n"), eof=True)
    assert phone.values()["SN_UNIT"] == ""


def test_help_pages(phone):
    out, _ = phone.run("help", "audio", "l2", "h", "?")
    general = "\n\n" + golden("help_general.txt")
    assert out == startup() + transcript(
        ("help", general), ("audio", golden("help_audio.txt")), ("l2", golden("help_l2.txt")),
        ("h", general), ("?", general), eof=True)


def test_missing_watchdog_is_reported_and_the_console_runs(phone):
    phone.unplug("watchdog")
    out, rc = phone.run("program commit")
    assert (out, rc) == (startup(watchdog=False) + transcript(("program commit", "PASS\n"), eof=True), 0)
    assert phone.show("watchdog") == "written=\npresent=no\n"
    phone.plug("watchdog")
    phone.run()
    assert phone.show("watchdog") == "written=V\npresent=yes\n"


def test_dispatcher_families(phone):
    out, _ = phone.run("mfg wifi start", "mfg bt anything", "mfg wifi", "tolma regulatory",
                       "l2GetPVID 5", "bt", "mfg wifi stop")
    mfg = "Not a valid command option. Please check ft help for mfg command options.\n"
    assert out == startup() + transcript(
        ("mfg wifi start", ""), ("mfg bt anything", ""), ("mfg wifi", mfg),
        ("tolma regulatory", 'invalid server ip ""\nFAIL\n'),
        ("l2GetPVID 5", "\nl2portCntrs() FAIL. port not valid ! \n"),
        ("bt", "Not a valid command option. Please check ft help for BT command options.\n"),
        ("mfg wifi stop", ""), eof=True)
    assert phone.calls() == startup_calls() + ("/system/bin/wifi_reg_test.sh start\n"
                             "/system/bin/wifi_reg_test.sh stop\n")


def run_bytes(phone, data):
    r = subprocess.run([FTSIM, "run", "--build", BUILD, phone.path], input=data,
                       capture_output=True, timeout=30)
    return r.stdout, r.returncode


# Piped bytes are text: (bytes sent, what the console must print after start-up).
PIPED_TEXT = [
    # 0x10 would recall "production" from the history and run "production 1".
    (b"production\nprogram write phonesn A\x10 1\nproduction\n",
     b"ft>production\nFactory Mode\nft>program write phonesn A\x10 1\nPASS\n"
     b"ft>production\nFactory Mode\nft>"),
    # CR LF and a lone CR end lines; 0x04 first in a line is text, not the end.
    (b"program write hwver 7\r\nprogram read hwver\r\x04\x7f\x08\x12\nprogram read hwver",
     b"ft>program write hwver 7\nPASS\nft>program read hwver\nHW_VER = \"7\"\n"
     b"ft>\x04\x7f\x08\x12\nNot a valid command\nft>program read hwver\nHW_VER = \"7\"\nft>"),
]


@pytest.mark.parametrize("data, reply", PIPED_TEXT)
def test_piped_control_bytes_are_text(phone, data, reply):
    out, rc = run_bytes(phone, data)
    assert (out, rc) == (startup().encode() + reply + QUIT.encode(), 0)
    assert phone.values()["OPERATIONAL_MODE"] == "0"


def test_phone_scripts_never_read_the_station_lines(phone):
    script = os.path.join(phone.path, "system", "bin", "audio_warn.sh")
    with open(script, "w") as f:
        f.write("#!/bin/sh\nread line\necho \"read: [$line]\"\n")
    out, rc = phone.run("warn a", "program write hwver 7", "warn a", "program read hwver")
    assert (out, rc) == (startup() + transcript(
        ("warn a", "read: []\n"), ("program write hwver 7", "PASS\n"), ("warn a", "read: []\n"),
        ("program read hwver", 'HW_VER = "7"\n'), eof=True), 0)


DEVICE = "00:11:22:33:44:55 Desk-Phone 5a020c BREDR -60\n"

# (state, setup before the run, lines, output that shows the state, action in it, last line)
QUIT_STATES = [
    ("a second bt init", (), ["bt init", "bt on", "bt init"], "ft>bt init\nft>", None, QUIT),
    ("a discovery under way", (("set", "bt-discovery-ms", "30000"),), ["bt init", "bt scan"],
     "Desk-Phone", "interrupt", QUIT),
    ("a stack that never calls back", (("fault", "bt-silent"),), ["bt init", "bt on"], "FAIL\n", None,
     QUIT),
    ("a tone playing", (), ["tone 1"], "ft>tone 1\n", None, QUIT),
    ("an audio loop", (), ["loop 1 0 1"], "ft>loop 1 0 1\n", None, QUIT),
    ("a reader thread blocked", (), [], "ft>", "unplug keypad", QUIT),
    ("Wi-Fi running", (), ["wifi start"], "WiFi started.\n", None, "ft: WiFi stopped.\n"),
]


@pytest.mark.parametrize("state, setup, lines, shows, action, last", QUIT_STATES,
                         ids=[row[0] for row in QUIT_STATES])
def test_quit_ends_the_console_in_every_state(phone, tmp_path, state, setup, lines, shows, action, last):
    devices = tmp_path / "devices"
    devices.write_text(DEVICE)
    phone.bt("devices", str(devices))
    for verb, *args in setup:
        getattr(phone, verb)(*args)
    proc = subprocess.Popen([FTSIM, "run", "--build", BUILD, phone.path], stdin=subprocess.PIPE,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    try:
        proc.stdin.write("".join(line + "\n" for line in lines).encode())
        proc.stdin.flush()
        out = read_until(proc, shows)
        if action:
            verb, *args = action.split()
            getattr(phone, verb)(*args)
        proc.stdin.write(b"quit\n")
        proc.stdin.close()
        proc.stdin = None
        # Every state must let the process end, and soon.
        rest, err = proc.communicate(timeout=15)
    finally:
        if proc.poll() is None:
            proc.kill()
            proc.wait()
    out += rest.decode()
    # (A reader's line may come between the prompt and the echo.)
    assert (out.endswith("quit\n" + last), proc.returncode) == (True, 0), (out, err)
