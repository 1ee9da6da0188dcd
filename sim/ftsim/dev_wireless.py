"""The phone's radios. Wi-Fi: the driver modules mlan and sd8xxx (the
preload library keeps the module list, see sim/preload/modules.cpp), wlan0 as a
tap in the run's network namespace, the access points iwlist finds. Bluetooth:
the module mbt8xxx with /dev/mbtchar0, and the Android stack that the simulated
hardware module runs (sim/libbluetooth), with its devices and discovery time.

Each run is a boot: no module loaded (but those of `set PHONE boot-modules`),
no wlan0, no /dev/mbtchar0 (but for a boot's mbt8xxx). The console
makes wlan0 itself through /dev/net/tun, bound into the sandbox, so the tap
lives and dies with the run's network namespace.

Files: wireless/aps, wireless/bt-devices, wireless/bt-discovery-ms,
wireless/cap-wifi, wireless/cap-bt, wireless/boot-modules; run/modules and run/bt (state);
log/modules (every module call)."""
import os
import re
import shutil

from ftsim import sandbox
from ftsim.phone import Phone, write_atomically
from ftsim.registry import (HELP, RUN_HOOKS, SETTINGS, UsageError, add_fault, device, nth_call,
                            phone_arg, register_verb)

MODULES = ("mlan", "sd8xxx", "mbt8xxx")
ADDRESS = re.compile(r"[0-9A-Fa-f]{2}(:[0-9A-Fa-f]{2}){5}")
DEVICE_TYPES = {"BREDR": 1, "BLE": 2, "DUAL": 3}
MAX_LINES = 1000
# What a fresh phone hears on the station's bench: the station's own access
# point and its Bluetooth reference device, both well inside the production
# plan's limits. The reference device has a class and a name, so its first row
# (address, type and RSSI) comes at a quarter of the discovery.
STATION_APS = "ft-station 6 -48\n"
REFERENCE_DEVICES = "00:1B:4F:F0:00:01 ft-reference 0x1f00 1 -55\n"   # type 1: BR/EDR


def _wireless(phone, name):
    return phone.p("wireless", name)


def module_name(name):
    if name not in MODULES:
        raise UsageError(f"no module {name!r} (one of: {', '.join(MODULES)})")
    return name


module_name.metavar = "NAME"


def _read(path, default=""):
    try:
        with open(path) as f:
            return f.read()
    except FileNotFoundError:
        return default


@device
class Modules:
    name = "modules"

    def create(self, phone, options):
        os.makedirs(phone.p("wireless"), exist_ok=True)
        write_atomically(_wireless(phone, "aps"), STATION_APS.encode())
        write_atomically(_wireless(phone, "bt-devices"), REFERENCE_DEVICES.encode())
        boot(phone)

    def show(self, phone):
        """loaded= the listed modules in load order (an unloading one with a
        trailing *), then NAME.params= each one's last load parameters,
        wlan0= and mbtchar0= present|absent."""
        listed = []
        for line in _read(phone.p("run", "modules")).splitlines():
            fields = line.split()
            if fields:
                listed.append(fields[0] + ("*" if "Unloading" in fields else ""))
        params = {}
        for line in _read(phone.p("log", "modules")).splitlines():
            m = re.fullmatch(r'init_module (\S+) "(.*)" -> 0', line)
            if m:
                params[m.group(1)] = m.group(2)
        lines = ["loaded=" + ",".join(listed)]
        lines += [f"{name}.params={params[name]}" for name in MODULES if name in params]
        present = os.path.exists(phone.p("sys", "class", "net", "wlan0", "address"))
        lines.append("wlan0=" + ("present" if present else "absent"))
        lines.append("mbtchar0=" + ("present" if os.path.exists(phone.p("dev", "mbtchar0")) else "absent"))
        return lines


@device
class Bluetooth:
    name = "bt"

    def create(self, phone, options):
        pass

    def show(self, phone):
        """The stack's state: initialized=, adapter=on|off, discovery=running|stopped,
        alarms= the wake alarms that fired, discovery-ms=, devices= listed."""
        state = _read(phone.p("run", "bt"), "initialized=no\nadapter=off\ndiscovery=stopped\nalarms=0\n")
        lines = state.splitlines()
        lines.append("discovery-ms=" + (_read(_wireless(phone, "bt-discovery-ms")) or "3000"))
        devices = [l for l in _read(_wireless(phone, "bt-devices")).splitlines() if l]
        lines.append(f"devices={len(devices)}")
        return lines


def boot(phone):
    """What a boot leaves: the boot's modules listed (none unless set), no wlan0,
    /dev/mbtchar0 only for a listed mbt8xxx."""
    for stale in (phone.p("run", "bt"), phone.p("dev", "mbtchar0")):
        try:
            os.remove(stale)
        except FileNotFoundError:
            pass
    shutil.rmtree(phone.p("sys", "class", "net", "wlan0"), ignore_errors=True)
    names = [n for n in _read(_wireless(phone, "boot-modules")).split(",") if n]
    lines, address = [], 0xbf000000
    for name in names:
        try:
            size = os.path.getsize(phone.p("system", "lib", "modules", name + ".ko"))
        except OSError:
            size = 4096
        users = "sd8xxx," if name == "mlan" and "sd8xxx" in names else "-"
        lines.append(f"{name} {size} {int(users != '-')} {users} Live 0x{address:08x}\n")
        address += (size + 0xfff) & ~0xfff
    write_atomically(phone.p("run", "modules"), "".join(lines).encode())
    if "mbt8xxx" in names and not phone.fault("mbtchar0-missing"):
        open(phone.p("dev", "mbtchar0"), "w").close()


def _boot_modules(value):
    names = [] if value == "none" else value.split(",")
    for name in names:
        module_name(name)
    if len(set(names)) != len(names):
        raise UsageError("each module once")
    return ",".join(names)


def run_hook(phone, build):
    boot(phone)
    # The stack's hardware module, where the phone's loader looks for it.
    module = os.path.join(sandbox.build_dir(build), "out", "lib", "hw", "bluetooth.default.so")
    if os.path.isfile(module):
        os.makedirs(phone.p("system", "lib", "hw"), exist_ok=True)
        tmp = phone.p("system", "lib", "hw", "bluetooth.default.so.new")
        shutil.copy2(module, tmp)
        os.replace(tmp, phone.p("system", "lib", "hw", "bluetooth.default.so"))
    if os.path.exists("/dev/net/tun"):
        return ["--dev-bind", "/dev/net/tun", "/dev/net/tun"]
    return []


def _lines(path):
    try:
        with open(path) as f:
            lines = [l.split() for l in f.read().splitlines() if l.strip() and not l.startswith("#")]
    except OSError as e:
        raise UsageError(f"{path}: {e.strerror}")
    if len(lines) > MAX_LINES:
        raise UsageError(f"{path}: {MAX_LINES} lines at most")
    return lines


def _int(text, what, low, high, base=10):
    try:
        value = int(text, base)
    except ValueError:
        value = None
    if value is None or not low <= value <= high:
        raise UsageError(f"{what} {text!r} is not a number from {low} to {high}")
    return value


def _access_points(path):
    out = []
    for n, f in enumerate(_lines(path), 1):
        if len(f) != 3 or not re.fullmatch(r'[^"\\]{1,32}', f[0]):
            raise UsageError(f"{path}:{n}: want SSID CHANNEL SIGNAL")
        out.append(f"{f[0]} {_int(f[1], 'channel', 1, 196)} {_int(f[2], 'signal', -110, 0)}")
    return out


def _bt_devices(path):
    out = []
    for n, f in enumerate(_lines(path), 1):
        if len(f) != 5 or not ADDRESS.fullmatch(f[0]) or len(f[1]) > 248:
            raise UsageError(f"{path}:{n}: want ADDRESS NAME CLASS TYPE RSSI")
        cod = _int(f[2], "class", 0, 0xFFFFFF, 16)
        kind = DEVICE_TYPES.get(f[3].upper())
        if kind is None:
            kind = _int(f[3], "type", 0, 255)
        rssi = _int(f[4], "RSSI", -128, 127)
        out.append(f"{f[0].upper()} {f[1]} {cod:#x} {kind} {rssi}")
    return out


def _list_verb(what, file_name, convert, help):
    def setup(parser):
        phone_arg(parser)
        parser.add_argument("what", choices=[what], help=f"{what}: the list below")
        parser.add_argument("file", metavar="FILE", help=help)

        def run(args):
            phone = Phone(args.phone).require()
            lines = convert(args.file)
            os.makedirs(phone.p("wireless"), exist_ok=True)
            write_atomically(_wireless(phone, file_name), "".join(l + "\n" for l in lines).encode())
        return run
    return setup


def _setting(name, check):
    def apply(phone, value):
        os.makedirs(phone.p("wireless"), exist_ok=True)
        write_atomically(_wireless(phone, name), check(value).encode())
    return apply


def _flag(value):
    if value not in ("0", "1"):
        raise UsageError(f"{value!r}: the capability is 0 (absent) or 1 (fitted)")
    return value


HELP["device", "modules"] = "the kernel modules listed, their parameters, wlan0 and /dev/mbtchar0"
HELP["device", "bt"] = "the Bluetooth stack: adapter, discovery, wake alarms, devices listed"
add_fault("module-busy", "removing the module NAME (mlan, sd8xxx, mbt8xxx) fails with EAGAIN", module_name)
add_fault("module-stuck", "removing NAME succeeds but it stays listed, unloading", module_name)
add_fault("module-missing", "/system/lib/modules/NAME.ko is absent", module_name)
add_fault("mbtchar0-missing", "loading mbt8xxx makes no /dev/mbtchar0")
add_fault("modules-unreadable", "opening /proc/modules fails (EACCES)")
add_fault("cap-wifi-error", "Cap_WiFi fails (-1)")
add_fault("cap-bt-error", "Cap_Bluetooth fails (-1)")
BT_CALLS = ("interface", "init", "set_os_callouts", "enable", "disable", "get_adapter_property",
            "start_discovery", "cancel_discovery")
BT_PROPS = ("bad-status", "no-address", "unsolicited")


def bt_call(arg):
    call, nth = nth_call(arg)
    if call not in BT_CALLS:
        raise UsageError(f"no Bluetooth stack call {call!r} (one of: {', '.join(BT_CALLS)})")
    return call + nth


def bt_props(arg):
    if arg not in BT_PROPS:
        raise UsageError(f"no adapter property fault {arg!r} (one of: {', '.join(BT_PROPS)})")
    return arg


def bt_late(arg):
    return str(_int(arg, "delay", 1, 600000))


bt_call.metavar = "NAME[@N]"
bt_props.metavar = "|".join(BT_PROPS)
bt_late.metavar = "MS"
add_fault("bt-call", "that Bluetooth stack call fails (interface: the device has none); with @N only "
          "its Nth call of the run", bt_call)
add_fault("bt-props", "the adapter's address comes with a failed status, without the address, or "
          "also unasked as the adapter turns on", bt_props)
add_fault("bt-device-no-address", "devices found by a discovery come without their address")
add_fault("bt-late", "every Bluetooth stack callback comes MS milliseconds later", bt_late)
add_fault("bt-silent", "the Bluetooth stack never calls back")
add_fault("bt-hal-missing", "the phone has no Bluetooth hardware module")
add_fault("bt-enable-error", "the Bluetooth stack's enable fails")
register_verb("wifi", "the access points the phone's iwlist finds",
              _list_verb("aps", "aps", _access_points, "one SSID CHANNEL SIGNAL line each"))
register_verb("bt", "the devices a Bluetooth discovery finds",
              _list_verb("devices", "bt-devices", _bt_devices,
                         "one ADDRESS NAME CLASS TYPE RSSI line each"))
SETTINGS["cap-wifi"] = ("cap-wifi 0|1", _setting("cap-wifi", _flag))
SETTINGS["cap-bt"] = ("cap-bt 0|1", _setting("cap-bt", _flag))
SETTINGS["boot-modules"] = ("boot-modules NAME[,NAME...]|none", _setting("boot-modules", _boot_modules))
HELP["setting", "boot-modules"] = ("the modules listed as a run starts (mlan, sd8xxx, mbt8xxx), in that"
                                   " order; their wlan0 is not made, /dev/mbtchar0 is")
SETTINGS["bt-discovery-ms"] = ("bt-discovery-ms N", _setting(
    "bt-discovery-ms", lambda v: str(_int(v, "discovery time", 0, 600000))))
HELP["setting", "cap-wifi"] = "what Cap_WiFi reports (1: fitted, the default)"
HELP["setting", "cap-bt"] = "what Cap_Bluetooth reports (1: fitted, the default)"
HELP["setting", "bt-discovery-ms"] = "how long a Bluetooth discovery runs (default 3000)"
RUN_HOOKS.append(run_hook)
