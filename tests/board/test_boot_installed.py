"""Firmware that was installed, booted: each bank, each way of transfer, each form of a root file system."""

import pytest

import firmware
import ubi_device
from board_session import PATIENCE
from firmware import A, B, C
from power_on import RECOVERY
from texts import SUCCESS
from ubi_device import expect_given_back

LONG = 5 * PATIENCE
# The way is long: the kernel is packed as short as possible. What is reported is the same.
SMALL = {A: firmware.SMALL_A, B: firmware.SMALL_B, C: firmware.SMALL_C}


def install_over_the_line(dev, image, bank):
    expect_installed(ubi_device.install(dev, image, f"flash download serial {bank}"))


def install_over_the_network(dev, image, bank):
    (dev.board.tftp / "firmware.rom").write_bytes(image)
    expect_installed(dev.command(f"flash download network {bank} 10.0.2.2 firmware.rom", LONG))


def expect_installed(shown):
    assert shown.endswith(SUCCESS) and "ERROR" not in shown, shown


def expect_boots(dev, bank, version):
    expect_given_back(dev)
    assert dev.power_on.judge(dev.board) == (version.report(bank), RECOVERY)


@pytest.mark.long
@pytest.mark.parametrize("bank, version, root", [("1", A, "128k"), ("2", B, "tar"), ("single", C, "128k")],
                         ids=["A as UBIFS in bank 1", "B as archive in bank 2", "C as UBIFS in single"])
def test_installed_over_the_serial_line(dev, bank, version, root):
    dev.board.factory_setup()
    install_over_the_line(dev, SMALL[version].image(root), bank)
    expect_boots(dev, bank, version)


def test_root_file_system_over_the_serial_line_before_its_kernel(dev):
    """
    An archive over the line; the kernel, which is fifteen times as long, comes over the network. It comes last: an image
    without a kernel says that there is none.
    """
    dev.board.factory_setup()
    install_over_the_line(dev, SMALL[A].image("tar", kernel=False), "1")
    install_over_the_network(dev, SMALL[A].image(None), "1")
    expect_boots(dev, "1", A)


@pytest.mark.parametrize("bank, version, root", [
    pytest.param("1", A, "tar", id="A as archive in bank 1", marks=pytest.mark.long),
    pytest.param("2", B, "128k", id="B as UBIFS in bank 2"),
    pytest.param("single", C, "tar", id="C as archive in single"),
])
def test_installed_over_the_network(dev, bank, version, root):
    dev.board.factory_setup()
    install_over_the_network(dev, SMALL[version].image(root), bank)
    expect_boots(dev, bank, version)


def test_installed_into_small_blocks(own_board, tmp_path):
    (tmp_path / "tftp").mkdir()
    dev = own_board(nand="16k", tftp=tmp_path / "tftp")
    dev.board.factory_setup()
    dev.boot()
    install_over_the_network(dev, SMALL[B].image("16k"), "2")
    expect_boots(dev, "2", B)


def test_one_bank_after_the_other(dev):
    """Two banks, then a single one: what is booted follows what is installed, and the bank that is switched to."""
    dev.board.factory_setup()
    firmware.in_bank_1(dev.board)
    install_over_the_network(dev, SMALL[B].image("tar"), "2")
    expect_boots(dev, "2", B)
    assert dev.command("set bootenv bootbank 1") == SUCCESS
    expect_boots(dev, "1", A)


def test_recovery_system_is_installed_like_any_other(dev, tmp_path):
    """By the one that runs, from the partition that it was started from itself."""
    dev.board.factory_setup()
    board = dev.power_on.board
    before = firmware.recovery()
    image = firmware.recovery_with({"/etc/note": b"the second one\n"})
    assert before != image
    install_over_the_network(dev, image, "1")
    assert dev.board.flash_read("config_loader", 0, len(image)) == image
    assert dev.power_on.judge(dev.board) == (RECOVERY, RECOVERY)
    board.start()
    assert board.get("/etc/note") == b"the second one\n"
