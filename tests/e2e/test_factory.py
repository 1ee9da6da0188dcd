"""Factory parameters and production mode against the simulated store."""
from conftest import QUIT, ftsim, startup, startup_calls, transcript

UNSET = '"<NOT Initialized>"'


def info(model=UNSET, mac=UNSET, mode='"0"', stop_after_mac=False):
    text = (f"Factory Test <build>\nModel = {model}\nLCD = {UNSET}\nHW Version = {UNSET}\n"
            f"Gen Version = {UNSET}\nMAC = {mac}\n")
    if not stop_after_mac:
        text += f"Operational Mode = {mode}\nConfigData Des Support = {UNSET}\n"
    return text



def test_store_round_trip(phone):
    out, rc = phone.run('program write ethaddr 00:11:22:33:44:55',
                        'program write phonesn "SN 12"   "x"',
                        'program writecommit MODEL_NUM M-100',
                        'program write modelnum "' + "m" * 100,    # joins to over 99 characters
                        'program read ETHERADD', 'program read nosuch', 'info', 'quit')
    assert rc == 0
    assert out == startup() + transcript(
        ('program write ethaddr 00:11:22:33:44:55', "PASS\n"),
        ('program write phonesn "SN 12"   "x"', "PASS\n"),
        ('program writecommit MODEL_NUM M-100', "PASS\n"),
        ('program write modelnum "' + "m" * 100, "Word too long (99 characters at most)\n"),
        ('program read ETHERADD', 'ETHERADD = "00:11:22:33:44:55"\n'),
        ('program read nosuch', ""),
        ('info', info(model='"M-100"', mac='"00:11:22:33:44:55"')),
        ('quit', QUIT))
    store = phone.values()
    assert (store["SN_UNIT"], store["MODEL_NUM"]) == ('SN 12" "x', "M-100")


def test_joined_value_over_99_characters_leaves_the_store_alone(phone):
    long_value = 'program write phonesn "' + " ".join(["abcdefghi"] * 10)
    out, _ = phone.run(long_value, "program reset nvdata", "program reset store")
    assert out == startup() + transcript((long_value, "FAIL\n"), ("program reset nvdata", "Not supporting reset of nvdata\n"),
                                         ("program reset store", "Invalid target!\n"), eof=True)
    assert phone.values()["SN_UNIT"] == ""


def test_a_full_buffer_prints_its_32_bytes_and_no_more(phone):
    phone.store("hwver", "H" * 32)
    out, _ = phone.run("program read hwver")
    assert out == startup() + transcript(("program read hwver", f'HW_VER = "{"H" * 32}"\n'), eof=True)


def test_store_faults(phone):
    phone.fault("store-read", "opermode")
    phone.fault("store-write", "phonesn")
    out, _ = phone.run("info", "program write phonesn 1", "program write pwbsn 2", "production")
    rows = "".join(
        f'{i:2d}: {n} = "{v}"\n' for i, (n, v) in enumerate(phone.values().items()))
    assert out == startup() + transcript(
        ("info", info(stop_after_mac=True)), ("program write phonesn 1", "FAIL\n"),
        ("program write pwbsn 2", "PASS\n"), ("production", "Factory Mode\n"), eof=True)

    out, _ = phone.run("program list all")
    expected = rows.replace(' 0: OPERATIONAL_MODE = "0"', ' 0: OPERATIONAL_MODE = "FAIL"')
    assert out == startup() + transcript(("program list all", expected), eof=True)
    phone.fault("clear")
    out, _ = phone.run("program list ict")
    assert out == startup() + transcript(("program list ict", rows), eof=True)


def test_production_switch_reboots_and_persists(phone):
    out, rc = phone.run("production", "production 1", "info")
    assert rc == 0
    # The reboot ends the run at once: the line after it is never read.
    assert out == startup() + transcript(
        ("production", "Factory Mode\n"),
        ("production 1", "Production Mode Enabled\nRebooting...\n"))
    assert phone.calls() == startup_calls() + "reboot\n"
    assert phone.values()["OPERATIONAL_MODE"] == "1"

    out, rc = phone.run("production", "production 1")
    assert (out, rc) == (startup() + transcript(
        ("production", "Production Mode\n"),
        ("production 1", "Production Mode is already enabled\n"), eof=True), 0)


def test_failed_switch_or_shell_keeps_the_console(phone):
    phone.fault("store-mode")
    out, _ = phone.run("production 1", "production")
    assert out == startup() + transcript(("production 1", ""), ("production", "Factory Mode\n"), eof=True)
    phone.fault("clear")
    phone.fault("shell")
    out, rc = phone.run("production 1", "production")
    assert (out, rc) == (startup() + transcript(
        ("production 1", "Production Mode Enabled\nRebooting...\n"),
        ("production", "Production Mode\n"), eof=True), 0)
    assert phone.calls() == startup_calls() * 2 + "reboot\n"


def test_ftsim_forms(phone, tmp_path):
    assert ftsim("new", phone.path).returncode == 2        # exists already
    assert ftsim("new", phone.path, "--force").returncode == 0
    for bad in (["store", phone.path, "nosuch", "1"], ["store", phone.path, "hwver", "x" * 33],
                ["fault", phone.path, "store-read"], ["fault", phone.path, "nosuch"],
                ["show", phone.path, "nosuch"], ["run", tmp_path / "nophone"], ["frobnicate"], [],
                ["fault", phone.path, "tool", "../x"], ["fault", phone.path, "tool", "openssl:"],
                ["fault", phone.path, "reserved-readonly", "x"], ["files", phone.path],
                ["files", phone.path, "../.."], ["files", phone.path, "/reserved/nosuch"]):
        r = ftsim(*bad)
        assert r.returncode == 2 and r.stderr and not r.stdout, bad
