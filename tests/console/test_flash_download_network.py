"""Installing an image over the network: fetched once to check all of it, and once more to write it. Nothing is erased
before the first transfer was found good, and the saved headers never stay behind."""

from pathlib import Path

import pytest

import images
from network import (NO_PRODUCT, STARTED_BY_DHCP, UNABLE_TO_CONFIGURE, UNABLE_TO_START, command, start, steps,
                     without_card)
from texts import DHCP, FAILURE, INCOMPLETE, INSTALLING, NOT_WRITTEN, PREPARING, SKIPPED_BOOT_ENV, SUCCESS, USING_ETH0

TFTP = 'tftp -g -r "image.rom" -l - 10.0.0.1'
FETCHING = "Retrieving file 'image.rom' via tftp ...\n"
NOT_FETCHED = "ERROR: Failed to download image information\n"
NOT_PREPARED = "ERROR: Failed to prepare system\n"
SAVED_HEADERS = "/tmp/image.rom"

BANKS = {"": "1", "1 ": "1", "2 ": "2", "single ": "single"}

LOADER = images.part(images.BOOTLOADER, images.pattern(5000, 2), more=True, version=(1, 2, 3, 4, "A", 5), code=b"TK")
KERNEL = images.part(images.KERNEL, images.pattern(0x6789, 3), more=True, version=(3, 1, 0, 0, "R", 1), code=b"AB")
CONFIG_LOADER = images.part(images.CONFIG_LOADER, images.pattern(70001, 4))
IMAGE = LOADER + KERNEL + CONFIG_LOADER
INFO = images.info(LOADER) + images.info(KERNEL) + images.info(CONFIG_LOADER)


@pytest.fixture
def dev(dev):
    """A device whose partitions hold something, with headers of an older installation lying around."""
    for partition in dev.partitions:
        if partition.name != "ubi0":
            partition.write(b"old contents")
    dev.path(SAVED_HEADERS).write_bytes(b"of another image")
    yield dev
    assert not dev.path(SAVED_HEADERS).exists()


@pytest.fixture
def up(dev):
    """The same, at the prompt, with the interface started."""
    dev.boot()
    start(dev)
    return dev


def install(dev, words="10.0.0.1 image.rom"):
    return command(dev, f"flash download network {words}").removeprefix(USING_ETH0 + FETCHING)


def serve(dev, *files, **options):
    """What the server has for each transfer; the last file for all further ones."""
    for file in files[:-1]:
        dev.answer("tftp", times=1, stdout=file, **options)
    dev.answer("tftp", stdout=files[-1], **options)


def damaged(part):
    """The part with one bit of its contents wrong."""
    return part[:-1] + bytes([part[-1] ^ 0x10])


def expect_untouched(dev, fetched=1):
    """The image was fetched so often, and nothing else was done. A client that is ended at once may not have begun."""
    assert dev.shell_lines in ([TFTP] * fetched, [])
    for partition in dev.partitions:
        if partition.name != "ubi0":
            assert partition.read(0, 13) == b"old contents\0", partition.name
    assert dev.env["bootbank"] == "1" and not any(name.startswith("kernel_size") for name in dev.env)


def expect_old_bank(dev):
    """The boot environment is as it was."""
    assert dev.env["bootbank"] == "1" and not any(name.startswith("kernel_size") for name in dev.env)


# ---------------------------------------------------------------------- the words of the command


@pytest.mark.parametrize("words, output", [
    ("", INCOMPLETE),
    ("1", INCOMPLETE),
    ("2", INCOMPLETE),
    ("single", INCOMPLETE),
    ("10.0.0.1", INCOMPLETE),
    ("single 10.0.0.1", INCOMPLETE),
    ("0.0.0.0 image.rom", "ERROR: Invalid IP address '0.0.0.0'\n"),
    ("2 255.255.255.255 image.rom", "ERROR: Invalid IP address '255.255.255.255'\n"),
    ("3 10.0.0.1 image.rom", "ERROR: Invalid IP address '3'\n"),
    ("Single 10.0.0.1 image.rom", "ERROR: Invalid IP address 'Single'\n"),
    ("1 2 10.0.0.1 image.rom", "ERROR: Invalid IP address '2'\n"),
    ("image.rom", "ERROR: Invalid IP address 'image.rom'\n"),
    ("1 image.rom", "ERROR: Invalid IP address 'image.rom'\n"),
])
def test_words_that_are_refused(dev, words, output):
    dev.boot()
    assert command(dev, f"flash download network {words}") == output
    assert steps(dev) == []
    assert dev.path(SAVED_HEADERS).read_bytes() == b"of another image"
    dev.remove(SAVED_HEADERS)


@pytest.mark.parametrize("words, bank", BANKS.items())
def test_the_bank_that_is_named(up, words, bank):
    serve(up, IMAGE)
    up.command("verbose 4")
    assert command(up, f"flash download network {words}10.0.0.1 image.rom surplus").startswith(
        f"INFO: cmd_flash_download_network: bank={bank} ip_addr=10.0.0.1 filename=image.rom\n" + USING_ETH0 + FETCHING)
    assert up.partition(f"kernel_{bank}").read(0, len(KERNEL)) == KERNEL
    assert (up.env["bootbank"], up.env[f"kernel_size_{bank}"]) == (bank, "6789")
    for other in {"1", "2", "single"} - {bank}:
        assert up.partition(f"kernel_{other}").read(0, 13) == b"old contents\0"


# ---------------------------------------------------------------------- a good installation


def test_the_interface_is_started_by_dhcp(dev):
    serve(dev, IMAGE)
    dev.boot()
    assert command(dev, "flash download network 10.0.0.1 image.rom") == (
        USING_ETH0 + DHCP + NO_PRODUCT + FETCHING + INFO + PREPARING + INSTALLING + INFO + SUCCESS)
    assert steps(dev)[:len(STARTED_BY_DHCP) + 1] == [*STARTED_BY_DHCP, TFTP]
    assert "(up)" in dev.command("network info")


def test_an_installation_step_by_step(up):
    serve(up, IMAGE)
    assert install(up) == INFO + PREPARING + INSTALLING + INFO + SUCCESS
    assert steps(up) == [
        TFTP,
        *(f"/usr/sbin/flash_erase -q /dev/mtd{number} 0 0" for number in (2, 5, 8)),
        TFTP,
        "/usr/sbin/flash_unlock /dev/mtd2", "/usr/sbin/flash_lock /dev/mtd2 0 -1",
        "/usr/sbin/fw_setenv kernel_size_1 6789 > /dev/null 2>&1", "/usr/sbin/fw_setenv bootbank 1 > /dev/null 2>&1"]
    for name, part in (("bootloader", LOADER), ("kernel_1", KERNEL)):
        assert up.partition(name).read(0, len(part)) == part, "the header stands in front"
    assert up.partition("config_loader").read(0, len(CONFIG_LOADER)) == CONFIG_LOADER


def test_the_second_transfer_begins_when_the_first_was_checked_and_the_flash_is_erased(up):
    up.answer("tftp", times=1, stdout=IMAGE)
    up.answer("tftp", stdout=IMAGE, held="begin")
    up.mark()
    up.type("flash download network 10.0.0.1 image.rom")
    up.expect(PREPARING + INSTALLING)
    assert up.path(SAVED_HEADERS).read_bytes() == LOADER[:256] + KERNEL[:256] + CONFIG_LOADER[:256]
    assert all(up.partition(name).erased for name in ("bootloader", "kernel_1", "config_loader"))
    up.release("tftp")
    assert up.text_until_prompt().endswith(SUCCESS)


def test_what_follows_the_image_in_the_file_is_not_read(up):
    serve(up, IMAGE + b"\xAA" * 500_000)
    assert install(up).endswith(SUCCESS)
    assert up.partition("config_loader").read(len(CONFIG_LOADER), 100) == b"\xFF" * 100


@pytest.mark.parametrize("status", [1, 127])
def test_how_the_client_ends_does_not_matter(up, status):
    serve(up, IMAGE, status=status)
    assert install(up).endswith(SUCCESS)


def test_a_slow_server(up):
    serve(up, CONFIG_LOADER, piece=9000, pause=0.2)
    assert install(up).endswith(SUCCESS)
    assert up.partition("config_loader").read(0, len(CONFIG_LOADER)) == CONFIG_LOADER


def test_a_boot_environment_is_skipped_in_both_passes_when_the_flash_is_in_use(up):
    up.partition("ubi0").write(b"in use")
    environment = images.part(images.BOOT_ENV, images.pattern(3000), more=True)
    serve(up, environment + CONFIG_LOADER)
    info = images.info(environment) + images.info(CONFIG_LOADER)
    assert install(up) == (info + PREPARING + SKIPPED_BOOT_ENV + INSTALLING + images.info(environment) + SKIPPED_BOOT_ENV
                           + images.info(CONFIG_LOADER) + SUCCESS)
    assert up.partition("bootenv_1").read(0, 13) == b"old contents\0"
    assert up.partition("config_loader").read(0, len(CONFIG_LOADER)) == CONFIG_LOADER


PYTHON = images.part(images.PYTHON_SETUP, images.pattern(9000))
MOUNT = "/bin/mount -t ubifs -o sync,compr=zlib ubi0:vexo_user /mnt &> /dev/null"


def test_a_part_with_a_first_and_a_last_step_of_its_own(up):
    serve(up, PYTHON)
    assert install(up) == images.info(PYTHON) + PREPARING + INSTALLING + images.info(PYTHON) + SUCCESS
    assert [step for step in steps(up) if step in (TFTP, MOUNT)] == [TFTP, MOUNT, TFTP, MOUNT, MOUNT]


def test_the_last_step_decides(up):
    serve(up, PYTHON)
    up.answer("mount", times=2)
    up.answer("mount", status=1)
    shown = install(up)
    assert shown.startswith(images.info(PYTHON) + PREPARING + INSTALLING + images.info(PYTHON))
    assert shown.endswith(FAILURE) and NOT_WRITTEN not in shown


def test_a_last_step_that_fails_comes_after_the_switch_of_the_bank(up):
    """The system itself is complete and booted next; what failed are the user's packages."""
    kernel = images.part(images.KERNEL, images.pattern(0x6789, 3), more=True)
    serve(up, kernel + PYTHON)
    up.answer("mount", times=2)
    up.answer("mount", status=1)
    info = images.info(kernel) + images.info(PYTHON)
    assert install(up, "2 10.0.0.1 image.rom") == (
        info + PREPARING + INSTALLING + info + "ERROR: Failed to mount rootfs for update\n" + FAILURE)
    assert up.partition("kernel_2").read(0, len(kernel)) == kernel
    assert (up.env["bootbank"], up.env["kernel_size_2"]) == ("2", "6789")
    fw_setenv, last_mount = (max(i for i, line in enumerate(up.shell_lines) if text in line)
                             for text in ("fw_setenv bootbank 2", MOUNT))
    assert fw_setenv < last_mount


# ---------------------------------------------------------------------- file names


@pytest.mark.parametrize("name, word", [
    ('a"b', r'a\"b'),
    ("$(reboot)", r"\$(reboot)"),
    ("`reboot`", r"\`reboot\`"),
    ("$HOME/image", r"\$HOME/image"),
    ("dir\\image", r"dir\\image"),
    ("image\\", r"image\\"),
    ("a;reboot", "a;reboot"),
    ("a&reboot&", "a&reboot&"),
    ("a|reboot>x<y", "a|reboot>x<y"),
    ("it's", "it's"),
    ("*?[a]{b}~!#", "*?[a]{b}~!#"),
    ("100%", "100%"),
    ("%s%n", "%s%n"),
    ("/path/to/image", "/path/to/image"),
    ("-r", "-r"),
    ("b\xe4h", "b\xe4h"),
    pytest.param('"' * 224, r'\"' * 224, id="as long as a line allows"),
])
def test_names_reach_the_client_as_typed(up, name, word):
    serve(up, CONFIG_LOADER)
    output = command(up, f"flash download network 10.0.0.1 {name}")
    assert output.startswith(USING_ETH0 + f"Retrieving file '{name}' via tftp ...\n") and output.endswith(SUCCESS)
    assert [event.words for event in up.events.of("run") if event.words[0] == "tftp"] == [
        ["tftp", "-g", "-r", name, "-l", "-", "10.0.0.1"]] * 2
    assert [line for line in steps(up) if line.startswith("tftp")] == [f'tftp -g -r "{word}" -l - 10.0.0.1'] * 2
    up.expect_not_ran("reboot")


# ---------------------------------------------------------------------- nothing is fetched


def test_without_a_network(dev):
    without_card(dev)
    dev.boot()
    assert command(dev, "flash download network 10.0.0.1 image.rom") == (
        USING_ETH0 + DHCP + "ERROR: Can't get configured mac address\n" + UNABLE_TO_CONFIGURE + UNABLE_TO_START + FAILURE)
    expect_untouched(dev, fetched=0)


def test_a_client_that_cannot_be_started(up):
    up.fail_call("posix_spawn", "tftp", error="ENOMEM")
    assert install(up) == (f"ERROR: cmd_flash_download_network: popen({TFTP}) error(Cannot allocate memory)\n"
                           + NOT_FETCHED + FAILURE)
    expect_untouched(up, fetched=0)


def test_a_client_that_cannot_be_started_again(up):
    serve(up, CONFIG_LOADER)
    up.fail_call("posix_spawn", "tftp", error="ENOMEM", after=1)
    assert install(up) == (images.info(CONFIG_LOADER) + PREPARING + INSTALLING +
                           f"ERROR: cmd_flash_download_network: popen({TFTP}) error(Cannot allocate memory)\n"
                           + NOT_WRITTEN + FAILURE)
    expect_old_bank(up)


def test_headers_that_cannot_be_saved(up):
    serve(up, IMAGE, optional=True)
    up.fail_call("open", SAVED_HEADERS, error="ENOSPC")
    assert install(up) == "ERROR: Failed to save image information\n" + NOT_FETCHED + FAILURE
    expect_untouched(up)


# ---------------------------------------------------------------------- the first transfer fails: nothing is erased


@pytest.mark.parametrize("file, output", [
    (b"", "ERROR: Failed to read firmware header 0 / 256 bytes [No data available]\n"),
    (KERNEL[:100], "ERROR: Failed to read firmware header 100 / 256 bytes [No data available]\n"),
    (IMAGE[:len(LOADER) + 256], images.info(LOADER) + images.info(KERNEL)
     + "ERROR: Failed to read firmware data [No data available]\n"),
    (IMAGE[:-1], INFO + "ERROR: Failed to read firmware data [No data available]\n"),
    (LOADER + KERNEL, images.info(LOADER) + images.info(KERNEL)
     + "ERROR: Failed to read firmware header 0 / 256 bytes [No data available]\n"),
    (LOADER + damaged(KERNEL) + CONFIG_LOADER, None),
    (LOADER + KERNEL + damaged(CONFIG_LOADER), None),
], ids=["empty", "part of a header", "a header", "but one byte", "but one part", "a wrong bit in the middle",
        "a wrong bit at the end"])
def test_a_file_that_is_not_whole_or_not_sound(up, file, output):
    serve(up, file, status=1)
    shown = install(up)
    if output is None:
        assert "ERROR: Failed checksum test: calculated 0x" in shown
        assert shown.endswith("\n" + NOT_FETCHED + FAILURE)
    else:
        assert shown == output + NOT_FETCHED + FAILURE
    expect_untouched(up)


def test_a_wrong_checksum_is_shown(up):
    part = damaged(CONFIG_LOADER)
    serve(up, part)
    assert install(up) == (
        images.info(part) + f"ERROR: Failed checksum test: calculated 0x{images.checksum(part[256:]):x} vs "
        f"0x{images.checksum(CONFIG_LOADER[256:]):x}\n" + NOT_FETCHED + FAILURE)
    expect_untouched(up)


def test_a_header_that_is_not_sound(up):
    part = images.part(images.KERNEL, b"contents", fields={images.MANGLE_TYPE: 1})
    serve(up, LOADER + part)
    assert install(up) == (
        images.info(LOADER) + images.info(part) + "ERROR: Bad image header\n" + NOT_FETCHED + FAILURE)
    expect_untouched(up)


def test_the_wrong_file(up):
    page = b"<html>no image here</html>" * 100
    serve(up, page)
    assert install(up).endswith(NOT_FETCHED + FAILURE)
    expect_untouched(up)


@pytest.mark.parametrize("contents_type, reason", [
    (images.ROOTFS_JFFS2_OR_EXT2, "No partition for rootfs image\n"),
    (images.ROOTFS_UBIFS_16KEB, "ubi0 erase size is 0x20000, ubifs image requires 0x4000\n"),
])
def test_a_part_that_the_device_cannot_take(up, contents_type, reason):
    part = images.part(contents_type, b"root file system")
    serve(up, LOADER + part)
    assert install(up) == (images.info(LOADER) + images.info(part) + f"ERROR: {reason}ERROR: Bad image destination\n"
                           + NOT_FETCHED + FAILURE)
    expect_untouched(up)


@pytest.mark.parametrize("contents_type", [*images.WITHOUT_DESTINATION, 15])
def test_a_part_that_nothing_takes(up, contents_type):
    part = images.part(contents_type, b"never installed")
    serve(up, LOADER + part)
    assert install(up) == (images.info(LOADER) + images.info(part)
                           + f"ERROR: image_get_headers_fd: Can't find mtd for contents_type={contents_type}\n"
                           + "ERROR: Bad image destination\n" + NOT_FETCHED + FAILURE)
    expect_untouched(up)


@pytest.mark.parametrize("sent, output", [
    (0, "ERROR: Failed to read image information\n"),
    (100, "ERROR: Failed to read image information\n"),
    (len(LOADER) + 2000, images.info(LOADER) + images.info(KERNEL)
     + "ERROR: Failed to read firmware data [Connection timed out]\n"),
], ids=["before the header", "in the header", "in the contents"])
def test_a_server_that_falls_silent_in_the_first_transfer(up, sent, output):
    up.answer("tftp", stdout=IMAGE[:sent], held="end", optional=sent == 0)
    if sent == 0:
        up.fail_call("select", error=None, result=0, times=1)  # instead of 30 seconds
    assert install(up) == output + NOT_FETCHED + FAILURE
    expect_untouched(up)


def client_ends(dev):
    """The exit status of every client that came to its own end."""
    return [event.fields[1] for event in dev.events.of("exit") if event.fields[0] == "tftp"]


def test_the_client_of_a_good_transfer_ends_by_itself(up):
    """It still has to tell the server that the last block has come."""
    serve(up, IMAGE, hold=0.3)
    assert install(up).endswith(SUCCESS)
    assert client_ends(up) == ["0", "0"]


@pytest.mark.parametrize("files", [[damaged(IMAGE)], [IMAGE, damaged(LOADER)]], ids=["first", "second"])
def test_a_client_that_nobody_needs_any_more_is_ended(up, files):
    """A transfer has failed, and its server lets the client wait."""
    for file in files[:-1]:
        up.answer("tftp", times=1, stdout=file)
    up.answer("tftp", stdout=files[-1], held="end")
    assert install(up).endswith(FAILURE)
    assert client_ends(up) == ["0"] * (len(files) - 1)
    assert not Path(f"/proc/{up.pid}/task/{up.pid}/children").read_text(), "nothing is left running"


# ---------------------------------------------------------------------- preparing fails


def test_a_partition_that_cannot_be_erased(up):
    serve(up, IMAGE)
    up.answer("flash_erase", when="/dev/mtd5", status=1)
    shown = install(up)
    assert shown.startswith(INFO + PREPARING) and shown.endswith(NOT_PREPARED + FAILURE)
    assert steps(up).count(TFTP) == 1, "the image is not fetched again"
    assert up.partition("config_loader").read(0, 13) == b"old contents\0"
    expect_old_bank(up)


# ---------------------------------------------------------------------- the second transfer fails


def test_a_server_that_serves_another_image_the_second_time(up):
    other = images.part(images.KERNEL, images.pattern(0x6789, 9), more=True)
    serve(up, IMAGE, LOADER + other + CONFIG_LOADER)
    assert install(up) == (
        INFO + PREPARING + INSTALLING + images.info(LOADER) + images.info(other) + "ERROR: Header 1 mismatch\n"
        "ERROR: Expected header:\n" + images.info(KERNEL) + NOT_WRITTEN + FAILURE)
    assert up.partition("bootloader").read(0, len(LOADER)) == LOADER
    assert up.partition("kernel_1").erased, "the part that differs is not written"
    assert up.partition("config_loader").erased
    expect_old_bank(up)


def test_a_server_that_serves_other_contents_under_the_same_header(up):
    serve(up, IMAGE, LOADER + damaged(KERNEL) + CONFIG_LOADER)
    shown = install(up)
    assert shown.startswith(INFO + PREPARING + INSTALLING + images.info(LOADER) + images.info(KERNEL))
    assert "ERROR: Failed checksum test: calculated 0x" in shown and shown.endswith(NOT_WRITTEN + FAILURE)
    assert up.partition("config_loader").erased
    expect_old_bank(up)


def test_a_file_that_is_gone_the_second_time(up):
    serve(up, IMAGE, b"", status=1)
    assert install(up) == (
        INFO + PREPARING + INSTALLING + "ERROR: Failed to write firmware image [No data available]\n" + NOT_WRITTEN + FAILURE)
    assert steps(up).count(TFTP) == 2
    expect_old_bank(up)


def test_a_file_that_has_become_shorter(up):
    serve(up, IMAGE, IMAGE[:-1])
    assert install(up).endswith(NOT_WRITTEN + FAILURE)
    expect_old_bank(up)


def test_a_server_that_falls_silent_in_the_second_transfer(up):
    up.answer("tftp", times=1, stdout=IMAGE)
    up.answer("tftp", stdout=IMAGE[:len(LOADER) + 2000], held="end")
    shown = install(up)
    assert shown.startswith(INFO + PREPARING + INSTALLING + images.info(LOADER) + images.info(KERNEL) + "ERROR: ")
    assert shown.endswith(NOT_WRITTEN + NOT_WRITTEN + FAILURE)
    assert up.partition("bootloader").read(0, len(LOADER)) == LOADER
    assert up.partition("config_loader").erased
    expect_old_bank(up)


def test_a_boot_environment_that_cannot_be_set(up):
    serve(up, IMAGE)
    up.answer("fw_setenv", status=1)
    shown = install(up)
    assert shown.endswith("ERROR: Failed to set kernel_size_1=6789 in the boot environment\n" + NOT_WRITTEN + FAILURE)


def test_a_failed_installation_can_be_repeated(up):
    serve(up, IMAGE, IMAGE[:5000], IMAGE)
    assert install(up).endswith(FAILURE)
    assert install(up).endswith(SUCCESS)
    assert up.partition("kernel_1").read(0, len(KERNEL)) == KERNEL
    assert up.env["bootbank"] == "1"
