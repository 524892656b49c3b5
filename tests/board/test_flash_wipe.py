"""flash kill and flash clean in all their forms: what is erased in real flash, and what is not."""

import pytest

import real_images
from board_session import DEFAULT_ENVIRONMENT, PARTITIONS
from texts import QUESTION, SUCCESS
from ubi_device import VOLUMES, attached, expect_given_back, make

CONTENTS = b"what the partition holds"
ENVIRONMENT = real_images.environment(bootbank="2", kernel_size_2="1234")
HELD = {name: CONTENTS for name in PARTITIONS if name not in ("ubi0", "bootenv_1")}
BOTH = {"kernel_1", "rootfs_1"}


@pytest.fixture
def full(dev):
    """A device with something in every partition and every volume."""
    dev.board.flash_write("ubi0", make(**{volume: CONTENTS for volume in VOLUMES}))
    dev.board.flash_write("bootenv_1", ENVIRONMENT)
    for name in HELD:
        dev.board.flash_write(name, CONTENTS)
    return dev


def expect_erased(dev, *erased):
    """These partitions are erased and these volumes empty; all others hold what they held, and locked what was locked."""
    expect_given_back(dev)
    left = {name: data for name, data in HELD.items() if name not in erased}
    dev.expect_flash(bootenv_1=ENVIRONMENT, **left)
    dev.expect_locked("bootloader", "bootenv_1")
    with attached(dev) as ubi:
        assert ubi.holds_something() == set(VOLUMES) - set(erased)


def erasing(*what):
    return "".join(f"Erasing {kind} bank {bank}...\n" for kind, bank in what)


KILLS = [
    ("", BOTH, [("kernel", "1"), ("rootfs", "1")]),
    ("2", {"kernel_2", "rootfs_2"}, [("kernel", "2"), ("rootfs", "2")]),
    ("single", {"kernel_single", "rootfs_single"}, [("kernel", "single"), ("rootfs", "single")]),
    ("k", {"kernel_1"}, [("kernel", "1")]),
    ("rootfs", {"rootfs_1"}, [("rootfs", "1")]),
    ("2 root", {"rootfs_2"}, [("rootfs", "2")]),
    ("single kernel", {"kernel_single"}, [("kernel", "single")]),
]


@pytest.mark.parametrize("words, erased, said", KILLS, ids=[words or "no words" for words, _, _ in KILLS])
def test_kill(full, words, erased, said):
    assert full.command(f"flash kill {words}".rstrip()) == erasing(*said) + SUCCESS
    expect_erased(full, *erased)


def test_kill_on_an_erased_device(dev):
    """The kernel goes; there is no volume to be emptied."""
    dev.board.flash_write("kernel_1", CONTENTS)
    assert dev.command("flash kill").startswith(erasing(("kernel", "1"), ("rootfs", "1")))
    expect_given_back(dev)
    dev.expect_flash()


def test_nothing_is_erased_without_consent(full):
    full.command("affirm on")
    try:
        for line in "flash kill", "flash clean", "flash clean nand":
            full.type(line)
            full.expect(QUESTION)
            full.keys("n\r")
            assert full.text_until_prompt() == "n\n<aborted>\n"
        for line, said in (("flash kill 1 rootfs x", "ERROR: Invalid parameter 'x'\n"),
                           ("flash kill 3", "ERROR: Invalid parameter '3'\n"),
                           ("flash kill 1 kernels", "ERROR: Invalid parameter 'kernels'\n"),
                           ("flash clean ubi0", "ERROR: Invalid flash type 'ubi0'\n")):
            assert full.command(line) == said
        expect_erased(full)
        full.type("flash kill 1")
        full.expect(QUESTION)
        full.keys("y\r")
        assert full.text_until_prompt() == "y\n" + erasing(("kernel", "1"), ("rootfs", "1")) + SUCCESS
    finally:
        assert full.command("affirm off") == "affirm is OFF\n"
    expect_erased(full, *BOTH)


CLEAN_SERIAL = "Cleaning serial partition /dev/mtd7 (kernel)...\nCleaning serial partition /dev/mtd9 (other)...\n"
CLEAN_NAND = "Cleaning nand partition /dev/mtd10 (ubi0)...\n"


def test_clean_serial(full):
    assert full.command("flash clean s") == CLEAN_SERIAL + SUCCESS
    expect_erased(full, "kernel_single", "param_space")


def test_clean_nand(full):
    assert full.command("flash clean nand") == CLEAN_NAND + SUCCESS
    expect_given_back(full)
    full.expect_flash(bootenv_1=ENVIRONMENT, **HELD)
    assert not full.flash("ubi0"), "erase counters and all"


def test_clean_everything(full):
    shown = full.command("flash clean")
    assert shown == CLEAN_SERIAL + CLEAN_NAND + "Setting boot environment to defaults...\n" + SUCCESS
    expect_given_back(full)
    assert not full.flash("ubi0")
    erased = ("kernel_single", "param_space", "bootenv_2")
    full.expect_flash(**{name: data for name, data in HELD.items() if name not in erased})
    full.expect_locked()
    assert full.flash("bootenv_1"), "the defaults are written, not left to the boot loader"
    assert full.environment() == full.shown_environment() == DEFAULT_ENVIRONMENT
