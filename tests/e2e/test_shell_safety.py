"""Operator words in shell lines: whatever a word holds, the intended tool runs
with it as one argument, and nothing else runs. Every command that puts operator
words into a shell line has a row in COMMANDS."""
import os

import pytest

from conftest import QUIT, startup, startup_calls, transcript

# Words that would break out of a naively built line.
NASTY = [";reboot", "$(reboot)", "`reboot`", "it's", '"quoted"', "a*", "back\\slash",
         "x|reboot", "&&reboot", ">/reserved/x", "q" * 80 + "';reboot;'"]

# (command line with {w} where the operator word goes, tool's record with {w})
COMMANDS = [
    ("warn {w} u p in.wav 1 2 out.wav", "audio_warn.sh <{w}> <u> <p> <in.wav> <1> <2> <out.wav>"),
    ("warn 10.0.0.1 u p in.wav 1 2 {w}", "audio_warn.sh <10.0.0.1> <u> <p> <in.wav> <1> <2> <{w}>"),
]


@pytest.mark.parametrize("line,record", COMMANDS, ids=[c[0].split()[0] for c in COMMANDS])
def test_each_word_is_one_argument(phone, line, record):
    lines = [line.format(w=w) for w in NASTY]
    out, rc = phone.run(*lines, "quit")
    assert rc == 0
    assert out == startup() + transcript(*[(l, "") for l in lines], ("quit", QUIT))
    with open(os.path.join(phone.path, "log", "tools")) as f:
        assert f.read() == "".join(record.format(w=w) + "\n" for w in NASTY)
    # One shell line per command: nothing ran besides the tool.
    assert len(phone.calls().splitlines()) == len(startup_calls().splitlines()) + len(NASTY)
    assert not os.path.exists(os.path.join(phone.path, "reserved", "x"))


def test_a_line_that_does_not_fit_is_refused_whole(phone):
    # Each quote is written as four characters: the line fits, its shell line would not.
    line = "warn " + " ".join(["'" * 34] * 7)
    out, _ = phone.run(line)
    assert out == startup() + transcript((line, "Command too long (511 characters at most)\n"), eof=True)
    assert phone.calls() == startup_calls()
