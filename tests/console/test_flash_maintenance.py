"""Listing and wiping partitions: flash info, flash clean and flash kill in all their forms."""

import pytest

from texts import FAILURE, QUESTION, SETTING_DEFAULTS, SUCCESS

TABLE = """\
serial  mtd0       bootstrap      firmware    bootstrap       -   T  F  F 
serial  mtd1       prod_config    tlv         product config  -   T  T  F 
serial  mtd2       bootloader     u-boot rom  bootloader      -   T  T  F 
serial  mtd3       bootenv_1      u-boot env  boot env        -   T  T  F 
serial  mtd4       bootenv_2      u-boot env  boot env        -   T  T  F 
serial  mtd5       kernel_1       uImage      kernel          1   F  F  F 
serial  mtd6       kernel_2       uImage      kernel          2   F  F  F 
serial  mtd7       kernel_single  uImage      kernel          S   F  T  T 
serial  mtd8       config_loader  uImage      config loader   -   F  T  F 
serial  mtd9       param_space    raw         other           -   F  T  T 
nand    mtd10      ubi0           ubi         ubi0            -   F  T  T 
ubi0    ubi0_0     rootfs_1       ubifs       rootfs          1   F  F  F 
ubi0    ubi0_1     rootfs_2       ubifs       rootfs          2   F  F  F 
ubi0    ubi0_2     rootfs_single  ubifs       rootfs          S   F  F  F 
ubi0    ubi0_3     vexo_private   ubifs       privatefs       -   F  F  F 
ubi0    ubi0_4     vexo_user      ubifs       userfs          -   F  F  F 
""".splitlines(keepends=True)
HEADING = """
type    partition  name           format      image           bk  p  t  c 
------  ---------  -------------  ----------  --------------  --  -  -  - 
"""

ATTACH = "/usr/sbin/ubiattach /dev/ubi_ctrl -d 0 -p /dev/mtd10 &> /dev/null"
NODES = "/sbin/mdev -s &> /dev/null"
DETACH = "/usr/sbin/ubidetach /dev/ubi_ctrl -p /dev/mtd10 &> /dev/null"


def erase(number):
    return f"/usr/sbin/flash_erase -q /dev/mtd{number} 0 0"


def protected(number):
    return [f"/usr/sbin/flash_unlock /dev/mtd{number}", erase(number), f"/usr/sbin/flash_lock /dev/mtd{number} 0 -1"]


def empty_volume(number):
    return [ATTACH, NODES, f"/usr/sbin/ubiupdatevol /dev/ubi0_{number} -t", DETACH]


DEFAULTS = protected(3) + protected(4) + ["/usr/sbin/fw_setenv dummy_variable  > /dev/null 2>&1"]
CLEANING_SERIAL = ("Cleaning serial partition /dev/mtd7 (kernel)...\n"
                   "Cleaning serial partition /dev/mtd9 (other)...\n")
CLEANING_NAND = "Cleaning nand partition /dev/mtd10 (ubi0)...\n"

# ---------------------------------------------------------------------- flash info


@pytest.mark.parametrize("words, kind", [
    ("", "any"), ("serial", "serial"), ("s", "serial"), ("ser", "serial"), ("nand", "nand"), ("na", "nand"),
])
def test_info_lists_the_rows_of_the_type(dev, words, kind):
    dev.boot()
    rows = [row for row in TABLE if kind == "any" or row.startswith(f"{kind} ")]
    assert dev.command(f"flash info {words}") == HEADING + "".join(rows) + "\n"
    assert dev.shell_lines == []


def test_info_shows_the_nodes_of_the_running_kernel(dev):
    dev.set_partitions(("spare", 0x20000, 0x20000), ("ubi0", 0x8000000, 0x20000))
    dev.boot()
    assert "nand    mtd1       ubi0  " in dev.command("flash info nand")


@pytest.mark.parametrize("words", ["x", "serials", "nandx", "NAND", "any", "ubi0"])
@pytest.mark.parametrize("command", ["info", "clean"])
def test_word_that_is_no_type(dev, command, words):
    dev.boot()
    assert dev.command(f"flash {command} {words}") == f"ERROR: Invalid flash type '{words}'\n"
    assert dev.shell_lines == []


@pytest.mark.parametrize("command, said", [
    ("flash info nand", "INFO: cmd_flash_info: type=nand\n"),
    ("flash info", "INFO: cmd_flash_info: type=any\n"),
    ("flash clean s", "INFO: cmd_flash_clean: type=serial\n"),
    ("flash kill", "INFO: cmd_flash_kill: bank=1 type=kernel/rootfs\n"),
    ("flash kill single r", "INFO: cmd_flash_kill: bank=single type=rootfs\n"),
])
def test_what_will_be_done_is_said_at_info(dev, command, said):
    dev.boot()
    dev.command("verbose 4")
    assert dev.command(command).startswith(said)


# ---------------------------------------------------------------------- flash clean


def test_clean_erases_by_the_table_and_resets_the_environment(dev):
    dev.boot()
    assert dev.command("flash clean") == CLEANING_SERIAL + CLEANING_NAND + SETTING_DEFAULTS + SUCCESS
    assert dev.shell_lines == [erase(7), erase(9), erase(10)] + DEFAULTS
    assert dev.partition("kernel_single").erased


@pytest.mark.parametrize("word, screen, lines", [
    ("serial", CLEANING_SERIAL, [erase(7), erase(9)]),
    ("nand", CLEANING_NAND, [erase(10)]),
])
def test_clean_of_one_type_leaves_the_environment(dev, word, screen, lines):
    dev.boot()
    assert dev.command(f"flash clean {word}") == screen + SUCCESS
    assert dev.shell_lines == lines


def test_clean_joins_a_split_partition_first(dev):
    dev.env["mtdparts"] = "atmel_nand:81920k(ubi0),-(user)"
    dev.boot()
    assert [p.name for p in dev.partitions][-2:] == ["ubi0", "user"]
    assert dev.command("flash clean nand").endswith(SUCCESS)
    assert [p.name for p in dev.partitions][-1] == "ubi0"
    assert "mtdparts" not in dev.env
    assert dev.shell_lines[0] == "/usr/sbin/fw_setenv mtdparts  > /dev/null 2>&1"


def test_clean_of_serial_flash_leaves_a_split_partition_split(dev):
    dev.env["mtdparts"] = "atmel_nand:81920k(ubi0),-(user)"
    dev.boot()
    assert dev.command("flash clean serial") == CLEANING_SERIAL + SUCCESS
    assert dev.shell_lines == [erase(7), erase(9)]
    assert [p.name for p in dev.partitions][-2:] == ["ubi0", "user"]
    assert dev.env["mtdparts"] == "atmel_nand:81920k(ubi0),-(user)"


def test_clean_stops_when_the_partition_cannot_be_joined(dev):
    dev.env["mtdparts"] = "atmel_nand:81920k(ubi0),-(user)"
    dev.boot()
    dev.answer_ioctl(0x40044D1B, error="EBUSY")
    screen = dev.command("flash clean nand")
    assert screen.endswith("ERROR: mtd_partition_merge: mtd merge failed\n" + FAILURE)
    assert dev.shell_lines == []


def test_clean_stops_when_the_size_cannot_be_cleared(dev):
    dev.env["mtdparts"] = "atmel_nand:81920k(ubi0),-(user)"
    dev.boot()
    dev.answer("fw_setenv", status=1)
    screen = dev.command("flash clean nand")
    assert screen.endswith("ERROR: Failed to clear mtdparts in the boot environment\n" + FAILURE)
    dev.expect_not_ran("flash_erase")


def test_clean_stops_at_the_first_partition_that_cannot_be_erased(dev):
    dev.answer("flash_erase", when="/dev/mtd7", status=1)
    dev.boot()
    assert dev.command("flash clean") == (
        "Cleaning serial partition /dev/mtd7 (kernel)...\n"
        "ERROR: system(/usr/sbin/flash_erase -q /dev/mtd7 0 0) sys_rc=256 exitstatus=1\n" + FAILURE)
    assert dev.shell_lines == [erase(7)]


def test_clean_fails_with_the_environment(dev):
    dev.answer("flash_erase", when="/dev/mtd4", status=1)
    dev.boot()
    screen = dev.command("flash clean")
    assert screen.endswith("ERROR: Failed to erase boot environment partition bootenv_2\n" + FAILURE)
    dev.expect_not_ran("fw_setenv")


# ---------------------------------------------------------------------- flash kill

KILL_1 = [erase(5)] + empty_volume(0)
KILL_2 = [erase(6)] + empty_volume(1)
KILL_SINGLE = [erase(7)] + empty_volume(2)


def killed(bank, *kinds):
    return "".join(f"Erasing {kind} bank {bank}...\n" for kind in kinds)


@pytest.mark.parametrize("words, screen, lines", [
    ("", killed(1, "kernel", "rootfs"), KILL_1),
    ("1", killed(1, "kernel", "rootfs"), KILL_1),
    ("2", killed(2, "kernel", "rootfs"), KILL_2),
    ("single", killed("single", "kernel", "rootfs"), KILL_SINGLE),
    ("k", killed(1, "kernel"), KILL_1[:1]),
    ("kernel", killed(1, "kernel"), KILL_1[:1]),
    ("r", killed(1, "rootfs"), KILL_1[1:]),
    ("2 rootfs", killed(2, "rootfs"), KILL_2[1:]),
    ("single ker", killed("single", "kernel"), KILL_SINGLE[:1]),
])
def test_kill_erases_the_images_of_a_bank(dev, words, screen, lines):
    dev.boot()
    assert dev.command(f"flash kill {words}") == screen + SUCCESS
    assert dev.shell_lines == lines


@pytest.mark.parametrize("words, refused", [
    ("3", "3"), ("x", "x"), ("1 x", "x"), ("1 rootfs x", "x"), ("kernel rootfs", "rootfs"), ("1 2", "2"),
    ("kernels", "kernels"), ("Single", "Single"), ("K", "K"),
])
def test_kill_refuses_other_words(dev, words, refused):
    dev.boot()
    assert dev.command(f"flash kill {words}") == f"ERROR: Invalid parameter '{refused}'\n"
    assert dev.shell_lines == []


def test_kill_ends_at_the_first_failure(dev):
    dev.answer("flash_erase", status=1)
    dev.boot()
    assert dev.command("flash kill").endswith(FAILURE)
    assert dev.shell_lines == [erase(5)]


def test_kill_of_a_volume_that_cannot_be_emptied_detaches(dev):
    dev.answer("ubiupdatevol", status=1)
    dev.boot()
    assert dev.command("flash kill r").endswith(FAILURE)
    assert dev.shell_lines == empty_volume(0)


# ---------------------------------------------------------------------- confirmation


@pytest.mark.parametrize("command, first_line", [("flash kill 2 k", erase(6)), ("flash clean nand", erase(10))])
def test_nothing_is_erased_unless_affirmed(dev, command, first_line):
    dev.boot()
    dev.command("affirm on")
    dev.mark()
    for answer in "n", "x", "":
        dev.type(command)
        dev.expect(QUESTION)
        dev.keys(f"{answer}\r")
        assert dev.text_until_prompt() == f"{answer}\n<aborted>\n"
    assert dev.shell_lines == []
    dev.type(command)
    dev.expect(QUESTION)
    dev.keys("yes\r")
    assert dev.text_until_prompt().endswith(SUCCESS)
    assert dev.shell_lines == [first_line]
