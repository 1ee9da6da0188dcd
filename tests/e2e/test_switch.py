"""The Ethernet port commands and the l2 switch diagnostics, on the simulated switch."""
from conftest import ftsim, golden, startup, transcript
from test_network import Console, status

ENUM = "ENUM NOT FOUND!"


def err(who, call_errno):
    number, text = {"EIO": (5, "Input/output error"), "EBUSY": (16, "Device or resource busy"),
                    "ETIMEDOUT": (110, "Connection timed out")}[call_errno]
    return f"{who} ERROR: ret=-1, errno={number} {text}\n"


# The dumps of the simulated switch at its defaults.
COUNTERS = golden("l2_counters.txt")
VLAN = golden("l2_vlan.txt")
RULES = golden("l2_rules.txt")
GREEN = "\nGetGreenEthernetPort(): proprietary Realtek feature, for 1000Mbit only .\n"
SET_GREEN = "\nSetGreenEthernetPort(): proprietary Realtek feature, for 1000Mbit only .\n"

# (line, on a working switch, the call faulted [:errno], its failure, with values
# outside their enumerations (None: the command reads none)).
L2 = [
    ("l2resetSettings", "\nReset configuration of L2 Switch to its defaults....l2resetSettings() PASS\n",
     "L2Switch_ResetSettings", "rltkFTResetSettings() FAIL: L2Switch_ResetSettings() \n", None),
    ("l2portCntrs 1", COUNTERS + "\nFTportCntrs(): PASS\n",
     "L2Switch_portCntrs:EBUSY", err("rltkFTportCntrs()", "EBUSY"), None),
    ("l2portResetCntrs all", "\nrltkFTportResetCntrs(): PASS\n",
     "L2Switch_portResetCntrs", err("rltkFTportResetCntrs()", "EIO"), None),
    ("l2getmac 1", "\nMac Addr: 00:11:22:33:44:66\nPASS\n",
     "L2Switch_GetMacAddr", "rltkFTGetMac() FAIL: L2Switch_GetMacAddr()\n", None),
    ("l2printMacTable", "PASS... Please check dmesg for output\n",
     "L2Switch_print_mac_table", "rltkFTPrintMacTable() FAIL: L2Switch_print_mac_table()\n", None),
    ("l2getRegValue 91a", "PASS... rltkFTGetRegValue: 11\n",
     "L2Switch_GetRegValue", "rltkFTGetRegValue() FAIL: L2Switch_GetRegValue()\n", None),
    ("l2getPhyRegValue 1 4", "PASS... rltkFTGetPhyRegValue: phyReg[4]= 0x00000de1.\n",
     "L2Switch_GetPhyRegValue", "rltkFTGetPhyRegValue() FAIL: L2Switch_GetPhyRegValue()\n", None),
    ("l2Init 0", "\nrltkFTEarlyInit() call L2Switch_EarlyInit(MDIX disable) !!\nrltkFTEarlyInit() PASS\n",
     "L2Switch_EarlyInit", "\nrltkFTEarlyInit() call L2Switch_EarlyInit(MDIX disable) !!\n"
                           "rltkFTEarlyInit() FAIL: L2Switch_EarlyInit() \n", None),
    ("l2setAutoMDIX 1 0", "Setting autoMDIXPort port=1 to (L2SW_AUTO_MDIX_DISABLED)\nPASS\n",
     "L2Switch_SetAutoMDIXPort", "Setting autoMDIXPort port=1 to (L2SW_AUTO_MDIX_DISABLED)\n"
                                 + err("rltkFTsetAutoMDIX()", "EIO"), None),
    ("l2getAutoMDIX 1", "\nGot autoMDIXPort port=1 autoMDIXPort=(L2SW_AUTO_MDIX_DISABLED)\nPASS\n",
     "L2Switch_GetAutoMDIXPort", err("rltkFTgetAutoMDIX()", "EIO"),
     f"\nGot autoMDIXPort port=1 autoMDIXPort=({ENUM})\nPASS\n"),
    ("l2setLinkStatus 2 2", "Setting LinkStatus port=1024 to (2)L2SW_LINK_DOWN\nPASS\n",
     "L2Switch_SetLinkStatus:ETIMEDOUT", "Setting LinkStatus port=1024 to (2)L2SW_LINK_DOWN\n"
                                         + err("rltkFTsetLinkStatus()", "ETIMEDOUT"), None),
    ("l2getLinkStatus 1", "\nGetting linkStatus port=1 link status:(L2SW_LINK_UP)\nPASS\n",
     "L2Switch_GetLinkStatus", err("rltkFTgetLinkStatus()", "EIO"),
     f"\nGetting linkStatus port=1 link status:({ENUM})\nPASS\n"),
    ("l2setLinkMode 2 6", "Setting linkMode to port=1024 to (6)L2SW_LINK_MODE_1000_FULL\nPASS\n",
     "L2Switch_SetLinkMode", "Setting linkMode to port=1024 to (6)L2SW_LINK_MODE_1000_FULL\n"
                             + err("rltkFTsetLinkMode()", "EIO"), None),
    ("l2getLinkMode 1", "\nGetting linkMode:  port=1   linkMode:(L2SW_LINK_MODE_AUTO)\n"
                        "Getting actualMode:port=1 actualMode:(L2SW_LINK_MODE_1000_FULL)\nPASS\n",
     "L2Switch_GetLinkMode", err("rltkFTgetLinkMode()", "EIO"),
     f"\nGetting linkMode:  port=1   linkMode:({ENUM})\nGetting actualMode:port=1 actualMode:({ENUM})\nPASS\n"),
    ("l2GetPVID 2", "\nGetPVID on port=2 vlanID:(1)\nPASS\n",
     "L2Switch_GetPVID", err("rltkFTgetPVID()", "EIO"), None),
    ("l2GetPortPriority 1", "\nPortPriority on port=1 priority:(0)\nPASS\n",
     "L2Switch_GetPortPriority", err("rltkFTgetPortPriority()", "EIO"), None),
    ("l2GetVlan_mbrCfg 100", VLAN + "\nl2getVlanMbrCfg PASS\n",
     "L2Switch_VlanMbrCfg", err("rltkFTgetVlanMbrCfg()", "EIO"), None),
    ("l2ShowAllRules", RULES + "PASS\n", "L2Switch_ShowAllRules", err("rltkFTshowAllRules()", "EIO"), None),
    ("l2DelAllRules", "PASS\n", "L2Switch_DelAllRules", err("rltkFTdelAllRules()", "EIO"), None),
    ("l2GetGreenEthernetPort",
     GREEN + "\nGreen Ethernet mode :0 \n\nGreen Ethernet mode L2SW_GREEN_ETHERNET_DISABLED \nPASS\n",
     "L2Switch_GetGreenEthernetPort", GREEN + err("rltkFTGetGreenEthernetPort()", "EIO"),
     GREEN + "\nGreen Ethernet mode :2 \n\nGreen Ethernet mode :error !!! \n"),
    ("l2SetGreenEthernetPort 1", SET_GREEN + "Setting Set Green Ethernet to GREEN_ETHERNET_ENABLED.\nPASS\n",
     "L2Switch_SetGreenEthernetPort", SET_GREEN + "Setting Set Green Ethernet to GREEN_ETHERNET_ENABLED.\n"
                                      + err("SetGreenEthernetPort()", "EIO"), None),
    ("l2GetEEEPort 0", "\nGet EEE on Port=0 eeeMode:(L2SW_EEE_DISABLED)\nPASS\n",
     "L2Switch_GetEEEPort", err("rltkFTGetEEEPort()", "EIO"), f"\nGet EEE on Port=0 eeeMode:({ENUM})\nPASS\n"),
    ("l2SetEEEPort 0 1", "Setting EEE on port=0 to (L2SW_EEE_ENABLED)\nPASS\n",
     "L2Switch_SetEEEPort", "Setting EEE on port=0 to (L2SW_EEE_ENABLED)\n" + err("rltkFTSetEEEPort()", "EIO"),
     None),
    ("l2rgmiiDelayExt_set 2 1 3", "Setting rgmiiDelayExt on port=2 to (txDelay=1) and (rxDelay=3)\nPASS\n",
     "L2Switch_rgmiiDelayExt_set", "Setting rgmiiDelayExt on port=2 to (txDelay=1) and (rxDelay=3)\n"
                                   + err("rltkFTrgmiiDelayExt_set()", "EIO"), None),
    ("l2getSSC", "\nspread frequency (SSC) for Ethernet Switch : L2SW_SSC_DISABLED \nPASS\n",
     "L2Switch_GetSSC", err("rltkFTl2getSSC()", "EIO"),
     f"\nspread frequency (SSC) for Ethernet Switch : {ENUM} \nPASS\n"),
    ("l2setSSC 1", "Setting SSC to (L2SW_SSC_ENABLED)\nPASS\n",
     "L2Switch_SetSSC", "Setting SSC to (L2SW_SSC_ENABLED)\n" + err("rltkFTl2setSSC()", "EIO"), None),
    ("ethled on", "PASS\n", "L2SW_EthernetLedTest", "FAIL\n", None),
]
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
