"""ftsim's own command line: help for every verb, one usage per mistake, the README."""
import os
import re
import sys

import pytest

from conftest import REPO, ftsim

sys.path.insert(0, os.path.join(REPO, "sim"))
from ftsim import cli, registry  # noqa: E402

VERBS = list(cli.build()[1])


@pytest.mark.parametrize("verb", VERBS)
def test_verb_help_and_wrong_form(verb):
    for args in ([verb, "--help"], ["help", verb]):
        r = ftsim(*args)
        assert (r.returncode, r.stderr) == (0, ""), args
        assert r.stdout.startswith(f"usage: ftsim {verb} "), args
    r = ftsim(*(["help", "nosuch"] if verb == "help" else [verb]))
    assert r.returncode == 2 and not r.stdout
    assert r.stderr.startswith(f"usage: ftsim {verb} ") and r.stderr.count("usage:") == 1
    assert r.stderr.splitlines()[-1].startswith(f"ftsim {verb}: error: ")


@pytest.mark.parametrize("args", [["--help"], ["-h"], ["help"]])
def test_verb_list(args):
    r = ftsim(*args)
    assert r.returncode == 0
    assert [v for v in VERBS if not re.search(rf"^    {re.escape(v)} +\S", r.stdout, re.M)] == []


def test_names_in_help_and_errors(phone):
    for verb, words, listed, valid in (
            ("fault", ["nosuch"], ["tool NAME[:ARG][@N]", "shell"], "shell"),
            ("fault", ["tool"], [], "tool takes a NAME[:ARG][@N]"),
            ("set", ["nosuch", "1"], ["panel WxH", "model corvine|other"], "panel"),
            ("show", ["nosuch"], ["watchdog", "mixer"], "watchdog"),
            ("unplug", ["nosuch"], ["keypad"], "keypad"),
            ("plug", ["charger"], ["display"], "display")):
        out = ftsim(verb, "--help").stdout
        assert all(re.search(rf"^  {re.escape(n)} ", out, re.M) for n in listed), (verb, out)
        r = ftsim(verb, phone.path, *words)
        assert r.returncode == 2 and r.stderr.startswith(f"usage: ftsim {verb} "), words
        assert valid in r.stderr.splitlines()[-1], r.stderr


def test_older_verbs_and_prefix_settings(phone, monkeypatch, capsys):
    seen = []
    monkeypatch.setitem(registry.COMMANDS, "old", ("ftsim old PHONE X", seen.append))
    monkeypatch.setitem(registry.SETTINGS, "switch.", ("switch.KEY VALUE",
                                                       lambda p, v, what: seen.append((what, v))))
    assert cli.main(["old", phone.path, "-x", "--", "y"]) == 0
    assert cli.main(["set", phone.path, "switch.vlan", "-3"]) == 0
    assert cli.main(["set", phone.path, "switch.", "1"]) == 2
    assert seen == [[phone.path, "-x", "--", "y"], ("switch.vlan", "-3")]
    assert "switch.KEY" in capsys.readouterr().err


def test_readme_names_every_verb():
    with open(os.path.join(REPO, "README.md")) as f:
        text = f.read()
    rows = [line for line in text.splitlines() if line.startswith("|")]
    named = {v for row in rows for v in re.findall(r"`\./ftsim ([a-z][\w-]*)", row)}
    assert sorted(named) == sorted(VERBS)
