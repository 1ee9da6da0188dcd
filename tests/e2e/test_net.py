"""ip, ping, get, send and tolma regulatory through the phone's own tools."""
import os

from conftest import startup, startup_calls, transcript

LABEL_DIR = "/reserved/regulatoryLabels"

# Addresses the console must refuse before anything runs: inet_pton's dotted quad only.
BAD = ["", "station", "10.1.1", "192.168.1.300", "1.2.3.4.5", "10.0.0.01", "0x7f.0.0.1",
       "10.0.0.1/24", "::1", "10.0.0.1;reboot"]


def tools(phone):
    try:
        with open(os.path.join(phone.path, "log", "tools")) as f:
            return f.read()
    except FileNotFoundError:
        return ""


def test_bad_addresses_run_nothing(phone):
    steps = []
    for a in BAD:
        steps += [(f"ip 1 {a}", "FAIL\n"),
                  (f"ping {a}", "Invalid IP address\n"),
                  (f"get u p l r {a}", f'invalid server ip "{a}"\nFAIL\n'),
                  (f"send u p l r {a}", "Invalid remote IPAddr Server!!\n"),
                  (f"tolma regulatory u p r {a}", f'invalid server ip "{a}"\nFAIL\n')]
    out, _ = phone.run(*[line for line, _ in steps])
    assert out == startup() + transcript(*steps, eof=True)
    assert phone.calls() == startup_calls()
    assert tools(phone) == ""


def test_ip_without_the_marker_asks_the_phone_software(phone):
    out, _ = phone.run("ip 1 10.8.0.33")
    assert out == startup() + transcript(("ip 1 10.8.0.33", "PASS\n"), eof=True)
    assert tools(phone) == ("am <broadcast> <-a> <com.tolma.endpoint.intent.action.ftcommand>"
                            " <-e> <ip> <10.8.0.33>\n")


def test_regulatory_label_needs_a_writable_reserved_partition(phone):
    phone.fault("reserved-readonly")
    out, _ = phone.run("tolma regulatory station station label.png 10.8.0.2")
    assert out == startup() + transcript(
        ("tolma regulatory station station label.png 10.8.0.2",
         f'tolma_regulatory: failed to create target directory "{LABEL_DIR}"\nFAIL\n'), eof=True)
    assert phone.calls() == startup_calls()
