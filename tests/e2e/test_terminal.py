"""The console on a terminal, as an operator types at it."""
import pexpect

from conftest import quit_terminal, startup, terminal

UP = "\x1b[A"


def screen(text):
    return text.replace("\n", "\r\n")


def test_session_with_history(phone):
    c = terminal(phone)
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
    quit_terminal(c)


def test_end_of_input_quits(phone):
    c = terminal(phone)
    c.sendeof()
    c.expect(pexpect.EOF)
    c.close()
    assert c.exitstatus == 0


def test_scanner_separators_are_text(phone):
    c = terminal(phone)
    c.sendline("program write phonesn AB\x1dCD\x1c\x1e\x1f")
    c.expect_exact("PASS\r\nft>")
    c.sendline("program read phonesn")
    c.expect_exact('SN_UNIT = "AB\x1dCD\x1c\x1e\x1f"\r\nft>')
    c.send("\x10\r")                                   # Ctrl+P still recalls the line before
    c.expect_exact('SN_UNIT = "AB\x1dCD\x1c\x1e\x1f"\r\nft>')
    quit_terminal(c)
