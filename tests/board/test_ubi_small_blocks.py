"""The NAND flash with erase blocks of 16 KiB: a device from its first image to its second."""

import pytest

import images
import layout
import real_images
import ubi_device
from board_session import BoardSession
from flash_table import table
from real_images import SMALL_BOOTLOADER, contents, split
from texts import NOT_INSTALLED, SUCCESS
from ubi_device import attached, expect_given_back, fresh_layout, install, root_files, tar_xz, ubifs, with_set_user_id

FIRST, SECOND = root_files("3.1.0.0R1"), root_files("3.2.0.0R7")
OEM = b"<oem/>\n"


@pytest.fixture
def dev(tmp_path):
    with BoardSession(tmp_path / "board", nand="16k") as session:
        session.boot()
        yield session
        session.check()


def checksum_field(part):
    return f"{images.field(part, images.HEADER_CHECKSUM):08x}"


def test_first_image_and_second(dev, tmp_path):
    parts = ubi_device.PartFiles(tmp_path)
    first = parts.build(("rootfs-tar", tar_xz(FIRST)), ("oem-defaults", OEM))
    assert install(dev, first) == real_images.info(first) + SUCCESS
    expect_given_back(dev)
    assert dev.environment()["bootbank"] == "1"

    wrong = parts.build(("rootfs-ubifs-128k", ubifs(SECOND)))
    assert install(dev, wrong[:images.HEADER_SIZE], "flash download serial 2") == (
        "ERROR: ubi0 erase size is 0x4000, ubifs image requires 0x20000\nERROR: Bad image destination\n" + NOT_INSTALLED)
    assert dev.environment()["bootbank"] == "1"

    raw = ubifs(SECOND, "16k", 40)
    second = parts.build(("kernel", SMALL_BOOTLOADER), ("rootfs-ubifs-16k", raw))
    assert install(dev, second, "flash download serial 2") == real_images.info(second) + SUCCESS
    expect_given_back(dev)
    kernel = split(second)[0]
    environment = dev.environment()
    assert (environment["bootbank"], environment["kernel_size_2"]) == ("2", f"{len(contents(kernel)):X}")
    with attached(dev) as ubi:
        assert ubi.layout() == fresh_layout("16k")
        assert ubi.free() == 0
        assert ubi.files("vexo_private") == {"cfg/hidden.oem.xml": (OEM, 0o644)}
        assert ubi.raw("rootfs_2", len(raw)) == raw
        assert ubi.files("rootfs_2") == SECOND
        assert ubi.files("rootfs_1") == with_set_user_id(FIRST)

    expect_analyzed(dev, kernel)


def expect_analyzed(dev, kernel):
    """The product information of both banks, and sizes in blocks of this flash."""
    leb, used = layout.NAND_GEOMETRIES["16k"].leb, dev.flash("bootenv_1")
    size = {name: f"{lebs * leb:x}" for name, lebs in fresh_layout("16k").items()}
    assert dev.command("flash analyze") == table(
        bootenv_1=("active", "-", "-", f"{len(used):x}", f"{int.from_bytes(used[:4], 'little'):08x}"),
        kernel_2=("active", "3.1.0.0R1", "TK", f"{len(contents(kernel)):x}", checksum_field(kernel)),
        ubi0=("-", "-", "-", "8000000"),
        rootfs_1=("inactive", "3.1.0.0R1", "TK", size["rootfs_1"]),
        rootfs_2=("active", "3.2.0.0R7", "TK", size["rootfs_2"]),
        vexo_private=("active", "-", "-", size["vexo_private"]),
        vexo_user=("active", "-", "-", size["vexo_user"])) + SUCCESS
    expect_given_back(dev)
