"""Installations in a row without a restart: a short form of tests/campaign/installations.py."""

import pytest

import board_state
import installations
from board_state import State
from texts import SUCCESS

BEFORE = State(memory=92, descriptors=3, children=0, attached=0, mounted=6, files=0, process="110")


def expect_to_endure(dev, count):
    assert dev.command("network ethernet start").endswith(SUCCESS)
    before, after, done = installations.endure(dev, count)
    assert [one.bank for one in done] == list("2121212121"[:count])
    assert len({one.image.data for one in done}) == count
    assert not installations.problems(before, after, done)
    assert before.process == dev.shell_pid() and before.descriptors >= 3 and before.memory > 0
    return done


def test_one_bank_and_the_other(dev):
    first, second = expect_to_endure(dev, 2)
    # What is somewhere else than it was sent to is noticed.
    assert installations.differences(dev, "2", {"2": second.image, "1": first.image}) == [
        "bootbank is 1", f"kernel_size_2 is {30_000:X}", f"kernel_size_1 is {30_001:X}",
        "kernel_2 is another", "kernel_1 is another", "rootfs_2 holds other files", "rootfs_1 holds other files"]


@pytest.mark.long
def test_each_way_into_each_bank(dev):
    done = expect_to_endure(dev, 9)
    assert {one.way for one in done} == {"network, UBIFS", "network, archive", "serial, archive"}


@pytest.mark.parametrize("name, value", [("memory", 157), ("descriptors", 4), ("children", 1), ("attached", 1), ("mounted", 7),
                                         ("files", 1), ("process", "111")])
def test_what_has_grown_is_named(name, value):
    after = State(**{**vars(BEFORE), name: value})
    found, = board_state.grown("at the end", BEFORE, after)
    assert name in found and str(value) in found and not board_state.grown("at the end", BEFORE, BEFORE)
