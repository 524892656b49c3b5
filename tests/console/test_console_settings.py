"""The console: which port it is, its terminal settings, changing and showing them."""

import pytest

from console_port import SPEEDS, block, terminal_settings
from session import onlcr
from texts import BANNER, FAILURE, NO_CHANGE, SUCCESS, invalid

NOT_EMULATED = pytest.mark.not_emulated(
    reason="the emulator does not pass 921600 on to the kernel, and forgets it when it is read back")
MISSING = "tty_remap_stdio: open(): No such file or directory\n"


# ---------------------------------------------------------------------- start-up


def test_the_console_is_ttyS1_at_115200_with_hardware_flow(dev):
    assert dev.boot().startswith(block())
    assert dev.terminal(1) == terminal_settings()
    assert dev.boot_console.output == b"" and dev.port(0).output == b""
    assert [(event.path, event.flags) for event in dev.startup.of("open")] == [("/dev/ttyS1", 0o4002)] * 3
    dev.expect_not_ran("dmesg")


@pytest.mark.parametrize("cmdline, port, speed", [
    ("console=ttyS0,115200 cli_console=ttyS0,57600", 0, 57600),
    ("cli_console=ttyS2,9600", 2, 9600),
    ("console=ttyS1,115200 cli_console=ttyS2,57600 quiet", 2, 57600),
    pytest.param("cli_console=ttyS2,921600 quiet", 2, 921600, marks=NOT_EMULATED),
    ("a=b cli_console=ttyS1,19200n8 c", 1, 19200),
    ("cli_console=ttyS1,38400\ncli_console=ttyS2,9600", 1, 38400),
    ("x" * 220 + " cli_console=ttyS2,230400 " + "y" * 100, 2, 230400),
])
def test_the_kernel_command_line_names_the_console(dev, cmdline, port, speed):
    dev.cmdline(cmdline)
    assert dev.boot().startswith(block(port, speed))
    assert dev.terminal(port) == terminal_settings(speed)
    assert dev.boot_console.output == b""


@pytest.mark.parametrize("cmdline, error", [
    ("console=ttyS0,115200", "find cli_console= in kernel cmdline -- using defaults"),
    ("console=ttyS0,115200\ncli_console=ttyS2,9600", "find cli_console= in kernel cmdline -- using defaults"),
    ("x" * 254 + " cli_console=ttyS2,57600", "find cli_console= in kernel cmdline -- using defaults"),
    ("x" * 260 + " cli_console=ttyS2,9600", "find cli_console= in kernel cmdline -- using defaults"),
    ("cli_console=ttyS2", "parse cli_console= in kernel cmdline -- using defaults"),
    ("cli_console=ttyS2,", "parse cli_console= in kernel cmdline -- using defaults"),
    ("cli_console=ttyS2,fast", "parse cli_console= in kernel cmdline -- using defaults"),
    ("cli_console=ttyS,9600", "parse cli_console= in kernel cmdline -- using defaults"),
    ("cli_console=tty2,115200", "parse cli_console= in kernel cmdline -- using defaults"),
    ("cli_console=ttyUSB0,9600", "parse cli_console= in kernel cmdline -- using defaults"),
    ("cli_console= ttyS2,9600", "parse cli_console= in kernel cmdline -- using defaults"),
])
def test_without_a_usable_setting_the_defaults_stay(dev, cmdline, error):
    dev.cmdline(cmdline)
    dev.console = dev.port(1)
    assert dev.boot().startswith(block())
    dev.boot_console.expect_all(onlcr(f"ERROR: Failed to {error}\n"))
    assert dev.terminal(1) == terminal_settings()


def test_without_a_kernel_command_line_the_defaults_stay(dev):
    dev.remove("/proc/cmdline")
    assert dev.boot().startswith(block())
    dev.boot_console.expect_all(onlcr("ERROR: Failed to open /proc/cmdline to get cli_console settings\n"))


def test_with_an_empty_kernel_command_line_the_defaults_stay(dev):
    dev.path("/proc/cmdline").write_bytes(b"")
    assert dev.boot().startswith(block())
    dev.boot_console.expect_all(onlcr("ERROR: Failed to read /proc/cmdline to get cli_console settings\n"))


@pytest.mark.parametrize("speed", ["4800", "1200", "0", "115201", "-9600"])
def test_an_unknown_speed_is_told_on_the_new_port_and_the_shell_starts_there(dev, speed):
    dev.cmdline(f"cli_console=ttyS1,{speed}")
    dev.console = dev.port(1)
    assert dev.boot().startswith(
        "tty_set_termios: speed: Invalid argument\ntty_remap_stdio: tty_set_termios(): Invalid argument\n"
        "ERROR: Error in remapping stdio to /dev/ttyS1\n" + BANNER)
    assert dev.boot_console.output == b""


@pytest.mark.parametrize("cmdline, port", [
    ("cli_console=ttyS7,9600", 7), ("cli_console=ttyS7,115200", 7), ("cli_console=ttyS-1,9600", -1),
    ("cli_console=ttyS2147483647,9600", 2147483647)])
def test_a_port_that_is_not_there_leaves_the_shell_where_it_was(dev, cmdline, port):
    dev.cmdline(cmdline)
    dev.console = dev.boot_console
    assert dev.boot().startswith(f"{MISSING}ERROR: Error in remapping stdio to /dev/ttyS{port}\n{BANNER}")
    assert BANNER.encode() in dev.screen_of(b"version")  # behind an echo: that port has other settings


# ---------------------------------------------------------------------- changing


@pytest.mark.parametrize("speed", [
    pytest.param(speed, marks=NOT_EMULATED if speed == 921600 else ()) for speed in SPEEDS])
def test_every_speed(dev, speed):
    dev.cmdline("cli_console=ttyS1,9600" if speed != 9600 else "cli_console=ttyS1,115200")
    dev.boot()
    assert dev.command(f"set console {speed}") == block(speed=speed) + SUCCESS
    assert dev.terminal(1) == terminal_settings(speed)
    assert dev.command("show console") == block(speed=speed)


@pytest.mark.parametrize("words, speed, flow", [
    ("noflow", 115200, "noflow"),
    ("rs232 noflow", 115200, "noflow"),
    ("1 9600 rs232 noflow noterm", 9600, "noflow"),
    ("9600 noflow", 9600, "noflow"),
    ("9600 noterm", 9600, "hwflow"),
    ("1 9600", 9600, "hwflow"),
    ("9600 hwflow", 9600, "hwflow"),
    ("-d0 1 9600", 9600, "hwflow"),
])
def test_parameters_in_their_order(dev, words, speed, flow):
    dev.boot()
    assert dev.command(f"set console {words}") == block(speed=speed, flow=flow) + SUCCESS
    assert dev.terminal(1) == terminal_settings(speed, flow == "hwflow")
    assert dev.sleeps == []


@pytest.mark.parametrize("words", ["", "115200", "1", "1 115200 rs232 hwflow noterm", "rs232", "hwflow", "noterm",
                                   "-d5", "-d5 1", "-d0"])
def test_nothing_changes_where_nothing_is_different(dev, words):
    dev.boot()
    assert dev.command(f"set console {words}".rstrip()) == NO_CHANGE
    assert dev.events.of("open") == [] and dev.sleeps == []


@pytest.mark.parametrize("words, word", [
    ("3", "3"),
    ("1200", "1200"), ("2400", "2400"), ("4800", "4800"), ("115201", "115201"), ("0x1", "0x1"), ("1x", "1x"),
    ("RS232", "RS232"), ("rs-232", "rs-232"), ("HWFLOW", "HWFLOW"), ("TERM", "TERM"), ("x", "x"),
    ("-d", "-d"), ("-dx", "-dx"), ("-x", "-x"), ("1 -d5", "-d5"), ("-d1 -d2", "-d2"),
    ("9600 2", "2"), ("2 1", "1"), ("9600 19200", "19200"), ("rs232 9600", "9600"), ("hwflow rs232", "rs232"),
    ("noterm noflow", "noflow"), ("hwflow noflow", "noflow"), ("noterm noterm", "noterm"),
    ("rs232 rs485", "rs485"), ("9600 x", "x"), ("1 9600 rs232 hwflow noterm x y", "x"),
])
def test_an_invalid_parameter_ends_the_command(dev, words, word):
    dev.boot()
    assert dev.command(f"set console {words}") == invalid(word)
    assert dev.command("show console") == block()
    assert dev.terminal(1) == terminal_settings()


@pytest.mark.parametrize("words", ["term", "rs232 term", "9600 term", "hwflow term", "2 9600 rs232 noflow term x"])
def test_a_termination_needs_a_bus(dev, words):
    dev.boot()
    assert dev.command(f"set console {words}") == "ERROR: Termination not valid in rs232 mode\n"
    assert dev.command("show console") == block()


@pytest.mark.parametrize("mode", ["rs485", "rs422"])
@pytest.mark.parametrize("port", [0, 1, 2])
@pytest.mark.parametrize("rest", ["", " noflow", " hwflow term", " term", " noterm"])
def test_this_board_has_rs232_only(dev, mode, port, rest):
    dev.boot()
    reason = "on /dev/ttyS0" if port == 0 else "in current operational mode (tk10_eval)"
    assert dev.command(f"set console {port} {mode}{rest}") == f"ERROR: {mode} not valid {reason}\n{FAILURE}"
    assert dev.command("show console") == block()
    assert dev.events.of("open") == [] and dev.ioctls == []


# ---------------------------------------------------------------------- moving


@pytest.mark.parametrize("port", [0, 2])
def test_moving_to_another_port_and_back(dev, port):
    dev.boot()
    assert dev.move(f"set console {port}", port) == block(port) + SUCCESS
    assert dev.terminal(port) == terminal_settings()
    assert [event.path for event in dev.events.of("open")] == [f"/dev/ttyS{port}"] * 3
    assert dev.command("show console") == block(port)
    assert dev.port(1).unread == b""
    assert dev.move("set console 1 9600", 1).endswith(block(1, 9600) + SUCCESS)


def test_a_delay_lies_between_the_change_and_the_settings(dev):
    dev.sleep_scale = 0.06
    dev.boot()
    dev.type("set console -d5 2 9600")
    dev.wait_for("sleep", "5")
    assert dev.terminal(2) == terminal_settings(9600, signals=True)
    assert dev.port(2).unread == b""
    dev.console = dev.port(2)
    assert dev.text_until_prompt() == block(2, 9600) + SUCCESS
    assert [event.kind for event in dev.events.of("tcsetattr", "sleep")] == \
        ["tcsetattr"] * 3 + ["sleep", "tcsetattr"]  # signals on, the change, signals on, the delay, signals off
    assert dev.sleeps == [5]


def test_a_delay_before_another_speed_of_the_same_port(dev):
    dev.boot()
    assert dev.command("set console -d5 1 9600") == block(1, 9600) + SUCCESS
    assert dev.terminal(1) == terminal_settings(9600)
    assert dev.sleeps == [5]


@pytest.mark.parametrize("delay, seconds", [("-d-1", 2**31 - 1), ("-d100000", 100000)])
def test_ctrl_c_ends_a_long_delay_and_goes_back_to_what_was(dev, delay, seconds):
    """A number below zero wraps: 136 years, slept in two halves."""
    dev.boot()
    before = dev.terminal(1)
    dev.type(f"set console {delay} 1 9600 noflow")
    dev.wait_for("sleep")
    assert dev.sleeps == [pytest.approx(seconds, rel=1e-5)]
    assert dev.terminal(1) == terminal_settings(9600, flow=False, signals=True)
    dev.interrupt()
    assert dev.text_until_prompt() == f"set console {delay} 1 9600 noflow\n" + block() + FAILURE + SUCCESS
    assert dev.terminal(1) == before
    assert dev.command("show console") == block()
    assert dev.ignores(2)


def test_output_goes_out_on_the_new_port_only(dev):
    dev.answer("dmesg", stdout="out\n", stderr="err\n")
    dev.boot()
    dev.move("set console 2", 2)
    assert dev.command("show klog") == "err\nout\n"
    assert dev.port(1).unread == b""


# ---------------------------------------------------------------------- changes that fail


def test_a_missing_port_gives_both_result_lines_and_the_console_stays(dev):
    dev.remove_port(2)
    dev.boot()
    assert dev.command("set console 2 9600") == MISSING + FAILURE + SUCCESS
    assert dev.command("show console") == block()
    assert dev.terminal(1) == terminal_settings()


def test_settings_that_cannot_be_read_give_both_result_lines(dev):
    dev.boot()
    # The first two reads are those for signals and for the fallback.
    dev.fail_call("tcgetattr", error="EIO", after=2, times=1)
    assert dev.command("set console 9600") == (
        "tty_set_termios: tcgetattr(prev_tio): Input/output error\n"
        "tty_remap_stdio: tty_set_termios(): Input/output error\n" + FAILURE + SUCCESS)
    assert dev.command("show console") == block()
    assert dev.terminal(1) == terminal_settings()


def test_settings_that_cannot_be_applied_give_both_result_lines_and_the_old_ones(dev):
    dev.boot()
    dev.fail_call("tcsetattr", error="EINVAL", after=1, times=1)
    assert dev.command("set console 9600 noflow") == (
        "tty_set_termios: tcsetattr(): Invalid argument\n"
        "tty_remap_stdio: tty_set_termios(): Invalid argument\n" + FAILURE + SUCCESS)
    # Signals on, the old settings again, signals off.
    assert [event.cflag for event in dev.events.of("tcsetattr")] == [terminal_settings()[2]] * 3
    assert dev.command("show console") == block()
    assert dev.terminal(1) == terminal_settings()


def test_settings_that_fail_on_another_port_leave_the_shell_there(dev):
    dev.boot()
    dev.fail_call("tcsetattr", "ttyS2", error="EIO", times=1)
    text = dev.move("set console 2", 2)
    assert text == ("tty_set_termios: tcsetattr(): Input/output error\n"
                    "tty_remap_stdio: tty_set_termios(): Input/output error\n" + FAILURE + SUCCESS)
    assert dev.terminal(2)[2] == terminal_settings()[2]  # what the console had before
    assert "  Device: /dev/ttyS1\n" in dev.command("show console")


def test_a_port_lost_on_the_way_moves_only_the_descriptors_before(dev):
    dev.boot()
    dev.fail_call("open", "/dev/ttyS2", error="ENXIO", after=1)
    dev.type("set console 2")
    # Input reads the new port; output and the errors stay.
    assert dev.text_until_prompt() == \
        "set console 2\ntty_remap_stdio: open(): No such device or address\n" + FAILURE + SUCCESS
    dev.port(2).send(b"version\r")
    assert BANNER in dev.text_until_prompt()


def test_a_port_lost_for_the_errors_alone_is_told_where_the_output_goes(dev):
    dev.boot()
    dev.fail_call("open", "/dev/ttyS2", error="ENXIO", after=2)
    assert dev.move("set console 2", 2) == "tty_remap_stdio: open(): No such device or address\n" + FAILURE + SUCCESS


# ---------------------------------------------------------------------- showing


@pytest.mark.parametrize("level", [1, 3, 5])
def test_show_console_shows_the_settings(dev, level):
    dev.boot()
    dev.command(f"verbose {level}")
    assert dev.screen_of(b"show console") == b"show console" + onlcr("\n" + block())
    assert dev.command("show console x") == block()


def flags(cflag: str, lflag: int = 1) -> str:
    return f"  iflag:  0x00000101\n  oflag:  0x00000005\n  cflag:  {cflag}\n  lflag:  0x{lflag:08x}\n"


@pytest.mark.not_emulated(reason="the number for large files is the build machine's, and the emulator hides the device's")
def test_show_console_shows_the_descriptors_from_verbosity_6_on(dev):
    dev.boot()
    dev.command("verbose 6")
    one = flags("0x800018b2") + "  fcntl:  0x00008002\n"
    assert dev.command("show console") == \
        block() + "".join(f"STD{name}_FILENO:\n{one}" for name in ("IN", "OUT", "ERR")) + "\n"
    dev.command("set console 9600 noflow")
    assert dev.command("show console").count("  cflag:  0x000008bd\n") == 3


def test_show_console_names_the_descriptors_it_cannot_read(dev):
    dev.boot()
    dev.command("verbose 6")
    dev.fail_call("tcgetattr", error="EIO", after=1, times=3)  # the first is for signals
    assert dev.command("show console") == block() + "".join(
        f"{name}:\nERROR: cmd_show_console: Failed to get termios for {name}\n"
        for name in ("STDIN_FILENO", "STDOUT_FILENO", "STDERR_FILENO")) + "\n"


# ---------------------------------------------------------------------- parameters of the board that has a bus


@pytest.fixture
def tk20(dev):
    dev.boot()
    dev.command("verbose 1")  # nobody wants to hear of its signals here
    assert dev.command("set opmode board tk20") == SUCCESS
    return dev


@pytest.mark.parametrize("words, mode, flow, termination", [
    ("rs485", "rs485", "noflow", "off"),
    ("1 115200 rs485 term", "rs485", "noflow", "on"),
    ("rs485 noterm", "rs485", "noflow", "off"),
    ("rs485 hwflow", "rs485", "hwflow", "off"),
    ("rs485 hwflow term", "rs485", "hwflow", "on"),
    ("rs422", "rs422", "noflow", "off"),
    ("rs422 noflow term", "rs422", "noflow", "on"),
    ("noflow", "rs232", "noflow", "n/a"),
])
def test_a_bus_mode_takes_flow_control_away_unless_told(tk20, words, mode, flow, termination):
    assert tk20.command(f"set console {words}") == block(mode=mode, flow=flow, term=termination) + SUCCESS
    assert tk20.terminal(1) == terminal_settings(flow=flow == "hwflow")
    assert tk20.command("show console") == block(mode=mode, flow=flow, term=termination)


def test_back_in_rs232_the_bus_is_not_terminated_and_flow_control_stays_off(tk20):
    tk20.command("set console rs485 term")
    assert tk20.command("set console rs232") == block(flow="noflow") + SUCCESS
    assert tk20.command("set console rs485") == block(mode="rs485", term="off") + SUCCESS


def test_the_termination_is_switched_alone_and_stays(tk20):
    tk20.command("set console rs422")
    assert tk20.command("set console term") == block(mode="rs422", term="on") + SUCCESS
    assert tk20.command("set console rs485") == block(mode="rs485", term="on") + SUCCESS
    assert tk20.command("set console noterm") == block(mode="rs485", term="off") + SUCCESS
