"""Flash and RAM tests, the USB port and sticks, the camera, through ./ftsim."""
import os

import pexpect
import pytest

from conftest import BUILD, QUIT, ftsim, quit_terminal, startup, terminal, transcript, until
from test_network import Console

PROGRESS = "Test in progress... for mem block=67108864 Bytes and 4194304 Bytes. Please wait...\n"
RUNNING = "USB test in progress... Press Ctrl+C to abort\n"
NO_STICK = "USB device cannot be mounted or is not attached to the phone\n"
MOUNT_POINT = ("data", "usb_test")


def run(phone, *steps):
    out, rc = phone.run(*(line for line, _ in steps))
    assert (out, rc) == (startup() + transcript(*steps, eof=True), 0)


def mount_log(phone):
    try:
        with open(os.path.join(phone.path, "log", "mounts")) as f:
            return f.read().splitlines()
    except FileNotFoundError:
        return []


def mount_call(letter, result):
    return f'mount /dev/block/sd{letter}1 /data/usb_test vfat flags=18 data="" = {result}'


UMOUNT = "umount2 /data/usb_test flags=2 = 0"


def assert_released(phone, letter="a"):
    """Nothing of a usbrw run left: no test file, no mount point, no mount."""
    assert os.listdir(os.path.join(phone.path, "usb", "sd" + letter)) == []
    assert not os.path.exists(os.path.join(phone.path, *MOUNT_POINT))
    assert "mount=" not in phone.show("usb")


# (fault, what flash prints): each on a run of its own.
FLASH_FAILURES = [
    ("cache-readonly", "FAIL to open file /cache/test.txt for write operation\n"),
    ("cache-unreadable", "FAIL to open file /cache/test.txt for read operation\n"),
    ("cache-changed", "FAIL. The string in /cache/test.txt does not match the string that was written"
                      " to the file\n"),
    ("cache-undeletable", "FAIL to remove /cache/test.txt file\n"),
]


def test_flash_twice_then_each_failure(phone):
    run(phone, ("flash", "PASS\n"), ("flash", "PASS\n"))
    assert os.listdir(os.path.join(phone.path, "cache")) == []
    for fault, out in FLASH_FAILURES:
        phone.fault("clear")
        phone.fault(fault)
        run(phone, ("flash", out))


def test_sdram_words(phone):
    run(phone, ("sdram", "FAIL. Invalid parameter.\n"), ("sdram x", "FAIL. Invalid parameter.\n"),
        ("sdram 2", "FAIL. Type should be 0 or 1\n"), ("sdram -1", "FAIL. Type should be 0 or 1\n"),
        ("sdram 0", PROGRESS + "PASS\n"), ("sdram 1x", PROGRESS + "PASS\n"))


# host and arm: the preload library refuses the allocation, silently; asan: the
# sanitizer's own allocator does, from the limit ftsim puts in its options (whole
# MiB), and says so on standard error. A guard block refused after the test block
# was granted is a unit test's case.
def test_sdram_allocation_refused(phone):
    phone.fault("alloc", "67108864")
    steps = [("sdram 1", PROGRESS + "FAIL to allocate 67108864 Bytes of memory block\n"),
             ("flash", "PASS\n")]
    r = ftsim("run", "--build", BUILD, phone.path, input="sdram 1\nflash\n")
    assert (r.stdout, r.returncode) == (startup() + transcript(*steps, eof=True), 0)
    # ==2==: the console is the sandbox's process 2.
    refused = "==2==WARNING: AddressSanitizer failed to allocate 0x4000000 bytes\n"
    assert r.stderr == (refused if BUILD == "asan" else "")


def test_usb_port_paths(phone):
    device_mode = "USB port is in device mode. Could not provide power on USB port.\n"
    cases = [
        # (settings, line, output, power afterwards)
        ({}, "usb power off", "PASS\n", "off"),
        ({}, "usb power on", "PASS\n", "on"),
        ({}, "usb power", "FAIL\n", "on"),
        ({"device_mode": "1"}, "usb power off", device_mode + "FAIL\n", "on"),
        ({}, "usb overcurrent", "No overcurrent detected\nPASS\n", "on"),
        ({"power_fault": "1"}, "usb overcurrent", "Overcurrent detected\nPASS\n", "on"),
        ({"power_fault": "2"}, "usb overcurrent", "PASS\n", "on"),
        ({}, "usb limit low", "USB port power limit was set to 100 mA\n", "on"),
        ({}, "usb limit get", "USB current limit is 100 mA\n", "on"),
        ({}, "usb limit high", "USB port power limit was set to 500 mA\n", "on"),
        ({}, "usb limit get", "USB current limit is 500 mA\n", "on"),
        ({"limit": "2"}, "usb limit get", "Error unexpected value in Usb_getCurrentLimit(): 2\n", "on"),
        ({}, "usb limit max", "Unknown action\n", "on"),
        ({}, "usb", "Not a valid command.\n", "on"),
    ]
    for settings, line, out, power in cases:
        for key, value in settings.items():
            phone.set("usb." + key, value)
        run(phone, (line, out))
        assert f"power={power}" in phone.show("usb").splitlines(), line
        for key in settings:
            phone.set("usb." + key, "0")
    phone.fault("usb")
    run(phone, ("usb power on", "FAIL\n"), ("usb overcurrent", "FAIL\n"),
        ("usb limit high", "Usb_SetCurrentLimit() error\n"),
        ("usb limit get", "Usb_getCurrentLimit() error\n"))


def test_usblist(phone):
    run(phone, ("usblist", "No devices found.\n"))
    phone.usb("plug", "Cruzer Blade", "b")
    phone.usb("host-only")
    models = {"host0": "Cruzer Blade\n", "host1": ""}
    hosts = [h for h in os.listdir(os.path.join(phone.path, "sys", "class", "scsi_host"))]
    run(phone, ("usblist", "Attached devices:\n" + "".join(f"{h}:\n{models[h]}" for h in hosts)))
    phone.fault("scsi-hosts-unreadable")
    run(phone, ("usblist", "FAIL to open dir /sys/class/scsi_host.\n"))


def test_usbrw_ends_on_errors_and_releases_the_stick(phone):
    run(phone, ("usbrw", NO_STICK))
    assert mount_log(phone) == [mount_call(c, "ENODEV") for c in "abcdefghijklmno"]
    assert not os.path.exists(os.path.join(phone.path, *MOUNT_POINT))
    phone.usb("plug", "Cruzer Blade", "b")
    for fault, out in (("usb-io", RUNNING + "Error: Input/output error"),
                       ("usb-corrupt", RUNNING + "FAIL. Read block does not match written block"),
                       ("usb-seek", RUNNING + "Error:  Input/output error"),
                       ("usb-opendir", "FAIL to open dir /data/usb_test.\n"),
                       ("usb-create", "FAIL to open file usbrw_test_file\n")):
        open(os.path.join(phone.path, "log", "mounts"), "w").close()
        phone.fault(fault)
        run(phone, ("usbrw", out))
        phone.fault("clear")
        assert mount_log(phone) == [mount_call("a", "ENODEV"), mount_call("b", "0"), UMOUNT]
        assert_released(phone, "b")


def test_usbrw_without_a_mount_point_or_with_the_stick_pulled(phone):
    phone.usb("plug", "Cruzer Blade")
    phone.fault("data-readonly")
    run(phone, ("usbrw", "FAIL to create mount point.\n"))
    assert mount_log(phone) == []
    phone.fault("clear")
    # Pulled out mid-test: the next read or write fails, the unmount still works.
    c = Console(phone)
    c.proc.stdin.write("usbrw\n")
    c.proc.stdin.flush()
    until("usbrw mounting the stick", lambda: mount_call("a", "0") in mount_log(phone), 20)
    phone.usb("unplug")
    out, _, status = c.end()
    assert (out, status) == (startup() + transcript(("usbrw", RUNNING + "Error: Input/output error"),
                                                    eof=True), 0)
    assert mount_log(phone) == [mount_call("a", "0"), UMOUNT]
    assert "mount=" not in phone.show("usb")


@pytest.mark.parametrize("how", ["terminal", "ftsim interrupt"])
def test_ctrl_c_ends_usbrw_and_a_pulled_stick_releases_nothing(phone, how):
    phone.usb("plug", "DataTraveler")
    c = terminal(phone, timeout=20)
    c.sendline("usbrw")
    c.expect_exact(RUNNING.replace("\n", "\r\n"))
    if how == "terminal":
        c.sendintr()
    else:
        phone.interrupt()
    c.expect_exact("ft>")
    assert_released(phone)
    phone.usb("unplug")
    c.sendline("usbrw")
    c.expect_exact("usbrw\r\n" + NO_STICK.replace("\n", "\r\n") + "ft>")
    quit_terminal(c)
    assert mount_log(phone) == ([mount_call("a", "0"), UMOUNT] +
                                [mount_call(x, "ENODEV") for x in "abcdefghijklmno"])
    assert not os.path.exists(os.path.join(phone.path, *MOUNT_POINT))


NOT_DETECTED = "   >>> Camera has not been detected on USB bus yet. Run 'ft camera 0' to detect it.\n"
DETECT = "Check whether camera module is detected on USB bus\nand assigned to video device at folder /dev.\n"
ENABLE = "Enable camera module and show dynamic video on LCD panel.\n"
SNAP = "Take a picture and store it in a pre-defined location.\n"
DISABLE = "Disable camera module and stop showing dynamic video on LCD panel.\n"
START = "am start -n com.android.camera2/com.android.camera.CameraLauncher"
STOP = "am force-stop com.android.camera2"
PICTURE = "input keyevent 27"


def test_camera_steps_in_order(phone):
    steps = [("camera 4", "FAIL\n"), ("camera 10", "FAIL\n"), ("camera x", "FAIL\n"),
             ("camera", "FAIL\n"),
             ("camera 1", ENABLE + NOT_DETECTED + "FAIL\n"),
             ("camera 2", SNAP + NOT_DETECTED + "FAIL\n"),
             ("camera 3", DISABLE + NOT_DETECTED + "FAIL\n"),
             ("camera 0", DETECT + "PASS\n"),
             ("camera 3", DISABLE + "   >>> Camera device is not opened.\nFAIL\n"),
             ("camera 2", SNAP + "   >>> Camera device is not opened.\nFAIL\n"),
             ("camera 1", ENABLE + "PASS\n"),
             ("camera 1", ENABLE + "   >>> Camera device is already opened.\nFAIL\n"),
             ("camera 2", SNAP + "PASS\n"), ("camera 2", SNAP + "PASS\n"),
             ("camera 3", DISABLE + "PASS\n"),
             ("camera 1", ENABLE + "PASS\n")]
    run(phone, *steps)
    assert phone.calls().splitlines()[1:] == [START, PICTURE, PICTURE, STOP, START]


def test_camera_failures(phone):
    cases = [
        # (how, lines, output of the last line)
        (("unplug", "camera"), ["camera 0"],
         DETECT + "   >>> Failed to open camera device /dev/video0: No such file or directory.\nFAIL\n"),
        (("fault", "camera-query"), ["camera 0"],
         DETECT + "   >>> Failed to query the capabilities of the camera.\nFAIL\n"),
        (("fault", "camera-no-capture"), ["camera 0", "camera 1"],
         ENABLE + NOT_DETECTED + "FAIL\n"),
        (("fault", "shell"), ["camera 0", "camera 1", "camera 3"],
         DISABLE + "   >>> Camera device is not opened.\nFAIL\n"),
    ]
    for (verb, what), lines, last in cases:
        getattr(phone, verb)(what)
        out, _ = phone.run(*lines)
        assert out.endswith(transcript((lines[-1], last), eof=True)), (what, out)
        phone.fault("clear")
        phone.plug("camera")
    out, _ = phone.run("camera 0", "camera 1")
    assert out.endswith(transcript(("camera 1", ENABLE + "PASS\n"), eof=True))


def test_camera_marker_lives_while_the_console_runs(phone):
    marker = os.path.join(phone.path, "tmp", "camhal", "ft_specialresolution.txt")
    c = terminal(phone, timeout=20)
    assert phone.show("camhal") == "present=yes\nmarker=0777\n"
    assert os.path.getsize(marker) == 0
    c.sendline("quit")
    c.expect(pexpect.EOF)
    assert not os.path.exists(marker)
    phone.unplug("camhal")
    out, rc = phone.run("quit")
    assert (out, rc) == (startup(camhal="No such file or directory") + transcript(("quit", QUIT)), 0)
    phone.plug("camhal")
    assert phone.run("quit") == (startup() + transcript(("quit", QUIT)), 0)
