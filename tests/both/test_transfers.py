"""Installations over a serial line that fail: what is said, and that the device goes on booting what it booted before."""

import pytest

import images
from texts import NOT_INSTALLED, NOT_WRITTEN, SUCCESS

LOADER = images.part(images.BOOTLOADER, images.pattern(5002), more=True)
KERNEL = images.part(images.KERNEL, images.pattern(5001))
HEADER_SIZE = images.HEADER_SIZE
OUT_OF_TIME = "[Connection timed out]\n"


@pytest.fixture
def dev(dev):
    """A device whose boot environment is the same afterwards, whose protected partitions are locked, whose shell has
    taken nothing of the image for typing, and which still boots what it booted."""
    dev.give_firmware()
    environment = dev.environment()
    yield dev
    dev.expect_quiet()
    assert dev.environment() == environment
    dev.expect_locked()
    dev.expect_still_boots()


def flip(data, at):
    return data[:at] + bytes([data[at] ^ 1]) + data[at + 1:]


def wrong_sum(part):
    """What is said of contents whose checksum is not the header's; no line feed stands behind the numbers."""
    return (f"ERROR: Failed checksum test: calculated {images.checksum(part[HEADER_SIZE:]):#x} vs "
            f"{images.field(part, images.CONTENTS_CHECKSUM):#x}" + NOT_INSTALLED)


def test_corrupted_contents_of_the_last_part(dev):
    damaged = flip(KERNEL, len(KERNEL) - 1000)
    assert dev.install(LOADER + damaged) == images.info(LOADER) + images.info(KERNEL) + wrong_sum(damaged)
    dev.expect_flash(bootloader=LOADER, kernel_2=damaged)


def test_corrupted_contents_of_the_first_part(dev):
    damaged = flip(LOADER, HEADER_SIZE)
    assert dev.install(damaged + KERNEL, "flash download serial 2") == images.info(LOADER) + wrong_sum(damaged)
    dev.expect_flash(bootloader=damaged)


@pytest.mark.parametrize("at", [0, images.HEADER_CHECKSUM + 1, images.CONTENTS_LENGTH + 3, HEADER_SIZE - 1],
                         ids=["id", "checksum", "length", "last byte"])
def test_corrupted_header(dev, at):
    header = flip(KERNEL, at)[:HEADER_SIZE]
    assert dev.install(header) == images.info(header) + "ERROR: Bad image header 0\n" + NOT_INSTALLED
    dev.expect_flash()


def test_corrupted_header_of_the_second_part(dev):
    damaged = flip(KERNEL, images.CONTENTS_TYPE)
    assert dev.install(LOADER + damaged) == (
        images.info(LOADER) + images.info(damaged) + "ERROR: Bad image header 1\n" + NOT_INSTALLED)
    dev.expect_flash(bootloader=LOADER)


@pytest.mark.parametrize("garbage", [
    bytes(256), b"\xff" * 256, images.pattern(3000, 9), b"CLI> " * 51 + b"x", b"\r\n" * 128, b"reset\rset bootenv bootbank 2\r" * 1000,
], ids=["zeros", "ones", "all bytes", "prompt", "line ends", "commands"])
def test_garbage(dev, garbage):
    assert dev.install(garbage) == images.info(garbage[:256]) + "ERROR: Bad image header 0\n" + NOT_INSTALLED
    dev.expect_flash()


def test_rest_of_a_refused_image_is_no_typing(dev):
    """What the sender still has in the line when the shell gives up must not become commands."""
    header = flip(KERNEL, 0)[:HEADER_SIZE]
    assert dev.install(header + b"\rset bootenv bootbank 2\r" * 100) == (
        images.info(header) + "ERROR: Bad image header 0\n" + NOT_INSTALLED)


@pytest.mark.parametrize("size", [1, 255])
def test_sender_stops_in_a_header(dev, size):
    assert dev.install(KERNEL[:size]) == "ERROR: Failed to write firmware image " + OUT_OF_TIME + NOT_INSTALLED
    dev.expect_flash()


@pytest.mark.parametrize("port", [1, 2], ids=["console", "ttyS2"])
def test_sender_stops_in_the_contents(dev, port):
    assert dev.install(KERNEL[:3000], f"flash download serial 2 {port}", port) == (
        images.info(KERNEL) + "ERROR: Failed to read firmware image " + OUT_OF_TIME + NOT_WRITTEN + NOT_INSTALLED)
    dev.expect_flash(kernel_2=KERNEL[:3000])


@pytest.mark.parametrize("place", ["first", "last"])
def test_part_without_destination(dev, place):
    """Wherever it stands, the device does not switch to an image that it took in part."""
    first, last = (6, images.KERNEL) if place == "first" else (images.KERNEL, 6)
    parts = [images.part(first, b"first", more=True), images.part(last, b"last")]
    shown = dev.install(b"".join(parts))
    taken = parts[:1 if place == "first" else 2]
    assert shown == "".join(map(images.info, taken)) + (
        "ERROR: image_write_fd: Can't find mtd for contents_type=6\n" + NOT_INSTALLED)
    assert "ERROR: Contents Type 6 not supported\n" in shown
    dev.expect_flash(**({} if place == "first" else {"kernel_2": parts[0]}))


def test_root_file_system_for_the_other_flash(dev):
    header = images.header(images.ROOTFS_UBIFS_16KEB, b"\x31\x18\x10\x06" * 100)
    assert dev.install(header) == (
        "ERROR: ubi0 erase size is 0x20000, ubifs image requires 0x4000\nERROR: Bad image destination\n" + NOT_INSTALLED)
    dev.expect_flash()


def test_installation_works_after_one_that_failed(dev):
    loader = images.part(images.BOOTLOADER, images.pattern(77))
    assert dev.install(flip(KERNEL, 0)[:HEADER_SIZE]).endswith(NOT_INSTALLED)
    assert dev.install(loader) == images.info(loader) + SUCCESS
    dev.expect_flash(bootloader=loader)
