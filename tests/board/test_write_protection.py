"""Locks that do not open and locks that do not close, as the flash itself refuses them."""

import pytest

import images
import real_images
from texts import FAILURE, NOT_INSTALLED, SENDER_GOES_ON, SUCCESS

NOT_WRITTEN = "ERROR: Failed to write firmware image\n" + NOT_INSTALLED
BEFORE = real_images.environment(kernel_size_1="1000")


@pytest.fixture
def dev(dev):
    """A device that boots bank 1."""
    dev.board.flash_fill("bootenv_1", BEFORE)
    return dev


def refused(command):
    """What the shell says of a tool that failed."""
    return f"ERROR: system({command}) sys_rc=65280 exitstatus=255\n"


def fail(dev, operation, partition):
    dev.board.fault(operation, partition, times=0)
    return dev.board.flash_operations()[partition]


def install_loader_and_kernel(dev):
    """Returns the parts, what the tools said while the transfer ran, and what the shell said after it."""
    image = real_images.small()
    loader, kernel = real_images.split(image)
    shown = dev.install(image)
    said, info, rest = shown.partition(images.info(loader))
    assert info
    # On a slow machine the sender of a refused image goes on for a while.
    return loader, kernel, said, rest.replace(SENDER_GOES_ON, "")


def test_partition_that_cannot_be_unlocked_is_not_written(dev):
    counted = fail(dev, "unlock", "bootloader")
    _, _, said, rest = install_loader_and_kernel(dev)
    assert said.startswith("flash_unlock: error!: ")
    assert rest == refused("/usr/sbin/flash_unlock /dev/mtd2") + NOT_WRITTEN
    assert dev.board.flash_operations()["bootloader"]["lock"] == counted["lock"] + 1, "locked at once"
    dev.expect_flash(bootenv_1=BEFORE)
    dev.board.clear_faults()
    dev.expect_locked()


def test_partition_that_cannot_be_locked_again_is_a_failure(dev):
    fail(dev, "lock", "bootloader")
    loader, _, said, rest = install_loader_and_kernel(dev)
    assert said.startswith("flash_lock: error!: ")
    assert rest == refused("/usr/sbin/flash_lock /dev/mtd2 0 -1") + NOT_WRITTEN
    dev.expect_flash(bootenv_1=BEFORE, bootloader=loader)
    assert not dev.is_locked("bootloader")
    dev.expect_locked("bootstrap", "prod_config", "bootenv_1", "bootenv_2")
    dev.restart()
    dev.expect_locked()


def test_environment_that_cannot_be_unlocked_is_a_failure(dev):
    fail(dev, "unlock", "bootenv_1")
    image = real_images.build(("kernel", real_images.SMALL_KERNEL))
    shown = dev.install(image)
    size = f"{len(real_images.contents(image)):X}"
    assert shown.startswith(images.info(image))
    assert f"ERROR: system(/usr/sbin/fw_setenv kernel_size_2 {size} > /dev/null 2>&1) sys_rc=" in shown
    assert f"ERROR: Failed to set kernel_size_2={size} in the boot environment\n" in shown
    assert "bootbank" not in shown, "the bank is not switched to a kernel of unknown size"
    assert shown.endswith(NOT_INSTALLED)
    dev.expect_flash(bootenv_1=BEFORE, kernel_2=image)
    dev.board.clear_faults()
    dev.expect_locked()


def test_defaults_are_not_written_over_an_environment_that_cannot_be_unlocked(dev):
    fail(dev, "unlock", "bootenv_1")
    shown = dev.command("set bootenv defaults")
    assert refused("/usr/sbin/flash_unlock /dev/mtd3") in shown
    assert "ERROR: Failed to erase boot environment partition bootenv_1\n" in shown
    assert shown.endswith(FAILURE)
    dev.expect_flash(bootenv_1=BEFORE)
    dev.board.clear_faults()
    dev.expect_locked()
    assert dev.command("set bootenv defaults").endswith(SUCCESS)
    assert "kernel_size_1" not in dev.environment()
    dev.expect_locked()
