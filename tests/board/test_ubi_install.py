"""Whole images installed into real UBI volumes over a serial line: the flash is formatted, file systems are made and
filled, and what is in them is read from outside the shell."""

import random

import pytest

import images
import real_images
import ubi_device
from real_images import SMALL_BOOTLOADER, SMALL_KERNEL, contents, split
from texts import NOT_INSTALLED, SUCCESS
from ubi_device import attached, expect_given_back, fresh_layout, install, root_files, tar_gz, tar_xz, ubifs

OEM = b"<oem><name>Acme \xc3\xa4</name></oem>\n"
PYTHON = ubi_device.contents({"bin/python": (b"#!/bin/sh\n" + images.pattern(5000), 0o755),
                              "lib/python2.7/os.py": b"import sys\n"})
IN_PYTHON = {f"python/{path}": entry for path, entry in PYTHON.items()}


@pytest.fixture
def parts(tmp_path):
    return ubi_device.PartFiles(tmp_path)


def expect_environment(dev, bank, kernel):
    """The bank boots, and the size of its kernel is known."""
    environment = dev.environment()
    assert (environment["bootbank"], environment[f"kernel_size_{bank}"]) == (bank, f"{len(contents(kernel)):X}")
    assert dev.shown_environment() == environment


def test_whole_image_onto_a_new_device(dev, parts):
    root = root_files("3.1.0.0R1", **{"lib/big": random.Random(5).randbytes(100_000)})
    image = parts.build(("bootloader", SMALL_BOOTLOADER), ("kernel", SMALL_KERNEL), ("rootfs-tar", tar_xz(root)),
                        ("oem-defaults", OEM), ("python", tar_gz(PYTHON)))
    assert install(dev, image) == real_images.info(image) + SUCCESS
    expect_given_back(dev)
    loader, kernel = split(image)[:2]
    dev.expect_flash(bootloader=loader, kernel_1=kernel)
    dev.expect_locked()
    expect_environment(dev, "1", kernel)
    with attached(dev) as ubi:
        assert ubi.layout() == fresh_layout()
        assert ubi.free() == 0
        assert ubi.files("rootfs_1") == ubi_device.with_set_user_id(root)
        assert ubi.files("vexo_private") == {"cfg/hidden.oem.xml": (OEM, 0o644)}
        assert ubi.files("vexo_user") == IN_PYTHON
        assert ubi.holds_something() == {"rootfs_1", "vexo_private", "vexo_user"}


def test_oem_defaults_need_a_formatted_device(dev, parts):
    """They say nothing about the sizes of the volumes, so they cannot be the first."""
    image = parts.build(("oem-defaults", OEM), ("rootfs-tar", tar_xz(root_files("3.1.0.0R1"))))
    shown = install(dev, image)
    assert shown == (images.info(image) + "ERROR: Cannot write OEM defaults file to clean flash\n"
                     "ERROR: Failed to write firmware image\n" + NOT_INSTALLED)
    expect_given_back(dev)
    assert not dev.flash("ubi0"), "not even formatted"
    dev.expect_flash()
    assert not dev.flash("bootenv_1")


def test_raw_file_system_for_the_other_bank(dev, parts):
    first, second = root_files("3.1.0.0R1"), root_files("3.2.0.0R7")
    dev.board.flash_write("ubi0", ubi_device.make(rootfs_1=ubifs(first)))
    dev.board.flash_fill("bootenv_1", real_images.environment(kernel_size_1="1234"))
    raw = ubifs(second)
    image = parts.build(("kernel", SMALL_KERNEL), ("rootfs-ubifs-128k", raw))
    shown, info = ubi_device.install_from_server(dev, image, bank=2), real_images.info(image)
    assert shown.endswith(f"{info}Preparing ...\nInstalling ...\n{info}{SUCCESS}")
    expect_given_back(dev)
    kernel = split(image)[0]
    dev.expect_flash(kernel_2=kernel, bootenv_1=dev.board.flash_read("bootenv_1"))
    expect_environment(dev, "2", kernel)
    assert dev.environment()["kernel_size_1"] == "1234"
    with attached(dev) as ubi:
        assert ubi.layout() == fresh_layout()
        assert ubi.raw("rootfs_2", len(raw)) == raw
        assert ubi.files("rootfs_2") == second
        assert ubi.files("rootfs_1") == first


def test_raw_file_system_for_other_flash(dev, parts):
    before = ubi_device.make(rootfs_1=ubifs(root_files("3.1.0.0R1")))
    environment = real_images.environment(kernel_size_1="1234")
    dev.board.flash_write("ubi0", before)
    dev.board.flash_fill("bootenv_1", environment)
    image = parts.build(("rootfs-ubifs-16k", ubifs(root_files("3.2.0.0R7"), "16k", 100)), ("kernel", SMALL_KERNEL))
    shown = install(dev, image[:images.HEADER_SIZE], "flash download serial 2")
    assert shown == ("ERROR: ubi0 erase size is 0x20000, ubifs image requires 0x4000\n"
                     "ERROR: Bad image destination\n" + NOT_INSTALLED)
    expect_given_back(dev)
    assert dev.flash("ubi0") == before.rstrip(b"\xff")
    dev.expect_flash(bootenv_1=environment)


def test_root_file_system_without_a_kernel(dev, parts):
    """The size of the bank's kernel becomes 0: its kernel no longer belongs to what is in the bank."""
    root = root_files("3.1.0.0R1")
    image = parts.build(("rootfs-size-kib", "4096"), ("rootfs-tar", tar_xz(root)))
    dev.board.flash_fill("bootenv_1", real_images.environment(kernel_size_1="1234"))
    assert install(dev, image) == real_images.info(image) + SUCCESS
    environment = dev.environment()
    assert (environment["bootbank"], environment["kernel_size_1"]) == ("1", "0")
    with attached(dev) as ubi:
        assert ubi.layout() == fresh_layout(rootfs_kib=4096)
        assert ubi.files("rootfs_1") == ubi_device.with_set_user_id(root)
