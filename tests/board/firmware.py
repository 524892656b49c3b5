"""Firmware on a device under test: what is built of it, and devices that boot it.

    in_bank_1(dev.board)                                 # as after the factory and an installation of A
    dev.expect_flash(**serial_flash(), kernel_2=image)
    expect_still_boots(dev)
"""

import functools

import boot_loader
import layout
import power_on
import real_images
import recovery_system
import ubi_device
from board_session import BUILD, DEFAULT_ENVIRONMENT
from firmware_images import Firmware
from virtual_board import SHELL_PATH

A, B, C = Firmware("4.1.0.0R1"), Firmware("4.2.0.0R2"), Firmware("4.3.0.0R3")
DEFAULTS = DEFAULT_ENVIRONMENT
# The same for a slow line.
SMALL_A, SMALL_B, SMALL_C = (Firmware(one.version, small=True) for one in (A, B, C))


@functools.cache
def recovery():
    """The recovery system as it lies in its partition."""
    return recovery_system.image({SHELL_PATH: BUILD / "recovery-loader"}, {})


def recovery_with(files):
    """The same with more files in its root file system."""
    return recovery_system.image({SHELL_PATH: BUILD / "recovery-loader"}, files)


@functools.cache
def kernel_part(version):
    """A kernel as it lies in its partition."""
    return version.image(None)


@functools.cache
def ubi(**volumes):
    """The bytes of a UBI partition with these root file systems."""
    return ubi_device.make(**{name: one.root_ubifs().read_bytes() for name, one in volumes.items()})


def kernel_size(version):
    """What the boot environment says of a kernel."""
    return f"{version.kernel().stat().st_size:X}"


def environment(**more):
    """The boot environment of a device that boots A from bank 1 without waiting."""
    return real_images.environment(bootdelay="0", kernel_size_1=kernel_size(A), **more)


def environment_of(values):
    """The bytes of a boot environment with just these variables."""
    return boot_loader.environment(values.items(), real_images.ENVIRONMENT_SIZE)


def serial_flash(**more):
    """{partition: contents} of a device that boots A from bank 1; `more` variables in the boot environment."""
    return {"kernel_1": kernel_part(A), "config_loader": recovery(), "bootenv_1": environment(**more)}


def lay_ubi(board, contents):
    """
    Lays a UBI partition into erased flash, and formats the blocks behind it, each with the header of the first one: of a
    device that has been in use. Else the first to attach it would write a thousand headers, and a power cut strike there.
    """
    geometry = board.geometry
    header = contents[:geometry.page]
    board.flash_write("ubi0", contents)
    for at in range(len(contents), layout.PARTITIONS["ubi0"].size, geometry.erase_block):
        board.flash_write("ubi0", header, at)


def in_bank_1(board, **more):
    """Lays that, and the root file system of A, into a device's flash, which must be erased."""
    lay_ubi(board, ubi(rootfs_1=A))
    for name, data in serial_flash(**more).items():
        board.flash_write(name, data)


def expect_still_boots(dev, recovers=power_on.RECOVERY):
    """Power brings up A from bank 1, and told to restart into the shell it starts this."""
    assert dev.power_on.judge(dev.board) == (A.report("1"), recovers)
