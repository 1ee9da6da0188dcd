"""Storage and peripherals: USB sticks and the USB port, the camera, /cache.

- usb: the port as the maker library keeps it (usb/port: power, device_mode,
  power_fault, limit); the SCSI hosts under sys/class/scsi_host (hostN, with
  device/targetN:0:0/N:0:0:0/model for a stick); each stick's files in the folder
  usb/sdX, which the preload library binds onto the console's mount point when
  it mounts "/dev/block/sdX1" (usb/mounts: what is mounted now, log/mounts:
  every call).
- camera: /dev/video0, an empty file under dev/ whose ioctls the preload answers.
- camhal: the folder /tmp/camhal where the console leaves its marker file.
"""
import os
import re
import shutil

from ftsim.devices import FileNode
from ftsim.phone import Phone, write_atomically
from ftsim.registry import (DEVICES, ENV_HOOKS, HELP, RUN_HOOKS, SETTINGS, Usage, UsageError,
                            add_fault, phone_arg, register_verb)

HOSTS = os.path.join("sys", "class", "scsi_host")
LETTERS = "abcdefghijklmno"
PORT_KEYS = ("power", "device_mode", "power_fault", "limit")
MOUNT_POINT = os.path.join("data", "usb_test")


def read_keys(path):
    try:
        with open(path) as f:
            return dict(line.rstrip("\n").split("=", 1) for line in f if "=" in line)
    except FileNotFoundError:
        return {}


def write_keys(path, keys):
    write_atomically(path, "".join(f"{k}={keys[k]}\n" for k in keys).encode())


def hosts(phone):
    """letter (or "host-onlyN" for a host with no device) -> host number, from usb/hosts."""
    return {key: int(value) for key, value in read_keys(phone.p("usb", "hosts")).items()}


def free_host(phone):
    used = {int(m.group(1)) for m in map(re.compile(r"host(\d+)$").match,
                                          os.listdir(phone.p(HOSTS))) if m}
    return next(n for n in range(len(used) + 1) if n not in used)


class Usb:
    name = "usb"

    def create(self, phone, options):
        os.makedirs(phone.p(HOSTS), exist_ok=True)
        os.makedirs(phone.p("usb"), exist_ok=True)
        write_keys(phone.p("usb", "port"),
                   {"power": "on", "device_mode": 0, "power_fault": 0, "limit": 1})
        open(phone.p("usb", "mounts"), "w").close()
        open(phone.p("usb", "hosts"), "w").close()

    def show(self, phone):
        port = read_keys(phone.p("usb", "port"))
        lines = [f"{k}={port.get(k, '')}" for k in PORT_KEYS]
        with open(phone.p("usb", "mounts")) as f:
            lines += [f"mount={line.rstrip()}" for line in f]
        lines.append("mount_point=" + ("present" if os.path.isdir(phone.p(MOUNT_POINT))
                                       else "absent"))
        for key, host in sorted(hosts(phone).items()):
            if key.startswith("host-only"):
                lines.append(f"host{host}=no device")
                continue
            files = sorted(os.listdir(phone.p("usb", "sd" + key)))
            lines.append(f"sd{key}=host{host} files={','.join(files)}")
        return lines


def _save_hosts(phone, table):
    write_keys(phone.p("usb", "hosts"), table)


def plug_stick(phone, model, letter):
    table = hosts(phone)
    if letter in table:
        raise UsageError(f"a stick is plugged as sd{letter} already")
    n = free_host(phone)
    lun = phone.p(HOSTS, f"host{n}", "device", f"target{n}:0:0", f"{n}:0:0:0")
    os.makedirs(lun)
    write_atomically(os.path.join(lun, "model"), (model + "\n").encode())
    folder, kept = phone.p("usb", "sd" + letter), phone.p("unplugged", "usb-sd" + letter)
    if os.path.isdir(kept):
        os.replace(kept, folder)   # the stick comes back with its files
    else:
        os.makedirs(folder, exist_ok=True)
    table[letter] = n
    _save_hosts(phone, table)


def unplug_stick(phone, letter):
    table = hosts(phone)
    if letter not in table:
        raise UsageError(f"no stick is plugged as sd{letter}")
    shutil.rmtree(phone.p(HOSTS, f"host{table.pop(letter)}"))
    kept = phone.p("unplugged", "usb-sd" + letter)
    shutil.rmtree(kept, ignore_errors=True)
    os.replace(phone.p("usb", "sd" + letter), kept)
    _save_hosts(phone, table)


def add_empty_host(phone):
    table = hosts(phone)
    n = free_host(phone)
    os.makedirs(phone.p(HOSTS, f"host{n}", "device"))
    table[f"host-only{n}"] = n
    _save_hosts(phone, table)


def letter_arg(words):
    if len(words) > 1:
        raise Usage(f"one LETTER at most (not {' '.join(words)!r})")
    letter = words[0] if words else "a"
    if len(letter) != 1 or letter not in LETTERS:
        raise UsageError(f"a stick's letter is a to o (not {letter!r})")
    return letter


@register_verb("usb", "plugs or pulls a USB stick, or adds a SCSI host with no device")
def setup_usb(parser):
    phone_arg(parser)
    parser.add_argument("action", choices=("plug", "unplug", "host-only"),
                        metavar="plug|unplug|host-only",
                        help="plug MODEL [LETTER], unplug [LETTER] (LETTER a to o, default a), "
                             "host-only")
    parser.add_argument("words", nargs="*", metavar="MODEL|LETTER")

    def run(args):
        phone, words = Phone(args.phone).require(), args.words
        if args.action == "plug":
            if not words or not words[0] or "\n" in words[0]:
                raise Usage("plug takes a MODEL, one line of text")
            plug_stick(phone, words[0], letter_arg(words[1:]))
        elif args.action == "unplug":
            unplug_stick(phone, letter_arg(words))
        elif words:
            raise Usage("host-only takes nothing more")
        else:
            add_empty_host(phone)
    return run


def port_setting(key):
    def set_value(phone, value):
        if not re.fullmatch(r"-?\d+", value):
            raise UsageError(f"usb.{key} is a whole number (not {value!r})")
        port = read_keys(phone.p("usb", "port"))
        port[key] = int(value)
        write_keys(phone.p("usb", "port"), port)
    return set_value


class Camera(FileNode):
    name = "camera"
    node = "video0"

    def show(self, phone):
        return ["present=" + ("yes" if self.plugged(phone) else "no")]


class Camhal:
    """/tmp/camhal, the camera service's folder."""
    name = "camhal"

    def create(self, phone, options):
        os.makedirs(phone.p("tmp", "camhal"), exist_ok=True)

    def unplug(self, phone):
        if os.path.isdir(phone.p("tmp", "camhal")):
            shutil.rmtree(phone.p("unplugged", "camhal"), ignore_errors=True)
            os.replace(phone.p("tmp", "camhal"), phone.p("unplugged", "camhal"))

    def plug(self, phone):
        if os.path.isdir(phone.p("unplugged", "camhal")):
            os.replace(phone.p("unplugged", "camhal"), phone.p("tmp", "camhal"))
        else:
            self.create(phone, {})

    def show(self, phone):
        marker = phone.p("tmp", "camhal", "ft_specialresolution.txt")
        lines = ["present=" + ("yes" if os.path.isdir(phone.p("tmp", "camhal")) else "no")]
        if os.path.exists(marker):
            lines.append(f"marker={os.stat(marker).st_mode & 0o777:04o}")
        return lines


def alloc_size(word):
    if not re.fullmatch(r"\d+", word) or int(word) == 0:
        raise UsageError(f"an allocation size is a number of bytes, 1 or more (not {word!r})")
    return str(int(word))


def run_hook(phone, build):
    """What holds for the whole run: nothing mounted yet, /cache and /data read-only or not."""
    open(phone.p("usb", "mounts"), "w").close()
    binds = []
    for folder in ("cache", "data"):
        if phone.fault(folder + "-readonly"):
            binds += ["--ro-bind", phone.p(folder), "/" + folder]
    return binds


def env_hook(phone, build, env):
    """The sanitizer build's allocator is its own: it gets the alloc fault as its
    options (a limit in whole MiB, allocations above it return null)."""
    if build != "asan":
        return
    for fault in os.listdir(phone.p("faults")):
        if fault.startswith("alloc."):
            mib = max(1, (int(fault[len("alloc."):]) - 1) >> 20)
            env["ASAN_OPTIONS"] += f":allocator_may_return_null=1:max_allocation_size_mb={mib}"


for _dev in (Usb(), Camera(), Camhal()):
    DEVICES[_dev.name] = _dev

HELP["device", "usb"] = "the port, what the console has mounted, the sticks and their files"
HELP["device", "camera"] = "/dev/video0: present="
HELP["device", "camhal"] = "the camera service's folder /tmp/camhal: present=, marker= its mode"

SETTINGS["usb.device_mode"] = ("usb.device_mode N", port_setting("device_mode"))
SETTINGS["usb.power_fault"] = ("usb.power_fault N", port_setting("power_fault"))
SETTINGS["usb.limit"] = ("usb.limit N", port_setting("limit"))
HELP["setting", "usb.device_mode"] = "the USB port's device mode: any N but 0 refuses power switching"
HELP["setting", "usb.power_fault"] = "the flag Usb_HadPowerFault reports (0 none, 1 fault, or any N)"
HELP["setting", "usb.limit"] = "the current limit Usb_GetCurrentLimit reports (0, 1, or any N)"

add_fault("usb", "every USB port call of the maker library fails")
add_fault("usb-io", "every write to a file on a mounted stick fails (EIO)")
add_fault("usb-corrupt", "one read from a mounted stick comes back changed")
add_fault("usb-opendir", "opening the USB test's mount point /data/usb_test fails (EIO)")
add_fault("usb-create", "making a file in /data/usb_test fails (EROFS, a write-protected stick)")
add_fault("usb-seek", "every seek in a file on a mounted stick fails (EIO)")
add_fault("camera-no-capture", "the camera answers without the capture capability")
add_fault("camera-query", "VIDIOC_QUERYCAP on /dev/video0 fails (EIO)")
add_fault("cache-readonly", "/cache is mounted read-only, from the next run on")
add_fault("cache-unreadable", "opening a file under /cache for reading fails (EIO)")
add_fault("cache-changed", "a file under /cache opened for reading has its first byte changed")
add_fault("cache-undeletable", "removing a file under /cache fails (EBUSY)")
add_fault("data-readonly", "/data is mounted read-only (no USB mount point can be made), "
          "from the next run on")
add_fault("scsi-hosts-unreadable", "opening /sys/class/scsi_host fails (EACCES)")
alloc_size.metavar = "SIZE"
add_fault("alloc", "the console's allocations of SIZE bytes or more fail, from the next run on",
          alloc_size)
RUN_HOOKS.append(run_hook)
ENV_HOOKS.append(env_hook)
