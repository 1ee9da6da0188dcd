"""Audio against the simulated sound card: mixer values after each command, what
the playback stream received, the play-and-record script's arguments."""
import os
import struct
import subprocess
import threading
import time

import pytest

from conftest import BUILD_STAMP, FTSIM, startup, startup_calls, transcript

BAD_DEVICES = "<input> and <output> must contain valid values (0, 1, 2 or 3)\n"
NOT_STARTED = "Audio Loop not started!\n"
BAD_ACTION = "<action> must contain valid values (0 or 1)\n"
BAD_OUTPUT = "<output> must contain valid values (0, 1, 2 or 3)\n"
TONE = os.path.join("system", "media", "audio", "ui", "dialtone.wav")
CANNOT_OPEN = "play_thread : Unable to open file '/system/media/audio/ui/dialtone.wav'\n"
BUSY = ("play_sample : Unable to open PCM device 5 "
        "(cannot open device '/dev/snd/pcmC1D5p': Device or resource busy)\n")
WRITE_ERROR = "Error playing tone\n"
BUFFER_BYTES = 640 * 2          # 16-bit mono

SOURCES = ("Line2L Bypass", "PGAL Bypass", "DACL1", "Line2R Bypass", "DACR1", "PGAR Bypass")
INPUTS = ("Line1R", "Line2R", "Line1L", "Mic3L", "Mic3R")


def show(phone, what):
    return dict(line.split("=", 1) for line in phone.show(what).splitlines())


def after_startup(fresh):
    """Start-up sets every level and turns every output off; routes stay as they were."""
    state = dict(fresh)
    for name, values in fresh.items():
        n = len(values.split(","))
        if name.endswith("Volume"):
            state[name] = ",".join(["100" if name == "PCM Playback Volume" else "118"] * n)
        elif name in ("Line Playback Switch", "Mono Playback Switch", "HP Playback Switch"):
            state[name] = ",".join(["0"] * n)
    return state


def only(mixer, keep=None):
    return {f"{mixer} Mixer {s} Switch": "1" if s == keep else "0" for s in SOURCES}


def inputs(on=None):
    return {f"Right PGA Mixer {s} Switch": "1" if s == on else "0" for s in INPUTS}


def wait_until(what, timeout=20):
    end = time.monotonic() + timeout
    while not what():
        if time.monotonic() > end:
            pytest.fail("the phone never got there")
        time.sleep(0.02)


class Live:
    """The console on a pipe, fed line by line while the test watches the phone."""

    def __init__(self, phone):
        self.phone = phone
        self.proc = subprocess.Popen([FTSIM, "run", phone.path], stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE)
        self.out = b""
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        while chunk := os.read(self.proc.stdout.fileno(), 4096):
            self.out += chunk

    def send(self, *lines):
        self.proc.stdin.write("".join(line + "\n" for line in lines).encode())
        self.proc.stdin.flush()

    def printed(self, text):
        wait_until(lambda: text in self.out.decode())

    def pcm(self, key):
        return show(self.phone, "pcm")[key]

    def close(self):
        self.proc.stdin.close()
        assert self.proc.wait(30) == 0
        self.reader.join(5)
        return BUILD_STAMP.sub("Factory Test <build>", self.out.decode())


def chunk(ident, payload):
    return ident + struct.pack("<I", len(payload)) + payload


def fmt(channels=1, rate=8000, bits=16, code=1, extra=b""):
    align = channels * bits // 8
    return chunk(b"fmt ", struct.pack("<HHIIHH", code, channels, rate, rate * align, align, bits)
                 + extra)


def riff(*chunks):
    body = b"WAVE" + b"".join(chunks)
    return b"RIFF" + struct.pack("<I", len(body)) + body


def put_tone(phone, data):
    with open(os.path.join(phone.path, TONE), "wb") as f:
        f.write(data)


def played(phone):
    with open(os.path.join(phone.path, "log", "pcmC1D5p.wav"), "rb") as f:
        return f.read()[44:]


def test_startup_sets_levels_and_turns_outputs_off(phone):
    fresh = show(phone, "mixer")
    out, rc = phone.run("quit")
    assert (out, rc) == (startup() + transcript(("quit", "")), 0)
    assert show(phone, "mixer") == after_startup(fresh)
    assert phone.calls() == startup_calls()
    assert show(phone, "amp") == {"amp_enable": "1", "amp_gain": "0"}


C33 = {**inputs("Mic3L"), "PGA Capture Switch": "0,1", **only("Right HP", "PGAR Bypass"),
       **only("Left HP", "PGAR Bypass"), "HP Playback Switch": "1,1"}

LOOPS = [
    (["loop", "loop 1 0", "loop 2"], [NOT_STARTED, BAD_DEVICES, "Invalid command - Invalid Action\n"],
     {}),
    (["loop 1"], ["<input> and <output> must both be specified to start the test\n"], {}),
    (["loop 1 3 3"], [""], C33),
    (["loop 1 3 3", "loop 0 9 9"], ["", ""],
     {**C33, **inputs(), "PGA Capture Switch": "0,0", **only("Right HP"), **only("Left HP"),
      "HP Playback Switch": "0,0"}),
    (["loop 1 0 1", "loop 1 2 3"], ["", ""],
     {**inputs("Line1L"), "PGA Capture Switch": "0,1", **only("Mono"),
      **only("Right HP", "PGAR Bypass"), **only("Left HP", "PGAR Bypass"),
      "HP Playback Switch": "1,1"}),
    (["loop 1 0 0", "loop 1 4 0", "loop 0"], ["", BAD_DEVICES, NOT_STARTED],
     {**inputs(), "PGA Capture Switch": "0,0", **only("Right Line")}),
    (["loop 1 x y"], [""],
     {**inputs("Line1R"), "PGA Capture Switch": "0,1", **only("Right Line", "PGAR Bypass"),
      "Line Playback Switch": "0,1"}),
    # A tone stopped on the loop's output silences it; the loop still counts as running.
    (["loop 1 1 1", "tone 0 1", "loop 0"], ["", "", ""],
     {**inputs(), "PGA Capture Switch": "0,0", **only("Mono")}),
]


@pytest.mark.parametrize("lines,outputs,changes", LOOPS, ids=[" / ".join(c[0]) for c in LOOPS])
def test_loop_routes(phone, lines, outputs, changes):
    expected = {**after_startup(show(phone, "mixer")), **changes}
    out, _ = phone.run(*lines)
    assert out == startup() + transcript(*zip(lines, outputs), eof=True)
    assert show(phone, "mixer") == expected


def test_section508_gain(phone):
    invalid = "FAIL\nft : Err Invalid action\n"
    out, _ = phone.run("section508 10", "section508", "section508 x")
    assert out == startup() + transcript(("section508 10", ""), ("section508", invalid),
                                         ("section508 x", invalid), eof=True)
    assert show(phone, "mixer")["PCM Playback Volume"] == "127,127"
    assert show(phone, "amp")["amp_gain"] == "1"
    out, _ = phone.run("section508 0")
    assert show(phone, "mixer")["PCM Playback Volume"] == "100,100"
    assert show(phone, "amp")["amp_gain"] == "0"
    gain = "echo {} > /sys/class/audio_ports_ctl/wired_handset/amp_gain\n"
    assert phone.calls() == startup_calls() + gain.format(1) + startup_calls() + gain.format(0)


def test_missing_card_or_control(phone):
    fresh = show(phone, "mixer")
    phone.unplug("soundcard")
    lines = ["section508 1", "loop 1 0 0", "loop 0", "tone 1 0", "tone 0"]
    missing = "Failed to get mixer control for "
    out, _ = phone.run(*lines)
    assert out == startup(mixer=False) + transcript(*zip(lines, [
        f"audio_section508_gain: {missing}PCM Playback Volume\n",
        f"start_audio_loop : {missing}Right PGA Mixer Line1R Switch\n",
        f"stop_audio_loop : {missing}PGA Capture Switch\n",
        f"audio_tone: {missing}Right Line Mixer DACR1 Switch\n",
        f"audio_tone: {missing}Line Playback Switch\n"]), eof=True)
    assert phone.calls() == ""
    assert show(phone, "amp") == {"amp_enable": "0", "amp_gain": "0"}

    phone.plug("soundcard")
    phone.fault("mixer-control", "Mono Playback Switch")
    out, _ = phone.run("tone 1 3")
    assert out == startup().replace(
        "\n\n", f"\ninitialize_audio: {missing}Mono Playback Switch\n\n") + transcript(
        ("tone 1 3", ""), eof=True)
    state = show(phone, "mixer")
    # Stopped at the second output: the first is off, the last untouched by start-up.
    assert state["Line Playback Switch"] == "0,0"
    assert (state["HP Playback Switch"], fresh["HP Playback Switch"]) == ("1,1", "1,1")
    assert show(phone, "amp")["amp_enable"] == "0"


def test_tone_arguments(phone):
    lines = ["tone", "tone 1", "tone 2 1", "tone 1 4", "tone 0 1", "tone x 2", "tone 0"]
    out, _ = phone.run(*lines)
    assert out == startup() + transcript(*zip(lines, [
        BAD_ACTION, BAD_OUTPUT, BAD_ACTION, BAD_OUTPUT, "", "", BAD_OUTPUT]), eof=True)


def test_tone_plays_the_samples_pass_after_pass_until_stopped(phone):
    after = chunk(b"note", b"ab")                        # a chunk after the data: samples too
    put_tone(phone, riff(fmt(extra=b"xy"), chunk(b"LIST", b"odd"),
                         chunk(b"data", bytes(range(256)) * 2), after))
    samples = bytes(range(256)) * 2 + after
    live = Live(phone)
    live.send("tone 1 2")
    wait_until(lambda: int(live.pcm("bytes")) >= 3 * len(samples))
    live.send("tone 0")
    wait_until(lambda: show(phone, "mixer")["Line Playback Switch"] == "0,0")
    at_stop = int(live.pcm("bytes"))
    wait_until(lambda: live.pcm("playing") == "no")
    out = live.close()

    assert out == startup() + transcript(("tone 1 2", ""), ("tone 0", ""), eof=True)
    data = played(phone)
    assert len(data) - at_stop <= BUFFER_BYTES
    assert data == samples * (len(data) // len(samples))
    assert show(phone, "pcm") == {"playing": "no", "format": "S16_LE", "channels": "1",
                                  "rate": "8000", "period_size": "160", "period_count": "4",
                                  "bytes": str(len(data))}
    assert show(phone, "mixer")["Left Line Mixer DACR1 Switch"] == "1"


def test_quick_starts_and_stops_leave_one_player(phone):
    with open(os.path.join(phone.path, TONE), "rb") as f:
        tone = f.read()
    samples = tone[tone.index(b"data") + 8:]
    lines = ["tone 1 2", "tone 0"] * 25 + ["tone 1 3"]
    live = Live(phone)
    live.send(*lines)
    wait_until(lambda: int(live.pcm("bytes")) > len(samples) + BUFFER_BYTES)
    live.send("tone 0")
    wait_until(lambda: live.pcm("playing") == "no")
    out = live.close()
    # A player left over from an earlier start would hold the stream: "busy".
    assert out == startup() + transcript(*[(line, "") for line in lines + ["tone 0"]], eof=True)
    data = played(phone)
    assert len(data) > len(samples) and data == (samples * 2)[:len(data)]
    state = show(phone, "mixer")
    assert (state["Line Playback Switch"], state["HP Playback Switch"]) == ("0,0", "0,0")


def test_second_tone_meets_a_busy_stream_and_one_stop_ends_both(phone):
    live = Live(phone)
    live.send("tone 1 2")
    wait_until(lambda: live.pcm("playing") == "yes")
    live.send("tone 1 0")
    live.printed(BUSY)
    live.send("tone 0")
    wait_until(lambda: live.pcm("playing") == "no")
    out = live.close()
    assert out.count(BUSY) == 1
    assert out.replace(BUSY, "") == startup() + transcript(
        ("tone 1 2", ""), ("tone 1 0", ""), ("tone 0", ""), eof=True)


BAD_FILES = [
    ("missing", None),
    ("ends before its data", riff(fmt(), chunk(b"LIST", b"abcd"))),
]


@pytest.mark.parametrize("data", [c[1] for c in BAD_FILES], ids=[c[0] for c in BAD_FILES])
def test_unplayable_tone_files(phone, data):
    if data is None:
        os.remove(os.path.join(phone.path, TONE))
    else:
        put_tone(phone, data)
    live = Live(phone)
    live.send("tone 1 1")
    live.printed(CANNOT_OPEN)
    live.send("tone 0")
    out = live.close()
    assert out.replace(CANNOT_OPEN, "") == startup() + transcript(("tone 1 1", ""), ("tone 0", ""),
                                                                  eof=True)
    assert show(phone, "pcm")["format"] == ""


def test_write_errors_print_once_per_pass_until_stopped(phone):
    phone.fault("pcm-write")
    live = Live(phone)
    live.send("tone 1 2")
    live.printed(WRITE_ERROR)
    live.send("tone 0")
    wait_until(lambda: live.pcm("playing") == "no")
    out = live.close()
    assert out.count(WRITE_ERROR) >= 1
    assert out.replace(WRITE_ERROR, "") == startup() + transcript(("tone 1 2", ""), ("tone 0", ""),
                                                                  eof=True)
    assert show(phone, "pcm")["bytes"] == "0"


def test_warn_passes_each_word_as_one_argument(phone):
    lines = ["warn 10.0.0.9 ft pw in.wav 200 -5 out.wav", "warn a",
             "warn h u p;reboot it's $(id) `id` *", "warn " + " ".join(["'" * 30] * 7)]
    out, _ = phone.run(*lines)
    assert out == startup() + transcript(*zip(lines, [
        "", "", "", "Command too long (511 characters at most)\n"]), eof=True)
    assert phone.calls() == startup_calls() + (
        "/system/bin/audio_warn.sh 10.0.0.9 ft pw in.wav 200 -5 out.wav\n"
        "/system/bin/audio_warn.sh a      \n"
        "/system/bin/audio_warn.sh h u 'p;reboot' 'it'\\''s' '$(id)' '`id`' '*'\n")
    with open(os.path.join(phone.path, "log", "tools")) as f:
        assert f.read() == ("audio_warn.sh <10.0.0.9> <ft> <pw> <in.wav> <200> <-5> <out.wav>\n"
                            "audio_warn.sh <a>\n"
                            "audio_warn.sh <h> <u> <p;reboot> <it's> <$(id)> <`id`> <*>\n")
