"""gencert on the simulated phone, with the host's real openssl tool."""
import base64
import datetime
import hashlib
import hmac
import os
import re
import subprocess

import pytest

from conftest import ftsim, startup, startup_calls, transcript

CERTS = "/reserved/cp/certs"
MKDIRS = ["mkdir /reserved/cp", "/system/bin/setSystemDate.sh", "mkdir /reserved/cp/certs"]
SEED = ["rm -f /reserved/cp/certs/factorySeed"]
OPENSSL = [
    "openssl ecparam -out /reserved/cp/certs/factory.key -name prime256v1 -genkey",
    "openssl req -key /reserved/cp/certs/factory.key -new -x509 -days 7300 -out "
    "/reserved/cp/certs/factory.cert -subj \"/C=US/ST=CA/O=Tolma,Inc./CN={mac}\" "
    "-config /system/etc/openssl.cnf",
    "openssl pkcs12 -export -in /reserved/cp/certs/factory.cert -inkey "
    "/reserved/cp/certs/factory.key -out /reserved/cp/certs/factorycert.p12 -password pass:{key}",
    "openssl x509 -in /reserved/cp/certs/factory.cert -fingerprint -noout -sha256 > "
    "/reserved/cp/certs/cert_thumbprint",
    "rm -f /reserved/cp/certs/cert_thumbprint",
]
SCRATCH = ["rm -f /reserved/cp/certs/factory.key", "rm -f /reserved/cp/certs/factory.cert"]
IDENTITY = ["rm -f /reserved/cp/certs/factorySeed", "rm -f /reserved/cp/certs/factorycert.p12"]
THUMB = re.compile(r"^Thumbprint: ((?:[0-9A-F]{2}:){31}[0-9A-F]{2})\n", re.M)


def misc(message, routine="gen_self_signed_cert"):
    return f"*ERROR* files/src/misc:{routine}():N {message}\n"


def devkey(routine, message):
    return f"*ERROR* files/src/fact_device_key:{routine}():N {message}\n"


def gencert(phone):
    """The run's output (source lines as N, the printed thumbprint as THUMB),
    the thumbprint, and the shell calls (the password as KEY)."""
    out, rc = phone.run("gencert")
    assert rc == 0
    thumb = THUMB.search(out)
    out = re.sub(r"\(\):\d+ ", "():N ", THUMB.sub("Thumbprint: THUMB\n", out))
    calls = phone.calls()
    assert calls.startswith(startup_calls())
    calls = re.sub(r"pass:\S+\\n", "pass:KEY", calls[len(startup_calls()):]).splitlines()
    return out, thumb and thumb.group(1), calls


def files(phone, folder):
    """`MODE NAME` lines left in a phone folder, or None when it is not there."""
    r = ftsim("files", phone.path, folder)
    return r.stdout.splitlines() if r.returncode == 0 else None


def openssl(*args, input=None):
    r = subprocess.run(["openssl", *args], input=input, capture_output=True, check=True)
    return r.stdout


def block(mac):
    return (f'Thumbprint: THUMB\nMAC = "{mac}"\nSerial# = "SN-1"\nProduct = "CC-1"\n'
            f'Model = "M-100"\nHardware = "HW2"\n')


@pytest.fixture
def unit(phone):
    for name, value in (("ethaddr", "00:11:22:AA:bb:CC"), ("phonesn", "SN-1"),
                        ("phonecc", "CC-1"), ("modelnum", "M-100"), ("hwver", "HW2")):
        phone.store(name, value)
    return phone


def test_certificate_bundle_opens_with_an_independently_derived_key(unit):
    out, thumb, calls = gencert(unit)
    assert out == startup() + transcript(("gencert", block("00:11:22:AA:bb:CC")), eof=True)
    assert calls == MKDIRS + SEED + [c.format(mac="001122AAbbCC", key="KEY") for c in OPENSSL] \
        + SCRATCH
    assert files(unit, CERTS) == ["0600 factorySeed", "0600 factorycert.p12"]
    assert unit.values()["CONFIGDATA_DES_SUPPORT"] == "1"
    with open(os.path.join(unit.path, "log/tools")) as f:
        assert f.read() == "setSystemDate.sh \n"

    with open(os.path.join(unit.path, "reserved/cp/certs/factorySeed"), "rb") as f:
        seed = f.read()
    assert len(seed) == 32
    digest = hmac.new(seed, b"001122AAbbCC", hashlib.sha256).digest()
    key = base64.b64encode(digest).decode()
    assert f"pass:{key}\\n" in unit.calls()      # the line feed ended the shell line
    p12 = os.path.join(unit.path, "reserved/cp/certs/factorycert.p12")
    cert = openssl("pkcs12", "-in", p12, "-passin", "pass:" + key, "-nokeys")
    text = openssl("x509", "-noout", "-subject", "-nameopt", "compat", "-startdate", "-enddate",
                   "-fingerprint", "-sha256", input=cert).decode()
    fields = dict(line.split("=", 1) for line in text.splitlines())
    assert fields["subject"] == "/C=US/ST=CA/O=Tolma,Inc./CN=001122AAbbCC"
    assert fields["sha256 Fingerprint"] == thumb
    start, end = (datetime.datetime.strptime(fields[k], "%b %d %H:%M:%S %Y GMT")
                  for k in ("notBefore", "notAfter"))
    assert end - start == datetime.timedelta(days=7300)
    private = openssl("pkcs12", "-in", p12, "-passin", "pass:" + key, "-nocerts", "-nodes")
    assert b"ASN1 OID: prime256v1" in openssl("pkey", "-noout", "-text", input=private)

    # A second run makes a new seed, so a new key; the directories are there.
    out, _, calls = gencert(unit)
    assert out == startup() + transcript(("gencert", block("00:11:22:AA:bb:CC")), eof=True)
    second = calls[len(MKDIRS + SEED + OPENSSL + SCRATCH):]
    assert second[:3] == startup_calls().splitlines() + MKDIRS[1:2] + SEED
    with open(os.path.join(unit.path, "reserved/cp/certs/factorySeed"), "rb") as f:
        assert f.read() != seed


NO_MAC = (devkey("get_mac_address", "MAC is not programmed")
          + devkey("get_mac_address", "Please program MAC before generating certificate")
          + devkey("gen_factory_device_key", "Failed to get MAC of device")
          + misc("Unable to generate factory base64 device key"))
SEED_REFUSED = (devkey("gen_factory_seed", "Unable to open /reserved/cp/certs/factorySeed: "
                       "errno : {}")
                + devkey("gen_factory_device_key", "Failed to generate factory seed")
                + misc("Unable to generate factory base64 device key"))
ALL_OPENSSL = [c.format(mac="001122AAbbCC", key="KEY") for c in OPENSSL]


def shell_after_key_pair(phone):
    """The shell stops working once the key pair is made."""
    path = os.path.join(phone.path, "system/bin/openssl")
    with open(path, "w") as f:
        f.write('#!/bin/sh\n: > /sim/faults/shell\nexec /usr/bin/openssl "$@"\n')
    os.chmod(path, 0o755)


# (name, after an earlier successful run, setup, output, shell calls, files left in
#  /reserved/cp/certs or, with None, in /reserved)
FAILURES = [
    ("production", False, lambda p: p.store("opermode", "1"),
     misc("gencert can only be executed in factory mode"), [], None),
    ("mode unreadable", False, lambda p: p.fault("store-read", "opermode"),
     misc("Unable to read CONFIGDATA_OPERATIONAL_MODE"), [], None),
    ("MAC empty", True, lambda p: p.store("ethaddr", ""), NO_MAC, MKDIRS[1:2] + SEED,
     ["0600 factorySeed", "0600 factorycert.p12"]),
    ("MAC not six hex pairs", False, lambda p: p.store("ethaddr", "00:11:22:33:44:5;"), NO_MAC,
     MKDIRS + SEED, ["0600 factorySeed"]),
    ("reserved read-only", False, lambda p: p.fault("reserved-readonly"),
     SEED_REFUSED.format(2), MKDIRS + SEED + SEED, None),
    ("reserved read-only, issued", True, lambda p: p.fault("reserved-readonly"),
     SEED_REFUSED.format(30), MKDIRS[1:2] + SEED + SEED,
     ["0600 factorySeed", "0600 factorycert.p12"]),
    ("no shell", False, lambda p: p.fault("shell"), misc("Unable to create /reserved/cp"),
     MKDIRS[:1], None),
    ("no shell, issued", True, lambda p: p.fault("shell"),
     misc("Unable to set the Current time")
     + misc("Unable to remove/reserved/cp/certs/factorySeed: errno : 2")
     + misc("Unable to remove/reserved/cp/certs/factorycert.p12: errno : 2"),
     MKDIRS[1:2] + IDENTITY, ["0600 factorySeed", "0600 factorycert.p12"]),
    ("shell lost after the key pair", False, shell_after_key_pair,
     misc("Unable to generate self signed certificate")
     + misc("Unable to remove/reserved/cp/certs/factory.key: errno : 2")
     + misc("Unable to remove/reserved/cp/certs/factorySeed: errno : 2"),
     MKDIRS + SEED + ALL_OPENSSL[:2] + SCRATCH[:1] + IDENTITY[:1],
     ["0600 factory.key", "0600 factorySeed"]),
    ("openssl fails", True, lambda p: p.fault("tool", "openssl"),
     misc("Invalid format of thumbprint ", "get_formatted_thumb_print")
     + misc("Unable to get formatted thumbprint"),
     MKDIRS[1:2] + SEED + ALL_OPENSSL + IDENTITY, []),
    ("identity unreadable", True, lambda p: p.fault("store-read", "phonecc"),
     block("00:11:22:AA:bb:CC").split("Product")[0] + misc("Unable to print factory certificate"),
     MKDIRS[1:2] + SEED + ALL_OPENSSL + SCRATCH + IDENTITY, []),
    ("DES support refused", False, lambda p: p.fault("store-write", "configdatadessupport"),
     block("00:11:22:AA:bb:CC") + misc("Unable to update CONFIGDATA_DES_SUPPORT"),
     MKDIRS + SEED + ALL_OPENSSL + SCRATCH + IDENTITY, []),
]


@pytest.mark.parametrize("name,issued,setup,output,calls,left", FAILURES,
                         ids=[f[0] for f in FAILURES])
def test_failures_leave_exactly_the_described_files(unit, name, issued, setup, output, calls,
                                                    left):
    if issued:
        gencert(unit)
        unit.store("configdatadessupport", "")
        open(os.path.join(unit.path, "log/calls"), "w").close()
    setup(unit)
    out, _, made = gencert(unit)
    assert out == startup() + transcript(("gencert", output), eof=True)
    assert made == calls
    assert files(unit, CERTS if left is not None else "/reserved") == (left or [])
    assert unit.values()["CONFIGDATA_DES_SUPPORT"] == ""


def test_ftsim_forms(phone):
    for bad in (["fault", phone.path, "tool"], ["fault", phone.path, "tool", "../x"],
                ["fault", phone.path, "reserved-readonly", "x"], ["files", phone.path],
                ["files", phone.path, "../.."], ["files", phone.path, "/reserved/nosuch"]):
        r = ftsim(*bad)
        assert r.returncode == 2 and r.stderr and not r.stdout, bad
