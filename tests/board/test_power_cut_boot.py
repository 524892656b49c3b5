"""The power goes at each step of an installation into bank 2 of a device that boots bank 1: what boots afterwards. The table
in docs/boot.md has a row for each of these tests."""

import functools

import pytest

import firmware
import real_images
from board_session import PATIENCE
from firmware import A, B
from power_on import NOTHING, RECOVERY, variables
from real_images import SMALL_CONFIG_LOADER, SMALL_KERNEL
from session import plain

LONG = 5 * PATIENCE
IN_BANK_1, IN_BANK_2 = (A.report("1"), RECOVERY), (B.report("2"), RECOVERY)
ONLY_RECOVERY = (RECOVERY, RECOVERY)


@functools.cache
def small():
    """A kernel that is none, and a config loader that is none either."""
    return real_images.build(("kernel", SMALL_KERNEL), ("config-loader", SMALL_CONFIG_LOADER))


def kernel_only():
    return real_images.build(("kernel", SMALL_KERNEL))



def from_server(dev, image, bank="2"):
    """Starts an installation over the network; the power goes in the course of it. Returns what was shown."""
    (dev.board.tftp / "image.rom").write_bytes(image)
    dev.type(f"flash download network {bank} 10.0.2.2 image.rom")
    dev.board.wait_off(LONG)
    return plain(dev.board.console.unread)


def over_the_line(dev, image):
    """The same over the serial line."""
    dev.begin("flash download serial 2")
    dev.send_until_off(image)


def boots_after(dev):
    """What boots now. The device is started again afterwards, for the tests to come."""
    judged = dev.power_on.judge(dev.board)
    dev.boot()
    return judged


@pytest.fixture
def in_use(dev):
    """A device that boots A from bank 1."""
    firmware.in_bank_1(dev.board)
    return dev


def long(*values):
    """The campaign of power cuts, whose short form is run with the others, cuts here, too."""
    return pytest.param(*values, marks=pytest.mark.long)


@pytest.mark.parametrize("operation, nth, boots", [
    ("unlock", 1, IN_BANK_1),
    ("erase", 1, ONLY_RECOVERY),
    long("write", 1, ONLY_RECOVERY),
    long("lock", 1, IN_BANK_1),
    ("unlock", 2, IN_BANK_1),
    long("erase", 2, ONLY_RECOVERY),
    ("write", 2, ONLY_RECOVERY),
], ids=["before the kernel size", "it is erased", "it is written", "behind it", "before the bank", "it is erased again",
        "it is written again"])
def test_environment(in_use, operation, nth, boots):
    # A write stops in the text; behind it the environment is as erased flash.
    in_use.board.cut_power_at(operation, "bootenv_1", nth, done=40 if operation == "write" else 0)
    over_the_line(in_use, kernel_only())
    torn = not variables(in_use.board.flash_read("bootenv_1"))
    assert torn == (boots == ONLY_RECOVERY), "the environment is not what this case is about"
    assert boots_after(in_use) == boots


@pytest.mark.parametrize("partition, boots", [
    ("kernel_2", IN_BANK_1),
    ("config_loader", (A.report("1"), NOTHING)),
])
def test_raw_part_is_written(in_use, partition, boots):
    """The config loader is there once: a device that loses it boots on, and has no shell."""
    if partition == "config_loader":
        in_use.board.flash_erase("config_loader")
    in_use.board.cut_power_at("write", partition, nth=5)
    over_the_line(in_use, small())
    assert boots_after(in_use) == boots


@pytest.mark.parametrize("partition, boots", [
    ("kernel_2", IN_BANK_1),
    ("config_loader", (A.report("1"), NOTHING)),
])
def test_raw_partition_is_erased(in_use, partition, boots):
    in_use.board.cut_power_at("erase", partition, nth=3)
    from_server(in_use, small())
    assert boots_after(in_use) == boots


@pytest.mark.parametrize("kind", ["128k", "tar"], ids=["UBIFS", "archive"])
def test_root_file_system_is_written(in_use, kind):
    in_use.board.cut_power_at("write", "ubi0", nth=20)
    assert from_server(in_use, B.image(kind, kernel=False)).count("Contents Type") == 2, "not in the second transfer"
    assert boots_after(in_use) == IN_BANK_1


@pytest.mark.parametrize("operation, nth", [long("erase", 3), ("write", 30)], ids=["begun", "done"])
def test_banks_give_way_to_a_single_one(in_use, operation, nth):
    """The root file system that was booted goes before the new one comes."""
    in_use.board.cut_power_at(operation, "ubi0", nth)
    from_server(in_use, B.image("128k", kernel=False), bank="single")
    assert boots_after(in_use) == ONLY_RECOVERY


def test_clean_flash_is_formatted(dev):
    """A device that has left the factory: there is nothing else to boot."""
    dev.board.factory_setup()
    dev.board.cut_power_at("write", "ubi0", nth=10)
    from_server(dev, B.image("128k", kernel=False))
    assert boots_after(dev) == ONLY_RECOVERY


def test_bank_is_switched(in_use):
    """The very last step of the installation of a whole firmware: the environment is written, and not locked again."""
    in_use.board.cut_power_at("lock", "bootenv_1", nth=2)
    from_server(in_use, firmware.SMALL_B.image("tar"))
    assert boots_after(in_use) == IN_BANK_2


def test_defaults_are_set(in_use):
    in_use.board.cut_power_at("erase", "bootenv_1")
    in_use.type("set bootenv defaults")
    in_use.board.wait_off(PATIENCE)
    assert boots_after(in_use) == ONLY_RECOVERY
