"""gencert on the simulated phone, with the host's real openssl tool."""
import base64
import datetime
import hashlib
import hmac
import pathlib
import re
import subprocess

import pytest

from conftest import startup, startup_calls, transcript

C = "/reserved/cp/certs/"
MKDIRS = ["mkdir /reserved/cp", "/system/bin/setSystemDate.sh", "mkdir /reserved/cp/certs"]
DATE = MKDIRS[1:2]      # all a run does before the seed once the folders are there
SEED = [f"rm -f {C}factorySeed"]
OPENSSL = [f"openssl ecparam -out {C}factory.key -name prime256v1 -genkey",
           f"openssl req -key {C}factory.key -new -x509 -days 7300 -out {C}factory.cert -subj "
           '"/C=US/ST=CA/O=Tolma,Inc./CN=001122AAbbCC" -config /system/etc/openssl.cnf',
           f"openssl pkcs12 -export -in {C}factory.cert -inkey {C}factory.key -out "
           f"{C}factorycert.p12 -password pass:KEY",
           f"openssl x509 -in {C}factory.cert -fingerprint -noout -sha256 > {C}cert_thumbprint",
           f"rm -f {C}cert_thumbprint"]
SCRATCH = [f"rm -f {C}factory.key", f"rm -f {C}factory.cert"]
# An earlier bundle goes right before the export, so that only this run's counts.
REISSUE = OPENSSL[:2] + [f"rm -f {C}factorycert.p12"] + OPENSSL[2:]
IDENTITY = [f"rm -f {C}factorySeed", f"rm -f {C}factorycert.p12"]
BOTH = ["0600 factorySeed", "0600 factorycert.p12"]
THUMB = re.compile(r"^Thumbprint: ((?:[0-9A-F]{2}:){31}[0-9A-F]{2})\n", re.M)
BLOCK = ('Thumbprint: THUMB\nMAC = "00:11:22:AA:bb:CC"\nSerial# = "SN-1"\nProduct = "CC-1"\n'
         'Model = "M-100"\nHardware = "HW2"\n')


def misc(message, routine="gen_self_signed_cert", source="misc"):
    return f"*ERROR* files/src/{source}:{routine}():N {message}\n"


def devkey(routine, message):
    return misc(message, routine, "fact_device_key")


def gencert(phone):
    """Output (source lines as N, the thumbprint as THUMB), the thumbprint, and the
    shell calls (the password and the line feed ending its shell line as KEY)."""
    out, rc = phone.run("gencert")
    assert rc == 0
    thumb = THUMB.search(out)
    out = re.sub(r"\(\):\d+ ", "():N ", THUMB.sub("Thumbprint: THUMB\n", out))
    calls = phone.calls()
    assert calls.startswith(startup_calls())
    calls = re.sub(r"pass:\S+\\n", "pass:KEY", calls[len(startup_calls()):]).splitlines()
    return out, thumb and thumb.group(1), calls


@pytest.fixture
def unit(phone):
    for name, value in (("ethaddr", "00:11:22:AA:bb:CC"), ("phonesn", "SN-1"),
                        ("phonecc", "CC-1"), ("modelnum", "M-100"), ("hwver", "HW2")):
        phone.store(name, value)
    return phone


def test_certificate_bundle_opens_with_an_independently_derived_key(unit):
    thumb = gencert(unit)[1]
    seed_file = pathlib.Path(unit.path + C + "factorySeed")
    seed = seed_file.read_bytes()
    assert len(seed) == 32
    key = base64.b64encode(hmac.new(seed, b"001122AAbbCC", hashlib.sha256).digest()).decode()

    def bundle(part, then):
        return subprocess.run(["sh", "-c", f'openssl pkcs12 -in "$0" -passin "pass:$1" {part} | {then}',
                               unit.path + C + "factorycert.p12", key],
                              capture_output=True, text=True).stdout

    cert = dict(line.split("=", 1) for line in bundle(
        "-nokeys", "openssl x509 -noout -subject -nameopt compat -fingerprint -sha256 "
                   "-startdate -enddate").splitlines())
    assert cert["subject"] == "/C=US/ST=CA/O=Tolma,Inc./CN=001122AAbbCC"
    assert cert["sha256 Fingerprint"] == thumb
    start, end = (datetime.datetime.strptime(cert[k], "%b %d %H:%M:%S %Y GMT")
                  for k in ("notBefore", "notAfter"))
    assert end - start == datetime.timedelta(days=7300)
    assert "ASN1 OID: prime256v1" in bundle("-nocerts -nodes", "openssl pkey -noout -text")

    gencert(unit)           # a new seed, so a new key, at every run
    assert seed_file.read_bytes() != seed


def shell_after_key_pair(phone):
    """The shell stops working once the key pair is made."""
    path = pathlib.Path(phone.path, "system/bin/openssl")
    path.write_text('#!/bin/sh\n: > /sim/faults/shell\nexec /usr/bin/openssl "$@"\n')
    path.chmod(0o755)


NO_SEED_FILE = (devkey("gen_factory_seed", "Unable to open /reserved/cp/certs/factorySeed: "
                       "errno : 30")
                + devkey("gen_factory_device_key", "Failed to generate factory seed")
                + misc("Unable to generate factory base64 device key"))
NO_MAC = (devkey("get_mac_address", "MAC is not programmed")
          + devkey("get_mac_address", "Please program MAC before generating certificate")
          + devkey("gen_factory_device_key", "Failed to get MAC of device")
          + misc("Unable to generate factory base64 device key"))

# (name, after an earlier successful run, setup, output, shell calls, files left in
#  /reserved/cp/certs or, with None, in /reserved)
RUNS = [
    ("first", False, lambda p: None, BLOCK, MKDIRS + SEED + OPENSSL + SCRATCH, BOTH),
    ("again", True, lambda p: None, BLOCK, DATE + SEED + REISSUE + SCRATCH, BOTH),
    ("production", False, lambda p: p.store("opermode", "1"),
     misc("gencert can only be executed in factory mode"), [], None),
    ("mode unreadable", False, lambda p: p.fault("store-read", "opermode"),
     misc("Unable to read CONFIGDATA_OPERATIONAL_MODE"), [], None),
    ("MAC empty, issued", True, lambda p: p.store("ethaddr", ""), NO_MAC, DATE + SEED, BOTH),
    ("reserved read-only, issued", True, lambda p: p.fault("reserved-readonly"), NO_SEED_FILE,
     DATE + SEED + SEED, BOTH),
    ("no shell", False, lambda p: p.fault("shell"), misc("Unable to create /reserved/cp"),
     MKDIRS[:1], None),
    ("no shell, issued", True, lambda p: p.fault("shell"),
     misc("Unable to set the Current time")
     + misc("Unable to remove/reserved/cp/certs/factorySeed: errno : 11")
     + misc("Unable to remove/reserved/cp/certs/factorycert.p12: errno : 11"),
     DATE + IDENTITY, BOTH),
    ("shell lost after the key pair", False, shell_after_key_pair,
     misc("Unable to generate self signed certificate")
     + misc("Unable to remove/reserved/cp/certs/factory.key: errno : 11")
     + misc("Unable to remove/reserved/cp/certs/factorySeed: errno : 11"),
     MKDIRS + SEED + OPENSSL[:2] + SCRATCH[:1] + IDENTITY[:1],
     ["0600 factory.key", "0600 factorySeed"]),
    ("openssl fails", True, lambda p: p.fault("tool", "openssl"), misc("Unable to generate PKCS12"),
     DATE + SEED + REISSUE[:4] + IDENTITY[:1], []),
    ("export fails, issued", True, lambda p: p.fault("tool", "openssl:pkcs12"),
     misc("Unable to generate PKCS12"), DATE + SEED + REISSUE[:4] + SCRATCH + IDENTITY[:1], []),
    ("thumbprint refused", False, lambda p: p.fault("tool", "openssl:x509"),
     misc("Invalid format of thumbprint ", "get_formatted_thumb_print")
     + misc("Unable to get formatted thumbprint"), MKDIRS + SEED + OPENSSL + SCRATCH + IDENTITY, []),
    ("identity unreadable", True, lambda p: p.fault("store-read", "phonecc"),
     BLOCK.split("Product")[0] + misc("Unable to print factory certificate"),
     DATE + SEED + REISSUE + SCRATCH + IDENTITY, []),
    ("DES support refused", False, lambda p: p.fault("store-write", "configdatadessupport"),
     BLOCK + misc("Unable to update CONFIGDATA_DES_SUPPORT"),
     MKDIRS + SEED + OPENSSL + SCRATCH + IDENTITY, []),
]


@pytest.mark.parametrize("issued,setup,output,calls,left", [r[1:] for r in RUNS],
                         ids=[r[0] for r in RUNS])
def test_runs_leave_exactly_the_described_files(unit, issued, setup, output, calls, left):
    if issued:
        gencert(unit)
        pathlib.Path(unit.path, "log/calls").write_text("")
    setup(unit)
    out, _, made = gencert(unit)
    assert out == startup() + transcript(("gencert", output), eof=True)
    assert made == calls
    assert unit.files(C if left is not None else "/reserved").splitlines() == (left or [])
    # Marked only by a run that succeeded; a failed one withdraws an earlier mark.
    untouched = "1" if issued else ""
    des = "1" if output == BLOCK else "0" if issued and calls else untouched
    assert unit.values()["CONFIGDATA_DES_SUPPORT"] == des

