"""Start-up on each model: the product record in flash says which it is, the kernel's GPIO lines show what the
shell made of it."""

import contextlib

from board_session import BoardSession
from gpio_lines import expect_lines, exported
from product import mode_block
from signals import TK10_MFG, TK20, TK20_DIO2X1R, lines, listing, with_levels
from texts import FAILURE, SUCCESS

# Lines of the fixture that are outputs of the tk20, and their defaults there.
OUTPUTS_OF_THE_TK20 = {74: 1, 77: 0, 86: 1, 88: 1}


@contextlib.contextmanager
def started(directory, product_id, hwcfg, mode, rows):
    """A board with this record, after a start that made of it what it should: the mode, and the lines of these rows and
    no others. Inputs are high, as nothing is wired to them. Nothing is asked of the control device."""
    with BoardSession(directory) as dev:
        dev.give_model(product_id, hwcfg)
        shown = dev.boot()
        assert shown.endswith(mode_block(*mode) + "\n") and "ERROR" not in shown
        assert dev.command("show opmode") == mode_block(*mode) + "\n"
        assert dev.command("show product id") == f"\n  Product ID: {product_id}\n\n" + SUCCESS
        rows = with_inputs(rows, 1)
        expect_lines(dev, rows)
        driven = {number for number, line in dev.board.gpio().items() if line.driven or line.direction == "out"}
        assert driven == {number for number, (direction, _) in lines(rows).items() if direction == "out"}
        assert dev.command("gpiolib info") == listing(rows)
        assert dev.board.ctrl_log() == []
        yield dev
        dev.check()


def inputs_of(rows):
    return [number for number, (direction, _) in lines(rows).items() if direction == "in"]


def with_inputs(rows, level):
    """The rows with another level of all inputs."""
    return with_levels(rows, dict.fromkeys(inputs_of(rows), level))


def expect_inputs_shown(dev, rows):
    """Whatever is wired to an input is what the shell shows: every second one low, then the others."""
    for low in 0, 1:
        levels = {number: (at + low) % 2 for at, number in enumerate(inputs_of(rows))}
        for number, level in levels.items():
            dev.board.gpio_input(number, level)
        expect_lines(dev, with_levels(rows, levels))
        assert dev.command("gpiolib info") == listing(with_levels(rows, levels))
    for number in levels:
        dev.board.gpio_input(number, 1)


def set_mode(dev, words):
    assert dev.command(f"set opmode {words}") == SUCCESS


def test_tk20(tmp_path):
    with started(tmp_path, "P2A5", "sp4,dio2x1r", ("tk20", "dio2x1r", 4), TK20_DIO2X1R) as dev:
        full, plain = with_inputs(TK20_DIO2X1R, 1), with_inputs(TK20, 1)
        expect_inputs_shown(dev, full)

        # The mode resets what was driven; without the option its signals are given back, as they are.
        everything_turned = [number for number, (direction, _) in lines(full).items() if direction == "out"]
        for number in everything_turned:
            assert dev.command(f"gpiolib set {number} {1 - lines(full)[number][1]}") == SUCCESS
        assert all(exported(dev)[number][1] != lines(full)[number][1] for number in everything_turned)
        set_mode(dev, "io none")
        expect_lines(dev, plain)
        assert dev.board.gpio()[139][:3] == ("out", 0, False) and dev.board.gpio()[151][:3] == ("out", 1, False)
        assert dev.command("gpiolib info") == listing(plain)
        set_mode(dev, "io dio2x1r")
        expect_lines(dev, full)

        # Of what is no I/O option, or no board, nothing is touched; the number of ports is no matter either.
        with dev.only_changed():
            set_mode(dev, "serports 1")
            for words in "io DIO2X1R", "board TK20", "serports 33":
                assert dev.command(f"set opmode {words}") == f"ERROR: Invalid parameter '{words.split()[1]}'\n"

        # Another board: all lines go back, and the table is empty.
        set_mode(dev, "board tk30")
        expect_lines(dev, "")
        assert dev.command("gpiolib info") == listing("")
        set_mode(dev, "board tk20")
        expect_lines(dev, full)

        # The fixture's board takes its lines as they are: what was an output stays one, for no direction is set.
        set_mode(dev, "board tk10_mfg")
        assert exported(dev) == {**lines(with_inputs(TK10_MFG, 1)),
                                 **{number: ("out", level) for number, level in OUTPUTS_OF_THE_TK20.items()}}

        # Only a start reads the record again.
        shown = dev.restart()
        assert shown.endswith(mode_block("tk20", "dio2x1r", 4) + "\n")
        expect_lines(dev, full)


def test_tk10_mfg(tmp_path):
    with started(tmp_path, "P7", None, ("tk10_mfg", "none", 2), TK10_MFG) as dev:
        rows = with_inputs(TK10_MFG, 1)
        expect_inputs_shown(dev, rows)
        with dev.only_changed():
            for signal, number in ("CP8", 36), ("TX2", 70), ("NRESETIN", -1):
                assert dev.command(f"gpiolib set {signal} 1") == (
                    f"ERROR: gpio{number} ({signal}) is not an output\n" + FAILURE)
        set_mode(dev, "board default")
        expect_lines(dev, "")
        set_mode(dev, "board tk20")
        expect_lines(dev, with_inputs(TK20, 1))
