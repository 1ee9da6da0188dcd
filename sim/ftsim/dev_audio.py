"""Sound card 1 (the codec's mixer and its playback stream) and the wired-handset
amplifier nodes. The simulated tinyalsa keeps the card under dev/snd/:

- controlC1: every control as NAME=VALUE[,VALUE...], one a line;
- pcmC1D5p: the playback node, held (flock) while a stream is open.

run/pcmC1D5p holds the stream's state and log/pcmC1D5p.wav the frames written
since it was last opened. Playback runs while the node is held."""
import os
import shutil
import struct

from ftsim import sandbox
from ftsim.devices import FileNode
from ftsim.phone import write_atomically
from ftsim.registry import HELP, UsageError, add_fault, device

PCM = "pcmC1D5p"
AMP = os.path.join("sys", "class", "audio_ports_ctl", "wired_handset")
DIALTONE = os.path.join("system", "media", "audio", "ui", "dialtone.wav")

_LEVELS = [("PCM Playback Volume", 2)]
_LEVELS += [(f"{side} {mixer} Mixer {src} Volume", 1)
            for mixer in ("Line", "HP")
            for side, other in (("Left", "R"), ("Right", "L"))
            for src in (f"Line2{other} Bypass", f"PGA{other} Bypass", f"DAC{other}1 Playback")]
_LEVELS += [(f"{out} {src} Volume", 2) for out in ("Line", "Mono", "HP")
            for src in ("Line2 Bypass", "PGA Bypass", "DAC Playback")]
_LEVELS += [("PGA Capture Volume", 2)]
_SWITCHES = [("Line Playback Switch", 2), ("Mono Playback Switch", 1), ("HP Playback Switch", 2),
             ("PGA Capture Switch", 2)]
_SWITCHES += [(f"Right PGA Mixer {src} Switch", 1)
              for src in ("Line1R", "Line2R", "Line1L", "Mic3L", "Mic3R")]
_SWITCHES += [(f"{mixer} Mixer {src} Switch", 1)
              for mixer in ("Right Line", "Mono", "Left Line", "Right HP", "Left HP")
              for src in ("Line2L Bypass", "PGAL Bypass", "DACL1", "Line2R Bypass", "DACR1",
                          "PGAR Bypass")]
# Controls of the codec with their value counts. A fresh phone's card is as the
# telephony service left it: every switch on, every level at 0.
CONTROLS = [(name, n, 0) for name, n in _LEVELS] + [(name, n, 1) for name, n in _SWITCHES]


def control_name(name):
    if name not in {c for c, _, _ in CONTROLS}:
        raise UsageError(f"no mixer control {name!r}")
    return name


control_name.metavar = "NAME"
add_fault("mixer-control", "sound card 1 has no control NAME (\"Mono Playback Switch\")", control_name)
add_fault("pcm-write", "every write to the playback stream fails")
HELP["device", "soundcard"] = "sound card 1's nodes under /dev/snd: present="
HELP["device", "mixer"] = "every control of sound card 1 as NAME=VALUE[,VALUE...]"
HELP["device", "pcm"] = "the playback stream: playing=, its format, bytes= written"
HELP["device", "amp"] = "the wired-handset amplifier nodes: amp_enable=, amp_gain="


@device
class SoundCard(FileNode):
    name = "soundcard"
    node = "snd"

    def create(self, phone, options):
        os.makedirs(phone.p("dev", "snd"))
        text = "".join(f"{name}={','.join([str(v)] * n)}\n" for name, n, v in CONTROLS)
        write_atomically(phone.p("dev", "snd", "controlC1"), text.encode())
        open(phone.p("dev", "snd", PCM), "wb").close()
        os.makedirs(phone.p(AMP))
        for node in ("amp_enable", "amp_gain"):
            with open(phone.p(AMP, node), "w") as f:
                f.write("0\n")
        built = os.path.join(sandbox.build_dir("host"), "out", "media", "dialtone.wav")
        if os.path.isfile(built):
            os.makedirs(os.path.dirname(phone.p(DIALTONE)))
            shutil.copyfile(built, phone.p(DIALTONE))

    def show(self, phone):
        return ["present=" + ("yes" if self.plugged(phone) else "no")]


def _card_file(phone, name):
    for d in ("dev", "unplugged"):
        try:
            with open(phone.p(d, "snd", name), "rb") as f:
                return f.read().decode("utf-8", "backslashreplace")
        except FileNotFoundError:
            pass
    return ""


@device
class Mixer:
    name = "mixer"

    def create(self, phone, options):
        pass

    def show(self, phone):
        return _card_file(phone, "controlC1").splitlines()


@device
class Pcm:
    name = "pcm"

    def create(self, phone, options):
        pass

    def show(self, phone):
        state = {"playing": "", "format": "", "channels": "", "rate": "",
                 "period_size": "", "period_count": ""}
        try:
            with open(phone.p("run", PCM)) as f:
                state.update(line.split("=", 1) for line in f.read().splitlines() if "=" in line)
        except FileNotFoundError:
            pass
        data = 0
        try:
            with open(phone.p("log", PCM + ".wav"), "rb") as f:
                header = f.read(44)
            if len(header) == 44:
                data = struct.unpack_from("<I", header, 40)[0]
        except FileNotFoundError:
            pass
        state["playing"] = "yes" if _held(phone.p("dev", "snd", PCM)) else "no"
        return [f"{k}={v}" for k, v in state.items()] + [f"bytes={data}"]


def _held(path):
    """True while some process holds a lock on `path` (an open stream): a crashed
    or exited console lets go of it, as a driver's release does."""
    try:
        st = os.stat(path)
    except FileNotFoundError:
        return False
    key = f"{os.major(st.st_dev):02x}:{os.minor(st.st_dev):02x}:{st.st_ino}"
    with open("/proc/locks") as f:
        return any(key in line.split() for line in f)


@device
class Amp:
    name = "amp"

    def create(self, phone, options):
        pass

    def show(self, phone):
        lines = []
        for node in ("amp_enable", "amp_gain"):
            try:
                with open(phone.p(AMP, node)) as f:
                    lines.append(f"{node}={f.read().strip()}")
            except FileNotFoundError:
                lines.append(f"{node}=")
        return lines
