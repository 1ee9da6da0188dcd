"""The Ethernet port commands and the l2 switch diagnostics, on the simulated switch."""
import tomllib

from conftest import ftsim, golden, startup, transcript
from test_network import Console, status


def err(who, call_errno):
    number, text = {"EIO": (5, "Input/output error"), "EBUSY": (16, "Device or resource busy"),
                    "ETIMEDOUT": (110, "Connection timed out")}[call_errno]
    return f"{who} ERROR: ret=-1, errno={number} {text}\n"


def l2_commands():
    """(line, on a working switch, the call faulted [:errno], its failure, with
    values outside their enumerations (None: the command reads none))."""
    dumps = {"counters": golden("l2_counters.txt"), "vlan": golden("l2_vlan.txt"),
             "rules": golden("l2_rules.txt")}
    text = lambda c, key: c[key].format(**dumps) if key in c else None  # noqa: E731
    return [(c["line"], text(c, "works"), c["fault"], text(c, "fails"), text(c, "out_of_range"))
            for c in tomllib.loads(golden("l2_commands.toml"))["command"]]


L2 = l2_commands()

# What the out-of-range rows read: console port 1 is switch port 2, port 0 is port 1.
OUT_OF_RANGE = {"port2.mdix": "7", "port2.link_status": "9", "port2.link_mode": "12",
                "port2.actual_mode": "-1", "port1.eee": "2", "green": "2", "ssc": "5"}


def test_l2_commands_on_a_working_switch(phone):
    out, status = phone.run(*(row[0] for row in L2))
    assert (out, status) == (startup() + transcript(*((r[0], r[1]) for r in L2), eof=True), 0)
    assert files(phone) == ""      # each dump removed its marker file


def test_l2_commands_report_a_failing_call(phone):
    for row in L2:
        phone.fault("switch", row[2])
    out, _ = phone.run(*(row[0] for row in L2))
    assert out == startup() + transcript(*((r[0], r[3]) for r in L2), eof=True)
    assert files(phone) == "0644 specialFTfile.txt\n"      # a failed dump leaves it


def test_l2_commands_name_values_outside_their_enumerations(phone):
    rows = [r for r in L2 if r[4] is not None]
    console = Console(phone)
    for key, value in OUT_OF_RANGE.items():      # while it runs: a boot would undo them
        phone.set("switch." + key, value)
    console.proc.stdin.write("".join(r[0] + "\n" for r in rows))
    out, _, _ = console.end()
    assert out == startup() + transcript(*((r[0], r[4]) for r in rows), eof=True)


def test_vlan_words(phone):
    # "all" and every word that starts with it dump all VLANs.
    out, _ = phone.run("l2GetVlan_mbrCfg all", "l2GetVlan_mbrCfg alls", "l2GetVlan_mbrCfg 4095")
    assert out.count("     1 1,2,1024") == out.count("   100 2,1024") == 2
    assert "  VID 4095 has no member configuration\n" in out


def files(phone):
    """/tmp but the camera service's own folder."""
    return phone.files("/tmp").replace("0755 camhal/\n", "")


def test_special_file_guard(phone):
    phone.fault("specialfile-undeletable")
    r = ftsim("run", phone.path, input="l2GetVlan_mbrCfg 1\n")
    assert (
        "deleteFile(): Unable to delete the file- please delete the file /tmp/specialFTfile.txt !!!\n"
        "\ndeleteFile(): Must delete the file manually from /tmp/specialFTfile.txt !!!\n"
        "\nl2getVlanMbrCfg() - cannot delete file ... \nft>") in r.stdout
    assert r.stderr == "Error: Device or resource busy\n"

    phone.fault("clear")
    phone.fault("tmp-readonly")
    created = ("\n createFile(): Failed to create the special file..... \n"
               "createFile() ERROR!!! (command not run because the special file not created!!!\n")
    out, _ = phone.run("l2portCntrs 2", "l2GetVlan_mbrCfg all", "l2ShowAllRules")
    assert out == startup(camhal="Read-only file system") + transcript(
        ("l2portCntrs 2", created + "rltkFTgetLinkStatus() FAILED, cannot create the file !!!!\n"),
        ("l2GetVlan_mbrCfg all", created + "l2getVlanMbrCfg() FAILED, cannot create the file !!!!\n"),
        ("l2ShowAllRules", created + "l2getVlanMbrCfg() FAILED, cannot create the file !!!!\n"), eof=True)


def eth_readback(mode, actual, status):
    return (f"\nGetLinkMode() port=2 link mode:(L2SW_LINK_MODE_{mode})\n"
            f"\nGetLinkMode() port=2 actual linkmode:(L2SW_LINK_MODE_{actual})\n"
            f"\nGetLinkStatus() port=2 link status:(L2SW_LINK_{status})\n")


# (ftsim verb and arguments that break the switch, eth's output): each on its own run.
ETH_FAILURES = [
    (("fault", "switch", "L2Switch_EarlyInit"), "FAIL: L2Switch_EarlyInit() \n"),
    (("fault", "switch", "L2Switch_IsSwitchPortSupport1G"), "FAIL: L2Switch_IsSwitchPortSupport1G()!!\n"),
    (("fault", "switch", "L2Switch_SetLinkMode"), "FAIL: setLink...\n"),
    (("fault", "switch", "L2Switch_GetLinkMode@1"), "FAIL: in GetLinkMode()!!!!\n"),
    (("fault", "switch", "L2Switch_GetLinkMode:EBUSY@2"),
     "\nGetLinkMode() port=2 link mode:(L2SW_LINK_MODE_1000_FULL)\nFAIL: in GetLinkMode()-actualMode!!!!\n"),
    (("fault", "switch", "L2Switch_GetLinkStatus"), eth_readback("1000_FULL", "1000_FULL", "UP")
     .split("\nGetLinkStatus")[0] + "FAIL: in GetLinkStatus(rtk_port=2, status=0)!!!\n"),
    (("fault", "switch", "L2Switch_GetTestMode"), eth_readback("1000_FULL", "1000_FULL", "UP") + "FAIL: GetTestMode()!!!\n"),
    # A switch that takes the setting and keeps its old mode.
    (("set", "switch.frozen", "1"), eth_readback("AUTO", "1000_FULL", "UP") + "FAIL: to set ft eth...\n"),
]


def test_eth_reports_each_failing_step(phone):
    for verb, out in ETH_FAILURES:
        ftsim("fault", phone.path, "clear")
        ftsim("set", phone.path, "switch.frozen", "0")
        r = ftsim(verb[0], phone.path, *verb[1:])
        assert r.returncode == 0, r.stderr
        assert phone.run("eth 1 1000") == (startup() + transcript(("eth 1 1000", out), eof=True), 0), verb
    # Only the second call of a run fails: l2getLinkMode's read of the actual mode.
    ftsim("fault", phone.path, "clear")
    phone.fault("switch", "L2Switch_GetLinkMode@2")
    assert phone.run("l2getLinkMode 1")[0] == startup() + transcript(
        ("l2getLinkMode 1", err("rltkFTgetLinkMode() (actualMode)", "EIO")), eof=True)


def test_eth_verdicts_follow_the_configured_mode(phone):
    # The partner offers 100 Mb/s half duplex at the most: what the link becomes.
    phone.set("switch.port2.partner", "4")
    lines = ["eth 1 0", "eth 1 1004", "eth 1 1000", "eth 1 1"]
    out, _ = phone.run(*lines)
    assert out == startup() + transcript(*zip(lines, [
        eth_readback("AUTO", "100_HALF", "UP") + "PASS\n", eth_readback("AUTO", "100_HALF", "UP") + "PASS\n",
        eth_readback("1000_FULL", "INVALID", "UP") + "PASS\n",
        eth_readback("1000_FULL", "DISABLED", "DOWN") + "PASS\n"]), eof=True)


def test_each_run_is_a_boot(phone):
    phone.set("switch.port2.gigabit", "0")
    phone.run("l2setSSC 1", "l2DelAllRules")
    assert "ssc=1\n" in phone.show("switch")
    phone.run()
    state = phone.show("switch")
    assert "ssc=0\n" in state and "port2.gigabit=0\n" in state and "acl.0=" in state


def test_setport_shows_the_port_before_and_after(phone):
    out, _ = phone.run("setport 1 10", "setport 1 0", "setport 0 100", "setport x 10", "setport 1 7",
                       "ethled blink")
    assert out == startup() + transcript(
        ("setport 1 10", "\nEthernet status , Before:\n" + status("1000Mb/s", "Full", "on")
         + "\nEthernet status , After:\n" + status("10Mb/s", "Full", "off") + "PASS\n"),
        ("setport 1 0", "\nEthernet status , Before:\n" + status("10Mb/s", "Full", "off")
         + "\nEthernet status , After:\n" + status("1000Mb/s", "Full", "on") + "PASS\n"),
        ("setport 0 100", "FAIL : port not valid !!!\n"), ("setport x 10", "FAIL : port not valid !!\n"),
        ("setport 1 7", "FAIL : mode not valid\n"), ("ethled blink", "FAIL\n"), eof=True)
    assert "ifconfig eth0 down;ethtool -s eth0 autoneg on;ifconfig eth0 up\n" in phone.calls()
    # The PHY's status unreadable after the change only (the second `ethtool eth0`):
    # setport shows what the tool printed, nothing, and still passes.
    phone.fault("tool", "ethtool:eth0@2")
    out, _ = phone.run("setport 1 10")
    assert out == startup() + transcript(
        ("setport 1 10", "\nEthernet status , Before:\n" + status("1000Mb/s", "Full", "on")
         + "\nEthernet status , After:\nPASS\n"), eof=True)
    # No shell: the failure shows the errno of a failed fork, the same on every run.
    phone.fault("clear")
    phone.fault("shell")
    out, _ = phone.run("setport 1 10")
    assert out == startup() + transcript(
        ("setport 1 10", "\nEthernet status , Before:\nFAIL: Resource temporarily unavailable \n"), eof=True)
