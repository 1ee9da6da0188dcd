"""The station kit against simulated phones and scripted stand-ins."""
import os
import subprocess
import sys

import pytest

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FTSIM = os.path.join(REPO, "ftsim")
FTSTATION = os.path.join(REPO, "ftstation")
sys.path[:0] = [os.path.join(REPO, "station"), os.path.dirname(os.path.dirname(os.path.abspath(__file__)))]


def plan_text(name):
    """A plan kept in plans/ beside the tests."""
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "plans", name)) as f:
        return f.read()


def ftstation(*args, env=None, timeout=60):
    return subprocess.run([FTSTATION, *map(str, args)], capture_output=True, text=True,
                          timeout=timeout, env={**os.environ, **(env or {})})


def ftsim(*args):
    subprocess.run([FTSIM, *map(str, args)], check=True, capture_output=True)


def new_phone(path, *unplug):
    ftsim("new", path)
    for device in unplug:
        ftsim("unplug", path, device)
    return str(path)


@pytest.fixture
def phone(tmp_path):
    return new_phone(str(tmp_path / "phone"))
