"""The shell with a kernel, a terminal line and tools under it: Ctrl-C, reset, and the commands that show the system."""

import os
import re

import pytest

import real_images
from shell_session import PATIENCE, PROTECTED, plain

CTRL_C = "\x03"
PATTERN = "".join(map(chr, range(33, 127))) + "\n"


def test_ctrl_c_ends_a_pattern_at_a_line_end(dev):
    dev.type("show pattern 0")
    dev.board.console.expect("show pattern 0\r\n")
    dev.board.console.expect(PATTERN.replace("\n", "\r\n") * 2, timeout=PATIENCE)
    dev.board.console.send(CTRL_C)
    # The kernel drops what the port has not sent yet when Ctrl-C comes: a piece may be missing, once.
    rest = dev.text_until_prompt()
    whole = PATTERN * (rest.count("\n") + 1)
    before = os.path.commonprefix([rest, whole])
    assert whole.endswith(rest[len(before):]) and rest.endswith(PATTERN[-2:]), "not ended at the end of a line"
    assert dev.command("show pattern 3") == PATTERN * 3


@pytest.mark.parametrize("words, lines", [("show pattern", 1), ("show pattern 3", 3)])
def test_pattern_to_the_byte_on_the_line(dev, words, lines):
    line = (b"!\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~"
            b"\r\n")
    dev.type(words)
    shown = dev.board.console.expect("CLI> ", timeout=PATIENCE).before
    assert shown == words.encode() + b"\r\n" + line * lines


def test_ctrl_c_does_not_tear_an_erase(dev):
    dev.board.flash_fill("kernel_2", b"\0" * 0x800000)
    dev.board.slow("erase", "kernel_2", 0.03)
    dev.type("flash kill 2 kernel")
    dev.wait_operation("erase", "kernel_2", after=dev.board.flash_operations()["kernel_2"]["erase"] + 10)
    for _ in range(3):
        dev.board.console.send(CTRL_C)
    assert dev.text_until_prompt().endswith("Done: SUCCESS\n")
    assert not dev.flash("kernel_2")


def test_ctrl_c_at_the_prompt_abandons_the_line(dev):
    dev.board.console.send("reset" + CTRL_C)
    assert dev.text_until_prompt().rstrip() == "reset"
    assert dev.command("quit") == ""


def test_reset_boots_the_device_again(dev):
    environment = real_images.environment(bootdelay="5")
    dev.board.flash_fill("bootenv_1", environment)
    dev.command("verbose 5")
    dev.board.put("/tmp/until-reset", "")
    dev.board.sh("flash_unlock /dev/mtd2", check=True)
    shown = dev.reset()
    assert re.search(r"\nZentavio Solvantra Recovery Loader v3\.1\.0\.0R1 \([A-Z][a-z]{2} [ 0-9]\d \d{4} [\d:]{8}\)\n", shown)
    assert "ERROR" not in shown and "Reset Failed" not in shown
    assert dev.board.sh("ls /tmp/until-reset").status != 0, "this is not another boot"
    dev.expect_flash(bootenv_1=environment)
    dev.expect_locked(*PROTECTED)
    assert dev.command("verbose") == "verbosity is 3\n"


def test_kernel_log(dev):
    shown = dev.command("show klog")
    assert '] Creating 10 MTD partitions on "nor":\n' in shown
    assert plain(dev.board.sh("dmesg", check=True).output.encode()).startswith(shown)


def test_system(dev):
    for line in "show system", "show system anything":
        shown = dev.command(line)
        assert shown.startswith("\nMem: ") and shown.endswith("\n\n")
        top, heading, processes = shown.partition("\nPID   USER     COMMAND\n")
        assert re.search(r"^CPU: .*\nLoad average: ", top, re.M) and "top -b -n1" in top
        assert heading and re.search(rf"^ *{dev.shell_pid()} 0 +/sbin/recovery-loader$", processes, re.M)
        assert re.search(r"^ *1 0 +\{init\} /bin/sh /init$", processes, re.M)


BRIEF, VERBOSE = "\nBrief Command Summary:\n\n", "\nVerbose Command Summary:\n\n"
VERSION = "  version \n"
VERSION_TEXT = "    Show the Loader CLI version\n\n"
SHOW = ["show bootenv [<item>]", "show console ", "show klog ", "show oem ", "show opmode ", "show pattern [<iterations>]",
        "show product [hwcfg|id|mac [<id>]]", "show system [<item>]"]


def leaves(listing):
    """The commands of a listing."""
    return re.findall(r"^  (\S.*)$", listing, re.M)


def test_help_lists_all_commands(dev):
    brief, verbose = dev.command("help"), dev.command("help -v")
    assert brief.startswith(BRIEF) and brief.endswith("\n\n")
    assert verbose.startswith(VERBOSE) and not verbose.endswith("\n\n\n")
    assert leaves(brief) == leaves(verbose)
    assert {leaf.split()[0] for leaf in leaves(brief)} == {
        "affirm", "file", "flash", "gpiolib", "help", "history", "network", "quit", "reset", "set", "show", "verbose",
        "version"}
    assert VERSION + VERSION_TEXT in verbose
    assert dev.command("?") == dev.command("HELP") == brief
    assert dev.command("? -v") == verbose


@pytest.mark.parametrize("words, brief, verbose", [
    ("version", BRIEF + VERSION + "\n", VERBOSE + VERSION + VERSION_TEXT),
    ("nothing", BRIEF + "ERROR: Invalid parameter 'nothing'\n\n", VERBOSE + "ERROR: Invalid parameter 'nothing'\n\n"),
    ("serial", BRIEF + "ERROR: Invalid parameter 'serial'\n\n", VERBOSE + "ERROR: Invalid parameter 'serial'\n\n"),
])
def test_help_of_one_word(dev, words, brief, verbose):
    assert dev.command(f"help {words}") == brief
    assert dev.command(f"help -v {words}") == verbose


def test_help_of_a_table(dev):
    assert dev.command("help show") == BRIEF + "".join(f"  {leaf}\n" for leaf in SHOW) + "\n"
    assert leaves(dev.command("help -v show")) == SHOW
    assert dev.command("help show klog") == BRIEF + "  show klog \n\n"
    assert dev.command("help -v show klog") == VERBOSE + "  show klog \n    Show kernel log\n\n"
