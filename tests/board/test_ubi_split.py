"""A UBI partition that the boot environment wants smaller than the flash is split at start-up; the table of partitions
follows the kernel's numbers."""

import re

import pytest

import real_images
from board_session import PARTITIONS, BoardSession

WHOLE = PARTITIONS["ubi0"].size
SMALLER_KIB = 80 << 10


def mtdparts(kib):
    return f"atmel_nand:{kib}k(ubi0),-(user)"


def kernel_partitions(dev):
    """{name: (node, size)} as the kernel lists them, NAND flash only."""
    rows = re.findall(r'^(mtd\d+): (\w+) \w+ "(\w+)"$', dev.board.sh("cat /proc/mtd", check=True).output, re.M)
    return {name: (node, int(size, 16)) for node, size, name in rows if name not in PARTITIONS or name == "ubi0"}


def shown_node(dev, name):
    """The node that the shell has for a partition."""
    return {row.split()[2]: row.split()[1] for row in dev.command("flash info").splitlines() if row}[name]


def expect_split(dev):
    size = SMALLER_KIB << 10
    assert kernel_partitions(dev) == {"ubi0": ("mtd11", size), "user": ("mtd12", WHOLE - size)}
    assert shown_node(dev, "ubi0") == "mtd11"
    assert shown_node(dev, "param_space") == "mtd9"


def expect_whole(dev):
    assert kernel_partitions(dev) == {"ubi0": ("mtd10", WHOLE)}
    assert shown_node(dev, "ubi0") == "mtd10"


def test_smaller_partition_is_split_at_every_start(dev):
    expect_whole(dev)
    dev.board.sh(f"fw_setenv mtdparts '{mtdparts(SMALLER_KIB)}'", check=True)
    dev.board.flash_write("ubi0", b"the last bytes", WHOLE - 14)
    assert "ERROR" not in dev.reset()
    expect_split(dev)
    assert dev.board.sh("tail -c 14 /dev/mtd12", check=True).output == "the last bytes"
    assert "ERROR" not in dev.restart()
    expect_split(dev)
    dev.board.kill()
    dev.board.flash_erase("bootenv_1")
    dev.boot()
    expect_whole(dev)


@pytest.mark.parametrize("kib, said", [
    (WHOLE >> 10, ""),
    ((WHOLE >> 10) + 1024, ""),
    (SMALLER_KIB + 1, "ERROR: partition creation failed on /dev/mtd10\nERROR: Failed to repartition ubi mtd!!!\n"),
], ids=["as large", "larger", "between two erase blocks"])
def test_partition_stays_whole(dev, kib, said):
    dev.board.kill()
    dev.board.flash_fill("bootenv_1", real_images.environment(mtdparts=mtdparts(kib)))
    shown = dev.boot()
    assert said in shown and ("ERROR" in shown) == bool(said)
    expect_whole(dev)


def test_flash_of_small_blocks_is_split(tmp_path):
    with BoardSession(tmp_path, nand="16k") as small:
        small.board.flash_fill("bootenv_1", real_images.environment(mtdparts=mtdparts(SMALLER_KIB)))
        assert "ERROR" not in small.boot()
        expect_split(small)
        small.check()
