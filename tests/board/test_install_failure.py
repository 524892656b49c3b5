"""Installations that fail: what is said, and that the device goes on booting what it booted before."""

import random
import time

import pytest

import images
import real_images
from board_session import IDLE_SECONDS, START_SECONDS
from real_images import SMALL_CONFIG_LOADER, SMALL_KERNEL, chained, contents, flip, split
from texts import FAILURE, NOT_INSTALLED, SUCCESS

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


def wrong_sum(part):
    """What is said of contents whose checksum is not the header's."""
    return (f"ERROR: Failed checksum test: calculated {images.checksum(contents(part)):#x} vs "
            f"{images.field(part, images.CONTENTS_CHECKSUM):#x}")


def test_corrupted_contents_of_the_last_part(installed):
    image = real_images.small()
    loader, kernel = split(flip(image, len(image) - 1000))
    assert installed.install(loader + kernel) == real_images.info(image) + wrong_sum(kernel) + NOT_INSTALLED
    expect_bank_1(installed, bootloader=loader, kernel_2=kernel)


def test_corrupted_contents_of_the_first_part(installed):
    loader, kernel = split(flip(real_images.small(), HEADER_SIZE))
    assert installed.install(loader + kernel) == images.info(loader) + wrong_sum(loader) + NOT_INSTALLED
    expect_bank_1(installed, bootloader=loader)


@pytest.mark.parametrize("at", [0, images.CONTENTS_LENGTH + 3, images.HEADER_CHECKSUM + 1, HEADER_SIZE - 1],
                         ids=["id", "length", "checksum", "last byte"])
def test_corrupted_header(installed, at):
    header = flip(real_images.build(("kernel", SMALL_KERNEL)), at)[:HEADER_SIZE]
    assert installed.install(header) == images.info(header) + "ERROR: Bad image header 0\n" + NOT_INSTALLED
    expect_bank_1(installed)


def test_corrupted_header_of_the_second_part(installed):
    loader, kernel = split(real_images.small())
    header = flip(kernel, images.CONTENTS_TYPE)[:HEADER_SIZE]
    shown = installed.install(loader + header + contents(kernel))
    assert shown == images.info(loader) + images.info(header) + "ERROR: Bad image header 1\n" + NOT_INSTALLED
    expect_bank_1(installed, bootloader=loader)


def test_why_a_header_is_bad_is_told_with_more_verbosity(installed):
    header = flip(real_images.build(("kernel", SMALL_KERNEL)), images.HEADER_CHECKSUM)[:HEADER_SIZE]
    installed.command("verbose 6")
    shown = installed.install(header)
    stored = int.from_bytes(header[images.HEADER_CHECKSUM:][:4], "little")
    right = images.field(images.sign(header), images.HEADER_CHECKSUM)
    assert f"ERROR: Header Checksum failed! Expected {stored:#x} and calculated {right:#x}\n" in shown
    installed.command("verbose 3")
    expect_bank_1(installed)


def test_flag_promises_a_part_that_never_comes(installed):
    kernel = chained(real_images.build(("kernel", SMALL_KERNEL)), more=True)
    installed.begin("flash download serial 2")
    installed.send_stream(kernel)
    sent = time.monotonic()
    assert installed.text_until_prompt() == images.info(kernel) + OUT_OF_TIME + NOT_INSTALLED
    assert time.monotonic() - sent > START_SECONDS - IDLE_SECONDS, "time for a person to start the next sender"
    expect_bank_1(installed, kernel_2=kernel)


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


def test_sender_stops_in_a_header(installed):
    assert installed.install(real_images.small()[:100]) == OUT_OF_TIME + NOT_INSTALLED
    expect_bank_1(installed)


def test_sender_never_starts(installed):
    begun = time.monotonic()
    installed.begin("flash download serial 2")
    assert installed.text_until_prompt() == OUT_OF_TIME + NOT_INSTALLED
    assert time.monotonic() - begun > START_SECONDS
    expect_bank_1(installed)


def test_garbage(installed):
    garbage = random.Random(20).randbytes(20_000)
    assert installed.install(garbage) == images.info(garbage[:HEADER_SIZE]) + "ERROR: Bad image header 0\n" + NOT_INSTALLED
    expect_bank_1(installed)


def test_text_in_place_of_an_image(installed):
    assert installed.install(b"reset\rset bootenv bootbank 2\r" * 1000).endswith("ERROR: Bad image header 0\n" + NOT_INSTALLED)
    expect_bank_1(installed)


@pytest.mark.parametrize("place", ["first", "last"])
def test_part_without_destination(installed, place):
    """Wherever it stands, the device does not switch to an image that it took in part."""
    parts = [("6", SMALL_CONFIG_LOADER), ("kernel", SMALL_KERNEL)]
    image = real_images.build(*(parts if place == "first" else reversed(parts)))
    taken = split(image)[:1 if place == "first" else 2]
    shown = installed.install(image)
    assert shown == "".join(map(images.info, taken)) + (
        "ERROR: image_write_fd: Can't find mtd for contents_type=6\n" + NOT_INSTALLED)
    assert "ERROR: Contents Type 6 not supported\n" in shown
    expect_bank_1(installed, **({} if place == "first" else {"kernel_2": taken[0]}))


def test_root_file_system_for_the_other_flash(installed, tmp_path):
    file = tmp_path / "rootfs"
    file.write_bytes(b"\x31\x18\x10\x06" * 100)
    image = real_images.build(("rootfs-ubifs-16k", file))
    shown = installed.install(image[:HEADER_SIZE])
    assert shown == ("ERROR: ubi0 erase size is 0x20000, ubifs image requires 0x4000\n"
                     "ERROR: Bad image destination\n" + NOT_INSTALLED)
    expect_bank_1(installed)


def test_installation_works_after_one_that_failed(installed):
    image = real_images.build(("kernel", SMALL_KERNEL))
    assert installed.install(flip(image, 0)[:HEADER_SIZE]).endswith(FAILURE)
    assert installed.install(image) == images.info(image) + SUCCESS
    installed.expect_flash(kernel_2=image)
    assert installed.environment()["bootbank"] == "2"


def test_rest_of_a_refused_image_is_no_typing(installed):
    """What the sender still has in the line when the shell gives up must not become commands."""
    header = flip(real_images.build(("kernel", SMALL_KERNEL)), 0)[:HEADER_SIZE]
    shown = installed.install(header + b"\rset bootenv bootbank 2\r" * 100)
    assert shown == images.info(header) + "ERROR: Bad image header 0\n" + NOT_INSTALLED
    assert installed.board.console.read_until_quiet() == b""
    expect_bank_1(installed)
