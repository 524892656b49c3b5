"""The operating mode: what start-up makes of the product record, and the commands that override it."""

import pytest

from product import mode_block
from texts import INCOMPLETE, SUCCESS


@pytest.mark.parametrize("product_id, hwcfg, mode", [
    ("P1", None, ("tk10_eval", "none", 2)),
    ("P1", "sp1,rs", ("tk10_eval", "none", 1)),
    ("P9X", None, ("tk10_eval", "none", 2)),
    ("P0", None, ("tk10_mfg", "none", 2)),
    ("P7AB", None, ("tk10_mfg", "none", 2)),
    ("P2", "sp4,dio2x1r", ("tk20", "dio2x1r", 4)),
    ("P2", "rsp4,xdio2x1r", ("tk20", "none", 2)),
    ("P3", "dio2x1rx,sp1", ("tk30", "none", 1)),
    ("P8", "sp32", ("tk40", "none", 32)),
    ("P8", "sp33", ("tk40", "none", 2)),
    ("XX", None, ("unknown", "none", 0)),
    ("XY12", None, ("unknown", "none", 0)),
    ("", "sp", ("unknown", "none", 0)),
])
def test_start_shows_what_the_record_says(dev, product_id, hwcfg, mode):
    dev.give_model(product_id, hwcfg)
    text = dev.boot()
    assert text.endswith(mode_block(*mode) + "\n")
    assert dev.command("show opmode") == mode_block(*mode) + "\n"


@pytest.mark.parametrize("with_record", [False, True], ids=["no record", "record without product ID"])
def test_start_without_product_id(dev, with_record):
    if with_record:
        dev.give_product()
    assert dev.boot().endswith(mode_block() + "\n")


def test_record_is_read_after_the_flash_and_before_the_signals(dev):
    dev.give_model("P2")
    dev.trace("/sys/class/gpio", "/dev/mtd1")
    text = dev.boot()
    assert text.index("Recovery Loader") < text.index("Current operating mode")
    kinds = [event.path for event in dev.startup.of("open", "tcflush") if "ttyS1" not in event.path or event.kind != "open"]
    assert kinds[0] == "/dev/mtd1" and kinds[1].startswith("/sys/class/gpio"), kinds[:3]
    assert dev.startup.of("run", "open")[3].kind == "run", "the boot environment is read before"
    assert kinds[-1] == "/dev/ttyS1", "pending input is discarded at the end"


@pytest.mark.parametrize("board", ["unknown", "tk10_mfg", "tk10_eval", "tk20", "tk30", "tk40"])
def test_set_board(dev, board):
    dev.make_gpio_lines()
    dev.boot()
    assert dev.command(f"set opmode board {board}") == SUCCESS
    assert dev.command("show opmode") == mode_block(board) + "\n"
    assert dev.command("set opmode board default") == SUCCESS
    assert dev.command("show opmode") == mode_block() + "\n"


@pytest.mark.parametrize("line", ["board TK20", "board tk2", "board 3", "board none", "io dio", "io DIO2X1R", "io 1",
                                  "io unknown", "serports 33", "serports 2x", "serports x", "serports -1",
                                  "serports 0x2", "serports Default"])
def test_word_that_is_no_value(dev, line):
    dev.boot()
    assert dev.command(f"set opmode {line}") == f"ERROR: Invalid parameter '{line.split()[1]}'\n"
    assert dev.command("show opmode") == mode_block() + "\n"


@pytest.mark.parametrize("item", ["board", "io", "serports"])
def test_word_missing(dev, item):
    dev.boot()
    assert dev.command(f"set opmode {item}") == INCOMPLETE


def test_set_io(dev):
    dev.boot()
    assert dev.command("set opmode io dio2x1r") == SUCCESS
    assert dev.command("show opmode") == mode_block(io="dio2x1r") + "\n"
    for word in ("none", "default"):
        dev.command("set opmode io dio2x1r")
        assert dev.command(f"set opmode io {word}") == SUCCESS
        assert dev.command("show opmode") == mode_block() + "\n"


def test_set_serports(dev):
    dev.boot()
    for word, count in (("0", 0), ("1", 1), ("32", 32), ("007", 7), ("default", 2)):
        assert dev.command(f"set opmode serports {word}") == SUCCESS
        assert dev.command("show opmode") == mode_block(ports=count) + "\n"


def test_surplus_words_are_ignored(dev):
    dev.boot()
    assert dev.command("set opmode serports 4 5 x") == SUCCESS
    assert dev.command("show opmode x") == mode_block(ports=4) + "\n"


def test_mode_is_forgotten_at_the_next_start(dev):
    dev.make_gpio_lines()
    dev.boot()
    dev.command("set opmode board tk20")
    dev.command("set opmode io dio2x1r")
    dev.command("set opmode serports 9")
    assert dev.command("show opmode") == mode_block("tk20", "dio2x1r", 9) + "\n"
    dev.kill()
    assert dev.boot().endswith(mode_block() + "\n")


def test_change_of_board_or_io_starts_the_signals_anew(dev):
    dev.give_model("P2")
    dev.boot()
    dev.command("gpiolib set FAULT_LED low")
    dev.mark()
    assert dev.command("set opmode io dio2x1r") == SUCCESS
    writes = dev.events.gpio_writes
    assert writes[:128] == [f"unexport {number}" for number in range(32, 160)]
    assert "gpio74/value 1" in writes and "gpio151/value 0" in writes
    dev.mark()
    assert dev.command("set opmode serports 1") == SUCCESS
    assert dev.command("set opmode board nope") == "ERROR: Invalid parameter 'nope'\n"
    assert dev.events.gpio_writes == []
    dev.mark()
    assert dev.command("set opmode board tk40") == SUCCESS
    assert dev.events.gpio_writes == writes[:128], "a board without table"
