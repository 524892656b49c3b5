"""The power goes in the middle of an installation into bank 2. The device comes back, still boots bank 1, and takes the
image the next time."""

import pytest

import real_images
from board_session import DEFAULT_ENVIRONMENT
from real_images import contents, split
from texts import SUCCESS

BANK_1_KERNEL = real_images.KERNEL.read_bytes()


@pytest.fixture
def installed(dev):
    """A device that boots its kernel in bank 1."""
    dev.board.flash_fill("kernel_1", BANK_1_KERNEL)
    dev.board.flash_fill("bootenv_1", environment())
    return dev


def environment(**more):
    return real_images.environment(kernel_size_1=f"{len(BANK_1_KERNEL):X}", **more)


def expect_bank_1(dev, variables):
    """After the restart: the boot environment is `variables`, bank 1 among them, and bank 1 holds its kernel."""
    assert dev.environment() == dev.shown_environment() == variables
    assert variables["bootbank"] == "1"
    assert dev.flash("kernel_1") == BANK_1_KERNEL
    dev.expect_locked()


def start_installation(dev):
    dev.begin("flash download serial 2")
    image = real_images.small()
    return image, split(image)


INTACT = DEFAULT_ENVIRONMENT | {"kernel_size_1": f"{len(BANK_1_KERNEL):X}"}


@pytest.mark.parametrize("partition", ["bootloader", "kernel_2"])
def test_power_goes_while_a_part_is_written(installed, partition):
    installed.board.cut_power_at("write", partition, nth=20)
    image, (loader, kernel) = start_installation(installed)
    installed.send_until_off(image)
    assert "ERROR" not in installed.boot()
    expect_bank_1(installed, INTACT)
    torn = installed.flash(partition)
    part = loader if partition == "bootloader" else kernel
    assert 0 < len(torn) < len(part) and part.startswith(torn), "the beginning of the part, and no more"


def test_machine_is_killed_while_the_kernel_arrives(installed):
    image, (loader, kernel) = start_installation(installed)
    written = installed.board.flash_operations()["kernel_2"]["write"]
    installed.send_stream(image[:len(loader) + 20_000])
    installed.wait_operation("write", "kernel_2", after=written)
    assert "ERROR" not in installed.restart()
    expect_bank_1(installed, INTACT)
    installed.expect_flash(kernel_1=BANK_1_KERNEL, bootloader=loader, kernel_2=installed.flash("kernel_2"))
    assert kernel.startswith(installed.flash("kernel_2"))


@pytest.mark.parametrize("operation, nth, kept", [
    ("unlock", 1, ["kernel_size_1"]),
    ("erase", 1, []),
    ("unlock", 2, ["kernel_size_1", "kernel_size_2"]),
    ("erase", 2, []),
], ids=["before the kernel size", "in the kernel size", "between kernel size and bank", "in the bank"])
def test_power_goes_while_the_environment_is_changed(installed, operation, nth, kept):
    """There is one copy of the environment: a torn one is none, and the defaults, which name bank 1, hold."""
    installed.board.cut_power_at(operation, "bootenv_1", nth)
    image, (loader, kernel) = start_installation(installed)
    installed.send_until_off(image)
    assert "ERROR" not in installed.boot()
    known = DEFAULT_ENVIRONMENT | {"kernel_size_1": f"{len(BANK_1_KERNEL):X}", "kernel_size_2": f"{len(contents(kernel)):X}"}
    expect_bank_1(installed, {name: value for name, value in known.items() if name in [*DEFAULT_ENVIRONMENT, *kept]})
    installed.expect_flash(kernel_1=BANK_1_KERNEL, bootloader=loader, kernel_2=kernel)


def test_image_is_installed_after_a_power_cut(installed):
    installed.board.cut_power_at("write", "kernel_2", nth=5)
    image = real_images.build(("kernel", real_images.SMALL_KERNEL))
    installed.begin("flash download serial 2")
    installed.send_until_off(image)
    installed.boot()
    assert installed.command("flash kill 2 kernel").endswith(SUCCESS)
    assert installed.install(image).endswith(SUCCESS)
    installed.expect_flash(kernel_1=BANK_1_KERNEL, kernel_2=image)
    assert installed.environment() == INTACT | {"bootbank": "2", "kernel_size_2": f"{len(contents(image)):X}"}
