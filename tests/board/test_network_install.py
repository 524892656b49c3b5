"""Whole images installed over the network, onto a new device and over what an older release left, read back from
outside."""

import random
import re

import pytest

import images
import real_images
import ubi_device
from board_session import DEFAULT_ENVIRONMENT, PARTITIONS
from network_device import OLD_VOLUMES, install, make_old, old
from power_on import variables
from real_images import (BOOTLOADER, BOOTSTRAP, CONFIG_LOADER, KERNEL, SMALL_BOOTLOADER, SMALL_CONFIG_LOADER,
                         SMALL_KERNEL, contents, info, split)
from texts import INSTALLING, PREPARING, SKIPPED_BOOT_ENV, SUCCESS
from ubi_device import (attached, expect_given_back, fresh_layout, root_files, single_layout, tar_gz, tar_xz, ubifs,
                        with_set_user_id)

OEM = b"<oem><name>Acme \xc3\xa4</name></oem>\n"
OEM_FILES = {"cfg/hidden.oem.xml": (OEM, 0o644)}
PYTHON = ubi_device.contents({"bin/python": (b"#!/bin/sh\n" + images.pattern(5000), 0o755),
                              "lib/python2.7/os.py": b"import sys\n"})
IN_PYTHON = {f"python/{path}": entry for path, entry in PYTHON.items()}
ROOT = root_files("3.2.0.0R1", **{"lib/big": random.Random(5).randbytes(100_000)})
LOCKED = "error 30 (Read-only file system)\n"


@pytest.fixture
def parts(tmp_path):
    return ubi_device.PartFiles(tmp_path)


def kernel_size(kernel):
    """As the boot environment has it."""
    return f"{len(contents(kernel)):X}"


def without_complaints(shown):
    """What was shown, without the lines of the erase tool about locked partitions."""
    return re.sub(rf"(libmtd|flash_erase): error!: .*\n +{re.escape(LOCKED)}", "", shown)


def test_all_destinations_of_a_new_device(dev, server, parts):
    image = parts.build(("bootstrap", BOOTSTRAP), ("bootloader", BOOTLOADER), ("kernel", KERNEL),
                        ("config-loader", CONFIG_LOADER), ("rootfs-tar", tar_xz(ROOT)), ("oem-defaults", OEM),
                        ("python", tar_gz(PYTHON)))
    shown = install(dev, server, image, bank="")
    assert without_complaints(shown) == info(image) + PREPARING + INSTALLING + info(image) + SUCCESS
    assert server.requests == ["image.rom"] * 2
    expect_given_back(dev)
    bootstrap, loader, kernel, config_loader = split(image)[:4]
    dev.expect_flash(bootstrap=contents(bootstrap), bootloader=loader, kernel_1=kernel, config_loader=config_loader)
    dev.expect_locked()
    assert dev.environment() == dev.shown_environment() == {
        **DEFAULT_ENVIRONMENT, "bootbank": "1", "kernel_size_1": kernel_size(kernel)}
    with attached(dev) as ubi:
        assert ubi.layout() == fresh_layout()
        assert ubi.files("rootfs_1") == with_set_user_id(ROOT)
        assert ubi.files("vexo_private") == OEM_FILES
        assert ubi.files("vexo_user") == IN_PYTHON
        assert ubi.holds_something() == {"rootfs_1", "vexo_private", "vexo_user"}


def test_release_over_an_older_one(dev, server, parts):
    make_old(dev)
    root = ubifs(ROOT, lebs=22)
    image = parts.build(("kernel", SMALL_KERNEL), ("boot-env", real_images.environment(bootdelay="7")),
                        ("config-loader", SMALL_CONFIG_LOADER), ("rootfs-ubifs-128k", root), ("oem-defaults", OEM),
                        ("python", tar_gz(PYTHON)))
    kernel, boot_env, *others = split(image)
    assert install(dev, server, image, bank="2") == (
        info(image) + PREPARING + SKIPPED_BOOT_ENV + INSTALLING + info(kernel + boot_env) + SKIPPED_BOOT_ENV
        + info(b"".join(others)) + SUCCESS)
    expect_given_back(dev)
    dev.expect_locked()
    config_loader = others[0]
    assert dev.environment() == dev.shown_environment() == {
        **variables(old()["bootenv_1"]), "bootbank": "2", "kernel_size_2": kernel_size(kernel)}
    dev.expect_flash(**{**old(), "kernel_2": kernel, "config_loader": config_loader,
                        "bootenv_1": dev.board.flash_read("bootenv_1")})
    with attached(dev) as ubi:
        assert ubi.layout() == fresh_layout()
        assert ubi.raw("rootfs_2", len(root)) == root
        assert ubi.files("rootfs_2") == ROOT
        assert ubi.files("vexo_private") == OEM_FILES
        assert ubi.files("vexo_user") == {**OLD_VOLUMES["vexo_user"], **IN_PYTHON}
        assert ubi.files("rootfs_1") == OLD_VOLUMES["rootfs_1"]


def test_single_bank_in_place_of_two(dev, server, parts):
    make_old(dev)
    image = parts.build(("rootfs-ubifs-128k", ubifs(ROOT, lebs=22)), ("kernel", SMALL_KERNEL))
    assert install(dev, server, image, bank="single") == (
        info(image) + PREPARING + "NOTE: Changing rootfs bank schema for ubi0 to 'single'\n" + INSTALLING + info(image)
        + SUCCESS)
    expect_given_back(dev)
    kernel = split(image)[1]
    assert dev.environment() == dev.shown_environment() == {
        **variables(old()["bootenv_1"]), "bootbank": "single", "kernel_size_single": kernel_size(kernel)}
    assert dev.board.flash_read("kernel_single", 0, len(kernel)) == kernel
    with attached(dev) as ubi:
        assert ubi.layout() == single_layout()
        assert ubi.files("rootfs_single") == ROOT
        assert ubi.files("vexo_user") == OLD_VOLUMES["vexo_user"]


def test_locked_partition_is_not_erased(dev, server):
    """The first step does not unlock, and today's tool calls that a success: a boot loader goes into erased flash."""
    image = real_images.build(("bootloader", SMALL_BOOTLOADER))
    before = old()["bootloader"]
    dev.board.flash_write("bootloader", before)
    shown = install(dev, server, image)
    assert without_complaints(shown) == info(image) + PREPARING + INSTALLING + info(image) + SUCCESS
    assert shown.count("flash_erase: error!: /dev/mtd2: ") == 9, "the whole, then block after block"
    mixed = bytes(a & b for a, b in zip(before, image))
    dev.expect_flash(bootloader=mixed + image[len(before):])
    dev.expect_locked()


def test_boot_environment_of_a_new_device(dev, server, parts):
    image = parts.build(("boot-env", real_images.environment(bootdelay="7")), ("kernel", SMALL_KERNEL))
    shown = install(dev, server, image)
    assert without_complaints(shown) == info(image) + PREPARING + INSTALLING + info(image) + SUCCESS
    kernel = split(image)[1]
    dev.expect_flash(kernel_2=kernel, bootenv_1=dev.board.flash_read("bootenv_1"))
    dev.expect_locked()
    assert dev.environment() == dev.shown_environment() == {
        **DEFAULT_ENVIRONMENT, "bootbank": "2", "bootdelay": "7", "kernel_size_2": kernel_size(kernel)}


def test_boot_environment_of_a_new_device_whose_root_file_system_comes_with_it(dev, server, parts):
    """The format between the two transfers makes it a device in use."""
    image = parts.build(("boot-env", real_images.environment(bootdelay="7")), ("rootfs-tar", tar_xz(ROOT)))
    boot_env, archive = split(image)
    shown = install(dev, server, image)
    assert without_complaints(shown) == (
        info(image) + PREPARING + INSTALLING + info(boot_env) + SKIPPED_BOOT_ENV + info(archive) + SUCCESS)
    expect_given_back(dev)
    assert dev.environment() == dev.shown_environment() == {
        **DEFAULT_ENVIRONMENT, "bootbank": "2", "kernel_size_2": "0"}
    with attached(dev) as ubi:
        assert ubi.files("rootfs_2") == with_set_user_id(ROOT)


def test_image_larger_than_its_partition(dev, server, parts):
    """What fits is written, the neighbours are left alone, and nothing but the count tells."""
    neighbours = {name: old()[name] for name in ("prod_config", "bootenv_1")}
    for name, data in neighbours.items():
        dev.board.flash_write(name, data)
    size = PARTITIONS["bootloader"].size
    image = parts.build(("bootloader", random.Random(6).randbytes(size)))
    shown = install(dev, server, image)
    assert without_complaints(shown) == info(image) + PREPARING + INSTALLING + info(image) + SUCCESS
    dev.expect_flash(**neighbours, bootloader=image[:size])
    assert "ERROR: Short read (" in dev.command("flash analyze"), "the part that the header promises is not there"


def test_every_bank_takes_its_kernel(dev, server):
    image = real_images.build(("kernel", SMALL_KERNEL))
    for bank in "", "1", "2", "single":
        dev.board.flash_write("kernel_1", old()["kernel_1"])
        assert install(dev, server, image, bank=bank) == info(image) + PREPARING + INSTALLING + info(image) + SUCCESS
        name = bank or "1"
        assert (dev.environment()["bootbank"], dev.environment()[f"kernel_size_{name}"]) == (name, kernel_size(image))
        dev.expect_flash(**{"kernel_1": old()["kernel_1"], f"kernel_{name}": image})
        expect_given_back(dev)
        dev.board.flash_erase(f"kernel_{name}")
    assert server.requests == ["image.rom"] * 8
