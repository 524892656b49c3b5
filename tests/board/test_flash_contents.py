"""The table of what each partition holds, over a device that holds something of everything."""

import struct
import time
import zlib

import pytest

import images
import layout
import product
import real_images
import ubi_device
from board_session import PATIENCE, BoardSession
from flash_table import row, table
from texts import FAILURE, SUCCESS
from ubi_device import expect_given_back, make, root_files, ubifs, usable_lebs

BOOTSTRAP_SIZE = 0x1234
ERASED = b"\xff"
DESCRIPTION = b"TK10 device server v2.0.1"


def bootstrap():
    code = bytearray(images.pattern(BOOTSTRAP_SIZE, 9))
    code[20:24] = struct.pack("<I", BOOTSTRAP_SIZE)
    code[60:124] = b"Solvantra TK10 Bootstrap 1.5".ljust(64, b"\0")
    return bytes(code)


def rom(contents_type, size, version):
    return images.part(contents_type, images.pattern(size), version=version, code=b"TK")


def checksum_field(part):
    return f"{images.field(part, images.HEADER_CHECKSUM):08x}"


@pytest.fixture
def dev(tmp_path):
    """A device of its own: the product record is read once, at the start."""
    with BoardSession(tmp_path) as session:
        yield session
        session.check()


def test_something_of_everything(dev):
    loader, kernel = rom(images.BOOTLOADER, 30_000, (1, 2, 3, 4, "A", 5)), rom(images.KERNEL, 70_001, (3, 1, 0, 0, "R", 1))
    environment = real_images.environment(kernel_size_1="11171", bootbank="1")
    record = product.record((product.DESCRIPTION, DESCRIPTION))
    flash = {"bootstrap": bootstrap(), "prod_config": record, "bootloader": loader, "bootenv_1": environment,
             "kernel_1": kernel, "kernel_2": b"garbage", "kernel_single": kernel, "param_space": b"\0"}
    for name, data in flash.items():
        dev.board.flash_write(name, data)
    volumes = make(rootfs_1=ubifs(root_files("3.1.0.0R1")), rootfs_2=ubifs(root_files("3.2.0.15R27-beta")),
                   vexo_private=ubifs(ubi_device.contents({"cfg/hidden.oem.xml": b"<oem/>"}), lebs=22))
    dev.board.flash_write("ubi0", volumes)
    dev.boot()

    leb = layout.NAND_GEOMETRIES["128k"].leb
    size = {name: f"{lebs * leb:x}" for name, lebs in ubi_device.fresh_layout().items()}
    assert dev.command("flash analyze") == table(
        bootstrap=("active", "1.5", "-", "1234", f"{images.checksum(bootstrap()):08x}"),
        prod_config=("active", "2.0.1", "-", f"{len(record):x}", f"{struct.unpack_from('<H', record)[0]:08x}"),
        bootloader=("active", "1.2.3.4A5", "TK", "7530", checksum_field(loader)),
        bootenv_1=("active", "-", "-", f"{len(environment.rstrip(ERASED)):x}", f"{zlib.crc32(environment[4:]):08x}"),
        kernel_1=("active", "3.1.0.0R1", "TK", "11171", checksum_field(kernel)),
        kernel_2=("dirty",),
        param_space=("dirty",),
        ubi0=("-", "-", "-", "8000000"),
        rootfs_1=("active", "3.1.0.0R1", "TK", size["rootfs_1"]),
        rootfs_2=("inactive", "3.2.0.15R27-beta", "TK", size["rootfs_2"]),
        vexo_private=("active", "-", "-", size["vexo_private"]),
        vexo_user=("active", "-", "-", size["vexo_user"])) + SUCCESS
    assert sum(ubi_device.fresh_layout().values()) == usable_lebs()
    expect_given_back(dev)
    for name, data in flash.items():
        assert dev.flash(name) == data.rstrip(ERASED), f"{name} was changed by looking at it"
    dev.expect_locked("bootstrap", "prod_config", "bootloader", "bootenv_1")
    interrupt_in_a_clean_check(dev)
    interrupt_in_a_volume(dev)
    assert dev.command("flash info").count("\n") > 16, "the shell goes on"


def interrupt_in_a_clean_check(dev):
    """The row that is being looked at is the last one."""
    dev.type("flash analyze")
    dev.expect("mtd6       kernel_2        2   ")
    dev.interrupt()
    asked = time.monotonic()
    shown = dev.text_until_prompt().replace("^C", "")
    assert f"mtd6       kernel_2        2   {shown}" == f"{row('kernel_2', '-')}\nERROR: Terminated by signal\n{FAILURE}"
    assert time.monotonic() - asked < 30
    expect_given_back(dev)


def interrupt_in_a_volume(dev):
    """The key ends the tool: the table ends and the volume is given back."""
    dev.board.slow("read", "ubi0", 0.001)  # the tool shall run for some seconds
    dev.type("flash analyze")
    dev.expect("ubi0_0     rootfs_1        1   ")
    dev.board.sh("until pidof ubiattach; do usleep 10000; done", timeout=PATIENCE, check=True)
    dev.interrupt()
    shown = dev.text_until_prompt()
    assert shown.endswith(f"\n\nERROR: Terminated by signal\n{FAILURE}")
    assert "ubi0_1" not in shown
    dev.board.clear_faults()
    expect_given_back(dev)
