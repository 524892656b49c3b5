"""The shell's own commands."""

import os
import re

import pytest

from session import onlcr
from texts import ABORTED, BANNER, BRIEF, PATTERN_LINE, QUESTION, SETTING_DEFAULTS, SUCCESS, VERBOSE, invalid


def test_version_is_the_banner_line_of_the_start(dev):
    assert re.fullmatch(re.escape(BANNER) + r"[A-Z][a-z]{2} [ 1-3]\d \d{4} \d\d:\d\d:\d\d\)\n", dev.command("version"))


def test_verbosity(dev):
    assert dev.command("verbose") == "verbosity is 3\n"
    assert dev.command("verbose 6") == "verbosity is 6\n"
    assert dev.command("verbose 3").endswith("verbosity is 3\n")


@pytest.mark.parametrize("answer, shown", [("n", ABORTED), ("y", SETTING_DEFAULTS + SUCCESS)])
def test_the_question(dev, answer, shown):
    assert dev.command("affirm on") == "affirm is ON\n"
    dev.type("set bootenv defaults")
    assert dev.expect(QUESTION) == "set bootenv defaults\n"
    dev.keys(answer + "\r")
    assert dev.text_until_prompt() == f"{answer}\n{shown}"
    assert dev.command("affirm off") == "affirm is OFF\n"


@pytest.mark.parametrize("words, count", [("show pattern", 1), ("show pattern 3", 3)])
def test_pattern_to_the_byte_on_the_line(dev, words, count):
    line = (b"!\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~"
            b"\r\n")
    assert line == onlcr(PATTERN_LINE)
    assert dev.screen_of(words.encode()) == words.encode() + b"\r\n" + line * count


def test_ctrl_c_ends_a_pattern_at_a_line_end(dev):
    # The kernel drops what the port has not sent yet when Ctrl-C comes: a piece may be missing, once. When it is the last
    # one, nothing tells where the pattern ended, and another one has to.
    for _ in range(20):
        dev.type("show pattern 0")
        dev.expect("show pattern 0\n" + PATTERN_LINE * 2)
        dev.interrupt()
        rest = dev.text_until_prompt()
        whole = PATTERN_LINE * (rest.count("\n") + 1)
        before = os.path.commonprefix([rest, whole])
        behind = rest[len(before):]
        assert whole.endswith(behind), "more than one piece is missing"
        ended = (behind or before).endswith("\n")
        assert ended or not behind, "not ended at the end of a line"
        if ended:
            break
    else:
        pytest.fail("never ended at the end of a line")
    assert dev.command("show pattern 3") == PATTERN_LINE * 3, "an interrupt counts once"


def test_ctrl_c_at_the_prompt_abandons_the_line(dev):
    dev.keys("reset")
    dev.interrupt()
    assert dev.text_until_prompt().rstrip() == "reset"
    assert dev.command("quit") == ""


# ---------------------------------------------------------------------- help

VERSION = "  version \n"
SHOW = ["show bootenv [<item>]", "show console ", "show klog ", "show oem ", "show opmode ", "show pattern [<iterations>]",
        "show product [hwcfg|id|mac [<id>]]", "show system [<item>]"]


@pytest.mark.parametrize("words, brief, verbose", [
    ("version", VERSION + "\n", VERSION + "    Show the Loader CLI version\n\n"),
    ("nothing", invalid("nothing") + "\n", invalid("nothing") + "\n"),
    ("serial", invalid("serial") + "\n", invalid("serial") + "\n"),
    ("show klog", "  show klog \n\n", "  show klog \n    Show kernel log\n\n"),
])
def test_help_of_some_words(dev, words, brief, verbose):
    assert dev.command(f"help {words}") == BRIEF + brief
    assert dev.command(f"help -v {words}") == VERBOSE + verbose


def test_help_of_a_table(dev):
    assert dev.command("help show") == BRIEF + "".join(f"  {leaf}\n" for leaf in SHOW) + "\n"
    assert re.findall(r"^  (\S.*)$", dev.command("help -v show"), re.M) == SHOW
