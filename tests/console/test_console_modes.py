"""Changing the console's mode on the board with line drivers: what is driven and requested in which order, and what a
failure on the way leaves behind."""

import pytest

from console_port import block
from session import onlcr
from signals import BUS_MODES, LINE_DRIVERS
from texts import FAILURE, SUCCESS

REQUEST = 0x542F  # TIOCSRS485
PORT_1 = LINE_DRIVERS[1]


@pytest.fixture
def tk20(dev):
    dev.give_model("P2")
    dev.boot()
    return dev


def steps(dev):
    """Driven signals and requests, in order: "136=0", "flags 03"; every request has the whole record of 32 bytes."""
    found = []
    for event in dev.events.of("write", "ioctl"):
        if event.kind == "write" and event.path.startswith("/sys/class/gpio/gpio"):
            assert event.data[1:] == b"\0"
            found.append(f"{event.path.split('/')[4].removeprefix('gpio')}={event.data[:1].decode()}")
        elif event.kind == "ioctl":
            assert event.request == REQUEST and len(event.argument) == 32 and event.argument[1:] == bytes(31)
            found.append(f"flags {event.argument[0]:02x}")
    return found


@pytest.mark.parametrize("words, levels, flags", BUS_MODES)
@pytest.mark.parametrize("port, signals", LINE_DRIVERS.items())
def test_signals_are_driven_in_their_order_and_then_the_kernel_is_told(tk20, port, signals, words, levels, flags):
    tk20.type(f"set console {port} {words}")
    tk20.console = tk20.port(port)
    mode, *term = words.split()
    tk20.expect(block(port, mode=mode, term="on" if term else "off") + SUCCESS)
    assert steps(tk20) == [f"{number}={value}" for number, value in zip(signals.values(), levels)] + [f"flags {flags:02x}"]
    assert tk20.ioctls[0].path == f"/dev/ttyS{port}"


def test_rs232_switches_rs485_off(tk20):
    tk20.command("set console 9600")
    assert steps(tk20) == ["136=1", "137=1", "138=1", "141=0", "140=0", "flags 00"]


def test_terminal_settings_come_before_the_mode(tk20):
    tk20.command("set console rs485")
    kinds = [event.kind for event in tk20.events
             if event.kind in ("tcsetattr", "ioctl") or event.kind == "write" and "gpio" in event.path]
    assert kinds[-8:] == ["tcsetattr", *["write"] * 5, "ioctl", "tcsetattr"], "the last is of the prompt"


def test_delay_lies_between_the_request_and_the_settings(tk20):
    tk20.type("set console -d5 2 rs422 term")
    tk20.console = tk20.port(2)
    assert tk20.expect("Done") == block(2, mode="rs422", term="on")
    order = [event.kind for event in tk20.events.of("ioctl", "sleep")]
    assert order == ["ioctl", "sleep"] and tk20.sleeps == [5]


def test_start_up_drives_nothing_for_the_console(tk20):
    """The console is mapped before the board is known; its drivers get their defaults with all other signals."""
    assert tk20.startup.ioctls == []
    writes = tk20.startup.gpio_writes
    assert [writes.count(f"gpio{number}/value {value}") for number, value in zip(PORT_1.values(), "11100")] == [1] * 5


def test_port_0_has_no_driver(tk20):
    tk20.type("set console 0")
    tk20.console = tk20.port(0)
    tk20.expect(block(0) + SUCCESS)
    assert steps(tk20) == []


@pytest.mark.parametrize("product_id, board", [("P1", "tk10_eval"), ("P7", "tk10_mfg"), ("P3", "tk30"), ("P8", "tk40"),
                                               ("XX", "unknown")])
def test_other_boards_have_no_driver(dev, product_id, board):
    dev.give_model(product_id)
    dev.boot()
    for mode in ("rs485", "rs422"):
        assert dev.command(f"set console {mode}") == (
            f"ERROR: {mode} not valid in current operational mode ({board})\n" + FAILURE)
        assert dev.command(f"set console 0 {mode}") == f"ERROR: {mode} not valid on /dev/ttyS0\n" + FAILURE
    dev.command("set console 9600")
    assert steps(dev) == []


def test_mode_becomes_possible_with_the_board(dev):
    dev.make_gpio_lines()
    dev.boot()
    assert dev.command("set console rs485").endswith(FAILURE)
    dev.command("set opmode board tk20")
    assert dev.command("set console rs485") == block(1, mode="rs485", term="off") + SUCCESS


def test_change_of_the_operating_mode_resets_the_drivers(tk20):
    tk20.command("set console rs485 term")
    assert tk20.level(136) == 0 and tk20.level(141) == 1
    tk20.command("set opmode io dio2x1r")
    assert tk20.level(136) == 1 and tk20.level(141) == 0
    assert tk20.command("show console") == block(1, mode="rs485", term="on"), "what was set stays on show"


# ---------------------------------------------------------------------- failures

def test_signal_that_cannot_be_driven_is_told_and_the_rest_goes_on(tk20):
    tk20.remove("/sys/class/gpio/gpio137/value")
    tk20.fail_call("write", "gpio141/value", error=None, result=1)
    assert tk20.command("set console rs485 term") == (
        "ERROR: Failed open to set gpio137 (4W_B1) value to '1'\n"
        "ERROR: Failed write to set gpio141 (TX_2W_TE1) value to '1'\n" + block(1, mode="rs485", term="on") + SUCCESS)
    assert [event.argument[0] for event in tk20.ioctls] == [0x23]


def test_declined_change_ends_without_result(tk20):
    tk20.command("affirm on")
    tk20.mark()
    tk20.type("set console rs485")
    tk20.expect("(y/N)? ")
    tk20.keys("n\r")
    assert tk20.text_until_prompt().endswith("<aborted>\n")
    assert steps(tk20) == []


def test_bytes_of_the_settings_block_on_the_line(tk20):
    tk20.type("set console rs422 term")
    assert onlcr(block(1, mode="rs422", term="on") + SUCCESS) in tk20.screen_until_prompt()
