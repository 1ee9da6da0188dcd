"""The console on a terminal, as an operator types at it."""
import pexpect

from conftest import BUILD, FTSIM, startup

UP = "\x1b[A"


def spawn(phone):
    return pexpect.spawn(FTSIM, ["run", "--build", BUILD, phone.path], encoding="utf-8", timeout=10,
                         dimensions=(40, 300))


def screen(text):
    return text.replace("\n", "\r\n")


def test_session_with_history(phone):
    c = spawn(phone)
    c.expect_exact("ft>")
    assert c.before == screen(startup())
    long_line = "program read " + "x" * 250
    steps = [("program write hwver 7", "PASS\n"),
             (long_line, "Line too long (255 characters at most)\n"),
             ("   ", ""),
             ("program read hwver", 'HW_VER = "7"\n')]
    for line, out in steps:
        c.sendline(line)
        c.expect_exact("ft>")
        assert c.before == screen(line + "\n" + out)
    # Refused and blank lines are in the history too: three steps back is the long one.
    c.send(UP * 3 + "\r")
    c.expect_exact("Line too long (255 characters at most)\r\nft>")
    c.sendline("quit")
    c.expect(pexpect.EOF)
    c.close()
    assert c.exitstatus == 0


def test_end_of_input_quits(phone):
    c = spawn(phone)
    c.expect_exact("ft>")
    c.sendeof()
    c.expect(pexpect.EOF)
    c.close()
    assert c.exitstatus == 0


def test_scanner_separators_are_text(phone):
    c = spawn(phone)
    c.expect_exact("ft>")
    c.sendline("program write phonesn AB\x1dCD\x1c\x1e\x1f")
    c.expect_exact("PASS\r\nft>")
    c.sendline("program read phonesn")
    c.expect_exact('SN_UNIT = "AB\x1dCD\x1c\x1e\x1f"\r\nft>')
    c.send("\x10\r")                                   # Ctrl+P still recalls the line before
    c.expect_exact('SN_UNIT = "AB\x1dCD\x1c\x1e\x1f"\r\nft>')
    c.sendline("quit")
    c.expect(pexpect.EOF)
    c.close()
