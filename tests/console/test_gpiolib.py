"""gpiolib info and gpiolib set, and what start-up does to the lines of each board."""

import pytest

from product import PRODUCT_ID
from signals import TK10_MFG, TK20, TK20_DIO2X1R, listing, row_of
from texts import FAILURE, SUCCESS


# ---------------------------------------------------------------------- start-up


def start_of_line(row):
    """What start-up writes for a listed line."""
    number, direction, default = row.split()[:3]
    if direction == "-" or number == "-1":
        return []
    drive = [f"gpio{number}/direction out", f"gpio{number}/value {default}"] if direction == "out" else []
    return [f"export {number}", *drive]


@pytest.mark.parametrize("product_id, rows", [("P2", TK20), ("P7", TK10_MFG), ("P1", ""), ("XX", "")])
def test_start_takes_and_drives_exactly_the_lines_of_the_board(dev, product_id, rows):
    dev.give_model(product_id)
    assert "ERROR" not in dev.boot()
    given_back = [f"unexport {number}" for number in range(32, 160)]
    taken = [write for row in rows.splitlines() for write in start_of_line(row)]
    assert dev.startup.gpio_writes == given_back + taken


def test_failures_are_told_and_the_start_goes_on(dev):
    dev.give_model("P2")
    for name in ("gpio74/direction", "gpio77/value"):
        dev.remove(f"/sys/class/gpio/{name}")
    dev.fail_call("write", "gpio86/value", error=None, result=1)
    dev.fail_call("write", "/export", after=30, times=1)
    text = dev.boot()
    assert [line for line in text.splitlines() if line.startswith("ERROR")] == [
        "ERROR: Failed open to set gpio74 (FAULT_LED) direction to 'out'",
        "ERROR: Failed open to set gpio77 (DISABLE_SPI_CS) value to '0'",
        "ERROR: Failed write to set gpio86 (DTR2_232) value to '1'",
        "ERROR: Failed write to export gpio149 (XLED1)"]
    tried = [event.path for event in dev.startup.of("write")]
    assert not [path for path in tried if "gpio74/" in path or "gpio149/" in path], "a failed step ends it"
    assert "/sys/class/gpio/gpio150/value" in tried, "the others are driven"


def test_kernel_without_lines(dev):
    """Every line that would be taken is told; those of the I/O option are not missed."""
    dev.give_product((PRODUCT_ID, b"P2"))
    text = dev.boot()
    lines = [row.split() for row in TK20.splitlines()]
    assert [line for line in text.splitlines() if line.startswith("ERROR")] == [
        f"ERROR: Failed open to export gpio{line[0]} ({line[3]})" for line in lines]


def test_line_that_cannot_be_given_back_is_told_from_verbosity_6_on(dev):
    dev.make_gpio_lines((40, 41, 160))
    dev.boot()
    dev.fail_call("write", "/sys/class/gpio/unexport", error="EINVAL", after=1, times=3)
    dev.command("verbose 5")
    assert dev.command("set opmode board tk40") == SUCCESS
    dev.command("verbose 6")
    assert dev.command("set opmode board tk40") == "".join(
        f"ERROR: Failed write to unexport gpio{number}\n" for number in (40, 41)) + SUCCESS
    dev.remove("/sys/class/gpio/unexport")
    assert dev.command("set opmode io none") == "".join(
        f"ERROR: Failed open to unexport gpio{number}\n" for number in (40, 41)) + SUCCESS


# ---------------------------------------------------------------------- gpiolib info


@pytest.mark.parametrize("number", ["-1", "4294967295", "+4294967295"])
def test_a_number_outside_of_the_lines_names_no_row(dev, number):
    """Not even the reset input, which has the number -1 in the table of the test fixture."""
    dev.give_model("P7")
    dev.boot()
    assert dev.command("gpiolib info NRESETIN") == listing(row_of(TK10_MFG, "NRESETIN"))
    assert dev.command(f"gpiolib info {number}") == f"\nERROR: Invalid number or name '{number}'\n\n"
    assert dev.command(f"gpiolib set {number} 1") == f"ERROR: Invalid number or name '{number}'\n" + FAILURE


@pytest.mark.parametrize("product_id, hwcfg, rows", [
    ("P2", None, TK20), ("P2", "dio2x1r", TK20_DIO2X1R), ("P7", None, TK10_MFG),
    *((product_id, None, "") for product_id in ("P1", "P3", "P8", "XX"))])
def test_info_lists_the_signals_of_the_model(dev, product_id, hwcfg, rows):
    dev.give_model(product_id, hwcfg)
    dev.boot()
    assert dev.command("gpiolib info") == listing(rows)


@pytest.mark.parametrize("content, error", [
    (b"", "ERROR: Failed reading gpio37 (CP9) value\n"), (b"x\n", ""), (None, "ERROR: Failed open to read gpio37 (CP9) value\n")])
def test_info_of_a_level_that_cannot_be_read(tk20, content, error):
    value = tk20.path("/sys/class/gpio/gpio37/value")
    value.unlink() if content is None else value.write_bytes(content)
    expected = row_of(TK20, "CP9").replace("in  0", "in  -")
    assert tk20.command("gpiolib info CP9") == listing(error + expected)


# ---------------------------------------------------------------------- gpiolib set


def test_set_of_a_pin_with_a_peripheral_is_refused(dev):
    dev.give_model("P7")
    dev.boot()
    assert dev.command("gpiolib set TX2 1") == "ERROR: gpio70 (TX2) is not an output\n" + FAILURE
    assert dev.command("gpiolib set NRESETIN 1") == "ERROR: gpio-1 (NRESETIN) is not an output\n" + FAILURE
    assert dev.ioctls == []


def test_set_fails_where_the_kernel_does(tk20):
    tk20.remove("/sys/class/gpio/gpio74/value")
    assert tk20.command("gpiolib set FAULT_LED 1") == (
        "ERROR: Failed open to set gpio74 (FAULT_LED) value to '1'\n" + FAILURE)
    tk20.fail_call("write", "gpio143/value", error=None, result=1)
    assert tk20.command("gpiolib set HOSTA_EN 1") == (
        "ERROR: Failed write to set gpio143 (HOSTA_EN) value to '1'\n" + FAILURE)


def test_before_a_table_nothing_can_be_set(dev):
    dev.make_gpio_lines()
    dev.boot()
    assert dev.command("gpiolib set FAULT_LED 1") == "ERROR: Invalid number or name 'FAULT_LED'\n" + FAILURE
