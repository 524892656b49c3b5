"""Start-up: its order, what it sets up, and that it always ends at a prompt, whatever is missing."""

import os
import re
import signal
import termios
import time

import pytest

from console_port import block
from product import mode_block
from texts import BANNER, NOTICE, PROMPT, SUCCESS, errors

READ_MTDPARTS = "/usr/sbin/fw_printenv -n mtdparts"
MIB = 1 << 20


# ---------------------------------------------------------------------- the normal start


def test_screen_shows_settings_then_banner_then_notice_then_mode_then_prompt(dev):
    text = dev.boot()
    assert text.startswith(block())
    rest = text.removeprefix(block())
    banner, notice, mode = rest.split("\n", 2)
    assert re.fullmatch(re.escape(BANNER) + r"[A-Z][a-z]{2} [ \d]\d \d{4} \d\d:\d\d:\d\d\)", banner)
    assert notice + "\n" == NOTICE
    assert mode == mode_block() + "\n", "a blank line, then the prompt"
    assert dev.boot_console.output == b"", "everything goes to the port"
    assert dev.port(0).output == b"" and dev.port(2).output == b""


def test_interrupt_and_quit_are_ignored_and_nothing_else(dev):
    dev.boot()
    assert dev.ignores(signal.SIGINT) and dev.ignores(signal.SIGQUIT)
    assert not dev.ignores(signal.SIGTERM) and not dev.ignores(signal.SIGPIPE)
    assert not dev.ignores(signal.SIGCHLD) and not dev.ignores(signal.SIGHUP)


def standard_flags(dev):
    """The file status flags of the program's descriptors 0 to 2."""
    return [int(re.search(r"flags:\s*(\d+)", open(f"/proc/{dev.pid}/fdinfo/{fd}").read())[1], 8) for fd in range(3)]


def test_what_the_parent_left_does_no_harm(dev):
    """Signals ignored and blocked, descriptors that do not wait: tools would seem to fail, and each character typed
    would be followed by an end of input, which erases it."""
    dev.untidy_parent = True
    dev.boot()
    assert not any(map(dev.ignores, (signal.SIGCHLD, signal.SIGPIPE, signal.SIGTERM, signal.SIGALRM)))
    assert int(dev.status("SigBlk"), 16) == 0
    assert dev.ignores(signal.SIGINT) and dev.ignores(signal.SIGQUIT)
    assert dev.command("set bootenv bootbank 2") == SUCCESS
    assert dev.env["bootbank"] == "2"
    dev.keys("verb")
    dev.expect("verb")
    dev.expect_quiet(0.3)
    assert dev.command("ose") == "verbosity is 3\n"
    assert dev.command("show console") == block()


def test_a_console_of_the_parent_that_does_not_wait(dev):
    """Where the shell cannot have its own port it stays on the one it was given."""
    dev.remove_port(1)
    dev.untidy_parent = True
    dev.boot()
    assert not any(flags & os.O_NONBLOCK for flags in standard_flags(dev))
    dev.type("affirm")
    assert dev.text_until_prompt().endswith("\naffirm is OFF\n")


def test_signals_are_ignored_before_anything_can_take_long(dev):
    dev.answer("fw_printenv", status=1, held="end")
    dev.start()
    dev.wait_ran(READ_MTDPARTS)
    os.kill(dev.pid, signal.SIGINT)
    os.kill(dev.pid, signal.SIGQUIT)
    dev.release("fw_printenv")
    dev.text_until_prompt()


def test_console_is_mapped_before_the_flash_is_looked_at(dev):
    dev.boot()
    kinds = [event.kind for event in dev.startup.of("open", "tcsetattr", "run")]
    assert kinds == ["open", "open", "open", "tcsetattr", "run", "tcsetattr"]
    assert dev.startup.ran == [READ_MTDPARTS]
    assert dev.startup.shell_lines == [f"{READ_MTDPARTS} 2>/dev/null"]
    assert dev.startup.ioctls == []


def test_port_gets_the_settings_of_a_console(dev):
    dev.boot()
    for event in dev.startup.of("open"):
        assert (event.path, event.flags) == ("/dev/ttyS1", os.O_RDWR | os.O_NONBLOCK)
    applied = dev.startup.of("tcsetattr")[0]
    cc = bytearray(len(applied.cc))
    cc[termios.VINTR], cc[termios.VERASE], cc[termios.VMIN] = 3, 8, 1
    assert (applied.path, applied.action) == ("/dev/ttyS1", "now")
    assert applied.iflag == termios.IGNBRK | termios.ICRNL
    assert applied.oflag == termios.OPOST | termios.ONLCR
    assert applied.cflag == termios.B115200 | termios.CS8 | termios.CREAD | termios.CLOCAL | termios.CRTSCTS
    assert applied.lflag == 0
    assert applied.cc == cc


def test_standard_descriptors_are_the_port_and_block(dev):
    dev.boot()
    port = os.fstat(dev.port(1).slave).st_rdev
    for fd in range(3):
        assert os.stat(f"/proc/{dev.pid}/fd/{fd}").st_rdev == port
    for flags in standard_flags(dev):
        assert flags & os.O_NONBLOCK == 0
        assert flags & os.O_ACCMODE == os.O_RDWR
    assert len(os.listdir(f"/proc/{dev.pid}/fd")) == 3, "nothing is left open"


def test_port_becomes_the_controlling_terminal(dev):
    """Else Ctrl-C could not interrupt a command."""
    dev.boot()
    terminal = int(open(f"/proc/{dev.pid}/stat").read().rsplit(")", 1)[1].split()[4])
    assert terminal == os.fstat(dev.port(1).slave).st_rdev


# ---------------------------------------------------------------------- the console that the kernel command line names


def test_kernel_messages_are_kept_off_the_console_on_port_0(dev):
    dev.cmdline("cli_console=ttyS0,115200")
    dev.boot()
    assert dev.startup.ran == ["/bin/dmesg -n 1", READ_MTDPARTS]
    assert dev.startup.shell_lines[0] == "/bin/dmesg -n 1"
    kinds = [event.kind for event in dev.startup.of("tcsetattr", "run")]
    assert kinds[:2] == ["tcsetattr", "run"], "after the console is mapped"


def test_start_goes_on_when_dmesg_fails(dev):
    dev.cmdline("cli_console=ttyS0,115200")
    dev.answer("dmesg", status=1)
    text = dev.boot()
    assert errors(text) == ["ERROR: system(/bin/dmesg -n 1) sys_rc=256 exitstatus=1"]
    assert dev.startup.ran == ["/bin/dmesg -n 1", READ_MTDPARTS]


# ---------------------------------------------------------------------- a console that cannot be had


def test_no_console_port(dev):
    dev.remove_port(1)
    text = dev.boot()
    assert dev.console is dev.boot_console
    assert text.startswith("tty_remap_stdio: open(): No such file or directory\n"
                           "ERROR: Error in remapping stdio to /dev/ttyS1\n")
    dev.type("affirm")
    assert dev.text_until_prompt().endswith("\naffirm is OFF\n")


def test_settings_that_cannot_be_read(dev):
    dev.fail_call("tcgetattr", "/dev/ttyS1", times=1)
    text = dev.boot()
    assert text.startswith("tty_set_termios: tcgetattr(prev_tio): Input/output error\n"
                           "tty_remap_stdio: tty_set_termios(): Input/output error\n"
                           "ERROR: Error in remapping stdio to /dev/ttyS1\n")


def test_settings_that_cannot_be_applied(dev):
    dev.fail_call("tcsetattr", "/dev/ttyS1", times=1)
    text = dev.boot()
    assert text.startswith("tty_set_termios: tcsetattr(): Input/output error\n"
                           "tty_remap_stdio: tty_set_termios(): ")
    assert errors(text) == ["ERROR: Error in remapping stdio to /dev/ttyS1"]
    fallback = dev.startup.of("tcsetattr")[0]
    assert fallback.path == "/dev/ttyS1" and fallback.lflag & termios.ISIG, "what was in force before is applied again"


def test_settings_that_cannot_be_applied_where_those_of_before_are_not_known(dev):
    """Zeroes are no settings: speed 0 hangs up."""
    dev.fail_call("tcgetattr", times=1)
    dev.fail_call("tcsetattr", "/dev/ttyS1", times=1)
    before = dev.terminal(1)
    assert errors(dev.boot()) == ["ERROR: Error in remapping stdio to /dev/ttyS1"]
    fallback = dev.startup.of("tcsetattr")[0]
    assert fallback.cflag == before[2] and fallback.lflag & termios.ISIG, "what the port had is applied"
    dev.type("affirm")
    assert dev.text_until_prompt().endswith("\naffirm is OFF\n")


def test_console_without_input_does_not_spin(dev):
    """A port that is at its end at once: the shell stays alive, and leaves the processor alone."""
    dev.sleep_scale = 1
    dev.replace_port(1, "/dev/null")
    dev.start()
    dev.wait_for("sleep")
    before = dev.cpu_seconds()
    time.sleep(1)
    assert dev.alive
    assert dev.cpu_seconds() - before < 0.1


# ---------------------------------------------------------------------- flash


def test_next_start_finds_the_split_as_it_is(dev):
    dev.env["mtdparts"] = "atmel_nand:81920k(ubi0),-(user)"
    dev.boot()
    after_split = dev.path("/proc/mtd").read_text()
    dev.kill()
    dev.mark()
    dev.boot()
    assert [event for event in dev.all_events.ioctls if event.path == "/dev/mtd11"] == []
    assert dev.path("/proc/mtd").read_text() == after_split


def test_old_partition_cannot_be_deleted(dev):
    dev.env["mtdparts"] = "atmel_nand:81920k(ubi0),-(user)"
    dev.answer_ioctl(0x40044D18, "/dev/mtd0", error="EBUSY")
    assert errors(dev.boot()) == ["ERROR: /dev/mtd10 deletion failed", "ERROR: Failed to repartition ubi mtd!!!"]


def test_partition_node_cannot_be_opened(dev):
    dev.env["mtdparts"] = "atmel_nand:81920k(ubi0),-(user)"
    dev.remove("/dev/mtd10")
    assert errors(dev.boot()) == ["ERROR: mtd_partition_split: open(/dev/mtd10)",
                                  "ERROR: Failed to repartition ubi mtd!!!"]
    assert dev.startup.ioctls == []


def test_partition_that_the_kernel_lists_without_a_name_gives_the_size(dev):
    """Its size is known, so a smaller one is wanted, but there is no "ubi0" to split."""
    dev.set_partitions(("bootstrap", 0x20000, 0x10000), ("<NULL>", 128 * MIB, 0x20000))
    dev.env["mtdparts"] = "atmel_nand:81920k(ubi0),-(user)"
    assert errors(dev.boot()) == ["ERROR: Failed to repartition ubi mtd!!!"]
    assert dev.startup.ioctls == []


# ---------------------------------------------------------------------- whatever is missing


def test_no_list_of_partitions(dev):
    dev.env["mtdparts"] = "atmel_nand:81920k(ubi0),-(user)"
    dev.remove("/proc/mtd")
    assert errors(dev.boot()) == []
    assert dev.startup.ioctls == []


def test_no_tools(dev):
    dev.cmdline("cli_console=ttyS0,115200")
    dev.remove_tools()
    text = dev.boot()
    assert errors(text) == ["ERROR: system(/bin/dmesg -n 1) sys_rc=32512 exitstatus=127"]
    assert dev.startup.ran == []


NO_SHELL = pytest.mark.not_emulated(
    reason="the C library hears of it from the child that shares its memory, which the emulator copies")


@NO_SHELL
def test_no_shell(dev):
    dev.cmdline("cli_console=ttyS0,115200")
    dev.remove("/bin/sh")
    text = dev.boot()
    assert errors(text) == ["ERROR: system(/bin/dmesg -n 1) sys_rc=32512 exitstatus=127",
                            f"ERROR: uboot_env_get_val: popen({READ_MTDPARTS} 2>/dev/null)"]


@pytest.mark.parametrize("call", ["posix_spawn", "sigaction", "fopen", "tcgetattr", "tcsetattr", "open", "malloc"])
def test_call_that_never_works(dev, call):
    dev.console = dev.boot_console if call == "open" else dev.port(1)
    dev.fail_call(call, error="ENOMEM")
    dev.boot()


def test_system_that_never_works(dev):
    dev.cmdline("cli_console=ttyS0,115200")
    dev.fail_call("posix_spawn", "/bin/dmesg", error="ENOMEM")
    assert errors(dev.boot()) == ["ERROR: system(/bin/dmesg -n 1) returned -1"]


@NO_SHELL
def test_nothing_at_all(dev):
    dev.remove_port(0, 1, 2)
    dev.remove_tools()
    dev.remove("/bin/sh", "/proc/cmdline", "/proc/mtd", *(p.node for p in dev.partitions))
    text = dev.boot()
    assert errors(text) == ["ERROR: Failed to open /proc/cmdline to get cli_console settings",
                            "ERROR: Error in remapping stdio to /dev/ttyS1",
                            f"ERROR: uboot_env_get_val: popen({READ_MTDPARTS} 2>/dev/null)",
                            "ERROR: prodcfg_read: open(/dev/mtd1) error(No such file or directory)"]
    assert dev.boot_console.output.endswith(PROMPT.encode())
    dev.type("affirm")
    assert dev.text_until_prompt().endswith("\naffirm is OFF\n")
