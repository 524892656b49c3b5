"""The table of what each partition holds."""

import os
import signal
import struct
import zlib

import pytest

import images
from flash_table import HEADING, NAMES, row, table
from texts import FAILURE, SUCCESS

UBI_SIZE = 0x40000  # two erase blocks: the clean check reads the whole partition
NOT_LOOKED_AT = ("-", "-", "-", f"{UBI_SIZE:x}")


@pytest.fixture
def flash(dev):
    """A device whose flash is erased, with small partitions."""
    dev.set_partitions(*((name, UBI_SIZE if name == "ubi0" else 0x10000, 0x20000 if name == "ubi0" else 0x10000)
                         for name in NAMES[:11]))
    for partition in dev.partitions:
        partition.fill()
    return dev


def environment(size, text=b"bootbank=1\0bootdelay=3\0\0"):
    body = text + b"\xff" * (size - 4 - len(text))
    return struct.pack("<I", zlib.crc32(body)) + body


def bootstrap(size=0x1234, name=b"Solvantra TK10 Bootstrap 1.5"):
    code = bytearray(images.pattern(max(size, 256), 9))
    code[20:24] = struct.pack("<I", size)
    code[60:124] = name.ljust(64, b"\0")
    return bytes(code)


def record(*items):
    body = b"".join(bytes([kind]) + struct.pack("<H", len(value)) + value for kind, value in items)
    words = struct.pack("<H", 4 + len(body)) + body
    total = sum(byte << (8 * (at % 2)) for at, byte in enumerate(words))
    return struct.pack("<H", -total % 65536) + words


def analyze(dev):
    return dev.command("flash analyze", timeout=60)


def test_erased_flash_is_clean(flash):
    flash.boot()
    assert analyze(flash) == table(ubi0=NOT_LOOKED_AT) + SUCCESS
    flash.expect_not_ran("ubiattach", "mount")
    # Once for all UBI volumes, and for each partition that nothing was found in.
    assert flash.sleeps.count(2) == 1 + 9


def test_an_argument_is_refused(dev):
    dev.boot()
    assert dev.command("flash analyze all") == "ERROR: Invalid parameter 'all'\n"


def test_everything_that_can_be_recognised(flash):
    loader = images.part(images.BOOTLOADER, images.pattern(3000, 1), version=(1, 2, 3, 4, "A", 5), code=b"TK")
    kernel = images.part(images.KERNEL, images.pattern(4001, 2), version=(3, 1, 0, 0, "R", 1), code=b"AB")
    config = images.part(images.CONFIG_LOADER, images.pattern(77, 3))
    product = record((6, b"TK10 device server v2.0.1"), (11, b"P2XY"))
    flash.partition("bootstrap").write(bootstrap())
    flash.partition("prod_config").write(product)
    flash.partition("bootloader").write(loader)
    flash.partition("bootenv_1").write(environment(0x4000))
    flash.partition("bootenv_2").write(environment(0x1000))
    flash.partition("kernel_1").write(kernel)
    flash.partition("kernel_2").write(b"garbage")
    flash.partition("config_loader").write(config)
    flash.partition("param_space").write(b"\0")
    flash.boot()
    used = f"{4 + len(b'bootbank=1') + 1 + len(b'bootdelay=3') + 2:x}"
    assert analyze(flash) == table(
        bootstrap=("active", "1.5", "-", "1234", f"{images.checksum(bootstrap()):08x}"),
        prod_config=("active", "2.0.1", "-", f"{len(product):x}",
                     f"{struct.unpack_from('<H', product)[0]:08x}"),
        bootloader=("active", "1.2.3.4A5", "TK", "bb8", f"{images.field(loader, 16):08x}"),
        bootenv_1=("active", "-", "-", used, f"{zlib.crc32(environment(0x4000)[4:]):08x}"),
        bootenv_2=("active", "-", "-", used, f"{zlib.crc32(environment(0x1000)[4:]):08x}"),
        kernel_1=("active", "3.1.0.0R1", "AB", "fa1", f"{images.field(kernel, 16):08x}"),
        kernel_2=("dirty",),
        config_loader=("active", "-", "-", "4d", f"{images.field(config, 16):08x}"),
        param_space=("dirty",), ubi0=NOT_LOOKED_AT) + SUCCESS


@pytest.mark.parametrize("size, known", [(255, False), (256, True), (16384, True), (16385, False)])
def test_size_word_of_a_bootstrap(flash, size, known):
    flash.partition("bootstrap").write(bootstrap(size))
    flash.boot()
    line = analyze(flash).splitlines(keepends=True)[3]
    assert line == (row("bootstrap", "active", "1.5", size=f"{size:x}",
                        crc=f"{images.checksum(bootstrap(size)[:size]):08x}") if known else row("bootstrap", "dirty"))


@pytest.mark.parametrize("name, version", [
    (b"Solvantra TK10 Bootstrap", "-"),
    (b"another loader 1.5", "-"),
    (b"Solvantra TK10 Bootstrap 1.5 of May", "1.5"),
    (b"Solvantra TK10 Bootstrap " + b"9" * 39, "9" * 16),
], ids=["no version", "another name", "words behind it", "too long"])
def test_name_of_a_bootstrap(flash, name, version):
    code = bootstrap(name=name)
    flash.partition("bootstrap").write(code)
    flash.boot()
    assert row("bootstrap", "active", version, size="1234", crc=f"{images.checksum(code):08x}") in analyze(flash)


@pytest.mark.parametrize("description, version", [
    (b"TK10", ""), (b"TK10v2", ""), (b"TK10 v", ""), (b"TK10 v1 v2", "1 v2"),
    (b"TK10 v0123456789ABCDEFGH", "0123456789ABCDEF"),
], ids=["none", "no blank", "empty", "the first counts", "too long"])
def test_version_in_the_product_description(flash, description, version):
    product = record((6, description), (11, b"P2XY"))
    flash.partition("prod_config").write(product)
    flash.boot()
    crc = struct.unpack_from("<H", product)[0]
    assert row("prod_config", "active", version, size=f"{len(product):x}", crc=f"{crc:08x}") in analyze(flash)


def test_version_at_the_end_of_a_description_that_fills_its_field(flash):
    product = record((1, b"MACADR"), (6, b"x" * 50 + b" v3.1.0.0R12.4"[:14]))
    flash.partition("prod_config").write(product)
    flash.boot()
    crc = struct.unpack_from("<H", product)[0]
    assert row("prod_config", "active", "3.1.0.0R12.4", size=f"{len(product):x}", crc=f"{crc:08x}") in analyze(flash)


def test_control_bytes_are_not_sent_to_the_terminal(flash):
    """Escape sequences, bells and C1 controls of a version, whoever wrote it."""
    loader = images.part(images.BOOTLOADER, b"loader", version=(1, 2, 3, 4, "\x1b", 5))
    product = record((6, b"TK10 v\x1b[2J\x07\x9b"))
    flash.partition("bootloader").write(loader)
    flash.partition("bootstrap").write(bootstrap(name=b"Solvantra TK10 Bootstrap \x1b[31m\x7f"))
    flash.partition("prod_config").write(product)
    flash.boot()
    screen = analyze(flash)
    assert row("bootloader", "active", "1.2.3.4?5", size="6", crc=f"{images.field(loader, 16):08x}") in screen
    crc = struct.unpack_from("<H", product)[0]
    assert row("prod_config", "active", "?[2J??", size=f"{len(product):x}", crc=f"{crc:08x}") in screen
    assert "active    ?[31m?       " in screen


def test_checksum_of_zero_is_not_shown(flash):
    """The word behind the size makes the sum what it has to be."""
    code = bytearray(b"\xff" * 256)
    code[20:24] = struct.pack("<I", 256)
    code[60:124] = b"Solvantra TK10 Bootstrap 2".ljust(64, b"\0")
    code[252:256] = bytes(4)
    code[252:256] = struct.pack(">I", images.checksum(bytes(code)))
    assert images.checksum(bytes(code)) == 0
    flash.partition("bootstrap").write(bytes(code))
    flash.boot()
    assert row("bootstrap", "active", "2", size="100") in analyze(flash)


@pytest.mark.parametrize("in_use, number", [(False, 1), (True, 0)])
def test_clean_ubi_partition_is_told_at_verbosity_6(flash, in_use, number):
    if in_use:
        flash.partition("ubi0").write(b"UBI#")
        flash.answer("mount", status=32)
    flash.boot()
    flash.command("verbose 6")
    screen = analyze(flash)
    assert screen.count("ubi0_is_clean=") == 1 and HEADING + f"VERBOSE: ubi0_is_clean={number}\n" in screen


def test_without_a_boot_bank_the_first_one_is_active(flash):
    kernels = [images.part(images.KERNEL, images.pattern(50, n)) for n in (1, 2)]
    for number, kernel in enumerate(kernels, 1):
        flash.partition(f"kernel_{number}").write(kernel)
    del flash.env["bootbank"]
    flash.boot()
    screen = analyze(flash)
    for name, status, kernel in zip(("kernel_1", "kernel_2"), ("active", "inactive"), kernels):
        assert row(name, status, size="32", crc=f"{images.field(kernel, 16):08x}") in screen
    assert row("kernel_single") in screen


def test_bank_that_is_not_active(flash):
    kernel = images.part(images.KERNEL, images.pattern(50, 2))
    flash.partition("kernel_1").write(kernel)
    flash.env["bootbank"] = "2"
    flash.boot()
    assert row("kernel_1", "inactive", size="32", crc=f"{images.field(kernel, 16):08x}") in analyze(flash)


def test_rows_of_the_other_schema_say_nothing(flash):
    flash.env["bootbank"] = "single"
    flash.boot()
    screen = analyze(flash)
    for name in "kernel_1", "kernel_2", "rootfs_1", "rootfs_2":
        assert row(name) in screen
    assert row("kernel_single", "clean") in screen


@pytest.mark.parametrize("damage", [
    lambda image: images.with_field(image, images.CONTENTS_TYPE, images.BOOTLOADER),
    lambda image: images.sign(images.with_field(image[:256], images.CONTENTS_TYPE, images.BOOTLOADER)) + image[256:],
    lambda image: image[:-1] + b"\0",
    lambda image: b"k" + image[1:],
], ids=["header checksum", "other type", "contents", "header id"])
def test_kernel_that_is_not_one(flash, damage):
    flash.partition("kernel_1").write(damage(images.part(images.KERNEL, images.pattern(50, 2))))
    flash.boot()
    assert row("kernel_1", "dirty") in analyze(flash)


def test_header_that_lies_about_its_length(flash):
    header = images.header(images.KERNEL, fields={images.CONTENTS_LENGTH: 0xFFFFFFFF, images.FINAL_LENGTH: 0xFFFFFFFF})
    flash.partition("kernel_1").write(header)
    flash.boot()
    screen = analyze(flash)
    assert "ERROR: Short read (768/1024 bytes) at /dev/mtd5 offset 0x0000fd00\n" in screen
    assert screen.endswith(SUCCESS)


def test_environment_is_found_at_the_first_length_that_fits(flash):
    flash.partition("bootenv_1").write(environment(0x1000))
    flash.boot()
    flash.command("verbose 6")
    assert "VERBOSE: flash_analyze_boot_env: max_size=4096, used_size=28\n" in analyze(flash)


def test_environment_of_the_whole_partition(flash):
    flash.partition("bootenv_1").write(environment(0x10000))
    flash.boot()
    flash.command("verbose 6")
    assert "VERBOSE: flash_analyze_boot_env: max_size=65536, used_size=28\n" in analyze(flash)


def test_redundant_layout_is_dirty(flash):
    body = environment(0x1000)
    flash.partition("bootenv_1").write(body[:4] + b"\1" + body[4:-1])
    flash.boot()
    assert row("bootenv_1", "dirty") in analyze(flash)


def test_bad_block_in_clean_flash(flash):
    flash.partition("ubi0").write(b"\0" * 16, 0x20000)
    flash.partition("ubi0").mark_bad(0x20000)
    flash.boot()
    assert row("rootfs_1", "clean") in analyze(flash)


# ---------------------------------------------------------------------- UBI volumes

PRODUCT_INFO = 'NAME="device"\nVEXO_PRODUCT_VERSION="3.1.0.0R1"\nVEXO_PRODUCT_CODE="K1"\n'


@pytest.fixture
def formatted(flash):
    """A device whose UBI partition holds volumes. There is one mount point, so all show the same file system."""
    flash.partition("ubi0").write(b"UBI#")
    for volume in range(5):
        directory = flash.path(f"/sys/class/ubi/ubi0/ubi0_{volume}")
        directory.mkdir(parents=True)
        (directory / "data_bytes").write_text(f"{0x100000 * (volume + 1)}\n")
    flash.path("/mnt/etc").mkdir(parents=True)
    return flash


def put_info(dev, text):
    dev.path("/mnt/etc/.vexo_product_info").write_text(text)


def test_volume_is_attached_and_mounted_for_its_row_only(formatted):
    put_info(formatted, PRODUCT_INFO)
    formatted.boot()
    screen = analyze(formatted)
    assert row("rootfs_1", "active", "3.1.0.0R1", "K1", "100000") in screen
    assert row("rootfs_2", "inactive", "3.1.0.0R1", "K1", "200000") in screen
    assert row("rootfs_single") in screen
    assert row("vexo_user", "active", "3.1.0.0R1", "K1", "500000") in screen
    one = ["/usr/sbin/ubiattach /dev/ubi_ctrl -d 0 -p /dev/mtd10 &> /dev/null", "/sbin/mdev -s &> /dev/null",
           "/bin/mount -t ubifs -o sync,compr=zlib ubi0:{} /mnt &> /dev/null", "/bin/umount /mnt &> /dev/null",
           "/usr/sbin/ubidetach /dev/ubi_ctrl -p /dev/mtd10 &> /dev/null"]
    assert formatted.shell_lines[-20:] == [
        line.format(name) for name in ("rootfs_1", "rootfs_2", "vexo_private", "vexo_user") for line in one]


@pytest.mark.parametrize("text, version, code", [
    ("", "-", "-"),
    ('VEXO_PRODUCT_VERSION=""\n', "-", "-"),
    ('VEXO_PRODUCT_VERSION="\n', "-", "-"),
    ("VEXO_PRODUCT_VERSION=1.0\n", "-", "-"),
    ('VEXO_PRODUCT_VERSION="1"0"\n', '1"0', "-"),
    ('"x" VEXO_PRODUCT_VERSION="2"\n', "2", "-"),
    ('VEXO_PRODUCT_VERSION="1"\nVEXO_PRODUCT_VERSION="2"\n', "2", "-"),
    ('VEXO_PRODUCT_VERSION="0123456789ABCDEF"\n', "0123456789ABCDEF", "-"),
    ('VEXO_PRODUCT_VERSION="0123456789ABCDEFGH"\n', "0123456789ABCDEF", "-"),
    ('VEXO_PRODUCT_CODE="ABCDEF"\n', "-", "ABCD"),
    ('VEXO_PRODUCT_VERSION="%d%%"\nVEXO_PRODUCT_CODE="%d%%"\n', "%d%%", "%d%%"),
    ('VEXO_PRODUCT_VERSION="VEXO_PRODUCT_CODE"\n', "VEXO_PRODUCT_COD", "-"),
    ("VEXO_PRODUCT_VERSION=" + '"' + "9" * 300 + '"\n', "-", "-"),
    ('VEXO_PRODUCT_VERSION="1" VEXO_PRODUCT_CODE="K1"\n', '1" VEXO_PRODUCT_', "-"),
    ('VEXO_PRODUCT_CODE="K1" VEXO_PRODUCT_VERSION="1"\n', "1", "-"),
    ('VEXO_PRODUCT_VERSION="0123456789AB"\nVEXO_PRODUCT_VERSION="1.0"\n', "1.0", "-"),
    ('VEXO_PRODUCT_CODE="ABCD"\nVEXO_PRODUCT_CODE="K"\n', "-", "K"),
    ('VEXO_PRODUCT_VERSION="\x1b[2J1\x08"\nVEXO_PRODUCT_CODE="\x1bc"\n', "?[2J1?", "?c"),
])
def test_product_information(formatted, text, version, code):
    put_info(formatted, text)
    formatted.boot()
    assert row("rootfs_1", "active", version, code, "100000") in analyze(formatted)


def test_volume_without_product_information(formatted):
    formatted.boot()
    assert row("rootfs_1", "active", size="100000") in analyze(formatted)


@pytest.mark.parametrize("make", [os.mkfifo, os.mkdir, lambda path: os.symlink("/dev/full", path),
                                  lambda path: os.symlink("nowhere", path)],
                         ids=["pipe", "directory", "device", "dangling link"])
def test_what_is_no_file_is_no_product_information(formatted, make):
    make(formatted.path("/mnt/etc/.vexo_product_info"))
    formatted.boot()
    formatted.trace("/mnt", "/dev/full")
    assert row("rootfs_1", "active", size="100000") in analyze(formatted)
    assert not [event for event in formatted.events.of("open") if event.path.startswith(("/mnt", "/dev/full"))]


def test_volume_that_sysfs_does_not_know(formatted):
    formatted.remove("/sys/class/ubi/ubi0/ubi0_0/data_bytes")
    formatted.boot()
    assert row("rootfs_1", "active", size="f" * 16) in analyze(formatted)


def test_volume_that_cannot_be_mounted_is_dirty(formatted):
    formatted.answer("mount", status=32)
    formatted.boot()
    formatted.mark()
    assert row("rootfs_1", "dirty") in analyze(formatted)
    # The UBI partition is looked at once, whatever its volumes hold; nine others were not recognised.
    assert formatted.sleeps.count(2) == 1 + 9


def test_size_of_a_split_partition_comes_from_the_environment(flash):
    flash.env["mtdparts"] = "atmel_nand:128k(ubi0),-(user)"
    flash.boot()
    assert "ubi0            -   -         -            -       20000         -\n" in analyze(flash)


# ---------------------------------------------------------------------- interruption


def test_ctrl_c_ends_the_table(flash):
    flash.sleep_scale = 3  # the key comes within the pauses before mtd1 and mtd2 are read
    flash.boot()
    flash.type("flash analyze")
    flash.expect("mtd0       bootstrap       -   ")
    flash.trace("/dev/mtd0")
    flash.interrupt()
    rest_of_row = row("bootstrap").removeprefix("mtd0       bootstrap       -   ")
    assert flash.text_until_prompt() == rest_of_row + "\nERROR: Terminated by signal\n" + FAILURE
    assert flash.ignores(2)
    assert "read /dev/mtd0 1024" not in map(str, flash.events), "the check that Ctrl-C ended goes on reading"
    # Nor does it make flash dirty for a command that does not hear it.
    flash.sleep_scale = 0.01
    assert flash.command("show oem").endswith("OEM Defaults File: Not Present\n")
    flash.expect_not_ran("ubiattach")


def test_ctrl_c_that_ends_the_question_for_the_size_makes_the_partition_no_larger(flash):
    flash.env["mtdparts"] = "atmel_nand:128k(ubi0),-(user)"
    flash.boot()
    flash.answer("fw_printenv", when="mtdparts", hold=60, times=1)
    flash.type("flash analyze")
    flash.wait_for("answer")
    flash.interrupt()
    screen = flash.text_until_prompt()
    assert "ubi0            -   -         -            -           -         -\n" in screen
    assert screen.endswith("\n\nERROR: Terminated by signal\n" + FAILURE)


def test_ctrl_c_that_ends_a_tool_leaves_the_row_without_a_status(formatted):
    formatted.answer("mount", hold=60, times=1)
    formatted.boot()
    formatted.type("flash analyze")
    formatted.wait_for("answer")
    formatted.interrupt()
    assert row("rootfs_1") in formatted.text_until_prompt()


@pytest.mark.parametrize("tool", ["umount", "ubidetach"])
def test_ctrl_c_while_the_volume_is_given_back_ends_the_table_afterwards(formatted, tool):
    formatted.answer(tool, held="begin", times=1)
    formatted.boot()
    formatted.mark()
    formatted.type("flash analyze")
    formatted.wait_for("run", "default", {"umount": "/bin/umount", "ubidetach": "/usr/sbin/ubidetach"}[tool])
    formatted.interrupt()
    formatted.wait_until(lambda: int(formatted.status("ShdPnd"), 16) >> (signal.SIGINT - 1) & 1)
    formatted.release(tool)
    screen = formatted.text_until_prompt()
    assert screen.endswith("\n\nERROR: Terminated by signal\n" + FAILURE)
    assert "rootfs_2" not in screen
    assert formatted.ran[-2:] == ["/bin/umount /mnt", "/usr/sbin/ubidetach /dev/ubi_ctrl -p /dev/mtd10"]
    assert [str(event) for event in formatted.events.of("exit")][-2:] == ["exit umount 0", "exit ubidetach 0"]
    assert formatted.ignores(2)


def test_ctrl_c_that_ends_a_tool_ends_the_table(formatted):
    formatted.answer("ubiattach", hold=60, times=1)
    formatted.boot()
    formatted.type("flash analyze")
    formatted.wait_for("answer")
    formatted.interrupt()
    screen = formatted.text_until_prompt()
    assert screen.endswith("\n\nERROR: Terminated by signal\n" + FAILURE)
    assert "rootfs_2" not in screen
    assert formatted.ignores(2)


def test_a_tool_that_answers_like_one_ended_by_ctrl_c_ends_nothing(formatted):
    formatted.answer("ubiattach", status=130, times=1)
    formatted.boot()
    screen = analyze(formatted)
    assert "rootfs_2" in screen
    assert screen.endswith("\n" + SUCCESS)
