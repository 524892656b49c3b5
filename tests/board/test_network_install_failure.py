"""Installations over the network that fail: nothing is erased before the whole image was received and found good, and
after that the device still boots what it booted before. The next installation works."""

import random

import pytest

import images
import real_images
import ubi_device
from network_device import (NO_DATA, NOT_FETCHED, NOT_WRITTEN, OLD_VOLUMES, SILENCE, expect_old_bank, flash_state,
                            install, make_old)
from real_images import SMALL_BOOTLOADER, SMALL_CONFIG_LOADER, SMALL_KERNEL, contents, flip, info, split
from texts import INSTALLING, PREPARING, SUCCESS
from tftp_server import BLOCK, Stops
from ubi_device import attached, expect_given_back, root_files, tar_xz, ubifs, with_set_user_id

WORN_OUT = "tftp: server error: (0) worn out\n"
ROOT = root_files("3.2.0.0R1", **{"lib/big": random.Random(7).randbytes(60_000)})


@pytest.fixture
def parts(tmp_path):
    return ubi_device.PartFiles(tmp_path)


def two_parts():
    return real_images.build(("kernel", SMALL_KERNEL), ("config-loader", SMALL_CONFIG_LOADER))


def wrong_sum(part):
    """What is said of contents whose checksum is not the header's."""
    return (f"ERROR: Failed checksum test: calculated {images.checksum(contents(part)):#x} vs "
            f"{images.field(part, images.CONTENTS_CHECKSUM):#x}")


def expect_installable(dev, server):
    """The failure stands in nobody's way."""
    image = two_parts()
    server.renew()
    assert install(dev, server, image) == info(image) + PREPARING + INSTALLING + info(image) + SUCCESS
    for name, part in zip(("kernel_2", "config_loader"), split(image)):
        assert dev.board.flash_read(name, 0, len(part)) == part
    assert dev.environment()["bootbank"] == "2"


# ---------------------------------------------------------------------- the first transfer fails: nothing is erased


def expect_refused(dev, server, file, said):
    """An installation of what is served as `file` leaves the flash alone."""
    make_old(dev)
    server.renew()
    before = flash_state(dev)
    assert install(dev, server, *([file] if file else [])) == said + NOT_FETCHED
    assert server.requests == ["image.rom"], "it was fetched again"
    assert flash_state(dev) == before
    expect_old_bank(dev)


def test_image_that_is_refused(dev, server, parts):
    image = real_images.small(("config-loader", SMALL_CONFIG_LOADER))
    loader, kernel, _ = split(image)
    bad_contents = split(flip(image, len(loader) + len(kernel) // 2))[1]
    bad_header = split(flip(image, len(loader) + images.HEADER_CHECKSUM))[1]
    homeless = real_images.build(("kernel", SMALL_KERNEL), ("6", SMALL_CONFIG_LOADER))
    small_blocks = parts.build(("kernel", SMALL_KERNEL), ("rootfs-ubifs-16k", ubifs(ROOT, "16k", 100)))
    refused = [
        (loader + bad_contents, info(loader + kernel) + wrong_sum(bad_contents) + "\n"),
        (loader + bad_header, info(loader) + images.info(bad_header) + "ERROR: Bad image header\n"),
        (homeless, info(homeless) + "ERROR: image_get_headers_fd: Can't find mtd for contents_type=6\n"
         "ERROR: Bad image destination\n"),
        (small_blocks, info(small_blocks) + "ERROR: ubi0 erase size is 0x20000, ubifs image requires 0x4000\n"
         "ERROR: Bad image destination\n"),
    ]
    for file, said in refused:
        expect_refused(dev, server, file, said)
        expect_installable(dev, server)


def test_first_transfer_that_breaks_off(dev, server):
    image = real_images.small(("config-loader", SMALL_CONFIG_LOADER))
    loader, kernel, _ = split(image)
    in_kernel = image[:len(loader) + len(kernel) // 2]
    no_header, no_data = ("ERROR: Failed to read firmware " + what for what in ("header 0 / 256 bytes ", "data "))
    broken = [
        (None, "tftp: server error: (1) File not found\n" + no_header + NO_DATA),
        (image[:-1], info(image) + no_data + NO_DATA),
        (loader + kernel, info(loader + kernel) + no_header + NO_DATA),
        (Stops(in_kernel, "worn out"), info(loader + kernel) + WORN_OUT + no_data + NO_DATA),
        (Stops(in_kernel), info(loader + kernel) + no_data + SILENCE),
    ]
    for file, said in broken:
        expect_refused(dev, server, file, said)
        expect_installable(dev, server)


# ---------------------------------------------------------------------- the second transfer fails: the old bank boots


def expect_not_installed(dev, server, image, file, said, volumes=(), **flash):
    """An installation of `image` that is served as `file` the second time changes these partitions and volumes only."""
    make_old(dev)
    server.renew()
    assert install(dev, server, image, file) == info(image) + PREPARING + INSTALLING + said + NOT_WRITTEN
    assert server.requests == ["image.rom"] * 2
    expect_old_bank(dev, volumes=volumes, **flash)


def test_another_file_the_second_time(dev, server):
    image = two_parts()
    kernel, config_loader = split(image)
    other = real_images.build(("kernel", SMALL_KERNEL), ("config-loader", SMALL_BOOTLOADER))
    said = info(other) + "ERROR: Header 1 mismatch\nERROR: Expected header:\n" + info(config_loader)
    expect_not_installed(dev, server, image, other, said, kernel_2=kernel, config_loader=b"")
    expect_installable(dev, server)

    damaged = flip(kernel, len(kernel) // 2)
    expect_not_installed(dev, server, image, damaged + config_loader, info(kernel) + wrong_sum(damaged),
                         kernel_2=damaged, config_loader=b"")
    expect_installable(dev, server)


def test_second_transfer_that_breaks_off(dev, server):
    image = two_parts()
    kernel, config_loader = split(image)
    in_kernel = kernel[:len(kernel) // 2 // BLOCK * BLOCK]
    cut_off = "ERROR: Failed to read firmware image {}ERROR: Failed to write firmware image\n"
    broken = [
        (Stops(b"", "worn out"), WORN_OUT + "ERROR: Failed to write firmware image " + NO_DATA, b"", b""),
        (image[:-1], info(image) + cut_off.format(NO_DATA), kernel, config_loader[:-1]),
        (Stops(in_kernel, "worn out"), info(kernel) + WORN_OUT + cut_off.format(NO_DATA), in_kernel, b""),
        (Stops(in_kernel), info(kernel) + cut_off.format(SILENCE), in_kernel, b""),
    ]
    for file, said, kernel_left, config_loader_left in broken:
        expect_not_installed(dev, server, image, file, said, kernel_2=kernel_left, config_loader=config_loader_left)
        expect_installable(dev, server)


# ---------------------------------------------------------------------- ... in a root file system


def test_another_root_file_system_the_second_time(dev, server, parts):
    image, other = (parts.build(("rootfs-tar", tar_xz(files))) for files in (ROOT, root_files("3.3.0.0R1")))
    said = info(other) + "ERROR: Header 0 mismatch\nERROR: Expected header:\n" + info(image)
    expect_not_installed(dev, server, image, other, said)

    image = parts.build(("rootfs-ubifs-128k", ubifs(ROOT, lebs=22)))
    damaged = flip(image, len(image) - 5000)
    expect_not_installed(dev, server, image, damaged, info(image) + wrong_sum(damaged), volumes=["rootfs_2"])


@pytest.mark.parametrize("word, make, said, written", [
    ("rootfs-ubifs-128k", lambda: ubifs(ROOT, lebs=22), "ERROR: Failed to read firmare image [No data available]\n"
     "ubiupdatevol: error!: cannot read 126976 bytes from \"-\"\n              error 0 (Success)\n", ROOT),
    ("rootfs-tar", lambda: tar_xz(ROOT), "ERROR: Failed to read firmware image [No data available]\n"
     "tar: corrupted data\ntar: short read\n", with_set_user_id(ROOT)),
], ids=["raw", "archive"])
def test_second_transfer_that_breaks_off_in_a_root_file_system(dev, server, parts, word, make, said, written):
    image = parts.build((word, make()))
    said = info(image) + WORN_OUT + said + "ERROR: Failed to write firmware image\n"
    expect_not_installed(dev, server, image, Stops(image[:len(image) // 2], "worn out"), said, volumes=["rootfs_2"])

    assert install(dev, server, image) == info(image) + PREPARING + INSTALLING + info(image) + SUCCESS
    expect_given_back(dev)
    assert dev.environment()["bootbank"] == "2"
    with attached(dev) as ubi:
        assert ubi.files("rootfs_2") == written
        assert ubi.files("rootfs_1") == OLD_VOLUMES["rootfs_1"]
