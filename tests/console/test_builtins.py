"""The shell's own commands, the confirmation question, and signals."""

import os
import signal
import termios

import pytest

from session import onlcr
from texts import FAILURE, QUESTION, SUCCESS


# ---------------------------------------------------------------------- version, quit


@pytest.mark.parametrize("line", ["quit", "exit", "EXIT", "q", "ex", "quit x"])
def test_the_shell_cannot_be_left(dev, line):
    dev.boot()
    assert dev.screen_of(line.encode()) == line.encode() + b"\r\n"
    dev.command("verbose 7")
    assert dev.command(line) == ""  # not even a trace
    dev.expect_ran_exactly([])


# ---------------------------------------------------------------------- verbose, affirm


@pytest.mark.parametrize("text, level", [
    ("1", 1), ("7", 7), ("0x7", 7), ("0X5", 5), ("010", 8), ("99", 99), ("+4", 4), ("6abc", 6), ("0x6g", 6),
    ("4294967295", 4294967295), ("4294967296", 4294967295), ("-1", 4294967295),
    ("99999999999999999999999", 4294967295),
])
def test_verbose_sets_the_level(dev, text, level):
    dev.boot()
    assert dev.command(f"verbose {text}") == f"verbosity is {level}\n"
    assert dev.command("verbose").endswith(f"verbosity is {level}\n")


@pytest.mark.parametrize("text", ["0", "x", "-", "0x", "00", "0x0", "on", "-0"])
def test_verbose_refuses_what_is_no_number_above_zero(dev, text):
    dev.boot()
    assert dev.command(f"verbose {text}") == f"ERROR: Invalid verbose level '{text}'\nverbosity is 3\n"
    dev.command("verbose 5")
    assert dev.command(f"verbose {text}") == f"ERROR: Invalid verbose level '{text}'\nverbosity is 5\n"


def test_verbose_is_3_at_the_start_and_ignores_a_second_word(dev):
    dev.boot()
    assert dev.command("verbose") == "verbosity is 3\n"
    assert dev.command("verbose 2 x") == "verbosity is 2\n"


def test_affirm_is_off_at_every_start(dev):
    dev.boot()
    assert dev.command("affirm") == "affirm is OFF\n"
    assert dev.command("affirm on") == "affirm is ON\n"
    assert dev.command("affirm") == "affirm is ON\n"
    dev.kill()
    dev.boot()
    assert dev.command("affirm") == "affirm is OFF\n"


@pytest.mark.parametrize("option", ["ON", "On", "OFF", "yes", "1", "o"])
def test_affirm_refuses_any_other_word_and_shows_the_state(dev, option):
    dev.boot()
    assert dev.command(f"affirm {option}") == f"ERROR: invalid affirm option={option}\naffirm is OFF\n"
    dev.command("affirm on")
    assert dev.command(f"affirm {option}") == f"ERROR: invalid affirm option={option}\naffirm is ON\n"
    assert dev.command("affirm off x") == "affirm is OFF\n"


# ---------------------------------------------------------------------- the question


@pytest.fixture
def asking(dev):
    """A device that asks before it acts."""
    dev.boot()
    dev.command("affirm on")
    return dev


@pytest.mark.parametrize("keys, echo", [("y\r", "y"), ("Y\r", "y"), ("yes\r", "y"), ("yn\r", "y"), ("y\n", "y")])
def test_an_answer_that_begins_with_y_goes_ahead(asking, keys, echo):
    asking.type("set bootenv defaults")
    asking.expect(QUESTION)
    asking.keys(keys)
    assert asking.screen_until_prompt() == onlcr(
        f"{echo}\nSetting boot environment to defaults...\n" + SUCCESS)


@pytest.mark.parametrize("keys, echo", [
    ("\r", ""), ("n\r", "n"), ("N\r", "n"), ("ny\r", "n"), ("no\r", "n"), (" y\r", " "), ("1\r", "1"),
    ("\tyes\r", "\t"), ("\b y\r", "\b"), ("\xe9\r", "\xe9"), ("\0y\r", "\0"),
])
def test_any_other_answer_aborts(asking, keys, echo):
    asking.type("set bootenv defaults")
    asking.expect(QUESTION)
    asking.keys(keys)
    assert asking.screen_until_prompt() == onlcr(f"{echo}\n<aborted>\n")
    asking.expect_ran_exactly([])


def test_the_question_echoes_the_first_byte_at_once_and_waits_for_enter(asking):
    asking.type("set bootenv defaults")
    assert asking.expect(QUESTION) == "set bootenv defaults\n"
    asking.expect_quiet()
    asking.keys("Y")
    asking.expect("y")
    asking.keys("es")
    asking.expect_quiet()
    asking.expect_ran_exactly([])
    asking.keys("\r")
    assert asking.text_until_prompt() == "\nSetting boot environment to defaults...\n" + SUCCESS


def test_an_answer_that_the_end_of_input_breaks_off_is_none(asking):
    """Nobody has pressed Enter."""
    asking.type("set bootenv defaults")
    asking.expect(QUESTION)
    asking.console.end_input(True)
    asking.keys("y")
    assert asking.text_until_prompt() == "y\n<aborted>\n"
    asking.console.end_input(False)
    assert asking.command("affirm") == "affirm is ON\n"
    asking.expect_ran_exactly([])


def test_ctrl_c_is_no_answer(asking):
    asking.type("set bootenv defaults")
    asking.expect(QUESTION)
    asking.interrupt()
    asking.expect_quiet()
    asking.keys("\r")
    assert asking.text_until_prompt() == "\n<aborted>\n"


def test_set_console_asks_before_it_changes_anything(asking):
    before = termios.tcgetattr(asking.console.slave)
    asking.type("set console 9600")
    asking.expect(QUESTION)
    asking.keys("n\r")
    assert asking.text_until_prompt() == "n\n<aborted>\n"
    assert termios.tcgetattr(asking.console.slave) == before
    asking.type("set console 9600")
    asking.expect(QUESTION)
    asking.keys("y\r")
    assert asking.text_until_prompt().startswith("y\n\nCurrent console settings:\n")
    assert termios.tcgetattr(asking.console.slave)[4] == termios.B9600


@pytest.mark.parametrize("line", ["set console 115200", "set console 0 rs485", "set console rs232 term",
                                  "set bootenv defaults x", "set bootenv bootbank 2", "reset"])
def test_what_is_refused_or_harmless_asks_nothing(asking, line):
    assert "Do you" not in asking.command(line)


def test_nothing_is_asked_once_affirm_is_off_again(asking):
    asking.command("affirm off")
    assert asking.command("set bootenv defaults") == "Setting boot environment to defaults...\n" + SUCCESS


# ---------------------------------------------------------------------- reset


@pytest.mark.parametrize("line", ["reset", "reboot", "RESET now"])
def test_reset_runs_reboot(dev, line):
    dev.boot()
    assert dev.command(line) == ""
    dev.expect_ran_exactly(["/sbin/reboot"])
    assert dev.shell_lines == ["/sbin/reboot"]


@pytest.mark.parametrize("answer, codes", [
    ({"status": 1}, "sys_rc=256 exitstatus=1"),
    ({"status": 2}, "sys_rc=512 exitstatus=2"),
    ({"signal": signal.SIGKILL}, "sys_rc=9 exitstatus=0"),
])
def test_a_reset_that_fails_leaves_the_shell_running(dev, answer, codes):
    dev.answer("reboot", **answer)
    dev.boot()
    assert dev.command("reset") == f"ERROR: system(/sbin/reboot) {codes}\nERROR: Reset Failed\n"
    assert dev.command("verbose") == "verbosity is 3\n"


def test_reset_without_the_tool(dev):
    dev.remove("/sbin/reboot")
    dev.boot()
    assert dev.command("reset").endswith(
        "ERROR: system(/sbin/reboot) sys_rc=32512 exitstatus=127\nERROR: Reset Failed\n")


# ---------------------------------------------------------------------- show system, show klog


@pytest.mark.parametrize("line", ["show system", "show system memory", "show system x y"])
def test_show_system_shows_top_and_ps(dev, line):
    dev.answer("top", stdout="Mem: 61440K used\n")
    dev.answer("ps", stdout="  PID USER\n    1 root\n")
    dev.boot()
    assert dev.command(line) == "\nMem: 61440K used\n  PID USER\n    1 root\n\n"
    assert dev.shell_lines == ["/usr/bin/top -b -n1", "/bin/ps"]


def test_show_system_goes_on_after_a_tool_that_fails(dev):
    dev.answer("top", stderr="top: no\n", status=1)
    dev.answer("ps", stdout="PID\n", status=3)
    dev.boot()
    assert dev.command("show system") == (
        "\ntop: no\nERROR: system(/usr/bin/top -b -n1) sys_rc=256 exitstatus=1\n"
        "PID\nERROR: system(/bin/ps) sys_rc=768 exitstatus=3\n\n")


def test_show_klog_shows_dmesg_and_nothing_more(dev):
    dev.answer("dmesg", stdout="[    0.000000] Booting\n[    1.0] ERROR\n")
    dev.boot()
    assert dev.command("show klog") == "[    0.000000] Booting\n[    1.0] ERROR\n"
    assert dev.shell_lines == ["/bin/dmesg"]


def test_show_klog_that_fails_ends_with_failure(dev):
    dev.answer("dmesg", stdout="half", status=1)
    dev.boot()
    assert dev.command("show klog x") == "halfERROR: system(/bin/dmesg) sys_rc=256 exitstatus=1\n" + FAILURE


# ---------------------------------------------------------------------- signals


def test_the_shell_ignores_interrupt_and_quit(dev):
    dev.boot()
    assert dev.ignores(signal.SIGINT) and dev.ignores(signal.SIGQUIT)
    os.kill(dev.pid, signal.SIGINT)
    os.kill(dev.pid, signal.SIGQUIT)
    assert dev.command("verbose") == "verbosity is 3\n"


@pytest.mark.parametrize("number, notice", [
    (signal.SIGINT, "NOTE: sigint_install_ignore: Failed to ignore sigint handler, error=Invalid argument\n"),
    (signal.SIGQUIT, "NOTE: sigquit_install_ignore: Failed to ignore sigquit handler, error=Invalid argument\n"),
])
def test_a_signal_that_cannot_be_ignored_is_noted_and_start_up_goes_on(dev, number, notice):
    dev.fail_call("sigaction", int(number), error="EINVAL", times=1)
    dev.boot()
    dev.console = dev.boot_console
    assert dev.expect(notice) == ""
    dev.expect_quiet()


def test_ctrl_c_during_a_command_raises_an_interrupt_that_such_a_tool_ignores(dev):
    dev.answer("dmesg", stdout="one\n", held="end")
    dev.boot()
    dev.type("show klog")
    dev.expect("one\n")
    assert termios.tcgetattr(dev.console.slave)[3] & termios.ISIG
    dev.interrupt()
    dev.keys(b"v")
    dev.wait_typed_ahead(1)  # so the line has taken the Ctrl-C in front of it, too
    dev.release("dmesg")
    assert dev.screen_until_prompt() == b""  # no ^C, no failure
    assert dev.events.of("run")[0].sigint == "ignored"
    assert dev.events.of("exit")[0].status == "0"
    assert not termios.tcgetattr(dev.console.slave)[3] & termios.ISIG


def test_ctrl_backslash_is_a_character_everywhere(dev):
    dev.unknown_command_expected = True
    dev.answer("dmesg", stdout="one\n", held="end")
    dev.boot()
    dev.type("show klog")
    dev.expect("one\n")
    dev.keys(b"\x1c")
    dev.wait_typed_ahead(1)
    dev.release("dmesg")
    assert dev.screen_until_prompt() == b""
    assert dev.screen_of(b"\x1c") == b"\x1c\x1c\r\nERROR: Unknown Command\r\n"


def test_ctrl_c_during_a_command_drops_what_was_typed_ahead(dev):
    dev.answer("dmesg", stdout="one\n", held="end")
    dev.boot()
    dev.type("show klog")
    dev.expect("one\n")
    dev.keys(b"abc")
    dev.wait_typed_ahead(3)
    dev.interrupt()
    dev.wait_typed_ahead(0)
    dev.release("dmesg")
    assert dev.screen_until_prompt() == b""
    dev.expect_quiet()
    assert dev.command("verbose") == "verbosity is 3\n"
