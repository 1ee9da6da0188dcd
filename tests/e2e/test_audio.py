"""Audio against the simulated sound card: mixer values after each command, what
the playback stream received, the play-and-record script's arguments."""
import io
import os
import struct

import pexpect
import pytest
from pexpect.popen_spawn import PopenSpawn

from conftest import BUILD, BUILD_STAMP, FTSIM, startup, startup_calls, transcript, until

BAD_DEVICES = "<input> and <output> must contain valid values (0, 1, 2 or 3)\n"
NOT_STARTED = "Audio Loop not started!\n"
BAD_ACTION = "<action> must contain valid values (0 or 1)\n"
BAD_OUTPUT = "<output> must contain valid values (0, 1, 2 or 3)\n"
INVALID = "FAIL\nft : Err Invalid action\n"
TONE = os.path.join("system", "media", "audio", "ui", "dialtone.wav")
CANNOT_OPEN = "play_thread : Unable to open file '/system/media/audio/ui/dialtone.wav'\n"
SOURCES = ("Line2L Bypass", "PGAL Bypass", "DACL1", "Line2R Bypass", "DACR1", "PGAR Bypass")
INPUTS = ("Line1R", "Line2R", "Line1L", "Mic3L", "Mic3R")
OUTPUTS = ("Line Playback Switch", "Mono Playback Switch", "HP Playback Switch")
pytestmark = pytest.mark.filterwarnings("ignore:setDaemon:DeprecationWarning")   # PopenSpawn


def show(phone, what):
    return dict(line.split("=", 1) for line in phone.show(what).splitlines())


def after_startup(fresh):
    """Start-up sets every level and turns every output off; routes stay as they were."""
    def value(name, old):
        new = "100" if name == "PCM Playback Volume" else "118" if name.endswith("Volume") else "0"
        return ",".join([new] * len(old.split(","))) if new != "0" or name in OUTPUTS else old
    return {name: value(name, old) for name, old in fresh.items()}


def only(mixer, keep=None):
    return {f"{mixer} Mixer {s} Switch": "1" if s == keep else "0" for s in SOURCES}


def inputs(on=None):
    return {f"Right PGA Mixer {s} Switch": "1" if s == on else "0" for s in INPUTS}


def live(phone):
    """The console on a pipe, fed line by line while the test watches the phone."""
    console = PopenSpawn([FTSIM, "run", "--build", BUILD, phone.path], encoding="utf-8",
                         timeout=20)
    console.logfile_read = io.StringIO()
    return console


def finish(console):
    console.sendeof()
    console.expect(pexpect.EOF)
    assert console.wait() == 0
    return BUILD_STAMP.sub("Factory Test <build>", console.logfile_read.getvalue())


def pcm(phone, key="playing"):
    return show(phone, "pcm")[key]


def chunk(ident, payload):
    return ident + struct.pack("<I", len(payload)) + payload


def riff(*chunks):
    body = b"WAVE" + b"".join(chunks)
    return b"RIFF" + struct.pack("<I", len(body)) + body


FMT = chunk(b"fmt ", struct.pack("<HHIIHH", 1, 1, 8000, 16000, 2, 16) + b"xy")


def put_tone(phone, data):
    with open(os.path.join(phone.path, TONE), "wb") as f:
        f.write(data)


# Output 3 fed from the capture amplifier's bypass.
HP_LOOP = {**only("Right HP", "PGAR Bypass"), **only("Left HP", "PGAR Bypass"),
           "HP Playback Switch": "1,1"}
# (lines, their outputs, mixer and amplifier values that differ from after start-up)
COMMANDS = [
    (["loop", "loop 1 0", "loop 2", "loop 1"],
     [NOT_STARTED, BAD_DEVICES, "Invalid command - Invalid Action\n",
      "<input> and <output> must both be specified to start the test\n"], {}),
    (["loop 1 3 3", "loop 0 9 9"], ["", ""],
     {**inputs(), "PGA Capture Switch": "0,0", **only("Right HP"), **only("Left HP")}),
    (["loop 1 0 1", "loop 1 2 3"], ["", ""],
     {**inputs("Line1L"), "PGA Capture Switch": "0,1", **only("Mono"), **HP_LOOP}),
    (["loop 1 0 0", "loop 1 4 0", "loop 0"], ["", BAD_DEVICES, NOT_STARTED],
     {**inputs(), "PGA Capture Switch": "0,0", **only("Right Line")}),
    # A tone stopped on the loop's output silences it; the loop still counts as running.
    (["loop 1 1 1", "tone 0 1", "loop 0"], ["", "", ""],
     {**inputs(), "PGA Capture Switch": "0,0", **only("Mono")}),
    (["tone", "tone 1", "tone 2 1", "tone 1 4", "tone 0 1", "tone x 2", "tone 0"],
     [BAD_ACTION, BAD_OUTPUT, BAD_ACTION, BAD_OUTPUT, "", "", BAD_OUTPUT], {}),
    (["section508 10", "section508", "section508 x"], ["", INVALID, INVALID],
     {"PCM Playback Volume": "127,127", "amp_gain": "1"}),
    (["section508 10", "section508 0"], ["", ""], {}),
]


@pytest.mark.parametrize("lines,outputs,changes", COMMANDS,
                         ids=[" / ".join(c[0]) for c in COMMANDS])
def test_commands_set_the_mixer(phone, lines, outputs, changes):
    expected = {**after_startup(show(phone, "mixer")), "amp_enable": "1", "amp_gain": "0",
                **changes}
    out, _ = phone.run(*lines)
    assert out == startup() + transcript(*zip(lines, outputs), eof=True)
    assert {**show(phone, "mixer"), **show(phone, "amp")} == expected


def test_missing_card(phone):
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


def test_quick_starts_and_stops_leave_one_player_playing_pass_after_pass(phone):
    after = chunk(b"note", b"ab")                        # a chunk after the data: samples too
    put_tone(phone, riff(FMT, chunk(b"LIST", b"odd"), chunk(b"data", bytes(range(256)) * 2), after))
    samples = bytes(range(256)) * 2 + after
    lines = ["tone 1 2", "tone 0"] * 25 + ["tone 1 3"]
    console = live(phone)
    console.send("".join(line + "\n" for line in lines))
    # The last start has turned its output on and its player has the stream.
    until("the last start playing", lambda: show(phone, "mixer")["HP Playback Switch"] == "1,1"
          and pcm(phone) == "yes" and int(pcm(phone, "bytes")) >= 3 * len(samples), 20)
    console.send("tone 0\n")
    until("the output off", lambda: show(phone, "mixer")["HP Playback Switch"] == "0,0", 20)
    at_stop = int(pcm(phone, "bytes"))
    until("the player gone", lambda: pcm(phone) == "no", 20)
    # A player left over from an earlier start would hold the stream: "busy".
    out = finish(console)
    assert out == startup() + transcript(*[(line, "") for line in lines + ["tone 0"]], eof=True)
    with open(os.path.join(phone.path, "log", "pcmC1D5p.wav"), "rb") as f:
        data = f.read()[44:]
    assert len(data) - at_stop <= 640 * 2      # one buffer of 16-bit mono
    assert data == samples * (len(data) // len(samples))
    assert show(phone, "pcm") == {"playing": "no", "format": "S16_LE", "channels": "1",
                                  "rate": "8000", "period_size": "160", "period_count": "4",
                                  "bytes": str(len(data))}
    state = show(phone, "mixer")
    assert (state["Left Line Mixer DACR1 Switch"], state["Line Playback Switch"]) == ("1", "0,0")


# (what, how the phone is set up, start lines, what a player prints)
FAILURES = [
    ("missing file", lambda p: os.remove(os.path.join(p.path, TONE)), ["tone 1 1"], CANNOT_OPEN),
    # The second start meets the stream the first holds; one stop ends both.
    ("busy", lambda p: None, ["tone 1 2", "tone 1 0"], "play_sample : Unable to open PCM device 5 "
     "(cannot open device '/dev/snd/pcmC1D5p': Device or resource busy)\n"),
    ("write errors", lambda p: p.fault("pcm-write"), ["tone 1 2"], "Error playing tone\n"),
]
# Files that end before their samples.
FAILURES += [(what, lambda p, d=data: put_tone(p, d), ["tone 1 1"], CANNOT_OPEN)
             for what, data in [("cut in its format", riff(FMT)[:30]),
                                ("skips past its end", riff(FMT, b"LIST\xf0\xff\xff\xff",
                                                            chunk(b"data", b"ab")))]]


@pytest.mark.parametrize("setup,starts,printed", [c[1:] for c in FAILURES],
                         ids=[c[0] for c in FAILURES])
def test_tone_failures_print_and_a_stop_still_works(phone, setup, starts, printed):
    setup(phone)
    console = live(phone)
    console.send("".join(line + "\n" for line in starts))
    console.expect_exact(printed)
    console.send("tone 0\n")
    until("the player gone", lambda: pcm(phone) == "no", 20)
    out = finish(console)
    assert out.replace(printed, "") == startup() + transcript(
        *[(line, "") for line in starts + ["tone 0"]], eof=True)
    # A file without samples opens no stream.
    assert printed != CANNOT_OPEN or pcm(phone, "format") == ""


def test_warn_leaves_out_the_words_not_given(phone):
    out, _ = phone.run("warn a")
    assert out == startup() + transcript(("warn a", ""), eof=True)
    assert phone.calls() == startup_calls() + "/system/bin/audio_warn.sh a      \n"
    with open(os.path.join(phone.path, "log", "tools")) as f:
        assert f.read() == "audio_warn.sh <a>\n"
