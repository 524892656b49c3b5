"""The serial line that the shell is on: it moves to another one and back, at other speeds; on the tk20 its line drivers are
switched, and what the UART says of RS-485 decides."""

import pytest

from console_port import block, terminal_settings
from signals import BUS_MODES, LINE_DRIVERS, RS232_LEVELS, RS485_REFUSED, driver_levels
from texts import BANNER, FAILURE, NO_CHANGE, SUCCESS, invalid


def test_the_console_moves_and_comes_back(dev):
    assert dev.command("show console") == block()
    assert dev.terminal(1) == terminal_settings()
    assert dev.move("set console 2 9600 noflow", 2) == block(2, 9600, "noflow") + SUCCESS
    assert dev.terminal(2) == terminal_settings(9600, flow=False)
    assert dev.terminal(1) == terminal_settings(signals=True), "as during the command that left it"
    assert dev.command("show console") == block(2, 9600, "noflow")
    assert BANNER in dev.command("version")
    assert dev.command("set console hwflow 38400") == invalid("38400")
    assert dev.port(1).unread == b""
    assert dev.move("set console 1 115200 hwflow", 1) == block() + SUCCESS
    assert dev.terminal(1) == terminal_settings()
    assert dev.command("show console") == block()
    assert dev.port(2).unread == b""


def test_other_speeds(dev):
    for speed in 9600, 19200, 38400, 57600:
        assert dev.command(f"set console {speed}") == block(speed=speed) + SUCCESS
        assert dev.terminal(1) == terminal_settings(speed)
    assert dev.command("set console noflow") == block(speed=57600, flow="noflow") + SUCCESS
    assert dev.terminal(1) == terminal_settings(57600, flow=False)
    assert dev.command("set console 115200 hwflow") == block() + SUCCESS
    assert dev.terminal(1) == terminal_settings()
    assert dev.command("set console 115200") == NO_CHANGE


def test_show_console_shows_the_terminal(dev):
    dev.command("verbose 6")
    iflag, oflag, cflag, lflag, _ = terminal_settings(signals=True)
    one = f"  iflag:  0x{iflag:08x}\n  oflag:  0x{oflag:08x}\n  cflag:  0x{cflag:08x}\n  lflag:  0x{lflag:08x}\n"
    shown = dev.command("show console")
    assert shown.startswith(block()) and shown.count(one) == 3


def test_ports_that_cannot_do_it(dev):
    for words, error in (("rs485", "rs485 not valid in current operational mode (tk10_eval)"),
                         ("2 rs422 term", "rs422 not valid in current operational mode (tk10_eval)"),
                         ("0 rs485", "rs485 not valid on /dev/ttyS0")):
        with dev.only_changed():
            assert dev.command(f"set console {words}") == f"ERROR: {error}\n" + FAILURE
    assert dev.command("set console term") == "ERROR: Termination not valid in rs232 mode\n"
    assert dev.command("show console") == block()
    assert dev.terminal(1) == terminal_settings()


# ---------------------------------------------------------------------- line drivers


@pytest.mark.parametrize("words, driven, flags", BUS_MODES)
def test_refused_mode_has_moved_the_line_drivers(tk20, words, driven, flags):
    tk20.refuse_rs485()
    assert driver_levels(tk20, 1) == driver_levels(tk20, 2) == RS232_LEVELS
    with tk20.only_changed(*LINE_DRIVERS[1].values()):
        assert tk20.command(f"set console {words}") == RS485_REFUSED.format(port=1)
    assert driver_levels(tk20, 1) == driven
    assert tk20.command("show console") == block(), "what could not be set is not shown"
    assert tk20.terminal(1) == terminal_settings()
    with tk20.only_changed(*LINE_DRIVERS[1].values()):
        assert tk20.command("set console 9600") == RS485_REFUSED.format(port=1)
    assert driver_levels(tk20, 1) == RS232_LEVELS
    assert tk20.terminal(1) == terminal_settings()


def test_refused_mode_on_the_other_port_leaves_the_shell_there(tk20):
    tk20.refuse_rs485()
    with tk20.only_changed(*LINE_DRIVERS[2].values()):
        assert tk20.move("set console 2 9600 rs422 term", 2) == RS485_REFUSED.format(port=2)
    assert driver_levels(tk20, 2) == (0, 0, 1, 0, 1) and driver_levels(tk20, 1) == RS232_LEVELS
    assert tk20.terminal(2) == terminal_settings(), "as the port that it left had them"
    assert tk20.command("show console") == block(1), "what is shown is that port, too"
    assert tk20.command("set console 1") == NO_CHANGE
    # On a board without line drivers nothing is asked of the UART, and the console can go home.
    assert tk20.command("set opmode board tk10_eval") == SUCCESS
    assert tk20.move("set console 1 9600", 1) == block(1, 9600) + SUCCESS
    assert tk20.command("set console 115200") == block() + SUCCESS


def test_change_of_the_operating_mode_resets_the_line_drivers(tk20):
    tk20.refuse_rs485()
    tk20.command("set console rs485 term")
    assert driver_levels(tk20, 1) == (0, 1, 0, 1, 0)
    assert tk20.command("set opmode io dio2x1r") == SUCCESS
    assert driver_levels(tk20, 1) == RS232_LEVELS


def test_port_0_has_no_line_driver(tk20):
    with tk20.only_changed():
        assert tk20.command("set console 0 rs422") == "ERROR: rs422 not valid on /dev/ttyS0\n" + FAILURE
