"""Installations that fail: what is said, and that the device goes on booting what it booted before."""

import pytest

import images
import real_images
from real_images import SMALL_KERNEL, chained, split
from texts import NOT_INSTALLED, SUCCESS

OUT_OF_TIME = "ERROR: Failed to write firmware image [Connection timed out]\n"
HEADER_SIZE = images.HEADER_SIZE


@pytest.fixture
def installed(dev):
    """A device that boots bank 1."""
    dev.board.flash_fill("bootenv_1", real_images.environment(kernel_size_1="1D3C00"))
    return dev


def expect_bank_1(dev, **partitions):
    """The boot environment is, to the byte, what it was; flash holds `partitions` and nothing else; all is locked."""
    before = real_images.environment(kernel_size_1="1D3C00")
    dev.expect_flash(bootenv_1=before, **partitions)
    dev.expect_locked()
    assert dev.shown_environment()["bootbank"] == "1"
    assert dev.board.sh("ls /tmp/recovery.log /tmp/image.rom").status != 0, "files of the transfer are left"


@pytest.mark.parametrize("port", [1, 2], ids=["console", "ttyS2"])
def test_flag_ends_the_image_too_early(installed, port):
    loader, kernel = split(real_images.small())
    loader = chained(loader, more=False)
    # What follows on the console's line is dropped; on another one nobody would take it, and it would stay in the line.
    follows = kernel if port == 1 else b""
    shown = installed.install(loader + follows, f"flash download serial 2 {port}", port)
    assert shown == images.info(loader) + SUCCESS, "the flag is the stream's only end"
    expect_bank_1(installed, bootloader=loader)


@pytest.mark.parametrize("port", [1, 2], ids=["console", "ttyS2"])
def test_sender_stops_in_the_contents(installed, port):
    kernel = real_images.build(("kernel", SMALL_KERNEL))
    cut = kernel[:30_000]
    shown = installed.install(cut, f"flash download serial 2 {port}", port)
    assert shown == (images.info(kernel) + "ERROR: Failed to read firmware image [Connection timed out]\n"
                     "ERROR: Failed to write firmware image\n" + NOT_INSTALLED)
    expect_bank_1(installed, kernel_2=cut)
