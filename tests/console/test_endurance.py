"""The shell takes and gives back: a short form of tests/campaign/endurance.py."""

import pytest

from endurance import State, endure, grown


@pytest.mark.not_emulated(reason="the process is an emulator's, and so is what it holds")
def test_nothing_grows(dev):
    dev.give_model("P2")
    dev.boot()
    dev.unknown_command_expected = dev.unused_rules_expected = True
    rows = endure(dev, commands=150, keys=20_000, seed=1)
    assert [row[:2] for row in rows] == [("commands", 150), ("keys", 20_000)]
    assert not grown(rows)


@pytest.mark.parametrize("after", [State(165, 3, 0), State(100, 4, 0), State(100, 3, 1)],
                         ids=["memory", "descriptors", "processes"])
def test_what_has_grown_is_named(after):
    before = State(100, 3, 0)
    assert grown([("keys", 5, before, before, 1.0), ("commands", 5, before, after, 1.0)]) == [
        f"commands: {after} after {before}"]
