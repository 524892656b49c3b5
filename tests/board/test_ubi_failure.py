"""Installations into UBI volumes that fail: the device goes on booting what it booted, nothing stays attached or mounted,
and the next good image goes in."""

import random
import time

import pytest

import firmware
import images
import real_images
import ubi_device
from board_session import PATIENCE
from firmware import A
from real_images import SMALL_KERNEL, contents, flip, split
from texts import NOT_INSTALLED, SUCCESS
from ubi_device import attached, expect_given_back, install, root_files, tar_xz, ubifs, with_set_user_id

FIRST, SECOND = A.files(), root_files("3.2.0.0R7")
LARGE = root_files("3.3.0.0R1", **{"lib/big": random.Random(8).randbytes(120_000)})
OEM = b"<oem/>\n"
NOT_WRITTEN = "ERROR: Failed to write firmware image\n" + NOT_INSTALLED
BANK_2 = "flash download serial 2"


@pytest.fixture
def parts(tmp_path):
    return ubi_device.PartFiles(tmp_path)


@pytest.fixture
def in_use(dev):
    """A device that boots bank 1."""
    firmware.in_bank_1(dev.board, kernel_size_2="5678")
    yield dev
    dev.expect_flash(**firmware.serial_flash(kernel_size_2="5678"))


def expect_only_first(dev, *more):
    """The root file system that is booted is what it was, and only these other volumes are not empty."""
    expect_given_back(dev)
    with attached(dev) as ubi:
        assert ubi.files("rootfs_1") == FIRST
        assert ubi.holds_something() <= {"rootfs_1", *more}
    firmware.expect_still_boots(dev)


def expect_next_installation_works(dev, parts):
    """Puts the boot environment back afterwards."""
    before = dev.board.flash_read("bootenv_1")
    image = parts.build(("rootfs-tar", tar_xz(SECOND)))
    assert install(dev, image, BANK_2) == real_images.info(image) + SUCCESS
    expect_given_back(dev)
    now = dev.environment()
    assert (now["bootbank"], now["kernel_size_2"], now["kernel_size_1"]) == ("2", "0", firmware.kernel_size(A))
    with attached(dev) as ubi:
        assert ubi.files("rootfs_2") == with_set_user_id(SECOND)
        assert ubi.files("rootfs_1") == FIRST
    dev.board.flash_fill("bootenv_1", before)


def wrong_sum(received, part):
    return (f"ERROR: Failed checksum test: calculated {images.checksum(received):#x} vs "
            f"{images.field(part, images.CONTENTS_CHECKSUM):#x}")


def test_archive_that_cannot_be_unpacked(in_use, parts):
    """The tool dies while it is fed."""
    image = flip(parts.build(("rootfs-tar", tar_xz(LARGE))), images.HEADER_SIZE + 14)
    shown = install(in_use, image, BANK_2)
    assert shown.startswith("tar: corrupted data\n")
    assert shown.endswith(real_images.info(image) + "ERROR: Failed to write firmware image [Broken pipe]\n"
                          "ERROR: \nError writing to pipe\n" + NOT_WRITTEN)
    expect_only_first(in_use, "rootfs_2")
    expect_next_installation_works(in_use, parts)


def test_corrupted_part_behind_a_good_one(in_use, parts):
    root, oem = split(parts.build(("rootfs-tar", tar_xz(SECOND)), ("oem-defaults", OEM)))
    oem = flip(oem, len(oem) - 2)
    shown = install(in_use, root + oem, BANK_2)
    assert shown == real_images.info(root + oem) + wrong_sum(contents(oem), oem) + NOT_INSTALLED
    expect_only_first(in_use, "rootfs_2", "vexo_private")


def test_header_that_says_too_little(in_use, parts):
    """What is left over is neither another part nor typing."""
    image = parts.build(("rootfs-tar", tar_xz(SECOND)))
    archive = contents(image)
    header = images.with_field(image[:images.HEADER_SIZE], images.CONTENTS_LENGTH, len(archive) - 12)
    header = images.sign(images.with_field(header, images.FINAL_LENGTH, len(archive) - 12))
    shown = install(in_use, header + archive, BANK_2)
    assert shown == "tar: corrupted data\n" + images.info(header) + wrong_sum(archive[:-12], header) + NOT_INSTALLED
    expect_only_first(in_use, "rootfs_2")


def test_header_that_says_too_much(in_use, parts):
    image = parts.build(("rootfs-tar", tar_xz(SECOND)))
    header = images.with_field(image[:images.HEADER_SIZE], images.CONTENTS_LENGTH, 1 << 20)
    header = images.sign(images.with_field(header, images.FINAL_LENGTH, 1 << 20))
    shown = install(in_use, header + contents(image), BANK_2)
    assert shown == images.info(header) + "ERROR: Failed to read firmware image [Connection timed out]\n" + NOT_WRITTEN
    expect_only_first(in_use, "rootfs_2")


@pytest.mark.parametrize("word, archive, text", [
    ("rootfs-tar", tar_xz(LARGE), "firmware"),
    ("rootfs-ubifs-128k", ubifs(LARGE), "firmare"),
], ids=["archive", "raw file system"])
def test_sender_stops(in_use, parts, word, archive, text):
    image = parts.build((word, archive), ("kernel", SMALL_KERNEL))
    part = split(image)[0]
    in_use.begin(BANK_2)
    ubi_device.send(in_use, part[:60_000])
    stopped = time.monotonic()
    shown = in_use.text_until_prompt()
    # Ahead of it stands the tool's own complaint about half an archive.
    assert shown.endswith(images.info(part) + f"ERROR: Failed to read {text} image [Connection timed out]\n" + NOT_WRITTEN)
    assert time.monotonic() - stopped < PATIENCE / 4, "a few seconds on a device"
    expect_only_first(in_use, "rootfs_2")
    expect_next_installation_works(in_use, parts)
