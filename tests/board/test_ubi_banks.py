"""The space of the root file systems, given to two banks or to one, and a UBI partition smaller than its flash: real
volumes are resized and real partitions split."""

import pytest

import real_images
import ubi_device
from board_session import PARTITIONS
from real_images import environment
from texts import NOT_INSTALLED, SUCCESS
from ubi_device import (attached, expect_given_back, fresh_layout, install, make, root_files, single_layout, tar_xz,
                        ubifs, with_set_user_id)

OEM_FILES = ubi_device.contents({"cfg/hidden.oem.xml": b"<oem/>\n"})
USER_FILES = ubi_device.contents({"notes": b"kept\n" * 500})
FIRST, SINGLE, SECOND = (root_files(version) for version in ("3.1.0.0R1", "3.2.0.0R1", "3.3.0.0R1"))

FULL_CLEAN = "NOTE: Try full \"flash clean\" first.\n"
NOT_WRITTEN = "ERROR: Failed to write firmware image\n" + NOT_INSTALLED


@pytest.fixture
def parts(tmp_path):
    return ubi_device.PartFiles(tmp_path)


def expect_others_kept(ubi):
    assert ubi.files("vexo_private") == OEM_FILES
    assert ubi.files("vexo_user") == USER_FILES


def test_one_bank_and_two_again(dev, parts):
    dev.board.flash_write("ubi0", make(rootfs_1=ubifs(FIRST), vexo_private=ubifs(OEM_FILES, lebs=22),
                                       vexo_user=ubifs(USER_FILES)))
    dev.board.flash_fill("bootenv_1", environment(kernel_size_1="1234"))
    image = parts.build(("rootfs-tar", tar_xz(SINGLE)))
    changed = "NOTE: Changing rootfs bank schema for ubi0 to '{}'\n"
    shown = install(dev, image, "flash download serial single")
    assert shown == real_images.info(image) + changed.format("single") + SUCCESS
    expect_given_back(dev)
    assert dev.environment()["bootbank"] == "single"
    with attached(dev) as ubi:
        assert ubi.layout() == single_layout()
        assert ubi.free() == 0
        assert ubi.files("rootfs_single") == with_set_user_id(SINGLE)
        expect_others_kept(ubi)

    image = parts.build(("rootfs-tar", tar_xz(SECOND)))
    shown = install(dev, image, "flash download serial 2")
    assert shown == real_images.info(image) + changed.format("dual") + SUCCESS
    expect_given_back(dev)
    assert dev.environment()["bootbank"] == "2"
    with attached(dev) as ubi:
        assert ubi.layout() == fresh_layout()
        assert ubi.files("rootfs_2") == with_set_user_id(SECOND)
        expect_others_kept(ubi)


@pytest.mark.parametrize("bank, layout, said", [
    ("single", fresh_layout(), "Expected single, detected dual."),
    ("1", single_layout(), "Expected dual, detected single."),
], ids=["two banks where one is booted", "one bank where two are booted"])
def test_layout_that_does_not_fit_the_boot_bank(dev, parts, bank, layout, said):
    before = environment(bootbank=bank, kernel_size_1="1234")
    dev.board.flash_write("ubi0", make(layout, vexo_user=ubifs(USER_FILES)))
    dev.board.flash_fill("bootenv_1", before)
    image = parts.build(("rootfs-tar", tar_xz(SECOND)))
    shown = install(dev, image, "flash download serial 2")
    assert shown == (real_images.info(image) + f"ERROR: Rootfs schema mismatch. {said}\n" + FULL_CLEAN + NOT_WRITTEN)
    expect_given_back(dev)
    assert dev.board.flash_read("bootenv_1") == before
    with attached(dev) as ubi:
        assert ubi.layout() == layout
        assert ubi.holds_something() == {"vexo_user"}


def nand_partitions(dev):
    """{name: size} of the partitions behind the serial flash."""
    rows = [line.split() for line in dev.board.get("/proc/mtd").decode().splitlines()[1:]]
    return {row[3].strip('"'): int(row[1], 16) for row in rows if row[3].strip('"') not in PARTITIONS or "ubi0" in row[3]}


def test_image_that_wants_a_smaller_partition(dev, parts):
    whole, size = PARTITIONS["ubi0"].size, 48 << 20
    split = {"ubi0": size, "user": whole - size}
    sizes = ("total-size-kib", str(size >> 10)), ("rootfs-size-kib", "10240")
    layout = fresh_layout(rootfs_kib=10240, size=size)
    image = parts.build(*sizes, ("rootfs-tar", tar_xz(FIRST)))
    assert install(dev, image) == real_images.info(image) + SUCCESS
    expect_given_back(dev)
    assert nand_partitions(dev) == split
    assert dev.environment()["mtdparts"] == f"atmel_nand:{size >> 10}k(ubi0),-(user)"
    dev.board.flash_write("ubi0", b"in the user's partition", size)

    assert "ERROR" not in dev.restart()
    assert nand_partitions(dev) == split
    image = parts.build(*sizes, ("rootfs-tar", tar_xz(SECOND)))
    assert install(dev, image, "flash download serial 2") == real_images.info(image) + SUCCESS
    with attached(dev) as ubi:
        assert ubi.layout() == layout
        assert ubi.files("rootfs_1") == with_set_user_id(FIRST)
        assert ubi.files("rootfs_2") == with_set_user_id(SECOND)
    assert dev.board.flash_read("ubi0", size, 23) == b"in the user's partition"

    cleaning = f"Cleaning nand partition {ubi_device.ubi_node(dev)} (ubi0)...\n"
    assert dev.command("flash clean nand") == cleaning + SUCCESS
    assert nand_partitions(dev) == {"ubi0": whole}
    environment_left = dev.environment()
    assert "mtdparts" not in environment_left and environment_left["bootbank"] == "2"
    assert not dev.flash("ubi0")
