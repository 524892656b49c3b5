"""gpiolib info and gpiolib set of a signal."""

import pytest

from signals import TK20, listing, row_of, with_levels
from texts import FAILURE, INCOMPLETE, SUCCESS


@pytest.mark.parametrize("signal", ["FAULT_LED", "74"])
def test_set_drives_a_line(tk20, signal):
    for word, level in ("low", 0), ("1", 1), ("0", 0), ("high", 1), ("high", 1):
        with tk20.only_changed(74):
            assert tk20.command(f"gpiolib set {signal} {word}") == SUCCESS
        assert tk20.level(74) == level
        assert tk20.command(f"gpiolib info {signal}") == listing(with_levels(row_of(TK20, "FAULT_LED"), {74: level}))


def test_info_shows_what_is_wired_to_an_input(tk20):
    for level in 0, 1:
        tk20.set_level(37, level)
        assert tk20.command("gpiolib info CP9") == listing(with_levels(row_of(TK20, "CP9"), {37: level}))
        assert tk20.command("gpiolib info 37") == tk20.command("gpiolib info CP9")


@pytest.mark.parametrize("signal", ["20", "31", "160", "75", "NOPE", "EXT_IN1", "64", "fault_led", "RELAY", "151"])
def test_info_refuses(tk20, signal):
    with tk20.only_changed():
        assert tk20.command(f"gpiolib info {signal}") == f"\nERROR: Invalid number or name '{signal}'\n\n"


@pytest.mark.parametrize("words, error", [
    *((f"{signal} 1", f"Invalid number or name '{signal}'")
      for signal in ("20", "31", "160", "4294967370", "75", "NOPE", "fault_led", "RELAY", "151")),
    ("NOPE up", "Invalid number or name 'NOPE'"),
    ("FAULT_LED up", "Invalid state 'up'"),
    ("FAULT_LED HIGH", "Invalid state 'HIGH'"),
    ("FAULT_LED LOW", "Invalid state 'LOW'"),
    ("FAULT_LED 2", "Invalid state '2'"),
    ("CP9 up", "Invalid state 'up'"),
    ("CP9 1", "gpio37 (CP9) is not an output"),
    ("37 low", "gpio37 (CP9) is not an output"),
])
def test_set_refuses(tk20, words, error):
    with tk20.only_changed():
        assert tk20.command(f"gpiolib set {words}") == f"ERROR: {error}\n" + FAILURE


@pytest.mark.parametrize("words", ["", " FAULT_LED", " NOPE"])
def test_set_needs_both_words(tk20, words):
    with tk20.only_changed():
        assert tk20.command(f"gpiolib set{words}") == INCOMPLETE
