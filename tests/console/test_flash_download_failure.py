"""Installations that fail. After each of them the boot environment is what it was, so that the device starts what it
started before; nothing of the transfer is left; and the shell answers."""

import itertools
import re
import time

import pytest

import images
from downloads import expect_at_rest, steps
from texts import BEGIN, NOT_INSTALLED, NOT_WRITTEN, SKIPPED_BOOT_ENV, SUCCESS

SPARE = "flash download serial 2 2"  # what is sent beyond the point of failure cannot meet the console there
UNLOCK_BOOTLOADER, LOCK_BOOTLOADER = "/usr/sbin/flash_unlock /dev/mtd2", "/usr/sbin/flash_lock /dev/mtd2 0 -1"

KERNEL = images.part(images.KERNEL, images.pattern(5001))
LOADER = images.part(images.BOOTLOADER, images.pattern(5002))


@pytest.fixture
def dev(dev):
    """A device at the prompt, which must be sound afterwards: no test here may change the boot environment."""
    dev.boot()
    environment = dict(dev.env)
    yield dev
    assert dict(dev.env) == environment
    dev.expect_not_ran("fw_setenv")
    expect_at_rest(dev)


def reason(text):
    """The system's text for a wait that ended is not given: any will do."""
    return re.sub(r" \[[^\]\n]*\]\n", " [...]\n", text)


# ---------------------------------------------------------------------- chain of parts


def test_promised_part_that_never_comes(dev):
    """The loader gives the sender as long as a person may need to start it."""
    image = images.part(images.KERNEL, b"kernel", more=True)
    start = time.monotonic()
    shown = dev.install(image, timeout=45)
    assert reason(shown) == images.info(image) + "ERROR: Failed to write firmware image [...]\n" + NOT_INSTALLED
    assert 30 <= time.monotonic() - start < 40
    assert dev.partition("kernel_2").read(0, len(image)) == image


# ---------------------------------------------------------------------- payload


@pytest.mark.parametrize("spot, bit", [(0, 0x80), (2500, 1), (5000, 1)])
def test_corrupted_payload(dev, spot, bit):
    damaged = bytearray(KERNEL)
    damaged[256 + spot] ^= bit
    calculated, expected = images.checksum(bytes(damaged[256:])), images.checksum(KERNEL[256:])
    assert dev.install(bytes(damaged)) == (
        images.info(KERNEL) + f"ERROR: Failed checksum test: calculated 0x{calculated:x} vs 0x{expected:x}"
        + NOT_INSTALLED), "no line feed behind the numbers"
    assert dev.partition("kernel_2").read(0, len(damaged)) == damaged, "it was written as it came"


def test_checksum_of_protected_part_fails_after_it_was_locked_again(dev):
    image = images.part(images.BOOTLOADER, b"loader", fields={images.CONTENTS_CHECKSUM: 0xA, images.FINAL_CHECKSUM: 0xA})
    assert dev.install(image).endswith(f"calculated 0x{images.checksum(b'loader'):x} vs 0xa{NOT_INSTALLED}")
    dev.expect_ran_exactly([UNLOCK_BOOTLOADER, LOCK_BOOTLOADER])


# ---------------------------------------------------------------------- header


def damaged(**fields):
    """A header with some fields wrong, its own checksum right. Names are those of images.py."""
    return images.header(images.KERNEL, b"kernel", fields={getattr(images, name): value for name, value in fields.items()})


def other_id(text, **fields):
    return images.sign(text + damaged(**fields)[len(text):])


def unsigned(header, stored):
    return images.with_field(header, images.HEADER_CHECKSUM, stored)


BAD_ID = "bad Header ID in header"
BAD_TYPE = "bad HeaderType in header"
BAD_LENGTH = "bad HeaderLength in header"
BAD_MANGLE = "bad ContentsMangleType in header"
LENGTH_MISMATCH = "ContentsLength/ContentsFinalLength mismatch"
BAD_PASSCODE = "bad ContentsPasscodeType"
CHECKSUM_MISMATCH = "image_header_verify: ContentsChecksum32/ContentsFinalChecksum32 mismatch"
# The stored number is shown with its bytes the other way round.
BAD_CHECKSUM = ("Header Checksum failed! Expected 0x78563412 and calculated "
                f"0x{images.field(damaged(), images.HEADER_CHECKSUM):x}")

BAD_HEADERS = {
    "other number": (other_id(b"KESTO-2\0"), BAD_ID),
    "type 1": (damaged(HEADER_TYPE=1), BAD_TYPE),
    "length 257": (damaged(HEADER_LENGTH=257), BAD_LENGTH),
    "mangled": (damaged(MANGLE_TYPE=1), BAD_MANGLE),
    "contents length": (damaged(CONTENTS_LENGTH=7), LENGTH_MISMATCH),
    "passcode": (damaged(PASSCODE_TYPE=0x80000000), BAD_PASSCODE),
    "contents checksum": (damaged(CONTENTS_CHECKSUM=0), CHECKSUM_MISMATCH),
    "header checksum": (unsigned(damaged(), 0x12345678), BAD_CHECKSUM),
}


@pytest.mark.parametrize("header, fault", BAD_HEADERS.values(), ids=BAD_HEADERS)
def test_bad_header_tells_its_fault_at_verbosity_6(dev, header, fault):
    dev.command("verbose 6")
    shown = dev.install(header)
    assert shown.partition(BEGIN)[2] == (
        "VERBOSE: tty_open_raw: dev=/dev/ttyS1 speed=115200\n"
        f"ERROR: {fault}\n" + images.info(header) + "ERROR: Bad image header 0\n"
        "VERBOSE: tty_close_raw: dev=/dev/ttyS1\n" + NOT_INSTALLED)
    dev.expect_ran_exactly([])


@pytest.mark.parametrize("fault", ["other number", "contents length", "header checksum"])
@pytest.mark.parametrize("verbosity", [3, 5])
def test_bad_header_is_just_bad_below_verbosity_6(dev, verbosity, fault):
    header = BAD_HEADERS[fault][0]
    dev.command(f"verbose {verbosity}")
    dev.begin("flash download serial 2")
    assert dev.transfer(header) == images.info(header) + "ERROR: Bad image header 0\n" + NOT_INSTALLED


# ---------------------------------------------------------------------- sender


@pytest.mark.parametrize("size", [256, 257, 5000, 5257])
def test_sender_that_stops_inside_a_payload(dev, size):
    dev.partition("bootloader").fill()
    start = time.monotonic()
    shown = dev.install(LOADER[:size])
    assert reason(shown) == (images.info(LOADER) + "ERROR: Failed to read firmware image [...]\n"
                             + NOT_WRITTEN + NOT_INSTALLED)
    assert 3 <= time.monotonic() - start < 8
    dev.expect_ran_exactly([UNLOCK_BOOTLOADER, LOCK_BOOTLOADER])
    target = dev.partition("bootloader")
    assert target.read(0, size) == LOADER[:size] and target.read(size, 4096).strip(b"\xff") == b""


@pytest.mark.parametrize("length", [0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_sender_that_stops_inside_a_huge_payload(dev, length):
    header = images.header(images.KERNEL, fields={images.CONTENTS_LENGTH: length, images.FINAL_LENGTH: length})
    shown = dev.install(header + b"kernel")
    assert reason(shown) == (images.info(header) + "ERROR: Failed to read firmware image [...]\n"
                             + NOT_WRITTEN + NOT_INSTALLED)
    assert dev.partition("kernel_2").read(0, 264) == header + b"kernel\0\0"


def test_sender_that_stops_inside_a_boot_environment_that_is_skipped(dev):
    image = images.part(images.BOOT_ENV, b"bootenv")
    shown = dev.install(image[:-1])
    assert shown.startswith(images.info(image) + SKIPPED_BOOT_ENV) and shown.endswith(NOT_INSTALLED)
    assert dev.partition("bootenv_1").read(0, 4) == bytes(4)


def test_sender_that_pauses_for_less_than_three_seconds(dev):
    """The three seconds start afresh with every piece."""
    image = images.part(images.CONFIG_LOADER, b"config loader")
    dev.begin("flash download serial")
    dev.send_stream(image[:100])
    for begin, end in (100, 130), (130, 200), (200, 256), (256, 260), (260, 269):
        time.sleep(0.8)
        dev.send(image[begin:end])
    assert dev.text_until_prompt() == images.info(image) + SUCCESS


def test_first_wait_of_a_header_is_long_and_all_others_are_short(dev):
    dev.trace("select")
    image = images.part(images.CONFIG_LOADER, b"config", more=True) + images.part(images.CONFIG_LOADER, b"loader")
    dev.begin("flash download serial")
    dev.send_stream(image[:100])
    dev.wait_for("select", "/dev/ttyS1", "3")
    dev.send(image[100:])
    assert dev.text_until_prompt().endswith(SUCCESS)
    waits = [event.seconds for event in dev.events.of("select")]
    assert [seconds for seconds, _ in itertools.groupby(waits)][:4] == [30, 3, 30, 3]


@pytest.mark.parametrize("call, outcome", [
    ("select", {"error": "EINTR"}),
    ("read", {"error": "EIO"}),
    ("read", {"error": None, "result": 0}),
], ids=["failing wait", "failing read", "end of input"])
@pytest.mark.parametrize("header_complete", [False, True], ids=["in the header", "in the payload"])
def test_port_that_fails(dev, call, outcome, header_complete):
    """Each kind of failure at each place has the message of a sender that stopped."""
    dev.begin(SPARE)
    dev.wait_for("tcsetattr", "/dev/ttyS2")
    expected = "ERROR: Failed to write firmware image [...]\n" + NOT_INSTALLED
    if header_complete:
        dev.send(LOADER[:256], port=2)
        dev.wait_ran(UNLOCK_BOOTLOADER)
        expected = (images.info(LOADER) + "ERROR: Failed to read firmware image [...]\n" + NOT_WRITTEN + NOT_INSTALLED)
    dev.fail_call(call, "/dev/ttyS2" if call == "read" else "", **outcome)
    dev.send(LOADER[256:] if header_complete else LOADER[:1], port=2)  # ends the wait that was under way
    assert reason(dev.text_until_prompt()) == expected


# ---------------------------------------------------------------------- destination


REFUSED_16KEB = "ERROR: ubi0 erase size is 0x{:x}, ubifs image requires 0x4000\nERROR: Bad image destination\n"
REFUSED_128KEB = "ERROR: ubi0 erase size is 0x{:x}, ubifs image requires 0x20000\nERROR: Bad image destination\n"


@pytest.mark.parametrize("contents_type, erase_size, refusal", [
    (images.ROOTFS_UBIFS_16KEB, 0x20000, REFUSED_16KEB),
    (images.ROOTFS_UBIFS_16KEB, 0x8000, REFUSED_16KEB),
    (images.ROOTFS_UBIFS_16KEB, 0x40000, REFUSED_16KEB),
    (images.ROOTFS_UBIFS_128KEB, 0x4000, REFUSED_128KEB),
    (images.ROOTFS_UBIFS_128KEB, 0x40000, REFUSED_128KEB),
    (images.ROOTFS_JFFS2_OR_EXT2, 0x20000, "ERROR: No partition for rootfs image\nERROR: Bad image destination\n"),
    (images.ROOTFS_JFFS2_OR_EXT2, 0x4000, "ERROR: No partition for rootfs image\nERROR: Bad image destination\n"),
], ids=["16 on 128", "16 on 32", "16 on 256", "128 on 16", "128 on 256", "jffs2 on 128", "jffs2 on 16"])
def test_root_file_system_of_the_wrong_kind(dev, contents_type, erase_size, refusal):
    """Refused by its header, before it is even shown."""
    dev.set_partitions(*((p.name, p.size, erase_size if p.name == "ubi0" else p.erase_size) for p in dev.partitions))
    header = images.header(contents_type, b"root file system")
    assert dev.install(header) == refusal.format(erase_size) + NOT_INSTALLED
    dev.expect_ran_exactly([])


@pytest.mark.parametrize("contents_type, refusal", [
    (images.ROOTFS_UBIFS_16KEB, REFUSED_16KEB), (images.ROOTFS_UBIFS_128KEB, REFUSED_128KEB)], ids=["16", "128"])
def test_root_file_system_without_a_ubi_partition(dev, contents_type, refusal):
    dev.set_partitions(("bootstrap", 0x20000, 0x10000))
    assert dev.install(images.header(contents_type)) == refusal.format(0) + NOT_INSTALLED


def test_root_file_system_of_the_wrong_kind_behind_a_good_part(dev):
    kernel = images.part(images.KERNEL, b"kernel", more=True)
    refused = images.header(images.ROOTFS_UBIFS_16KEB)
    assert dev.install(kernel + refused) == (
        images.info(kernel) + REFUSED_16KEB.format(0x20000) + NOT_INSTALLED)


@pytest.mark.parametrize("behind", [b"", KERNEL], ids=["last", "in front of others"])
@pytest.mark.parametrize("contents_type", [*images.WITHOUT_DESTINATION, 15, 0x80000004, 0xFFFFFFFF])
def test_part_without_a_destination(dev, contents_type, behind):
    lost = images.part(contents_type, b"\xff" * 300, more=bool(behind))
    signed = contents_type - (contents_type >> 31 << 32)
    assert dev.install(lost + behind, SPARE, port=2) == (
        images.info(lost) + f"ERROR: image_write_fd: Can't find mtd for contents_type={signed}\n" + NOT_INSTALLED)
    assert dev.partition("kernel_2").read(0, 8) == bytes(8)
    dev.expect_ran_exactly([])


# ---------------------------------------------------------------------- port


def test_port_that_cannot_be_opened(dev):
    dev.fail_call("open", "/dev/ttyS2", error="ENOENT")
    begin = dev.begin(SPARE)
    assert begin + dev.text_until_prompt() == (
        "tty_open_raw: open(): No such file or directory\n"
        "ERROR: Failed to open serial port (No such file or directory)\n" + NOT_INSTALLED)
    assert steps(dev) == ["settings /dev/ttyS1 console 115200 rtscts signals", "sleep 1", "sleep 1",
                          "settings /dev/ttyS1 console 115200 rtscts"]


def test_console_port_that_cannot_be_opened_again(dev):
    dev.fail_call("open", "/dev/ttyS1", error="EBUSY")
    begin = dev.begin("flash download serial")
    assert begin + dev.text_until_prompt() == (
        "tty_open_raw: open(): Device or resource busy\n"
        "ERROR: Failed to open serial port (Device or resource busy)\n" + NOT_INSTALLED)


# ---------------------------------------------------------------------- flash


def failed_tool(line, status="sys_rc=256 exitstatus=1"):
    return f"ERROR: system({line}) {status}\n"


@pytest.mark.parametrize("death, status", [
    ({"status": 1}, "sys_rc=256 exitstatus=1"), ({"status": 2}, "sys_rc=512 exitstatus=2"),
    ({"status": 255}, "sys_rc=65280 exitstatus=255")])
def test_unlock_fails(dev, death, status):
    """Locked at once, nothing written."""
    dev.answer("flash_unlock", **death)
    assert dev.install(LOADER, SPARE, port=2) == (
        images.info(LOADER) + failed_tool(UNLOCK_BOOTLOADER, status) + NOT_WRITTEN + NOT_INSTALLED)
    dev.expect_ran_exactly([UNLOCK_BOOTLOADER, LOCK_BOOTLOADER])
    assert dev.partition("bootloader").read(0, 8) == bytes(8)


def test_lock_fails(dev):
    """Written, but not as it should be."""
    dev.answer("flash_lock", status=1)
    assert dev.install(LOADER) == (
        images.info(LOADER) + failed_tool(LOCK_BOOTLOADER) + NOT_WRITTEN + NOT_INSTALLED)
    assert dev.partition("bootloader").read(0, len(LOADER)) == LOADER


def test_unlock_and_lock_fail(dev):
    dev.answer("flash_unlock", status=1)
    dev.answer("flash_lock", status=1)
    assert dev.install(LOADER[:256]) == (
        images.info(LOADER) + failed_tool(UNLOCK_BOOTLOADER) + failed_tool(LOCK_BOOTLOADER) + NOT_WRITTEN
        + NOT_INSTALLED)


def test_lock_fails_in_the_middle_of_an_image(dev):
    dev.answer("flash_lock", status=1)
    first = images.part(images.BOOTLOADER, b"loader", more=True)
    assert dev.install(first + KERNEL, SPARE, port=2).endswith(failed_tool(LOCK_BOOTLOADER) + NOT_WRITTEN + NOT_INSTALLED)
    assert dev.partition("kernel_2").read(0, 8) == bytes(8)


def test_tools_of_protection_are_missing(dev):
    dev.remove("/usr/sbin/flash_unlock", "/usr/sbin/flash_lock")
    shown = dev.install(LOADER[:256])
    missing = "sys_rc=32512 exitstatus=127"
    assert shown.endswith(images.info(LOADER) + failed_tool(UNLOCK_BOOTLOADER, missing)
                          + failed_tool(LOCK_BOOTLOADER, missing) + NOT_WRITTEN + NOT_INSTALLED)


def test_no_process_for_a_tool(dev):
    dev.fail_call("posix_spawn", "flash_unlock", error="EAGAIN")
    assert dev.install(LOADER[:256]) == (
        images.info(LOADER) + f"ERROR: system({UNLOCK_BOOTLOADER}) returned -1\n" + NOT_WRITTEN + NOT_INSTALLED)
    dev.expect_ran_exactly([LOCK_BOOTLOADER])


@pytest.mark.parametrize("part, node, tools", [
    (LOADER, "/dev/mtd2", [UNLOCK_BOOTLOADER, LOCK_BOOTLOADER]), (KERNEL, "/dev/mtd6", [])],
    ids=["protected", "not protected"])
def test_node_that_cannot_be_opened(dev, part, node, tools):
    dev.remove(node)
    assert dev.install(part[:256]) == (
        images.info(part) + f"ERROR: Failed to open {node}: error(No such file or directory)\n"
        + NOT_WRITTEN + NOT_INSTALLED)
    dev.expect_ran_exactly(tools)


# ---------------------------------------------------------------------- nothing at all


def test_sender_that_never_starts(dev):
    start = time.monotonic()
    begin = dev.begin("flash download serial")
    shown = begin + dev.text_until_prompt(45)
    assert reason(shown) == "ERROR: Failed to write firmware image [...]\n" + NOT_INSTALLED
    assert 30 <= time.monotonic() - start < 40
