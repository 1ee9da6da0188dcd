"""Operator words in shell lines: whatever a word holds, the intended tool runs
with it as one argument, and nothing else runs. Every command that puts operator
words into a shell line has a row in COMMANDS."""
import os
import re

import pytest

from conftest import QUIT, startup, startup_calls, transcript

# Words that would break out of a naively built line.
NASTY = [";reboot", "$(reboot)", "`reboot`", "it's", '"quoted"', "a*", "back\\slash",
         "x|reboot", "&&reboot", ">/reserved/x", "q" * 80 + "';reboot;'"]

# The station refuses these logins: every transfer fails, and the console shows the
# command line it ran, with the word as the shell was given it.
FAILED = 'command "{line}" failed, check the input\nFAIL\n'
LABEL = "/reserved/regulatoryLabels/regulatory_info.png"

# (command line with {w} where the operator word goes, tool's record with {w},
#  what the console prints, with {q} for the word as quoted on the shell line)
COMMANDS = [
    ("warn 10.0.0.1 u p in.wav 1 2 {w}", "audio_warn.sh <10.0.0.1> <u> <p> <in.wav> <1> <2> <{w}>", ""),
    ("get {w} p l r 10.8.0.2", "ftpget <-u> <{w}> <-p> <p> <10.8.0.2> <l> <r>",
     FAILED.format(line="ftpget -u {q} -p p 10.8.0.2 l r")),
    ("send u p {w} r 10.8.0.2", "ftpput <-u> <u> <-p> <p> <10.8.0.2> <r> <{w}>", ""),
    ("tolma regulatory u p {w} 10.8.0.2", f"ftpget <-u> <u> <-p> <p> <10.8.0.2> <{LABEL}> <{{w}}>",
     FAILED.format(line=f"ftpget -u u -p p 10.8.0.2 {LABEL} {{q}}")),
]


def quoted(word):
    """A word as the console puts it on a shell line."""
    if re.fullmatch(r"[A-Za-z0-9._\-/:@%+=,]+", word):
        return word
    return "'" + word.replace("'", "'\\''") + "'"


@pytest.mark.parametrize("line,record,output", COMMANDS, ids=[c[0].split()[0] for c in COMMANDS])
def test_each_word_is_one_argument(phone, line, record, output):
    lines = [line.format(w=w) for w in NASTY]
    out, rc = phone.run(*lines, "quit")
    assert rc == 0
    assert out == startup() + transcript(*[(l, output.format(q=quoted(w))) for l, w in zip(lines, NASTY)],
                                         ("quit", QUIT))
    with open(os.path.join(phone.path, "log", "tools")) as f:
        assert f.read() == "".join(record.format(w=w) + "\n" for w in NASTY)
    # One shell line per command: nothing ran besides the tool.
    assert len(phone.calls().splitlines()) == len(startup_calls().splitlines()) + len(NASTY)
    assert not os.path.exists(os.path.join(phone.path, "reserved", "x"))


# Each quote is written as four characters: the lines fit, their shell lines would not.
TOO_LONG = [
    ("warn " + " ".join(["'" * 34] * 7), "Command too long (511 characters at most)\n"),
    ("get " + " ".join(["'" * 15] * 4) + " 10.8.0.2", "Command too long (255 characters at most)\nFAIL\n"),
]


def test_a_line_that_does_not_fit_is_refused_whole(phone):
    out, _ = phone.run(*[line for line, _ in TOO_LONG])
    assert out == startup() + transcript(*TOO_LONG, eof=True)
    assert phone.calls() == startup_calls()
