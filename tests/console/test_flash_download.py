"""Installing an image that arrives over a serial line: the command's words, the session on the screen, the port, and
what every kind of part leaves in the flash. What goes wrong is in test_flash_download_failure.py."""

import re

import pytest

import images
from downloads import expect_at_rest, image_that_fails, settings, steps
from texts import BEGIN, FAILURE, NOT_INSTALLED, SKIPPED_BOOT_ENV, SUCCESS

UNLOCK_BOOTLOADER, LOCK_BOOTLOADER = "/usr/sbin/flash_unlock /dev/mtd2", "/usr/sbin/flash_lock /dev/mtd2 0 -1"
BIG = 0xFACED  # bytes, about 1 MB

LOADER = images.part(images.BOOTLOADER, images.pattern(5000, 2), more=True, version=(1, 2, 3, 4, "A", 5), code=b"TK")
KERNEL = images.part(images.KERNEL, images.pattern(0xABCDE, 3), more=True, version=(3, 1, 0, 0, "R", 1), code=b"AB")
CONFIG_LOADER = images.part(images.CONFIG_LOADER, images.pattern(70001, 4))
IMAGE = LOADER + KERNEL + CONFIG_LOADER
IMAGE_INFO = images.info(LOADER) + images.info(KERNEL) + images.info(CONFIG_LOADER)


def set_environment(bank, kernel_size):
    return [f"/usr/sbin/fw_setenv kernel_size_{bank} {kernel_size}", f"/usr/sbin/fw_setenv bootbank {bank}"]


def make_ubi_small(dev, erase_size=0x20000):
    """The check for clean flash reads the whole partition; two erase blocks will do."""
    dev.set_partitions(*((p.name, 2 * erase_size if p.name == "ubi0" else p.size, p.erase_size)
                         for p in dev.partitions))
    return dev.partition("ubi0")


# ---------------------------------------------------------------------- the words of the command


@pytest.mark.parametrize("words, message", [
    *((bank, f"Invalid flash bank '{bank}'") for bank in ("3", "0", "11", "Single", "SINGLE", "singl", "none", "any", "-1")),
    *((f"1 {port}", f"Invalid serial port '{port}', range is 0 to 2")
      for port in ("3", "-1", "10", "x", "1x", "0x1", "4294967296", "4294967297", "99999999999999999999")),
    *((f"1 1 {rate}", f"Invalid baud rate '{rate}'")
      for rate in ("4800", "1200", "0", "115201", "1000000", "fast", "115200x", "-1", "4294976896")),
    ("3 3 4800", "Invalid flash bank '3'"),
    ("1 3 4800", "Invalid serial port '3', range is 0 to 2"),
])
def test_word_that_is_refused(dev, words, message):
    dev.boot()
    assert dev.command(f"flash download serial {words}") == f"ERROR: {message}\n"
    dev.expect_quiet()
    assert steps(dev)[1:-1] == [], "nothing between the settings before the command and those after it"


@pytest.mark.parametrize("words, bank, port, speed", [
    ("", "1", 1, 115200),
    ("1", "1", 1, 115200),
    ("2", "2", 1, 115200),
    ("single", "single", 1, 115200),
    ("2 0", "2", 0, 115200),
    ("1 1", "1", 1, 115200),
    ("1 2", "1", 2, 115200),
    ("1 +2", "1", 2, 115200),
    ("1 02", "1", 2, 115200),
    *((f"2 2 {speed}", "2", 2, speed) for speed in (9600, 19200, 38400, 57600, 115200, 230400, 460800, 921600)),
    ("single 1 9600", "single", 1, 9600),
    ("single 0 921600 more words", "single", 0, 921600),
])
def test_words_choose_bank_port_and_rate(dev, words, bank, port, speed):
    dev.boot()
    dev.command("verbose 4")
    function = "INFO: cmd_flash_download_serial:"
    shown = dev.install(image_that_fails(), f"flash download serial {words}".rstrip(), port=port)
    assert shown.startswith(
        f"{function} bank={bank} dev=/dev/ttyS{port} speed={speed}\n"
        f"{function} tty_dev=/dev/ttyS{port} speed={speed} bank={bank} "
        "bs(1)=1 bl(2)=1 krn(4)=1 rfsje(5)=1 rfsu(10)=1 rfsl(12)=1\n" + BEGIN)
    raw = [(event.path, settings(event)) for event in dev.events.of("tcsetattr") if "raw" in settings(event)]
    assert raw == [(f"/dev/ttyS{port}", f"raw {speed}" + (" rtscts" if port != 0 else ""))]


def test_port_and_rate_default_to_those_of_the_console(dev):
    dev.cmdline("cli_console=ttyS2,57600")
    dev.boot()
    dev.command("verbose 4")
    shown = dev.install(image_that_fails(), "flash download serial")
    assert "INFO: cmd_flash_download_serial: bank=1 dev=/dev/ttyS2 speed=57600\n" in shown


# ---------------------------------------------------------------------- the session


def test_whole_session_on_the_console_port(dev):
    dev.boot()
    assert dev.install(IMAGE, "flash download serial 2") == IMAGE_INFO + SUCCESS
    assert steps(dev) == [
        "settings /dev/ttyS1 console 115200 rtscts signals",
        "sleep 1",
        "open /dev/ttyS1 0402 0",  # O_RDWR | O_NOCTTY
        "tcflush /dev/ttyS1 input 0",
        "settings /dev/ttyS1 raw 115200 rtscts",
        f"run {UNLOCK_BOOTLOADER}",
        f"run {LOCK_BOOTLOADER}",
        "run /usr/sbin/fw_setenv kernel_size_2 ABCDE",
        "run /usr/sbin/fw_setenv bootbank 2",
        "settings /dev/ttyS1 console 115200 rtscts signals",
        "sleep 1",
        "settings /dev/ttyS1 console 115200 rtscts",
    ]
    assert dev.shell_lines == [
        UNLOCK_BOOTLOADER, LOCK_BOOTLOADER,
        "/usr/sbin/fw_setenv kernel_size_2 ABCDE > /dev/null 2>&1", "/usr/sbin/fw_setenv bootbank 2 > /dev/null 2>&1"]
    assert dev.ioctls == []
    for partition, part in ("bootloader", LOADER), ("kernel_2", KERNEL), ("config_loader", CONFIG_LOADER):
        assert dev.partition(partition).read(0, len(part)) == part
    assert (dev.env["bootbank"], dev.env["kernel_size_2"]) == ("2", "ABCDE")
    expect_at_rest(dev)


@pytest.mark.parametrize("port, flow", [(0, ""), (2, " rtscts")])
def test_whole_session_on_another_port(dev, port, flow):
    dev.boot()
    assert dev.install(IMAGE, f"flash download serial 1 {port} 9600", port=port) == IMAGE_INFO + SUCCESS
    at = f"/dev/ttyS{port}"
    done = steps(dev)
    assert done[:5] == ["settings /dev/ttyS1 console 115200 rtscts signals", "sleep 1", f"open {at} 0402 0",
                        f"tcflush {at} input 0", f"settings {at} raw 9600{flow}"]
    assert done[5:9] == [f"run {line}" for line in (UNLOCK_BOOTLOADER, LOCK_BOOTLOADER, *set_environment(1, "ABCDE"))]
    given_back, *rest = done[9:]
    assert given_back.startswith(f"settings {at} ") and "raw" not in given_back
    assert rest == ["sleep 1", "settings /dev/ttyS1 console 115200 rtscts"]
    assert dev.partition("kernel_1").read(0, len(KERNEL)) == KERNEL
    assert dev.port(port).output == b"", "nothing is said on the port of the transfer"
    expect_at_rest(dev)


def test_nothing_is_shown_while_the_port_carries_the_image(dev):
    dev.boot()
    dev.begin("flash download serial 2")
    dev.send_stream(LOADER[:256])
    dev.wait_ran(UNLOCK_BOOTLOADER)
    held_back = dev.path("/tmp/recovery.log")
    assert held_back.read_text() == images.info(LOADER), "complete at every moment"
    dev.expect_quiet()
    dev.send(LOADER[256:] + KERNEL + CONFIG_LOADER[:1000])
    dev.expect_quiet()
    dev.send(CONFIG_LOADER[1000:])
    assert dev.text_until_prompt() == IMAGE_INFO + SUCCESS
    assert not held_back.exists()


def test_bytes_that_arrived_before_the_port_was_opened_do_not_count(dev):
    dev.boot()
    dev.send(b"\r\nsome noise", port=2)
    assert dev.install(IMAGE, "flash download serial 1 2", port=2) == IMAGE_INFO + SUCCESS


def test_old_files_are_no_part_of_it(dev):
    dev.boot()
    dev.path("/tmp/image.rom").write_bytes(b"headers of another image")
    dev.path("/tmp/recovery.log").write_text("messages of another time\n")
    dev.begin("flash download serial 2")
    assert not dev.path("/tmp/image.rom").exists()
    dev.send_stream(IMAGE)
    assert dev.text_until_prompt() == IMAGE_INFO + SUCCESS
    expect_at_rest(dev)


def test_messages_that_cannot_be_held_back_are_lost_and_nothing_else(dev):
    dev.boot()
    dev.path("/tmp/recovery.log").mkdir()
    assert dev.install(IMAGE).endswith(SUCCESS)
    assert dev.partition("kernel_2").read(0, len(KERNEL)) == KERNEL
    assert dev.command("quit") == ""


def test_second_download_in_a_session(dev):
    dev.boot()
    for bank in ("2", "single", "1"):
        assert dev.install(IMAGE, f"flash download serial {bank}") == IMAGE_INFO + SUCCESS
        assert dev.partition(f"kernel_{bank}").read(0, len(KERNEL)) == KERNEL
        assert dev.env["bootbank"] == bank
        expect_at_rest(dev)


def test_interrupt_character_in_an_image_interrupts_nothing(dev):
    dev.boot()
    image = images.part(images.KERNEL, b"\x03\x1c\x1a\x04\x11\x13\r\n\xff\0" * 500)
    assert dev.install(image) == images.info(image) + SUCCESS
    assert dev.partition("kernel_2").read(0, len(image)) == image


# ---------------------------------------------------------------------- messages that were held back


@pytest.mark.parametrize("verbosity, progress", [(4, ""), (5, (
    "PROGRESS: Setting 'kernel_size_2=ABCDE' in the boot environment\n"
    "PROGRESS: Setting 'bootbank=2' in the boot environment\n"))])
def test_count_of_parts_and_progress(dev, verbosity, progress):
    dev.boot()
    dev.command(f"verbose {verbosity}")
    shown = dev.install(IMAGE)
    assert shown.partition(BEGIN)[2] == IMAGE_INFO + "INFO: Wrote 3 image parts, skipped 0\n" + progress + SUCCESS


def found(part, contents_type):
    return (f"VERBOSE: Found good image header: type={contents_type}\n"
            "VERBOSE: image_validate_destination: mtd_dev_name=/dev/ubi0_0\n" + images.info(part))


def streamed(part):
    size = len(part) - 256
    return f"VERBOSE: flash_write_buffer_fd received {size} bytes, written {size} bytes to flash\n"


def test_verbosity_6_tells_every_step(dev):
    dev.boot()
    dev.command("verbose 6")
    shown = dev.install(IMAGE)
    assert shown == (
        "INFO: cmd_flash_download_serial: bank=2 dev=/dev/ttyS1 speed=115200\n"
        "INFO: cmd_flash_download_serial: tty_dev=/dev/ttyS1 speed=115200 bank=2 "
        "bs(1)=1 bl(2)=1 krn(4)=1 rfsje(5)=1 rfsu(10)=1 rfsl(12)=1\n" + BEGIN +
        "VERBOSE: tty_open_raw: dev=/dev/ttyS1 speed=115200\n"
        + found(LOADER, 2)
        + f"VERBOSE: system({UNLOCK_BOOTLOADER})\n" + streamed(LOADER) + f"VERBOSE: system({LOCK_BOOTLOADER})\n"
        + found(KERNEL, 4) + streamed(KERNEL)
        + found(CONFIG_LOADER, 8) + streamed(CONFIG_LOADER) +
        "INFO: Wrote 3 image parts, skipped 0\n"
        "PROGRESS: Setting 'kernel_size_2=ABCDE' in the boot environment\n"
        "VERBOSE: system(/usr/sbin/fw_setenv kernel_size_2 ABCDE )\n"
        "PROGRESS: Setting 'bootbank=2' in the boot environment\n"
        "VERBOSE: system(/usr/sbin/fw_setenv bootbank 2 )\n"
        "VERBOSE: tty_close_raw: dev=/dev/ttyS1\n" + SUCCESS)
    assert dev.shell_lines[2:] == ["/usr/sbin/fw_setenv kernel_size_2 ABCDE ", "/usr/sbin/fw_setenv bootbank 2 "]


def test_verbosity_7_traces_functions(dev):
    dev.boot()
    dev.command("verbose 7")
    shown = dev.install(images.part(images.BOOTLOADER, b"12345"))
    before, begin, after = shown.partition(BEGIN)
    assert begin and before.startswith("TRACE: cmd_flash_download_serial:\nINFO: ")
    at = 0
    for line in ("VERBOSE: tty_open_raw: dev=/dev/ttyS1 speed=115200", "VERBOSE: Found good image header: type=2",
                 "TRACE: image_validate_destination: contents_type=2", "Image info:",
                 "TRACE: flash_write_buffer_fd: dev_name=/dev/mtd2 protect=1 type=serial src_len=5",
                 f"TRACE: exec_system_cmd:\nVERBOSE: system({UNLOCK_BOOTLOADER})",
                 f"TRACE: exec_system_cmd:\nVERBOSE: system({LOCK_BOOTLOADER})",
                 "VERBOSE: tty_close_raw: dev=/dev/ttyS1", "Done: SUCCESS"):
        at = after.index(line + "\n", at)


@pytest.mark.parametrize("verbosity", [1, 2])
def test_low_verbosity_shows_what_was_asked_for_but_no_errors(dev, verbosity):
    """The filter applies when a message is logged, not when it is shown again."""
    dev.boot()
    dev.command(f"verbose {verbosity}")
    image = images.part(images.KERNEL, b"kernel")[:-1] + b"x"
    assert dev.install(image) == images.info(image) + FAILURE


# ---------------------------------------------------------------------- every raw destination


RAW = [
    # contents type, words, partition, header in front, tools
    (images.BOOTSTRAP, "", "bootstrap", False, ["/usr/sbin/flash_unlock /dev/mtd0", "/usr/sbin/flash_lock /dev/mtd0 0 -1"]),
    (images.BOOTLOADER, " single", "bootloader", True, [UNLOCK_BOOTLOADER, LOCK_BOOTLOADER]),
    (images.KERNEL, "", "kernel_1", True, set_environment(1, "1001")),
    (images.KERNEL, " 2", "kernel_2", True, set_environment(2, "1001")),
    (images.KERNEL, " single", "kernel_single", True, set_environment("single", "1001")),
    (images.CONFIG_LOADER, " 2", "config_loader", True, []),
]


@pytest.mark.parametrize("contents_type, words, partition, header_too, tools", RAW, ids=[row[2] for row in RAW])
def test_part_reaches_its_partition_and_no_other(dev, contents_type, words, partition, header_too, tools):
    for each in dev.partitions[:-1]:
        each.fill()
    dev.boot()
    environment = dict(dev.env)
    contents = images.pattern(4097)
    image = images.part(contents_type, contents)
    assert dev.install(image, f"flash download serial{words}") == images.info(image) + SUCCESS
    dev.expect_ran_exactly(tools)
    written = image if header_too else contents
    target = dev.partition(partition)
    assert target.read(0, len(written)) == written
    assert target.read(len(written)).strip(b"\xff") == b"", "nothing behind it"
    assert [p.name for p in dev.partitions[:-1] if p.name != partition and not p.erased] == []
    if contents_type != images.KERNEL:
        assert dict(dev.env) == environment, "only a kernel or a root file system switches the bank"


@pytest.mark.parametrize("size", [0, 1, 2, 3, 4, 15, 16, 17, 255, 256, 257, 1023, 4095, 4096, 4097, 8191, BIG])
def test_parts_of_any_length(dev, size):
    dev.boot()
    image = (images.part(images.BOOTLOADER, images.pattern(size, 5), more=True)
             + images.part(images.KERNEL, images.pattern(size, 6), more=True)
             + images.part(images.BOOTSTRAP, images.pattern(min(size, 0x20000), 7)))
    dev.set_partitions(*((p.name, max(p.size, 0x200000), p.erase_size) for p in dev.partitions))
    assert dev.install(image).endswith(SUCCESS)
    whole = 256 + size
    assert dev.partition("bootloader").read(0, whole) == image[:whole]
    assert dev.partition("kernel_2").read(0, whole) == image[whole:2 * whole]
    assert dev.partition("bootstrap").read(0, 0x20000)[:size] == images.pattern(min(size, 0x20000), 7)
    assert dev.env["kernel_size_2"] == f"{size:X}"


@pytest.mark.parametrize("piece", [1, 3, 100, 255, 257])
def test_image_that_arrives_in_pieces(dev, piece):
    dev.boot()
    image = images.part(images.BOOTLOADER, images.pattern(301), more=True) + images.part(images.KERNEL, b"kernel")
    assert dev.install(image, piece=piece, pause=0.001) == images.info(image) + images.info(image[557:]) + SUCCESS
    assert dev.partition("bootloader").read(0, 557) == image[:557]


def test_stream_goes_straight_into_the_flash(dev):
    """In pieces of at most 4096 bytes, each written as it came, without an erase and without reading back."""
    dev.trace("/dev/mtd")
    dev.boot()
    contents = images.pattern(10000)
    assert dev.install(images.part(images.KERNEL, contents)).endswith(SUCCESS)
    writes = [int(event.result) for event in dev.events.of("write")]
    assert writes[0] == 256 and sum(writes) == 10256 and max(writes) <= 4096
    assert {event.path for event in dev.events.of("write")} == {"/dev/mtd6"}
    assert dev.events.of("read") == []
    dev.expect_not_ran("flash_erase", "flashcp")


def test_environment_is_set_last_kernel_size_then_bank(dev):
    dev.boot()
    dev.begin("flash download serial 2")
    first = images.part(images.KERNEL, b"kernel", more=True)
    last = images.part(images.BOOTLOADER, b"loader")
    dev.send_stream(first + last[:-1])
    dev.wait_ran(UNLOCK_BOOTLOADER)
    dev.expect_quiet()
    assert (dev.env["bootbank"], dev.env.get("kernel_size_2")) == ("1", None), "the kernel alone does not count"
    dev.send(last[-1:])
    dev.expect(SUCCESS)
    dev.expect_ran_exactly([UNLOCK_BOOTLOADER, LOCK_BOOTLOADER, *set_environment(2, "6")])


def test_later_kernel_gives_the_size(dev):
    dev.boot()
    image = images.part(images.KERNEL, b"longer kernel", more=True) + images.part(images.KERNEL, b"kernel")
    assert dev.install(image).endswith(SUCCESS)
    assert dev.env["kernel_size_2"] == "6"
    assert dev.partition("kernel_2").read(0, 262) == image[269:]


@pytest.mark.parametrize("flag", [1, 2, 0x80000000, 0xFFFFFFFF, 0x01000000])
def test_any_flag_but_zero_announces_another_part(dev, flag):
    dev.boot()
    first = images.part(images.CONFIG_LOADER, b"config", fields={images.NEXT_HEADER_FLAG: flag})
    last = images.part(images.BOOTLOADER, b"loader")
    assert dev.install(first + last) == images.info(first) + images.info(last) + SUCCESS
    assert dev.partition("bootloader").read(0, len(last)) == last


def test_image_ends_with_its_last_flag_and_the_rest_is_ignored(dev):
    dev.boot()
    image = images.part(images.KERNEL, b"kernel")
    rest = images.part(images.BOOTLOADER, b"reset\rreset\r")
    line = "flash download serial 1 2"
    assert dev.install(image + rest, line, port=2) == images.info(image) + SUCCESS
    dev.expect_quiet()
    dev.expect_ran_exactly(set_environment(1, "6"))
    assert dev.partition("bootloader").read(0, 4) == bytes(4)
    assert dev.install(image, line, port=2) == images.info(image) + SUCCESS


def test_reserved_bytes_and_sizes_of_volumes_do_not_matter(dev):
    dev.boot()
    reserved = (20, 48, 56, 88, 96, 128, 136, 196, images.ROOTFS_SIZE_KIB, 208, images.TOTAL_SIZE_KIB, 216, 252)
    image = images.part(images.KERNEL, b"kernel", fields={offset: 0xDEADBEEF for offset in reserved})
    assert dev.install(image) == images.info(image) + SUCCESS


# ---------------------------------------------------------------------- boot environment images


BOOT_ENV = images.part(images.BOOT_ENV, images.pattern(3000))
WRITE_BOOT_ENV = ["/usr/sbin/flash_unlock /dev/mtd3", "/usr/sbin/flash_lock /dev/mtd3 0 -1"]


def test_boot_environment_is_written_on_clean_flash(dev):
    make_ubi_small(dev).fill()
    dev.boot()
    environment = dict(dev.env)
    dev.command("verbose 4")
    assert dev.install(BOOT_ENV).endswith(BEGIN + images.info(BOOT_ENV) + "INFO: Wrote 1 image parts, skipped 0\n" + SUCCESS)
    assert dev.partition("bootenv_1").read(0, 3000) == BOOT_ENV[256:]
    assert dev.partition("bootenv_2").read(0, 3000) == bytes(3000)
    dev.expect_ran_exactly(WRITE_BOOT_ENV)
    assert dev.sleeps == [1, 2, 1], "2 s before the flash is looked at"
    assert dict(dev.env) == environment


def test_boot_environment_is_skipped_on_flash_in_use(dev):
    dev.boot()
    environment = dict(dev.env)
    dev.command("verbose 4")
    assert dev.install(BOOT_ENV).endswith(
        BEGIN + images.info(BOOT_ENV) + SKIPPED_BOOT_ENV + "INFO: Wrote 0 image parts, skipped 1\n" + SUCCESS)
    assert dev.partition("bootenv_1").read(0, 3000) == bytes(3000)
    dev.expect_ran_exactly([])
    assert dict(dev.env) == environment
    expect_at_rest(dev)


@pytest.mark.parametrize("size", [0, 1, 5000])
def test_part_behind_a_skipped_boot_environment_is_found(dev, size):
    dev.boot()
    skipped = images.part(images.BOOT_ENV, images.pattern(size), more=True)
    kernel = images.part(images.KERNEL, b"kernel")
    assert dev.install(skipped + kernel) == images.info(skipped) + SKIPPED_BOOT_ENV + images.info(kernel) + SUCCESS
    assert dev.partition("kernel_2").read(0, len(kernel)) == kernel
    assert dev.partition("bootenv_1").read(0, 1) == b"\0"
    dev.expect_ran_exactly(set_environment(2, "6"))


def test_skipped_boot_environment_is_taken_off_the_line_byte_by_byte(dev):
    dev.boot()
    dev.trace("/dev/ttyS2")
    image = images.part(images.BOOT_ENV, images.pattern(100))
    assert dev.install(image, "flash download serial 1 2", port=2).endswith(SUCCESS)
    reads = [event.result for event in dev.events.of("read")]
    assert reads[-100:] == ["1"] * 100 and sum(map(int, reads[:-100])) == 256, "the header, then the contents"


def test_checksum_of_a_skipped_boot_environment_is_not_looked_at(dev):
    dev.boot()
    assert dev.install(BOOT_ENV[:-1] + b"!") == images.info(BOOT_ENV) + SKIPPED_BOOT_ENV + SUCCESS


def test_bad_block_does_not_count_for_clean_flash(dev):
    ubi = make_ubi_small(dev)
    ubi.fill()
    ubi.write(b"\0" * 0x20000, 0x20000)
    for offset in range(0x20000, 0x40000, 1024):
        ubi.mark_bad(offset)
    dev.boot()
    assert dev.install(BOOT_ENV).endswith(SUCCESS)
    dev.expect_ran_exactly(WRITE_BOOT_ENV)


# ---------------------------------------------------------------------- flash and environment that do not take it


@pytest.mark.parametrize("outcome, count", [
    ({"error": "EIO"}, -1), ({"error": None, "result": 100}, 100)], ids=["failed write", "short write"])
def test_write_that_fails_is_no_error_but_counted(dev, outcome, count):
    """The flash driver's own checks are trusted; only the count tells."""
    dev.boot()
    dev.command("verbose 6")
    image = images.part(images.KERNEL, bytes(512))
    dev.fail_call("write", "/dev/mtd6", after=1, times=1, **outcome)
    dev.begin("flash download serial 2")
    dev.send_stream(image[:256])
    dev.send(image[256:])
    shown = dev.text_until_prompt()
    written = int(re.search(r"received 512 bytes, written (-?\d+) bytes to flash\n", shown)[1])
    (caught,) = dev.events.of("caught")
    assert (caught.subject, int(caught.result)) == ("/dev/mtd6", count)
    assert written < 512 and shown.endswith(SUCCESS)


def test_header_that_was_not_written_is_no_error(dev):
    dev.boot()
    image = images.part(images.KERNEL, b"kernel")
    dev.fail_call("write", "/dev/mtd6", times=1)
    assert dev.install(image) == images.info(image) + SUCCESS


def failed_setting(name, value, status="sys_rc=256 exitstatus=1"):
    return (f"ERROR: system(/usr/sbin/fw_setenv {name} {value} > /dev/null 2>&1) {status}\n"
            f"ERROR: Failed to set {name}={value} in the boot environment\n")


def test_kernel_size_cannot_be_set(dev):
    dev.boot()
    dev.answer("fw_setenv", when="kernel_size_2", status=1)
    image = images.part(images.KERNEL, b"kernel")
    assert dev.install(image) == images.info(image) + failed_setting("kernel_size_2", "6") + NOT_INSTALLED
    assert (dev.env["bootbank"], dev.env.get("kernel_size_2")) == ("1", None), "the bank that worked is booted"
    dev.expect_ran_exactly(["/usr/sbin/fw_setenv kernel_size_2 6"])
    expect_at_rest(dev)


def test_bank_cannot_be_set(dev):
    dev.boot()
    dev.answer("fw_setenv", when="bootbank", status=3)
    image = images.part(images.KERNEL, b"kernel")
    assert dev.install(image) == (images.info(image)
                                    + failed_setting("bootbank", "2", "sys_rc=768 exitstatus=3") + NOT_INSTALLED)
    assert (dev.env["bootbank"], dev.env["kernel_size_2"]) == ("1", "6")
    expect_at_rest(dev)


def test_nothing_can_be_set(dev):
    dev.boot()
    dev.remove("/usr/sbin/fw_setenv")
    image = images.part(images.KERNEL, b"kernel")
    missing = "sys_rc=32512 exitstatus=127"
    assert dev.install(image, "flash download serial single") == (
        images.info(image) + failed_setting("kernel_size_single", "6", missing) + NOT_INSTALLED)
    expect_at_rest(dev)


# ---------------------------------------------------------------------- ports the device does not have


def test_console_at_a_speed_that_no_transfer_has(dev):
    """Such a speed cannot be asked for, but the kernel command line may have it."""
    dev.cmdline("cli_console=ttyS1,4800")
    dev.boot()
    dev.begin("flash download serial")
    assert re.fullmatch(r"tty_open_raw: speed: .*\nERROR: Failed to open serial port \(.*\)\n"
                        + re.escape(NOT_INSTALLED), dev.text_until_prompt())
    assert dev.install(image_that_fails(), "flash download serial 1 1 9600").endswith(NOT_INSTALLED)
