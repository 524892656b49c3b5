"""set console and show console on real serial lines: the shell moves from one to the other and back, at other speeds;
on the tk20 it switches the line drivers, and what the UART says of RS-485 decides."""

import time

import pytest

from console_port import block, terminal_settings
from gpio_lines import exported, only_changed
from product import board_record
from shell_session import FAILURE, PATIENCE, SUCCESS, ShellSession, plain
from signals import BUS_MODES, LINE_DRIVERS

RS232 = (1, 1, 1, 0, 0)
PATTERN = "".join(map(chr, range(33, 127))) + "\r\n"
NO_CHANGE = "<no change>\n" + SUCCESS
REFUSED = ("ERROR: ioctl(TIOCSRS485) on /dev/ttyS{port}\n"
           "tty_set_termios: tty_configure_mode(): Inappropriate ioctl for device\n"
           "tty_remap_stdio: tty_set_termios(): Inappropriate ioctl for device\n" + FAILURE + SUCCESS)


def terminal(*arguments, **options):
    """Flags and special characters of a port with the console's settings."""
    iflag, oflag, cflag, lflag, _, _, cc = terminal_settings(*arguments, **options)
    return iflag, oflag, cflag, lflag, cc


def move(dev, line, port):
    """Types what moves the shell to another port, and goes on there. Returns what was shown there; where it was typed
    there is its echo and no more."""
    dev.type(line)
    left, dev.console = dev.console, dev.port(port)
    shown = dev.text_until_prompt()
    assert plain(left.unread) == line + "\n"
    left.skip()
    return shown


def levels(dev, port):
    """Of the port's line driver."""
    lines = exported(dev)
    return tuple(lines[number][1] for number in LINE_DRIVERS[port].values())


def test_the_console_moves_and_comes_back(dev):
    assert dev.command("show console") == block()
    assert dev.terminal(1) == terminal()
    assert move(dev, "set console 2 9600 noflow", 2) == block(2, 9600, "noflow") + SUCCESS
    assert dev.terminal(2) == terminal(9600, flow=False)
    assert dev.terminal(1) == terminal(signals=True), "as during the command that left it"
    assert dev.command("show console") == block(2, 9600, "noflow")
    assert "Recovery Loader" in dev.command("version")
    assert dev.command("set console hwflow 38400") == "ERROR: Invalid parameter '38400'\n"
    assert dev.board.console.unread == b""
    assert move(dev, "set console 1 115200 hwflow", 1) == block() + SUCCESS
    assert dev.terminal(1) == terminal()
    assert dev.command("show console") == block()
    assert dev.board.serial2.unread == b""


def test_ctrl_c_is_heard_where_the_console_is(dev):
    for line, port in ("set console 2 57600", 2), ("set console 1 115200", 1):
        move(dev, line, port)
        dev.type("show pattern 0")
        dev.console.expect(PATTERN * 2, timeout=PATIENCE)
        dev.console.send("\x03")
        dev.text_until_prompt()
        assert "Recovery Loader" in dev.command("version")
    assert dev.command("show console") == block()


def test_other_speeds(dev):
    for speed in 9600, 19200, 38400, 57600:
        assert dev.command(f"set console {speed}") == block(speed=speed) + SUCCESS
        assert dev.terminal(1) == terminal(speed)
    assert dev.command("set console noflow") == block(speed=57600, flow="noflow") + SUCCESS
    assert dev.terminal(1) == terminal(57600, flow=False)
    assert dev.command("set console 115200 hwflow") == block() + SUCCESS
    assert dev.terminal(1) == terminal()
    assert dev.command("set console 115200") == NO_CHANGE


def test_the_settings_are_shown_after_the_delay(dev):
    sleeping = f"[ $(cat /proc/{dev.shell_pid()}/wchan) = hrtimer_nanosleep ]"
    sent = "grep ^2: /proc/tty/driver/serial"
    began = time.monotonic()
    before = dev.board.sh(f"{sent} | cut -d' ' -f5", check=True).output
    dev.type("set console -d4 2 19200")
    # Looked at while the shell sleeps, before and after: the port has its settings and nothing has gone out.
    seen = dev.board.sh(f"until {sleeping} && stty -F /dev/ttyS2 speed && {sent} | cut -d' ' -f5 && {sleeping}; do "
                        "usleep 20000; done", timeout=PATIENCE, check=True).output
    assert seen.endswith(f"19200\n{before}")
    left, dev.console = dev.console, dev.board.serial2
    assert dev.text_until_prompt() == block(2, 19200) + SUCCESS
    assert time.monotonic() - began >= 4
    assert plain(left.unread) == "set console -d4 2 19200\n"
    left.skip()
    assert move(dev, "set console 1 115200", 1) == block() + SUCCESS


def test_show_console_shows_the_terminal(dev):
    dev.command("verbose 6")
    iflag, oflag, cflag, lflag, _ = terminal(signals=True)
    one = f"  iflag:  0x{iflag:08x}\n  oflag:  0x{oflag:08x}\n  cflag:  0x{cflag:08x}\n  lflag:  0x{lflag:08x}\n"
    shown = dev.command("show console")
    assert shown.startswith(block()) and shown.count(one) == 3


def test_an_image_is_received_where_the_console_has_gone(dev):
    contents = bytes(range(256)) * 40
    move(dev, "set console 2 57600", 2)
    dev.begin("file download serial /tmp/received", port=2)
    dev.board.serial2.send_paced(contents)
    assert dev.text_after_transfer() == SUCCESS
    assert dev.board.get("/tmp/received") == contents
    assert dev.terminal(2) == terminal(57600)
    assert move(dev, "set console 1 115200", 1) == block() + SUCCESS


def test_ports_that_cannot_do_it(dev):
    for words, error in (("rs485", "rs485 not valid in current operational mode (tk10_eval)"),
                         ("2 rs422 term", "rs422 not valid in current operational mode (tk10_eval)"),
                         ("0 rs485", "rs485 not valid on /dev/ttyS0")):
        with only_changed(dev):
            assert dev.command(f"set console {words}") == f"ERROR: {error}\n" + FAILURE
    assert dev.command("set console term") == "ERROR: Termination not valid in rs232 mode\n"
    assert dev.command("show console") == block()
    assert dev.terminal(1) == terminal()


# The emulated UART refuses the request for RS-485, also the one that switches it off.


@pytest.mark.parametrize("words, driven, flags", BUS_MODES)
def test_refused_mode_has_moved_the_line_drivers(tk20, words, driven, flags):
    assert levels(tk20, 1) == levels(tk20, 2) == RS232
    with only_changed(tk20, *LINE_DRIVERS[1].values()):
        assert tk20.command(f"set console {words}") == REFUSED.format(port=1)
    assert levels(tk20, 1) == driven
    assert tk20.command("show console") == block(), "what could not be set is not shown"
    assert tk20.terminal(1) == terminal()
    with only_changed(tk20, *LINE_DRIVERS[1].values()):
        assert tk20.command("set console 9600") == REFUSED.format(port=1)
    assert levels(tk20, 1) == RS232
    assert tk20.terminal(1) == terminal()


def test_refused_mode_on_the_other_port_leaves_the_shell_there(tk20):
    with only_changed(tk20, *LINE_DRIVERS[2].values()):
        assert move(tk20, "set console 2 9600 rs422 term", 2) == REFUSED.format(port=2)
    assert levels(tk20, 2) == (0, 0, 1, 0, 1) and levels(tk20, 1) == RS232
    assert tk20.terminal(2) == terminal(), "as the port that it left had them"
    assert tk20.command("show console") == block(1), "what is shown is that port, too"
    assert tk20.command("set console 1") == NO_CHANGE
    # On a board without line drivers nothing is asked of the UART, and the console can go home.
    assert tk20.command("set opmode board default") == SUCCESS
    assert move(tk20, "set console 1 9600", 1) == block(1, 9600) + SUCCESS
    assert tk20.command("set console 115200") == block() + SUCCESS


def test_mode_change_of_the_board_resets_the_line_drivers(tk20):
    tk20.command("set console rs485 term")
    assert levels(tk20, 1) == (0, 1, 0, 1, 0)
    assert tk20.command("set opmode io dio2x1r") == SUCCESS
    assert levels(tk20, 1) == RS232


def test_port_0_has_no_line_driver(tk20):
    with only_changed(tk20):
        assert tk20.command("set console 0 rs422") == "ERROR: rs422 not valid on /dev/ttyS0\n" + FAILURE


def test_uart_that_takes_rs485(tmp_path):
    """The kernel adds the flag 02 where a request says nothing of RTS."""
    with ShellSession(tmp_path, cmdline="vboard.rs485=1") as dev:
        dev.board.flash_fill("prod_config", board_record("P2"))
        dev.start()
        assert dev.board.rs485() == {0: 0, 1: 0, 2: 0}
        for words, driven, flags in BUS_MODES:
            mode, *term = words.split()
            with only_changed(dev, *LINE_DRIVERS[1].values()):
                assert dev.command(f"set console {words}") == block(mode=mode, term="on" if term else "off") + SUCCESS
            assert levels(dev, 1) == driven and dev.board.rs485() == {0: 0, 1: flags | 0x02, 2: 0}
            assert dev.terminal(1) == terminal(flow=False)
            assert dev.command("set console rs232") == block(flow="noflow") + SUCCESS
            assert levels(dev, 1) == RS232 and dev.board.rs485()[1] == 0

        with only_changed(dev, *LINE_DRIVERS[2].values()):
            assert move(dev, "set console 2 9600 rs485 term", 2) == block(2, 9600, mode="rs485", term="on") + SUCCESS
        assert levels(dev, 2) == (0, 1, 0, 1, 0) and levels(dev, 1) == RS232
        assert dev.board.rs485() == {0: 0, 1: 0, 2: 0x23}
        assert dev.terminal(2) == terminal(9600, flow=False)
        assert dev.command("show console") == block(2, 9600, mode="rs485", term="on")

        # The port that the console leaves keeps its bus.
        assert move(dev, "set console 1 115200 rs232 hwflow", 1) == block() + SUCCESS
        assert levels(dev, 2) == (0, 1, 0, 1, 0) and dev.board.rs485() == {0: 0, 1: 0, 2: 0x23}
        dev.check()
