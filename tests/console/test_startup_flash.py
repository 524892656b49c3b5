"""What start-up finds in the kernel's list of partitions, and what later commands make of it: they write to the nodes
that the list gave, and ask the partition that was split off whether the flash is clean."""

import pytest

import images
from texts import SUCCESS, errors

CREATE, DELETE = 0x40044D17, 0x40044D18
MIB = 1 << 20
GIB = 1 << 30
REPARTITION_FAILED = "ERROR: Failed to repartition ubi mtd!!!"

KERNEL = images.part(images.KERNEL, b"kernel")
BOOT_ENV = images.part(images.BOOT_ENV, b"bootenv")


def set_sizes(dev, **sizes):
    """The usual partitions, some of them of another size."""
    dev.set_partitions(*((p.name, sizes.get(p.name, p.size), p.erase_size) for p in dev.partitions))


def node_asked_for_clean_flash(dev):
    """The node that a boot environment image makes the installer read."""
    dev.trace("/dev/mtd")
    assert dev.install(BOOT_ENV).endswith(SUCCESS)
    return next(event.path for event in dev.events.of("open") if event.path.startswith("/dev/mtd"))


# ---------------------------------------------------------------------- what mtdparts may say


@pytest.mark.parametrize("mtdparts, size", [
    ("atmel_nand:131071k(ubi0),-(user)", 128 * MIB - 1024),
    ("atmel_nand:1k(ubi0),-(user)", 1024),
    ("atmel_nand:65536k(ubi0)", 64 * MIB),
    ("atmel_nand:65536k(ubi0),32768k(more),-(user)", 64 * MIB),
    ("atmel_nand:65536k(ubi0_and_more),-(user)", 64 * MIB),
    ("atmel_nand:65536k(ubi0),-(user) ignored", 64 * MIB),
])
def test_value_that_names_a_smaller_ubi_partition(dev, mtdparts, size):
    dev.env["mtdparts"] = mtdparts
    assert errors(dev.boot()) == []
    create, delete = dev.startup.ioctls
    assert (create.path, create.request) == ("/dev/mtd10", CREATE)
    assert [tuple(record) for record in create.partitions] == [
        ("ubi0", size, 0, 0), ("user", 128 * MIB - size, size, 0)]
    assert len(create.argument) == 2 * 56
    assert (delete.path, delete.request, delete.argument) == ("/dev/mtd0", DELETE, bytes([10, 0, 0, 0]))


@pytest.mark.parametrize("mtdparts", [
    "atmel_nand:131072k(ubi0),-(user)",  # just as large
    "atmel_nand:131073k(ubi0),-(user)",
    "atmel_nand:4194304k(ubi0),-(user)",  # 4 GiB
    "atmel_nand:81920k(other),-(user)",
    "81920k(ubi0),-(user)",
    "",
    "atmel_nand:65536k(ubi),-(user)",
    "atmel_nand:65536k(UBI0),-(user)",
    "atmel_nand:65536k(user),-(ubi0)",
    "atmel_nand:64m(ubi0),-(user)",
    "atmel_nand:65536(ubi0),-(user)",
    "atmel_nand:k(ubi0),-(user)",
    "atmel_nand:-(ubi0)",
    "atmel_nand:65536k()",
    "other_nand:65536k(ubi0),-(user)",
    "mtdparts=atmel_nand:65536k(ubi0),-(user)",
    "atmel_nand:4259840k(ubi0),-(user)",  # 4 GiB + 64 MiB
])
def test_value_that_names_no_smaller_ubi_partition(dev, mtdparts):
    dev.env["mtdparts"] = mtdparts
    assert errors(dev.boot()) == []
    assert dev.startup.ioctls == []
    assert dev.startup.shell_lines == ["/usr/sbin/fw_printenv -n mtdparts 2>/dev/null"]


def test_environment_tool_fails_after_its_answer(dev):
    dev.answer("fw_printenv", when="mtdparts", stdout="atmel_nand:65536k(ubi0),-(user)\n", status=1)
    assert errors(dev.boot()) == []
    assert dev.startup.ioctls == []


def test_size_zero_is_refused_by_the_kernel(dev):
    dev.env["mtdparts"] = "atmel_nand:0k(ubi0),-(user)"
    assert errors(dev.boot()) == ["ERROR: partition creation failed on /dev/mtd10", REPARTITION_FAILED]
    (create,) = dev.startup.ioctls
    assert [record.size for record in create.partitions] == [0, 128 * MIB]


def test_sizes_beyond_32_bits(dev):
    set_sizes(dev, ubi0=6 * GIB)
    dev.env["mtdparts"] = "atmel_nand:5242880k(ubi0),-(user)"
    assert errors(dev.boot()) == []
    assert [tuple(record) for record in dev.startup.ioctls[0].partitions] == [
        ("ubi0", 5 * GIB, 0, 0), ("user", 1 * GIB, 5 * GIB, 0)]


# ---------------------------------------------------------------------- split that fails half way


def test_no_node_to_delete_the_old_partition_through(dev):
    dev.env["mtdparts"] = "atmel_nand:65536k(ubi0),-(user)"
    dev.remove("/dev/mtd0")
    assert errors(dev.boot()) == ["ERROR: mtd_partition_split: File open error on /dev/mtd0", REPARTITION_FAILED]
    assert [event.request for event in dev.startup.ioctls] == [CREATE]


def test_failed_split_is_reported_below_the_console_settings_and_the_shell_comes_up(dev):
    dev.env["mtdparts"] = "atmel_nand:65536k(ubi0),-(user)"
    dev.answer_ioctl(CREATE, "/dev/mtd10", error="EINVAL")
    text = dev.boot()
    assert (f"  Term:   n/a\n\nERROR: partition creation failed on /dev/mtd10\n{REPARTITION_FAILED}\n"
            "Zentavio Solvantra Recovery Loader") in text
    assert dev.command("quit") == ""


def test_next_start_tries_a_failed_split_again(dev):
    dev.env["mtdparts"] = "atmel_nand:65536k(ubi0),-(user)"
    dev.answer_ioctl(CREATE, "/dev/mtd10", error="EBUSY", times=1)
    dev.boot()
    dev.kill()
    dev.boot()
    assert [(event.request, event.result) for event in dev.all_events.ioctls] == [
        (CREATE, "EBUSY"), (CREATE, "0"), (DELETE, "0")]
    assert [(p.name, p.number, p.size) for p in dev.partitions[10:]] == [
        ("ubi0", 11, 64 * MIB), ("user", 12, 64 * MIB)]


# ---------------------------------------------------------------------- device nodes


def test_nodes_follow_the_split(dev):
    dev.env["mtdparts"] = "atmel_nand:65536k(ubi0),-(user)"
    dev.boot()
    assert node_asked_for_clean_flash(dev) == "/dev/mtd11"


def test_nodes_stay_when_there_is_nothing_to_split(dev):
    dev.boot()
    assert node_asked_for_clean_flash(dev) == "/dev/mtd10"


def test_old_node_stays_when_the_old_partition_could_not_be_deleted(dev):
    """Two partitions have the name then; the first in the kernel's order counts."""
    dev.env["mtdparts"] = "atmel_nand:65536k(ubi0),-(user)"
    dev.answer_ioctl(DELETE, "/dev/mtd0", error="EBUSY")
    dev.boot()
    assert [(p.name, p.number) for p in dev.partitions[10:]] == [("ubi0", 10), ("ubi0", 11), ("user", 12)]
    assert node_asked_for_clean_flash(dev) == "/dev/mtd10"


def test_nodes_are_those_of_the_kernel_whatever_its_order(dev):
    rows = [(p.name, p.size, p.erase_size) for p in dev.partitions]
    dev.set_partitions(*reversed(rows))
    dev.boot()
    assert dev.install(KERNEL).endswith(SUCCESS)
    assert dev.partition("kernel_2").number == 4
    assert dev.partition("kernel_2").read(0, len(KERNEL)) == KERNEL
    loader = images.part(images.BOOTLOADER, b"loader")
    assert dev.install(loader).endswith(SUCCESS)
    assert dev.partition("bootloader").read(0, len(loader)) == loader
    dev.expect_ran_exactly(["/usr/sbin/flash_unlock /dev/mtd8", "/usr/sbin/flash_lock /dev/mtd8 0 -1"])


def test_partition_number_of_two_digits(dev):
    rows = [(p.name, p.size, p.erase_size) for p in dev.partitions]
    spare = [(f"spare_{number}", 0x10000, 0x10000) for number in range(90)]
    dev.set_partitions(*spare, *rows)
    dev.boot()
    assert dev.install(KERNEL).endswith(SUCCESS)
    assert dev.partition("kernel_2").number == 96
    assert dev.partition("kernel_2").read(0, len(KERNEL)) == KERNEL


def test_partition_that_the_kernel_does_not_list_keeps_its_usual_node(dev):
    rows = [(p.name, p.size, p.erase_size) for p in dev.partitions]
    dev.set_partitions(*(row if row[0] != "kernel_2" else ("other", *row[1:]) for row in rows))
    dev.boot()
    assert dev.install(KERNEL).endswith(SUCCESS)
    assert dev.partition("other").read(0, len(KERNEL)) == KERNEL, "/dev/mtd6"


def test_nodes_are_the_usual_ones_without_a_list(dev):
    kernel_2 = dev.partition("kernel_2")
    dev.remove("/proc/mtd")
    dev.boot()
    assert dev.install(KERNEL).endswith(SUCCESS)
    assert kernel_2.read(0, len(KERNEL)) == KERNEL


def test_name_inside_an_earlier_name_finds_the_earlier_partition(dev):
    rows = [(p.name, p.size, p.erase_size) for p in dev.partitions]
    dev.set_partitions(("old_kernel_2", 0x10000, 0x10000), *rows)
    dev.boot()
    assert dev.install(KERNEL).endswith(SUCCESS)
    assert dev.partition("old_kernel_2").read(0, len(KERNEL)) == KERNEL
    assert dev.partition("kernel_2").read(0, len(KERNEL)) == bytes(len(KERNEL))


def test_size_is_that_of_the_first_line_with_the_name(dev):
    rows = [(p.name, p.size, p.erase_size) for p in dev.partitions]
    dev.set_partitions(("ubi0_spare", 32 * MIB, 0x20000), *rows)
    dev.env["mtdparts"] = "atmel_nand:65536k(ubi0),-(user)"
    assert errors(dev.boot()) == []
    assert dev.startup.ioctls == [], "32 MiB is not more than 64 MiB"


def test_partition_without_a_name_that_need_not_be_split(dev):
    dev.set_partitions(("<NULL>", 64 * MIB, 0x20000), ("prod_config", 0x10000, 0x10000))
    dev.env["mtdparts"] = "atmel_nand:65536k(ubi0),-(user)"
    assert errors(dev.boot()) == []
    assert dev.startup.ioctls == []


def test_heading_is_no_partition(dev):
    """The heading's words may be a partition's name."""
    dev.path("/proc/mtd").write_text('ubi0:    size   erasesize  name\nmtd3: 02000000 00020000 "ubi0"\n')
    dev.path("/dev/mtd3").write_bytes(b"")
    dev.env["mtdparts"] = "atmel_nand:16384k(ubi0),-(user)"
    assert errors(dev.boot()) == []
    assert dev.startup.ioctls[0].path == "/dev/mtd3"
