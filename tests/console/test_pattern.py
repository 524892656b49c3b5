"""show pattern: printable characters for checking a terminal by eye, as often as asked, or until Ctrl-C."""

import signal

import pytest

from texts import PATTERN_LINE, PROMPT


def interrupt(dev):
    """Ctrl-C, up to the next prompt. The terminal drops what it has not sent yet, so a piece may be missing, but no more
    than that: whole lines come before it, and the line that was interrupted is finished after it."""
    dev.interrupt()
    text = dev.expect(PROMPT)
    assert len(text.replace(PATTERN_LINE, "")) < 2 * len(PATTERN_LINE), text
    assert "Done" not in text and "ERROR" not in text


@pytest.mark.parametrize("line, count", [
    ("show pattern", 1), ("show pattern 1", 1), ("show pattern 3", 3), ("show pattern 3x", 3), ("show pattern +2", 2),
    ("show pattern 2 5", 2), ("show pattern 50", 50),
])
def test_lines_that_were_asked_for(dev, line, count):
    dev.boot()
    assert dev.command(line) == PATTERN_LINE * count
    assert len(PATTERN_LINE) == 94 + 1


@pytest.mark.parametrize("word", ["-1", "-2147483648", "-99999999999999999999"])
def test_negative_number(dev, word):
    dev.boot()
    assert dev.command(f"show pattern {word}") == f"ERROR: Invalid parameter '{word}'\n"


@pytest.mark.parametrize("word", ["0", "x", "2147483648", "99999999999999999999"])
def test_without_end_until_interrupted(dev, word):
    dev.boot()
    dev.type(f"show pattern {word}")
    dev.expect(PATTERN_LINE * 20)
    assert not dev.ignores(signal.SIGINT)
    interrupt(dev)
    assert dev.ignores(signal.SIGINT)
    assert dev.command("affirm") == "affirm is OFF\n"


def test_interrupt_ends_a_long_count(dev):
    dev.boot()
    dev.type("show pattern 1000000")
    dev.expect(PATTERN_LINE)
    interrupt(dev)


def test_handler_that_cannot_be_installed_is_told(dev):
    dev.boot()
    dev.fail_call("sigaction", signal.SIGINT.value, error="EINVAL")
    assert dev.command("show pattern") == (
        "NOTE: sigint_install_test_interrupt: Failed to install sigint handler, error=Invalid argument\n" + PATTERN_LINE
        + "NOTE: sigint_install_ignore: Failed to ignore sigint handler, error=Invalid argument\n")


def test_trace(dev):
    dev.boot()
    dev.command("verbose 7")
    assert dev.command("show pattern").startswith("TRACE: cmd_show_pattern:\n!\"#")
