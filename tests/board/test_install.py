"""Installing an image over a serial line into real flash: what each kind of part leaves there, read from outside."""

import pytest

import images
import real_images
from board_session import DEFAULT_ENVIRONMENT, PROTECTED
from real_images import (BOOTLOADER, BOOTSTRAP, CONFIG_LOADER, KERNEL, SMALL_BOOTLOADER, SMALL_CONFIG_LOADER,
                         SMALL_KERNEL, chained, contents, split)
from texts import SENDER_GOES_ON, SKIPPED_BOOT_ENV, SUCCESS

RELEASE = (("bootloader", BOOTLOADER), ("kernel", KERNEL), ("config-loader", CONFIG_LOADER))
SMALL_RELEASE = (("bootloader", SMALL_BOOTLOADER), ("kernel", SMALL_KERNEL), ("config-loader", SMALL_CONFIG_LOADER))


def expect_release_in_bank_2(dev, image):
    loader, kernel, config_loader = split(image)
    dev.expect_flash(bootloader=loader, kernel_2=kernel, config_loader=config_loader)
    dev.expect_locked()
    kernel_size = f"{len(contents(kernel)):X}"
    environment = dev.environment()
    assert (environment["bootbank"], environment["kernel_size_2"]) == ("2", kernel_size)
    assert "kernel_size_1" not in environment
    assert dev.shown_environment() == environment


@pytest.mark.parametrize("line, port, release", [("flash download serial 2", 1, RELEASE),
                                                 ("flash download serial 2 2", 2, SMALL_RELEASE)],
                         ids=["console", "ttyS2"])
def test_release_is_installed(dev, line, port, release):
    image = real_images.build(*release)
    assert [contents(part) for part in split(image)] == [file.read_bytes() for _, file in release]
    assert dev.install(image, line, port) == real_images.info(image) + SUCCESS
    expect_release_in_bank_2(dev, image)
    assert dev.board.serial2.unread == b"", "nothing is said on the spare port"


@pytest.mark.parametrize("port", [1, 2], ids=["console", "ttyS2"])
def test_messages_wait_for_the_end_of_the_transfer(dev, port):
    image = real_images.small()
    loader, kernel = split(image)
    assert dev.command("verbose 7").endswith("verbosity is 7\n")
    before = dev.begin(f"flash download serial 2 {port}")
    assert before.startswith(
        f"TRACE: cmd_flash_download_serial:\nINFO: cmd_flash_download_serial: bank=2 dev=/dev/ttyS{port} speed=115200\n")
    dev.send_stream(image, port)
    assert dev.board.console.unread == b"", "the port carried the image and nothing else"
    shown = dev.text_until_prompt()
    for part, number in (loader, 2), (kernel, 4):
        size = len(contents(part))
        assert f"TRACE: image_validate_destination: contents_type={number}\n" in shown
        assert images.info(part) in shown
        assert f"VERBOSE: flash_write_buffer_fd received {size} bytes, written {size} bytes to flash\n" in shown
    held_back = ["VERBOSE: tty_open_raw: dev", "VERBOSE: system(/usr/sbin/flash_unlock /dev/mtd2)\n",
                 "VERBOSE: system(/usr/sbin/flash_lock /dev/mtd2 0 -1)\n", "INFO: Wrote 2 image parts, skipped 0\n",
                 f"PROGRESS: Setting 'kernel_size_2={len(contents(kernel)):X}' in the boot environment\n",
                 "PROGRESS: Setting 'bootbank=2' in the boot environment\n", "VERBOSE: tty_close_raw: dev"]
    places = [shown.find(message) for message in held_back]
    assert -1 not in places and places == sorted(places), dict(zip(held_back, places))
    assert shown.endswith(SUCCESS)
    assert dev.command("verbose 3") == "TRACE: cmd_verbose:\nverbosity is 3\n"
    dev.expect_flash(bootloader=loader, kernel_2=kernel)
    assert dev.environment()["bootbank"] == "2"


def test_every_bank_takes_its_kernel(dev):
    image = real_images.build(("kernel", SMALL_KERNEL))
    for bank in "1", "single":
        assert dev.install(image, f"flash download serial {bank}") == real_images.info(image) + SUCCESS
        assert dev.environment()["bootbank"] == bank
    dev.expect_flash(kernel_1=image, kernel_single=image)
    size = f"{len(contents(image)):X}"
    environment = dev.environment()
    assert (environment["kernel_size_1"], environment["kernel_size_single"]) == (size, size)


def test_bootstrap_is_stored_without_its_header(dev):
    image = real_images.build(("bootstrap", BOOTSTRAP))
    assert dev.install(image) == real_images.info(image) + SUCCESS
    dev.expect_flash(bootstrap=contents(image))
    dev.expect_locked()
    assert not dev.flash("bootenv_1"), "only a kernel or a root file system switches the bank"


def send_boot_env_part(dev, image):
    """The shell looks through the whole UBI partition between the header and the contents. The device's hardware flow
    control stops the sender meanwhile; here the sender has to know."""
    dev.begin("flash download serial 2")
    reads = dev.board.flash_operations()["ubi0"]["read"]
    dev.send_stream(image[:images.HEADER_SIZE])
    dev.wait_operation("read", "ubi0", after=reads)
    return image[images.HEADER_SIZE:]


def test_boot_environment_goes_onto_a_clean_device(dev, tmp_path):
    environment = real_images.environment(bootdelay="7", made_by="the factory")
    file = tmp_path / "environment"
    file.write_bytes(environment)
    image = real_images.build(("boot-env", file))
    rest = send_boot_env_part(dev, image)
    dev.wait_operation("unlock", "bootenv_1", after=0)
    dev.send(rest)
    assert dev.text_until_prompt() == real_images.info(image) + SUCCESS
    assert dev.board.flash_read("bootenv_1") == environment
    assert dev.environment() == {**DEFAULT_ENVIRONMENT, "bootdelay": "7", "made_by": "the factory"}
    dev.expect_locked()
    assert dev.shown_environment() == dev.environment()


def test_boot_environment_of_a_device_in_use_stays(dev, tmp_path):
    before = real_images.environment(bootdelay="9")
    dev.board.flash_fill("bootenv_1", before)
    dev.board.flash_fill("ubi0", b"UBI#")
    file = tmp_path / "environment"
    file.write_bytes(real_images.environment(bootdelay="7"))
    image = real_images.build(("boot-env", file))
    rest = send_boot_env_part(dev, image)
    dev.send(rest)
    assert dev.text_until_prompt() == real_images.info(image) + SKIPPED_BOOT_ENV + SUCCESS
    assert dev.board.flash_read("bootenv_1") == before
    dev.expect_flash(bootenv_1=before)
    dev.expect_locked()


def test_protected_partitions_are_locked_from_the_start(dev):
    assert PROTECTED == ["bootstrap", "prod_config", "bootloader", "bootenv_1", "bootenv_2"]
    dev.expect_locked()
    assert not dev.is_locked("kernel_2"), "the proof that a write would be seen"


@pytest.mark.parametrize("port", [1, 2], ids=["console", "ttyS2"])
def test_flag_ends_the_image_too_early(dev, port):
    before = real_images.environment(kernel_size_1="1D3C00")
    dev.board.flash_fill("bootenv_1", before)
    loader, kernel = split(real_images.small())
    loader = chained(loader, more=False)
    # What follows on the console's line is dropped; on another one nobody would take it, and it would stay in the line.
    follows = kernel if port == 1 else b""
    shown = dev.install(loader + follows, f"flash download serial 2 {port}", port)
    shown = shown.replace(SENDER_GOES_ON, "")  # on a slow machine there is something to wait for
    assert shown == images.info(loader) + SUCCESS, "the flag is the stream's only end"
    dev.expect_flash(bootenv_1=before, bootloader=loader)
    assert dev.shown_environment()["bootbank"] == "1"
    assert dev.board.sh("ls /tmp/recovery.log /tmp/image.rom").status != 0, "files of the transfer are left"
