"""gpiolib info and gpiolib set on real GPIO lines. What start-up makes of them is in test_models.py."""

from gpio_lines import expect_lines, exported
from signals import TK20, TK20_DIO2X1R, lines, listing, row_of, with_levels
from texts import FAILURE, SUCCESS

INPUTS_HIGH = {number: 1 for number, (direction, _) in lines(TK20_DIO2X1R).items() if direction == "in"}
ROWS = with_levels(TK20, INPUTS_HIGH)


def test_every_output_is_driven_by_its_number_and_its_name(tk20):
    outputs = {row.split()[3]: int(row.split()[0]) for row in ROWS.splitlines() if row.split()[1] == "out"}
    turned = {number: 1 - lines(ROWS)[number][1] for number in outputs.values()}
    for name, number in outputs.items():
        with tk20.only_changed(number):
            assert tk20.command(f"gpiolib set {name} {turned[number]}") == SUCCESS
    expect_lines(tk20, with_levels(ROWS, turned))
    assert tk20.command("gpiolib info") == listing(with_levels(ROWS, turned))
    for number in outputs.values():
        assert tk20.command(f"gpiolib set {number} {'low' if turned[number] else 'high'}") == SUCCESS
    expect_lines(tk20, ROWS)


def test_an_output_shows_what_is_driven_not_what_is_wired_to_it(tk20):
    with tk20.only_changed():
        tk20.board.gpio_input(74, 0)
        assert tk20.command("gpiolib info FAULT_LED") == listing(row_of(ROWS, "FAULT_LED"))
        tk20.board.gpio_input(74, 1)


def test_the_io_option_brings_its_signals(tk20):
    assert tk20.command("set opmode io dio2x1r") == SUCCESS
    with tk20.only_changed(151):
        assert tk20.command("gpiolib set RELAY high") == SUCCESS
    expect_lines(tk20, with_levels(TK20_DIO2X1R, {**INPUTS_HIGH, 151: 1}))
    tk20.board.gpio_input(64, 0)
    assert tk20.command("gpiolib info EXT_IN1") == listing(row_of(TK20_DIO2X1R, "EXT_IN1"))
    tk20.board.gpio_input(64, 1)
    assert tk20.command("set opmode io none") == SUCCESS
    assert tk20.command("gpiolib set RELAY low") == "ERROR: Invalid number or name 'RELAY'\n" + FAILURE
    assert tk20.board.gpio()[151].level == 1, "a signal without an option is out of reach"


def test_lines_that_others_have_exported_are_given_back(dev):
    """Whoever exported them: a shell that was killed leaves its own behind."""
    dev.board.sh("cd /sys/class/gpio; for n in 32 60 159; do echo $n >export; done; echo high >gpio60/direction",
                 check=True)
    assert exported(dev).keys() == {32, 60, 159}
    with dev.only_changed(32, 60, 159):
        assert dev.command("set opmode board default") == SUCCESS
    expect_lines(dev, "")
    dev.board.sh("cd /sys/class/gpio; echo 60 >export; echo in >gpio60/direction; echo 60 >unexport", check=True)


def test_a_line_that_is_gone_is_told(tk20):
    tk20.board.sh("echo 74 >/sys/class/gpio/unexport; echo 37 >/sys/class/gpio/unexport", check=True)
    with tk20.only_changed():
        assert tk20.command("gpiolib set FAULT_LED 0") == (
            "ERROR: Failed open to set gpio74 (FAULT_LED) value to '0'\n" + FAILURE)
        assert tk20.command("gpiolib info CP9") == listing(
            "ERROR: Failed open to read gpio37 (CP9) value\n" + with_levels(row_of(ROWS, "CP9"), {37: "-"}))
    assert tk20.command("set opmode board tk20") == SUCCESS
    expect_lines(tk20, ROWS)


def test_an_output_that_was_turned_round_cannot_be_driven(tk20):
    """The kernel refuses a level for an input."""
    tk20.board.sh("echo in >/sys/class/gpio/gpio74/direction", check=True)
    with tk20.only_changed():
        assert tk20.command("gpiolib set FAULT_LED 0") == (
            "ERROR: Failed write to set gpio74 (FAULT_LED) value to '0'\n" + FAILURE)
    assert tk20.command("set opmode board tk20") == SUCCESS
    expect_lines(tk20, ROWS)
