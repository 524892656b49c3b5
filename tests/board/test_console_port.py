"""The console on real serial lines: what goes out and comes in there, and a UART that takes RS-485. What is typed and shown
is in both/test_port.py."""

import time

from board_session import PATIENCE, BoardSession
from console_port import block, terminal_settings
from signals import BUS_MODES, LINE_DRIVERS, RS232_LEVELS, driver_levels
from texts import BANNER, PATTERN_LINE, SUCCESS


def test_the_settings_are_shown_after_the_delay(dev):
    sleeping = f"grep -q select /proc/{dev.shell_pid()}/wchan"
    sent = "grep ^2: /proc/tty/driver/serial"
    began = time.monotonic()
    before = dev.board.sh(f"{sent} | cut -d' ' -f5", check=True).output
    dev.type("set console -d4 2 19200")
    # Looked at while the shell sleeps, before and after: the port has its settings and nothing has gone out.
    seen = dev.board.sh(f"until {sleeping} && stty -F /dev/ttyS2 speed && {sent} | cut -d' ' -f5 && {sleeping}; do "
                        "usleep 20000; done", timeout=PATIENCE, check=True).output
    assert seen.endswith(f"19200\n{before}")
    assert dev.expect("set console -d4 2 19200\n") == ""
    dev.console = dev.port(2)
    assert dev.text_until_prompt() == block(2, 19200) + SUCCESS
    assert time.monotonic() - began >= 4
    assert dev.port(1).unread == b""
    assert dev.move("set console 1 115200", 1) == block() + SUCCESS


def test_ctrl_c_is_heard_where_the_console_is(dev):
    for line, port in ("set console 2 57600", 2), ("set console 1 115200", 1):
        dev.move(line, port)
        dev.type("show pattern 0")
        dev.expect(PATTERN_LINE * 2)
        dev.interrupt()
        dev.text_until_prompt()
        assert BANNER in dev.command("version")
    assert dev.command("show console") == block()


def test_an_image_is_received_where_the_console_has_gone(dev):
    contents = bytes(range(256)) * 40
    dev.move("set console 2 57600", 2)
    assert dev.install(contents, "file download serial /tmp/received") == SUCCESS
    assert dev.board.get("/tmp/received") == contents
    assert dev.terminal(2) == terminal_settings(57600)
    assert dev.move("set console 1 115200", 1) == block() + SUCCESS


def test_uart_that_takes_rs485(tmp_path):
    """The kernel adds the flag 02 where a request says nothing of RTS."""
    with BoardSession(tmp_path, cmdline="vboard.rs485=1") as dev:
        dev.give_model("P2")
        dev.boot()
        assert dev.board.rs485() == {0: 0, 1: 0, 2: 0}
        for words, driven, flags in BUS_MODES:
            mode, *term = words.split()
            with dev.only_changed(*LINE_DRIVERS[1].values()):
                assert dev.command(f"set console {words}") == block(mode=mode, term="on" if term else "off") + SUCCESS
            assert driver_levels(dev, 1) == driven and dev.board.rs485() == {0: 0, 1: flags | 0x02, 2: 0}
            assert dev.terminal(1) == terminal_settings(flow=False)
            assert dev.command("set console rs232") == block(flow="noflow") + SUCCESS
            assert driver_levels(dev, 1) == RS232_LEVELS and dev.board.rs485()[1] == 0

        with dev.only_changed(*LINE_DRIVERS[2].values()):
            assert dev.move("set console 2 9600 rs485 term", 2) == block(2, 9600, mode="rs485", term="on") + SUCCESS
        assert driver_levels(dev, 2) == (0, 1, 0, 1, 0) and driver_levels(dev, 1) == RS232_LEVELS
        assert dev.board.rs485() == {0: 0, 1: 0, 2: 0x23}
        assert dev.terminal(2) == terminal_settings(9600, flow=False)
        assert dev.command("show console") == block(2, 9600, mode="rs485", term="on")

        # The port that the console leaves keeps its bus.
        assert dev.move("set console 1 115200 rs232 hwflow", 1) == block() + SUCCESS
        assert driver_levels(dev, 2) == (0, 1, 0, 1, 0) and dev.board.rs485() == {0: 0, 1: 0, 2: 0x23}
        dev.check()
