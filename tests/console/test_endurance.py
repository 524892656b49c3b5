"""The shell takes and gives back: a short form of tests/campaign/endurance.py."""

import contextlib

import pytest

from endurance import State, endure, grown
from root_session import RootSession


@pytest.fixture
def plain_device(tmp_path, build):
    """A device with the program as it is built, whatever the others run: a sanitizer keeps back what was freed."""
    with contextlib.closing(RootSession(tmp_path / "plain", build, build / "recovery-loader")) as session:
        yield session


@pytest.mark.not_emulated(reason="the process is an emulator's, and so is what it holds")
def test_nothing_grows(plain_device):
    plain_device.give_model("P2")
    plain_device.boot()
    plain_device.unknown_command_expected = plain_device.unused_rules_expected = True
    rows = endure(plain_device, commands=150, keys=20_000, seed=1)
    assert [row[:2] for row in rows] == [("commands", 150), ("keys", 20_000)]
    assert not grown(rows)


@pytest.mark.parametrize("after", [State(165, 3, 0), State(100, 4, 0), State(100, 3, 1)],
                         ids=["memory", "descriptors", "processes"])
def test_what_has_grown_is_named(after):
    before = State(100, 3, 0)
    assert grown([("keys", 5, before, before, 1.0), ("commands", 5, before, after, 1.0)]) == [
        f"commands: {after} after {before}"]
