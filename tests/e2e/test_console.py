"""The console over a pipe: start-up, the loop's rules, help pages, end of input."""
from conftest import QUIT, golden, startup, startup_calls, transcript

NOT_VALID = "Not a valid command\n"


def test_lines_words_and_prefixes(phone):
    out, rc = phone.run("", "   ", "ft", "ft ft program commit", "info\t", "QUIT",
                        "program commit ft", "quit now", "info")
    assert rc == 0
    # The editor echoes a tab as blanks to the next tab stop (column 8).
    assert out == startup() + transcript(
        ("", ""), ("   ", ""), ("ft", ""), ("ft ft program commit", "PASS\n"),
        ("info ", NOT_VALID), ("QUIT", NOT_VALID), ("program commit ft", "PASS\n"),
        ("quit now", QUIT))


def test_long_lines_are_refused_whole(phone):
    word99 = "w" * 99
    lines = ["program write phonesn " + "x" * 240,           # 262 characters
             "program write phonesn " + " ".join("v" * 18),  # 21 words
             "program write phonesn " + "v" * 100,
             "program write phonesn " + word99]
    out, rc = phone.run(*lines)
    assert rc == 0
    assert out == startup() + transcript(
        (lines[0], "Line too long (255 characters at most)\n"),
        (lines[1], "Too many words (20 at most)\n"),
        (lines[2], "Word too long (99 characters at most)\n"),
        (lines[3], "FAIL\n"), eof=True)
    assert phone.values()["SN_UNIT"] == ""


def test_help_pages(phone):
    out, _ = phone.run("help", "audio", "l2", "h", "?")
    general = "\n\n" + golden("help_general.txt")
    assert out == startup() + transcript(
        ("help", general), ("audio", golden("help_audio.txt")), ("l2", golden("help_l2.txt")),
        ("h", general), ("?", general), eof=True)


def test_missing_watchdog_is_reported_and_the_console_runs(phone):
    phone.unplug("watchdog")
    out, rc = phone.run("program commit")
    assert (out, rc) == (startup(watchdog=False) + transcript(("program commit", "PASS\n"), eof=True), 0)
    assert phone.show("watchdog") == "written=\npresent=no\n"
    phone.plug("watchdog")
    phone.run()
    assert phone.show("watchdog") == "written=V\npresent=yes\n"


def test_dispatcher_families(phone):
    out, _ = phone.run("mfg wifi start", "mfg bt anything", "mfg wifi", "tolma regulatory",
                       "l2GetPVID 5", "bt", "mfg wifi stop")
    mfg = "Not a valid command option. Please check ft help for mfg command options.\n"
    assert out == startup() + transcript(
        ("mfg wifi start", ""), ("mfg bt anything", ""), ("mfg wifi", mfg),
        ("tolma regulatory", 'invalid server ip ""\nFAIL\n'),
        ("l2GetPVID 5", "\nl2portCntrs() FAIL. port not valid ! \n"),
        ("bt", "Not a valid command option. Please check ft help for BT command options.\n"),
        ("mfg wifi stop", ""), eof=True)
    assert phone.calls() == startup_calls() + ("/system/bin/wifi_reg_test.sh start\n"
                             "/system/bin/wifi_reg_test.sh stop\n")
