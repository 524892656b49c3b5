"""The boot loader: what it starts, as the boot environment and the flash say. Each test gives power to a device that has left
the factory and has firmware in its banks."""

import functools

import pytest

import firmware
import real_images
import ubi_device
from board_session import BUILD, PATIENCE
from firmware import A, B, kernel_part, kernel_size
from power_on import NOTHING, RECOVERY, variables, wait_for_start
from texts import PROMPT, SUCCESS
from virtual_board import Board

BANNER = b"U-Boot 20"
REFUSED = b"No good kernel in bank "
KERNEL_BEGINS = b"Booting Linux"


@functools.cache
def damaged_root():
    """A's root file system, with a bit turned over in a file."""
    files = A.files()
    data, mode = files["usr/share/data"]
    places = {"dev/place": b"", "proc/place": b""}
    return ubi_device.ubifs({**places, **files, "usr/share/data": (real_images.flip(data, 100_000), mode)})


@pytest.fixture
def device(tmp_path):
    """A device with A in bank 1, which it boots, and B in bank 2; switched off."""
    with Board(tmp_path / "board", BUILD / "recovery-loader", boot_loader=True) as board:
        firmware.in_bank_1(board, kernel_size_2=kernel_size(B))
        firmware.lay_ubi(board, firmware.ubi(rootfs_1=A, rootfs_2=B))
        board.flash_fill("kernel_2", kernel_part(B))
        yield board


def set_variables(device, **changed):
    """Sets variables from outside; None takes one away."""
    now = {**variables(device.flash_read("bootenv_1")), **changed}
    device.flash_fill("bootenv_1", firmware.environment_of({name: value for name, value in now.items() if value is not None}))


def comes_up(device):
    """What comes up when it gets power."""
    device.kill()
    device.console.skip()
    device.kernel_log.skip()
    device.start(wait=False)
    return wait_for_start(device)


def command(device, line):
    """A line typed into the shell; returns what it showed."""
    device.console.send(line + "\r")
    return device.console.expect(PROMPT, timeout=PATIENCE).before.decode().replace("\r", "").removeprefix(line + "\n")


def into_the_shell(device):
    """From the firmware."""
    device.console.send("shell\r")
    assert wait_for_start(device) == RECOVERY


def reset(device):
    """Has the shell reset the device. Returns what comes up."""
    starts = device.kernel_log.output.count(BANNER)
    device.kernel_log.skip()
    device.console.send("reset\r")
    came_up = wait_for_start(device)
    assert device.kernel_log.output.count(BANNER) == starts + 1, "the reset did not go through the boot loader"
    return came_up


def test_bank_and_command_are_what_the_shell_has_set(device):
    assert comes_up(device) == A.report("1")
    into_the_shell(device)
    assert command(device, "set bootenv bootbank 2") == SUCCESS
    assert command(device, "set bootenv bootcmd run flashboot") == SUCCESS
    assert reset(device) == B.report("2")
    into_the_shell(device)
    assert command(device, "set bootenv bootbank 1") == SUCCESS
    assert reset(device) == RECOVERY, "bootcmd is still what the firmware made of it"
    assert command(device, "set bootenv bootcmd run flashboot") == SUCCESS
    assert comes_up(device) == A.report("1")


def test_bootdelay_waits_for_a_key(device):
    set_variables(device, bootdelay="2")
    assert comes_up(device) == A.report("1")
    assert b"Hit any key to stop autoboot:  2 \x08\x08\x08 1 \x08\x08\x08 0" in device.kernel_log.output
    set_variables(device, bootdelay="30")
    device.kill()
    device.kernel_log.skip()
    device.start(wait=False)
    device.kernel_log.expect("Hit any key to stop autoboot: ", timeout=PATIENCE)
    device.kernel_log.send(" ")
    assert wait_for_start(device) == NOTHING
    # Its own commands know the device's variables.
    device.kernel_log.send("echo from bank ${bootbank}: ${kernel_size_1}\r")
    device.kernel_log.expect(f"\nfrom bank 1: {kernel_size(A)}\r\n=> ", timeout=PATIENCE)
    device.kernel_log.send("boot\r")
    assert wait_for_start(device) == A.report("1")


def test_bootdelay_of_minus_one_stops_in_the_boot_loader(device):
    device.flash_fill("bootenv_1", firmware.environment(bootcmd="run cfgldrboot"))
    assert comes_up(device) == RECOVERY
    assert command(device, "set bootenv bootdelay -1") == "Setting bootdelay to -1\n" + SUCCESS
    assert reset(device) == NOTHING
    device.kernel_log.skip()
    device.kernel_log.send("run flashboot\r")
    assert wait_for_start(device) == A.report("1")


def test_silent_takes_the_boot_messages_away(device):
    set_variables(device, bootcmd="run cfgldrboot")
    assert comes_up(device) == RECOVERY
    assert KERNEL_BEGINS in device.kernel_log.unread
    assert command(device, "set bootenv silent on") == SUCCESS
    assert command(device, "set bootenv bootbank single") == SUCCESS
    assert command(device, "set bootenv bootcmd run flashboot") == SUCCESS
    assert reset(device) == RECOVERY
    assert KERNEL_BEGINS not in device.kernel_log.unread and REFUSED not in device.kernel_log.unread
    assert device.kernel_log.unread.endswith(b"Starting kernel ...\r\n\r\n")
    assert command(device, "set bootenv silent off") == SUCCESS
    assert reset(device) == RECOVERY
    assert KERNEL_BEGINS in device.kernel_log.unread and REFUSED in device.kernel_log.unread


def test_defaults_start_the_recovery_system_until_something_is_installed(device):
    set_variables(device, bootcmd="run cfgldrboot")
    assert comes_up(device) == RECOVERY
    assert command(device, "set bootenv defaults").endswith(SUCCESS)
    assert variables(device.flash_read("bootenv_1")) == firmware.DEFAULTS
    assert reset(device) == RECOVERY
    assert REFUSED + b"1:" in device.kernel_log.unread


def test_bad_environment(device):
    device.flash_write("bootenv_1", b"\0", 5000)
    assert comes_up(device) == RECOVERY
    assert b"Boot environment: bad" in device.kernel_log.output


def test_bank_without_a_good_kernel(device):
    """Each ends in the recovery system; the boot loader says so before, and that is what is waited for."""
    size = int(kernel_size(A), 16)
    cases = {
        "no length": {"kernel_size_1": None}, "length 0": {"kernel_size_1": "0"}, "no number": {"kernel_size_1": "much"},
        "too short": {"kernel_size_1": f"{size - 5000:X}"}, "longer than the partition": {"kernel_size_1": "C00001"},
        "empty bank": {"bootbank": "single", "kernel_size_single": f"{size:X}"}, "no such bank": {"bootbank": "3"},
        "no bank": {"bootbank": ""},
    }
    intact = device.flash_read("bootenv_1")
    for case, changed in cases.items():
        device.flash_fill("bootenv_1", intact)
        set_variables(device, **changed)
        expect_refused(device, case)
    device.flash_fill("bootenv_1", intact)
    for at in (256, 5000, len(kernel_part(A)) - 5000):
        device.flash_fill("kernel_1", real_images.flip(kernel_part(A), at))
        expect_refused(device, f"damaged at {at}")
    assert comes_up(device) == RECOVERY


def expect_refused(device, case):
    """The bank is refused, and the kernel of the recovery system begins."""
    device.kill()
    device.kernel_log.skip()
    device.start(wait=False)
    device.kernel_log.expect(REFUSED, timeout=PATIENCE)
    device.kernel_log.expect("Starting kernel", timeout=PATIENCE)
    before = device.kernel_log.output.rsplit(BANNER, 1)[1]
    assert before.count(b"Starting kernel") == 1, f"{case}: the bank's kernel was started"


def test_kernel_is_not_completed_from_what_memory_still_holds(device):
    """The whole kernel of the start before is in memory after a reset, but not in this bank."""
    assert comes_up(device) == A.report("1")
    device.flash_write("kernel_1", b"\xff" * 100_000, len(kernel_part(A)) - 100_000)
    device.console.send("restart\r")
    assert wait_for_start(device) == RECOVERY
    assert REFUSED in device.kernel_log.output


def test_no_recovery_system_either(device):
    device.flash_erase("config_loader", "kernel_1")
    assert comes_up(device) == NOTHING


@pytest.mark.parametrize("root", ["none", "damaged"])
def test_kernel_without_its_root_file_system(device, root):
    device.flash_erase("ubi0")
    firmware.lay_ubi(device, firmware.ubi(rootfs_2=B) if root == "none" else ubi_device.make(rootfs_1=damaged_root()))
    if root == "none":
        assert comes_up(device) == RECOVERY
        assert b"Firmware kernel 4.1.0.0R1: root file system ubi0:rootfs_1: cannot mount it" in device.console.output
        assert variables(device.flash_read("bootenv_1"))["bootcmd"] == "run cfgldrboot"
    else:
        assert comes_up(device) == f"Firmware {A.version} on rootfs_1, kernel {A.version}: NOT WHOLE"
        assert b"Firmware: /usr/share/data is not what was built\r\n" in device.console.output


def test_kernel_of_another_version(device):
    device.flash_erase("ubi0")
    firmware.lay_ubi(device, firmware.ubi(rootfs_1=B, rootfs_2=B))
    assert comes_up(device) == A.report("1").replace(f"Firmware {A.version}", f"Firmware {B.version}")


def test_restart_by_the_kernel_goes_through_the_boot_loader(device):
    """As a watchdog's would: nothing is asked."""
    set_variables(device, bootcmd="run cfgldrboot")
    assert comes_up(device) == RECOVERY
    device.wait_boot(PATIENCE)
    set_variables(device, bootcmd="run flashboot")
    device.sh("(usleep 100000; echo c >/proc/sysrq-trigger) >/dev/null 2>&1 &")
    assert wait_for_start(device) == A.report("1")
    assert device.kernel_log.output.count(BANNER) == 2
