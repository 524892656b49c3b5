"""Installations over the network: a device that an older release left, images fetched from the server of our own, and
what the shell shows of it.

    assert install(dev, server, image, other, bank="1") == info(image) + PREPARING + INSTALLING + ...
"""

import functools
import hashlib

import firmware
import ubi_device
from board_session import PARTITIONS, PATIENCE
from firmware import A
from power_on import NOTHING, RECOVERY
from texts import FAILURE
from ubi_device import attached, expect_given_back, make, root_files, ubifs

FETCHING = "NOTE: Using interface 'eth0'\nRetrieving file 'image.rom' via tftp ...\n"
NOT_FETCHED = "ERROR: Failed to download image information\n" + FAILURE
NOT_WRITTEN = "ERROR: Failed to write firmware image\n" + FAILURE
NO_DATA, SILENCE = "[No data available]\n", "[Connection timed out]\n"

# What an older release left: it boots A from bank 1.
OLD_VOLUMES = {"rootfs_1": A.files(), "rootfs_2": root_files("3.0.0.0R9"),
               "vexo_private": ubi_device.contents({"cfg/hidden.oem.xml": b"<old/>\n"}),
               "vexo_user": ubi_device.contents({"notes": b"kept\n" * 500})}


@functools.cache
def old():
    """{partition: contents} of the serial flash."""
    others = {name: f"{name} of an older release".encode() for name in PARTITIONS if name != "ubi0"}
    return {**others, **firmware.serial_flash()}


@functools.cache
def _old_ubi():
    volumes = {name: ubifs(files, lebs=200 if name == "vexo_user" else 22) for name, files in OLD_VOLUMES.items()}
    return make(**{**volumes, "rootfs_1": A.root_ubifs().read_bytes()})


def make_old(dev):
    """Has an older release on the device, and nothing else."""
    dev.board.flash_erase()
    firmware.lay_ubi(dev.board, _old_ubi())
    for name, data in old().items():
        dev.board.flash_write(name, data)


def install(dev, server, *files, bank="2", timeout=PATIENCE):
    """An installation. Each of `files` is served once, the last for ever; without any the server has none. Returns what
    followed FETCHING."""
    server.files["image.rom"] = files
    shown = dev.command(" ".join(filter(None, ["flash download network", bank, server.address, "image.rom"])), timeout)
    assert shown.startswith(FETCHING), shown
    return shown.removeprefix(FETCHING)


def _operations(dev):
    return {name: (counts["write"], counts["erase"]) for name, counts in dev.board.flash_operations().items()}


def flash_state(dev):
    """What changes whenever flash is written or erased, be it with what was there."""
    return _operations(dev), {name: hashlib.sha256(dev.board.flash_read(name)).digest() for name in PARTITIONS}


def expect_old_bank(dev, *, volumes=(), **partitions):
    """These partitions hold this and these volumes anything; all else is as the older release left it, locked what was
    locked, nothing is left of the installation but that, and bank 1 boots. The shell starts, unless its system is replaced."""
    expect_given_back(dev)
    dev.expect_locked()
    dev.expect_flash(**{**old(), **partitions})
    assert dev.board.flash_read("bootenv_1") == old()["bootenv_1"]
    with attached(dev) as ubi:
        assert {name: ubi.files(name) for name in OLD_VOLUMES if name not in volumes} == {
            name: files for name, files in OLD_VOLUMES.items() if name not in volumes}
    firmware.expect_still_boots(dev, NOTHING if "config_loader" in partitions else RECOVERY)
